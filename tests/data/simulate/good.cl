// SPDX-License-Identifier: BSD-3-Clause
ulong4 lanes(const ulong4 left, ulong4 right)
{
  return left + right;
}

typedef float2 two_floats;

two_floats halve(two_floats pair)
{
  return pair * -0.5f;
}

void store(__global uchar *target, uchar value)
{
  *target = value;
}

short subtract(short left, short right)
{
  return sub_sat(left, right);
}

long stream(int left, short right)
{
  return (long)left * right;
}

ulong burst(__global const ulong *source, __global ulong *target, ulong addend)
{
  ulong mixed = 0;
  for (int i = 0; i < 4; ++i) {
    target[i] = source[i] + addend;
    mixed ^= target[i];
  }
  return mixed;
}
