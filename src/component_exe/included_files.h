// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <string>
#include <vector>

namespace bfcl::component {

// The path in the form that make, ninja and people use: without "." and "x/.." where that names the
// same file.
[[nodiscard]] std::string dependency_path(const std::string& path);

// The files among which those are that a description's files include or read, directly or not: each
// existing file that an `include or #include directive or a $readmemh or $readmemb names, whether
// it is active or not. A name is looked up beside the file that contains it and then in `folders`
// (empty: the working directory). Every path once, those of `files` excluded, in the order of their
// finding. Files that cannot be read include nothing.
[[nodiscard]] std::vector<std::string> find_included_files(const std::vector<std::string>& files,
                                                           const std::vector<std::string>& folders);

} // namespace bfcl::component
