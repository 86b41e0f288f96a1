// SPDX-License-Identifier: BSD-3-Clause
#include "interface_rules.h"

#include "rtl_text.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>

namespace bfcl::component {

namespace {

namespace fs = std::filesystem;
using vex::efi::EFIElem;
using vex::efi::VRM_SIGNAL_NAME;

// A port that a description demands.
struct ExpectedPort {
  std::string name;
  Direction direction = Direction::input;
  unsigned width = 1; // bits
  unsigned line = 0;  // of the XML element
};

// Of the signals in VRM_SIGNAL_NAME, those that the component drives.
bool is_driven_by_component(const std::string& signal) {
  return signal == "iready" || signal == "ovalid";
}

std::vector<ExpectedPort> expected_ports(const EFIElem& elem, const ElementLines& lines) {
  std::vector<ExpectedPort> ports;
  for (std::size_t i = 0; i < VRM_SIGNAL_NAME.size(); ++i) {
    ports.push_back(
        {elem.m_signal_ports[i],
         is_driven_by_component(VRM_SIGNAL_NAME[i]) ? Direction::output : Direction::input, 1,
         lines.signals[i]});
  }
  for (std::size_t i = 0; i < elem.m_input_names.size(); ++i) {
    ports.push_back(
        {elem.m_input_names[i], Direction::input, elem.m_input_widths[i], lines.inputs[i]});
  }
  if (!elem.m_output_name.empty()) {
    ports.push_back({elem.m_output_name, Direction::output, elem.m_output_width, lines.output});
  }
  return ports;
}

constexpr unsigned ADDRESS_WIDTH = 64;

// The signals of memory ports, their width (0: as the port says) and the operations that need them.
struct MemSignal {
  const char* name;
  Direction direction;
  enum { one, address, data, byte_enable, burst_count } width;
  bool for_read;
  bool for_write;
};

constexpr MemSignal MEM_SIGNALS[] = {
    {"address", Direction::output, MemSignal::address, true, true},
    {"read", Direction::output, MemSignal::one, true, false},
    {"readdata", Direction::input, MemSignal::data, true, false},
    {"readdatavalid", Direction::input, MemSignal::one, true, false},
    {"write", Direction::output, MemSignal::one, false, true},
    {"writedata", Direction::output, MemSignal::data, false, true},
    {"byteenable", Direction::output, MemSignal::byte_enable, false, true},
    {"writeack", Direction::input, MemSignal::one, false, true},
    {"waitrequest", Direction::input, MemSignal::one, true, true},
    {"burstcount", Direction::output, MemSignal::burst_count, true, true},
};

unsigned width_of(const MemSignal& signal, const EFIElem& elem, std::size_t port) {
  switch (signal.width) {
  case MemSignal::address:
    return ADDRESS_WIDTH;
  case MemSignal::data:
    return elem.m_mem_port_widths[port];
  case MemSignal::byte_enable:
    return elem.m_mem_port_widths[port] / 8;
  case MemSignal::burst_count:
    return elem.m_mem_port_burst_widths[port];
  case MemSignal::one:
    break;
  }
  return 1;
}

const char* name_of(Direction direction) {
  return direction == Direction::input    ? "an input"
         : direction == Direction::output ? "an output"
                                          : "an inout";
}

const char* name_of(PortKind kind) {
  switch (kind) {
  case PortKind::array:
    return "an unpacked array";
  case PortKind::record:
    return "a record or an unpacked structure";
  case PortKind::interface:
    return "an interface";
  default:
    return "of a type without bits";
  }
}

std::string bits(unsigned width) {
  return std::to_string(width) + (width == 1 ? " bit" : " bits");
}

std::string at(const Place& place) {
  return place.file + ":" + std::to_string(place.line);
}

class InterfaceRules {
public:
  InterfaceRules(const Description& description, std::size_t component, const Design& design,
                 Report& report)
      : m_description(description), m_elem(*description.spec->efi_elems()[component]),
        m_lines(description.lines[component]), m_design(design), m_report(report) {}

  void check() {
    for (const Port& port : m_design.ports) {
      m_names.push_back(port.name);
    }
    for (const ExpectedPort& port : expected_ports(m_elem, m_lines)) {
      check_port(port);
    }
    for (std::size_t i = 0; i < m_elem.m_mem_port_names.size(); ++i) {
      check_mem_port(i);
    }
    for (const Port& port : m_design.ports) {
      if (!m_known.contains(port.name)) {
        report_extra(port);
      }
    }
  }

private:
  void check_port(const ExpectedPort& expected) {
    const Port* port = m_design.find_port(expected.name);
    if (port == nullptr) {
      const std::string nearest = nearest_unknown(expected.name);
      m_known.insert(nearest);
      m_report.error("port-missing", m_description.place(expected.line),
                     "module '" + m_design.top + "' (" + at(m_design.place) + ") has no port '" +
                         expected.name + "'" +
                         (nearest.empty() ? "" : "; did you mean '" + nearest + "'?"));
      return;
    }
    m_known.insert(port->name);
    check_kind_and_width(expected, *port, "port-direction");
  }

  void check_kind_and_width(const ExpectedPort& expected, const Port& port,
                            const char* direction_rule) {
    const Place place = m_description.place(expected.line);
    if (port.kind != PortKind::vector) {
      m_report.error("port-kind", port.kind == PortKind::interface ? port.place : place,
                     "port '" + expected.name + "' is " + name_of(port.kind) + " in " +
                         at(port.place) + ", which no component can have");
      return;
    }
    if (port.direction != expected.direction) {
      m_report.error(direction_rule, place,
                     "port '" + expected.name + "' is " + name_of(port.direction) + " in " +
                         at(port.place) + ", but must be " + name_of(expected.direction));
      withdraw_consequences(port);
    }
    if (port.width != expected.width && !m_design.has_other_parameters) {
      Finding& finding =
          m_report.error("port-width", place,
                         "port '" + expected.name + "' has " + bits(port.width) + " in " +
                             at(port.place) + ", but must have " + bits(expected.width));
      finding.element = place;
      finding.bits = port.width;
    }
  }

  // What the tools say about the statements that drive, or do not drive, a reversed port.
  void withdraw_consequences(const Port& port) {
    m_report.withdraw("port-undriven", "nothing drives output '" + port.name + "'");
    m_report.withdraw("hdl", "Assigning to input/const variable: '" + port.name + "'");
    m_report.withdraw("hdl", "port \"" + port.name + "\" can't be assigned");
  }

  void check_mem_port(std::size_t index) {
    const std::string& name = m_elem.m_mem_port_names[index];
    const std::string& optype = m_elem.m_mem_port_optypes[index];
    std::vector<std::string> missing;
    std::size_t needed = 0;
    for (const MemSignal& signal : MEM_SIGNALS) {
      if (!(optype == "read" ? signal.for_read : signal.for_write)) {
        continue;
      }
      const std::string full_name = name + "_" + signal.name;
      const Port* port = m_design.find_port(full_name);
      ++needed;
      if (port == nullptr) {
        missing.push_back(full_name);
        continue;
      }
      m_known.insert(port->name);
      check_kind_and_width(
          {full_name, signal.direction, width_of(signal, m_elem, index), m_lines.mem_ports[index]},
          *port, "mem-signal");
    }
    if (missing.size() == needed) {
      report_missing_mem_port(index);
    } else if (!missing.empty()) {
      report_missing_signals(index, missing);
    }
  }

  // The only other memory port of the module, or the one whose name is nearest.
  std::string nearest_mem_port(const std::string& name) const {
    const std::string suffix = "_address";
    const std::vector<std::string>& named = m_elem.m_mem_port_names;
    std::vector<std::string> others;
    for (const Port& port : m_design.ports) {
      if (!m_known.contains(port.name) && port.name.ends_with(suffix)) {
        const std::string other = port.name.substr(0, port.name.size() - suffix.size());
        if (std::find(named.begin(), named.end(), other) == named.end()) {
          others.push_back(other);
        }
      }
    }
    return others.size() == 1 ? others.front() : nearest_name(name, others);
  }

  void report_missing_mem_port(std::size_t index) {
    const std::string& name = m_elem.m_mem_port_names[index];
    const std::string nearest = nearest_mem_port(name);
    if (!nearest.empty()) {
      know_signals_of(nearest);
    }
    m_report.error("mem-missing", m_description.place(m_lines.mem_ports[index]),
                   "module '" + m_design.top + "' (" + at(m_design.place) +
                       ") has no signal of memory port '" + name + "', such as '" + name +
                       "_address'" + (nearest.empty() ? "" : "; did you mean '" + nearest + "'?"));
  }

  void report_missing_signals(std::size_t index, const std::vector<std::string>& missing) {
    const std::string& name = m_elem.m_mem_port_names[index];
    std::string list;
    for (const std::string& signal : missing) {
      const std::string nearest = nearest_unknown(signal);
      m_known.insert(nearest);
      list += (list.empty() ? "'" : ", '") + signal + "'" +
              (nearest.empty() ? "" : " (did you mean '" + nearest + "'?)");
    }
    know_signals_of(name);
    m_report.error("mem-signal", m_description.place(m_lines.mem_ports[index]),
                   "module '" + m_design.top + "' (" + at(m_design.place) +
                       ") lacks signals of the " + m_elem.m_mem_port_optypes[index] + " port '" +
                       name + "': " + list);
  }

  // Signals of a port that is reported already are no extra ports.
  void know_signals_of(const std::string& mem_port) {
    for (const char* signal : vex::efi::VRM_MEM_SIGNAL_NAME) {
      const Port* port = m_design.find_port(mem_port + "_" + signal);
      if (port != nullptr) {
        m_known.insert(port->name);
      }
    }
  }

  // A port that no element of the description names is what a misspelled one means.
  std::string nearest_unknown(const std::string& name) {
    if (m_named.empty()) {
      for (const ExpectedPort& port : expected_ports(m_elem, m_lines)) {
        m_named.insert(port.name);
      }
    }
    std::vector<std::string> unknown;
    std::copy_if(m_names.begin(), m_names.end(), std::back_inserter(unknown),
                 [this](const std::string& port) {
                   return !m_named.contains(port) && !m_known.contains(port);
                 });
    return nearest_name(name, unknown);
  }

  void report_extra(const Port& port) {
    if (port.kind != PortKind::vector) {
      m_report.error("port-kind", port.place,
                     "port '" + port.name + "' is " + name_of(port.kind) +
                         ", which no component can have");
    } else if (port.direction == Direction::output) {
      m_report.warning("port-extra", port.place,
                       "output '" + port.name + "' is not in " + m_description.name +
                           ": nothing reads it");
    } else {
      m_report.error("port-extra", port.place,
                     std::string(port.direction == Direction::input ? "input" : "inout") + " '" +
                         port.name + "' is not in " + m_description.name + ": nothing drives it");
    }
  }

  const Description& m_description;
  const EFIElem& m_elem;
  const ElementLines& m_lines;
  const Design& m_design;
  Report& m_report;
  std::vector<std::string> m_names; // of all ports
  std::set<std::string> m_named;    // by the description
  std::set<std::string> m_known;    // ports that are dealt with
};

const std::set<std::string> EXTENSIONS = {"v", "sv", "svh", "vhd", "hex", "mif"};

void check_data_files(const Description& description, std::size_t component, const Design& design,
                      Report& report) {
  std::set<std::string> listed; // by their last part: simulators are run in all kinds of folders
  for (const std::string& file : description.spec->efi_elems()[component]->m_requirement_files) {
    listed.insert(fs::path(file).filename().string());
  }
  for (const DataFile& data : design.data_files) {
    if (!listed.contains(fs::path(data.name).filename().string()) &&
        !is_misspelled(data.name, description.request_for(component))) {
      report.error("data-unlisted", data.place,
                   "data file '" + data.name + "' is not listed in " + description.name);
    }
  }
}

void report_missing_file(const std::string& path, const std::string& name, const Place& place,
                         Report& report) {
  std::vector<std::string> neighbours;
  std::error_code error;
  const fs::path folder = fs::path(path).parent_path();
  for (fs::directory_iterator entry(folder.empty() ? "." : folder, error), end;
       !error && entry != end; entry.increment(error)) {
    neighbours.push_back((fs::path(name).parent_path() / entry->path().filename()).string());
  }
  std::sort(neighbours.begin(), neighbours.end());
  report.error("file-missing", place,
               "file '" + name + "' does not exist or is no regular file" +
                   suggestion(name, neighbours));
}

bool check_c_models(const Description& description, std::size_t component, Report& report) {
  const std::vector<std::string>& files = description.spec->efi_elems()[component]->m_c_model_files;
  bool is_complete = true;
  for (std::size_t i = 0; i < files.size(); ++i) {
    std::error_code error;
    const std::string path = description.file_path(files[i]);
    if (!fs::is_regular_file(path, error)) {
      report_missing_file(path, files[i],
                          description.place(description.lines[component].c_model_files[i]), report);
      is_complete = false;
    }
  }
  return is_complete;
}

} // namespace

bool check_files(const Description& description, std::size_t component, Report& report) {
  const EFIElem& elem = *description.spec->efi_elems()[component];
  std::map<std::string, std::size_t> listed; // by the real file
  for (std::size_t i = 0; i < elem.m_requirement_files.size(); ++i) {
    const std::string& name = elem.m_requirement_files[i];
    const std::string path = description.file_path(name);
    const Place place = description.place(description.lines[component].requirement_files[i]);
    std::error_code error;
    if (!fs::is_regular_file(path, error)) {
      report_missing_file(path, name, place, report);
      continue;
    }
    std::string extension = path.substr(path.rfind('.') + 1);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char byte) { return static_cast<char>(std::tolower(byte)); });
    if (!EXTENSIONS.contains(extension)) {
      report.error("file-extension", place,
                   "file '" + name +
                       "' cannot be packaged: its extension is none of v, sv, svh, vhd, hex, mif");
    }
    const auto [first, is_new] = listed.try_emplace(fs::canonical(path, error).string(), i);
    if (!is_new) {
      report.error(
          "file-twice", place,
          "file '" + name + "' is listed already, at line " +
              std::to_string(description.lines[component].requirement_files[first->second]));
    }
  }
  return check_c_models(description, component, report);
}

void check_interface(const Description& description, std::size_t component, const Design& design,
                     Report& report) {
  InterfaceRules(description, component, design, report).check();
  check_data_files(description, component, design, report);
}

} // namespace bfcl::component
