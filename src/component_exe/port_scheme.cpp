// SPDX-License-Identifier: BSD-3-Clause
#include "component_names.h"
#include "port_planner.h"

#include <algorithm>

namespace bfcl::component {

void Planner::settle_scheme() {
  const bool has_clock = !with_role(Role::clock, Direction::input).empty();
  if (with_role(Role::output, Direction::output).empty()) {
    ask("no output is left for the result; --map PORT=output makes one of its outputs that");
  } else if (with_role(Role::input, Direction::input).empty()) {
    ask("no input is left for an argument, and a component has at least one; --map PORT=input "
        "makes "
        "one of its inputs that");
  } else if (!m_plan.problems.empty()) {
    return; // more would follow from them
  } else if (m_choices.latency.has_value()) {
    m_plan.scheme = Scheme::pipeline;
    m_plan.latency = *m_choices.latency;
  } else if (!has_clock && m_choices.has_edges) {
    ask("none of its ports looks like a clock; --clock PORT says which is, or --latency 0 that "
        "there "
        "is none");
  } else if (m_plan.begins.empty() && m_plan.ends.empty()) {
    m_plan.scheme = Scheme::pipeline;
    if (has_clock) {
      ask_for_latency();
    }
  } else {
    settle_calls();
  }
}

// Only the wrapper of one stream asks ahead.
void Planner::check_reads() {
  const Indices reads = with_role(Role::read, Direction::input);
  const bool fits = m_plan.scheme == Scheme::stream && m_plan.ends.size() == 1;
  if (m_plan.problems.empty() && !reads.empty() && !fits) {
    ask(reads[0], "'read' is for a queue: arguments have a valid and a ready, and one output says "
                  "that there is a result; --map " +
                      port(reads[0]).name + "=input makes it an argument");
  }
}

void Planner::ask_for_latency() {
  ask("none of its ports says when a result is valid; if it takes arguments in every clock and "
      "gives "
      "each result N clocks later, --latency N; if one of its ports begins a call and one ends it, "
      "--map PORT=start and --map PORT=done");
}

void Planner::settle_calls() {
  if (m_plan.begins.empty()) {
    Indices bits;
    for (const std::size_t index : with_role(Role::input, Direction::input)) {
      if (port(index).width == 1) {
        bits.push_back(index);
      }
    }
    ask("none of its inputs says that the arguments are valid; --map PORT=valid says which does, "
        "--map PORT=start if it begins a call" +
        (bits.empty() ? "" : " (" + list(bits) + ")") +
        "; --latency N if it takes arguments in every clock and gives each result N clocks later");
  } else if (m_plan.ends.empty()) {
    const Indices readies = with_role(Role::ready, Direction::output);
    readies.empty()
        ? ask_for_latency()
        : ask(readies[0], "no output says that a result is valid; --map " + port(readies[0]).name +
                              "=done" + (m_names[readies[0]].low ? ":low" : "") +
                              " if this one does, --map PORT=valid for another one");
  } else if (is_stream()) {
    m_plan.scheme = is_direct() ? Scheme::direct : Scheme::stream;
  } else if (m_plan.ends.size() > 1) {
    ask(*m_plan.ends[1].valid, "more than one output says that a result is valid; --map " +
                                   port(*m_plan.ends[1].valid).name +
                                   "=open leaves it out, --map " +
                                   port(*m_plan.ends[1].valid).name + "=output makes it a result");
  } else {
    m_plan.scheme = Scheme::call;
  }
}

// Whether the module is a component as it is.
bool Planner::is_direct() const {
  const Indices outputs = with_role(Role::output, Direction::output);
  if (m_plan.begins.size() != 1 || m_plan.ends.size() != 1 || outputs.size() != 1 ||
      m_design.find_port("clock") == nullptr || m_design.find_port("resetn") == nullptr) {
    return false;
  }
  for (std::size_t i = 0; i < m_names.size(); ++i) {
    const PortUse& one = m_plan.uses[i];
    const bool is_data = one.role == Role::input || one.role == Role::output;
    const bool fits =
        one.role == Role::clock   ? port(i).name == "clock"
        : one.role == Role::reset ? port(i).name == "resetn" && one.low
        : is_data ? opencl_width(port(i).width) == port(i).width && is_free_name(port(i).name)
                  : (one.role == Role::valid || one.role == Role::ready) && !one.low;
    if (!fits) {
      return false;
    }
  }
  return true;
}

} // namespace bfcl::component
