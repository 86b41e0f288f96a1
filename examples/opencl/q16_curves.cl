// SPDX-License-Identifier: BSD-3-Clause
#include "q16.h"

int q16_exp2(int x)
{
  // Taylor's coefficients of 2^f, for a fraction f from 0 to 1.
  const int coefficient[] = {87, 630, 3638, 15743, 45426, Q16_ONE};
  int whole = x >> 16;
  int fraction = x & (Q16_ONE - 1);
  int power = 0;
  for (int i = 0; i < 6; ++i)
    power = q16_add(q16_mul(power, fraction), coefficient[i]);
  if (whole >= 15)
    return Q16_MAX;
  return whole >= 0 ? power << whole : whole > -31 ? power >> -whole : 0;
}

int q16_hypot(int a, int b)
{
  // From the ratio of the sides, since their squares need not fit.
  uint side_a = a < 0 ? -(uint)a : a;
  uint side_b = b < 0 ? -(uint)b : b;
  uint longer = side_a > side_b ? side_a : side_b;
  uint shorter = side_a > side_b ? side_b : side_a;
  if (longer > Q16_MAX)
    return Q16_MAX;
  if (longer == 0)
    return 0;
  int ratio = q16_div((int)shorter, (int)longer);
  return q16_mul((int)longer, q16_sqrt(q16_add(Q16_ONE, q16_mul(ratio, ratio))));
}
