// SPDX-License-Identifier: BSD-3-Clause
#include "commands.h"
#include "process.h"
#include "simulation.h"
#include "simulator.h"

#include <CLI/CLI.hpp>

#include <charconv>
#include <filesystem>
#include <set>

namespace bfcl::component {

namespace {

// "PORT=LOW:HIGH"
std::string parse_range(const std::string& text, std::map<std::string, Range>& ranges) {
  const std::size_t equals = text.find('=');
  const std::size_t colon = text.find(':', equals);
  Range range;
  const auto number = [&text](std::size_t begin, std::size_t end, std::int64_t& value) {
    const auto [after, error] = std::from_chars(text.data() + begin, text.data() + end, value);
    return error == std::errc() && after == text.data() + end;
  };
  if (equals == std::string::npos || colon == std::string::npos ||
      !number(equals + 1, colon, range.first) || !number(colon + 1, text.size(), range.second) ||
      range.first > range.second) {
    return "--range: expected PORT=LOW:HIGH, not " + text;
  }
  ranges[text.substr(0, equals)] = range;
  return "";
}

struct SimulateOptions {
  std::string operand;
  std::string function;
  std::vector<std::string> ranges;
  SimulationOptions simulation;
  bool json = false;
};

// The components to simulate, by index; why there are none is in the report.
std::vector<std::size_t> select_components(const Description& description,
                                           const SimulateOptions& options, Report& report) {
  const auto& components = description.spec->efi_elems();
  std::vector<std::size_t> selected;
  std::set<std::string> inputs;
  for (std::size_t i = 0; i < components.size(); ++i) {
    if (options.function.empty() || components[i]->m_function_name == options.function) {
      selected.push_back(i);
      inputs.insert(components[i]->m_input_names.begin(), components[i]->m_input_names.end());
    }
  }
  for (const auto& [port, range] : options.simulation.ranges) {
    if (!inputs.contains(port) && !selected.empty()) {
      report.cannot_check(options.operand, "--range: there is no input " + port);
      return {};
    }
  }
  if (selected.empty()) {
    report.cannot_check(options.operand, "has no function " + options.function);
  } else if (selected.size() > 1 && !options.simulation.waves.empty()) {
    report.cannot_check(options.operand, "--waves needs --function: there are several");
    selected.clear();
  }
  return selected;
}

int simulate(const SimulateOptions& options) {
  Report report;
  RuntimeObjects objects;
  std::error_code error;
  Description description;
  std::vector<std::string> texts;
  bool is_good = true;
  if (!std::filesystem::is_regular_file(options.operand, error)) {
    report.cannot_check(options.operand, "does not exist or is not a regular file");
  } else if (is_good = load_description(options.operand, description, "",
                                        options.json ? &texts : nullptr);
             is_good) {
    for (const std::size_t i : select_components(description, options, report)) {
      if (interrupt_signal() == 0) {
        simulate_component(description, i, options.simulation, objects, report);
      }
    }
  }
  report_diagnostics(options.operand, texts, report);
  options.json ? report.print_sarif("simulate") : report.print();
  return is_good ? report.status() : STATUS_ERROR;
}

} // namespace

void add_simulate(CLI::App& command, int* status) {
  auto options = std::make_shared<SimulateOptions>();
  command.add_option("SPEC.xml", options->operand, "the component specification")->required();
  command.add_option("--function", options->function, "simulate this function only");
  command
      .add_option("--vectors", options->simulation.vectors,
                  "about how many calls (default: 10000; fewer with memory)")
      ->check(CLI::Range(std::size_t{1}, std::size_t{1000000}));
  command.add_option("--seed", options->simulation.seed,
                     "what the random values start from (default: 1)");
  command.add_option("--range", options->ranges,
                     "keep an argument in bounds: PORT=LOW:HIGH, as often as needed");
  command.add_option("--waves", options->simulation.waves,
                     "write the waves of the first fault, or of the last phase, as FST");
  command.add_flag("--json", options->json, "print the findings as SARIF 2.1.0");
  command.callback([options, status] {
    for (const std::string& text : options->ranges) {
      const std::string problem = parse_range(text, options->simulation.ranges);
      if (!problem.empty()) {
        throw CLI::ValidationError(problem);
      }
    }
    *status = simulate(*options);
  });
}

} // namespace bfcl::component
