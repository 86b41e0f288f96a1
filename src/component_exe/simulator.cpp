// SPDX-License-Identifier: BSD-3-Clause
#include "simulator.h"

#include "call_types.h"
#include "check_model.h"
#include "clang.h"
#include "ghdl.h"
#include "interface_rules.h"
#include "opencl.h"
#include "process.h"
#include "progress.h"
#include "simulation.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <future>
#include <numeric>

namespace bfcl::component {

namespace {

namespace fs = std::filesystem;
using vex::efi::EFIElem;

bool save(const std::string& path, const std::vector<unsigned char>& bytes) {
  std::ofstream file(path, std::ios::binary);
  file.write(reinterpret_cast<const char*>(bytes.data()),
             static_cast<std::streamsize>(bytes.size()));
  return file.flush().good();
}

// The simulation of one component.
class Simulator {
public:
  Simulator(const Description& description, std::size_t index, const SimulationOptions& options,
            RuntimeObjects& objects, Report& report)
      : m_description(description), m_index(index),
        m_component(*description.spec->efi_elems()[index]), m_options(options), m_objects(objects),
        m_report(report), m_progress(description.name + ": " + m_component.m_function_name) {}

  void run();

private:
  [[nodiscard]] bool check();
  [[nodiscard]] bool check_body();
  [[nodiscard]] bool find_model();
  [[nodiscard]] std::vector<CallInput> inputs(bool limited) const;
  [[nodiscard]] CallPlan plan() const;
  [[nodiscard]] OpenClJob model_job() const;
  [[nodiscard]] bool write_calls() const;
  [[nodiscard]] bool prepare_sources();
  [[nodiscard]] SimulationJob simulation_job() const;
  [[nodiscard]] ModelOutcome make_model_calls();
  [[nodiscard]] SimulationOutcome simulate();
  [[nodiscard]] bool keep_waves() const;
  void report_model(const ModelOutcome& outcome);
  void report_findings(const SimulationOutcome& outcome);
  void fail(const std::string& text) {
    m_report.cannot_check(m_description.name, m_component.m_function_name + ": " + text);
  }

  const Description& m_description;
  std::size_t m_index;
  const EFIElem& m_component;
  const SimulationOptions& m_options;
  RuntimeObjects& m_objects;
  Report& m_report;
  Progress m_progress;
  TempFolder m_folder;
  SealedTree m_tree;
  Design m_design;
  ModelFunction m_model;
  std::vector<std::string> m_sources; // below the root of the tree
  Calls m_calls;
  bool m_limited = false; // integers are small, since the model does not take all
};

// A component that does not agree with its description cannot be connected as that says. Warnings
// are left to `check`.
bool Simulator::check() {
  Report report;
  std::optional<Design> design = elaborate(m_description.request_for(m_index), report);
  if (design) {
    check_interface(m_description, m_index, *design, report);
  }
  check_model(m_description, m_index, report);
  if (report.status() != STATUS_OK) {
    m_report.merge(std::move(report));
    return false;
  }
  m_design = std::move(*design);
  return true;
}

bool Simulator::check_body() {
  const bool is_unwritten = m_model.is_empty && !m_model.result.is_void();
  if (is_unwritten) {
    fail("the C model's body is empty: write what the component computes");
  }
  return !is_unwritten;
}

bool Simulator::find_model() {
  for (const std::string& file : m_component.m_c_model_files) {
    std::string problem;
    const fs::path path = fs::absolute(m_description.file_path(file));
    std::optional<CModel> model = read_c_model(path, m_component.m_function_name, problem);
    if (!model) {
      fail(problem);
      return false;
    }
    const auto found = std::find_if(
        model->functions.begin(), model->functions.end(), [this](const ModelFunction& function) {
          return function.is_definition && function.name == m_component.m_function_name;
        });
    if (found != model->functions.end()) {
      m_model = std::move(*found);
      return check_body();
    }
  }
  fail("no C model defines the function");
  return false;
}

// `limited` keeps integers small, for a model that takes them as counts of what is behind a
// pointer.
std::vector<CallInput> Simulator::inputs(bool limited) const {
  constexpr Range small = {0, 64};
  std::vector<CallInput> inputs;
  for (std::size_t i = 0; i < m_component.m_input_names.size(); ++i) {
    CallInput input;
    input.name = m_component.m_input_names[i];
    input.bytes = m_component.m_input_widths[i] / 8;
    input.is_pointer = m_component.m_input_access_types[i] != vex::efi::MEM_INPUT_SCALAR;
    input.is_writable = m_component.m_input_access_types[i] == vex::efi::MEM_INPUT_READWRITE;
    input.element_bytes = input.bytes;
    apply_type(m_model.arguments[i].type, input);
    const auto range = m_options.ranges.find(input.name);
    if (range != m_options.ranges.end()) {
      input.range = range->second;
    } else if (limited && !input.is_pointer && input.kind == ValueKind::integer &&
               input.element_bytes <= 8) {
      input.range = small;
    }
    inputs.push_back(std::move(input));
  }
  return inputs;
}

// Addresses are aligned to the words of every memory port.
CallPlan Simulator::plan() const {
  CallPlan plan;
  plan.count = m_options.vectors;
  plan.seed = m_options.seed;
  plan.capacity = static_cast<std::size_t>(std::clamp(m_component.m_capacity, 0, 4096));
  for (const unsigned bits : m_component.m_mem_port_widths) {
    plan.alignment = std::lcm(plan.alignment, std::clamp<std::size_t>(bits / 8, 1, REACH_BYTES));
  }
  return plan;
}

OpenClJob Simulator::model_job() const {
  OpenClJob job;
  for (const std::string& file : m_component.m_c_model_files) {
    job.sources.push_back(fs::absolute(m_description.file_path(file)));
  }
  job.function = m_component.m_function_name;
  for (std::size_t i = 0; i < m_calls.inputs.size(); ++i) {
    std::string type = m_model.arguments[i].type.name;
    if (type.rfind("const ", 0) == 0) {
      type.erase(0, std::string("const ").size());
    }
    job.arguments.push_back({type, m_calls.inputs[i].is_pointer, m_calls.inputs[i].bytes});
  }
  job.result_bytes = m_component.m_output_width / 8;
  job.calls = m_calls.count();
  job.pages = m_calls.pages;
  return job;
}

bool Simulator::write_calls() const {
  return save(m_folder.path() + "/arguments.bin", m_calls.arguments) &&
         save(m_folder.path() + "/memory_before.bin", m_calls.memory);
}

bool Simulator::prepare_sources() {
  const ElaborationRequest request = m_description.request_for(m_index);
  if (m_folder.path().empty() || !m_tree.create(request.files)) {
    fail("cannot make a temporary folder");
    return false;
  }
  if (m_design.ignores_case) {
    const std::string verilog = vhdl_as_verilog(request, m_report);
    m_sources = {m_tree.work() + "/component.v"};
    return !verilog.empty() && save(m_sources[0], {verilog.begin(), verilog.end()});
  }
  for (std::size_t i = 0; i < request.files.size(); ++i) {
    if (file_kind(request.files[i]) == FileKind::verilog) {
      m_sources.push_back(m_tree.name(i));
    }
  }
  return true;
}

SimulationJob Simulator::simulation_job() const {
  SimulationJob job = {m_component, m_design, m_calls};
  job.capacity_given = m_description.lines[m_index].capacity != 0;
  job.float_bytes = float_bytes(m_model.result, m_component.m_output_width / 8);
  return job;
}

// Integers beside a pointer are often lengths: a model that stops because it leaves its buffers or
// does not return is called again with small ones.
ModelOutcome Simulator::make_model_calls() {
  ModelOutcome outcome = run_c_model(model_job(), m_folder.path());
  if (outcome.end == ModelEnd::stopped_at_call && m_calls.pages != 0) {
    Calls all = std::move(m_calls);
    m_calls = make_calls(inputs(true), plan());
    m_limited = true;
    if (!write_calls()) {
      return {ModelEnd::failed, 0, "cannot write the calls"};
    }
    outcome = run_c_model(model_job(), m_folder.path());
  }
  return outcome;
}

// A write burst has one writeack. A component that expects one for each word is given these.
SimulationOutcome Simulator::simulate() {
  const std::string waves = m_options.waves.empty() ? "" : m_folder.path() + "/waves.fst";
  SimulationOutcome outcome = run_bench(m_tree, m_folder.path(), m_options.seed, false, waves);
  if (!outcome.findings.empty() && outcome.wrote_burst) {
    SimulationOutcome other = run_bench(m_tree, m_folder.path(), m_options.seed, true, waves);
    if (other.problem.empty() && other.findings.empty()) {
      return other;
    }
  }
  return outcome;
}

bool Simulator::keep_waves() const {
  if (m_options.waves.empty()) {
    return true;
  }
  std::error_code error;
  const std::string part = m_options.waves + ".part";
  fs::copy_file(m_folder.path() + "/waves.fst", part, fs::copy_options::overwrite_existing, error);
  if (!error) {
    fs::rename(part, m_options.waves, error);
  }
  if (error) {
    std::error_code ignored;
    fs::remove(part, ignored);
  }
  return !error;
}

void Simulator::report_model(const ModelOutcome& outcome) {
  if (outcome.end == ModelEnd::stopped_at_call) {
    fail("the C model " + outcome.text + " when it is called as " + m_component.m_function_name +
         "(" + m_calls.describe(outcome.call) + "); --range keeps arguments in bounds");
  } else {
    fail(outcome.text);
  }
}

// The first finding of each rule: what follows a fault is mostly its consequence.
void Simulator::report_findings(const SimulationOutcome& outcome) {
  const Place place = m_description.place(m_description.lines[m_index].function);
  std::vector<std::string> seen;
  for (const auto& [rule, call, clock, phase, text] : outcome.findings) {
    if (std::find(seen.begin(), seen.end(), rule) != seen.end()) {
      continue;
    }
    seen.push_back(rule);
    std::string message = m_component.m_function_name;
    if (call && *call < m_calls.count()) {
      message.append("(").append(m_calls.describe(*call)).append(")");
    }
    message.append(": ").append(text).append(" (");
    if (call) {
      message.append("call ").append(std::to_string(*call)).append(", ");
    }
    message.append("clock ").append(std::to_string(clock)).append(", ").append(phase);
    message.append("; --seed ").append(std::to_string(m_options.seed)).append(" repeats it)");
    m_report.error(rule.c_str(), place, std::move(message));
  }
  if (outcome.findings.empty()) {
    m_report.note(m_description.name, m_component.m_function_name + ": ok, " +
                                          std::to_string(outcome.answered) + " vectors" +
                                          (m_limited ? ", with integers from 0 to 64" : ""));
  }
}

void Simulator::run() {
  m_progress.show("checking");
  if (!check() || !find_model() || !prepare_sources()) {
    return;
  }
  m_calls = make_calls(inputs(false), plan());
  if (!write_calls() || !write_bench(simulation_job(), m_tree)) {
    return fail("cannot write to a temporary folder");
  }
  m_progress.show("compiling the RTL and running the C model");
  auto build = std::async(std::launch::async, [this] {
    return build_bench(m_tree, m_sources, !m_options.waves.empty(), m_objects);
  });
  const ModelOutcome model = make_model_calls();
  const std::string problem = build.get();
  if (model.end != ModelEnd::done) {
    return report_model(model);
  }
  if (!problem.empty()) {
    return fail(problem);
  }
  m_progress.show("simulating");
  const SimulationOutcome outcome = simulate();
  if (!outcome.problem.empty()) {
    return fail(outcome.problem);
  }
  report_findings(outcome);
  if (!keep_waves()) {
    fail("cannot write " + m_options.waves);
  }
}

} // namespace

void simulate_component(const Description& description, std::size_t index,
                        const SimulationOptions& options, RuntimeObjects& objects, Report& report) {
  Simulator(description, index, options, objects, report).run();
}

} // namespace bfcl::component
