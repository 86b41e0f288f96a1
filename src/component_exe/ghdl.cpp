// SPDX-License-Identifier: BSD-3-Clause
#include "ghdl.h"

#include "description.h"
#include "rtl_text.h"
#include "sealed_tree.h"
#include "unneeded_files.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <filesystem>
#include <set>
#include <sstream>
#include <string_view>

namespace bfcl::component {

namespace {

namespace fs = std::filesystem;

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char byte) { return static_cast<char>(std::tolower(byte)); });
  return text;
}

// "FILE:LINE:COLUMN: TEXT", "FILE:LINE:COLUMN:warning: TEXT", or "/usr/bin/ghdl-mcode: TEXT".
struct GhdlMessage {
  bool is_warning = false;
  std::string file; // empty in a message of the program
  unsigned line = 0;
  std::string text;
};

std::optional<GhdlMessage> parse_message(const std::string& line) {
  std::array<std::size_t, 3> colons = {};
  std::size_t from = 0;
  for (std::size_t& colon : colons) {
    colon = line.find(':', from);
    if (colon == std::string::npos) {
      break;
    }
    from = colon + 1;
  }
  GhdlMessage message;
  const std::size_t program = line.find("ghdl");
  if (colons[0] != std::string::npos && program < colons[0] &&
      line.compare(colons[0], 2, ": ") == 0) {
    message.text = line.substr(colons[0] + 2);
    return message;
  }
  if (colons[2] == std::string::npos || colons[2] == 0 || colons[1] == colons[0] + 1 ||
      std::from_chars(line.data() + colons[0] + 1, line.data() + colons[1], message.line).ec !=
          std::errc()) {
    return std::nullopt;
  }
  message.file = line.substr(0, colons[0]);
  message.text = line.substr(colons[2] + 1);
  message.is_warning = message.text.rfind("warning: ", 0) == 0;
  message.text.erase(0, message.is_warning ? 9 : 1);
  return message;
}

std::vector<GhdlMessage> parse_messages(const std::string& text) {
  std::vector<GhdlMessage> messages;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (std::optional<GhdlMessage> message = parse_message(line)) {
      messages.push_back(std::move(*message));
    }
  }
  return messages;
}

// The text between the quotation marks number `index`.
std::string quoted(const std::string& text, unsigned index = 0) {
  std::size_t open = text.find('"');
  for (; index != 0 && open != std::string::npos; --index) {
    open = text.find('"', text.find('"', open + 1) + 1);
  }
  const std::size_t close = open == std::string::npos ? open : text.find('"', open + 1);
  return close == std::string::npos ? std::string() : text.substr(open + 1, close - open - 1);
}

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

// The ports that `--synth --out=raw` lists: "    input \word[15:0];", a record as "\port.\field".
std::vector<Port> read_ports(const std::string& text) {
  std::vector<Port> ports;
  std::istringstream lines(text);
  unsigned modules = 0; // the first is around the top
  for (std::string line; std::getline(lines, line) && modules <= 2;) {
    modules += line.rfind("module ", line.find_first_not_of(' ')) != std::string::npos ? 1U : 0U;
    const bool is_input = line.rfind("    input \\", 0) == 0;
    const bool is_output = line.rfind("    output \\", 0) == 0;
    if (modules != 2 || (!is_input && !is_output) || line.back() != ';') {
      continue;
    }
    std::string name = line.substr(line.find('\\') + 1);
    name.pop_back();
    Port port;
    port.direction = is_input ? Direction::input : Direction::output;
    port.width = 1;
    unsigned left = 0;
    unsigned right = 0;
    const std::size_t range = name.rfind('[');
    if (range != std::string::npos &&
        std::sscanf(name.c_str() + range, "[%u:%u]", &left, &right) == 2) {
      port.width = std::max(left, right) - std::min(left, right) + 1;
      name.erase(range);
    }
    const std::size_t field = name.find(".\\");
    if (field != std::string::npos) {
      name.erase(field);
      port.kind = PortKind::record;
    }
    port.name = lower(name);
    if (ports.empty() || ports.back().name != port.name) {
      ports.push_back(port);
    }
  }
  return ports;
}

// An output that the netlist drives from the port side of an "$inout" is an inout.
void note_inouts(const std::string& text, std::vector<Port>& ports) {
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    const std::size_t assigned = line.find(" := ");
    if (line.rfind("    \\", 0) == 0 && line.find(":$oport{") != std::string::npos) {
      const std::string name = lower(line.substr(5, assigned - 5));
      for (Port& port : ports) {
        port.direction = port.name == name ? Direction::inout : port.direction;
      }
    }
  }
}

// 0 when the text does not define it.
unsigned line_of_entity(const std::string& text, const std::string& entity) {
  for (const RtlUnit& unit : units_in(text, FileKind::vhdl)) {
    if (unit.name == entity && unit.keyword == "entity") {
      return unit.line;
    }
  }
  return 0;
}

class VhdlElaboration {
public:
  VhdlElaboration(const ElaborationRequest& request, Report& report)
      : m_request(request), m_report(report) {}

  std::optional<Design> run();
  std::string netlist(const std::string& format);

private:
  bool prepare();
  [[nodiscard]] ToolResult ghdl(std::vector<std::string> words, bool in_new_library);
  bool replace_missing_top();
  [[nodiscard]] ToolResult synthesize(const std::string& format);
  bool analyze();
  bool find_order(const std::vector<GhdlMessage>& listed);
  void report_messages(const std::vector<GhdlMessage>& messages);
  bool is_verilog(const std::string& name, const GhdlMessage& message);
  bool report_missing(const GhdlMessage& message);
  void report_rest(const std::vector<GhdlMessage>& messages);
  bool check_parameters(const ToolResult& result);
  void report_unneeded();
  void drop_parameter(std::size_t index, const std::string& why);
  Design read_design(const ToolResult& result);
  [[nodiscard]] Place place_of(const std::string& file, unsigned line) const;
  [[nodiscard]] Place place_of_unit(const std::string& file, const std::string& unit) const;
  [[nodiscard]] Place place_of_name(const std::string& name) const;
  [[nodiscard]] std::vector<std::string> unit_names() const;
  [[nodiscard]] std::vector<std::string> generic_names() const;
  [[nodiscard]] std::string to_add(const std::string& unit) const;

  const ElaborationRequest& m_request;
  Report& m_report;
  SealedTree m_tree;
  std::vector<std::string> m_files;
  std::vector<std::pair<std::string, std::string>> m_parameters;
  std::vector<Place> m_parameter_places;
  std::string m_top;
  std::set<std::string> m_undriven;
  unsigned m_libraries = 0;
};

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
  const std::vector<GhdlMessage> messages = parse_messages(result.errors);
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
    messages = parse_messages(result.errors);
    std::istringstream lines(result.output);
    words = {"-a"};
    for (std::string line; result.ok() && std::getline(lines, line);) {
      words.push_back(line);
    }
    if (result.ok() && words.size() > 1) {
      result = ghdl(words, true);
      messages = parse_messages(result.errors);
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
  return false;
}

// What has a rule of its own.
void VhdlElaboration::report_messages(const std::vector<GhdlMessage>& messages) {
  for (const GhdlMessage& message : messages) {
    const std::size_t also = message.text.find(" was also defined in file ");
    if (also != std::string::npos) {
      const std::string name = quoted(message.text);
      m_report.error("module-twice", place_of_unit(message.file, name),
                     "unit '" + name + "' is defined already, in " +
                         place_of(quoted(message.text, 1), 0).file);
    } else if (message.text.find(" is not bound [-Wbinding]") != std::string::npos) {
      const std::string name = quoted(message.text, 1);
      if (is_verilog(name, message)) {
        continue;
      }
      m_report.error("module-missing", place_of(message.file, message.line),
                     "entity '" + name + "' of the component is in none of the listed files" +
                         to_add(name));
    } else if (message.text.rfind("no assignment for port ", 0) == 0) {
      m_undriven.insert(lower(quoted(message.text)));
    }
  }
}

// Reports that a Verilog module inside VHDL cannot be checked.
bool VhdlElaboration::is_verilog(const std::string& name, const GhdlMessage& message) {
  if (!is_in_other_language(m_request, FileKind::verilog, name)) {
    return false;
  }
  m_report.cannot_check(m_request.subject(),
                        "the Verilog module '" + name + "' in the VHDL entity at " +
                            place_of(message.file, message.line).file + ":" +
                            std::to_string(message.line) +
                            " cannot be checked: no tool reads both languages");
  return true;
}

bool VhdlElaboration::report_missing(const GhdlMessage& message) {
  const bool is_library = message.text.rfind("cannot find resource library ", 0) == 0;
  if (!is_library && (message.text.rfind("unit ", 0) != 0 ||
                      message.text.find(" not found in library ") == std::string::npos)) {
    return false;
  }
  const std::string name = quoted(message.text);
  if (is_verilog(name, message)) {
    return true;
  }
  m_report.error("module-missing", place_of(message.file, message.line),
                 is_library ? "library '" + name + "' does not exist"
                            : "unit '" + name + "' is in none of the listed files" + to_add(name));
  return true;
}

void VhdlElaboration::report_rest(const std::vector<GhdlMessage>& messages) {
  bool is_missing = false;
  for (const GhdlMessage& message : messages) {
    is_missing = (!message.is_warning && report_missing(message)) || is_missing ||
                 message.file == "*libraries*"; // an old unit, now that a second one hides it
  }
  for (const GhdlMessage& message : messages) {
    if (!is_missing && !message.is_warning) {
      m_report.error(
          "hdl", message.file.empty() ? m_request.top_place : place_of(message.file, message.line),
          message.text);
    }
  }
}

void VhdlElaboration::drop_parameter(std::size_t index, const std::string& why) {
  m_report.error("parameter", m_parameter_places[index], why);
  m_parameters.erase(m_parameters.begin() + static_cast<std::ptrdiff_t>(index));
  m_parameter_places.erase(m_parameter_places.begin() + static_cast<std::ptrdiff_t>(index));
}

// Reports the parameters that the run refused, and unknown ones, after which it continues.
// True when the synthesis is to be repeated without one.
bool VhdlElaboration::check_parameters(const ToolResult& result) {
  for (const GhdlMessage& message : parse_messages(result.errors)) {
    const bool is_unknown = message.text.rfind("no generic ", 0) == 0;
    for (std::size_t index = 0; is_unknown && index < m_parameters.size(); ++index) {
      if (lower(m_parameters[index].first) == quoted(message.text)) {
        const std::string name = m_parameters[index].first;
        drop_parameter(index, "entity '" + m_top + "' has no generic '" + name + "'" +
                                  suggestion(lower(name), generic_names()));
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
      std::find(units.begin(), units.end(), lower(m_top)) != units.end()) {
    return false;
  }
  m_report.error("top-missing", m_request.top_place,
                 "entity '" + m_top + "' is in none of the listed files" + to_add(lower(m_top)));
  m_top = nearest_name(lower(m_top), units);
  return true;
}

std::optional<Design> VhdlElaboration::run() {
  if (!prepare() || (replace_missing_top() && m_top.empty()) || !analyze()) {
    return std::nullopt;
  }
  ToolResult result = synthesize("raw");
  while (result.end == ToolResult::End::exited && check_parameters(result)) {
    result = synthesize("raw");
  }
  const std::string problem = problem_of(result);
  if (!problem.empty()) {
    m_report.cannot_check(m_request.subject(), problem);
    return std::nullopt;
  }
  const std::vector<GhdlMessage> messages = parse_messages(result.errors);
  report_messages(messages);
  if (!result.ok() || result.output.empty()) {
    report_rest(messages);
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
  design.top = lower(m_top);
  design.ignores_case = true;
  design.place = place_of_name("");
  design.ports = read_ports(result.output);
  note_inouts(result.output, design.ports);
  for (Port& port : design.ports) {
    port.place = place_of_name(port.name);
    if (port.direction == Direction::output && m_undriven.contains(port.name)) {
      m_report.error("port-undriven", port.place, "nothing drives output '" + port.name + "'");
    }
  }
  if (!m_report.has_errors()) {
    report_unneeded();
  }
  for (const std::string& file : m_files) {
    design.module_files.push_back(m_tree.real_path(file));
  }
  return design;
}

void VhdlElaboration::report_unneeded() {
  for (const std::size_t index : unneeded_vhdl_files(m_request, m_tree)) {
    m_report.warning("file-unneeded",
                     index < m_request.file_places.size() ? m_request.file_places[index]
                                                          : m_request.top_place,
                     "no unit of '" + m_request.top + "' needs file '" +
                         place_of(m_tree.name(index), 0).file + "'");
  }
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
  return format == "verilog" ? lower(result.output) : result.output;
}

Place VhdlElaboration::place_of(const std::string& file, unsigned line) const {
  const std::optional<std::size_t> index = m_tree.file_of(file);
  if (!index) {
    return {file, line};
  }
  return {*index < m_request.file_names.size() ? m_request.file_names[*index]
                                               : tidy_path(m_request.files[*index]),
          line};
}

// The tool names the line of the first context clause before the unit.
Place VhdlElaboration::place_of_unit(const std::string& file, const std::string& unit) const {
  for (const RtlUnit& found : units_in(read_text(m_tree.real_path(file)), FileKind::vhdl)) {
    if (found.name == unit) {
      return place_of(file, found.line);
    }
  }
  return place_of(file, 1);
}

// The line of a name behind "entity TOP", which the netlist does not have.
Place VhdlElaboration::place_of_name(const std::string& name) const {
  for (const std::string& file : m_files) {
    const std::string text =
        lower(blank_comments(read_text(m_tree.real_path(file)), FileKind::vhdl));
    const unsigned from = line_of_entity(text, lower(m_top));
    std::istringstream lines(from != 0 ? text : "");
    unsigned number = 0;
    for (std::string line; std::getline(lines, line);) {
      if (++number >= from && (name.empty() || has_word(line, name))) {
        return place_of(file, number);
      }
    }
  }
  return m_request.top_place;
}

std::vector<std::string> VhdlElaboration::unit_names() const {
  std::vector<std::string> names;
  for (const std::string& file : m_files) {
    for (const RtlUnit& unit : units_in(read_text(m_tree.real_path(file)), FileKind::vhdl)) {
      names.push_back(unit.name);
    }
  }
  return names;
}

// The names with a colon behind them in the top entity's text up to its ports.
std::vector<std::string> VhdlElaboration::generic_names() const {
  std::vector<std::string> names;
  for (const std::string& file : m_files) {
    const std::string text =
        lower(blank_comments(read_text(m_tree.real_path(file)), FileKind::vhdl));
    const std::size_t entity = text.find("entity " + lower(m_top));
    const std::size_t ports = entity == std::string::npos ? entity : text.find("port", entity);
    for (std::size_t colon = text.find(':', entity); colon < ports;
         colon = text.find(':', colon + 1)) {
      const std::size_t end = text.find_last_not_of(" \t\r\n", colon - 1) + 1;
      const std::size_t from = text.find_last_of(" \t\r\n(;,", end - 1) + 1;
      names.push_back(text.substr(from, end - from));
    }
  }
  return names;
}

std::string VhdlElaboration::to_add(const std::string& unit) const {
  return where_to_find(unit, m_request, unit_names());
}

} // namespace

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
