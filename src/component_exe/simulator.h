// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "calls.h"
#include "description.h"

#include <map>
#include <string>

namespace bfcl::component {

struct RuntimeObjects;

struct SimulationOptions {
  std::size_t vectors = 10000;
  std::uint64_t seed = 1;
  std::map<std::string, Range> ranges; // by port
  std::string waves;                   // the FST file to write, or empty
};

// Simulates the RTL of component `index` of a description against its C model: the findings of
// check, if it has any, or else those of the simulation; without any, a note with the number of
// calls. Says on a terminal what takes so long.
void simulate_component(const Description& description, std::size_t index,
                        const SimulationOptions& options, RuntimeObjects& objects, Report& report);

} // namespace bfcl::component
