// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "EFISpec.h"
#include "component_package.h"

#include <memory>
#include <string>
#include <vector>

namespace bfcl::package {

// Loads the specification in a package, without the checks that open the files it names. Null after
// a fault: one line, which begins with the package's section if a library contains it.
[[nodiscard]] std::unique_ptr<vex::efi::EFISpec>
load_specification(const vex::efi::ComponentPackage& package, std::vector<std::string>& faults);

} // namespace bfcl::package
