// SPDX-License-Identifier: BSD-3-Clause
#include "pkg_internal.h"

#include <cstdio>
#include <cstring>

namespace {

// The section's name, or null when its header cannot be had or leads to no name. The header is
// copied out, as those of a package in memory need not be aligned.
const char* get_section_name(Elf_Scn* section, const Elf_Data* names) {
  const Elf32_Shdr* location = elf32_getshdr(section);
  if (location == nullptr || !name_table_is_usable(names)) {
    return nullptr;
  }
  Elf32_Shdr header;
  std::memcpy(&header, location, sizeof header);
  return header.sh_name < names->d_size ? static_cast<const char*>(names->d_buf) + header.sh_name
                                        : nullptr;
}

// Calls visit(section, name) for each section with a name, in file order, until it returns false;
// the null section is not visited.
template <typename Visit>
bool for_each_section(vex_pkg_file* pkg, Visit visit) {
  const Elf_Data* names = get_name_data_ptr(pkg);
  if (!name_table_is_usable(names)) {
    return true;
  }
  Elf_Scn* section = nullptr;
  while ((section = elf_nextscn(pkg->elf, section)) != nullptr) {
    const char* name = get_section_name(section, names);
    if (name != nullptr && !visit(section, name)) {
      return false;
    }
  }
  return true;
}

bool is_listed(const char* name) {
  return *name != '\0' && std::strcmp(name, VEX_PKG_STRING_TABLE) != 0;
}

// The first data descriptor. A size without bytes is what libelf makes of a section that claims to
// occupy no space in the file: no data.
Elf_Data* get_first_data(Elf_Scn* section) {
  Elf_Data* data = elf_getdata(section, nullptr);
  return data != nullptr && data->d_buf == nullptr && data->d_size != 0 ? nullptr : data;
}

} // namespace

Elf_Scn* get_section_by_name(vex_pkg_file* pkg, const char* name) {
  if (pkg == nullptr || name == nullptr) {
    return nullptr;
  }
  if (!pkg->indexed) {
    pkg->index.clear();
    for_each_section(pkg, [pkg](Elf_Scn* section, const char* section_name) {
      pkg->index.try_emplace(section_name, section);
      return true;
    });
    pkg->indexed = true;
  }
  const auto found = pkg->index.find(std::string_view(name));
  return found != pkg->index.end() ? found->second : nullptr;
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

namespace {

// The data of the section that a read operation asks for, or null after its messages.
Elf_Data* find_data_to_read(vex_pkg_file* pkg, const char* name) {
  Elf_Scn* section = get_section_by_name(pkg, name);
  if (section == nullptr) {
    report(pkg->show_errors, "Couldn't find section with name '%s'.\n", name);
    return nullptr;
  }
  Elf_Data* data = get_section_data(section, pkg->show_errors);
  if (data == nullptr) {
    report(pkg->show_errors, "No data for section '%s'.\n", name);
  }
  return data;
}

struct file_closer {
  void operator()(std::FILE* file) const { static_cast<void>(std::fclose(file)); }
};

} // namespace

unsigned vex_pkg_section_exists(vex_pkg_file* pkg, const char* name, std::size_t* size_out) {
  Elf_Scn* section = get_section_by_name(pkg, name);
  const Elf_Data* data = section != nullptr ? get_section_data(section, pkg->show_errors) : nullptr;
  if (data == nullptr) {
    return 0;
  }
  if (size_out != nullptr) {
    *size_out = data->d_size;
  }
  return 1;
}

unsigned vex_pkg_read_section_transient(vex_pkg_file* pkg, const char* name, void** data_out) {
  if (pkg == nullptr) {
    return 0;
  }
  if (data_out == nullptr) {
    report(pkg->show_errors, "Buffer pointer argument is NULL\n");
    return 0;
  }
  const Elf_Data* data = find_data_to_read(pkg, name);
  if (data == nullptr) {
    return 0;
  }
  *data_out = data->d_buf;
  return 1;
}

unsigned vex_pkg_read_section(vex_pkg_file* pkg, const char* name, char* buffer,
                              std::size_t buffer_size) {
  if (pkg == nullptr) {
    return 0;
  }
  if (buffer == nullptr) {
    report(pkg->show_errors, "Buffer argument is NULL\n");
    return 0;
  }
  const Elf_Data* data = find_data_to_read(pkg, name);
  if (data == nullptr) {
    return 0;
  }
  if (data->d_size >= buffer_size) {
    report(pkg->show_errors, "Target buffer for section '%s' is too small.\n", name);
    return 0;
  }
  if (data->d_size > 0) {
    std::memcpy(buffer, data->d_buf, data->d_size);
  }
  buffer[data->d_size] = '\0';
  return 1;
}

unsigned vex_pkg_read_section_into_file(vex_pkg_file* pkg, const char* name, const char* path) {
  if (pkg == nullptr) {
    return 0;
  }
  Elf_Scn* section = get_section_by_name(pkg, name);
  if (section == nullptr) {
    report(pkg->show_errors, "Couldn't find section with name '%s'.\n", name);
    return 0;
  }
  Elf_Data* data = get_first_data(section);
  if (data == nullptr) {
    report(pkg->show_errors, "No data for section '%s'.\n", name);
    return 0;
  }
  if (elf_getdata(section, data) != nullptr) {
    report(pkg->show_errors, "Multiple data descriptors for '%s'.\n", name);
    return 0;
  }
  std::unique_ptr<std::FILE, file_closer> file(std::fopen(path, "wbe"));
  if (file == nullptr) {
    if (pkg->show_errors) {
      std::fflush(stdout);
      std::perror("Couldn't open file for writing");
    }
    return 0;
  }
  // Unbuffered, so that the count is that of the bytes which the system took.
  std::setvbuf(file.get(), nullptr, _IONBF, 0);
  const std::size_t written =
      data->d_size > 0 ? std::fwrite(data->d_buf, 1, data->d_size, file.get()) : 0;
  const bool closed = std::fclose(file.release()) == 0;
  if (written < data->d_size || !closed) {
    report(pkg->show_errors, "Wrote only %zu out of %zu bytes into %s for writing", written,
           data->d_size, path);
    return 0;
  }
  if (pkg->show_info) {
    std::printf("Wrote %zu bytes from section '%s' to file %s\n", written, name, path);
  }
  return 1;
}

void vex_pkg_list_file_sections(vex_pkg_file* pkg) {
  if (pkg == nullptr) {
    return;
  }
  std::puts("Sections in package file:");
  for_each_section(pkg, [pkg](Elf_Scn* section, const char* name) {
    const Elf_Data* data = is_listed(name) ? get_section_data(section, pkg->show_errors) : nullptr;
    if (data != nullptr) {
      std::printf("  %s, %zu bytes\n", name, data->d_size);
    }
    return true;
  });
}

unsigned vex_pkg_section_names(vex_pkg_file* pkg, char* buffer, std::size_t buffer_size) {
  if (pkg == nullptr || buffer == nullptr) {
    return 0;
  }
  std::size_t length = 0;
  const bool all = for_each_section(pkg, [&](Elf_Scn*, const char* name) {
    if (!is_listed(name)) {
      return true;
    }
    const std::size_t name_length = std::strlen(name);
    if (length + 1 + name_length >= buffer_size) {
      return false;
    }
    if (length > 0) {
      buffer[length++] = '\n';
    }
    std::memcpy(buffer + length, name, name_length + 1);
    length += name_length;
    return true;
  });
  return all ? 1 : 0;
}
