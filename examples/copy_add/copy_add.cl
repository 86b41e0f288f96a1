// SPDX-License-Identifier: BSD-3-Clause

uint copy_add(__global const uint *restrict source, uint addend, __global uint *restrict target)
{
  uint sum = *source + addend;
  *target = sum;
  return sum;
}
