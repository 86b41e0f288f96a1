// SPDX-License-Identifier: BSD-3-Clause
// A package file that is changed and written again. The input's first byte says what is changed,
// the rest is the file.
#include "pkg.h"

#include <cstdint>
#include <cstring>
#include <string>

#include <sys/mman.h>
#include <unistd.h>

namespace {

constexpr const char* BYTES = "bytes of a section that was added, or replaced another's";

// A new section is to be found in the written package with its contents.
void check_added(const char* path, const std::string& name, std::size_t size) {
  const vex_pkg_ptr pkg(vex_pkg_open_file(path, VEX_PKG_READ_ONLY));
  std::size_t found = 0;
  void* bytes = nullptr;
  if (vex_pkg_section_exists(pkg.get(), name.c_str(), &found) == 0 || found != size ||
      vex_pkg_read_section_transient(pkg.get(), name.c_str(), &bytes) == 0 ||
      (size > 0 && std::memcmp(bytes, BYTES, size) != 0)) {
    __builtin_trap();
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
  const bool added = vex_pkg_add_data_section(pkg, name.c_str(), BYTES, size) != 0;
  if (updates) {
    vex_pkg_update_section(pkg, ".vex.info", BYTES, size + 1);
    vex_pkg_update_section(pkg, "", nullptr, 0);
  }
  const bool written = vex_pkg_close_file_checked(pkg) != 0;
  // Names of old sections that lead beyond a smaller table lead into its next name.
  if (added && written && !updates_names) {
    check_added(path, name, size);
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const int file = memfd_create("package", MFD_CLOEXEC);
  static const std::string path = "/proc/self/fd/" + std::to_string(file);
  if (size == 0 || ftruncate(file, 0) != 0 ||
      pwrite(file, data + 1, size - 1, 0) != static_cast<ssize_t>(size - 1)) {
    return 0;
  }
  vex_pkg_close_file(vex_pkg_open_file(path.c_str(), VEX_PKG_READ_ONLY));
  change(path.c_str(), data[0]);
  change(path.c_str(), data[0] + 1U);
  return 0;
}
