// SPDX-License-Identifier: BSD-3-Clause
// A package or library that lies in memory: its names, every read of every section, and both
// readers of a library.
#include "shelver.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace {

void read_every_way(vex_pkg_file* pkg, const char* name) {
  std::size_t size = 0;
  void* bytes = nullptr;
  const bool exists = vex_pkg_section_exists(pkg, name, &size) != 0;
  if (exists != (vex_pkg_read_section_transient(pkg, name, &bytes) != 0)) {
    __builtin_trap(); // what exists can be read
  }
  std::vector<char> copy(exists ? size + 1 : 1);
  if (exists && vex_pkg_read_section(pkg, name, copy.data(), copy.size()) == 0) {
    __builtin_trap();
  }
  if (exists && size > 0 && std::memcmp(copy.data(), bytes, size) != 0) {
    __builtin_trap();
  }
  vex_pkg_read_section(pkg, name, copy.data(), size);
  vex_pkg_read_section_into_file(pkg, name, "/dev/null");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<char> image(data, data + size); // with the sanitizer's guards around it
  const vex_pkg_ptr pkg(vex_pkg_open_file_from_memory(image.data(), image.size(), 0));
  if (pkg == nullptr) {
    return 0;
  }
  std::vector<char> names(4096);
  vex_pkg_section_names(pkg.get(), names.data(), names.size());
  char* save = nullptr;
  for (const char* name = shelver_strtok_r(names.data(), "\n", &save); name != nullptr;
       name = shelver_strtok_r(nullptr, "\n", &save)) {
    read_every_way(pkg.get(), name);
  }
  read_every_way(pkg.get(), "");
  read_every_way(pkg.get(), VEX_PKG_STRING_TABLE);
  vex_pkg_list_file_sections(pkg.get());
  vex_pkg_add_data_section(pkg.get(), "new", "bytes", 5);
  vex_pkg_update_section(pkg.get(), VEX_PKG_STRING_TABLE, "bytes", 5);

  shelver_info_section info = {};
  shelver_read_info_section(pkg.get(), &info);
  shelver_free_info_section(&info);
  static std::vector<shelver_comp_table_entry> table(SHELVER_MAX_COMP_TABLE_ENTRIES);
  unsigned count = 0;
  shelver_read_component_table(pkg.get(), table.data(), &count);
  for (unsigned i = 0; i < count; ++i) {
    shelver_free_comp_table_entry(&table[i]);
  }
  return 0;
}
