// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "arena.h"
#include "pkg.h"
#include "pkg_source.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <libelf.h>

// What the parts of the container share: pkg.cpp (lifecycle), pkg_read.cpp and pkg_write.cpp
// (sections).

// A source file whose bytes are in the package without having been copied.
struct mapped_source {
  std::string path;
  struct stat status;
  MappedBytes bytes;
};

struct vex_pkg_file {
  std::string name;        // for close-time messages; empty for a package in memory
  int fd = -1;             // -1 for a package in memory
  struct stat status = {}; // of the file when it was opened
  Elf* elf = nullptr;

  bool writable : 1 = false;
  bool created : 1 = false;
  bool dirty : 1 = false;
  bool show_errors : 1 = false;
  bool show_info : 1 = false;
  bool maps_files : 1 = false;
  bool damaged : 1 = false; // the list of sections is not fit to be walked or written

  // The string table of a writable package. libelf's descriptor points at a block of ours, which
  // grows by doubling; after an update of the table section itself it points at the caller's
  // buffer.
  Elf_Data* name_data = nullptr;
  char* name_table = nullptr;
  std::size_t name_capacity = 0;

  // First section of each name, filled in section order at the first look-up and kept up by adding,
  // unless a longer string table may give other sections a name too. The names stand in the string
  // table, or in one that it has outgrown.
  std::unordered_map<std::string_view, Elf_Scn*> index;
  bool indexed = false;
  bool index_can_grow = false;

  std::uint64_t content_bytes = 0; // all sections but the string table, with their padding

  // What libelf's descriptors or callers may still point at until close: contents read from files
  // and string tables, outgrown ones too; and contents that are mapped, whose files must not have
  // changed then.
  Arena own_memory;
  Arena* memory = &own_memory; // or that of the package which this one is to become a part of
  std::vector<mapped_source> mapped_sources;

  // The whole of a small file that is only read, in `memory`.
  char* image = nullptr;
  std::size_t image_size = 0;
};

inline constexpr std::size_t SECTION_ALIGNMENT = 128;
inline constexpr std::uint64_t MAX_FILE_SIZE = UINT32_MAX; // offsets have 32 bits
inline constexpr std::size_t INITIAL_NAME_TABLE_SIZE = 4096;

// From this size on, in bytes, mapping a file costs less than reading it.
inline constexpr std::size_t MIN_MAPPED_SIZE = 16384;

// How many bytes libelf gets to write at once: the system takes much longer over one write of
// hundreds of MiB than over many of this size.
inline constexpr std::size_t WRITE_PIECE_SIZE = std::size_t{256} << 10;

// elf_errmsg, which may return null for "no error", as a printable text.
const char* elf_error_text(int error);

// Whether the handle is on a file of the container's kind. Everything else must not be handed to
// elf_newscn, which crashes on it.
bool is_package(const vex_pkg_file* pkg);

// A new ELF section, or null after a message.
Elf_Scn* make_section(vex_pkg_file* pkg);

// Sets what the container gives to a section's header; a message when there is none.
Elf32_Shdr* set_section_header(vex_pkg_file* pkg, Elf_Scn* section, Elf32_Word type,
                               Elf32_Word flags);

// The section's name, or null when its header leads to none.
const char* get_section_name(Elf_Scn* section, const Elf_Data* names);

// A section's header, copied out, as those of a package in memory need not be aligned. Of type
// SHT_NULL when it cannot be had.
Elf32_Shdr read_section_header(Elf_Scn* section);

// The data descriptor of the section-name string table, or null after a message if `show` is set.
Elf_Data* get_name_data_ptr(vex_pkg_file* pkg, bool show);

// Whether every offset below the table's size leads to a terminated name. A table without its last
// NUL is refused as a whole.
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

// The mapped source whose bytes begin there, or the end of the list.
std::vector<mapped_source>::iterator find_mapped_source(vex_pkg_file* pkg, const void* bytes);
