// SPDX-License-Identifier: BSD-3-Clause

ulong min_u8x8(ulong left, ulong right)
{
  ulong picked = 0;
  for (uint shift = 0; shift < 64; shift += 8) {
    ulong l = (left >> shift) & 0xFF;
    ulong r = (right >> shift) & 0xFF;
    picked |= (l < r ? l : r) << shift;
  }
  return picked;
}

ulong max_u8x8(ulong left, ulong right)
{
  // The greatest bytes are those whose complements are the smallest.
  return ~min_u8x8(~left, ~right);
}
