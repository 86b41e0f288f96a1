// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "finding.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

// A module as the tool that elaborates its RTL sees it. verilator.h and ghdl.h fill it.

namespace bfcl::component {

enum class Direction { input, output, inout };
enum class PortKind {
  vector, // one bit or a packed vector, struct, union or enum of `width` bits
  array,  // an unpacked array
  record, // of VHDL
  interface,
  other, // real, string, …
};

struct Port {
  std::string name; // as the source writes it; VHDL names in lower case
  Direction direction = Direction::input;
  PortKind kind = PortKind::vector;
  unsigned width = 0; // bits, after parameters
  Place place;        // in the RTL
};

struct Parameter {
  std::string name;
  bool is_local = false; // a localparam
};

struct Design {
  std::string top;
  Place place; // of the module
  std::vector<Port> ports;
  std::vector<Parameter> parameters;
  std::vector<std::string> module_files; // paths of the files with a module of the design

  [[nodiscard]] const Port* find_port(const std::string& name) const;
};

// What to elaborate. Paths are absolute or relative to the working directory.
struct ElaborationRequest {
  std::string top;
  std::vector<std::string> files;                              // in the order of the description
  std::vector<std::pair<std::string, std::string>> parameters; // name and value
};

// Whether a path is Verilog or SystemVerilog to be compiled (.v, .sv), a VHDL file (.vhd, .vhdl),
// an include file (.svh, .vh) or data (.hex, .mif), by its extension in any letter case.
enum class FileKind { verilog, vhdl, include, data, other };
[[nodiscard]] FileKind file_kind(const std::string& path);

} // namespace bfcl::component
