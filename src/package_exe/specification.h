// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "EFISpec.h"
#include "component_package.h"

#include <memory>
#include <string>
#include <vector>

namespace bfcl::package {

// Loads the specification inside a package, without the checks that open the files which it names.
// Null after a fault, which has one line and begins with the section of the package in a library.
[[nodiscard]] std::unique_ptr<vex::efi::EFISpec>
load_specification(const vex::efi::ComponentPackage& package, std::vector<std::string>& faults);

} // namespace bfcl::package
