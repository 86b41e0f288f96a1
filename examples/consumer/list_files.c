/* SPDX-License-Identifier: BSD-3-Clause */
#include <bfcl/EFISpecHandle.h>

#include <stdio.h>

/* Prints the functions of a component specification and the files that each names. */
int main(int argc, char** argv) {
  efi_spec_handle* spec = argc == 2 ? load_efi_spec_file(argv[1]) : NULL;
  if (spec == NULL) {
    return 1;
  }
  for (int i = 0; i < get_num_efi_elems(spec); ++i) {
    const efi_elem_handle* elem = get_efi_elem(spec, i);
    printf("%s:", get_function_name(elem));
    for (int file = 0; file < get_num_c_model_files(elem); ++file) {
      printf(" %s", get_c_model_file(elem, file));
    }
    for (int file = 0; file < get_num_source_files(elem); ++file) {
      printf(" %s", get_source_file(elem, file));
    }
    printf("\n");
  }
  free_efi_spec_handle(spec);
  return 0;
}
