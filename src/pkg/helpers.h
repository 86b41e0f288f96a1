// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "handle.h"

// Helpers over libelf, and for messages and memory.
namespace vex::pkg {

inline constexpr std::size_t SECTION_ALIGNMENT = 128;
inline constexpr std::uint64_t MAX_FILE_SIZE = UINT32_MAX; // offsets have 32 bits
inline constexpr std::size_t INITIAL_NAME_TABLE_SIZE = 4096;

// Prints to standard error if `show` is set. Standard output is flushed first, so that the order
// holds when both are one pipe.
[[gnu::format(printf, 2, 3)]] void report(bool show, const char* format, ...);

// Runs an operation that may throw when memory is out. False if it threw.
template <typename Operation>
bool try_allocating(Operation operation) {
  try {
    operation();
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

// A block that the handle keeps until close, or null.
void* allocate_block(vex_pkg_file* pkg, std::size_t size);

// elf_errmsg, which may return null for "no error", as a printable text.
const char* elf_error_text(int error);

// Whether the handle is on a file of the container's kind. No other handle may be passed to
// elf_newscn, which crashes on it.
bool is_package(const vex_pkg_file* pkg);

// A new ELF section, or null after a message.
Elf_Scn* make_section(vex_pkg_file* pkg);

// Sets the fields of a section's header that the container sets; a message when there is none.
Elf32_Shdr* set_section_header(vex_pkg_file* pkg, Elf_Scn* section, Elf32_Word type,
                               Elf32_Word flags);

// A section's header, copied out, as those of a package in memory need not be aligned. Of type
// SHT_NULL when there is none.
Elf32_Shdr read_section_header(Elf_Scn* section);

// The data descriptor of the section-name string table, or null after a message if `show` is set.
Elf_Data* get_name_data_ptr(vex_pkg_file* pkg, bool show);

// Whether every offset below the table's size leads to a terminated name. A table without its last
// NUL is refused as a whole.
bool name_table_is_usable(const Elf_Data* names);

// The section's name, or null when its header leads to none.
const char* get_section_name(Elf_Scn* section, const Elf_Data* names);

// Calls visit(section, name) for each section, in file order, until it returns false; the null
// section is not visited. The name is null when get_section_name finds none. Returns whether every
// call returned true.
template <typename Visit>
bool for_each_section(vex_pkg_file* pkg, bool show, Visit visit) {
  const Elf_Data* names = get_name_data_ptr(pkg, show);
  if (names == nullptr || pkg->damaged) {
    return true;
  }
  Elf_Scn* section = nullptr;
  while ((section = elf_nextscn(pkg->elf, section)) != nullptr) {
    if (!visit(section, get_section_name(section, names))) {
      return false;
    }
  }
  return true;
}

// `size` with its padding to the next section.
std::uint64_t padded_size(std::uint64_t size, std::uint64_t alignment = SECTION_ALIGNMENT);

// Points a descriptor at contents.
void set_section_bytes(Elf_Data* data, const void* buffer, std::size_t size);

// The same for a new descriptor, which also gets the type and alignment that every section of a
// package has.
void fill_section_data(Elf_Data* data, const void* buffer, std::size_t size);

// The first section of that name, or null.
Elf_Scn* get_section_by_name(vex_pkg_file* pkg, const char* name);

// The first data descriptor, or null. A section without space in the file has none: it may claim
// any size, and what is put into it is lost.
Elf_Data* get_first_data(Elf_Scn* section);

// The one data descriptor of a section, or null after a message if `show` is set.
Elf_Data* get_section_data(Elf_Scn* section, bool show);

} // namespace vex::pkg
