// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "component_package.h"

#include <string>
#include <vector>

namespace bfcl::package {

// Checks what is inside a package that was read without a fault: the specification of each
// component package against its header, its files and its directory prefix; a library's table
// against its component packages and its bitcode. Faults are appended in the form that
// read_package_file describes.
void check_consistency(const vex::efi::PackageFile& file, std::vector<std::string>& faults);

} // namespace bfcl::package
