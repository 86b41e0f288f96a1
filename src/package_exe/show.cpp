// SPDX-License-Identifier: BSD-3-Clause
#include "show.h"

#include "commands.h"
#include "printable.h"
#include "specification.h"

#include <cstdio>
#include <optional>

namespace bfcl::package {

namespace {

struct ShowOptions {
  std::vector<std::string> files;
  bool json = false;
};

// Reads a file and the specifications in it. Nothing if it is not a package; faults are printed.
std::optional<ShownFile> read_shown_file(const std::string& path, int* status) {
  std::vector<std::string> faults;
  ShownFile file = {path, vex::efi::read_package_file(path, faults), {}};
  if (file.package != nullptr) {
    for (const auto& component : file.package->components) {
      file.specs.push_back(
          component.specification_name.empty() ? nullptr : load_specification(component, faults));
    }
  }
  report_faults(path, faults);
  *status = faults.empty() ? *status : STATUS_FAULT;
  return file.package != nullptr ? std::optional(std::move(file)) : std::nullopt;
}

int show_text(const std::vector<std::string>& paths) {
  const TreeStyle style = find_style_of_stdout();
  int status = STATUS_OK;
  for (const std::string& path : paths) {
    if (const auto file = read_shown_file(path, &status)) {
      std::fputs(print_tree(make_tree(*file), style).c_str(), stdout);
    }
  }
  return status;
}

int show_json(const std::vector<std::string>& paths) {
  int status = STATUS_OK;
  nlohmann::ordered_json document = {{"version", SHOW_FORMAT_VERSION},
                                     {"files", nlohmann::ordered_json::array()}};
  for (const std::string& path : paths) {
    if (const auto file = read_shown_file(path, &status)) {
      document["files"].push_back(make_json(*file));
    }
  }
  const auto replace = nlohmann::ordered_json::error_handler_t::replace; // what is not UTF-8
  std::puts(document.dump(2, ' ', true, replace).c_str()); // ASCII: safe on a terminal
  return status;
}

} // namespace

void report_faults(const std::string& file, const std::vector<std::string>& faults) {
  std::fflush(stdout); // keep the order if both streams are one
  for (const std::string& fault : faults) {
    std::fprintf(stderr, "bfcl-package: %s: %s\n", printable(file).c_str(), fault.c_str());
  }
}

void add_show(CLI::App& command, int* status) {
  auto options = std::make_shared<ShowOptions>();
  command.add_option("FILE", options->files, "component packages, OpenCL packages, libraries")
      ->required();
  command.add_flag("--json", options->json, "print JSON");
  command.callback([options, status] {
    *status = options->json ? show_json(options->files) : show_text(options->files);
  });
}

} // namespace bfcl::package
