// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "EFISpecHandle.h"

#include <array>
#include <climits>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace vex::efi {

// The streaming handshake signals. An index into this table is a signal's identity in the model.
inline constexpr std::array<const char*, 6> VRM_SIGNAL_NAME = {"clock",  "resetn", "iready",
                                                               "ivalid", "oready", "ovalid"};

// The signals of a memory-mapped port.
inline constexpr std::array<const char*, 10> VRM_MEM_SIGNAL_NAME = {
    "readdata", "readdatavalid", "waitrequest", "address",    "read",
    "write",    "writeack",      "writedata",   "byteenable", "burstcount"};

enum MEM_INPUT_ACCESS_TYPE : unsigned { MEM_INPUT_READONLY, MEM_INPUT_READWRITE, MEM_INPUT_SCALAR };
inline constexpr std::array<const char*, 3> MEM_INPUT_ACCESS_TYPE_NAME = {"readonly", "readwrite",
                                                                          "scalar"};

// Explains what an interface must have. It follows the messages about an interface that lacks it.
extern const char* const VEYRA_SIGNAL_HELP;

// Latency or capacity that the specification does not give.
inline constexpr int NOT_SET = INT_MAX;

// A yes/no attribute, and whether the specification gives it.
struct YesNo {
  bool set = false;
  bool value = false;
};

// One component: what a FUNCTION element and its content say. The lists of each group are parallel:
// entry i of each belongs to the same XML element, in document order.
struct EFIElem {
  // A component made in code.
  EFIElem() = default;
  // A component read from a document, with its names only so far.
  EFIElem(std::string function_name, std::string module_name);

  std::string m_function_name;
  std::string m_module_name;

  int m_latency = 0;  // clock cycles
  int m_capacity = 0; // words in flight
  YesNo m_is_fixed_latency{true, false};
  YesNo m_is_stall_free{true, false};
  YesNo m_allow_merging;
  YesNo m_has_side_effects;

  // Resource estimates; fractions are allowed.
  float m_aluts = 0;
  float m_ffs = 0;
  float m_rams = 0;
  float m_dsps = 0;
  float m_mlabs = 0;

  std::vector<std::string> m_parameter_names;
  std::vector<std::string> m_parameter_values;

  std::array<std::string, VRM_SIGNAL_NAME.size()> m_signal_ports; // by index into VRM_SIGNAL_NAME

  std::vector<std::string> m_input_names;
  std::vector<MEM_INPUT_ACCESS_TYPE> m_input_access_types;
  std::vector<unsigned> m_input_widths; // bits

  std::string m_output_name;
  unsigned m_output_width = 0; // bits

  std::vector<std::string> m_mem_port_names;
  std::vector<unsigned> m_mem_port_widths;       // bits
  std::vector<unsigned> m_mem_port_burst_widths; // bits
  std::vector<std::string> m_mem_port_optypes;
  std::vector<std::string> m_mem_port_buffer_locations;

  std::vector<std::string> m_requirement_files;
  std::vector<std::string> m_c_model_files;
};

// The components of one specification file, in document order.
class EFISpec {
public:
  // Takes over a component and returns it.
  EFIElem* add_efi_elem(std::unique_ptr<EFIElem> elem);

  // The index of the first component with exactly that function name, or -1.
  int find_efi_elem_for_function_name(const std::string& name) const;

  const std::vector<std::unique_ptr<EFIElem>>& efi_elems() const { return m_efi_elems; }

private:
  std::vector<std::unique_ptr<EFIElem>> m_efi_elems;
};

// Print the names, the scheduling, the ports and the source files. The line of the output signal
// has no line end: the next heading follows on the same line.
std::ostream& operator<<(std::ostream& stream, const EFIElem& elem);
std::ostream& operator<<(std::ostream& stream, const EFISpec& spec);

} // namespace vex::efi
