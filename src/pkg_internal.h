// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "pkg.h"
#include "pkg_source.h"

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <libelf.h>

// What the parts of the container share: pkg.cpp (lifecycle), pkg_read.cpp and pkg_write.cpp
// (sections).

struct section_name_hash {
  using is_transparent = void;
  std::size_t operator()(std::string_view name) const {
    return std::hash<std::string_view>{}(name);
  }
};

struct vex_pkg_file {
  std::string name; // for close-time messages; empty for a package in memory
  int fd = -1;      // -1 for a package in memory
  Elf* elf = nullptr;

  bool writable : 1 = false;
  bool dirty : 1 = false;
  bool show_errors : 1 = false;
  bool show_info : 1 = false;

  // The string table of a writable package. libelf's descriptor points at a block of ours, which
  // grows by doubling; after an update of the table section itself it points at the caller's
  // buffer.
  Elf_Data* name_data = nullptr;
  malloc_ptr<char> name_table;
  std::size_t name_capacity = 0;

  // First section of each name, filled in section order at the first look-up and kept up by adding.
  std::unordered_map<std::string, Elf_Scn*, section_name_hash, std::equal_to<>> index;
  bool indexed = false;

  std::uint64_t content_bytes = 0; // all sections but the string table, with their padding
  std::vector<malloc_ptr<void>>
      buffers; // contents read from files, which libelf's descriptors point at
};

inline constexpr std::size_t SECTION_ALIGNMENT = 128;

// elf_errmsg, which may return null for "no error", as a printable text.
const char* elf_error_text(int error);

// The ELF header if the handle is on a file of the container's kind, else null. Everything else
// must not be handed to elf_newscn, which crashes on it.
Elf32_Ehdr* get_package_header(Elf* elf);

// The data descriptor of the section-name string table, or null after a message.
Elf_Data* get_name_data_ptr(vex_pkg_file* pkg);

// Whether every offset below the table's size leads to a terminated name.
bool name_table_is_usable(const Elf_Data* names);

// `size` with its padding to the next section.
std::uint64_t padded_size(std::uint64_t size, std::uint64_t alignment = SECTION_ALIGNMENT);

// Points a descriptor at contents.
void set_section_bytes(Elf_Data* data, const void* buffer, std::size_t size);

// The same for a new descriptor, which also gets the type and alignment that every section of a
// package has.
void fill_section_data(Elf_Data* data, const void* buffer, std::size_t size);

// The first section of that name, or null.
Elf_Scn* get_section_by_name(vex_pkg_file* pkg, const char* name);

// The one data descriptor of a section, or null after a message if `show` is set.
Elf_Data* get_section_data(Elf_Scn* section, bool show);
