// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "pkg.h"

// Readers of the two text sections of a library.
//
// ".vex.info": three words separated by single blanks: version, name, vendor.
//
// ".vex.comp_table": one line for each function, "NAME KIND SECTION\n", then "<END_OF_TABLE>"
// without a newline. KIND is "HDL" (SECTION contains the component package that defines the
// function) or "LLVM_IR" (SECTION is the placeholder "<clang_ir>": the code is in the clang IR
// sections).
//
// Both texts come from untrusted files: a reader returns 0 for a damaged text. The readers print
// nothing, but the container prints what its show mode asks for.

inline constexpr const char* INFO_SECTION_NAME = ".vex.info";
inline constexpr const char* COMP_TABLE_SECTION_NAME = ".vex.comp_table";
inline constexpr const char* END_OF_TABLE = "<END_OF_TABLE>";

// The most lines that a component table may have; callers' arrays have as many entries.
inline constexpr unsigned SHELVER_MAX_COMP_TABLE_ENTRIES = 16384;

// Strings are malloc'ed and belong to the record until it is freed.
struct shelver_info_section {
  char* version;
  char* name;
  char* vendor;
};

struct shelver_comp_table_entry {
  char* function_name;
  char* kind;
  char* section_name;
};

// Takes the next token from `str`, or from *save when str is null: skips leading delimiters,
// overwrites the delimiter after the token with a NUL and stores the place to continue from in
// *save. Null at the end of the string.
char* shelver_strtok_r(char* str, const char* delimiters, char** save);

// Fills the record, to be freed by shelver_free_info_section. 1 on success; 0 when the section is
// missing, unreadable or has fewer than three words, with the record's pointers null.
int shelver_read_info_section(vex_pkg_file* lib_pkg, shelver_info_section* info_out);

// Fills the first *num_entries entries, each to be freed by shelver_free_comp_table_entry. 1 on
// success; 0, with nothing to free and *num_entries unchanged, when the section is missing or
// unreadable, a line has fewer than three words, or there are more than
// SHELVER_MAX_COMP_TABLE_ENTRIES lines. A text that ends without "<END_OF_TABLE>" is read to its
// end.
int shelver_read_component_table(vex_pkg_file* lib_pkg, shelver_comp_table_entry* comp_table_out,
                                 unsigned* num_entries);

// Free the strings and set their pointers to null. A null record or entry is ignored.
void shelver_free_info_section(shelver_info_section* info);
void shelver_free_comp_table_entry(shelver_comp_table_entry* entry);
