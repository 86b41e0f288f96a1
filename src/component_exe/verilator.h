// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "design.h"

#include <optional>

namespace bfcl::component {

// Elaborates Verilog and SystemVerilog with verilator, as `elaborate` says. When a run stops at a
// fault that can be mended for the time being (a file that is missing, an order, a parameter), the
// fault is reported and the next run continues after it, so that all are found at once.
[[nodiscard]] std::optional<Design> elaborate_verilog(const ElaborationRequest& request,
                                                      Report& report);

} // namespace bfcl::component
