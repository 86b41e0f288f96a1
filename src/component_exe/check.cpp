// SPDX-License-Identifier: BSD-3-Clause
#include "check_model.h"
#include "commands.h"
#include "description.h"
#include "interface_rules.h"
#include "module_conflicts.h"
#include "packaged_description.h"
#include "process.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <filesystem>
#include <future>
#include <map>
#include <mutex>
#include <thread>
#include <tuple>

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
  std::optional<Design> design; // when the RTL could be elaborated
};

// Designs that elaborated without a finding, for components that share module, files and
// parameters.
class DesignCache {
public:
  std::optional<Design> elaborate_once(const ElaborationRequest& request, Report& report) {
    const auto key = std::tie(request.top, request.files, request.parameters);
    {
      const std::lock_guard lock(m_mutex);
      const auto found = m_designs.find(key);
      if (found != m_designs.end()) {
        return found->second;
      }
    }
    Report own;
    std::optional<Design> design = elaborate(request, own);
    if (design && own.findings().empty() && own.status() == STATUS_OK) {
      const std::lock_guard lock(m_mutex);
      m_designs.emplace(key, *design);
    }
    report.merge(std::move(own));
    return design;
  }

private:
  using Key = std::tuple<std::string, std::vector<std::string>,
                         std::vector<std::pair<std::string, std::string>>>;
  std::mutex m_mutex;
  std::map<Key, Design> m_designs;
};

// The models are compiled while the RTL is elaborated, unless one job at a time is asked for.
void check_component(Task& task, DesignCache& designs, unsigned jobs) {
  const Description& description = *task.description;
  const bool has_models = check_files(description, task.component, task.report);
  Report models;
  std::future<void> compiled =
      std::async(jobs == 1 ? std::launch::deferred : std::launch::async, [&] {
        if (has_models) {
          check_model(description, task.component, models);
        }
      });
  const ElaborationRequest request = description.request_for(task.component);
  std::error_code error;
  if (std::any_of(request.files.begin(), request.files.end(), [&error](const std::string& file) {
        return std::filesystem::is_regular_file(file, error);
      })) {
    task.design = designs.elaborate_once(request, task.report);
  }
  if (task.design) {
    check_interface(description, task.component, *task.design, task.report);
  }
  compiled.get();
  task.report.merge(std::move(models));
  task.report.join_widths();
  if (task.report.status() == STATUS_OK) {
    const std::string& name = description.spec->efi_elems()[task.component]->m_function_name;
    task.report.note(description.name, name + ": ok");
  }
}

// Each thread takes the next task until none is left; each task has its own report, so that the
// output does not depend on their number.
void run_tasks(std::vector<Task>& tasks, unsigned jobs) {
  DesignCache designs;
  std::atomic<std::size_t> next = 0;
  const auto work = [&] {
    for (std::size_t i = next++; i < tasks.size() && interrupt_signal() == 0; i = next++) {
      check_component(tasks[i], designs, jobs);
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

// Loads the operands, in their order. False when a description has errors.
bool load_operands(const CheckOptions& options, PackagedDescriptions& loaded, Report& report) {
  bool is_good = true;
  for (const std::string& operand : options.operands) {
    std::error_code error;
    Description description;
    std::vector<std::string> texts;
    std::vector<std::string>* const kept = options.json ? &texts : nullptr;
    if (!std::filesystem::is_regular_file(operand, error)) {
      report.cannot_check(operand, "does not exist or is not a regular file");
    } else if (is_package_name(operand)) {
      is_good = load_packaged_descriptions(operand, loaded, report, kept) && is_good;
    } else {
      is_good = load_description(operand, description, "", kept) && is_good;
      if (description.spec != nullptr) {
        loaded.descriptions.push_back(std::move(description));
      }
    }
    report_diagnostics(operand, texts, report);
  }
  return is_good;
}

int check(const CheckOptions& options) {
  Report report;
  PackagedDescriptions loaded;
  const bool is_loaded = load_operands(options, loaded, report);
  std::vector<Task> tasks;
  for (const Description& description : loaded.descriptions) {
    for (std::size_t i = 0; i < description.lines.size(); ++i) {
      tasks.push_back({&description, i, {}, std::nullopt});
    }
  }
  run_tasks(tasks, options.jobs);
  ModuleConflicts conflicts;
  for (Task& task : tasks) {
    if (task.design && !task.design->has_ports_only) {
      conflicts.add(*task.description, task.component, *task.design, report);
    }
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
