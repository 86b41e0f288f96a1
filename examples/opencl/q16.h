// SPDX-License-Identifier: BSD-3-Clause

// Signed fixed point with 16 fraction bits. Results that do not fit become the nearest value that
// does: all of these functions saturate.
#ifndef Q16_H
#define Q16_H

#define Q16_ONE 0x10000
#define Q16_MAX 0x7FFFFFFF
#define Q16_MIN (-Q16_MAX - 1)

// q16.cl
int q16_saturate(long value);
int q16_add(int a, int b);
int q16_mul(int a, int b); // rounds to nearest, halves up
int q16_div(int a, int b); // rounds toward zero; by zero: Q16_MAX or Q16_MIN by the sign of a
int q16_sqrt(int x);       // rounds down; 0 for negative numbers

// q16_curves.cl
int q16_exp2(int x);         // 2^x, to about 13 bits
int q16_hypot(int a, int b); // the length of (a, b), to about 14 bits

#endif
