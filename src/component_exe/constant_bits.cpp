// SPDX-License-Identifier: BSD-3-Clause
#include "port_plan.h"

#include <charconv>
#include <cstdint>

namespace bfcl::component {

namespace {

// The digits of a base that is a power of two; "_" counts for nothing. Empty when there is another
// character.
std::string bits_of_digits(const std::string& digits, unsigned bits_per_digit) {
  std::string bits;
  for (const char digit : digits) {
    if (digit == '_') {
      continue;
    }
    unsigned value = 0;
    const auto [end, error] = std::from_chars(&digit, &digit + 1, value, 16);
    if (error != std::errc() || value >= 1U << bits_per_digit) {
      return "";
    }
    for (unsigned bit = bits_per_digit; bit-- > 0;) {
      bits += (value >> bit & 1U) != 0 ? '1' : '0';
    }
  }
  return bits;
}

std::string bits_of_decimal(const std::string& text) {
  std::uint64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) {
    return "";
  }
  std::string bits;
  for (unsigned bit = 64; bit-- > 0;) {
    bits += (value >> bit & 1U) != 0 ? '1' : '0';
  }
  return bits;
}

std::string bits_of_literal(const std::string& text, std::size_t quote) {
  std::size_t base = quote + 1;
  if (base < text.size() && (text[base] == 's' || text[base] == 'S')) {
    ++base;
  }
  const std::string digits = base < text.size() ? text.substr(base + 1) : "";
  switch (base < text.size() ? text[base] : ' ') {
  case 'b':
  case 'B':
    return bits_of_digits(digits, 1);
  case 'o':
  case 'O':
    return bits_of_digits(digits, 3);
  case 'h':
  case 'H':
    return bits_of_digits(digits, 4);
  case 'd':
  case 'D':
    return bits_of_decimal(digits);
  default:
    return "";
  }
}

} // namespace

std::string constant_bits(const std::string& text, unsigned width) {
  if (text == "'0" || text == "'1") {
    return std::string(width, text[1]);
  }
  const std::size_t quote = text.find('\'');
  std::string bits = quote != std::string::npos ? bits_of_literal(text, quote)
                     : text.rfind("0x", 0) == 0 ? bits_of_digits(text.substr(2), 4)
                                                : bits_of_decimal(text);
  if (bits.empty()) {
    return "";
  }
  const std::size_t first = bits.find('1');
  bits.erase(0, first == std::string::npos ? bits.size() : first);
  return bits.size() > width ? "" : std::string(width - bits.size(), '0') + bits;
}

} // namespace bfcl::component
