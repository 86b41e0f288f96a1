// SPDX-License-Identifier: BSD-3-Clause
#include "words.h"

// HDL components: the library that holds this code has them too.
uint crc32c_word(uint crc, uint word);
uint popcount64(ulong word);

uint words_crc32c(__global const uint *words, uint count)
{
  uint crc = ~0u;
  for (uint i = 0; i < count; ++i)
    crc = crc32c_word(crc, words[i]);
  return ~crc;
}

uint words_distance(__global const ulong *left, __global const ulong *right, uint count)
{
  uint bits = 0;
  for (uint i = 0; i < count; ++i)
    bits += popcount64(left[i] ^ right[i]);
  return bits;
}
