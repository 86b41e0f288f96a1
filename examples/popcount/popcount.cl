// SPDX-License-Identifier: BSD-3-Clause

uint popcount64(ulong word)
{
  uint ones = 0;
  for (; word != 0; word &= word - 1) // clears the lowest one
    ++ones;
  return ones;
}
