// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "design.h"
#include "drivers.h"

#include <string>
#include <vector>

// What ghdl prints.

namespace bfcl::component {

// "FILE:LINE:COLUMN: TEXT", "FILE:LINE:COLUMN:warning: TEXT", or "/usr/bin/ghdl-mcode: TEXT".
struct GhdlMessage {
  bool is_warning = false;
  std::string file; // empty in a message of the program
  unsigned line = 0;
  std::string text;
};

// The messages of its standard error, in their order.
[[nodiscard]] std::vector<GhdlMessage> parse_ghdl_messages(const std::string& text);

// The text between the double quotation marks number `index` of a message.
[[nodiscard]] std::string quoted_unit(const std::string& text, unsigned index = 0);

// The ports of the top entity in what `--synth --out=raw` prints, without their places.
[[nodiscard]] std::vector<Port> read_ghdl_ports(const std::string& netlist);

// What drives the signals of each module in it. Names are in lower case.
[[nodiscard]] std::vector<ModuleDrivers> read_ghdl_drivers(const std::string& netlist);

} // namespace bfcl::component
