// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "plan.h"

#include <string>
#include <vector>

namespace bfcl::package {

struct UnpackOptions {
  std::string file;
  std::string destination = ".";
  std::string function; // empty for all
  bool packages = false;
  bool list = false;
  bool force = false;
};

// What "unpack" is to write, and the commands that make the same file of it again.
struct UnpackPlan {
  PlannedFolder root;
  std::size_t folder_count = 0;
  std::vector<std::string> commands;
};

// The files of component packages: of the one that defines the function, right below the
// destination; of all in a library, each in a folder named after the package's first function.
UnpackPlan plan_files(const vex::efi::PackageFile& package, const UnpackOptions& options,
                      std::vector<std::string>& faults);

// The packages of a library, right below the destination: its component packages, named such that
// they sort as they are in the library, and its bitcode as one OpenCL package. With a function, the
// one of them that defines it.
UnpackPlan plan_packages(const vex::efi::PackageFile& library, const UnpackOptions& options,
                         std::vector<std::string>& faults);

// The function after which a library names the section of a component package.
std::string get_first_function(const vex::efi::ComponentPackage& package);

// The word as a shell reads it.
std::string quote_for_shell(const std::string& word);

} // namespace bfcl::package
