// SPDX-License-Identifier: BSD-3-Clause
#include "ghdl_output.h"

#include "rtl_text.h"

#include <algorithm>
#include <sstream>
#include <string_view>
#include <utility>

// The netlist that `--synth --out=raw` prints is a list of statements for each module. A value is
// defined where it is used first, so that they nest:
//   \sum:$o{n3w8} := $signal{i7} (
//     .$i{p4}: %9:$q{n8w8} := $dff{i5} (
//       .$clk{p2}: \clock{n1w1},
//       .$d{p3}: \word{n2w8}))
//   (\x:\y{n15w1}, \x:\z{n16w4}) := \sub{i15} (
//     .\a{p20}: \a{n2w1})
//   \total := \sum:$o{n3w8}

namespace bfcl::component {

namespace {

constexpr unsigned MAX_DEPTH = 1000; // of values in values

class StatementReader {
public:
  StatementReader(const std::string& text, ModuleDrivers& module)
      : m_text(text), m_module(module) {}

  void run() {
    std::vector<std::string> targets;
    if (take("(")) {
      do {
        targets.push_back(word());
      } while (take(", "));
      take(")");
    } else {
      targets.push_back(word());
    }
    if (take(" := ")) {
      define(targets, 0);
    }
  }

private:
  struct Cell {
    std::string name; // "$dff", or "\sub" of an instance
    std::vector<InstancePin> pins;
  };

  bool take(std::string_view text) {
    const bool is_there = m_text.compare(m_at, text.size(), text) == 0;
    m_at += is_there ? text.size() : 0;
    return is_there;
  }

  void skip_blanks() { m_at = std::min(m_text.find_first_not_of(" \n", m_at), m_text.size()); }

  std::string word() {
    const std::size_t end = std::min(m_text.find_first_of(" ,()[\n", m_at), m_text.size());
    std::string found = m_text.substr(m_at, end - m_at);
    m_at = end;
    return found;
  }

  // The signal that a word refers to: "{n8w8}" of a value, the name of a port; or empty.
  std::string signal_of(const std::string& word) {
    const std::size_t brace = word.rfind("{n");
    const std::size_t colon = word.find(':');
    if (brace == std::string::npos || colon == std::string::npos) {
      return word.starts_with('\\') ? lower_case(word.substr(1, brace - 1)) : "";
    }
    const bool is_named = word.starts_with('\\') && word.compare(colon, 2, ":\\") != 0;
    std::string signal = word.substr(brace);
    m_module.names.try_emplace(signal, is_named ? lower_case(word.substr(1, colon - 1)) : "");
    return signal;
  }

  // A value is a reference, which may have its definition behind it, or a constant (empty).
  std::string value(unsigned depth) {
    const std::string reference = word();
    if (take(" := ")) {
      define({reference}, depth + 1);
    }
    if (take("[")) {
      m_at = std::min(m_text.find(']', m_at), m_text.size() - 1) + 1;
    }
    return signal_of(reference);
  }

  void define(const std::vector<std::string>& targets, unsigned depth) {
    if (depth > MAX_DEPTH) {
      m_at = m_text.size();
      return;
    }
    const std::size_t from = m_at;
    Cell cell;
    cell.name = word();
    const std::size_t brace = cell.name.rfind("{i");
    if (brace == std::string::npos) {
      m_at = from;
      const std::string source = value(depth);
      const bool is_whole = m_text[m_at - 1] != ']';
      const std::vector<std::string> none;
      add(targets, source.empty() ? none : std::vector<std::string>{source}, none, is_whole);
      return;
    }
    cell.name.erase(brace);
    if (take(" (")) {
      read_pins(cell, depth);
    }
    finish(cell, targets);
  }

  void read_pins(Cell& cell, unsigned depth) {
    do {
      skip_blanks();
      const std::string port = word(); // ".$clk{p2}:"
      const std::string signal = (skip_blanks(), value(depth));
      InstancePin pin;
      pin.port = port.substr(std::min<std::size_t>(1, port.size()), port.rfind('{') - 1);
      if (!signal.empty()) {
        pin.signals.push_back(signal);
      }
      cell.pins.push_back(std::move(pin));
    } while (take(","));
    take(")");
  }

  void finish(const Cell& cell, const std::vector<std::string>& targets) {
    if (cell.name == "$const_X" || cell.name == "$const_Z") {
      m_module.undriven.insert(signal_of(targets.front()));
    } else if (cell.name.starts_with('\\')) {
      add_instance(cell, targets);
    } else {
      add_gate(cell, targets);
    }
  }

  // A multiplexer or a register with a constant input has that value at times.
  void add_gate(const Cell& cell, const std::vector<std::string>& targets) {
    const bool is_choice = cell.name.find("mux") != std::string::npos ||
                           cell.name.find("dff") != std::string::npos ||
                           cell.name.find("isignal") != std::string::npos;
    std::vector<std::string> values;
    std::vector<std::string> conditions;
    bool has_constant = false;
    for (const InstancePin& pin : cell.pins) {
      const bool is_condition =
          pin.port == "$clk" || pin.port == "$s" || pin.port == "$rst" || pin.port == "$en";
      auto& signals = is_condition ? conditions : values;
      signals.insert(signals.end(), pin.signals.begin(), pin.signals.end());
      has_constant = has_constant || pin.signals.empty();
    }
    if (is_choice && has_constant) {
      conditions.insert(conditions.end(), values.begin(), values.end());
      values.clear();
    }
    add(targets, values, conditions, cell.name == "$signal");
  }

  void add_instance(const Cell& cell, const std::vector<std::string>& targets) {
    ModuleInstance instance = {lower_case(cell.name.substr(1)), cell.pins};
    for (InstancePin& pin : instance.pins) {
      pin.port = lower_case(pin.port.substr(pin.port.starts_with('\\') ? 1 : 0));
    }
    for (const std::string& target : targets) { // "\x:\y{n15w1}"
      const std::size_t port = target.find(":\\");
      if (port != std::string::npos) {
        InstancePin pin;
        pin.port = lower_case(target.substr(port + 2, target.rfind('{') - port - 2));
        pin.is_output = true;
        pin.signals.push_back(signal_of(target));
        instance.pins.push_back(std::move(pin));
      }
    }
    m_module.instances.push_back(std::move(instance));
  }

  void add(const std::vector<std::string>& targets, const std::vector<std::string>& values,
           const std::vector<std::string>& conditions, bool is_copy) {
    for (const std::string& target : targets) {
      m_module.drivers.push_back(
          {signal_of(target), values, conditions, is_copy && values.size() == 1});
    }
  }

  const std::string& m_text;
  ModuleDrivers& m_module;
  std::size_t m_at = 0;
};

} // namespace

std::vector<ModuleDrivers> read_ghdl_drivers(const std::string& netlist) {
  std::vector<ModuleDrivers> modules;
  std::istringstream lines(netlist);
  std::string statement;
  const auto finish = [&] {
    if (!statement.empty() && !modules.empty()) {
      StatementReader(statement, modules.back()).run();
    }
    statement.clear();
  };
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("  module {")) {
      finish();
      modules.emplace_back();
      modules.back().name =
          lower_case(line.substr(std::min(line.rfind('\\'), line.size() - 1) + 1));
    } else if (line.starts_with("     ")) {
      statement += "\n" + line;
    } else if (line.starts_with("    ") && line.back() != ';') {
      finish();
      statement = line.substr(4);
    }
  }
  finish();
  return modules;
}

} // namespace bfcl::component
