// SPDX-License-Identifier: BSD-3-Clause

// Runs the functions that were extracted from a library, OpenCL functions and C models of
// components, and compares the results with independent ones. Exit status: 0 when all agree.

#include <math.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "opencl_c.h"
#include "q16.h"
#include "words.h"

uint copy_add(const uint* source, uint addend, uint* target);
uint crc32c_word(uint crc, uint word);
ulong max_u8x8(ulong left, ulong right);
ulong min_u8x8(ulong left, ulong right);
uint popcount64(ulong word);

enum { CALLS = 4096 };

static uint64_t random_bits(void) {
  static uint64_t state = 0x9E3779B97F4A7C15;
  state ^= state >> 12;
  state ^= state << 25;
  state ^= state >> 27;
  return state * 0x2545F4914F6CDD1D;
}

// Numbers of all magnitudes, and sometimes a corner value.
static int random_q16(void) {
  const int corners[] = {0, 1, -1, Q16_ONE, -Q16_ONE, Q16_MAX, Q16_MIN, Q16_MIN + 1};
  const uint64_t choice = random_bits() >> 32;
  if (choice % 8 == 0)
    return corners[choice / 8 % (sizeof corners / sizeof corners[0])];
  return (int)((int64_t)random_bits() >> (32 + choice / 8 % 32));
}

static void check(bool good, const char* what, long long a, long long b, long long result) {
  if (good)
    return;
  fprintf(stderr, "%s(%#llx, %#llx) gave %#llx\n", what, a, b, result);
  exit(1);
}

static long double clamp(long double value) {
  return fminl(fmaxl(value, Q16_MIN), Q16_MAX);
}

// A long double represents every intermediate result of these exactly.
static void check_arithmetic(int a, int b) {
  const long double one = Q16_ONE;
  const int root = q16_sqrt(a);
  check(q16_add(a, b) == clamp((long double)a + b), "q16_add", a, b, q16_add(a, b));
  check(q16_mul(a, b) == clamp(floorl(a * (b / one) + 0.5L)), "q16_mul", a, b, q16_mul(a, b));
  const long double quotient = b != 0 ? truncl(a * one / b) : a < 0 ? Q16_MIN : Q16_MAX;
  check(q16_div(a, b) == clamp(quotient), "q16_div", a, b, q16_div(a, b));
  check(root == (a < 0 ? 0 : floorl(sqrtl(a * one))), "q16_sqrt", a, 0, root);
}

static void check_curves(int a, int b) {
  const long double power = clamp(exp2l(a / (long double)Q16_ONE) * Q16_ONE);
  const int exp2 = q16_exp2(a);
  check(fabsl(exp2 - power) <= 1 + power * 0x1p-12L, "q16_exp2", a, 0, exp2);
  const long double length = clamp(hypotl(a, b));
  const int hypot = q16_hypot(a, b);
  check(fabsl(hypot - length) <= 1 + length * 0x1p-14L, "q16_hypot", a, b, hypot);
}

static void check_components(ulong a, ulong b) {
  unsigned char left[8], right[8], least[8], greatest[8];
  memcpy(left, &a, 8);
  memcpy(right, &b, 8);
  for (int i = 0; i < 8; ++i) {
    least[i] = left[i] < right[i] ? left[i] : right[i];
    greatest[i] = left[i] < right[i] ? right[i] : left[i];
  }
  const ulong min = min_u8x8(a, b), max = max_u8x8(a, b);
  check(memcmp(&min, least, 8) == 0, "min_u8x8", a, b, min);
  check(memcmp(&max, greatest, 8) == 0, "max_u8x8", a, b, max);
  check(popcount64(a) == (uint)__builtin_popcountll(a), "popcount64", a, 0, popcount64(a));

  uint memory[] = {(uint)a, 0};
  const uint sum = copy_add(&memory[0], (uint)b, &memory[1]);
  const uint expected = (uint)(a + b);
  check(sum == expected && memory[1] == expected && memory[0] == (uint)a, "copy_add", a, b, sum);
}

static void check_distance(void) {
  enum { WORDS = 16 };
  ulong left[WORDS], right[WORDS];
  for (int i = 0; i < WORDS; ++i)
    left[i] = right[i] = random_bits();
  const uint bits = (random_bits() >> 32) % (WORDS * 64);
  for (uint bit = 0; bit < bits; ++bit)
    right[bit % WORDS] ^= 1ull << bit / WORDS;
  const uint distance = words_distance(left, right, WORDS);
  check(distance == bits, "words_distance", bits, WORDS, distance);
}

// The values that the iSCSI standard publishes for 32 bytes.
static void check_crc(void) {
  uint zeros[8] = {0}, ones[8], rising[8], falling[8];
  memset(ones, 0xFF, sizeof ones);
  for (int i = 0; i < 32; ++i) {
    ((unsigned char*)rising)[i] = (unsigned char)i;
    ((unsigned char*)falling)[i] = (unsigned char)(31 - i);
  }
  check(words_crc32c(zeros, 8) == 0x8A9136AA, "words_crc32c", 0, 8, words_crc32c(zeros, 8));
  check(words_crc32c(ones, 8) == 0x62A8AB43, "words_crc32c", 0xFF, 8, words_crc32c(ones, 8));
  check(words_crc32c(rising, 8) == 0x46DD794E, "words_crc32c", 1, 8, words_crc32c(rising, 8));
  check(words_crc32c(falling, 8) == 0x113FDB5C, "words_crc32c", 31, 8, words_crc32c(falling, 8));
}

static uint reverse_bits(uint word) {
  uint reversed = 0;
  for (int bit = 0; bit < 32; ++bit)
    reversed |= (word >> bit & 1) << (31 - bit);
  return reversed;
}

// By long division, with the generator as it is published.
static void check_crc_step(uint crc, uint word) {
  const ulong generator = 0x11EDC6F41;
  ulong rest = (ulong)reverse_bits(crc ^ word) << 32;
  for (int bit = 63; bit >= 32; --bit)
    rest ^= (rest >> bit & 1) != 0 ? generator << (bit - 32) : 0;
  const uint next = crc32c_word(crc, word);
  check(next == reverse_bits((uint)rest), "crc32c_word", crc, word, next);
}

int main(void) {
  check_crc();
  for (int i = 0; i < CALLS; ++i) {
    const int a = random_q16(), b = random_q16();
    check_arithmetic(a, b);
    check_curves(a, b);
    check_components(random_bits(), random_bits());
    check_distance();
    check_crc_step((uint)random_bits(), (uint)random_bits());
  }
  printf("%d calls of each function agree\n", CALLS);
  return 0;
}
