// SPDX-License-Identifier: BSD-3-Clause
#include "check_model.h"
#include "commands.h"
#include "description.h"
#include "interface_rules.h"
#include "process.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <filesystem>
#include <thread>

namespace bfcl::component {

namespace {

struct CheckOptions {
  std::vector<std::string> operands;
  bool json = false;
  unsigned jobs = 0;
};

// One component of a description.
struct Task {
  const Description* description;
  std::size_t component;
  Report report;
};

void check_component(Task& task) {
  const Description& description = *task.description;
  check_files(description, task.component, task.report);
  const std::optional<Design> design =
      elaborate(description.request_for(task.component), task.report);
  if (design) {
    check_interface(description, task.component, *design, task.report);
  }
  check_model(description, task.component, task.report);
  if (task.report.status() == STATUS_OK) {
    const std::string& name = description.spec->efi_elems()[task.component]->m_function_name;
    task.report.note(description.name, name + ": ok");
  }
}

// Each thread takes the next task until none is left; each task has its own report, so that the
// output does not depend on their number.
void run_tasks(std::vector<Task>& tasks, unsigned jobs) {
  std::atomic<std::size_t> next = 0;
  const auto work = [&] {
    for (std::size_t i = next++; i < tasks.size() && interrupt_signal() == 0; i = next++) {
      check_component(tasks[i]);
    }
  };
  const std::size_t processors = std::max(1U, std::thread::hardware_concurrency());
  const std::size_t count = std::min<std::size_t>(jobs != 0 ? jobs : processors, tasks.size());
  std::vector<std::jthread> threads;
  for (std::size_t i = 1; i < count; ++i) {
    threads.emplace_back(work);
  }
  work();
}

int check(const CheckOptions& options) {
  Report report;
  bool is_loaded = true;
  std::vector<Description> descriptions;
  descriptions.reserve(options.operands.size());
  for (const std::string& operand : options.operands) {
    std::error_code error;
    Description description;
    if (!std::filesystem::is_regular_file(operand, error)) {
      report.cannot_check(operand, "does not exist or is not a regular file");
    } else if (load_description(operand, description)) {
      descriptions.push_back(std::move(description));
    } else {
      is_loaded = false;
    }
  }
  std::vector<Task> tasks;
  for (const Description& description : descriptions) {
    for (std::size_t i = 0; i < description.lines.size(); ++i) {
      tasks.push_back({&description, i, {}});
    }
  }
  run_tasks(tasks, options.jobs);
  for (Task& task : tasks) {
    report.merge(std::move(task.report));
  }
  options.json ? report.print_sarif("check") : report.print();
  return report.status() == STATUS_OK && !is_loaded ? STATUS_ERROR : report.status();
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
