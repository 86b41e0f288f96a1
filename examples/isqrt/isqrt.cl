// SPDX-License-Identifier: BSD-3-Clause

ushort isqrt32(uint number)
{
  uint root = 0;
  for (uint bit = 1u << 15; bit != 0; bit >>= 1)
    if ((root | bit) * (root | bit) <= number)
      root |= bit;
  return (ushort)root;
}
