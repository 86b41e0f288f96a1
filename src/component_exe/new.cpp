// SPDX-License-Identifier: BSD-3-Clause
#include "commands.h"
#include "component_names.h"
#include "description.h"
#include "ghdl.h"
#include "new_files.h"
#include "new_sources.h"
#include "process.h"
#include "progress.h"
#include "rtl_text.h"
#include "wrapper.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

namespace bfcl::component {

namespace {

namespace fs = std::filesystem;

using Pairs = std::vector<std::pair<std::string, std::string>>;

struct NewOptions {
  std::string module;
  std::vector<std::string> files;
  std::string folder = ".";
  std::string clock;
  std::string reset;
  std::vector<std::string> maps;
  std::vector<std::string> parameters;
  std::optional<unsigned> latency;
};

// A file that is to be written.
struct NewFile {
  std::string path;
  std::string text;
};

// Splits NAME=VALUE.
bool split_pairs(const char* option, const std::vector<std::string>& texts, Pairs& pairs,
                 Report& report) {
  for (const std::string& text : texts) {
    const std::size_t equals = text.find('=');
    if (equals == std::string::npos || equals == 0 || equals + 1 == text.size()) {
      report.cannot_check(option, "'" + text + "' is not of the form NAME=VALUE");
      return false;
    }
    pairs.emplace_back(text.substr(0, equals), text.substr(equals + 1));
  }
  return true;
}

std::string bit_count(unsigned width) {
  return std::to_string(width) + (width == 1 ? " bit" : " bits");
}

// What a port was taken for.
std::string describe(const Port& port, const PortUse& use) {
  const char* level = use.low ? ", active low" : "";
  const bool is_input = port.direction == Direction::input;
  switch (use.role) {
  case Role::clock:
    return std::string("clock") + level;
  case Role::reset:
    return std::string("reset") + level;
  case Role::valid:
    return std::string("valid of ") + (is_input ? "the arguments" : "the result") + level;
  case Role::ready:
    return std::string("ready for ") + (is_input ? "the result" : "the arguments") + level;
  case Role::read:
    return std::string("asks for the next result") + level;
  case Role::start:
    return std::string("start of a call") + level;
  case Role::done:
    return std::string("end of a call") + level;
  case Role::input:
    return "argument '" + use.component + "', " + bit_count(port.width) + " of " +
           std::to_string(use.width);
  case Role::output:
    return bit_count(port.width) + " of the result, from bit " + std::to_string(use.offset);
  case Role::constant:
    return "constant " + use.bits;
  case Role::open:
  case Role::undecided:
    break;
  }
  return "left open";
}

void print_ports(const Design& design, const PortPlan& plan) {
  std::size_t name_width = 0;
  std::size_t role_width = 0;
  for (std::size_t i = 0; i < design.ports.size(); ++i) {
    name_width = std::max(name_width, design.ports[i].name.size());
    role_width = std::max(role_width, describe(design.ports[i], plan.uses[i]).size());
  }
  for (std::size_t i = 0; i < design.ports.size(); ++i) {
    std::printf("  %-*s  %-*s  %s\n", static_cast<int>(name_width), design.ports[i].name.c_str(),
                static_cast<int>(role_width), describe(design.ports[i], plan.uses[i]).c_str(),
                plan.uses[i].why.c_str());
  }
}

// A path as the description names it.
std::string name_from(const std::string& folder, const std::string& path) {
  std::error_code error;
  const fs::path from = fs::weakly_canonical(fs::absolute(folder, error), error);
  const fs::path to = fs::canonical(fs::absolute(path, error).parent_path(), error);
  return (to.lexically_relative(from) / fs::path(path).filename()).lexically_normal().string();
}

// Writes all files or none, and none over another one.
bool write_files(const std::vector<NewFile>& files, Report& report) {
  for (std::size_t i = 0; i < files.size(); ++i) {
    std::FILE* file = std::fopen(files[i].path.c_str(), "wx");
    const bool is_new = file != nullptr;
    bool is_written = is_new && std::fputs(files[i].text.c_str(), file) >= 0;
    is_written = is_new && std::fclose(file) == 0 && is_written;
    if (!is_written) {
      report.cannot_check(files[i].path, std::string("cannot be written: ") + std::strerror(errno));
      for (std::size_t written = 0; written < i + (is_new ? 1 : 0); ++written) {
        std::error_code error;
        fs::remove(files[written].path, error);
      }
      return false;
    }
  }
  return true;
}

class NewCommand {
public:
  explicit NewCommand(const NewOptions& options) : m_options(options) {}

  int run() {
    if (prepare()) {
      m_sources =
          find_sources(m_options.module, m_options.files, m_parameters, m_options.folder, m_report);
      if (m_sources.design && m_report.status() == STATUS_OK) {
        make_component(*m_sources.design);
      }
    }
    m_report.print();
    return m_report.status();
  }

private:
  bool prepare();
  void make_component(const Design& design);
  [[nodiscard]] NewComponent name_component(const Design& design, bool is_wrapped) const;
  void write(const Design& design, const PortPlan& plan);
  void print_written(const Design& design, const PortPlan& plan, const std::vector<NewFile>& files,
                     const std::optional<Measurement>& timing) const;
  [[nodiscard]] std::optional<Measurement> measure(const Design& design, const PortPlan& plan,
                                                   const NewComponent& component,
                                                   const std::string& wrapper) const;
  [[nodiscard]] ElaborationRequest request_for(const NewComponent& component,
                                               const std::string& wrapper,
                                               const TempFolder& folder) const;
  [[nodiscard]] bool elaborates(const Design& design, const NewComponent& component,
                                const std::string& wrapper);
  [[nodiscard]] std::string path_of(const std::string& file) const {
    return (fs::path(m_options.folder) / file).lexically_normal().string();
  }

  const NewOptions& m_options;
  Report m_report;
  Pairs m_parameters;
  PortChoices m_choices;
  NewSources m_sources;
};

bool NewCommand::prepare() {
  if (!m_options.clock.empty()) {
    m_choices.roles.emplace_back(m_options.clock, "clock");
  }
  if (!m_options.reset.empty()) {
    const std::size_t colon = m_options.reset.find(':');
    m_choices.roles.emplace_back(
        m_options.reset.substr(0, colon),
        "reset" + (colon == std::string::npos ? "" : m_options.reset.substr(colon)));
  }
  m_choices.latency = m_options.latency;
  for (const char* ending : {".xml", ".cl"}) {
    std::error_code error;
    const std::string path = path_of(m_options.module + ending);
    if (fs::exists(fs::symlink_status(path, error))) {
      m_report.cannot_check(path, "exists, and is not overwritten");
    }
  }
  return split_pairs("--map", m_options.maps, m_choices.roles, m_report) &&
         split_pairs("--param", m_options.parameters, m_parameters, m_report) &&
         m_report.status() == STATUS_OK;
}

void NewCommand::make_component(const Design& design) {
  m_choices.has_edges = m_sources.has_edges;
  m_choices.undriven = m_sources.undriven;
  const PortPlan plan = plan_ports(design, m_choices);
  for (const Finding& problem : plan.problems) {
    m_report.error(problem.rule.c_str(), problem.place, problem.text);
  }
  if (plan.problems.empty()) {
    write(design, plan);
  }
}

// The component's sources, with the text of its wrapper in a file in a folder.
ElaborationRequest NewCommand::request_for(const NewComponent& component,
                                           const std::string& wrapper,
                                           const TempFolder& folder) const {
  ElaborationRequest request;
  request.top = component.module;
  request.files = m_sources.files;
  request.parameters = component.parameters;
  if (!wrapper.empty()) {
    request.files.push_back(folder.path() + "/" + component.files.back());
    std::ofstream(request.files.back(), std::ios::binary) << wrapper;
  }
  return request;
}

// A port may have a type that the tool does not connect as we do.
bool NewCommand::elaborates(const Design& design, const NewComponent& component,
                            const std::string& wrapper) {
  const TempFolder folder;
  Report report;
  const auto elaborated = elaborate(request_for(component, wrapper, folder), report);
  if (elaborated && report.status() == STATUS_OK) {
    return true;
  }
  for (const Finding& finding : report.findings()) {
    if (finding.severity == Severity::error) {
      m_report.error("unfit", design.place,
                     design.top + ": its wrapper does not elaborate (" + finding.text +
                         "); put a module around it whose ports are vectors");
      return false;
    }
  }
  m_report.merge(std::move(report));
  return false;
}

// The timing of a component that can stall. Others have a known one.
std::optional<Measurement> NewCommand::measure(const Design& design, const PortPlan& plan,
                                               const NewComponent& component,
                                               const std::string& wrapper) const {
  if (plan.scheme == Scheme::pipeline) {
    return std::nullopt;
  }
  MeasuredModule module;
  module.name = component.module;
  if (design.ignores_case) {
    module.name = lower_case(component.module);
    const TempFolder folder;
    Report ignored;
    module.text = vhdl_as_verilog(request_for(component, wrapper, folder), ignored);
  } else {
    module.parameters = component.parameters;
    module.files = m_sources.files;
    module.text = wrapper;
  }
  for (std::size_t i = 0; i < module.signals.size(); ++i) {
    module.signals[i] = signal_port(design, plan, vex::efi::VRM_SIGNAL_NAME[i]);
  }
  for (const PortUse& use : plan.uses) {
    if (use.role == Role::input) {
      module.inputs.push_back(use.component);
    }
  }
  return measure_module(module);
}

NewComponent NewCommand::name_component(const Design& design, bool is_wrapped) const {
  NewComponent component;
  component.function = function_name(design.top);
  component.module = is_wrapped ? wrapper_name(design.top) : design.top;
  component.model = design.top + ".cl";
  for (const std::string& file : m_sources.files) {
    component.files.push_back(name_from(m_options.folder, file));
  }
  if (is_wrapped) {
    component.files.push_back(component.module + (design.ignores_case ? ".vhd" : ".sv"));
  } else {
    component.parameters = m_parameters;
  }
  return component;
}

void NewCommand::write(const Design& design, const PortPlan& plan) {
  const bool is_wrapped = plan.scheme != Scheme::direct;
  NewComponent component = name_component(design, is_wrapped);
  std::vector<NewFile> files;
  std::string wrapper;
  if (is_wrapped) {
    const auto text = design.ignores_case
                          ? vhdl_text(design.top, m_parameters, m_sources.vhdl_types)
                          : verilog_text(design.top, m_parameters);
    wrapper = wrapper_text(design, plan, *text);
    files.push_back({path_of(component.files.back()), wrapper});
  }
  if (is_wrapped && !elaborates(design, component, wrapper)) {
    return;
  }
  std::optional<Measurement> timing;
  {
    const Progress progress(design.top);
    progress.show("measuring its latency and capacity");
    timing = measure(design, plan, component, wrapper);
  }
  if (interrupt_signal() != 0) {
    return;
  }
  component.timing = timing.value_or(component.timing);
  files.push_back({path_of(component.model), prototype_text(design, plan, component)});
  files.push_back({path_of(design.top + ".xml"), description_text(design, plan, component)});
  std::error_code error;
  fs::create_directories(m_options.folder, error);
  if (write_files(files, m_report)) {
    print_written(design, plan, files, timing);
  }
}

void NewCommand::print_written(const Design& design, const PortPlan& plan,
                               const std::vector<NewFile>& files,
                               const std::optional<Measurement>& timing) const {
  std::printf("%s:%u: %s: %s\n", design.place.file.c_str(), design.place.line, design.top.c_str(),
              bfcl::component::describe(plan.scheme));
  print_ports(design, plan);
  for (const std::string& note : m_sources.notes) {
    std::printf("%s\n", note.c_str());
  }
  for (const NewFile& file : files) {
    std::printf("%s: written\n", file.path.c_str());
  }
  const char* spec = files.back().path.c_str();
  if (plan.scheme == Scheme::pipeline) {
    std::printf("%s: HAS_SIDE_EFFECTS is \"no\": a result depends on its own arguments only\n",
                spec);
    return;
  }
  std::printf("%s: HAS_SIDE_EFFECTS is \"yes\": set it to \"no\" if a result depends on its own "
              "arguments only\n",
              spec);
  if (timing && !timing->latency) {
    std::printf("%s: a word of zeros has no result, and a component gives one for each word\n",
                spec);
  } else if (timing) {
    std::printf("%s: EXPECTED_LATENCY and CAPACITY are measured, with words of zeros\n", spec);
  } else {
    std::printf("%s: EXPECTED_LATENCY%s a guess; `bfcl component simulate` says what is wrong\n",
                spec, plan.scheme == Scheme::call ? " is" : " and CAPACITY are");
  }
}

} // namespace

void add_new(CLI::App& command, int* status) {
  auto options = std::make_shared<NewOptions>();
  command.add_option("MODULE", options->module, "the module to make a component of")->required();
  command.add_option("FILE", options->files, "its sources, and what they include and read")
      ->required();
  command.add_option("-o", options->folder, "the folder to write to (default: this one)");
  command.add_option("--clock", options->clock, "PORT is the clock");
  command.add_option("--reset", options->reset, "PORT[:low|high] is the reset");
  command.add_option("--map", options->maps, std::string("PORT=ROLE: ") + ROLE_NAMES)
      ->allow_extra_args(false);
  command.add_option("--param", options->parameters, "NAME=VALUE of a parameter")
      ->allow_extra_args(false);
  command
      .add_option("--latency", options->latency,
                  "the module takes arguments in every clock and gives each result so many "
                  "clocks later")
      ->check(CLI::Range(0, 65535));
  command.callback([options, status] { *status = NewCommand(*options).run(); });
}

} // namespace bfcl::component
