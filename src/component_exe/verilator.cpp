// SPDX-License-Identifier: BSD-3-Clause
#include "verilator.h"

#include "description.h"
#include "rtl_text.h"
#include "sealed_tree.h"
#include "unneeded_files.h"
#include "verilator_run.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <utility>

namespace bfcl::component {

namespace {

namespace fs = std::filesystem;

constexpr unsigned MAX_ROUNDS = 60; // each mends one kind of fault

// The text between the first quotation marks.
std::string quoted(const std::string& text) {
  const std::size_t open = text.find('\'');
  const std::size_t close = text.find('\'', open + 1);
  return close == std::string::npos ? std::string() : text.substr(open + 1, close - open - 1);
}

bool begins(const std::string& text, const char* prefix) {
  return text.rfind(prefix, 0) == 0;
}

// What the tool says after other errors.
bool is_consequence(const VerilatorMessage& message) {
  constexpr const char* TEXTS[] = {"Exiting due to", "Cannot continue", "Internal Error",
                                   "This may be because there's no search path",
                                   "Specified --top-module "};
  return std::any_of(std::begin(TEXTS), std::end(TEXTS),
                     [&](const char* text) { return begins(message.text, text); });
}

// An empty module in the place of one that is missing, with the pins that its instances have.
struct Stub {
  VerilatorMessage asked_for; // the first instance
  std::set<std::string> pins;
  std::set<std::string> parameters;

  [[nodiscard]] std::string text(const std::string& module) const {
    std::string text = "module " + module + " #(parameter bfcl_unused = 0";
    for (const std::string& parameter : parameters) {
      text += ", parameter " + parameter + " = 0";
    }
    text += ") (";
    for (const std::string& pin : pins) {
      text += (pin == *pins.begin() ? "input \\" : ", input \\") + pin + " ";
    }
    return text + "); endmodule\n";
  }
};

class VerilogElaboration {
public:
  VerilogElaboration(const ElaborationRequest& request, Report& report)
      : m_request(request), m_report(report) {}

  std::optional<Design> run();

private:
  bool prepare();
  [[nodiscard]] VerilatorRun try_job(const VerilatorJob& job);
  bool go_on_after(const VerilatorRun& run);
  bool mend(const VerilatorMessage& message);
  bool mend_include(const VerilatorMessage& message);
  bool mend_package(const VerilatorMessage& message);
  bool mend_module(const VerilatorMessage& message);
  bool mend_pin(const VerilatorMessage& message);
  bool mend_top();
  bool mend_parameters(const std::string& names);
  bool try_alternatives(const VerilatorRun& run);
  bool try_parameters(const VerilatorRun& run);
  bool try_order();
  void report_rest(const VerilatorRun& run);
  void report_duplicates(const VerilatorRun& run);
  void report_unknown_parameters(const Design* design);
  void report_unneeded(const VerilatorRun& run);
  void report_undriven(const VerilatorRun& run, const Design& design);
  Design finish(const VerilatorRun& run);

  bool add_neighbour(const std::string& unit, bool in_front);
  void write_stubs();
  void move_to_front(const std::string& file);
  [[nodiscard]] Place place_of(const std::string& file, unsigned line) const;
  [[nodiscard]] Place place_of(const VerilatorMessage& message) const {
    return place_of(message.file, message.line);
  }
  [[nodiscard]] std::string listed_name(std::size_t index) const;
  [[nodiscard]] std::vector<std::string> unit_names(bool packages) const;
  [[nodiscard]] std::string file_with(const std::string& unit) const; // below root, or empty
  [[nodiscard]] Place parameter_place(const std::string& name) const;

  const ElaborationRequest& m_request;
  Report& m_report;
  SealedTree m_tree;
  VerilatorJob m_job;
  std::map<std::string, std::vector<RtlUnit>> m_units; // by name below root
  std::map<std::string, Stub> m_stubs;
  std::map<std::string, unsigned> m_moves; // how often a file was put in front
  std::set<std::string> m_reported_packages;
  std::vector<std::string> m_unknown_parameters;
  bool m_is_reordered = false;
  bool m_is_mended = false; // by a stand-in, so that what follows from it is no finding
};

bool VerilogElaboration::prepare() {
  if (!m_tree.create(m_request.files)) {
    m_report.cannot_check(m_request.subject(), "no temporary folder can be made");
    return false;
  }
  m_job.top = m_request.top;
  m_job.parameters = m_request.parameters;
  for (std::size_t index = 0; index < m_request.files.size(); ++index) {
    const std::string& name = m_tree.name(index);
    if (!name.empty() && file_kind(name) == FileKind::verilog &&
        std::find(m_job.files.begin(), m_job.files.end(), name) == m_job.files.end()) {
      m_job.files.push_back(name);
    }
  }
  return true;
}

std::optional<Design> VerilogElaboration::run() {
  if (!prepare()) {
    return std::nullopt;
  }
  for (unsigned round = 0; round < MAX_ROUNDS; ++round) {
    const VerilatorRun run = try_job(m_job);
    if (!run.problem.empty()) {
      m_report.cannot_check(m_request.subject(), run.problem);
      return std::nullopt;
    }
    report_duplicates(run);
    if (run.ok) {
      return finish(run);
    }
    if (!go_on_after(run)) {
      report_rest(run);
      report_unknown_parameters(nullptr);
      return std::nullopt;
    }
  }
  m_report.cannot_check(m_request.subject(), "verilator finds ever new faults");
  return std::nullopt;
}

VerilatorRun VerilogElaboration::try_job(const VerilatorJob& job) {
  return run_verilator(m_tree, job);
}

// Mends what can be mended; false when nothing could.
bool VerilogElaboration::go_on_after(const VerilatorRun& run) {
  bool is_mended = false;
  for (const VerilatorMessage& message : run.messages) {
    is_mended = (message.is_error && mend(message)) || is_mended;
  }
  write_stubs();
  return is_mended || try_alternatives(run);
}

bool VerilogElaboration::mend(const VerilatorMessage& message) {
  const std::string& text = message.text;
  if (begins(text, "Cannot find include file: ")) {
    return mend_include(message);
  }
  if (begins(text, "Package/class '") || begins(text, "Importing from missing package '")) {
    return mend_package(message);
  }
  if (begins(text, "Cannot find file containing ")) {
    return mend_module(message);
  }
  if (begins(text, "Specified --top-module ")) {
    return mend_top();
  }
  const std::string unknown = "Parameters from the command line were not found in the design: ";
  if (begins(text, unknown.c_str())) {
    return mend_parameters(text.substr(unknown.size()));
  }
  return message.code == "PINNOTFOUND" && mend_pin(message);
}

bool VerilogElaboration::mend_include(const VerilatorMessage& message) {
  const std::string name = message.text.substr(message.text.rfind(": ") + 2);
  const fs::path includer = m_tree.real_path(message.file);
  std::vector<fs::path> candidates = {includer.parent_path() / name};
  for (const std::string& folder : m_tree.folders()) {
    candidates.emplace_back(fs::path(m_tree.real_path(folder)) / name);
  }
  for (const fs::path& candidate : candidates) {
    std::error_code error;
    if (fs::is_regular_file(candidate, error)) {
      const std::string path = candidate.lexically_normal().string();
      m_report.error("include-unlisted", place_of(message),
                     "included file '" + name + "' is not listed; add " +
                         file_element(path, m_request));
      return !m_tree.add(path).empty();
    }
  }
  std::vector<std::string> known;
  for (const std::string& file : m_request.files) {
    known.push_back(fs::path(file).filename().string());
  }
  m_report.error("include-missing", place_of(message),
                 "included file '" + name + "' does not exist" +
                     suggestion(fs::path(name).filename().string(), known));
  m_is_mended = true;
  return m_tree.write((fs::path(message.file).parent_path() / name).string(), "\n");
}

bool VerilogElaboration::mend_package(const VerilatorMessage& message) {
  const std::string name = quoted(message.text);
  const std::string file = file_with(name);
  if (!file.empty()) {
    m_is_reordered = true;
    move_to_front(file);
    return ++m_moves[file] <= m_job.files.size();
  }
  if (!m_reported_packages.insert(name).second) {
    return false;
  }
  m_report.error("module-missing", place_of(message),
                 "package '" + name + "' is in none of the listed files" +
                     where_to_find(name, m_request, unit_names(true)));
  m_is_mended = true;
  return add_neighbour(name, true);
}

bool VerilogElaboration::mend_module(const VerilatorMessage& message) {
  const std::string name = quoted(message.text);
  const bool is_type = begins(message.text, "Cannot find file containing interface: ") &&
                       neighbour_with(name, m_request).empty();
  if (name.empty() || is_type || m_stubs.contains(name)) {
    return false;
  }
  if (is_in_other_language(m_request, FileKind::vhdl, name)) {
    const Place place = place_of(message);
    m_report.cannot_check(m_request.subject(),
                          "the VHDL entity '" + name + "' in the Verilog module at " + place.file +
                              ":" + std::to_string(place.line) +
                              " cannot be checked: no tool reads both languages");
    m_stubs[name].asked_for = message;
    return m_is_mended = true;
  }
  m_report.error("module-missing", place_of(message),
                 "module '" + name + "' is in none of the listed files" +
                     where_to_find(name, m_request, unit_names(false)));
  if (!add_neighbour(name, false)) {
    m_stubs[name].asked_for = message;
    m_is_mended = true;
  }
  return true;
}

// The stub whose instance is nearest above the pin in its file is the one that lacks it.
bool VerilogElaboration::mend_pin(const VerilatorMessage& message) {
  Stub* nearest = nullptr;
  for (auto& [name, stub] : m_stubs) {
    const VerilatorMessage& instance = stub.asked_for;
    if (instance.file == message.file && instance.line <= message.line &&
        (nearest == nullptr || instance.line > nearest->asked_for.line)) {
      nearest = &stub;
    }
  }
  if (nearest == nullptr) {
    return false;
  }
  const bool is_parameter = begins(message.text, "Parameter pin");
  auto& names = is_parameter ? nearest->parameters : nearest->pins;
  return names.insert(quoted(message.text)).second;
}

bool VerilogElaboration::mend_top() {
  const std::vector<std::string> modules = unit_names(false);
  m_report.error("top-missing", m_request.top_place,
                 "module '" + m_job.top + "' is in none of the listed files" +
                     where_to_find(m_job.top, m_request, modules));
  if (add_neighbour(m_job.top, false)) {
    return true;
  }
  const std::string nearest = nearest_name(m_job.top, modules);
  return !nearest.empty() && std::exchange(m_job.top, nearest) != nearest;
}

bool VerilogElaboration::mend_parameters(const std::string& names) {
  bool is_mended = false;
  for (std::size_t from = 0; from < names.size();) {
    const std::size_t end = std::min(names.find(' ', from), names.size());
    const std::string name = names.substr(from, end - from);
    from = end + 1;
    if (std::erase_if(m_job.parameters, [&](const auto& set) { return set.first == name; }) != 0) {
      m_unknown_parameters.push_back(name);
      is_mended = true;
    }
  }
  return is_mended;
}

// What else could be wrong than the lines that the tool names: the macros that sources for
// simulators want, a parameter's value, the order of the files.
bool VerilogElaboration::try_alternatives(const VerilatorRun& run) {
  if (m_is_mended) {
    return false;
  }
  if (!m_job.as_simulator) {
    VerilatorJob job = m_job;
    job.as_simulator = true;
    const VerilatorRun other = try_job(job);
    if (other.ok) {
      m_job = job;
      return true;
    }
  }
  return try_parameters(run) || try_order();
}

std::size_t count_errors(const VerilatorRun& run) {
  return static_cast<std::size_t>(
      std::count_if(run.messages.begin(), run.messages.end(), [](const VerilatorMessage& message) {
        return message.is_error && !is_consequence(message);
      }));
}

bool VerilogElaboration::try_parameters(const VerilatorRun& run) {
  const std::size_t errors = count_errors(run);
  for (std::size_t left_out = 0; left_out < m_job.parameters.size(); ++left_out) {
    VerilatorJob job = m_job;
    job.parameters.erase(job.parameters.begin() + static_cast<std::ptrdiff_t>(left_out));
    const VerilatorRun other = try_job(job);
    if (other.problem.empty() && count_errors(other) < errors) {
      const auto& [name, value] = m_job.parameters[left_out];
      const auto first = std::find_if(run.messages.begin(), run.messages.end(),
                                      [](const auto& message) { return message.is_error; });
      std::string text = "value '";
      text.append(value).append("' of parameter '").append(name);
      text.append("' does not elaborate: ").append(first->text);
      m_report.error("parameter", parameter_place(name), text);
      m_job = job;
      return true;
    }
  }
  return false;
}

// Files without a module (packages, macros, types) first, else all in reverse.
bool VerilogElaboration::try_order() {
  VerilatorJob job = m_job;
  std::stable_partition(job.files.begin(), job.files.end(), [this](const std::string& file) {
    const std::vector<RtlUnit> units =
        units_in(read_text(m_tree.real_path(file)), FileKind::verilog);
    return std::all_of(units.begin(), units.end(),
                       [](const RtlUnit& unit) { return unit.keyword == "package"; });
  });
  for (unsigned attempt = 0; attempt < 2; ++attempt) {
    if (job.files != m_job.files && try_job(job).ok) {
      m_job = job;
      m_is_reordered = true;
      return true;
    }
    job.files = m_job.files;
    std::reverse(job.files.begin(), job.files.end());
  }
  return false;
}

// The errors that nothing could mend. What follows from a stand-in is none of its own, and what the
// tool does not support is no fault of the RTL.
void VerilogElaboration::report_rest(const VerilatorRun& run) {
  if (m_is_mended || (m_report.has_errors() && m_job.top != m_request.top)) {
    return;
  }
  std::set<Place> dealt_with; // the tool takes a type that it does not know for an interface
  for (const VerilatorMessage& message : run.messages) {
    if (begins(message.text, "Cannot find file containing interface: ")) {
      dealt_with.insert(place_of(message));
      m_report.error("hdl", place_of(message),
                     "type '" + quoted(message.text) + "' is not defined");
    }
  }
  for (const VerilatorMessage& message : run.messages) {
    const Place place = message.file.empty() ? m_request.top_place : place_of(message);
    if (!message.is_error || dealt_with.contains(place) || is_consequence(message)) {
      continue;
    }
    if (begins(message.text, "Unsupported: Interfaced port on top level")) {
      dealt_with.insert(place);
      m_report.error("port-kind", place,
                     "a port of the module is an interface, which no component can have");
    } else if (begins(message.text, "Unsupported:")) {
      m_report.cannot_check(m_request.subject(), "verilator cannot read " + place.file + ":" +
                                                     std::to_string(place.line) + ": " +
                                                     message.text);
      return;
    } else {
      m_report.error("hdl", place, message.text);
    }
  }
}

void VerilogElaboration::report_duplicates(const VerilatorRun& run) {
  for (const VerilatorMessage& message : run.messages) {
    if (message.code == "MODDUP") {
      const Place first = place_of(message.other_file, message.other_line);
      m_report.error("module-twice", place_of(message),
                     "module '" + quoted(message.text) + "' is defined already, at " + first.file +
                         ":" + std::to_string(first.line));
    }
  }
}

void VerilogElaboration::report_unknown_parameters(const Design* design) {
  std::vector<std::string> known;
  if (design != nullptr) {
    for (const Parameter& parameter : design->parameters) {
      if (!parameter.is_local) {
        known.push_back(parameter.name);
      }
    }
  }
  for (const std::string& name : m_unknown_parameters) {
    const bool is_local =
        design != nullptr && std::any_of(design->parameters.begin(), design->parameters.end(),
                                         [&](const Parameter& p) { return p.name == name; });
    m_report.error("parameter", parameter_place(name),
                   is_local ? "'" + name + "' is a localparam of module '" + m_job.top + "'"
                            : "module '" + m_job.top + "' has no parameter '" + name + "'" +
                                  suggestion(name, known));
  }
}

Design VerilogElaboration::finish(const VerilatorRun& run) {
  Design design = run.design;
  report_undriven(run, design);
  report_unknown_parameters(&design);
  if (m_is_reordered) {
    std::vector<std::string> order;
    for (const std::string& file : m_job.files) {
      order.push_back(place_of(file, 0).file);
    }
    report_order(m_request, order, m_report);
  }
  design.place = place_of(design.place.file, design.place.line);
  for (Port& port : design.ports) {
    port.place = place_of(port.place.file, port.place.line);
  }
  for (DataFile& data : design.data_files) {
    data.place = place_of(data.place.file, data.place.line);
  }
  for (DesignModule& module : design.modules) {
    module.place = place_of(module.place.file, module.place.line);
  }
  for (std::string& file : design.module_files) {
    file = m_tree.real_path(file);
  }
  if (!m_report.has_errors()) {
    report_unneeded(run);
  }
  return design;
}

// Which listed files the design does not need. Most files that have no module of the design are
// packages and macros that others name; only the rest costs another run.
void VerilogElaboration::report_unneeded(const VerilatorRun& run) {
  const std::vector<std::size_t> candidates = unneeded_files(m_request, m_tree, run);
  const auto is_compiled = [this](std::size_t index) {
    return file_kind(m_tree.name(index)) == FileKind::verilog;
  };
  VerilatorJob job = m_job;
  for (const std::size_t index : candidates) {
    std::erase(job.files, m_tree.name(index));
    m_tree.hide(index);
  }
  const bool has_compiled = std::any_of(candidates.begin(), candidates.end(), is_compiled);
  const bool is_any_needed = has_compiled && !try_job(job).ok;
  for (const std::size_t index : candidates) {
    if (is_any_needed && is_compiled(index)) {
      job = m_job;
      std::erase(job.files, m_tree.name(index));
      for (const std::size_t other : candidates) {
        other == index ? m_tree.hide(other) : m_tree.show(other);
      }
    }
    if (!is_any_needed || !is_compiled(index) || try_job(job).ok) {
      m_report.warning("file-unneeded",
                       index < m_request.file_places.size() ? m_request.file_places[index]
                                                            : m_request.top_place,
                       "no module of '" + m_job.top + "' needs file '" + listed_name(index) + "'");
    }
  }
}

void VerilogElaboration::report_undriven(const VerilatorRun& run, const Design& design) {
  if (m_is_mended) {
    return; // stubs drive nothing
  }
  for (const VerilatorMessage& message : run.messages) {
    const std::string name = quoted(message.text);
    const Port* port = message.code == "UNDRIVEN" ? design.find_port(name) : nullptr;
    if (port == nullptr || port->direction != Direction::output ||
        port->place != Place{message.file, message.line}) {
      continue;
    }
    const std::size_t bits = message.text.rfind('[');
    m_report.error("port-undriven", place_of(message),
                   "nothing drives output '" + name +
                       (bits == std::string::npos ? "'" : "' in " + message.text.substr(bits)));
  }
}

bool VerilogElaboration::add_neighbour(const std::string& unit, bool in_front) {
  const std::string neighbour = neighbour_with(unit, m_request);
  if (neighbour.empty() || file_kind(neighbour) != FileKind::verilog) {
    return false;
  }
  const std::string name = m_tree.add(neighbour);
  m_job.files.insert(in_front ? m_job.files.begin() : m_job.files.end(), name);
  return true;
}

void VerilogElaboration::write_stubs() {
  const std::string name = "bfcl_stubs.sv";
  std::string text;
  for (const auto& [module, stub] : m_stubs) {
    text += stub.text(module);
  }
  if (!text.empty() && m_tree.write(name, text) &&
      std::find(m_job.files.begin(), m_job.files.end(), name) == m_job.files.end()) {
    m_job.files.push_back(name);
  }
}

void VerilogElaboration::move_to_front(const std::string& file) {
  const auto found = std::find(m_job.files.begin(), m_job.files.end(), file);
  if (found != m_job.files.end()) {
    std::rotate(m_job.files.begin(), found, found + 1);
  }
}

std::string VerilogElaboration::listed_name(std::size_t index) const {
  return index < m_request.file_names.size() ? m_request.file_names[index]
                                             : tidy_path(m_request.files[index]);
}

Place VerilogElaboration::place_of(const std::string& file, unsigned line) const {
  const std::optional<std::size_t> index = m_tree.file_of(file);
  if (index) {
    return {listed_name(*index), line};
  }
  std::error_code error;
  const fs::path real = m_tree.real_path(file);
  const fs::path here = real.lexically_relative(fs::current_path(error));
  const bool is_below = !here.empty() && *here.begin() != "..";
  return {is_below ? here.string() : real.string(), line};
}

std::vector<std::string> VerilogElaboration::unit_names(bool packages) const {
  std::vector<std::string> names;
  for (const std::string& file : m_job.files) {
    for (const RtlUnit& unit : units_in(read_text(m_tree.real_path(file)), FileKind::verilog)) {
      if ((unit.keyword == "package") == packages) {
        names.push_back(unit.name);
      }
    }
  }
  return names;
}

std::string VerilogElaboration::file_with(const std::string& unit) const {
  for (const std::string& file : m_job.files) {
    for (const RtlUnit& found : units_in(read_text(m_tree.real_path(file)), FileKind::verilog)) {
      if (found.name == unit) {
        return file;
      }
    }
  }
  return "";
}

Place VerilogElaboration::parameter_place(const std::string& name) const {
  for (std::size_t index = 0; index < m_request.parameter_places.size(); ++index) {
    if (m_request.parameters[index].first == name) {
      return m_request.parameter_places[index];
    }
  }
  return m_request.top_place;
}

} // namespace

std::optional<Design> elaborate_verilog(const ElaborationRequest& request, Report& report) {
  return VerilogElaboration(request, report).run();
}

} // namespace bfcl::component
