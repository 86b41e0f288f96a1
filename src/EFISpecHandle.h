/* SPDX-License-Identifier: BSD-3-Clause */
#ifndef EFI_SPEC_HANDLE_H
#define EFI_SPEC_HANDLE_H

/* Component specifications for other tools of the kit, in plain C.
 *
 * A specification handle belongs to the caller of load_efi_spec_file until free_efi_spec_handle;
 * component handles and strings belong to their specification and die with it. Indices count from 0
 * and are not checked, nor are null handles (but for free_efi_spec_handle, which ignores null).
 * File names are as the specification writes them, relative to the specification's directory. */

#ifdef __cplusplus
extern "C" {
#endif

typedef struct efi_spec_handle efi_spec_handle; /* one specification file */
typedef struct efi_elem_handle efi_elem_handle; /* one component of it */

/* Loads and checks a component specification and the files that it names. Errors and, when it
 * loads, warnings are printed to standard output. Null on any error. */
efi_spec_handle* load_efi_spec_file(const char* filename);
void free_efi_spec_handle(efi_spec_handle* spec);

/* Components, in the order of the file; at least one. */
int get_num_efi_elems(const efi_spec_handle* spec);
const efi_elem_handle* get_efi_elem(const efi_spec_handle* spec, int index);

const char* get_function_name(const efi_elem_handle* elem);
const char* get_module_name(const efi_elem_handle* elem);

int get_num_c_model_files(const efi_elem_handle* elem);
const char* get_c_model_file(const efi_elem_handle* elem, int index);
int get_num_source_files(const efi_elem_handle* elem);
const char* get_source_file(const efi_elem_handle* elem, int index);

#ifdef __cplusplus
}
#endif

#endif
