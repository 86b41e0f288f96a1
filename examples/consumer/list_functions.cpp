// SPDX-License-Identifier: BSD-3-Clause
#include <bfcl/shelver.h>

#include <cstdio>
#include <vector>

// Prints the functions of a library and the section that holds each.
int main(int argc, char** argv) {
  const vex_pkg_ptr library(
      argc == 2 ? vex_pkg_open_file(argv[1], default_show_mode | VEX_PKG_READ_ONLY) : nullptr);
  std::vector<shelver_comp_table_entry> table(SHELVER_MAX_COMP_TABLE_ENTRIES);
  unsigned count = 0;
  if (shelver_read_component_table(library.get(), table.data(), &count) == 0) {
    return 1;
  }
  for (unsigned i = 0; i < count; ++i) {
    std::printf("%s in %s\n", table[i].function_name, table[i].section_name);
    shelver_free_comp_table_entry(&table[i]);
  }
  return 0;
}
