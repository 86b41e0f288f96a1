// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "pkg.h"
#include "unique_fd.h"

#include <array>
#include <cstdio>
#include <string>
#include <vector>

// The clang IR sections of OpenCL packages and libraries, one a target: LLVM bitcode. The IR type
// that a user names is what follows CLANG_IR_SECTION_PREFIX and a ".".
inline constexpr const char* CLANG_IR_SECTION_PREFIX = ".vex.clang_ir";
inline constexpr std::array<const char*, 3> CLANG_IR_TYPE_SECT_NAME = {
    ".vex.clang_ir.spir64-unknown-unknown-ostrahw",
    ".vex.clang_ir.x86_64-unknown-linux-ostrahw",
    ".vex.clang_ir.x86_64-pc-windows-ostrahw",
};

// The target whose section marks an OpenCL package, and whose code is searched for functions.
inline constexpr std::size_t LINUX_TARGET = 1;

// Reads textual LLVM IR and appends the name of each function defined there to `functions`, and
// those of the kernels among them to `kernels`. A name is the text between the line's first "@"
// and its first "(", with its quotes. Aborts when there is no text between them.
void extract_function_and_kernel_lists(std::FILE* stream, std::vector<std::string>& kernels,
                                       std::vector<std::string>& functions);

// The OpenCL part of a new library: the bitcode of all inputs, for each target. Its destructor
// removes the bitcode files that it wrote next to the inputs and the library.
class OpenClCode {
public:
  // For a library with that path, made from those inputs.
  OpenClCode(std::string library_path, const std::vector<std::string>& inputs)
      : m_library_path(std::move(library_path)), m_inputs(inputs) {}
  ~OpenClCode() { remove_files(); }
  OpenClCode(const OpenClCode&) = delete;
  OpenClCode& operator=(const OpenClCode&) = delete;

  // Whether the package contains OpenCL code.
  static bool is_in(vex_pkg_file* package);

  // Writes the package's clang IR sections into files beside it, PATH + SECTION + ".bc". False
  // after a message.
  bool take(vex_pkg_file* package, const std::string& path);

  // Links the files of each target by running "bfcl-link" into LIBRARY_PATH + SECTION + ".bc", adds
  // the results to the library, and appends the functions that "bfcl-opt -S" shows in the Linux
  // target's to the lists. False on failure, after a message but for a linker that fails.
  bool link_into(vex_pkg_file* library, std::vector<std::string>& kernels,
                 std::vector<std::string>& functions);

  // Removes the bitcode files. From then on, another run may write them.
  void remove_files();

private:
  void lock_library();
  bool take_section(vex_pkg_file* package, const char* section, const std::string& file);
  bool link_target(vex_pkg_file* library, const char* section,
                   const std::vector<std::string>& files, const std::string& linked_file);
  bool claim_file(const std::string& file) const;

  std::string m_library_path;
  const std::vector<std::string>& m_inputs;
  unique_fd m_lock; // a descriptor of the library's file
  std::array<std::vector<std::string>, CLANG_IR_TYPE_SECT_NAME.size()> m_files; // of each target
  std::vector<std::string> m_written;                                           // to be removed
};
