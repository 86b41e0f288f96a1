// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "plan.h"

#include <string>
#include <vector>

namespace bfcl::package {

// What became of a plan's files. Paths are those of join_path, not printable.
struct Written {
  std::vector<std::string> files; // that were written
  std::vector<std::string> kept;  // that exist with other contents, and were left alone
};

// The destination, a "/" where one is needed, and the path, such that no program takes it for an
// option.
std::string join_path(const std::string& destination, const std::string& path);

// The paths of all files, in the order in which they are written.
std::vector<std::string> list_paths(const std::string& destination, const PlannedFolder& root);

// Makes the destination and writes the files into it, or appends to `faults` and returns nothing.
//
// Nothing is written when something other than a folder is where a folder is needed, or something
// other than a regular file where a file is to be; a symbolic link is neither. Below the
// destination no link is followed, even one that appears meanwhile. A file that exists with the
// same contents is left alone, with other contents too unless `force` is set. Each file appears
// whole, under a name that nobody else has taken meanwhile.
Written write_files(const std::string& destination, const PlannedFolder& root, bool force,
                    std::vector<std::string>& faults);

} // namespace bfcl::package
