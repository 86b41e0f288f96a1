// SPDX-License-Identifier: BSD-3-Clause
#include "helpers.h"
#include "malloc_ptr.h"
#include "output_file.h"
#include "unique_fd.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

using namespace vex::pkg;

namespace {

bool is_listed(const char* name) {
  return name != nullptr && *name != '\0' && std::strcmp(name, VEX_PKG_STRING_TABLE) != 0;
}

// The section that a read operation asks for, or null after a message.
Elf_Scn* find_section_to_read(vex_pkg_file* pkg, const char* name) {
  Elf_Scn* section = get_section_by_name(pkg, name);
  if (section == nullptr) {
    report(pkg->show_errors, "Couldn't find section with name '%s'.\n",
           name != nullptr ? name : "(null)");
  }
  return section;
}

// Whether the contents may be looked at: a mapped source may have become shorter.
bool is_readable(const vex_pkg_file* pkg, const Elf_Data* data) {
  const auto source = pkg->contents.sources.find(data->d_buf);
  return source == pkg->contents.sources.end() || !source->second.has_changed();
}

// The data of the section that a read operation asks for, or null after its messages.
Elf_Data* find_data_to_read(vex_pkg_file* pkg, const char* name) {
  Elf_Scn* section = find_section_to_read(pkg, name);
  if (section == nullptr) {
    return nullptr;
  }
  Elf_Data* data = get_section_data(section, pkg->show_errors);
  if (data == nullptr || !is_readable(pkg, data)) {
    report(pkg->show_errors, "No data for section '%s'.\n", name);
    return nullptr;
  }
  return data;
}

// The same for an operation with its own message about several descriptors.
Elf_Data* find_data_to_write_out(vex_pkg_file* pkg, const char* name) {
  Elf_Scn* section = find_section_to_read(pkg, name);
  if (section == nullptr) {
    return nullptr;
  }
  Elf_Data* data = get_first_data(section);
  if (data == nullptr || !is_readable(pkg, data)) {
    report(pkg->show_errors, "No data for section '%s'.\n", name);
    return nullptr;
  }
  if (elf_getdata(section, data) != nullptr) {
    report(pkg->show_errors, "Multiple data descriptors for '%s'.\n", name);
    return nullptr;
  }
  return data;
}

// A file that receives a section: whole, or the file that was there before, or none.
class SectionFile {
public:
  explicit SectionFile(const char* path) : m_path(path) {}
  ~SectionFile();
  SectionFile(const SectionFile&) = delete;
  SectionFile& operator=(const SectionFile&) = delete;

  // As fopen does, but without waiting for the reader of a FIFO. False with errno set.
  [[nodiscard]] bool open();

  // How many of the bytes the system took.
  [[nodiscard]] std::size_t write(const void* bytes, std::size_t size);

  // False with errno set.
  [[nodiscard]] bool commit();

private:
  const char* m_path;
  malloc_ptr<char> m_target; // without symbolic links
  OutputFile m_output;
  unique_fd m_fd;
  bool m_new = false;        // made by this operation, and not complete
  struct stat m_status = {}; // of a new file
};

// Another program may have put its own file there meanwhile.
SectionFile::~SectionFile() {
  const char* path = m_target != nullptr ? m_target.get() : m_path;
  struct stat now = {};
  if (m_new && stat(path, &now) == 0 && now.st_dev == m_status.st_dev &&
      now.st_ino == m_status.st_ino) {
    static_cast<void>(unlink(path));
  }
}

bool SectionFile::open() {
  constexpr int flags = O_WRONLY | O_CLOEXEC | O_NOCTTY;
  m_fd = unique_fd(::open(m_path, flags | O_NONBLOCK));
  if (!m_fd && errno == ENOENT) {
    m_fd = unique_fd(::open(m_path, flags | O_NONBLOCK | O_CREAT, 0666));
    m_new = m_fd && fstat(m_fd.get(), &m_status) == 0;
  }
  if (!m_fd || fcntl(m_fd.get(), F_SETFL, flags) != 0) {
    return false;
  }
  m_target.reset(realpath(m_path, nullptr));
  return m_output.begin(m_fd.get(), m_target.get(), false);
}

std::size_t SectionFile::write(const void* bytes, std::size_t size) {
  return move_all(size, [&](std::size_t done, std::size_t left) {
    return ::write(m_fd.get(), static_cast<const char*>(bytes) + done, left);
  });
}

// A file system of the network may write the bytes, or fail to, when a descriptor is closed.
bool SectionFile::commit() {
  const unique_fd other(fcntl(m_fd.get(), F_DUPFD_CLOEXEC, 0));
  if (close(m_fd.release()) != 0 || !m_output.commit(other.get())) {
    return false;
  }
  m_new = false;
  return true;
}

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
  const Elf_Data* data = pkg != nullptr ? find_data_to_write_out(pkg, name) : nullptr;
  if (data == nullptr) {
    return 0;
  }
  const auto report_open_error = [pkg] {
    report(pkg->show_errors, "Couldn't open file for writing: %s\n", std::strerror(errno));
    return 0;
  };
  SectionFile file(path);
  if (!file.open()) {
    return report_open_error();
  }
  const std::size_t written = file.write(data->d_buf, data->d_size);
  if (written < data->d_size) {
    report(pkg->show_errors, "Wrote only %zu out of %zu bytes into %s for writing", written,
           data->d_size, path);
    return 0;
  }
  if (!file.commit()) {
    return report_open_error();
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
  for_each_section(pkg, pkg->show_errors, [pkg](Elf_Scn* section, const char* name) {
    const Elf_Data* data = is_listed(name) ? get_section_data(section, pkg->show_errors) : nullptr;
    if (data != nullptr) {
      std::printf("  %s, %zu bytes\n", name, data->d_size);
    }
    return true;
  });
}

unsigned vex_pkg_section_names(vex_pkg_file* pkg, char* buffer, std::size_t buffer_size) {
  if (pkg == nullptr) {
    return 0;
  }
  std::size_t length = 0;
  const bool all = for_each_section(pkg, false, [&](Elf_Scn*, const char* name) {
    if (!is_listed(name)) {
      return true;
    }
    const std::size_t name_length = std::strlen(name);
    if (buffer == nullptr || length + 1 + name_length >= buffer_size) {
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
