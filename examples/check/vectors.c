// SPDX-License-Identifier: BSD-3-Clause

// Calls a component's C model with random arguments and prints one line per call: the result and
// the arguments, last to first, as one long hexadecimal number. The memory behind the pointers is
// written to memory_before.hex and memory_after.hex, a byte a line.
//
// model.h, made from the component specification, includes the model and defines INPUTS (an array
// of struct input), RESULT_BITS and CALL(argument).

#include <inttypes.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>

#include "opencl_c.h"

struct input {
  enum { SCALAR, READONLY, READWRITE } access;
  int bits;
};

static _Alignas(64) uint8_t memory[MEMORY_BYTES];

#include "model.h"

static const struct input inputs[] = INPUTS;
enum { INPUT_COUNT = sizeof inputs / sizeof inputs[0] };

static uint64_t random_bits(void) {
  static uint64_t state = 0x9E3779B97F4A7C15;
  state ^= state >> 12;
  state ^= state << 25;
  state ^= state >> 27;
  return state * 0x2545F4914F6CDD1D;
}

static uint64_t random_scalar(int bits) {
  const uint64_t corners[] = {0, 1, UINT64_MAX, UINT64_C(1) << (bits - 1)};
  const uint64_t choice = random_bits() >> 32;
  const uint64_t value = choice % 8 == 0 ? corners[choice / 8 % 4] : random_bits();
  return value & (UINT64_MAX >> (64 - bits));
}

// Memory that is written is kept apart from memory that is only read, since a component with
// several items in flight promises no order between the two.
static uint64_t random_offset(bool writable) {
  const uint64_t half = MEMORY_BYTES / 2;
  return (writable ? half : 0) + (random_bits() >> 32) % (half / 8) * 8;
}

static void save_memory(const char* path) {
  FILE* file = fopen(path, "w");
  bool good = file != NULL;
  for (size_t i = 0; good && i < sizeof memory; ++i)
    good = fprintf(file, "%02x\n", memory[i]) > 0;
  if (!good || fclose(file) != 0) {
    perror(path);
    exit(1);
  }
}

static void print_call(void) {
  uint64_t argument[INPUT_COUNT];
  for (int i = 0; i < INPUT_COUNT; ++i)
    argument[i] = inputs[i].access == SCALAR ? random_scalar(inputs[i].bits)
                                             : random_offset(inputs[i].access == READWRITE);

  printf("%0*" PRIx64, RESULT_BITS / 4, (uint64_t)CALL(argument));
  for (int i = INPUT_COUNT - 1; i >= 0; --i)
    printf("%0*" PRIx64, inputs[i].bits / 4,
           argument[i] + (inputs[i].access == SCALAR ? 0 : MEMORY_BASE));
  printf("\n");
}

int main(void) {
  for (size_t i = 0; i < sizeof memory; ++i)
    memory[i] = (uint8_t)(random_bits() >> 32);
  save_memory("memory_before.hex");
  for (int i = 0; i < VECTORS; ++i)
    print_call();
  save_memory("memory_after.hex");
  return fflush(stdout) == 0 ? 0 : 1;
}
