// SPDX-License-Identifier: BSD-3-Clause
#include "EFISpecXml.h"
#include "EFISpecXmlAttributes.h"

#include <algorithm>

// The elements of a component's interface.

namespace vex::efi::xml {

using tinyxml2::XMLElement;

namespace {

constexpr const char* PORT_IN_USE_MSG = "Multiple uses of port.";

constexpr unsigned POINTER_WIDTH = 64; // bits

int find_signal(const std::string& type) {
  const auto found = std::find(VRM_SIGNAL_NAME.begin(), VRM_SIGNAL_NAME.end(), type);
  return found != VRM_SIGNAL_NAME.end() ? static_cast<int>(found - VRM_SIGNAL_NAME.begin()) : -1;
}

} // namespace

bool EFIElemVisitor::port_in_use(const std::string& port) const {
  // A signal and an output that are not given yet have the empty name.
  const auto& signals = m_elem->m_signal_ports;
  const bool is_unset =
      port.empty() && (m_elem->m_output_name.empty() ||
                       std::find(signals.begin(), signals.end(), port) != signals.end());
  return is_unset || m_ports_in_use.contains(port);
}

bool EFIElemVisitor::visit_veyra(const XMLElement& elem) {
  const char* port = read_attribute(elem, PORT);
  const char* type = port != nullptr ? read_attribute(elem, TYPE) : nullptr;
  if (type == nullptr) {
    return false;
  }
  const int signal = find_signal(type);
  if (signal >= 0 && !m_elem->m_signal_ports[static_cast<std::size_t>(signal)].empty()) {
    return report_attr_error(elem, TYPE.name, "Multiple type string.");
  }
  if (port_in_use(port)) {
    return report_attr_error(elem, PORT.name, PORT_IN_USE_MSG);
  }
  if (type == std::string("clock") && port != std::string("clock")) {
    return report_attr_error(elem, PORT.name, "expected \"clock\" as port name.");
  }
  if (type == std::string("resetn") && port != std::string("resetn")) {
    return report_attr_error(elem, PORT.name, "expected \"resetn\" as port name.");
  }
  if (signal < 0) {
    return report_attr_error(elem, type, "Unsupported veyra signal.");
  }
  m_elem->m_signal_ports[static_cast<std::size_t>(signal)] = port;
  m_ports_in_use.insert(port);
  return ok();
}

// What INPUT and OUTPUT share.
bool EFIElemVisitor::read_data_port(const XMLElement& elem, const char* width_msg,
                                    std::string& port, unsigned& width) {
  const char* text = read_attribute(elem, PORT);
  if (text == nullptr || !read_unsigned(elem, WIDTH, width)) {
    return false;
  }
  if (width % 8 != 0) {
    return report_attr_error(elem, WIDTH.name, width_msg);
  }
  if (port_in_use(text)) {
    return report_attr_error(elem, PORT.name, PORT_IN_USE_MSG);
  }
  port = text;
  m_ports_in_use.insert(port);
  return true;
}

bool EFIElemVisitor::visit_input(const XMLElement& elem) {
  std::string port;
  unsigned width = 0;
  if (!read_data_port(elem, "Input port width must be a multiple of 8.", port, width)) {
    return false;
  }
  m_elem->m_input_names.push_back(port);
  m_elem->m_input_widths.push_back(width);
  m_elem->m_input_access_types.push_back(MEM_INPUT_SCALAR);
  return ok();
}

bool EFIElemVisitor::visit_output(const XMLElement& elem) {
  std::string port;
  unsigned width = 0;
  if (!read_data_port(elem, "Output port width must be a multiple of 8.", port, width)) {
    return ok();
  }
  m_elem->m_output_name = port;
  m_elem->m_output_width = width;
  return ok();
}

bool EFIElemVisitor::visit_mem_input(const XMLElement& elem) {
  const char* port = read_attribute(elem, PORT);
  const char* access = port != nullptr ? read_attribute(elem, ACCESS) : nullptr;
  if (access == nullptr) {
    return false;
  }
  const auto& names = MEM_INPUT_ACCESS_TYPE_NAME;
  const auto type = static_cast<MEM_INPUT_ACCESS_TYPE>(
      std::find(names.begin(), names.end(), std::string(access)) - names.begin());
  if (type != MEM_INPUT_READONLY && type != MEM_INPUT_READWRITE) {
    return report_attr_error(
        elem, ACCESS.name, "Unsupported access string. Must be either 'readonly' or 'readwrite'.");
  }
  if (port_in_use(port)) {
    return report_attr_error(elem, PORT.name, "Multiple uses of port name.");
  }
  m_ports_in_use.insert(port);
  m_elem->m_input_names.emplace_back(port);
  m_elem->m_input_widths.push_back(POINTER_WIDTH);
  m_elem->m_input_access_types.push_back(type);
  return ok();
}

bool EFIElemVisitor::visit_veyra_mem(const XMLElement& elem) {
  unsigned width = 0;
  unsigned burst_width = 0;
  const char* port = read_attribute(elem, PORT);
  if (port == nullptr || !read_unsigned(elem, WIDTH, width) ||
      !read_unsigned(elem, BURSTWIDTH, burst_width)) {
    return false;
  }
  const char* optype = read_attribute(elem, OPTYPE);
  const char* location = optype != nullptr ? read_attribute(elem, BUFFER_LOCATION) : nullptr;
  if (location == nullptr) {
    return false;
  }
  if (optype != std::string("read") && optype != std::string("write")) {
    return report_attr_error(elem, OPTYPE.name, OPTYPE.msg);
  }
  if (!m_mem_ports.insert(port).second) {
    return report_attr_error(elem, PORT.name, "Multiple memory port string.");
  }
  m_elem->m_mem_port_names.emplace_back(port);
  m_elem->m_mem_port_widths.push_back(width);
  m_elem->m_mem_port_burst_widths.push_back(burst_width);
  m_elem->m_mem_port_optypes.emplace_back(optype);
  m_elem->m_mem_port_buffer_locations.emplace_back(location);
  return ok();
}

} // namespace vex::efi::xml
