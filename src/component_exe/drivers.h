// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "finding.h"

#include <map>
#include <set>
#include <string>
#include <vector>

// What drives the signals of an elaborated design. The tools say which signals nothing drives; an
// output that gets its value from one is not driven either, however far away the signal is.

namespace bfcl::component {

// Where the value of a signal comes from: an assignment, a gate, a register.
struct SignalDriver {
  std::string target;
  std::vector<std::string> values;     // the signals that it is computed from; none: a constant
  std::vector<std::string> conditions; // the signals that choose when, and which value
  bool is_copy = false;                // whether the target is one whole signal and nothing else
};

struct InstancePin {
  std::string port;
  bool is_output = false;
  bool is_open = false;             // connected to nothing
  std::vector<std::string> signals; // of the module around it; none for a constant
};

struct ModuleInstance {
  std::string module;
  std::vector<InstancePin> pins;
};

struct ModuleDrivers {
  std::string name;
  std::map<std::string, Place> signals;     // where each is declared, as far as is known
  std::map<std::string, std::string> names; // for people, of signals that the tool calls otherwise
  std::set<std::string> undriven;           // signals that are no more than that
  std::vector<SignalDriver> drivers;
  std::vector<ModuleInstance> instances;
};

// A signal that nothing drives, as a tool reports it.
struct UndrivenSignal {
  std::string name;
  Place place;
  std::string bits; // "[7:4]" when only these are not driven
};

// What follows for the outputs of the top module.
struct UndrivenOutputs {
  UndrivenSignal cause;
  bool is_value = false; // the outputs have no other value; else they may depend on it
  std::vector<std::string> outputs;
};

// The outputs among `outputs` that get their value from a signal that nothing drives, and those
// that depend on one as far as the top module shows: an instance may pass each input to each
// output. An output that is such a signal itself is the cause with its own name.
[[nodiscard]] std::vector<UndrivenOutputs>
trace_undriven(const std::vector<ModuleDrivers>& modules, const std::string& top,
               const std::vector<std::string>& outputs,
               const std::vector<UndrivenSignal>& undriven);

// Reports them by the rule port-undriven; `place` gives the place of an output.
void report_undriven(const std::vector<UndrivenOutputs>& found,
                     const std::map<std::string, Place>& places, Report& report);

} // namespace bfcl::component
