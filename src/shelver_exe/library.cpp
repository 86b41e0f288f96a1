// SPDX-License-Identifier: BSD-3-Clause
#include "library.h"

#include <cstdio>

vex_pkg_ptr open_library(const char* path) {
  vex_pkg_ptr library(vex_pkg_open_file(path, default_show_mode | VEX_PKG_READ_ONLY));
  if (library == nullptr) {
    std::printf("Error: Cannot open library file %s\n", path);
  }
  return library;
}

ComponentTable::~ComponentTable() {
  for (unsigned i = 0; i < m_count; ++i) {
    shelver_free_comp_table_entry(&m_entries[i]);
  }
}

bool ComponentTable::read(vex_pkg_file* library, const char* path) {
  if (shelver_read_component_table(library, m_entries.data(), &m_count) == 0) {
    std::printf("Error: Library file %s does not have well-formed section %s. It's either empty or "
                "corrupt.\n",
                path, COMP_TABLE_SECTION_NAME);
    return false;
  }
  return true;
}
