// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <string>

namespace bfcl::component {

// Whether a word is reserved in SystemVerilog, as an identifier is not, unless it is escaped.
[[nodiscard]] bool is_verilog_keyword(const std::string& word);

// Escapes the names in a netlist that are keywords of Verilog but none of VHDL, such as a signal
// called "reg", which ghdl writes as they are. The netlist is Verilog as ghdl writes it: what is no
// name begins its line, or follows "(" or "or" as an edge does.
[[nodiscard]] std::string escape_keywords(const std::string& netlist);

} // namespace bfcl::component
