// SPDX-License-Identifier: BSD-3-Clause
#include "helpers.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

using namespace vex::pkg;

namespace {

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

bool check_buffer(const vex_pkg_file* pkg, const void* buffer, std::size_t size) {
  const bool ok = buffer != nullptr || size == 0;
  if (!ok) {
    report(pkg->show_errors, "Buffer argument is NULL\n");
  }
  return ok;
}

// Whether the written file stays within its 32-bit offsets, which libelf lets wrap silently, when
// a section of `size` bytes replaces `old_size` bytes.
bool check_package_size(vex_pkg_file* pkg, std::uint64_t size, std::uint64_t old_size = 0) {
  std::size_t sections = 0;
  elf_getshdrnum(pkg->elf, &sections);
  const std::uint64_t names = pkg->names.data != nullptr ? pkg->names.data->d_size : 0;
  const std::uint64_t header_table = (sections + 1) * sizeof(Elf32_Shdr);
  const std::uint64_t total = padded_size(sizeof(Elf32_Ehdr)) +
                              padded_size(names + VEX_PKG_MAX_SECTION_NAME + 1) +
                              pkg->contents.size - padded_size(old_size) + header_table;
  // Compared in this order, as the size is the caller's and might overflow the sum.
  const bool ok = total <= MAX_FILE_SIZE && size <= MAX_FILE_SIZE - total &&
                  padded_size(size) <= MAX_FILE_SIZE - total;
  if (!ok) {
    report(pkg->show_errors, "Section of %zu bytes exceeds the package's limit of 4 GiB\n",
           static_cast<std::size_t>(size));
  }
  return ok;
}

// Makes room for `size` bytes in a block of the handle's own. The old one stays until close:
// callers may have a pointer to it, and the name to be added may be in it.
bool reserve_name_table(vex_pkg_file* pkg, std::size_t size) {
  NameTable& names = pkg->names;
  const bool own = names.data->d_buf == names.bytes;
  if (own && size <= names.capacity) {
    return true;
  }
  const std::size_t capacity = std::max(size, own ? 2 * names.capacity : INITIAL_NAME_TABLE_SIZE);
  auto* bytes = static_cast<char*>(allocate_block(pkg, capacity));
  if (bytes == nullptr) {
    report(pkg->show_errors, " Failed to allocate %u bytes for string table",
           static_cast<unsigned>(size));
    return false;
  }
  std::memcpy(bytes, names.data->d_buf, names.data->d_size);
  names.data->d_buf = bytes;
  names.bytes = bytes;
  names.capacity = capacity;
  return true;
}

// Enters a new section into a complete index, if that stays complete. Names mostly come in
// ascending order, so that the place is at the end.
void index_section(vex_pkg_file* pkg, Elf_Scn* section, const char* name) {
  NameIndex& index = pkg->index;
  index.complete = index.complete && index.can_grow && try_allocating([&] {
                     index.sections.try_emplace(index.sections.end(), name, section);
                   });
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
  Elf_Data* names = pkg->names.data;
  if (names == nullptr) {
    report(pkg->show_errors, "No string table section\n");
    return false;
  }
  if (!reserve_name_table(pkg, names->d_size + length + 1)) {
    return false;
  }
  const std::size_t offset = names->d_size;
  char* own_name = pkg->names.bytes + offset;
  std::memcpy(own_name, name, length + 1);
  names->d_size = offset + length + 1;
  elf_flagdata(names, ELF_C_SET, ELF_F_DIRTY);
  Elf32_Shdr* header = elf32_getshdr(section);
  // A table without even the empty name at offset 0 is broken: nameless sections took the new name.
  if (offset == 0 || header == nullptr) {
    return false;
  }
  header->sh_name = static_cast<Elf32_Word>(offset);
  index_section(pkg, section, own_name);
  return true;
}

// Adds a section that has passed all checks.
unsigned append_section(vex_pkg_file* pkg, const char* name, const void* buffer, std::size_t size) {
  Elf_Scn* section = make_section(pkg);
  if (section == nullptr) {
    return 0;
  }
  Elf_Data* data = elf_newdata(section);
  if (data == nullptr) {
    report(pkg->show_errors, " elf_newdata ()  failed : %s.", elf_error_text(-1));
    return 0;
  }
  fill_section_data(data, buffer, size);
  pkg->contents.size += padded_size(size);
  pkg->dirty = true;
  set_section_header(pkg, section, SHT_PROGBITS, 0);
  if (!name_section(pkg, section, name)) {
    pkg->index.complete = false; // the section stays, without a name of its own
    return 0;
  }
  if (pkg->show_info) {
    std::printf("vex_pkg_add_data_section: Added section %s with %zu bytes\n", name, size);
  }
  return 1;
}

} // namespace

unsigned vex_pkg_add_data_section(vex_pkg_file* pkg, const char* name, const void* buffer,
                                  std::size_t size) {
  return check_can_add(pkg, name) && check_buffer(pkg, buffer, size) &&
                 check_package_size(pkg, size)
             ? append_section(pkg, name, buffer, size)
             : 0;
}

void* vex_pkg_read_file_into_buffer(const char* path, std::size_t* size_out) {
  const SourceFile file(path);
  if (!file.check_open()) {
    return nullptr;
  }
  malloc_ptr<void> bytes(std::malloc(std::max<std::size_t>(file.size(), 1)));
  if (!file.read_all(bytes.get())) {
    return nullptr;
  }
  if (size_out != nullptr) {
    *size_out = file.size();
  }
  return bytes.release();
}

namespace {

using section_operation = unsigned (*)(vex_pkg_file*, const char*, const void*, std::size_t);

// From this size on, in bytes, mapping a file costs less than reading it. The kernel allows about
// 65,530 maps.
constexpr std::size_t MIN_MAPPED_SIZE = 16384;
constexpr std::size_t MAX_MAPPINGS = 60000;

// Null where the file is to be read instead.
const void* map_contents(vex_pkg_file* pkg, const SourceFile& file) {
  auto& sources = pkg->contents.sources;
  if (!pkg->created || file.size() < MIN_MAPPED_SIZE || sources.size() >= MAX_MAPPINGS) {
    return nullptr;
  }
  MappedBytes bytes = file.map_all();
  const void* address = bytes.get();
  const bool kept = address != nullptr && try_allocating([&] {
                      MappedSource source = {file.path(), file.status(), std::move(bytes)};
                      sources.try_emplace(address, std::move(source));
                    });
  return kept ? address : nullptr;
}

// The file's bytes, which the handle keeps; null after a message.
const void* take_contents(vex_pkg_file* pkg, const SourceFile& file) {
  const void* mapped = map_contents(pkg, file);
  if (mapped != nullptr) {
    return mapped;
  }
  void* bytes = allocate_block(pkg, file.size());
  return file.read_all(bytes) ? bytes : nullptr;
}

// Hands a file's bytes to an operation, in the place of `old_size` bytes.
unsigned apply_file(vex_pkg_file* pkg, const char* name, const SourceFile& file,
                    std::size_t old_size, section_operation operation) {
  if (!file.check_open() || !check_package_size(pkg, file.size(), old_size)) {
    return 0;
  }
  const void* contents = take_contents(pkg, file);
  return contents != nullptr ? operation(pkg, name, contents, file.size()) : 0;
}

} // namespace

unsigned vex_pkg_add_data_section_from_file(vex_pkg_file* pkg, const char* name, const char* path) {
  if (!check_can_add(pkg, name)) {
    return 0;
  }
  const SourceFile file(path);
  if (apply_file(pkg, name, file, 0, append_section) == 0) {
    return 0;
  }
  if (pkg->show_info) {
    std::printf("Read %zu bytes from file %s and created new section '%s'.\n", file.size(), path,
                name);
  }
  return 1;
}

namespace {

// The data of the section that an update is for, or null after a message.
Elf_Data* find_data_to_update(vex_pkg_file* pkg, const char* name) {
  if (!check_writable(pkg)) {
    return nullptr;
  }
  Elf_Scn* section = get_section_by_name(pkg, name);
  if (section == nullptr) {
    report(pkg->show_errors, "Section '%s' does not exist.\n", name != nullptr ? name : "(null)");
    return nullptr;
  }
  return get_section_data(section, pkg->show_errors);
}

// Removes the old contents from what the handle counts.
void forget_contents(vex_pkg_file* pkg, const Elf_Data* data) {
  if (data == pkg->names.data) {
    pkg->index.complete = false; // other names may be there from now on
    return;
  }
  pkg->contents.size -= padded_size(data->d_size);
  const auto source = pkg->contents.sources.find(data->d_buf);
  if (source != pkg->contents.sources.end()) {
    source->second.path.clear(); // may change from now on; callers may still have a pointer to it
  }
}

} // namespace

unsigned vex_pkg_update_section(vex_pkg_file* pkg, const char* name, const void* buffer,
                                std::size_t size) {
  Elf_Data* data = find_data_to_update(pkg, name);
  if (data == nullptr || !check_buffer(pkg, buffer, size) ||
      !check_package_size(pkg, size, data->d_size)) {
    return 0;
  }
  if (pkg->show_info) {
    std::printf("vex_pkg_update_section: Updating section %s with %zu bytes of new data\n", name,
                size);
  }
  forget_contents(pkg, data);
  pkg->contents.size += data != pkg->names.data ? padded_size(size) : 0;
  set_section_bytes(data, buffer, size);
  if (elf_flagdata(data, ELF_C_SET, ELF_F_DIRTY) == 0) {
    report(pkg->show_errors, "Failed to mark section '%s' data as dirty.\n", name);
    return 0;
  }
  pkg->dirty = true;
  return 1;
}

unsigned vex_pkg_update_section_from_file(vex_pkg_file* pkg, const char* name, const char* path) {
  const SourceFile file(path);
  const Elf_Data* data = find_data_to_update(pkg, name);
  if (data == nullptr || apply_file(pkg, name, file, data->d_size, vex_pkg_update_section) == 0) {
    return 0;
  }
  if (pkg->show_info) {
    std::printf("Read %zu bytes from file %s and updated section '%s'.\n", file.size(), path, name);
  }
  return 1;
}
