// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "design.h"

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// Finds out which sources a module needs.

namespace bfcl::component {

struct NewSources {
  std::vector<std::string> files;    // paths, in an order that works
  std::vector<std::string> notes;    // what was added and left out, a line each
  std::optional<Design> design;      // empty when the module does not elaborate
  std::vector<std::string> undriven; // outputs
  bool has_edges = true;             // whether one of the files has logic that an edge triggers
  std::map<std::string, std::string> vhdl_types; // of the ports, of VHDL only; see vhdl_types.h
};

// Elaborates a module from the files given and those beside them that it needs too. What keeps it
// from that, and from being packaged, is in the report. `folder` is where the description will be.
[[nodiscard]] NewSources
find_sources(const std::string& module, const std::vector<std::string>& files,
             const std::vector<std::pair<std::string, std::string>>& parameters,
             const std::string& folder, Report& report);

} // namespace bfcl::component
