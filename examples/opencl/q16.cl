// SPDX-License-Identifier: BSD-3-Clause
#include "q16.h"

int q16_saturate(long value)
{
  return value > Q16_MAX ? Q16_MAX : value < Q16_MIN ? Q16_MIN : (int)value;
}

int q16_add(int a, int b)
{
  return q16_saturate((long)a + b);
}

int q16_mul(int a, int b)
{
  return q16_saturate(((long)a * b + Q16_ONE / 2) >> 16);
}

int q16_div(int a, int b)
{
  if (b == 0)
    return a < 0 ? Q16_MIN : Q16_MAX;
  return q16_saturate((long)a * Q16_ONE / b);
}

int q16_sqrt(int x)
{
  // Digit by digit: root and rest are kept as if the digits below were all zero.
  ulong rest = x < 0 ? 0 : (ulong)x << 16;
  ulong root = 0;
  for (ulong digit = 1ul << 46; digit != 0; digit >>= 2) {
    bool fits = rest >= root + digit;
    if (fits)
      rest -= root + digit;
    root = (root >> 1) + (fits ? digit : 0);
  }
  return (int)root;
}
