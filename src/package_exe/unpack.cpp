// SPDX-License-Identifier: BSD-3-Clause
#include "unpack.h"

#include "commands.h"
#include "destination.h"
#include "printable.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>

namespace bfcl::package {

using namespace vex::efi;

namespace {

// The command that packages a component again, into the destination.
std::string make_package_command(const std::string& destination, const std::string& specification,
                                 const std::string& name) {
  return "bfcl library hdl-comp-pkg " + quote_for_shell(join_path(destination, specification)) +
         " -o " + quote_for_shell(join_path(destination, name + ".bfco"));
}

void plan_library(const PackageFile& library, UnpackPlan& plan, const UnpackOptions& options,
                  std::vector<std::string>& faults) {
  for (const ComponentPackage& package : library.components) {
    const std::string name = get_first_function(package);
    if (!is_file_name(name)) {
      faults.push_back(
          format_text("%s: does not end with a folder name", printable(package.section).c_str()));
      return;
    }
    auto& folder = plan.root.folders[name];
    folder = std::make_unique<PlannedFolder>();
    const std::string path = plan_component(package, *folder, plan.folder_count, faults);
    const std::string specification = join_path(name, path);
    plan.commands.push_back(make_package_command(options.destination, specification, name));
  }
}

// Whether the file contains what the options ask for.
bool check_kind(const PackageFile& package, const UnpackOptions& options,
                std::vector<std::string>& faults) {
  const std::size_t old_faults = faults.size();
  if (options.packages && package.kind != PackageKind::LIBRARY) {
    faults.emplace_back("not a library: only libraries contain packages");
  } else if (package.kind == PackageKind::OPENCL) {
    faults.emplace_back("an OpenCL package contains no source files");
  } else if (!options.packages && options.function.empty() && package.components.empty()) {
    faults.emplace_back("contains no component packages, only OpenCL code: --packages writes it");
  }
  return faults.size() == old_faults;
}

void print_lines(const char* heading, const std::vector<std::string>& lines, const char* indent) {
  if (!lines.empty()) {
    std::fputs(heading, stdout);
  }
  for (const std::string& line : lines) {
    std::printf("%s%s\n", indent, printable(line).c_str());
  }
}

int write_plan(const UnpackPlan& plan, const UnpackOptions& options) {
  std::vector<std::string> faults;
  const Written written = write_files(options.destination, plan.root, options.force, faults);
  print_lines("", written.files, "");
  for (const std::string& path : written.kept) {
    faults.push_back(format_text("%s exists with other contents and is kept; --force replaces it",
                                 printable(path).c_str()));
  }
  report_faults(options.file, faults);
  if (!faults.empty()) {
    return STATUS_FAULT;
  }
  print_lines("To make the same again:\n", plan.commands, "  ");
  return STATUS_OK;
}

int unpack(const UnpackOptions& options) {
  std::vector<std::string> faults;
  UnpackPlan plan;
  const auto package = read_package_file(options.file, faults);
  if (faults.empty() && check_kind(*package, options, faults)) {
    plan = options.packages ? plan_packages(*package, options, faults)
                            : plan_files(*package, options, faults);
  }
  if (!faults.empty()) {
    report_faults(options.file, faults);
    return STATUS_FAULT;
  }
  if (options.list) {
    print_lines("", list_paths(options.destination, plan.root), "");
    return STATUS_OK;
  }
  return write_plan(plan, options);
}

} // namespace

UnpackPlan plan_files(const PackageFile& package, const UnpackOptions& options,
                      std::vector<std::string>& faults) {
  UnpackPlan plan;
  if (package.kind == PackageKind::LIBRARY && options.function.empty()) {
    plan_library(package, plan, options, faults);
    return plan;
  }
  const ComponentPackage* component = options.function.empty()
                                          ? &package.components.front()
                                          : find_component(package, options.function);
  if (component == nullptr) {
    faults.push_back(format_text("no component package defines the function %s",
                                 printable(options.function).c_str()));
    return plan;
  }
  const std::string path = plan_component(*component, plan.root, plan.folder_count, faults);
  const std::string name = component->section.empty()
                               ? std::filesystem::path(options.file).stem().string()
                               : get_first_function(*component);
  plan.commands.push_back(make_package_command(options.destination, path, name));
  return plan;
}

std::string get_first_function(const ComponentPackage& package) {
  return package.section.substr(COMPONENT_PREFIX.size());
}

std::string quote_for_shell(const std::string& word) {
  constexpr const char* plain = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"
                                "_-./,:+@%=";
  if (!word.empty() && word.find_first_not_of(plain) == std::string::npos) {
    return word;
  }
  std::string quoted = "'";
  for (const char c : word) {
    quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  }
  return quoted + "'";
}

void add_unpack(CLI::App& command, int* status) {
  auto options = std::make_shared<UnpackOptions>();
  command.add_option("FILE", options->file, "a component package or a library")->required();
  command.add_option("-C,--directory", options->destination, "the folder to write into")
      ->type_name("DIR")
      ->check([](const std::string& path) { return path.empty() ? "no folder" : ""; });
  command
      .add_option("--function", options->function, "only the package that defines this function")
      ->type_name("NAME")
      ->check([](const std::string& name) { return name.empty() ? "no function" : ""; });
  command.add_flag("--packages", options->packages, "split a library into its packages");
  command.add_flag("--list", options->list, "print the paths and write nothing");
  command.add_flag("--force", options->force, "replace files that exist");
  command.callback([options, status] { *status = unpack(*options); });
}

} // namespace bfcl::package
