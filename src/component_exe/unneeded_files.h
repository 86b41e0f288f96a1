// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "design.h"
#include "sealed_tree.h"
#include "verilator_run.h"

#include <vector>

// Listed files that nothing names: candidates for a warning, found without running a tool. Indices
// into the request's files; a file that is listed twice counts once.

namespace bfcl::component {

// Verilog files that have no module of the design and no package, interface or macro that a needed
// file names, includes that were not read, and data files that nobody names. Whether the tool
// agrees about the Verilog files, a run without them shows: they may have types and functions of no
// package.
[[nodiscard]] std::vector<std::size_t>
unneeded_files(const ElaborationRequest& request, const SealedTree& tree, const VerilatorRun& run);

// VHDL files whose units no needed file names, beginning with the top entity's, and other files
// that nobody names.
[[nodiscard]] std::vector<std::size_t> unneeded_vhdl_files(const ElaborationRequest& request,
                                                           const SealedTree& tree);

} // namespace bfcl::component
