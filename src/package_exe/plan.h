// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "component_package.h"

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace bfcl::package {

// A file to write: the bytes, or an OpenCL package that contains the code.
struct PlannedFile {
  std::string_view bytes;
  const std::vector<vex::efi::ClangIr>* code = nullptr;
};

// A folder to create unless it exists, and its contents.
struct PlannedFolder {
  std::map<std::string, std::unique_ptr<PlannedFolder>> folders;
  std::map<std::string, PlannedFile> files;
};

// The greatest depth of a file below the destination, in folders, and the longest path in bytes.
inline constexpr std::size_t MAX_PLANNED_DEPTH = 256;
inline constexpr std::size_t MAX_PLANNED_PATH = 4095;

// The most folders of one plan: each takes far more memory than its name takes in a package.
inline constexpr std::size_t MAX_PLANNED_FOLDERS = 1000000;

// Whether a file in a folder can have this name.
bool is_file_name(std::string_view name);

// Adds the files of a package to `root`: the specification in the folder that the directory prefix
// names, every other file relative to that folder. Folders that a name enters and leaves again with
// ".." are added too.
//
// Returns the path of the specification from `root`, or nothing after a fault: a name is absolute,
// leads out of `root`, or is not a file name; the prefix does not fit the names; two files, or a
// file and a folder, have the same place. Two files of the same bytes are one file, as they were
// when they were packaged. `folder_count` counts all folders planned so far.
std::string plan_component(const vex::efi::ComponentPackage& package, PlannedFolder& root,
                           std::size_t& folder_count, std::vector<std::string>& faults);

} // namespace bfcl::package
