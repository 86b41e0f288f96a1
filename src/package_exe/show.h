// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "EFISpec.h"
#include "component_package.h"
#include "tree.h"

#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace bfcl::package {

// A file as "show" prints it.
struct ShownFile {
  std::string path;
  std::unique_ptr<vex::efi::PackageFile> package;
  std::vector<std::unique_ptr<vex::efi::EFISpec>> specs; // of each component package, or null
};

// The version of the JSON form. It changes when a member is removed or gets another meaning, not
// when one is added.
inline constexpr int SHOW_FORMAT_VERSION = 1;

TreeNode make_tree(const ShownFile& file);

// One element of the member "files".
nlohmann::ordered_json make_json(const ShownFile& file);

} // namespace bfcl::package
