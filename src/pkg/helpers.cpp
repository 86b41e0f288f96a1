// SPDX-License-Identifier: BSD-3-Clause
#include "helpers.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace vex::pkg {

void report(bool show, const char* format, ...) {
  if (!show) {
    return;
  }
  std::fflush(stdout);
  va_list args;
  va_start(args, format);
  std::vfprintf(stderr, format, args);
  va_end(args);
}

void* allocate_block(vex_pkg_file* pkg, std::size_t size) {
  auto& blocks = pkg->contents.blocks;
  if (!try_allocating([&blocks] { blocks.emplace_back(); })) {
    return nullptr;
  }
  blocks.back().reset(std::malloc(std::max<std::size_t>(size, 1)));
  return blocks.back().get();
}

const char* elf_error_text(int error) {
  const char* text = elf_errmsg(error);
  return text != nullptr ? text : "no error";
}

bool is_package(const vex_pkg_file* pkg) {
  return elf_kind(pkg->elf) == ELF_K_ELF && elf32_getehdr(pkg->elf) != nullptr &&
         elf_getident(pkg->elf, nullptr)[EI_DATA] == ELFDATA2LSB;
}

// When memory runs out inside elf_newscn, it returns a section that crashes its users and
// keeps that in its list; only the error number shows this.
Elf_Scn* make_section(vex_pkg_file* pkg) {
  elf_errno();
  Elf_Scn* section = is_package(pkg) && !pkg->damaged ? elf_newscn(pkg->elf) : nullptr;
  const int error = elf_errno();
  if (section != nullptr && error == 0) {
    return section;
  }
  pkg->damaged = pkg->damaged || section != nullptr;
  report(pkg->show_errors, " elf_newscn ()  failed : %s.", elf_error_text(error));
  return nullptr;
}

Elf32_Shdr* set_section_header(vex_pkg_file* pkg, Elf_Scn* section, Elf32_Word type,
                               Elf32_Word flags) {
  Elf32_Shdr* header = elf32_getshdr(section);
  if (header == nullptr) {
    report(pkg->show_errors, " elf32_getshdr ()  failed : %s.", elf_error_text(-1));
    return nullptr;
  }
  header->sh_type = type;
  header->sh_flags = flags;
  header->sh_entsize = 0;
  return header;
}

Elf32_Shdr read_section_header(Elf_Scn* section) {
  Elf32_Shdr header = {};
  const Elf32_Shdr* location = elf32_getshdr(section);
  if (location != nullptr) {
    std::memcpy(&header, location, sizeof header);
  }
  return header;
}

Elf_Data* get_name_data_ptr(vex_pkg_file* pkg, bool show) {
  if (pkg->names.data != nullptr) {
    return pkg->names.data;
  }
  auto index = static_cast<std::size_t>(-1);
  Elf_Data* names = nullptr;
  if (is_package(pkg) && elf_getshdrstrndx(pkg->elf, &index) == 0 && index != SHN_UNDEF) {
    names = elf_getdata(elf_getscn(pkg->elf, index), nullptr);
  }
  if (names == nullptr) {
    report(show, "No string table section\n");
  }
  return names;
}

bool name_table_is_usable(const Elf_Data* names) {
  return names != nullptr && names->d_buf != nullptr && names->d_size > 0 &&
         static_cast<const char*>(names->d_buf)[names->d_size - 1] == '\0';
}

const char* get_section_name(Elf_Scn* section, const Elf_Data* names) {
  if (!name_table_is_usable(names)) {
    return nullptr;
  }
  const Elf32_Word offset = read_section_header(section).sh_name;
  return offset < names->d_size ? static_cast<const char*>(names->d_buf) + offset : nullptr;
}

std::uint64_t padded_size(std::uint64_t size, std::uint64_t alignment) {
  return (size + alignment - 1) / alignment * alignment;
}

void set_section_bytes(Elf_Data* data, const void* buffer, std::size_t size) {
  // A null d_buf would keep an old section's size and contents: an empty section points at a byte.
  static const char no_bytes = '\0';
  data->d_buf = const_cast<void*>(buffer != nullptr ? buffer : &no_bytes);
  data->d_size = size;
}

void fill_section_data(Elf_Data* data, const void* buffer, std::size_t size) {
  set_section_bytes(data, buffer, size);
  data->d_type = ELF_T_BYTE;
  data->d_off = 0;
  data->d_align = SECTION_ALIGNMENT;
  data->d_version = EV_CURRENT;
}

namespace {

void build_index(vex_pkg_file* pkg) {
  NameIndex& index = pkg->index;
  index.sections.clear();
  index.can_grow = true;
  index.complete = try_allocating([&] {
    for_each_section(pkg, pkg->show_errors, [&index](Elf_Scn* section, const char* name) {
      if (name != nullptr) {
        index.sections.try_emplace(name, section);
      } else {
        index.can_grow = false;
      }
      return true;
    });
  });
}

Elf_Scn* search_without_index(vex_pkg_file* pkg, const char* wanted) {
  Elf_Scn* found = nullptr;
  for_each_section(pkg, false, [&found, wanted](Elf_Scn* section, const char* name) {
    found = name != nullptr && std::strcmp(name, wanted) == 0 ? section : nullptr;
    return found == nullptr;
  });
  return found;
}

} // namespace

Elf_Scn* get_section_by_name(vex_pkg_file* pkg, const char* name) {
  if (pkg == nullptr || name == nullptr) {
    return nullptr;
  }
  if (!pkg->index.complete) {
    build_index(pkg);
  }
  if (!pkg->index.complete) { // memory ran out
    return search_without_index(pkg, name);
  }
  const auto& sections = pkg->index.sections;
  const std::string_view key = name;
  if (sections.empty() || key > sections.rbegin()->first) { // as when names come in ascending order
    return nullptr;
  }
  const auto found = sections.find(key);
  return found != sections.end() ? found->second : nullptr;
}

Elf_Data* get_first_data(Elf_Scn* section) {
  return read_section_header(section).sh_type != SHT_NOBITS ? elf_getdata(section, nullptr)
                                                            : nullptr;
}

Elf_Data* get_section_data(Elf_Scn* section, bool show) {
  Elf_Data* data = get_first_data(section);
  if (data == nullptr) {
    report(show, "No data for section.\n");
    return nullptr;
  }
  if (elf_getdata(section, data) != nullptr) {
    report(show, "Multiple data descriptors for section.\n");
    return nullptr;
  }
  return data;
}

} // namespace vex::pkg
