// SPDX-License-Identifier: BSD-3-Clause
#include "port_planner.h"

#include <algorithm>

namespace bfcl::component {

const char* const ROLE_NAMES =
    "clock, reset, input, output, valid, ready, read, start, done, open or a constant";

namespace {

constexpr RoleName ROLES[] = {
    {"clock", Role::clock, Direction::input, true},
    {"reset", Role::reset, Direction::input, true},
    {"input", Role::input, Direction::input, false},
    {"output", Role::output, Direction::output, false},
    {"valid", Role::valid, Direction::inout, true},
    {"ready", Role::ready, Direction::inout, true},
    {"read", Role::read, Direction::input, true},
    {"start", Role::start, Direction::input, true},
    {"done", Role::done, Direction::output, true},
    {"open", Role::open, Direction::inout, false},
};

const char* name_of(Direction direction) {
  return direction == Direction::input    ? "input"
         : direction == Direction::output ? "output"
                                          : "inout";
}

} // namespace

bool is_signal(Role role) {
  return std::any_of(std::begin(ROLES), std::end(ROLES),
                     [role](const RoleName& row) { return row.role == role && row.is_signal; });
}

void Planner::take_choice(const std::string& name, const std::string& choice) {
  const Port* found = m_design.find_port(name);
  if (found == nullptr) {
    problem("question", m_design.place, m_design.top + " has no port '" + name + "'");
    return;
  }
  const auto index = static_cast<std::size_t>(found - m_design.ports.data());
  const std::size_t colon = choice.find(':');
  const std::string role = choice.substr(0, colon);
  for (const RoleName& row : ROLES) {
    if (role == row.name) {
      take_role(index, row, colon == std::string::npos ? "" : choice.substr(colon + 1));
      return;
    }
  }
  take_constant(index, choice);
}

void Planner::take_role(std::size_t index, const RoleName& row, const std::string& level) {
  const std::string role = row.name;
  if (row.direction != Direction::inout && row.direction != port(index).direction) {
    ask(index, std::string("an ") + name_of(port(index).direction) + " cannot be '" + role + "'");
  } else if (row.role == Role::open && port(index).direction == Direction::input) {
    ask(index,
        "an input cannot be left open; give it a constant, as --map " + port(index).name + "=0");
  } else if (row.is_signal && port(index).width != 1) {
    ask(index,
        "has " + std::to_string(port(index).width) + " bits, which '" + role + "' cannot have");
  } else if (!level.empty() && (!row.is_signal || (level != "low" && level != "high"))) {
    ask(index, "only a signal of one bit is low or high, not '" + role + ":" + level + "'");
  } else {
    set(index, row.role, "as asked for");
    use(index).low = row.is_signal && (level.empty() ? row.role == Role::reset && m_names[index].low
                                                     : level == "low");
  }
}

void Planner::take_constant(std::size_t index, const std::string& value) {
  if (port(index).direction != Direction::input) {
    ask(index, "an output cannot be '" + value + "'; it can be " + ROLE_NAMES);
    return;
  }
  const std::string bits = constant_bits(value, port(index).width);
  if (bits.empty()) {
    ask(index, "'" + value + "' is no constant of " + std::to_string(port(index).width) +
                   " bits; a port can be " + ROLE_NAMES);
    return;
  }
  set(index, Role::constant, "as asked for");
  use(index).bits = bits;
}

void Planner::refuse_unfit() {
  for (std::size_t i = 0; i < m_names.size(); ++i) {
    if (use(i).role == Role::undecided ||
        (port(i).kind != PortKind::vector && use(i).role != Role::open)) {
      refuse_unfit(i);
    }
  }
}

void Planner::refuse_unfit(std::size_t index) {
  switch (port(index).kind) {
  case PortKind::array:
    refuse(index, "an unpacked array cannot be wired to a component; put a module around it whose "
                  "port is one vector");
    return;
  case PortKind::record:
  case PortKind::other:
    refuse(index, "its type is not made of bits alone; put a module around it whose ports are "
                  "vectors");
    return;
  case PortKind::interface:
    refuse(index, "an interface cannot be wired to a component; put a module around it whose ports "
                  "are vectors");
    return;
  case PortKind::vector:
    break;
  }
  const PortName& name = m_names[index];
  const std::string& own = port(index).name;
  if (port(index).direction == Direction::inout) {
    refuse(index, "an inout is for a pin of the device, which a component cannot have; --map " +
                      own + "=open leaves it unconnected");
  } else if (name.word == Word::bus) {
    refuse(index, std::string("belongs to ") + name.bus +
                      "; a component is called through a stream or a start signal: start from the "
                      "module behind the bus");
  } else if (name.word == Word::pin && port(index).width == 1) {
    const bool is_input = port(index).direction == Direction::input;
    ask(index,
        "looks like a pin of the device, which a component cannot have; --map " + own +
            (is_input ? "=input if it is an argument, --map " + own + "=1 to tie it"
                      : "=output if it is a result, --map " + own + "=open if it is not needed"));
  }
}

} // namespace bfcl::component
