// SPDX-License-Identifier: BSD-3-Clause
#include "front_end.h"

#include "vex_assert.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include <sys/stat.h>

int verbose = 0;

int file_is_directory(const char* path) {
  struct stat status = {};
  return stat(path, &status) == 0 ? static_cast<int>(status.st_mode & 0x4000U) : 0;
}

bool file_is_a_regular_file(const std::string& path) {
  struct stat status = {};
  return !path.empty() && stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

FileId find_file_id(const std::string& path) {
  struct stat status = {};
  if (stat(path.c_str(), &status) == 0) {
    return {FileId::PRESENT, status.st_dev, status.st_ino};
  }
  const auto nowhere = {ENOENT, ENOTDIR, EACCES, ELOOP, ENAMETOOLONG};
  const bool absent = std::find(nowhere.begin(), nowhere.end(), errno) != nowhere.end();
  return {absent ? FileId::ABSENT : FileId::UNKNOWN};
}

namespace {

std::filesystem::path full_path(const std::string& path) {
  std::error_code error;
  return std::filesystem::weakly_canonical(std::filesystem::absolute(path, error), error);
}

} // namespace

bool check_output_is_no_input(const std::string& output, const std::vector<std::string>& inputs,
                              bool also_absent) {
  const FileId id = find_file_id(output);
  const bool absent = id.state == FileId::ABSENT;
  const bool clash = std::any_of(inputs.begin(), inputs.end(), [&](const std::string& input) {
    return absent ? also_absent && base_name(input) == base_name(output) &&
                        full_path(input) == full_path(output)
                  : find_file_id(input).may_be(id);
  });
  if (clash) {
    std::printf("Error: Output file %s is also an input file!\n", output.c_str());
  }
  return !clash;
}

vex_pkg_ptr create_new_package(const std::string& path) {
  return vex_pkg_ptr(
      vex_pkg_open_file(path.c_str(), default_show_mode | VEX_PKG_READ_WRITE | VEX_PKG_CREATE));
}

bool close_new_package(vex_pkg_ptr pkg, const std::string& path) {
  if (vex_pkg_close_file_checked(pkg.release()) == 0) {
    std::printf("Error: Couldn't write file %s!\n", path.c_str());
    return false;
  }
  return true;
}

char* grow_string(char* buffer, std::size_t needed, std::size_t* capacity) {
  if (*capacity > needed) {
    return buffer;
  }
  const std::size_t size = std::max(2 * *capacity, needed);
  char* src = static_cast<char*>(std::realloc(buffer, size));
  VEX_ASSERT(src && "Failed to reallocate more memory");
  *capacity = size;
  return src;
}

std::string my_strjoin(const std::string& left, const std::string& right) {
  if (left.empty() || right.empty()) {
    return left + right;
  }
  return left + "/" + right;
}

std::string base_name(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

std::string directory_part(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash != std::string::npos ? path.substr(0, slash) : "";
}
