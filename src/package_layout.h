// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vex::efi {

// Checks the tables of a package, as pkg.h describes the file, before its sections are read: they
// and every section are within the image, nothing overlaps, and each name is one that the container
// can list: ended, without a line break, used once. Texts of faults are appended as
// read_package_file does it. True without a fault. The time is linear in the image, but for
// sorting.
bool check_package_layout(std::string_view image, std::vector<std::string>& faults);

} // namespace vex::efi
