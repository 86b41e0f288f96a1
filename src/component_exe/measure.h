// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "EFISpec.h"

#include <array>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// How many words a component holds, and how long a result takes: found out by a short simulation.

namespace bfcl::component {

struct MeasuredModule {
  std::string name;
  std::vector<std::pair<std::string, std::string>> parameters;       // name and value
  std::array<std::string, vex::efi::VRM_SIGNAL_NAME.size()> signals; // ports, by index
  std::vector<std::string> inputs;                                   // ports
  std::vector<std::string> files; // paths: Verilog in an order that works, includes, data
  std::string text;               // of one more Verilog file, or empty
};

struct Measurement {
  unsigned capacity = 0;           // words taken while no result is taken
  std::optional<unsigned> latency; // clocks from a word to its result; empty when it has none
};

// Simulates the module with words of zeros. Nothing when verilator is missing or fails, or when the
// module takes more than 4,096 words. Prints nothing.
[[nodiscard]] std::optional<Measurement> measure_module(const MeasuredModule& module);

} // namespace bfcl::component
