// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace vex::efi {

// Checks the tables of a package (pkg.h describes the file) before its sections are read: they and
// all sections are within the image, nothing overlaps, and each name is terminated, contains no
// line break and is used once. Faults are appended in the form that read_package_file describes.
// True without a fault. The time is linear in the image, except for sorting.
bool check_package_layout(std::string_view image, std::vector<std::string>& faults);

} // namespace vex::efi
