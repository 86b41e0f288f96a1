/* SPDX-License-Identifier: BSD-3-Clause */
#include "EFISpecHandle.h"

#include <stdio.h>
#include <string.h>

static int expect(const char* actual, const char* expected) {
  if (strcmp(actual, expected) != 0) {
    fprintf(stderr, "got '%s' instead of '%s'\n", actual, expected);
    return 1;
  }
  return 0;
}

/* Reads the specification of the two functions that share sources. */
int main(int argc, char** argv) {
  efi_spec_handle* spec = argc == 2 ? load_efi_spec_file(argv[1]) : NULL;
  if (spec == NULL || get_num_efi_elems(spec) != 2) {
    return 1;
  }
  const efi_elem_handle* elem = get_efi_elem(spec, 1);
  int failures = expect(get_function_name(elem), "max_u8x8");
  failures += expect(get_module_name(elem), "minmax");
  failures += get_num_c_model_files(elem) != 1 || get_num_source_files(elem) != 2;
  failures += expect(get_c_model_file(elem, 0), "minmax.cl");
  failures += expect(get_source_file(elem, 1), "../common/skid_buffer.v");
  free_efi_spec_handle(spec);
  free_efi_spec_handle(NULL);
  return failures;
}
