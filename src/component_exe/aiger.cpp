// SPDX-License-Identifier: BSD-3-Clause
#include "aiger.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>

namespace bfcl::component {

namespace {

std::optional<std::string> read_file(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    return std::nullopt;
  }
  return std::string(std::istreambuf_iterator<char>(file), {});
}

// Differences between literals, in groups of 7 bits, the lowest first.
std::optional<unsigned> take_delta(std::istream& text) {
  unsigned delta = 0;
  for (unsigned shift = 0; shift < 32; shift += 7) {
    const int byte = text.get();
    if (byte < 0) {
      return std::nullopt;
    }
    delta |= (static_cast<unsigned>(byte) & 0x7FU) << shift;
    if (byte < 0x80) {
      return delta;
    }
  }
  return std::nullopt;
}

} // namespace

bool Aiger::load(const std::string& file) {
  const std::optional<std::string> graph = read_file(file + ".aig");
  const std::optional<std::string> names = read_file(file + ".map");
  return graph && names && parse(*graph) && parse_names(*names);
}

bool Aiger::parse(const std::string& text) {
  std::istringstream stream(text);
  std::string format;
  std::size_t variables = 0;
  std::size_t latches = 0;
  std::size_t outputs = 0;
  std::size_t ands = 0;
  stream >> format >> variables >> m_inputs >> latches >> outputs >> ands;
  const std::size_t size = text.size(); // every latch, output and AND takes at least two bytes
  if (!stream || format != "aig" || std::max({m_inputs / 64, latches, outputs, ands}) > size ||
      variables != m_inputs + latches + ands) {
    return false;
  }
  m_next.resize(latches);
  m_outputs.resize(outputs);
  for (std::vector<unsigned>* literals : {&m_next, &m_outputs}) {
    for (unsigned& literal : *literals) {
      stream >> literal;
      if (!stream || literal > 2 * variables + 1) {
        return false;
      }
    }
  }
  stream.get(); // the end of the line
  for (std::size_t i = 0; i < ands; ++i) {
    const auto own = static_cast<unsigned>(2 * (m_inputs + latches + i + 1));
    const std::optional<unsigned> left = take_delta(stream);
    const std::optional<unsigned> right = take_delta(stream);
    if (!left || !right || *left == 0 || *left > own || *right > own - *left) {
      return false;
    }
    m_ands.push_back({own - *left, own - *left - *right});
  }
  return true;
}

// Lines of the form "output INDEX BIT NAME".
bool Aiger::parse_names(const std::string& text) {
  std::istringstream stream(text);
  std::string line;
  while (std::getline(stream, line)) {
    std::istringstream words(line);
    std::string kind;
    std::size_t index = 0;
    std::size_t bit = 0;
    std::string name;
    words >> kind >> index >> bit >> name;
    if (kind != "output") {
      continue;
    }
    if (!words || index >= m_outputs.size() || bit >= m_outputs.size()) {
      return false;
    }
    std::vector<std::size_t>& bits = m_names[name];
    bits.resize(std::max(bits.size(), bit + 1), index);
    bits[bit] = index;
  }
  return true;
}

std::optional<std::size_t> Aiger::output(const std::string& name, std::size_t bit) const {
  const auto found = m_names.find(name);
  if (found == m_names.end() || bit >= found->second.size()) {
    return std::nullopt;
  }
  return found->second[bit];
}

std::vector<Aiger::Clock> Aiger::simulate(const std::vector<std::vector<std::size_t>>& high) const {
  std::vector<bool> values(1 + m_inputs + m_next.size() + m_ands.size());
  const auto value = [&](unsigned literal) { return values[literal / 2] != (literal % 2 != 0); };
  std::vector<bool> state(m_next.size());
  std::vector<Clock> clocks;
  for (const std::vector<std::size_t>& inputs : high) {
    std::fill(values.begin(), values.end(), false);
    for (const std::size_t input : inputs) {
      if (input < m_inputs) {
        values[1 + input] = true;
      }
    }
    std::copy(state.begin(), state.end(),
              values.begin() + static_cast<std::ptrdiff_t>(1 + m_inputs));
    for (std::size_t i = 0; i < m_ands.size(); ++i) {
      values[1 + m_inputs + state.size() + i] = value(m_ands[i].left) && value(m_ands[i].right);
    }
    std::transform(m_next.begin(), m_next.end(), state.begin(), value);
    Clock& clock = clocks.emplace_back();
    for (const auto& [name, outputs] : m_names) {
      for (const std::size_t output : outputs) {
        clock[name].push_back(value(m_outputs[output]));
      }
    }
  }
  return clocks;
}

} // namespace bfcl::component
