// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "description.h"
#include "process.h"

#include <string>
#include <vector>

namespace bfcl::component {

// The components of packages and libraries, unpacked into temporary folders that live as long as
// this does.
struct PackagedDescriptions {
  std::vector<TempFolder> folders;
  std::vector<Description> descriptions;
};

// Whether an operand is a package or a library, by its extension .bfco or .bfclib.
[[nodiscard]] bool is_package_name(const std::string& path);

// Unpacks the component packages of a file, each into a folder of its own with the layout that its
// directory prefix describes, and appends their descriptions. A file without components is noted. A
// damaged file, and one with names that lead out of the folder, are problems of the report. False
// when a description has errors, which are printed or appended, as by load_description.
[[nodiscard]] bool load_packaged_descriptions(const std::string& path,
                                              PackagedDescriptions& packaged, Report& report,
                                              std::vector<std::string>* diagnostics = nullptr);

} // namespace bfcl::component
