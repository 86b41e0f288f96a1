// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "memory.h"

// When a result is the one that the C model gives.

template <typename Bits>
bool is_nan(const unsigned char* bytes, Bits infinity) {
  Bits bits = 0;
  std::memcpy(&bits, bytes, sizeof bits);
  return static_cast<Bits>(bits << 1) > static_cast<Bits>(infinity << 1);
}

inline bool element_is_nan(const unsigned char* bytes) {
  return FLOAT_BYTES == 2   ? is_nan<std::uint16_t>(bytes, 0x7C00)
         : FLOAT_BYTES == 4 ? is_nan<std::uint32_t>(bytes, 0x7F800000)
                            : is_nan<std::uint64_t>(bytes, 0x7FF0000000000000);
}

// Bit for bit, but any NaN is as good as any other.
inline bool same_result(const unsigned char* left, const unsigned char* right) {
  constexpr std::size_t step = FLOAT_BYTES != 0 ? FLOAT_BYTES : 1;
  for (std::size_t i = 0; i < OUTPUT_BYTES; i += step) {
    const bool same = std::memcmp(left + i, right + i, step) == 0;
    if (!same && !(FLOAT_BYTES != 0 && element_is_nan(left + i) && element_is_nan(right + i))) {
      return false;
    }
  }
  return true;
}
