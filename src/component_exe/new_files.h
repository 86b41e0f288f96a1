// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "measure.h"
#include "port_plan.h"

#include <string>
#include <utility>
#include <vector>

// The texts that `new` writes beside the wrapper.

namespace bfcl::component {

struct NewComponent {
  std::string function;
  std::string module;             // the wrapper, or the module itself
  std::string model;              // the name of the C model's file
  std::vector<std::string> files; // sources as the description names them, in order
  std::vector<std::pair<std::string, std::string>> parameters; // of `module`
  Measurement timing = {1, 1};                                 // of a component that can stall
};

// The description, with handshake attributes that are safe until better ones are known.
[[nodiscard]] std::string description_text(const Design& design, const PortPlan& plan,
                                           const NewComponent& component);

// The port of a handshake signal: a wrapper's has the signal's name.
[[nodiscard]] std::string signal_port(const Design& design, const PortPlan& plan,
                                      const std::string& signal);

// The prototype of the OpenCL function, with an empty body that says what to write there.
[[nodiscard]] std::string prototype_text(const Design& design, const PortPlan& plan,
                                         const NewComponent& component);

} // namespace bfcl::component
