// SPDX-License-Identifier: BSD-3-Clause
#include "trace.h"

#include <algorithm>
#include <cstddef>

namespace bfcl::component {

namespace {

constexpr std::size_t DIGITS = 8;
constexpr std::size_t LINE_WIDTH = 96;

// The lowest bit in which two values of one width differ, or their width.
std::size_t first_difference(const std::vector<bool>& a, const std::vector<bool>& b) {
  return static_cast<std::size_t>(std::mismatch(a.begin(), a.end(), b.begin()).first - a.begin());
}

std::size_t interesting_bit(const std::vector<std::vector<bool>>& values) {
  for (std::size_t i = values.size(); i-- > 1;) {
    const std::size_t bit = first_difference(values[i - 1], values[i]);
    if (bit != values[i].size()) {
      return bit;
    }
  }
  return 0;
}

std::string digits(const std::vector<bool>& bits, std::size_t low, std::size_t high) {
  std::string text;
  for (std::size_t digit = high; digit-- > low;) {
    unsigned value = 0;
    for (std::size_t bit = std::min(4 * digit + 4, bits.size()); bit-- > 4 * digit;) {
      value = 2 * value + (bits[bit] ? 1 : 0);
    }
    text += "0123456789abcdef"[value];
  }
  return text;
}

// The cells of a column, below its name.
std::vector<std::string> cells(const TraceColumn& column) {
  std::vector<std::string> text = {column.name};
  for (const std::vector<bool>& bits : column.values) {
    const std::size_t all = (bits.size() + 3) / 4;
    const std::size_t low =
        all <= DIGITS ? 0 : interesting_bit(column.values) / 4 / DIGITS * DIGITS;
    const std::size_t high = std::min(low + DIGITS, all);
    text.push_back((high < all ? ".." : "") + digits(bits, low, high) + (low > 0 ? ".." : ""));
  }
  return text;
}

std::vector<std::string> clock_cells(std::size_t clocks, std::size_t reset_clocks) {
  std::vector<std::string> text = {"clock"};
  for (std::size_t clock = 0; clock < clocks; ++clock) {
    text.push_back(clock < reset_clocks ? "reset" : std::to_string(clock - reset_clocks + 1));
  }
  return text;
}

// Appends a column, right-aligned. A name may be cut to the width of the values, and is if the line
// would become too long.
void append(std::vector<std::string>& lines, std::vector<std::string> column, std::size_t widest) {
  if (column.front().size() > widest) {
    column.front().resize(widest);
  }
  std::size_t width = 0;
  for (const std::string& cell : column) {
    width = std::max(width, cell.size());
  }
  for (std::size_t i = 0; i < lines.size(); ++i) {
    lines[i] += "  " + std::string(width - column[i].size(), ' ') + column[i];
  }
}

std::string join_lines(const std::vector<std::string>& clocks,
                       const std::vector<std::string>& lines) {
  std::string text;
  for (std::size_t i = 0; i < lines.size();) {
    std::size_t end = i + 1;
    while (end < lines.size() && lines[end] == lines[i] &&
           (clocks[end] == "reset") == (clocks[i] == "reset")) {
      ++end;
    }
    const std::size_t equal = end - i;
    const bool cut = equal > 3;
    for (std::size_t line = i; line < (cut ? i + 1 : end); ++line) {
      text += "  " + std::string(5 - std::min<std::size_t>(clocks[line].size(), 5), ' ') +
              clocks[line] + lines[line] + "\n";
    }
    text += cut ? "    ... " + std::to_string(equal - 1) + " more clocks like this\n" : "";
    i = end;
  }
  return text;
}

} // namespace

std::string trace_table(const std::vector<TraceColumn>& columns, std::size_t reset_clocks) {
  if (columns.empty()) {
    return {};
  }
  const std::size_t clocks = columns.front().values.size();
  const std::size_t widest = std::max<std::size_t>(LINE_WIDTH / (columns.size() + 1), 4) - 2;
  std::vector<std::string> lines(clocks + 1);
  for (const TraceColumn& column : columns) {
    append(lines, cells(column), std::max(widest, DIGITS));
  }
  return join_lines(clock_cells(clocks, reset_clocks), lines);
}

} // namespace bfcl::component
