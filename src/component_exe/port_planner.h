// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "port_names.h"
#include "port_plan.h"

#include <string>
#include <utility>
#include <vector>

namespace bfcl::component {

struct RoleName {
  const char* name;
  Role role;
  Direction direction; // that the port must have; inout for any
  bool is_signal;      // one bit, active high or low
};

// Whether a role is that of a signal of one bit.
[[nodiscard]] bool is_signal(Role role);

using Indices = std::vector<std::size_t>; // of ports

// Gives the ports their roles: what the user chose first, then what their names say, and what is
// left last. port_choices.cpp has the user's choices and the ports that none can have,
// port_plan.cpp the names, port_scheme.cpp how the module is called.
class Planner {
public:
  Planner(const Design& design, const PortChoices& choices) : m_design(design), m_choices(choices) {
    m_plan.uses.resize(design.ports.size());
    for (const Port& port : design.ports) {
      m_names.push_back(read_port_name(port.name, port.direction));
    }
  }

  PortPlan plan();

private:
  const Port& port(std::size_t index) const { return m_design.ports[index]; }
  PortUse& use(std::size_t index) { return m_plan.uses[index]; }

  void problem(const char* rule, const Place& place, std::string text) {
    m_plan.problems.push_back({place, Severity::error, rule, std::move(text)});
  }
  void ask(std::size_t index, const std::string& text) {
    problem("question", port(index).place, port(index).name + ": " + text);
  }
  void ask(const std::string& text) {
    problem("question", m_design.place, m_design.top + ": " + text);
  }
  void refuse(std::size_t index, const std::string& text) {
    problem("unfit", port(index).place, port(index).name + ": " + text);
  }

  void set(std::size_t index, Role role, std::string why) {
    use(index).role = role;
    use(index).why = std::move(why);
    use(index).low = is_signal(role) && m_names[index].low;
  }
  void tie(std::size_t index, char bit, std::string why) {
    set(index, Role::constant, std::move(why));
    use(index).bits.assign(port(index).width, bit);
  }
  void set_all(const Indices& indices, Role role, const std::string& why) {
    for (const std::size_t index : indices) {
      set(index, role, why);
    }
  }

  // The ports of a direction that are undecided yet and that their names say are this.
  Indices named(Word word, Direction direction) const {
    Indices found;
    for (std::size_t i = 0; i < m_names.size(); ++i) {
      if (m_plan.uses[i].role == Role::undecided && m_names[i].word == word &&
          port(i).direction == direction && port(i).width == 1) {
        found.push_back(i);
      }
    }
    return found;
  }
  Indices with_role(Role role, Direction direction) const {
    Indices found;
    for (std::size_t i = 0; i < m_names.size(); ++i) {
      if (m_plan.uses[i].role == role && port(i).direction == direction) {
        found.push_back(i);
      }
    }
    return found;
  }
  std::string list(const Indices& indices) const {
    std::string text;
    for (const std::size_t index : indices) {
      text += (text.empty() ? "" : ", ") + port(index).name;
    }
    return text;
  }

  void take_choice(const std::string& name, const std::string& choice);
  void take_role(std::size_t index, const RoleName& row, const std::string& level);
  void take_constant(std::size_t index, const std::string& value);
  void refuse_unfit();
  void refuse_unfit(std::size_t index);
  void settle_clock();
  void settle_resets();
  void settle_handshake();
  [[nodiscard]] bool is_stream() const;
  void settle_begin();
  void settle_weak_begin();
  void settle_ends();
  void settle_readies();
  void settle_reads();
  void settle_rest();
  void settle_input(std::size_t index);
  void settle_output(std::size_t index);
  void settle_scheme();
  void settle_calls();
  void check_reads();
  void ask_for_latency();
  bool is_direct() const;
  std::vector<Channel> channels(Direction direction, Role other);

  const Design& m_design;
  const PortChoices& m_choices;
  std::vector<PortName> m_names;
  PortPlan m_plan;
};

} // namespace bfcl::component
