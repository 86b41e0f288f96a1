// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <cstdint>

// Random numbers (xorshift64*), the same for the same seed. The program and the test bench use it.
class Random {
public:
  explicit Random(std::uint64_t seed) : m_state(seed * 2 + 0x9E3779B97F4A7C15) {}

  std::uint64_t next() {
    m_state ^= m_state >> 12;
    m_state ^= m_state << 25;
    m_state ^= m_state >> 27;
    return m_state * 0x2545F4914F6CDD1D;
  }

  // Below `limit`, which is small.
  std::size_t below(std::size_t limit) { return (next() >> 32) % limit; }

  // True in that many of four cases.
  bool chance(unsigned quarters) { return (next() >> 62) < quarters; }

  void fill(unsigned char* bytes, std::size_t count) {
    for (std::size_t i = 0; i < count; ++i) {
      bytes[i] = static_cast<unsigned char>(next() >> 56);
    }
  }

private:
  std::uint64_t m_state;
};
