// SPDX-License-Identifier: BSD-3-Clause

// Wraps LLVM bitcode into an OpenCL package: a package that has nothing but the clang IR sections.

#include "malloc_ptr.h"
#include "pkg.h"
#include "shelver_exe/opencl.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

namespace {

constexpr const char* USAGE =
    "Usage: bfcl-opencl-package OUT.bfco TARGET=FILE.bc...\n"
    "       bfcl-opencl-package --targets\n"
    "Wraps LLVM bitcode into an OpenCL package, or prints the names of the targets.\n";

const char* target_of(const char* section) {
  return section + std::strlen(CLANG_IR_SECTION_PREFIX) + std::strlen(".");
}

struct Image {
  const char* section = nullptr;
  malloc_ptr<char> code;
  std::size_t size = 0;
};

bool error(const std::string& what) {
  std::fprintf(stderr, "Error: %s\n", what.c_str());
  return false;
}

// Takes an argument TARGET=FILE.
bool read_image(const char* argument, std::vector<Image>& images) {
  const char* equals = std::strchr(argument, '=');
  if (equals == nullptr) {
    return error(std::string(argument) + " is not of the form TARGET=FILE");
  }
  const std::string target(argument, equals);
  const auto* section =
      std::find_if(CLANG_IR_TYPE_SECT_NAME.begin(), CLANG_IR_TYPE_SECT_NAME.end(),
                   [&target](const char* name) { return target_of(name) == target; });
  if (section == CLANG_IR_TYPE_SECT_NAME.end()) {
    return error("There is no target " + target);
  }
  if (std::any_of(images.begin(), images.end(),
                  [section](const Image& image) { return image.section == *section; })) {
    return error("Target " + target + " is given more than once");
  }
  Image& image = images.emplace_back();
  image.section = *section;
  image.code.reset(static_cast<char*>(vex_pkg_read_file_into_buffer(equals + 1, &image.size)));
  return image.code != nullptr;
}

bool write_package(const char* path, const std::vector<Image>& images) {
  vex_pkg_ptr package(
      vex_pkg_open_file(path, default_show_mode | VEX_PKG_READ_WRITE | VEX_PKG_CREATE));
  if (package == nullptr) {
    return false;
  }
  const bool added = std::all_of(images.begin(), images.end(), [&package](const Image& image) {
    return vex_pkg_add_data_section(package.get(), image.section, image.code.get(), image.size) !=
           0;
  });
  const bool written = vex_pkg_close_file_checked(package.release()) != 0;
  return added && written;
}

int run(int argc, char** argv) {
  if (argc == 2 && std::strcmp(argv[1], "--targets") == 0) {
    for (const char* section : CLANG_IR_TYPE_SECT_NAME) {
      std::puts(target_of(section));
    }
    return std::fflush(stdout) == 0 ? 0 : 1;
  }
  if (argc < 3) {
    std::fputs(USAGE, stderr);
    return 1;
  }
  std::vector<Image> images;
  const bool read = std::all_of(argv + 2, argv + argc, [&images](const char* argument) {
    return read_image(argument, images);
  });
  return read && write_package(argv[1], images) ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& failure) { // the standard library's, when memory is out
    error(failure.what());
    return 1;
  }
}
