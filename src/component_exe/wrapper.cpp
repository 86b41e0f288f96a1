// SPDX-License-Identifier: BSD-3-Clause
#include "wrapper.h"

#include <algorithm>

namespace bfcl::component {

namespace {

class Wrapper {
public:
  Wrapper(const Design& design, const PortPlan& plan, HdlText& text)
      : m_design(design), m_plan(plan), m_text(text),
        m_has_reset(plan.find(Role::reset).has_value()), m_uses_resetn(m_has_reset) {}

  std::string write();

private:
  const Port& port(std::size_t index) const { return m_design.ports[index]; }

  void drive(std::size_t index, const std::string& active) {
    m_text.drive(port(index), m_plan.uses[index].low ? m_text.negated(active) : active);
  }
  // What the module says, high when active. A port may be asked more than once.
  std::string active(std::size_t index) {
    std::string& value = m_read[index];
    if (value.empty()) {
      value = m_text.read(port(index));
    }
    return m_plan.uses[index].low ? m_text.negated(value) : value;
  }
  std::string flag(const std::string& name) {
    std::string free = m_text.free_name(name);
    m_text.declare(free, 1);
    return free;
  }
  // Words in a reset do not count; a module without a reset must not see them.
  std::string guarded(const std::string& valid) {
    m_uses_resetn = true;
    return m_has_reset ? valid : m_text.both(valid, "resetn");
  }
  void unused(const std::string& value) { m_unused.push_back(value); }

  void take_names();
  void drive_fixed();
  void drive_arguments(const std::string& when);
  std::string read_result();
  std::vector<std::size_t> begin_readies() const;
  std::string begin(const std::string& valid);
  std::string fork(const std::vector<std::size_t>& readies, const std::string& valid);
  std::string read_ahead(const Channel& end);
  void stream();
  std::string ends_at_once(const std::string& asked, const std::string& taken,
                           const std::string& calling, const std::string& done,
                           const std::string& ends);
  void call();
  void pipeline();
  void leave_rest_open();
  std::vector<WrapperPort> ports() const;

  const Design& m_design;
  const PortPlan& m_plan;
  HdlText& m_text;
  bool m_has_reset;
  bool m_uses_resetn;
  bool m_uses_clock = false;
  std::map<std::size_t, std::string> m_read; // values of the module's outputs
  std::vector<std::string> m_unused;
};

std::string Wrapper::write() {
  take_names();
  drive_fixed();
  if (m_plan.scheme == Scheme::stream) {
    stream();
  } else if (m_plan.scheme == Scheme::call) {
    call();
  } else {
    pipeline();
  }
  leave_rest_open();
  if (!m_uses_clock) {
    unused("clock");
  }
  if (!m_uses_resetn) {
    unused("resetn");
  }
  return m_text.text(m_design.top + " as a component: " + describe(m_plan.scheme), ports(),
                     m_unused);
}

void Wrapper::take_names() {
  for (const WrapperPort& one : ports()) {
    m_text.free_name(one.name);
  }
}

std::vector<WrapperPort> Wrapper::ports() const {
  std::vector<WrapperPort> ports = {{"clock", 1, true},   {"resetn", 1, true},
                                    {"ivalid", 1, true},  {"iready", 1, false},
                                    {"ovalid", 1, false}, {"oready", 1, true}};
  for (const PortUse& use : m_plan.uses) {
    if (use.role == Role::input) {
      ports.push_back({use.component, use.width, true});
    }
  }
  ports.push_back({m_plan.result, m_plan.result_width, false});
  return ports;
}

void Wrapper::drive_fixed() {
  for (std::size_t i = 0; i < m_plan.uses.size(); ++i) {
    if (m_plan.uses[i].role == Role::clock) {
      drive(i, "clock");
      m_uses_clock = true;
    } else if (m_plan.uses[i].role == Role::reset) {
      // By a signal of its own: the module may use it asynchronously, the wrapper does not.
      const std::string reset = flag("core_" + port(i).name);
      m_text.assign(reset, m_plan.uses[i].low ? "resetn" : m_text.negated("resetn"));
      m_text.drive(port(i), reset);
    } else if (m_plan.uses[i].role == Role::constant) {
      m_text.drive(port(i), m_text.literal(m_plan.uses[i].bits));
    }
  }
}

// The module sees the arguments themselves, or what they were in the clock of `when`.
void Wrapper::drive_arguments(const std::string& when) {
  for (std::size_t i = 0; i < m_plan.uses.size(); ++i) {
    const PortUse& use = m_plan.uses[i];
    if (use.role != Role::input) {
      continue;
    }
    std::string value = m_text.low_bits(use.component, port(i).width, use.width);
    if (!when.empty()) {
      const std::string held = m_text.free_name(use.component + "_held");
      m_text.declare(held, port(i).width);
      m_text.hold(held, value, when);
      value = held;
    }
    m_text.drive(port(i), value);
    if (port(i).width < use.width) {
      unused(use.component);
    }
  }
}

// The outputs at their places, with zeros between and above.
std::string Wrapper::read_result() {
  std::vector<HdlValue> parts;
  unsigned end = 0;
  const auto fill_to = [&](unsigned bit) {
    if (bit > end) {
      parts.insert(parts.begin(), {m_text.literal(std::string(bit - end, '0')), bit - end});
    }
  };
  for (std::size_t i = 0; i < m_plan.uses.size(); ++i) {
    if (m_plan.uses[i].role == Role::output) {
      fill_to(m_plan.uses[i].offset);
      parts.insert(parts.begin(), {m_text.read(port(i)), port(i).width});
      end = m_plan.uses[i].offset + port(i).width;
    }
  }
  fill_to(m_plan.result_width);
  return m_text.joined(parts);
}

std::vector<std::size_t> Wrapper::begin_readies() const {
  std::vector<std::size_t> readies;
  for (const Channel& begin : m_plan.begins) {
    if (begin.ready.has_value() &&
        std::find(readies.begin(), readies.end(), *begin.ready) == readies.end()) {
      readies.push_back(*begin.ready);
    }
  }
  return readies;
}

// Offers a word to the module while `valid` is high. The value says when it is taken whole; it is
// empty if the module always takes it.
std::string Wrapper::begin(const std::string& valid) {
  const std::vector<std::size_t> readies = begin_readies();
  if (readies.size() > 1) {
    return fork(readies, valid);
  }
  for (const Channel& begin : m_plan.begins) {
    drive(*begin.valid, valid);
  }
  return readies.empty() ? "" : active(readies[0]);
}

std::string Wrapper::fork(const std::vector<std::size_t>& readies, const std::string& valid) {
  std::string taken = flag("taken");
  std::map<std::size_t, std::string> sent; // by the index of the ready
  std::string all;
  m_text.comment("Each channel takes its part of a word once.");
  for (const std::size_t ready : readies) {
    const std::string has_sent = sent[ready] = flag("sent_" + std::to_string(sent.size()));
    const std::string ends = m_text.both(valid, active(ready));
    m_text.flag(has_sent, m_text.both(ends, m_text.negated(taken)), taken);
    const std::string missing =
        m_text.both(m_text.negated(has_sent), m_text.negated(active(ready)));
    all = all.empty() ? m_text.negated(missing) : m_text.both(all, m_text.negated(missing));
  }
  m_text.assign(taken, all);
  for (const Channel& begin : m_plan.begins) {
    drive(*begin.valid, m_text.both(valid, m_text.negated(sent[begin.ready.value_or(readies[0])])));
  }
  m_uses_clock = m_uses_resetn = true;
  return taken;
}

// Asks for the next result while none waits; the value says when one is there.
std::string Wrapper::read_ahead(const Channel& end) {
  const std::string has_next = active(*end.valid);
  std::string shown = flag("shown");
  m_text.comment("The module shows a result in the clock after it was asked for.");
  m_text.flag(shown, has_next, m_text.both("oready", m_text.negated(has_next)));
  drive(*end.ready, m_text.both(has_next, m_text.either(m_text.negated(shown), "oready")));
  m_uses_clock = m_uses_resetn = true;
  return shown;
}

void Wrapper::stream() {
  m_text.assign("iready", begin(guarded("ivalid")));
  if (m_plan.uses[*m_plan.ends[0].ready].role == Role::read) {
    m_text.assign("ovalid", read_ahead(m_plan.ends[0]));
  } else {
    std::string all;
    for (const Channel& end : m_plan.ends) {
      all = all.empty() ? active(*end.valid) : m_text.both(all, active(*end.valid));
    }
    m_text.assign("ovalid", all);
    for (const Channel& end : m_plan.ends) {
      drive(*end.ready, m_plan.ends.size() == 1 ? "oready" : m_text.both("oready", all));
    }
  }
  drive_arguments("");
  m_text.assign(m_plan.result, read_result());
}

// When a call may end in the clock in which the module takes it; empty for never. A done may still
// be high from the call before, unless it was low while the module was asked.
std::string Wrapper::ends_at_once(const std::string& asked, const std::string& taken,
                                  const std::string& calling, const std::string& done,
                                  const std::string& ends) {
  if (m_plan.uses[*m_plan.ends[0].valid].role == Role::valid) {
    return asked;
  }
  if (taken.empty()) {
    return "";
  }
  const std::string was_low = flag("done_was_low");
  m_text.flag(was_low, m_text.both(calling, m_text.negated(done)), ends);
  return m_text.both(asked, was_low);
}

void Wrapper::call() {
  const std::string idle = flag("idle");
  const std::string begins = flag("begins");
  const std::string calling = flag("calling");
  const std::string running = flag("running");
  const std::string finished = flag("finished");
  const std::string ends = flag("ends");
  m_uses_clock = m_uses_resetn = true;

  m_text.comment("One call at a time: from its word until its result is taken.");
  const std::string waits = m_text.either(calling, m_text.either(running, finished));
  m_text.assign(idle, m_text.negated(waits));
  m_text.assign(begins, m_text.both("ivalid", idle));
  m_text.assign("iready", idle);
  m_text.assign("ovalid", finished);
  drive_arguments(begins);

  const std::string taken = begin(calling);
  const std::string asked = taken.empty() ? calling : m_text.both(calling, taken);
  const std::string done = active(*m_plan.ends[0].valid);
  m_text.comment("What the module is asked, and that it has answered.");
  const std::string at_once = ends_at_once(asked, taken, calling, done, ends);
  m_text.assign(ends,
                m_text.both(done, at_once.empty() ? running : m_text.either(running, at_once)));
  m_text.flag(calling, begins, taken);
  m_text.flag(running, at_once.empty() ? asked : m_text.both(asked, m_text.negated(ends)), ends);
  m_text.flag(finished, ends, "oready");
  if (m_plan.ends[0].ready.has_value()) {
    drive(*m_plan.ends[0].ready, m_text.literal("1"));
  }
  const std::string result = m_text.free_name(m_plan.result + "_held");
  m_text.declare(result, m_plan.result_width);
  m_text.hold(result, read_result(), ends);
  m_text.assign(m_plan.result, result);
}

void Wrapper::pipeline() {
  m_text.assign("iready", m_text.literal("1"));
  unused("oready");
  const bool has_end = !m_plan.ends.empty();
  if (!m_plan.begins.empty()) {
    for (const Channel& begin : m_plan.begins) {
      drive(*begin.valid, guarded("ivalid"));
    }
  }
  for (const Channel& end : m_plan.ends) {
    if (end.ready.has_value()) {
      drive(*end.ready, m_text.literal("1"));
    }
  }
  if (has_end && m_has_reset && !m_plan.begins.empty()) {
    m_text.assign("ovalid", active(*m_plan.ends[0].valid));
  } else if (m_plan.latency == 0) {
    m_text.assign("ovalid", "ivalid");
  } else {
    const std::string valid = m_text.free_name("valid");
    m_text.declare(valid, m_plan.latency);
    m_text.comment("The valid bits of the words in flight.");
    m_text.shift(valid, m_plan.latency, "ivalid");
    m_text.assign("ovalid", m_text.high_bit(valid, m_plan.latency));
    m_uses_clock = m_uses_resetn = true;
  }
  drive_arguments("");
  m_text.assign(m_plan.result, read_result());
}

void Wrapper::leave_rest_open() {
  for (std::size_t i = 0; i < m_plan.uses.size(); ++i) {
    const bool is_output = port(i).direction == Direction::output;
    if (is_output && m_read.find(i) == m_read.end() && m_plan.uses[i].role != Role::output) {
      m_text.leave_open(port(i));
    }
  }
}

} // namespace

const char* describe(Scheme scheme) {
  switch (scheme) {
  case Scheme::direct:
  case Scheme::stream:
    return "its own handshake, wired through";
  case Scheme::call:
    return "one call at a time, whose arguments and result are held";
  case Scheme::pipeline:
    break;
  }
  return "a pipeline that never stops";
}

std::string wrapper_text(const Design& design, const PortPlan& plan, HdlText& text) {
  return Wrapper(design, plan, text).write();
}

} // namespace bfcl::component
