// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "malloc_ptr.h"
#include "pkg.h"
#include "source.h"

#include <cstdint>
#include <map>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include <libelf.h>

// What a handle on a package holds. The container's files share this header: helpers.cpp (over
// libelf), open.cpp, close.cpp, read.cpp (sections out) and edit.cpp (sections in).
namespace vex::pkg {

// The section-name string table of a writable package.
struct NameTable {
  // libelf's descriptor. It points at `bytes`, a block of the handle's own that grows by doubling;
  // after an update of the table section itself, at the caller's buffer.
  Elf_Data* data = nullptr;
  char* bytes = nullptr;
  std::size_t capacity = 0;
};

// The first section of each name. The names are in the string table, or in one that it has
// outgrown. A tree, because names that collide make the look-ups of a hash table linear.
struct NameIndex {
  std::map<std::string_view, Elf_Scn*> sections;
  bool complete = false; // filled by the first look-up, in section order
  bool can_grow = false; // false when a longer string table may give other sections a name, too
};

// What libelf's descriptors and callers may point at until close.
struct Contents {
  std::vector<malloc_ptr<void>> blocks;        // contents read from files, and string tables
  std::map<const void*, MappedSource> sources; // by address
  std::uint64_t size = 0; // bytes of all sections but the string table, with their padding
};

} // namespace vex::pkg

struct vex_pkg_file {
  std::string name;      // for close-time messages; empty for a package in memory
  malloc_ptr<char> path; // of a writable file: absolute and without symbolic links, or null
  int fd = -1;           // -1 for a package in memory
  Elf* elf = nullptr;

  bool writable = false;
  bool created = false;
  bool dirty = false;
  bool show_errors = false;
  bool show_info = false;
  bool damaged = false; // the list of sections is not fit to be walked or written

  vex::pkg::NameTable names;
  vex::pkg::NameIndex index;
  vex::pkg::Contents contents;
};
