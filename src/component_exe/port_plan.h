// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "design.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

// Decides what each port of a module is for, and how a wrapper calls the module.

namespace bfcl::component {

enum class Role {
  undecided,
  clock,
  reset,
  input,  // an argument
  output, // the result, or a part of it
  valid,  // of the direction that the port has
  ready,  // of the other one
  read,   // an input that asks for the next result, which is there a clock later
  start,  // an input that begins a call
  done,   // an output that ends it, and may stay high until the next call begins
  constant,
  open, // an output that nothing looks at
};

// How a user names the roles: each of ROLE_NAMES, for signals such as a reset or a valid also with
// ":low" or ":high" behind it, or the value of a constant.
extern const char* const ROLE_NAMES;

struct PortUse {
  Role role = Role::undecided;
  bool low = false;      // the signal is active while it is low
  std::string bits;      // of a constant, "0" and "1", the highest first
  std::string why;       // for people
  std::string component; // the component's port, for an input or output
  unsigned width = 0;    // bits of that port
  unsigned offset = 0;   // bits, of an output in the component's result
};

enum class Scheme {
  direct,   // the module is a component already
  stream,   // valid and ready on both sides are wired through
  call,     // one call at a time, whose inputs and result the wrapper keeps
  pipeline, // a result a fixed number of clocks after its word, never stopped
};

// A valid with its ready, both as indices of ports. At least one of the two is there.
struct Channel {
  std::optional<std::size_t> valid;
  std::optional<std::size_t> ready;
};

struct PortPlan {
  Scheme scheme = Scheme::call;
  unsigned latency = 0;        // clocks, of a pipeline
  std::vector<PortUse> uses;   // parallel to the design's ports
  std::vector<Channel> begins; // what a word of arguments is given through
  std::vector<Channel> ends;   // what a result is taken from
  std::string result;          // the component's output port
  unsigned result_width = 0;
  std::vector<Finding> problems; // questions and refusals; with any of them there is no plan

  // The first port of a role.
  [[nodiscard]] std::optional<std::size_t> find(Role role) const;
};

// What the user decided.
struct PortChoices {
  std::vector<std::pair<std::string, std::string>> roles; // of ports, by their names
  std::vector<std::string> undriven; // outputs, which are left open unless chosen
  std::optional<unsigned> latency;
  bool has_edges = true; // whether the RTL has logic that a clock's edge triggers
};

[[nodiscard]] PortPlan plan_ports(const Design& design, const PortChoices& choices);

// The bits of a constant: a decimal number, '0, '1, or a literal of Verilog such as 8'hFF. Empty
// when the text is none or needs more bits.
[[nodiscard]] std::string constant_bits(const std::string& text, unsigned width);

// The width of the narrowest OpenCL type, scalar or vector, that holds so many bits; 0 when none
// does.
[[nodiscard]] unsigned opencl_width(unsigned bits);

} // namespace bfcl::component
