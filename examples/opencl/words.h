// SPDX-License-Identifier: BSD-3-Clause

#ifndef WORDS_H
#define WORDS_H

// The CRC-32C of `count` words, least significant byte first.
uint words_crc32c(__global const uint* words, uint count);

// The number of bits in which two blocks of `count` words differ.
uint words_distance(__global const ulong* left, __global const ulong* right, uint count);

#endif
