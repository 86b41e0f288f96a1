// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "design.h"

#include <optional>

namespace bfcl::component {

// Elaborates VHDL-2008 with ghdl, as `elaborate` says.
[[nodiscard]] std::optional<Design> elaborate_vhdl(const ElaborationRequest& request,
                                                   Report& report);

// The top module of VHDL sources as Verilog, with the parameters applied, for tools that read
// nothing else; its ports have the names and widths of the Design. Empty after a failure, which the
// report has then.
[[nodiscard]] std::string vhdl_as_verilog(const ElaborationRequest& request, Report& report);

// The same as VHDL, which begins with the entity and the types of its ports.
[[nodiscard]] std::string vhdl_netlist(const ElaborationRequest& request, Report& report);

} // namespace bfcl::component
