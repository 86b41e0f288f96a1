// SPDX-License-Identifier: BSD-3-Clause
#include "packaged_description.h"

#include "component_package.h"
#include "printable.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string_view>

#include <strings.h>

namespace bfcl::component {

namespace {

namespace fs = std::filesystem;

using vex::efi::ComponentPackage;

// Follows a name from a folder below `root`, "" being root itself, and makes the folders on its
// way, so that "a/../b.v" can be opened too. Returns the name below root of the file that is meant,
// or nothing when it is not below root or its folders cannot be made.
std::optional<std::string> make_way(const fs::path& root, const std::string& name) {
  fs::path place;
  std::error_code error;
  const fs::path path(name);
  if (path.is_absolute() || !path.has_filename() || name.find('\0') != std::string::npos) {
    return std::nullopt;
  }
  for (const fs::path& step : path.parent_path()) {
    if (step == "..") {
      if (place.empty()) {
        return std::nullopt;
      }
      place = place.parent_path();
    } else if (!step.empty() && step != ".") {
      place /= step;
      fs::create_directory(root / place, error);
    }
    if (error || !fs::is_directory(root / place, error)) {
      return std::nullopt;
    }
  }
  const fs::path file = path.filename();
  return file == "." || file == ".." ? std::nullopt : std::optional((place / file).string());
}

// The program resolves an absolute name below the specification's folder too.
std::string relative_name(const std::string& folder, const std::string& name) {
  return folder + (name.starts_with('/') ? "." : "") + name;
}

// Writes one file of a package below root; an error text, or nothing.
std::string write_file(const fs::path& root, const std::string& folder, const std::string& name,
                       std::string_view bytes) {
  const auto place = make_way(root, relative_name(folder, name));
  if (!place) {
    return printable(name) + " leads out of the package's folder, or through a file";
  }
  std::ofstream file(root / *place, std::ios::binary);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  file.close();
  return file ? "" : "cannot write " + printable(name) + " into a temporary folder";
}

std::string unpack(const ComponentPackage& package, const fs::path& root) {
  if (root.empty()) {
    return "cannot make a temporary folder";
  }
  const std::string& folder = package.directory_prefix;
  for (const vex::efi::PackagedFile& file : package.files) {
    std::string problem = write_file(root, folder, file.name, file.bytes);
    if (!problem.empty()) {
      return problem;
    }
  }
  return write_file(root, folder, package.specification_name, package.specification);
}

} // namespace

bool is_package_name(const std::string& path) {
  const std::string extension = fs::path(path).extension().string();
  return strcasecmp(extension.c_str(), ".bfco") == 0 ||
         strcasecmp(extension.c_str(), ".bfclib") == 0;
}

bool load_packaged_descriptions(const std::string& path, PackagedDescriptions& packaged,
                                Report& report, std::vector<std::string>* diagnostics) {
  std::vector<std::string> faults;
  const auto file = vex::efi::read_package_file(path, faults);
  for (const std::string& fault : faults) {
    report.cannot_check(path, fault);
  }
  if (file == nullptr || !faults.empty()) {
    return true;
  }
  if (file->components.empty()) {
    report.note(path, "OpenCL code only, nothing to check");
  }
  bool is_good = true;
  for (const ComponentPackage& package : file->components) {
    TempFolder folder;
    if (const std::string problem = unpack(package, folder.path()); !problem.empty()) {
      report.cannot_check(path, problem);
      continue;
    }
    Description description;
    const std::string spec =
        folder.path() + "/" + package.directory_prefix + package.specification_name;
    is_good = load_description(spec, description, tidy_path(path), diagnostics) && is_good;
    if (description.spec != nullptr) {
      packaged.descriptions.push_back(std::move(description));
      packaged.folders.push_back(std::move(folder));
    }
  }
  return is_good;
}

} // namespace bfcl::component
