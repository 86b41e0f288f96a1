// SPDX-License-Identifier: BSD-3-Clause
#include "opencl.h"

#include "front_end.h"
#include "vex_assert.h"

#include <cstdlib>
#include <cstring>

#include <unistd.h>

namespace {

constexpr std::size_t LINE_SIZE = 4095; // bytes, the NUL included; longer lines come in pieces

bool starts_with(const char* text, const char* prefix) {
  return std::strncmp(text, prefix, std::strlen(prefix)) == 0;
}

// A file name as one word of a shell command: within double quotes, with a backslash before what
// the shell would still read there. A name that begins with "-" would be an option to the tool.
std::string quote(const std::string& file) {
  std::string word = starts_with(file.c_str(), "-") ? "\"./" : "\"";
  for (const char c : file) {
    if (std::strchr("\"$`\\", c) != nullptr) {
      word += '\\';
    }
    word += c;
  }
  return word + "\"";
}

void print_command(const std::string& command) {
  if (verbose != 0) {
    std::printf("Executing cmd: %s\n", command.c_str());
  }
}

bool run_linker(const std::vector<std::string>& files, const std::string& linked_file) {
  std::string command = "bfcl-link ";
  for (const std::string& file : files) {
    command += quote(file) + " ";
  }
  command += " -o " + quote(linked_file) + " ";
  print_command(command);
  std::fflush(stdout); // the tool prints to the same stream
  const int status = std::system(command.c_str());
  if (verbose != 0) {
    std::printf("Return code is %d\n", status);
  }
  return status == 0;
}

bool discover_functions(const std::string& linked_file, std::vector<std::string>& kernels,
                        std::vector<std::string>& functions) {
  const std::string command = "bfcl-opt -S " + quote(linked_file);
  print_command(command);
  if (verbose != 0) {
    std::printf("Found function definitions: \n");
  }
  std::fflush(stdout);
  std::FILE* stream = popen(command.c_str(), "re");
  if (stream == nullptr) {
    std::printf("Error: Failed to run command to extract OpenCL helper function names!\n");
    return false;
  }
  extract_function_and_kernel_lists(stream, kernels, functions);
  pclose(stream);
  return true;
}

} // namespace

void extract_function_and_kernel_lists(std::FILE* stream, std::vector<std::string>& kernels,
                                       std::vector<std::string>& functions) {
  std::array<char, LINE_SIZE> line = {};
  while (std::fgets(line.data(), LINE_SIZE, stream) != nullptr) {
    if (!starts_with(line.data(), "define ")) {
      continue;
    }
    if (verbose != 0) {
      std::printf("   %s", line.data());
    }
    const char* fname_start = std::strchr(line.data(), '@');
    const char* fname_end = std::strchr(line.data(), '(');
    if (fname_start == nullptr || fname_end == nullptr) {
      continue;
    }
    VEX_ASSERT(fname_end > fname_start + 1);
    functions.emplace_back(fname_start + 1, fname_end);
    if (starts_with(line.data(), "define spir_kernel ")) {
      kernels.push_back(functions.back());
    }
  }
}

OpenClCode::~OpenClCode() {
  for (const Target& target : m_targets) {
    for (const std::string& file : target.files) {
      unlink(file.c_str());
    }
    if (!target.linked_file.empty()) {
      unlink(target.linked_file.c_str());
    }
  }
}

bool OpenClCode::is_in(vex_pkg_file* package) {
  return vex_pkg_section_exists(package, CLANG_IR_TYPE_SECT_NAME[LINUX_TARGET], nullptr) != 0;
}

bool OpenClCode::take(vex_pkg_file* package, const std::string& path) {
  for (std::size_t i = 0; i < m_targets.size(); ++i) {
    const char* section = CLANG_IR_TYPE_SECT_NAME[i];
    if (vex_pkg_section_exists(package, section, nullptr) == 0) {
      continue;
    }
    // Listed before it is written, so that a part of it is removed too.
    const std::string& file = m_targets[i].files.emplace_back(path + section + ".bc");
    if (vex_pkg_read_section_into_file(package, section, file.c_str()) == 0) {
      std::printf("Error: Couldn't write section %s into a new file %s!\n", section, file.c_str());
      return false;
    }
  }
  return true;
}

bool OpenClCode::link_into(vex_pkg_file* library, const std::string& library_path,
                           std::vector<std::string>& kernels, std::vector<std::string>& functions) {
  for (std::size_t i = 0; i < m_targets.size(); ++i) {
    Target& target = m_targets[i];
    if (target.files.empty()) {
      continue;
    }
    const char* section = CLANG_IR_TYPE_SECT_NAME[i];
    target.linked_file = library_path + section + ".bc";
    if (!run_linker(target.files, target.linked_file)) {
      return false;
    }
    if (vex_pkg_add_data_section_from_file(library, section, target.linked_file.c_str()) == 0) {
      std::printf("Error: Cannot add linked OpenCL section package file %s to the library!\n",
                  target.linked_file.c_str());
      return false;
    }
    if (i == LINUX_TARGET && !discover_functions(target.linked_file, kernels, functions)) {
      return false;
    }
  }
  return true;
}
