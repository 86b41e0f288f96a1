// SPDX-License-Identifier: BSD-3-Clause
#include "port_plan.h"

#include "component_names.h"
#include "port_planner.h"

#include <algorithm>

namespace bfcl::component {

PortPlan Planner::plan() {
  for (const auto& [port, role] : m_choices.roles) {
    take_choice(port, role);
  }
  for (std::size_t i = 0; i < m_names.size(); ++i) {
    if (use(i).role == Role::undecided &&
        std::count(m_choices.undriven.begin(), m_choices.undriven.end(), port(i).name) != 0) {
      set(i, Role::open, "nothing drives it");
    }
  }
  refuse_unfit();
  if (m_plan.problems.empty()) {
    settle_clock();
    settle_resets();
    settle_handshake();
    settle_rest();
    settle_scheme();
    check_reads();
  }
  if (m_plan.problems.empty()) {
    name_component_ports(m_design, m_plan);
  }
  return std::move(m_plan);
}

void Planner::settle_clock() {
  Indices clocks = named(Word::clock, Direction::input);
  const Indices chosen = with_role(Role::clock, Direction::input);
  if (clocks.size() + chosen.size() < 2) {
    set_all(clocks, Role::clock, "its name");
    return;
  }
  for (const std::size_t index : clocks) {
    ask(index, "a component has one clock, and " + list(chosen.empty() ? clocks : chosen) +
                   (chosen.empty() ? " look like clocks" : " is it") + "; --map " +
                   port(index).name + "=clock connects it, --map " + port(index).name +
                   "=input makes it an argument");
  }
}

void Planner::settle_resets() {
  set_all(named(Word::reset, Direction::input), Role::reset, "its name");
  const Indices clears = named(Word::clear, Direction::input);
  const bool has_reset = !with_role(Role::reset, Direction::input).empty();
  for (const std::size_t index : clears) {
    if (!has_reset && clears.size() == 1) {
      set(index, Role::reset, "its name, and nothing else is a reset");
    } else {
      tie(index, m_names[index].low ? '1' : '0', "by its name a second reset: never active");
    }
  }
}

// Without a clock a valid or an enable is a value like any other, unless words are stopped too; and
// so is the valid of a result of which a number of clocks says when it comes.
void Planner::settle_handshake() {
  const std::vector<PortUse> before = m_plan.uses;
  const std::size_t problems = m_plan.problems.size();
  settle_begin();
  settle_ends();
  settle_readies();
  const bool has_logic = m_choices.has_edges || !with_role(Role::clock, Direction::input).empty();
  const bool is_pipeline = m_choices.latency.has_value() && m_plan.begins.empty();
  if (is_pipeline || (!has_logic && !is_stream())) {
    m_plan.uses = before;
    m_plan.begins.clear();
    m_plan.ends.clear();
    m_plan.problems.resize(problems);
    for (PortName& name : m_names) {
      const bool is_value = name.word == Word::valid || name.word == Word::ready ||
                            name.word == Word::start || name.word == Word::done;
      name.word = is_value ? Word::data : name.word;
    }
  }
}

// Whether every word has a valid and a ready.
bool Planner::is_stream() const {
  const auto is_full = [](const Channel& channel) { return channel.ready.has_value(); };
  return !m_plan.begins.empty() && !m_plan.ends.empty() &&
         std::all_of(m_plan.begins.begin(), m_plan.begins.end(), is_full) &&
         std::all_of(m_plan.ends.begin(), m_plan.ends.end(), is_full) &&
         with_role(Role::start, Direction::input).empty() &&
         with_role(Role::done, Direction::output).empty();
}

void Planner::settle_begin() {
  const Indices valids = named(Word::valid, Direction::input);
  const Indices starts = named(Word::start, Direction::input);
  const Indices chosen_starts = with_role(Role::start, Direction::input);
  const bool chosen = !chosen_starts.empty() || !with_role(Role::valid, Direction::input).empty();
  if (starts.size() + (valids.empty() ? 0U : 1U) + (chosen ? 1U : 0U) < 2 ||
      (starts.empty() && chosen_starts.empty())) {
    set_all(valids, Role::valid, "its name");
    set_all(starts, Role::start, "its name");
    if (!chosen && valids.empty() && starts.empty()) {
      settle_weak_begin();
    }
    return;
  }
  Indices all = starts;
  all.insert(all.end(), valids.begin(), valids.end());
  for (const std::size_t index : all) {
    const std::string own = "--map " + port(index).name;
    ask(index, std::string("more than one port may begin a call; ")
                   .append(own)
                   .append("=start if it is this one, ")
                   .append(own)
                   .append("=input if it is an argument, ")
                   .append(own)
                   .append("=0 or 1 to tie it"));
  }
}

// Without a valid or start, an enable or the write of a queue begins a call if something is said
// about the call's course.
void Planner::settle_weak_begin() {
  Indices ends = named(Word::valid, Direction::output);
  for (const Word word : {Word::done, Word::ready}) {
    const Indices more = named(word, Direction::output);
    ends.insert(ends.end(), more.begin(), more.end());
  }
  for (const Role role : {Role::valid, Role::done, Role::ready}) {
    const Indices more = with_role(role, Direction::output);
    ends.insert(ends.end(), more.begin(), more.end());
  }
  if (ends.empty()) {
    return;
  }
  for (const Word word : {Word::write, Word::read, Word::enable}) {
    const Indices found = named(word, Direction::input);
    const bool of_queue = word == Word::read && !named(Word::write, Direction::input).empty();
    if (found.size() == 1 && !of_queue) {
      set(found[0], Role::valid, "its name, and nothing else begins a call");
      return;
    }
  }
}

void Planner::settle_ends() {
  const Indices valids = named(Word::valid, Direction::output);
  const Indices dones = named(Word::done, Direction::output);
  const bool starts = !with_role(Role::start, Direction::input).empty();
  if (!with_role(Role::valid, Direction::output).empty() ||
      !with_role(Role::done, Direction::output).empty()) {
    return; // the user's choice is whole
  }
  if (!dones.empty() && (starts || valids.empty())) {
    if (dones.size() > 1) {
      ask(dones[0], "more than one port may end a call: " + list(dones) +
                        "; --map PORT=done says "
                        "which does");
    }
    set_all(dones, Role::done, "its name");
    return;
  }
  set_all(valids, starts ? Role::done : Role::valid, "its name");
  const Indices readies = named(Word::ready, Direction::output);
  if (starts && valids.empty() && dones.empty() && !readies.empty()) {
    set(readies[0], Role::done, "its name, and nothing else ends a call");
    for (std::size_t i = 1; i < readies.size(); ++i) {
      set(readies[i], Role::open, port(readies[0]).name + " says the same");
    }
  }
}

void Planner::settle_readies() {
  settle_reads();
  const Indices outputs = named(Word::ready, Direction::output);
  for (const std::size_t index : outputs) {
    // An idle may fall with the start itself; a ready does not.
    const bool is_idle = port(index).name.find("idle") != std::string::npos;
    set(index, is_idle && outputs.size() > 1 ? Role::open : Role::ready,
        is_idle && outputs.size() > 1 ? "another port says when it is ready" : "its name");
  }
  m_plan.begins = channels(Direction::input, Role::start);
  const Indices readies = named(Word::ready, Direction::input);
  const bool has_end = !with_role(Role::valid, Direction::output).empty() ||
                       !with_role(Role::done, Direction::output).empty();
  for (const std::size_t index : readies) {
    if (has_end) {
      set(index, Role::ready, "its name");
    } else if (m_names[index].low) {
      tie(index, '0', "by its name it stops the module: never");
    } else {
      ask(index, "takes the result, but no output says when there is one; --map PORT=valid says "
                 "which does, --map " +
                     port(index).name + "=1 ties it");
    }
  }
  m_plan.ends = channels(Direction::output, Role::done);
}

// A queue's "read" either takes the word that is shown or asks for the next one.
void Planner::settle_reads() {
  const Indices reads = named(Word::read, Direction::input);
  const Indices valids = with_role(Role::valid, Direction::output);
  if (reads.size() != 1 || valids.size() != 1 || !m_names[valids[0]].low ||
      !with_role(Role::ready, Direction::input).empty() ||
      !with_role(Role::read, Direction::input).empty()) {
    return;
  }
  ask(reads[0], "does " + port(valids[0]).name + " fall when a word is shown, which " +
                    port(reads[0]).name + " then takes (first word fall through)? If so, --map " +
                    port(reads[0]).name + "=ready; if the word is shown only in the clock after " +
                    port(reads[0]).name + ", --map " + port(reads[0]).name + "=read");
}

// Pairs the valids of a direction with their readies: by what their names share, and one with one
// in any case. What is left without a partner and is no valid is left open or tied.
std::vector<Channel> Planner::channels(Direction direction, Role other) {
  const bool begins = direction == Direction::input;
  const Direction back = begins ? Direction::output : Direction::input;
  Indices valids = with_role(Role::valid, direction);
  const Indices others = with_role(other, direction);
  valids.insert(valids.end(), others.begin(), others.end());
  Indices readies = with_role(Role::ready, back);
  const Indices reads = with_role(Role::read, back);
  readies.insert(readies.end(), reads.begin(), reads.end());
  std::vector<Channel> result;
  for (const std::size_t valid : valids) {
    const auto partner = std::find_if(readies.begin(), readies.end(), [&](std::size_t ready) {
      return m_names[ready].stem == m_names[valid].stem;
    });
    Channel channel;
    channel.valid = valid;
    if (partner != readies.end()) {
      channel.ready = *partner;
      readies.erase(partner);
    }
    result.push_back(channel);
  }
  for (Channel& channel : result) {
    if (!channel.ready.has_value() && readies.size() == 1) {
      channel.ready = readies[0]; // shared by those that have none of their own
    }
  }
  const bool shared =
      readies.size() == 1 && std::any_of(result.begin(), result.end(), [&](const Channel& channel) {
        return channel.ready == readies[0];
      });
  for (const std::size_t left : shared ? Indices() : readies) {
    if (begins && (valids.size() == 1 || valids.empty())) {
      set(left, Role::open,
          valids.empty() ? "nothing asks for it" : "another port says when a word is taken");
    } else if (begins) {
      ask(left, "which valid does it belong to? --map " + port(left).name + "=open leaves it out");
    } else {
      tie(left, m_names[left].low ? '0' : '1', "the result is always taken");
    }
  }
  return result;
}

void Planner::settle_rest() {
  for (std::size_t i = 0; i < m_names.size(); ++i) {
    if (use(i).role == Role::undecided) {
      port(i).direction == Direction::input ? settle_input(i) : settle_output(i);
    }
  }
}

void Planner::settle_input(std::size_t index) {
  const PortName& name = m_names[index];
  const bool is_bit = port(index).width == 1;
  if (name.word == Word::enable && is_bit) {
    tie(index, name.low ? '0' : '1', "by its name an enable: always");
  } else if (name.word == Word::test) {
    tie(index, name.low ? '1' : '0', "by its name for tests of the chip: never");
  } else if (name.word == Word::mark && is_bit) {
    tie(index, '1', "by its name a mark of packets: each word is one");
  } else if (name.word == Word::mask) {
    tie(index, '1', "by its name the bytes that count: all");
  } else if (name.word == Word::side) {
    tie(index, '0', "by its name beside the data: nothing");
  } else {
    set(index, Role::input, "an argument");
  }
}

void Planner::settle_output(std::size_t index) {
  const PortName& name = m_names[index];
  const bool of_queue = std::any_of(m_plan.ends.begin(), m_plan.ends.end(),
                                    [&](const Channel& end) { return m_names[*end.valid].low; });
  if (name.word == Word::mark || name.word == Word::mask || name.word == Word::side) {
    set(index, Role::open, "by its name beside the data");
  } else if (name.word == Word::status && of_queue) {
    set(index, Role::open, "by its name the state of a queue");
  } else if (name.word == Word::done && port(index).width == 1 && !m_plan.ends.empty()) {
    set(index, Role::open, "another port says that the result is valid");
  } else {
    set(index, Role::output, "the result");
  }
}

std::optional<std::size_t> PortPlan::find(Role role) const {
  const auto found = std::find_if(uses.begin(), uses.end(),
                                  [role](const PortUse& one) { return one.role == role; });
  return found == uses.end() ? std::nullopt
                             : std::optional(static_cast<std::size_t>(found - uses.begin()));
}

PortPlan plan_ports(const Design& design, const PortChoices& choices) {
  return Planner(design, choices).plan();
}

} // namespace bfcl::component
