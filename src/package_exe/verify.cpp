// SPDX-License-Identifier: BSD-3-Clause
#include "commands.h"
#include "consistency.h"
#include "printable.h"

#include <cstdio>
#include <memory>

namespace bfcl::package {

namespace {

// Prints a line for each fault, or "ok".
bool verify_file(const std::string& path) {
  std::vector<std::string> faults;
  const auto file = vex::efi::read_package_file(path, faults);
  if (faults.empty()) {
    check_consistency(*file, faults);
  }
  const std::string name = printable(path);
  for (const std::string& fault : faults) {
    std::printf("%s: %s\n", name.c_str(), fault.c_str());
  }
  if (faults.empty()) {
    std::printf("%s: ok\n", name.c_str());
  }
  return faults.empty();
}

} // namespace

void add_verify(CLI::App& command, int* status) {
  auto files = std::make_shared<std::vector<std::string>>();
  command.add_option("FILE", *files, "component packages, OpenCL packages, libraries")->required();
  command.callback([files, status] {
    for (const std::string& path : *files) {
      *status = verify_file(path) ? *status : STATUS_FAULT;
    }
  });
}

} // namespace bfcl::package
