// SPDX-License-Identifier: BSD-3-Clause
#include "commands.h"
#include "library.h"
#include "usage.h"

#include <cstdio>

int list_library_content(int argc, char** argv) {
  if (argc != 3) {
    show_help(argv[0], "list");
    return 1;
  }
  const char* path = argv[2];
  const vex_pkg_ptr library = open_library(path);
  if (library == nullptr) {
    return 1;
  }
  shelver_info_section info = {};
  if (shelver_read_info_section(library.get(), &info) == 0) {
    std::printf("Error: Library file %s does not have well-formed section %s\n", path,
                INFO_SECTION_NAME);
    return 1;
  }
  std::printf("Library version: %s\n", info.version);
  std::printf("Library name:    %s\n", info.name);
  std::printf("Library vendor:  %s\n", info.vendor);
  shelver_free_info_section(&info);

  ComponentTable table;
  if (!table.read(library.get(), path)) {
    return 1;
  }
  std::printf("Components:\n");
  for (const shelver_comp_table_entry& entry : table) {
    std::printf("%s, %s\n", entry.function_name, entry.kind);
  }
  return 0;
}
