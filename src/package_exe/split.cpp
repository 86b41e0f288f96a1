// SPDX-License-Identifier: BSD-3-Clause
#include "unpack.h"

#include "destination.h"
#include "printable.h"

#include <algorithm>
#include <filesystem>

namespace bfcl::package {

using namespace vex::efi;

namespace {

constexpr const char* DEFAULT_VERSION = "no_version";
constexpr const char* DEFAULT_NAME = "no_lib_name";
constexpr const char* DEFAULT_VENDOR = "no_vendor";

// A file name for each package. "create" sorts its operands, so if the functions are not sorted in
// the library, each name begins with a number; all numbers have the same length.
std::vector<std::string> name_packages(const std::vector<ComponentPackage>& components) {
  std::vector<std::string> names(components.size());
  std::transform(
      components.begin(), components.end(), names.begin(),
      [](const ComponentPackage& package) { return get_first_function(package) + ".bfco"; });
  if (!std::is_sorted(names.begin(), names.end())) {
    const int digits = static_cast<int>(std::to_string(names.size()).size());
    for (std::size_t i = 0; i < names.size(); ++i) {
      names[i] = format_text("%0*zu-", digits, i + 1) + names[i];
    }
  }
  return names;
}

std::string make_create_command(const PackageFile& library, const UnpackOptions& options) {
  const std::string stem = std::filesystem::path(options.file).stem();
  std::string command = "bfcl library create";
  const auto add = [&command](const char* option, const std::string& value, const char* standard) {
    if (value != standard) {
      command += std::string(" ") + option + " " + quote_for_shell(value);
    }
  };
  add("-name", library.name, DEFAULT_NAME);
  add("-vendor", library.vendor, DEFAULT_VENDOR);
  add("-version", library.version, DEFAULT_VERSION);
  add("-o", join_path(options.destination, stem + ".bfclib"), "");
  const std::string folder = join_path(options.destination, "");
  return command + " " + (folder.empty() ? "" : quote_for_shell(folder)) + "*.bfco";
}

bool is_opencl_function(const PackageFile& library, const std::string& name) {
  return std::any_of(library.functions.begin(), library.functions.end(),
                     [&name](const LibraryFunction& function) {
                       return function.name == name && function.kind == LLVM_IR_KIND;
                     });
}

} // namespace

UnpackPlan plan_packages(const PackageFile& library, const UnpackOptions& options,
                         std::vector<std::string>& faults) {
  UnpackPlan plan;
  const bool all = options.function.empty();
  const ComponentPackage* wanted = all ? nullptr : find_component(library, options.function);
  const std::vector<std::string> names = name_packages(library.components);
  for (std::size_t i = 0; i < names.size(); ++i) {
    const ComponentPackage& package = library.components[i];
    if (!is_file_name(names[i])) {
      faults.push_back(
          format_text("%s: does not end with a file name", printable(package.section).c_str()));
    } else if (all || wanted == &package) {
      plan.root.files[names[i]] = {package.image, nullptr};
    }
  }
  const bool wants_code =
      all || (wanted == nullptr && is_opencl_function(library, options.function));
  if (wants_code && !library.clang_ir.empty()) {
    std::string name = "opencl.bfco";
    while (plan.root.files.contains(name)) {
      name.insert(0, "_");
    }
    plan.root.files[name] = {{}, &library.clang_ir};
  }
  if (plan.root.files.empty() && faults.empty()) {
    faults.push_back(all ? "no packages"
                         : format_text("no function %s", printable(options.function).c_str()));
  }
  if (all) {
    plan.commands.push_back(make_create_command(library, options));
  }
  return plan;
}

} // namespace bfcl::package
