// SPDX-License-Identifier: BSD-3-Clause
#include "commands.h"
#include "description.h"

#include <CLI/CLI.hpp>

namespace bfcl::component {

namespace {

struct CheckOptions {
  std::vector<std::string> operands;
  bool json = false;
  unsigned jobs = 0;
};

int check(const CheckOptions& options) {
  Report report;
  for (const std::string& operand : options.operands) {
    report.cannot_check(operand, "no check is built in yet");
  }
  options.json ? report.print_sarif("check") : report.print();
  return report.status();
}

} // namespace

void add_check(CLI::App& command, int* status) {
  auto options = std::make_shared<CheckOptions>();
  command.add_option("FILE", options->operands, "component specifications, packages, libraries")
      ->required();
  command.add_flag("--json", options->json, "print the findings as SARIF 2.1.0");
  command.add_option("--jobs", options->jobs, "how many tools run at once (default: processors)");
  command.callback([options, status] { *status = check(*options); });
}

} // namespace bfcl::component
