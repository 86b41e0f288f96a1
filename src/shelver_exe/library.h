// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "pkg.h"
#include "shelver.h"

#include <string>
#include <vector>

// Libraries (".bfclib"). The command "create" writes one, with these sections in this order:
//
//   .vex.comp.FUNCTION      a whole component package, for each HDL input in processing order;
//                           FUNCTION is the first one that its header names
//   .vex.clang_ir.TARGET    linked LLVM bitcode, for each target that an OpenCL input has, in the
//                           order of CLANG_IR_TYPE_SECT_NAME (opencl.h)
//   .vex.comp_table         which functions there are, and the section of each (shelver.h)
//   .vex.info               version, name and vendor (shelver.h)
//   .vex.version            the version of the tool whose format this is
//
// No text has a terminating NUL.

inline constexpr const char* COMP_SECTION_PREFIX = ".vex.comp.";
inline constexpr const char* VERSION_SECTION_NAME = ".vex.version";

// Opens a library for reading, or returns null after a message.
vex_pkg_ptr open_library(const char* path);

// The component table of a library, which owns its entries.
class ComponentTable {
public:
  ComponentTable() : m_entries(SHELVER_MAX_COMP_TABLE_ENTRIES) {}
  ~ComponentTable();
  ComponentTable(const ComponentTable&) = delete;
  ComponentTable& operator=(const ComponentTable&) = delete;

  // Reads the table once; false after a message that names the library's path.
  bool read(vex_pkg_file* library, const char* path);

  const shelver_comp_table_entry* begin() const { return m_entries.data(); }
  const shelver_comp_table_entry* end() const { return m_entries.data() + m_count; }

private:
  std::vector<shelver_comp_table_entry> m_entries;
  unsigned m_count = 0;
};
