// SPDX-License-Identifier: BSD-3-Clause
// A package file that is changed and written again. The input's first byte says what is changed,
// the rest is the file.
#include "pkg.h"

#include <cstdint>
#include <string>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr const char* BYTES = "bytes of a section that was added, or replaced another's";

// Reads the new section, or an old one whose name offset led to nothing before and leads to its
// name now.
void read_back(const char* path, const std::string& name) {
  const vex_pkg_ptr pkg(vex_pkg_open_file(path, VEX_PKG_READ_ONLY));
  std::size_t size = 0;
  if (vex_pkg_section_exists(pkg.get(), name.c_str(), &size) != 0) {
    std::vector<char> copy(size + 1);
    if (vex_pkg_read_section(pkg.get(), name.c_str(), copy.data(), copy.size()) == 0) {
      __builtin_trap();
    }
  }
}

void change(const char* path, unsigned choice) {
  const std::string name = "new" + std::string(choice % 4 * 100, 'n');
  const std::size_t size = choice / 4 % 4 * 10;
  const bool updates_names = (choice & 16) != 0;
  const bool updates = (choice & 32) != 0;
  vex_pkg_file* pkg = vex_pkg_open_file(path, VEX_PKG_READ_WRITE);
  if (updates_names) {
    vex_pkg_update_section(pkg, VEX_PKG_STRING_TABLE, "\0.shstrtab\0", 12);
  }
  vex_pkg_add_data_section(pkg, name.c_str(), BYTES, size);
  if (updates) {
    vex_pkg_update_section(pkg, ".vex.info", BYTES, size + 1);
    vex_pkg_update_section(pkg, "", nullptr, 0);
  }
  vex_pkg_close_file(pkg);
  read_back(path, name);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const int file = memfd_create("package", MFD_CLOEXEC);
  static const std::string path = "/proc/self/fd/" + std::to_string(file);
  if (size == 0 || ftruncate(file, 0) != 0 || pwrite(file, data + 1, size - 1, 0) != static_cast<ssize_t>(size - 1)) {
    return 0;
  }
  vex_pkg_close_file(vex_pkg_open_file(path.c_str(), VEX_PKG_READ_ONLY));
  change(path.c_str(), data[0]);
  change(path.c_str(), data[0] + 1U);
  return 0;
}
