// SPDX-License-Identifier: BSD-3-Clause
#include "verilog_elaboration.h"

#include "description.h"
#include "rtl_text.h"
#include "unneeded_files.h"

#include <algorithm>
#include <filesystem>

namespace bfcl::component {

namespace {

namespace fs = std::filesystem;

// The name in a text that a message is about.
std::string name_at(const std::string& text, const VerilatorMessage& message) {
  std::size_t from = begin_of_line(text, message.line);
  if (message.column == 0 || message.column > text.size() - from) {
    return "";
  }
  from += message.column - 1;
  const std::size_t end = text.find_first_of(" \t\r\n,;)[", from);
  return text.substr(from, std::min(end, text.size()) - from);
}

} // namespace

bool is_consequence(const VerilatorMessage& message) {
  constexpr const char* TEXTS[] = {"Exiting due to", "Cannot continue", "Internal Error",
                                   "This may be because there's no search path",
                                   "Specified --top-module "};
  return std::any_of(std::begin(TEXTS), std::end(TEXTS),
                     [&](const char* prefix) { return message.text.starts_with(prefix); });
}

// Reports the errors that are left after the last run. Errors that follow from a replacement are
// not reported, nor is what the tool does not support, which is no fault of the RTL.
void VerilogElaboration::report_rest(const VerilatorRun& run) {
  if (m_is_mended || (m_report.has_errors() && m_job.top != m_request.top)) {
    return;
  }
  std::set<std::string> unreadable; // what follows on a syntax error is noise
  std::set<Place> dealt_with;       // the tool takes a type that it does not know for an interface
  for (const VerilatorMessage& message : run.messages) {
    if (message.text.starts_with("Cannot find file containing interface: ")) {
      dealt_with.insert(place_of(message));
      m_report.error("hdl", place_of(message),
                     "type '" + quoted_name(message.text) + "' is not defined");
    }
  }
  for (const VerilatorMessage& message : run.messages) {
    const Place place = message.file.empty() ? m_request.top_place : place_of(message);
    if (message.text.starts_with("Unsupported: Interfaced port on top level")) {
      dealt_with.insert(place);
      m_report.error("port-kind", place,
                     "port '" + name_at(read_text(m_tree.real_path(message.file)), message) +
                         "' is an interface, which no component can have; put a module around '" +
                         m_job.top + "' whose ports are vectors");
      continue;
    }
    if (!message.is_error || dealt_with.contains(place) || is_consequence(message)) {
      continue;
    }
    if (message.text.starts_with("Unsupported:")) {
      m_report.cannot_check(m_request.subject(), "verilator cannot read " + place.file + ":" +
                                                     std::to_string(place.line) + ": " +
                                                     message.text);
      return;
    } else if (!message.text.starts_with("syntax error") || unreadable.insert(place.file).second) {
      m_report.error("hdl", place, message.text);
    }
  }
}

// A unit that a misspelled file name hides is not missing as well.
void VerilogElaboration::report_missing(const char* rule, const Place& place,
                                        const std::string& kind, const std::string& name) {
  if (!is_in_misspelled_file(name, m_request)) {
    m_report.error(rule, place,
                   kind + " '" + name + "' is in none of the listed files" +
                       where_to_find(name, m_request, unit_names(kind == "package"), m_report));
  }
}

void VerilogElaboration::report_duplicates(const VerilatorRun& run) {
  for (const VerilatorMessage& message : run.messages) {
    const Place first = place_of(message.other_file, message.other_line);
    // A file that does not define the module that it is named after is read twice.
    if (message.code == "MODDUP" && place_of(message) != first) {
      m_is_mended = true;
      m_report.error("module-twice", place_of(message),
                     "module '" + quoted_name(message.text) + "' is defined already, at " +
                         first.file + ":" + std::to_string(first.line));
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
  for (const auto& [unknown, value] : m_unknown_parameters) {
    const std::string& name = unknown; // lambdas cannot capture a binding
    const bool is_local =
        design != nullptr && std::any_of(design->parameters.begin(), design->parameters.end(),
                                         [&](const Parameter& p) { return p.name == name; });
    m_report.error("parameter", parameter_place(name),
                   is_local ? "'" + name + "' is a localparam of module '" + m_job.top + "'"
                            : "module '" + m_job.top + "' has no parameter '" + name + "'" +
                                  suggestion(name, known));
  }
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

void VerilogElaboration::report_undriven(const VerilatorRun& run) {
  if (m_is_mended) {
    return; // stubs drive nothing
  }
  std::vector<UndrivenSignal> undriven;
  for (const VerilatorMessage& message : run.messages) {
    if (message.code == "UNDRIVEN") {
      const std::size_t bits = message.text.rfind('[');
      undriven.push_back({quoted_name(message.text),
                          {message.file, message.line},
                          bits == std::string::npos ? "" : message.text.substr(bits)});
    }
  }
  std::vector<std::string> outputs;
  std::map<std::string, Place> places;
  ModuleDrivers top; // when the format has no drivers
  top.name = run.design.top;
  for (const Port& port : run.design.ports) {
    top.signals[port.name] = port.place;
    if (port.direction == Direction::output) {
      outputs.push_back(port.name);
      places[port.name] = place_of(port.place.file, port.place.line);
    }
  }
  const std::vector<ModuleDrivers> only_top = {top};
  auto found = trace_undriven(run.drivers.empty() ? only_top : run.drivers, run.design.top, outputs,
                              undriven);
  for (UndrivenOutputs& one : found) {
    one.cause.place = place_of(one.cause.place.file, one.cause.place.line);
  }
  bfcl::component::report_undriven(found, places, m_report);
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

// From the names of the tool to those of messages, and to the paths of the files.
void VerilogElaboration::name_places(Design& design) const {
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
}

Place VerilogElaboration::parameter_place(const std::string& name) const {
  for (std::size_t index = 0; index < m_request.parameter_places.size(); ++index) {
    if (m_request.parameters[index].first == name) {
      return m_request.parameter_places[index];
    }
  }
  return m_request.top_place;
}

} // namespace bfcl::component
