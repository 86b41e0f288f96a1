// SPDX-License-Identifier: BSD-3-Clause
#include "EFISpec.h"

#include <algorithm>
#include <utility>

namespace vex::efi {

const char* const VEYRA_SIGNAL_HELP =
    "\nEach HDL component must conform to the following specification:\n"
    "  - Use Veyra Streaming interface with these signals defined:\n"
    "     - clock, resetn, iready, ivalid, oready, ovalid\n"
    "  - Have at least one data input signal\n"
    "  - If VEYRA_MEM port is requested, at least one MEM_INPUT must\n"
    "    be provided.\n";

namespace {

const char* yes_or_no(const YesNo& flag) {
  return flag.value ? "yes" : "no";
}

} // namespace

EFIElem::EFIElem(std::string function_name, std::string module_name)
    : m_function_name(std::move(function_name)), m_module_name(std::move(module_name)),
      m_latency(NOT_SET), m_capacity(NOT_SET), m_is_fixed_latency{}, m_is_stall_free{} {}

EFIElem* EFISpec::add_efi_elem(std::unique_ptr<EFIElem> elem) {
  m_efi_elems.push_back(std::move(elem));
  return m_efi_elems.back().get();
}

int EFISpec::find_efi_elem_for_function_name(const std::string& name) const {
  const auto found =
      std::find_if(m_efi_elems.begin(), m_efi_elems.end(),
                   [&name](const auto& elem) { return elem->m_function_name == name; });
  return found != m_efi_elems.end() ? static_cast<int>(found - m_efi_elems.begin()) : -1;
}

std::ostream& operator<<(std::ostream& stream, const EFIElem& elem) {
  stream << "    Function Name: " << elem.m_function_name << "\n"
         << "    Module Name:   " << elem.m_module_name << "\n"
         << "    Latency:       " << std::to_string(elem.m_latency) << "\n"
         << "    Stall Free:    " << yes_or_no(elem.m_is_stall_free) << "\n"
         << "    Fixed Latency: " << yes_or_no(elem.m_is_fixed_latency) << "\n"
         << "    VRM Signals:\n";
  for (std::size_t i = 0; i < VRM_SIGNAL_NAME.size(); ++i) {
    stream << "      " << VRM_SIGNAL_NAME[i] << ": " << elem.m_signal_ports[i] << "\n";
  }
  stream << "    Input Signals:\n";
  for (std::size_t i = 0; i < elem.m_input_names.size(); ++i) {
    stream << "     #" << std::to_string(i) << ": " << elem.m_input_names[i]
           << ", width:" << std::to_string(elem.m_input_widths[i]) << "\n";
  }
  stream << "    Output Signal: " << elem.m_output_name
         << ", width:" << std::to_string(elem.m_output_width);
  stream << "    Requirements:\n";
  for (const std::string& file : elem.m_requirement_files) {
    stream << "  " << file << "\n";
  }
  return stream;
}

std::ostream& operator<<(std::ostream& stream, const EFISpec& spec) {
  stream << "EFI specification:\n";
  for (std::size_t i = 0; i < spec.efi_elems().size(); ++i) {
    stream << "  Element#" << std::to_string(i) << ":\n" << *spec.efi_elems()[i] << "\n";
  }
  return stream;
}

} // namespace vex::efi
