// SPDX-License-Identifier: BSD-3-Clause
#include "opencl.h"

#include "front_end.h"
#include "vex_assert.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// The shell gets a command as one argument, and this is the most that Linux passes in one, in bytes
// with the NUL (MAX_ARG_STRLEN).
constexpr std::size_t MAX_COMMAND_SIZE = 131072;

constexpr std::size_t LINE_SIZE = 4095; // bytes, the NUL included; longer lines come in pieces

// A file name as one word of a shell command: in double quotes, with a backslash before each
// character that is special there. The tool would take a name that begins with "-" for an option.
std::string quote(const std::string& file) {
  std::string word = file.starts_with('-') ? "\"./" : "\"";
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
  if (command.size() >= MAX_COMMAND_SIZE) {
    std::printf("Error: The command to link OpenCL code is %zu bytes long, the system takes %zu!\n",
                command.size(), MAX_COMMAND_SIZE - 1);
    return false;
  }
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
  const bool all_read = std::ferror(stream) == 0;
  pclose(stream);
  if (!all_read) {
    std::printf("Error: Failed to read the names of OpenCL helper functions!\n");
  }
  return all_read;
}

} // namespace

void extract_function_and_kernel_lists(std::FILE* stream, std::vector<std::string>& kernels,
                                       std::vector<std::string>& functions) {
  std::array<char, LINE_SIZE> line = {};
  while (std::fgets(line.data(), LINE_SIZE, stream) != nullptr) {
    const std::string_view text = line.data();
    if (!text.starts_with("define ")) {
      continue;
    }
    if (verbose != 0) {
      std::printf("   %s", line.data());
    }
    const std::size_t fname_start = text.find('@');
    const std::size_t fname_end = text.find('(');
    if (fname_start == std::string_view::npos || fname_end == std::string_view::npos) {
      continue;
    }
    VEX_ASSERT(fname_end > fname_start + 1);
    functions.emplace_back(text.substr(fname_start + 1, fname_end - fname_start - 1));
    if (text.starts_with("define spir_kernel ")) {
      kernels.push_back(functions.back());
    }
  }
}

void OpenClCode::remove_files() {
  for (const std::string& file : m_written) {
    unlink(file.c_str());
  }
  m_written.clear();
  unlock_file(m_lock.get());
  m_lock = unique_fd();
}

// Runs that make the same library use the same bitcode files: each waits for the one before, which
// may have replaced or removed the file that was locked. The tools inherit the descriptor: after a
// kill, the linker may still write its file.
void OpenClCode::lock_library() {
  constexpr int flags = O_RDWR | O_CREAT | O_NONBLOCK;
  constexpr int max_runs = 1000;
  const char* path = m_library_path.c_str();
  bool done = false;
  for (int run = 0; run < max_runs && !done; ++run) {
    m_lock = unique_fd(open(path, flags, 0666));
    lock_file(m_lock.get());
    struct stat locked = {};
    struct stat status = {};
    done = fstat(m_lock.get(), &locked) != 0 ||
           (stat(path, &status) == 0 && status.st_dev == locked.st_dev &&
            status.st_ino == locked.st_ino);
  }
}

bool OpenClCode::is_in(vex_pkg_file* package) {
  return vex_pkg_section_exists(package, CLANG_IR_TYPE_SECT_NAME[LINUX_TARGET], nullptr) != 0;
}

// A bitcode file replaces what is there, and is removed at the end. The target of a symbolic link
// is not ours to write.
bool OpenClCode::claim_file(const std::string& file) const {
  if (!check_output_is_no_input(file, m_inputs) ||
      !check_output_is_no_input(file, {m_library_path})) {
    return false;
  }
  struct stat status = {};
  if (lstat(file.c_str(), &status) == 0 && S_ISLNK(status.st_mode) && unlink(file.c_str()) != 0) {
    std::printf("Error: Cannot replace symbolic link %s: %s!\n", file.c_str(),
                std::strerror(errno));
    return false;
  }
  return true;
}

bool OpenClCode::take_section(vex_pkg_file* package, const char* section, const std::string& file) {
  if (!claim_file(file)) {
    return false;
  }
  struct stat status = {};
  const bool existed = lstat(file.c_str(), &status) == 0;
  // Listed first: a part of the file must be removed, too. A file that was there before, and that
  // may not have been opened, must not.
  m_written.push_back(file);
  const bool written = vex_pkg_read_section_into_file(package, section, file.c_str()) != 0;
  if (!written && existed) {
    m_written.pop_back();
  }
  if (!written) {
    std::printf("Error: Couldn't write section %s into a new file %s!\n", section, file.c_str());
  }
  return written;
}

bool OpenClCode::take(vex_pkg_file* package, const std::string& path) {
  if (!m_lock) {
    lock_library();
  }
  for (std::size_t i = 0; i < m_files.size(); ++i) {
    const char* section = CLANG_IR_TYPE_SECT_NAME[i];
    if (vex_pkg_section_exists(package, section, nullptr) == 0) {
      continue;
    }
    const std::string file = path + section + ".bc";
    if (!take_section(package, section, file)) {
      return false;
    }
    m_files[i].push_back(file);
  }
  return true;
}

bool OpenClCode::link_target(vex_pkg_file* library, const char* section,
                             const std::vector<std::string>& files,
                             const std::string& linked_file) {
  if (!claim_file(linked_file)) {
    return false;
  }
  m_written.push_back(linked_file);
  if (!run_linker(files, linked_file)) {
    return false;
  }
  if (vex_pkg_add_data_section_from_file(library, section, linked_file.c_str()) == 0) {
    std::printf("Error: Cannot add linked OpenCL section package file %s to the library!\n",
                linked_file.c_str());
    return false;
  }
  return true;
}

bool OpenClCode::link_into(vex_pkg_file* library, std::vector<std::string>& kernels,
                           std::vector<std::string>& functions) {
  for (std::size_t i = 0; i < m_files.size(); ++i) {
    if (m_files[i].empty()) {
      continue;
    }
    const char* section = CLANG_IR_TYPE_SECT_NAME[i];
    const std::string linked_file = m_library_path + section + ".bc";
    if (!link_target(library, section, m_files[i], linked_file) ||
        (i == LINUX_TARGET && !discover_functions(linked_file, kernels, functions))) {
      return false;
    }
  }
  return true;
}
