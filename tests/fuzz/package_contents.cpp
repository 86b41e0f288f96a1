// SPDX-License-Identifier: BSD-3-Clause
// A package or library in memory, as "bfcl package" reads it: show as a tree and as JSON, the plans of
// unpack, verify.
#include "package_exe/consistency.h"
#include "package_exe/show.h"
#include "package_exe/specification.h"
#include "package_exe/unpack.h"

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

using namespace bfcl::package;

namespace {

// Tells the sanitizers to look at every byte.
void touch(std::string_view bytes) {
  static volatile unsigned sum = 0;
  for (const char byte : bytes) {
    sum = sum + static_cast<unsigned char>(byte);
  }
}

void touch(const PlannedFolder& folder) {
  for (const auto& [name, file] : folder.files) {
    if (!is_file_name(name)) {
      __builtin_trap(); // it would lead elsewhere
    }
    touch(file.bytes);
  }
  for (const auto& [name, below] : folder.folders) {
    if (!is_file_name(name)) {
      __builtin_trap();
    }
    touch(*below);
  }
}

void show(std::unique_ptr<vex::efi::PackageFile> package, std::vector<std::string>& faults) {
  ShownFile file = {"it", std::move(package), {}};
  for (const auto& component : file.package->components) {
    file.specs.push_back(load_specification(component, faults));
  }
  touch(print_tree(make_tree(file), TreeStyle()));
  touch(make_json(file).dump(2, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::vector<char> image(data, data + size); // with the sanitizer's guards around it
  std::vector<std::string> faults;
  auto package = vex::efi::read_package_image({image.data(), image.size()}, faults);
  if (package == nullptr) {
    if (faults.empty()) {
      __builtin_trap(); // nobody would learn why
    }
    return 0;
  }
  if (faults.empty()) {
    check_consistency(*package, faults);
    UnpackOptions options;
    if (package->kind == vex::efi::PackageKind::LIBRARY) {
      touch(plan_packages(*package, options, faults).root);
    }
    if (!package->components.empty()) {
      touch(plan_files(*package, options, faults).root);
    }
  }
  show(std::move(package), faults);
  return 0;
}
