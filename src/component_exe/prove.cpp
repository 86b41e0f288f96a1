// SPDX-License-Identifier: BSD-3-Clause
#include "commands.h"
#include "description.h"
#include "ghdl.h"
#include "process.h"
#include "properties.h"
#include "trace.h"
#include "yosys.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <memory>
#include <thread>

#include <CLI/CLI.hpp>

namespace bfcl::component {

using vex::efi::EFIElem;

namespace {

struct ProveOptions {
  std::string file;
  std::string function;
  unsigned depth = 12; // clocks after reset
  bool json = false;
};

unsigned number(const std::vector<bool>& bits) {
  unsigned value = 0;
  for (std::size_t bit = std::min<std::size_t>(bits.size(), 32); bit-- > 0;) {
    value = 2 * value + (bits[bit] ? 1 : 0);
  }
  return value;
}

// Bits [low, low + width) of an output in all clocks.
TraceColumn column(const std::string& name, const std::vector<Aiger::Clock>& clocks,
                   const std::string& output, std::size_t low, std::size_t width) {
  TraceColumn result{name, {}};
  for (const Aiger::Clock& clock : clocks) {
    const std::vector<bool>& bits = clock.at(output);
    std::vector<bool>& value = result.values.emplace_back();
    for (std::size_t bit = low; bit < low + width; ++bit) {
      value.push_back(bit < bits.size() && bits[bit]);
    }
  }
  return result;
}

using Columns = std::vector<TraceColumn>;

// The signals of memory port `wanted`, or the requests of all.
void add_memory(Columns& columns, const EFIElem& elem, const std::vector<Aiger::Clock>& clocks,
                std::optional<std::size_t> wanted) {
  std::size_t low = 0;
  for (std::size_t port = 0; port < elem.m_mem_port_names.size(); ++port) {
    const std::vector<MemorySignal> signals = memory_signals(elem, port);
    for (const auto& [name, width] : signals) {
      const bool is_request = name == signals.front().name;
      if (wanted ? *wanted == port : is_request) {
        const std::string title = wanted ? name : elem.m_mem_port_names[port] + "_" + name;
        columns.push_back(column(title, clocks, "show_memory", low, width));
      }
      low += width;
    }
  }
}

void add_inputs(Columns& columns, const EFIElem& elem, const std::vector<Aiger::Clock>& clocks) {
  std::size_t low = 0;
  for (std::size_t i = 0; i < elem.m_input_names.size(); ++i) {
    if (elem.m_input_widths[i] != 0) {
      columns.push_back(
          column(elem.m_input_names[i], clocks, "show_in", low, elem.m_input_widths[i]));
      low += elem.m_input_widths[i];
    }
  }
}

void add_signal(Columns& columns, const EFIElem& elem, const std::vector<Aiger::Clock>& clocks,
                const std::string& name) {
  const auto* known =
      std::find(vex::efi::VRM_SIGNAL_NAME.begin(), vex::efi::VRM_SIGNAL_NAME.end(), name);
  if (known == vex::efi::VRM_SIGNAL_NAME.end()) {
    columns.push_back(column(name, clocks, "show_" + name, 0, 16));
    return;
  }
  const auto index = static_cast<std::size_t>(known - vex::efi::VRM_SIGNAL_NAME.begin());
  columns.push_back(column(elem.m_signal_ports[index], clocks, "show_" + name, 0, 1));
}

std::string trace_of(const EFIElem& elem, const Property& property,
                     const std::vector<Aiger::Clock>& clocks) {
  Columns columns;
  for (const std::string shown : property.shown) {
    if (shown == SHOW_INPUTS) {
      add_inputs(columns, elem, clocks);
    } else if (shown == SHOW_MEMORY || shown == SHOW_REQUESTS) {
      const bool all = shown == SHOW_REQUESTS;
      add_memory(columns, elem, clocks, all ? std::nullopt : std::optional(property.bit));
    } else if (shown == SHOW_OUTPUT) {
      if (elem.m_output_width != 0) {
        columns.push_back(column(elem.m_output_name, clocks, "show_out", 0, elem.m_output_width));
      }
    } else {
      add_signal(columns, elem, clocks, shown);
    }
  }
  return trace_table(columns, RESET_CLOCKS);
}

// One property of one component and what came out.
struct Task {
  const Property* property = nullptr;
  Verdict verdict;
  std::vector<Aiger::Clock> clocks; // of the trace, if the output becomes high
};

void run(Task& task, const SealedTree& tree, unsigned depth) {
  const Property& property = *task.property;
  const std::string file = graph_file(tree, property.mode);
  Aiger graph;
  if (!graph.load(file)) {
    task.verdict.problem = "yosys wrote no graph that can be read";
    return;
  }
  const std::optional<std::size_t> output = graph.output(property.output, property.bit);
  if (!output) { // constant, and no property is broken in every clock
    task.verdict.kind = Verdict::Kind::never;
    return;
  }
  Effort effort;
  effort.clocks = RESET_CLOCKS + std::max<std::size_t>(property.clocks, depth);
  effort.is_expected_high = property.is_filling;
  task.verdict = decide(file, *output, effort);
  if (task.verdict.kind == Verdict::Kind::high) {
    task.clocks = graph.simulate(task.verdict.high);
  }
}

void run_all(std::vector<Task>& tasks, const SealedTree& tree, unsigned depth) {
  std::atomic<std::size_t> next = 0;
  const auto work = [&] {
    for (std::size_t i = next++; i < tasks.size() && interrupt_signal() == 0; i = next++) {
      run(tasks[i], tree, depth);
    }
  };
  const std::size_t processors = std::max(1U, std::thread::hardware_concurrency());
  std::vector<std::jthread> threads;
  for (std::size_t i = 1; i < std::min(processors, tasks.size()); ++i) {
    threads.emplace_back(work);
  }
  work();
}

// The component as the messages see it.
struct Subject {
  const Description* description;
  const EFIElem* elem;
  Report* report;

  void note(const std::string& text) const {
    report->note(description->name, elem->m_function_name + ": " + text);
  }
  void not_proved(const std::string& text) const {
    report->cannot_check(description->name, elem->m_function_name + ": not proved: " + text);
  }
};

void report_high(const Subject& subject, const Task& task) {
  const Property& property = *task.property;
  const Aiger::Clock& last = task.clocks.back();
  std::string fault = last.at("show_ovalid")[0] ? property.fault_ovalid : property.fault;
  if (property.is_filling) {
    const unsigned taken = number(last.at("show_held")) + (last.at("show_iready")[0] ? 1 : 0);
    if (taken == harness_capacity(*subject.elem)) {
      subject.note(property.claim + ": proved");
      return;
    }
    fault += std::to_string(taken);
  }
  subject.report->error(property.rule, property.place, subject.elem->m_function_name + ": " + fault,
                        trace_of(*subject.elem, property, task.clocks));
}

void report_verdict(const Subject& subject, const Task& task) {
  const Property& property = *task.property;
  const std::size_t clocks =
      task.verdict.clocks - std::min<std::size_t>(task.verdict.clocks, RESET_CLOCKS);
  const std::string holds = "holds for " + std::to_string(clocks) + " clocks";
  switch (task.verdict.kind) {
  case Verdict::Kind::high:
    report_high(subject, task);
    break;
  case Verdict::Kind::never:
  case Verdict::Kind::bounded:
    if (property.is_filling) {
      subject.not_proved(property.claim + ": not seen in " + std::to_string(clocks) + " clocks");
    } else {
      subject.note(property.claim + ": " +
                   (task.verdict.kind == Verdict::Kind::never ? "proved" : holds));
    }
    break;
  case Verdict::Kind::undecided:
    subject.not_proved(property.claim + ": " + task.verdict.problem +
                       (clocks > 0 && !property.is_filling ? " (" + holds + ")" : ""));
    break;
  }
}

// Prepares the sources below the tree's root: their names in order, or empty after a failure, which
// is reported.
std::vector<std::string> prepare_sources(const Subject& subject, const ElaborationRequest& request,
                                         SealedTree& tree, bool is_vhdl) {
  std::vector<std::string> sources;
  if (!tree.create(request.files)) {
    subject.not_proved("cannot make a temporary folder");
    return {};
  }
  if (is_vhdl) {
    const std::string verilog = vhdl_as_verilog(request, *subject.report);
    if (verilog.empty()) {
      return {};
    }
    if (!tree.write("bfcl_vhdl.v", verilog)) {
      subject.not_proved("cannot write a temporary file");
      return {};
    }
    return {"bfcl_vhdl.v"};
  }
  for (std::size_t i = 0; i < request.files.size(); ++i) {
    if (file_kind(request.files[i]) == FileKind::verilog && !tree.name(i).empty()) {
      sources.push_back(tree.name(i));
    }
  }
  if (sources.empty()) {
    subject.not_proved("no Verilog file is listed");
  }
  return sources;
}

void prove_component(const Description& description, std::size_t component, unsigned depth,
                     Report& report) {
  const EFIElem& elem = *description.spec->efi_elems()[component];
  const Subject subject{&description, &elem, &report};
  const ElaborationRequest request = description.request_for(component);
  const bool is_vhdl =
      std::any_of(request.files.begin(), request.files.end(),
                  [](const std::string& file) { return file_kind(file) == FileKind::vhdl; });
  SealedTree tree;
  const std::vector<std::string> sources = prepare_sources(subject, request, tree, is_vhdl);
  if (sources.empty()) {
    return;
  }
  const std::string problem = make_graphs(tree, sources, elem, is_vhdl);
  if (!problem.empty()) {
    subject.not_proved(problem);
    return;
  }
  const std::vector<Property> properties = properties_of(description, component);
  std::vector<Task> tasks(properties.size());
  std::transform(properties.begin(), properties.end(), tasks.begin(), [](const Property& property) {
    return Task{&property, {}, {}};
  });
  run_all(tasks, tree, depth);
  // What reset leaves behind breaks the other properties too.
  const bool reset_works = tasks.front().verdict.kind != Verdict::Kind::high;
  for (const Task& task : tasks) {
    if (reset_works || &task == &tasks.front()) {
      report_verdict(subject, task);
    }
  }
}

void prove_functions(const Description& description, const ProveOptions& options, Report& report) {
  bool found = false;
  for (std::size_t i = 0; i < description.lines.size() && interrupt_signal() == 0; ++i) {
    const std::string& name = description.spec->efi_elems()[i]->m_function_name;
    if (options.function.empty() || options.function == name) {
      found = true;
      prove_component(description, i, options.depth, report);
    }
  }
  if (!found) {
    report.cannot_check(description.name, "has no function " + options.function);
  }
}

int prove(const ProveOptions& options) {
  Report report;
  Description description;
  std::vector<std::string> texts;
  bool is_good = true;
  std::error_code error;
  if (!std::filesystem::is_regular_file(options.file, error)) {
    report.cannot_check(options.file, "does not exist or is not a regular file");
  } else if (is_good =
                 load_description(options.file, description, "", options.json ? &texts : nullptr);
             is_good) {
    prove_functions(description, options, report);
  }
  report_diagnostics(options.file, texts, report);
  options.json ? report.print_sarif("prove") : report.print();
  return is_good ? report.status() : STATUS_ERROR;
}

} // namespace

void add_prove(CLI::App& command, int* status) {
  auto options = std::make_shared<ProveOptions>();
  command.add_option("SPEC.xml", options->file, "component specification")->required();
  command.add_option("--function", options->function, "only this function (default: every one)");
  command
      .add_option("--depth", options->depth,
                  "clocks after reset to look at where nothing is proved for all")
      ->check(CLI::Range(1U, 1000U))
      ->capture_default_str();
  command.add_flag("--json", options->json, "print the findings as SARIF 2.1.0");
  command.callback([options, status] { *status = prove(*options); });
}

} // namespace bfcl::component
