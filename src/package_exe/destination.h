// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "plan.h"

#include <string>
#include <vector>

namespace bfcl::package {

// The result of writing a plan. The paths are those of join_path and may not be printable.
struct Written {
  std::vector<std::string> files; // that were written
  std::vector<std::string> kept;  // that exist with other contents, and were left alone
};

// Joins the two with "/". A result that begins with "-" gets "./" in front, so that no program
// reads it as an option.
std::string join_path(const std::string& destination, const std::string& path);

// The paths of all files, in the order in which they are written.
std::vector<std::string> list_paths(const std::string& destination, const PlannedFolder& root);

// Creates the destination if necessary and writes the files into it. Faults are appended.
//
// Nothing is written if a path of the plan exists and is of the wrong kind: not a folder, or not a
// regular file; a symbolic link is neither. Below the destination no link is followed, even one
// that another program creates at the same time. An existing file with the same contents is left
// alone; one with other contents is replaced only if `force` is set. Each file appears under its
// name when it is complete; without `force`, never in place of another program's file.
Written write_files(const std::string& destination, const PlannedFolder& root, bool force,
                    std::vector<std::string>& faults);

} // namespace bfcl::package
