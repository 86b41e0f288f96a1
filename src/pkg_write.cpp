// SPDX-License-Identifier: BSD-3-Clause
#include "pkg_internal.h"
#include "pkg_source.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

constexpr std::uint64_t MAX_FILE_SIZE = UINT32_MAX;

bool check_writable(const vex_pkg_file* pkg) {
  if (pkg == nullptr) {
    return false;
  }
  if (!pkg->writable) {
    report(pkg->show_errors, "Cannot add section to read-only binary\n");
  }
  return pkg->writable;
}

bool check_can_add(vex_pkg_file* pkg, const char* name) {
  if (!check_writable(pkg)) {
    return false;
  }
  if (name == nullptr) {
    report(pkg->show_errors, "Section name argument is NULL\n");
    return false;
  }
  if (get_section_by_name(pkg, name) != nullptr) {
    report(pkg->show_errors, "Section '%s' already exists.\n", name);
    return false;
  }
  return true;
}

bool check_can_update(vex_pkg_file* pkg, const char* name) {
  if (!check_writable(pkg)) {
    return false;
  }
  if (get_section_by_name(pkg, name) == nullptr) {
    report(pkg->show_errors, "Section '%s' does not exist.\n", name);
    return false;
  }
  return true;
}

bool check_buffer(const vex_pkg_file* pkg, const void* buffer, std::size_t size) {
  const bool ok = buffer != nullptr || size == 0;
  if (!ok) {
    report(pkg->show_errors, "Buffer argument is NULL\n");
  }
  return ok;
}

// Whether the written file stays within its 32-bit offsets, which libelf lets wrap in silence, when
// a section of `size` bytes comes in the place of `old_size` bytes.
bool check_package_size(vex_pkg_file* pkg, std::uint64_t size, std::uint64_t old_size = 0) {
  std::size_t sections = 0;
  elf_getshdrnum(pkg->elf, &sections);
  const std::uint64_t names = pkg->name_data != nullptr ? pkg->name_data->d_size : 0;
  const std::uint64_t header_table = (sections + 1) * sizeof(Elf32_Shdr);
  const std::uint64_t total = padded_size(sizeof(Elf32_Ehdr)) +
                              padded_size(names + VEX_PKG_MAX_SECTION_NAME + 1) +
                              pkg->content_bytes - padded_size(old_size) + header_table;
  // Compared in this order, as the size is the caller's and might overflow the sum.
  const bool ok = total <= MAX_FILE_SIZE && size <= MAX_FILE_SIZE - total &&
                  padded_size(size) <= MAX_FILE_SIZE - total;
  if (!ok) {
    report(pkg->show_errors, "Section of %zu bytes exceeds the package's limit of 4 GiB\n",
           static_cast<std::size_t>(size));
  }
  return ok;
}

// Makes room for `size` bytes in the handle's own block; moves a caller's table into it.
bool reserve_name_table(vex_pkg_file* pkg, std::size_t size) {
  Elf_Data* names = pkg->name_data;
  const bool own = names->d_buf == pkg->name_table.get();
  if (own && size <= pkg->name_capacity) {
    return true;
  }
  const std::size_t capacity = std::max(size, 2 * pkg->name_capacity);
  char* table = static_cast<char*>(std::realloc(pkg->name_table.get(), capacity));
  if (table == nullptr) {
    report(pkg->show_errors, " Failed to allocate %u bytes for string table",
           static_cast<unsigned>(size));
    return false;
  }
  static_cast<void>(pkg->name_table.release());
  pkg->name_table.reset(table);
  pkg->name_capacity = capacity;
  if (!own && names->d_size > 0) {
    std::memcpy(table, names->d_buf, names->d_size);
  }
  names->d_buf = table;
  return true;
}

// Gives a new section its name: appended to the string table and entered into the index.
bool name_section(vex_pkg_file* pkg, Elf_Scn* section, const char* name) {
  const std::size_t length = std::strlen(name);
  if (length > VEX_PKG_MAX_SECTION_NAME) {
    report(pkg->show_errors,
           "Section name length %u exceeds limit of %d bytes. Section name is %s\n",
           static_cast<unsigned>(length), static_cast<int>(VEX_PKG_MAX_SECTION_NAME), name);
    return false;
  }
  Elf_Data* names = pkg->name_data;
  if (names == nullptr || !reserve_name_table(pkg, names->d_size + length + 1)) {
    return false;
  }
  const std::size_t offset = names->d_size;
  std::memcpy(static_cast<char*>(names->d_buf) + offset, name, length + 1);
  names->d_size = offset + length + 1;
  elf_flagdata(names, ELF_C_SET, ELF_F_DIRTY);
  Elf32_Shdr* header = elf32_getshdr(section);
  // A table without even the empty name at offset 0 is broken: every nameless section took the
  // name.
  if (offset == 0 || header == nullptr) {
    pkg->indexed = false;
    return false;
  }
  header->sh_name = static_cast<Elf32_Word>(offset);
  pkg->index.try_emplace(name, section);
  return true;
}

} // namespace

unsigned vex_pkg_add_data_section(vex_pkg_file* pkg, const char* name, const void* buffer,
                                  std::size_t size) {
  if (!check_can_add(pkg, name) || !check_buffer(pkg, buffer, size) ||
      !check_package_size(pkg, size)) {
    return 0;
  }
  Elf_Scn* section = get_package_header(pkg->elf) != nullptr ? elf_newscn(pkg->elf) : nullptr;
  if (section == nullptr) {
    report(pkg->show_errors, " elf_newscn ()  failed : %s.", elf_error_text(-1));
    return 0;
  }
  Elf_Data* data = elf_newdata(section);
  if (data == nullptr) {
    report(pkg->show_errors, " elf_newdata ()  failed : %s.", elf_error_text(-1));
    return 0;
  }
  fill_section_data(data, buffer, size);
  pkg->dirty = true;
  pkg->content_bytes += padded_size(size);
  Elf32_Shdr* header = elf32_getshdr(section);
  if (header == nullptr) {
    report(pkg->show_errors, " elf32_getshdr ()  failed : %s.", elf_error_text(-1));
  } else {
    header->sh_flags = 0;
    header->sh_entsize = 0;
    header->sh_type = SHT_PROGBITS;
  }
  if (!name_section(pkg, section, name)) {
    pkg->index.try_emplace("", section);
    return 0;
  }
  if (pkg->show_info) {
    std::printf("vex_pkg_add_data_section: Added section %s with %zu bytes\n", name, size);
  }
  return 1;
}

void* vex_pkg_read_file_into_buffer(const char* path, std::size_t* size_out) {
  const SourceFile file(path);
  malloc_ptr<void> bytes = file.is_open() ? file.read_all() : nullptr;
  if (bytes != nullptr && size_out != nullptr) {
    *size_out = file.size();
  }
  return bytes.release();
}

namespace {

using section_operation = unsigned (*)(vex_pkg_file*, const char*, const void*, std::size_t);

// Reads a file into a buffer that the handle keeps and hands it to an operation. *size_out receives
// its size in bytes.
unsigned apply_file(vex_pkg_file* pkg, const char* name, const char* path,
                    section_operation operation, std::size_t* size_out) {
  const SourceFile file(path);
  if (!file.is_open() || !check_package_size(pkg, file.size())) {
    return 0;
  }
  malloc_ptr<void> bytes = file.read_all();
  if (bytes == nullptr) {
    return 0;
  }
  pkg->buffers.push_back(std::move(bytes));
  *size_out = file.size();
  return operation(pkg, name, pkg->buffers.back().get(), file.size());
}

} // namespace

unsigned vex_pkg_add_data_section_from_file(vex_pkg_file* pkg, const char* name, const char* path) {
  std::size_t size = 0;
  if (!check_can_add(pkg, name) ||
      apply_file(pkg, name, path, vex_pkg_add_data_section, &size) == 0) {
    return 0;
  }
  if (pkg->show_info) {
    std::printf("Read %zu bytes from file %s and created new section '%s'.\n", size, path, name);
  }
  return 1;
}

unsigned vex_pkg_update_section(vex_pkg_file* pkg, const char* name, const void* buffer,
                                std::size_t size) {
  if (!check_can_update(pkg, name) || !check_buffer(pkg, buffer, size)) {
    return 0;
  }
  Elf_Data* data = get_section_data(get_section_by_name(pkg, name), pkg->show_errors);
  if (data == nullptr || !check_package_size(pkg, size, data->d_size)) {
    return 0;
  }
  if (pkg->show_info) {
    std::printf("vex_pkg_update_section: Updating section %s with %zu bytes of new data\n", name,
                size);
  }
  if (data == pkg->name_data) {
    pkg->indexed = false; // other names may stand there now
  } else {
    pkg->content_bytes += padded_size(size) - padded_size(data->d_size);
  }
  set_section_bytes(data, buffer, size);
  if (elf_flagdata(data, ELF_C_SET, ELF_F_DIRTY) == 0) {
    report(pkg->show_errors, "Failed to mark section '%s' data as dirty.\n", name);
    return 0;
  }
  pkg->dirty = true;
  return 1;
}

unsigned vex_pkg_update_section_from_file(vex_pkg_file* pkg, const char* name, const char* path) {
  std::size_t size = 0;
  if (!check_can_update(pkg, name) ||
      apply_file(pkg, name, path, vex_pkg_update_section, &size) == 0) {
    return 0;
  }
  if (pkg->show_info) {
    std::printf("Read %zu bytes from file %s and updated section '%s'.\n", size, path, name);
  }
  return 1;
}
