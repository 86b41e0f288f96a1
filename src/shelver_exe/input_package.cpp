// SPDX-License-Identifier: BSD-3-Clause
#include "input_package.h"

#include "unique_fd.h"

#include <utility>

#include <sys/stat.h>

namespace {

// In bytes. The container maps files from about this size on, which is faster than reading them.
constexpr off_t SMALL_FILE_SIZE = 16384;

} // namespace

// Without bytes, and without a message, when the file is not a small one, or cannot be read whole.
InputPackages::SmallFile InputPackages::read_small_file(const std::string& path) {
  const unique_fd fd = unique_fd::open_for_reading(path.c_str());
  struct stat status = {};
  if (!fd || fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode) || status.st_size == 0 ||
      status.st_size >= SMALL_FILE_SIZE) {
    return {};
  }
  const auto size = static_cast<std::size_t>(status.st_size);
  malloc_ptr<char> bytes(static_cast<char*>(std::malloc(size)));
  if (bytes == nullptr || read_all_into(fd.get(), bytes.get(), size) < size) {
    return {};
  }
  return {std::move(bytes), size};
}

vex_pkg_ptr InputPackages::open(const std::string& path) {
  m_path = path;
  m_last = read_small_file(path);
  return vex_pkg_ptr(
      m_last.bytes != nullptr
          ? vex_pkg_open_file_from_memory(m_last.bytes.get(), m_last.size, default_show_mode)
          : vex_pkg_open_file(path.c_str(), default_show_mode | VEX_PKG_READ_ONLY));
}

bool InputPackages::add_last(vex_pkg_file* library, const char* section) {
  if (m_last.bytes == nullptr) {
    return vex_pkg_add_data_section_from_file(library, section, m_path.c_str()) != 0;
  }
  m_added.push_back(std::move(m_last.bytes));
  return vex_pkg_add_data_section(library, section, m_added.back().get(), m_last.size) != 0;
}
