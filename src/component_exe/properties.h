// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "description.h"
#include "harness.h"

#include <string>
#include <vector>

// What is proved of a component: which outputs of its harness stay low, and what to say of them.

namespace bfcl::component {

struct Property {
  const char* rule;   // an entry of RULES
  const char* output; // of the harness, high in a clock in which the property is broken
  std::size_t bit;    // of that output
  HarnessMode mode;
  Place place;              // of what the component breaks
  std::string claim;        // as in "CLAIM: proved"
  std::string fault_ovalid; // what is wrong, when ovalid is high in the last clock of the trace
  std::string fault;        // what is wrong otherwise
  std::vector<const char*> shown; // signals of the trace: of the handshake, or the classes below
  std::size_t clocks = 0;         // after reset that are looked at, at least
  bool is_filling = false;        // the output is high when the component is full for good, and
                                  // `held` says whether it should be; see decide_filling
};

// Classes of signals in Property::shown.
inline constexpr const char* SHOW_INPUTS = "inputs";
inline constexpr const char* SHOW_OUTPUT = "output";
inline constexpr const char* SHOW_MEMORY = "memory";     // of port Property::bit
inline constexpr const char* SHOW_REQUESTS = "requests"; // of every memory port

// The properties of a component, in the order in which they are reported.
[[nodiscard]] std::vector<Property> properties_of(const Description& description,
                                                  std::size_t component);

} // namespace bfcl::component
