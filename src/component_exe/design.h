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

// A file that the RTL reads while it runs, with $readmemh or $readmemb.
struct DataFile {
  std::string name; // as the RTL names it
  Place place;
};

// A module that is part of a design.
struct DesignModule {
  std::string name;
  Place place;
};

struct Design {
  std::string top;
  Place place; // of the module
  std::vector<Port> ports;
  std::vector<Parameter> parameters;
  std::vector<std::string> module_files; // paths of the files with a module of the design
  std::vector<DesignModule> modules;     // empty when the tool does not list them
  std::vector<DataFile> data_files;
  // Whether a parameter of the description could not be set, on which widths may depend.
  bool has_other_parameters = false;
  // Whether an error in its body leaves nothing else known than its ports and parameters.
  bool has_ports_only = false;
  bool ignores_case = false; // VHDL, whose names are in lower case here

  // The port that a description means by a name, or null.
  [[nodiscard]] const Port* find_port(const std::string& name) const;

  // Whether the module that is defined at a place is part of the design, as far as is known.
  [[nodiscard]] bool has_module(const std::string& name, const Place& at) const;
};

// What to elaborate. Paths are absolute or relative to the working directory. The places of what
// the description says are those that findings name; a description's request_for gives them, and
// who asks for something else may leave them out.
struct ElaborationRequest {
  std::string top;
  std::vector<std::string> files;                              // in the order of the description
  std::vector<std::pair<std::string, std::string>> parameters; // name and value

  std::vector<std::string> file_names; // of the files in messages, parallel; or empty
  Place top_place;
  Place files_place;
  std::vector<Place> file_places;      // where each file is listed, parallel; or empty
  std::vector<Place> parameter_places; // parallel; or empty

  // What problems of checking are about.
  [[nodiscard]] const std::string& subject() const {
    return top_place.file.empty() ? top : top_place.file;
  }
};

// Elaborates the top module with verilator or ghdl, as the files demand. Faults of the RTL and the
// description become findings of the report, failures of the tools its problems. Empty when the
// ports could not be found out; there may be findings also when they could.
[[nodiscard]] std::optional<Design> elaborate(const ElaborationRequest& request, Report& report);

// Whether a path is Verilog or SystemVerilog to be compiled (.v, .sv), a VHDL file (.vhd, .vhdl),
// an include file (.svh, .vh) or data (.hex, .mif), by its extension in any letter case.
enum class FileKind { verilog, vhdl, include, data, other };
[[nodiscard]] FileKind file_kind(const std::string& path);

} // namespace bfcl::component
