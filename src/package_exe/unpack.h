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

// What "unpack" writes, and the commands that build the same file of it again.
struct UnpackPlan {
  PlannedFolder root;
  std::size_t folder_count = 0;
  std::vector<std::string> commands;
};

// Plans the files of component packages: those of the package that defines the function, directly
// in the destination; or those of all packages of a library, each in a folder named after the
// package's first function.
UnpackPlan plan_files(const vex::efi::PackageFile& package, const UnpackOptions& options,
                      std::vector<std::string>& faults);

// Plans the packages of a library, directly in the destination: its component packages, under names
// that sort in the order of the library, and its bitcode as one OpenCL package. With a function,
// only the package that defines it.
UnpackPlan plan_packages(const vex::efi::PackageFile& library, const UnpackOptions& options,
                         std::vector<std::string>& faults);

// The function in the name of the library's section that contains the component package.
std::string get_first_function(const vex::efi::ComponentPackage& package);

// The word, quoted for a shell if necessary.
std::string quote_for_shell(const std::string& word);

} // namespace bfcl::package
