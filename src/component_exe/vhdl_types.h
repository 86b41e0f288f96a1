// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <map>
#include <string>
#include <vector>

// The types of a VHDL entity's ports, which ghdl's list of ports does not have.

namespace bfcl::component {

// The base types of the ports by their names, such as "unsigned"; "natural" for an integer that is
// never negative, "integer" for another one, either with its range, such as " range 0 to 9", behind
// it; empty for a type that a wrapper cannot connect. `netlist` is VHDL as ghdl writes it,
// `sources` are texts that define its subtypes.
[[nodiscard]] std::map<std::string, std::string>
vhdl_types(const std::string& netlist, const std::vector<std::string>& sources);

} // namespace bfcl::component
