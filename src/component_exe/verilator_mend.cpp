// SPDX-License-Identifier: BSD-3-Clause
#include "verilog_elaboration.h"

#include "description.h"
#include "rtl_text.h"

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <utility>

namespace bfcl::component {

namespace {

namespace fs = std::filesystem;

} // namespace

std::string quoted_name(const std::string& text) {
  const std::size_t open = text.find('\'');
  const std::size_t close = text.find('\'', open + 1);
  return close == std::string::npos ? std::string() : text.substr(open + 1, close - open - 1);
}

std::string Stub::text(const std::string& module) const {
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

bool VerilogElaboration::mend(const VerilatorMessage& message) {
  const std::string& text = message.text;
  if (text.starts_with("Cannot find include file: ")) {
    return mend_include(message);
  }
  if (text.starts_with("Package/class '") || text.starts_with("Importing from missing package '")) {
    return mend_package(message);
  }
  if (text.starts_with("Cannot find file containing ") ||
      text.starts_with("Can't resolve module reference: ")) {
    return mend_module(message);
  }
  if (text.starts_with("Specified --top-module ")) {
    return mend_top();
  }
  return mend_parameters(message) || (message.code == "PINNOTFOUND" && mend_pin(message));
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
      if (!is_misspelled(path, m_request)) {
        m_report.error("include-unlisted", place_of(message),
                       "included file '" + name + "' is not listed; add " +
                           file_element(path, m_request));
        m_report.note_unlisted({path, name});
      }
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
  const std::string name = quoted_name(message.text);
  if (m_reported_packages.contains(name)) {
    return false;
  }
  const std::string file = file_with(name);
  if (!file.empty()) {
    m_is_reordered = true;
    move_to_front(file);
    return ++m_moves[file] <= m_job.files.size();
  }
  m_reported_packages.insert(name);
  report_missing("module-missing", place_of(message), "package", name);
  m_is_mended = true;
  return add_neighbour(name, true);
}

// Of an instance with parameters, one message has the line behind them.
unsigned VerilogElaboration::line_of_instance(const VerilatorMessage& message,
                                              const std::string& module) const {
  std::istringstream lines(
      blank_comments(read_text(m_tree.real_path(message.file)), FileKind::verilog));
  unsigned last = message.line;
  unsigned number = 0;
  for (std::string line; number < message.line && std::getline(lines, line);) {
    last = ++number <= message.line && has_word(line, module) ? number : last;
  }
  return last;
}

bool VerilogElaboration::mend_module(const VerilatorMessage& message) {
  const std::string name = quoted_name(message.text.substr(message.text.find(": ")));
  const bool is_type = message.text.starts_with("Cannot find file containing interface: ") &&
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
  const Place place = place_of(message);
  const unsigned line = line_of_instance(message, name);
  report_missing("module-missing", {place.file, line}, "module", name);
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
  const bool is_parameter = message.text.starts_with("Parameter pin");
  auto& names = is_parameter ? nearest->parameters : nearest->pins;
  return names.insert(quoted_name(message.text)).second;
}

bool VerilogElaboration::mend_top() {
  const std::vector<std::string> modules = unit_names(false);
  report_missing("top-missing", m_request.top_place, "module", m_job.top);
  if (add_neighbour(m_job.top, false)) {
    return true;
  }
  const std::string nearest = nearest_name(m_job.top, modules);
  return !nearest.empty() && std::exchange(m_job.top, nearest) != nearest;
}

bool VerilogElaboration::mend_parameters(const VerilatorMessage& message) {
  const std::string unknown = "Parameters from the command line were not found in the design: ";
  if (!message.text.starts_with(unknown)) {
    return false;
  }
  const std::string names = message.text.substr(unknown.size());
  bool is_mended = false;
  for (std::size_t from = 0; from < names.size();) {
    const std::size_t end = std::min(names.find(' ', from), names.size());
    const std::string name = names.substr(from, end - from);
    from = end + 1;
    const auto unknown_one = std::find_if(m_job.parameters.begin(), m_job.parameters.end(),
                                          [&](const auto& set) { return set.first == name; });
    if (unknown_one != m_job.parameters.end()) {
      m_unknown_parameters.push_back(*unknown_one);
      m_job.parameters.erase(unknown_one);
      is_mended = true;
    }
  }
  return is_mended;
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

} // namespace bfcl::component
