// SPDX-License-Identifier: BSD-3-Clause
#include "ghdl.h"

#include "port_stub.h"
#include "rtl_text.h"
#include "verilog_keywords.h"
#include "vhdl_elaboration.h"

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <utility>

namespace bfcl::component {

namespace {

namespace fs = std::filesystem;

// The tool's own end: a crash is one even though it exits.
std::string problem_of(const ToolResult& result) {
  if (result.end != ToolResult::End::exited) {
    return describe_failure("ghdl", result);
  }
  return result.errors.find("GHDL Bug occurred") != std::string::npos ? "ghdl failed by itself"
                                                                      : "";
}

std::string check_version() {
  static const std::string s_problem = [] {
    const ToolResult result = run_tool({"ghdl", "--version"}, "", DEFAULT_TIME_LIMIT);
    unsigned major = 0;
    if (!result.ok()) {
      return describe_failure("ghdl", result);
    }
    if (std::sscanf(result.output.c_str(), "GHDL %4u.", &major) != 1) {
      return std::string("ghdl does not say which version it is");
    }
    return major < 2 ? "ghdl " + std::to_string(major) + " is too old: 2.0 or later is needed"
                     : std::string();
  }();
  return s_problem;
}

} // namespace

bool VhdlElaboration::prepare() {
  const std::string problem = check_version();
  if (!problem.empty() || !m_tree.create(m_request.files)) {
    m_report.cannot_check(m_request.subject(),
                          problem.empty() ? "no temporary folder can be made" : problem);
    return false;
  }
  for (std::size_t index = 0; index < m_request.files.size(); ++index) {
    const std::string& name = m_tree.name(index);
    if (!name.empty() && file_kind(name) == FileKind::vhdl &&
        std::find(m_files.begin(), m_files.end(), name) == m_files.end()) {
      m_files.push_back(name);
    }
  }
  m_top = m_request.top;
  m_parameters = m_request.parameters;
  m_parameter_places = m_request.parameter_places;
  m_parameter_places.resize(m_parameters.size(), m_request.top_place);
  return true;
}

ToolResult VhdlElaboration::ghdl(std::vector<std::string> words, bool in_new_library) {
  m_libraries += in_new_library ? 1U : 0U;
  const std::string library = m_tree.work() + "/" + std::to_string(m_libraries);
  std::error_code error;
  fs::create_directories(library, error);
  const std::vector<std::string> options = {"--std=08", "-frelaxed", "--workdir=" + library};
  words.insert(words.begin() + 1, options.begin(), options.end());
  words.insert(words.begin(), "ghdl");
  return run_tool(words, m_tree.root());
}

ToolResult VhdlElaboration::synthesize(const std::string& format) {
  std::vector<std::string> words = {"--synth", "--out=" + format};
  for (const auto& [name, value] : m_parameters) {
    words.push_back(std::string("-g").append(name).append("=").append(value));
  }
  words.push_back(m_top);
  return ghdl(words, false);
}

// Analyzes the files as listed; when that fails, finds out whether the order is to blame.
bool VhdlElaboration::analyze() {
  std::vector<std::string> words = {"-a"};
  words.insert(words.end(), m_files.begin(), m_files.end());
  const ToolResult result = ghdl(words, true);
  const std::string problem = problem_of(result);
  if (!problem.empty()) {
    m_report.cannot_check(m_request.subject(), problem);
    return false;
  }
  const std::vector<GhdlMessage> messages = parse_ghdl_messages(result.errors);
  if (result.ok()) {
    report_messages(messages);
    return true;
  }
  return find_order(messages);
}

bool VhdlElaboration::find_order(const std::vector<GhdlMessage>& listed) {
  std::vector<std::string> words = {"-i"};
  words.insert(words.end(), m_files.begin(), m_files.end());
  ToolResult result = ghdl(words, true);
  std::vector<GhdlMessage> messages = listed;
  if (result.ok()) {
    result = ghdl({"--elab-order", m_top}, false);
    messages = parse_ghdl_messages(result.errors);
    std::istringstream lines(result.output);
    words = {"-a"};
    for (std::string line; result.ok() && std::getline(lines, line);) {
      words.push_back(line);
    }
    if (result.ok() && words.size() > 1) {
      result = ghdl(words, true);
      messages = parse_ghdl_messages(result.errors);
    }
  }
  if (result.ok()) {
    std::vector<std::string> order;
    for (auto file = words.begin() + 1; file != words.end(); ++file) {
      order.push_back(place_of(*file, 0).file);
    }
    report_order(m_request, order, m_report);
    return true;
  }
  report_messages(messages.empty() ? listed : messages);
  report_rest(messages.empty() ? listed : messages);
  return analyze_entity();
}

// Analyzes the top without the bodies of its architectures, in which an error hides the ports. Each
// file has a run of its own, since those of entities below the top need not be sound.
bool VhdlElaboration::analyze_entity() {
  for (const std::string& file : m_files) {
    const std::optional<std::size_t> index = m_tree.file_of(file);
    const std::string text =
        without_body(read_text(m_tree.real_path(file)), lower_case(m_top), FileKind::vhdl);
    m_has_entity_only =
        (index && !text.empty() && m_tree.replace(*index, text)) || m_has_entity_only;
  }
  bool is_first = true;
  for (const std::string& file : m_files) {
    if (m_has_entity_only) {
      static_cast<void>(ghdl({"-a", file}, std::exchange(is_first, false)));
    }
  }
  return m_has_entity_only;
}

void VhdlElaboration::drop_parameter(std::size_t index, const std::string& why) {
  m_report.error("parameter", m_parameter_places[index], why);
  m_has_other_parameters = true;
  m_parameters.erase(m_parameters.begin() + static_cast<std::ptrdiff_t>(index));
  m_parameter_places.erase(m_parameter_places.begin() + static_cast<std::ptrdiff_t>(index));
}

// Reports an unknown generic and continues with the one that is probably meant.
void VhdlElaboration::refuse_generic(std::size_t index) {
  const auto [name, value] = m_parameters[index];
  const Place place = m_parameter_places[index];
  const std::vector<std::string> known = generic_names();
  drop_parameter(index, "entity '" + m_top + "' has no generic '" + name + "'" +
                            suggestion(lower_case(name), known));
  const std::string nearest = nearest_name(lower_case(name), known);
  if (!nearest.empty() &&
      std::none_of(m_parameters.begin(), m_parameters.end(),
                   [&](const auto& set) { return lower_case(set.first) == nearest; })) {
    m_parameters.emplace_back(nearest, value);
    m_parameter_places.push_back(place);
  }
}

// Reports the parameters that the run refused, and unknown ones, after which it continues.
// True when the synthesis is to be repeated without one.
bool VhdlElaboration::check_parameters(const ToolResult& result) {
  for (const GhdlMessage& message : parse_ghdl_messages(result.errors)) {
    const bool is_unknown = message.text.rfind("no generic ", 0) == 0;
    for (std::size_t index = 0; is_unknown && index < m_parameters.size(); ++index) {
      if (lower_case(m_parameters[index].first) == quoted_unit(message.text)) {
        refuse_generic(index);
        return true;
      }
    }
  }
  if (result.ok()) {
    return false;
  }
  const auto all = m_parameters;
  for (std::size_t index = 0; index < all.size(); ++index) {
    m_parameters.erase(m_parameters.begin() + static_cast<std::ptrdiff_t>(index));
    const bool is_culprit = synthesize("raw").ok();
    m_parameters = all;
    if (is_culprit) {
      drop_parameter(index, "value '" + all[index].second + "' of generic '" + all[index].first +
                                "' does not elaborate");
      return true;
    }
  }
  return false;
}

// Reports that no file has the top entity and continues with the one that is probably meant.
bool VhdlElaboration::replace_missing_top() {
  const std::vector<std::string> units = unit_names();
  if (m_top != m_request.top ||
      std::find(units.begin(), units.end(), lower_case(m_top)) != units.end()) {
    return false;
  }
  if (!is_in_misspelled_file(lower_case(m_top), m_request)) {
    m_report.error("top-missing", m_request.top_place,
                   "entity '" + m_top + "' is in none of the listed files" +
                       to_add(lower_case(m_top)));
  }
  m_top = nearest_name(lower_case(m_top), units);
  return true;
}

ToolResult VhdlElaboration::synthesize_with_parameters() {
  ToolResult result = synthesize("raw");
  while (result.end == ToolResult::End::exited && check_parameters(result)) {
    result = synthesize("raw");
  }
  return result;
}

std::optional<Design> VhdlElaboration::run() {
  if (!prepare() || (replace_missing_top() && m_top.empty()) || !analyze()) {
    return std::nullopt;
  }
  ToolResult result = synthesize_with_parameters();
  if (problem_of(result).empty()) {
    const std::vector<GhdlMessage> messages = parse_ghdl_messages(result.errors);
    report_messages(messages);
    if (!result.ok() && !m_has_entity_only) {
      report_rest(messages);
      if (!analyze_entity()) {
        return std::nullopt;
      }
      result = synthesize_with_parameters();
    }
  }
  const std::string problem = problem_of(result);
  if (!problem.empty()) {
    m_report.cannot_check(m_request.subject(), problem);
    return std::nullopt;
  }
  if (!result.ok() || result.output.empty()) {
    return std::nullopt;
  }
  if (result.output.find("module ") == std::string::npos) {
    m_report.cannot_check(m_request.subject(), "ghdl's output cannot be read");
    return std::nullopt;
  }
  return read_design(result);
}

Design VhdlElaboration::read_design(const ToolResult& result) {
  Design design;
  design.top = lower_case(m_top);
  design.ignores_case = true;
  design.has_other_parameters = m_has_other_parameters;
  design.has_ports_only = m_has_entity_only;
  design.place = place_of_name("");
  design.ports = read_ghdl_ports(result.output);
  for (Port& port : design.ports) {
    port.place = place_of_name(port.name);
  }
  if (!m_has_entity_only) {
    report_undriven(design, result.output);
  }
  if (!m_report.has_errors()) {
    report_unneeded();
  }
  for (const std::string& file : m_files) {
    design.module_files.push_back(m_tree.real_path(file));
  }
  return design;
}

std::string VhdlElaboration::netlist(const std::string& format) {
  if (!prepare() || !analyze()) {
    return "";
  }
  const ToolResult result = synthesize(format);
  if (!result.ok()) {
    m_report.cannot_check(m_request.subject(), describe_failure("ghdl", result));
    return "";
  }
  // The top's names alone are spelled as its source spells them, and case does not count.
  return format == "verilog" ? escape_keywords(lower_case(result.output)) : result.output;
}

std::optional<Design> elaborate_vhdl(const ElaborationRequest& request, Report& report) {
  return VhdlElaboration(request, report).run();
}

std::string vhdl_as_verilog(const ElaborationRequest& request, Report& report) {
  return VhdlElaboration(request, report).netlist("verilog");
}

std::string vhdl_netlist(const ElaborationRequest& request, Report& report) {
  return VhdlElaboration(request, report).netlist("vhdl");
}

} // namespace bfcl::component
