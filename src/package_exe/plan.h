// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "component_package.h"

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace bfcl::package {

// A file to be written: the bytes, or an OpenCL package that holds the code.
struct PlannedFile {
  std::string_view bytes;
  const std::vector<vex::efi::ClangIr>* code = nullptr;
};

// A folder to be made unless it exists, with what is to be in it.
struct PlannedFolder {
  std::map<std::string, std::unique_ptr<PlannedFolder>> folders;
  std::map<std::string, PlannedFile> files;
};

// The most folders that a file may be below the destination, and the longest path in bytes.
inline constexpr std::size_t MAX_PLANNED_DEPTH = 256;
inline constexpr std::size_t MAX_PLANNED_PATH = 4095;

// The most folders of one plan, as each takes far more memory than its name in a package.
inline constexpr std::size_t MAX_PLANNED_FOLDERS = 1000000;

// Whether the name is one that a file in a folder can have.
bool is_file_name(std::string_view name);

// Places the files of a package below `root`, where its directory prefix says: the specification in
// the folder that the prefix names, every other file relative to that folder. Folders that a name
// passes through and leaves again with ".." are made too.
//
// Returns the path of the specification from `root`, or nothing after a fault: a name is absolute,
// leads out of `root`, or is no file name; the prefix does not fit the names; two files, or a file
// and a folder, have the same place. Two files of the same bytes are one file, as they were when
// they were packaged. `folder_count` is that of all folders planned so far.
std::string plan_component(const vex::efi::ComponentPackage& package, PlannedFolder& root,
                           std::size_t& folder_count, std::vector<std::string>& faults);

} // namespace bfcl::package
