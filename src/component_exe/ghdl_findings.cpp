// SPDX-License-Identifier: BSD-3-Clause
#include "vhdl_elaboration.h"

#include "description.h"
#include "rtl_text.h"
#include "unneeded_files.h"

#include <algorithm>
#include <map>

namespace bfcl::component {

// What has a rule of its own.
void VhdlElaboration::report_messages(const std::vector<GhdlMessage>& messages) {
  for (const GhdlMessage& message : messages) {
    const std::size_t also = message.text.find(" was also defined in file ");
    if (also != std::string::npos) {
      const std::string name = quoted_unit(message.text);
      m_report.error("module-twice", place_of_unit(message.file, name),
                     "unit '" + name + "' is defined already, in " +
                         place_of(quoted_unit(message.text, 1), 0).file);
    } else if (message.text.find(" is not bound [-Wbinding]") != std::string::npos) {
      const std::string name = quoted_unit(message.text, 1);
      if (is_verilog(name, message)) {
        continue;
      }
      if (!is_in_misspelled_file(name, m_request)) {
        m_report.error("module-missing", place_of(message.file, message.line),
                       "entity '" + name + "' of the component is in none of the listed files" +
                           to_add(name));
      }
    } else if (message.text.starts_with("no assignment for ") ||
               message.text.find(" is never assigned ") != std::string::npos) {
      note_undriven(message);
    }
  }
}

// "no assignment for port "x"", "no assignment for offsets 4:7 of port "x"", "signal "x" is never
// assigned and has no default value".
void VhdlElaboration::note_undriven(const GhdlMessage& message) {
  UndrivenSignal undriven;
  undriven.name = lower_case(quoted_unit(message.text));
  undriven.place = place_of(message.file, message.line);
  const std::size_t bits = message.text.find("offsets ");
  if (bits != std::string::npos) {
    const std::size_t from = bits + std::string("offsets ").size();
    const std::string offsets = message.text.substr(from, message.text.find(' ', from) - from);
    const std::size_t colon = offsets.find(':'); // the lowest is first
    undriven.bits = colon == std::string::npos
                        ? "[" + offsets + "]"
                        : "[" + offsets.substr(colon + 1) + ":" + offsets.substr(0, colon) + "]";
  }
  m_undriven.push_back(std::move(undriven));
}

// The netlist has no places; those of signals with a name are the messages'.
void VhdlElaboration::place_signals(ModuleDrivers& module) const {
  for (const UndrivenSignal& undriven : m_undriven) {
    for (const auto& [signal, name] : module.names) {
      if (undriven.name == name) {
        module.signals[signal] = undriven.place;
      }
    }
  }
}

void VhdlElaboration::report_undriven(const Design& design, const std::string& netlist) {
  std::vector<ModuleDrivers> modules = read_ghdl_drivers(netlist);
  std::vector<std::string> outputs;
  std::map<std::string, Place> places;
  for (const Port& port : design.ports) {
    if (port.direction == Direction::output) {
      outputs.push_back(port.name);
      places[port.name] = port.place;
    }
  }
  for (ModuleDrivers& module : modules) {
    if (module.name == design.top) {
      module.signals = places;
      place_signals(module);
    }
  }
  bfcl::component::report_undriven(trace_undriven(modules, design.top, outputs, m_undriven), places,
                                   m_report);
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
  const std::string name = quoted_unit(message.text);
  if (is_verilog(name, message) || is_in_misspelled_file(name, m_request)) {
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
    if (!is_missing && !message.is_warning && m_top == m_request.top) {
      m_report.error(
          "hdl", message.file.empty() ? m_request.top_place : place_of(message.file, message.line),
          message.text);
    }
  }
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
  const unsigned line = line_of_unit(read_text(m_tree.real_path(file)), unit, FileKind::vhdl);
  return place_of(file, std::max(line, 1U));
}

// The line of a port of the top entity, which the netlist does not have.
Place VhdlElaboration::place_of_name(const std::string& name) const {
  for (const std::string& file : m_files) {
    const unsigned line =
        line_in_entity(read_text(m_tree.real_path(file)), lower_case(m_top), name);
    if (line != 0) {
      return place_of(file, line);
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

std::vector<std::string> VhdlElaboration::generic_names() const {
  std::vector<std::string> names;
  for (const std::string& file : m_files) {
    const std::string text = read_text(m_tree.real_path(file));
    const std::vector<std::string> found = generics_of(text, lower_case(m_top));
    names.insert(names.end(), found.begin(), found.end());
  }
  return names;
}

std::string VhdlElaboration::to_add(const std::string& unit) const {
  return where_to_find(unit, m_request, unit_names(), m_report);
}

} // namespace bfcl::component
