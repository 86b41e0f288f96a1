// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "EFISpec.h"
#include "port_plan.h"

#include <set>
#include <string>

// What the parts of a component that a module is made into are called.

namespace bfcl::component {

// Names that are taken in one place. Letter case does not count, as in VHDL.
class Names {
public:
  // The name, or the first of NAME_1, NAME_2, … that is not taken; it is from now on.
  std::string take(const std::string& name);

private:
  std::set<std::string> m_taken; // in lower case
};

// Whether a component's port can have a module's port's name: OpenCL C has another use for it, or
// the handshake.
[[nodiscard]] bool is_free_name(const std::string& name);

// The OpenCL function of a module: its name, unless OpenCL C has another use for that.
[[nodiscard]] std::string function_name(const std::string& module);

// Gives each argument and the result a name and the width of an OpenCL type, and each output its
// place in the result, on a byte. What does not fit into a type is a problem of the plan.
void name_component_ports(const Design& design, PortPlan& plan);

} // namespace bfcl::component
