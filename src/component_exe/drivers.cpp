// SPDX-License-Identifier: BSD-3-Clause
#include "drivers.h"

#include <algorithm>
#include <utility>

namespace bfcl::component {

namespace {

class Tracer {
public:
  Tracer(const std::vector<ModuleDrivers>& modules, const std::vector<UndrivenSignal>& undriven)
      : m_modules(modules), m_undriven(undriven) {
    for (const UndrivenSignal& signal : undriven) {
      m_reported.try_emplace({signal.place, signal.name}, &signal);
    }
    for (std::size_t module = 0; module < modules.size(); ++module) {
      m_index.try_emplace(modules[module].name, module);
    }
    for (std::size_t module = 0; module < modules.size(); ++module) {
      add_module(module);
    }
    for (std::size_t module = 0; module < modules.size(); ++module) {
      mark_undriven(module);
    }
    spread();
  }

  std::vector<UndrivenOutputs> trace(const std::string& top,
                                     const std::vector<std::string>& outputs) {
    const auto found = m_index.find(top);
    for (const std::string& output :
         found != m_index.end() ? outputs : std::vector<std::string>()) {
      const std::size_t node = node_of(found->second, output);
      if (m_nodes[node].is_dead) {
        note(m_nodes[node].cause, true, output);
      } else if (const UndrivenSignal* bits = partial_cause(node); bits != nullptr) {
        note(*bits, true, output);
      }
    }
    for (const std::string& output :
         found != m_index.end() ? outputs : std::vector<std::string>()) {
      follow_dependences(found->second, output);
    }
    return std::move(m_found);
  }

private:
  struct Node {
    std::size_t module = 0;
    const std::string* signal = nullptr;
    std::size_t live_drivers = 0;
    std::vector<std::size_t> drivers;  // of it
    std::vector<std::size_t> uses;     // drivers that compute from it
    std::vector<std::size_t> controls; // nodes that it depends on otherwise, in its module
    bool is_dead = false;
    UndrivenSignal cause; // when dead
  };
  struct Driver {
    std::size_t target = 0;
    std::vector<std::size_t> values;
    std::size_t live_values = 0;
    bool is_copy = false;
  };

  std::size_t node_of(std::size_t module, const std::string& signal) {
    const auto [place, is_new] = m_ids.try_emplace({module, signal}, m_nodes.size());
    if (is_new) {
      m_nodes.emplace_back();
      m_nodes.back().module = module;
      m_nodes.back().signal = &place->first.second;
    }
    return place->second;
  }

  // A driver without values is a constant, which never dies.
  void add_driver(std::size_t target, std::vector<std::size_t> values, bool is_copy) {
    const std::size_t driver = m_drivers.size();
    const bool is_constant = values.empty();
    std::sort(values.begin(), values.end());
    values.erase(std::unique(values.begin(), values.end()), values.end());
    std::erase(values, target);
    if (values.empty() && !is_constant) {
      return; // it keeps its value
    }
    for (const std::size_t value : values) {
      m_nodes[value].uses.push_back(driver);
    }
    m_nodes[target].drivers.push_back(driver);
    ++m_nodes[target].live_drivers;
    const std::size_t count = values.size();
    m_drivers.push_back(
        {target, std::move(values), is_constant ? 1 : count, is_copy && count == 1});
  }

  std::vector<std::size_t> nodes_of(std::size_t module, const std::vector<std::string>& signals) {
    std::vector<std::size_t> nodes;
    nodes.reserve(signals.size());
    for (const std::string& signal : signals) {
      nodes.push_back(node_of(module, signal));
    }
    return nodes;
  }

  void add_module(std::size_t module) {
    for (const SignalDriver& driver : m_modules[module].drivers) {
      const std::size_t target = node_of(module, driver.target);
      for (const std::size_t condition : nodes_of(module, driver.conditions)) {
        m_nodes[target].controls.push_back(condition);
      }
      add_driver(target, nodes_of(module, driver.values), driver.is_copy);
    }
    for (const ModuleInstance& instance : m_modules[module].instances) {
      add_instance(module, instance);
    }
  }

  void add_instance(std::size_t module, const ModuleInstance& instance) {
    const auto inner = m_index.find(instance.module);
    std::vector<std::size_t> inputs;
    for (const InstancePin& pin : instance.pins) {
      const std::vector<std::size_t> signals = nodes_of(module, pin.signals);
      if (!pin.is_output) {
        inputs.insert(inputs.end(), signals.begin(), signals.end());
        if (inner != m_index.end() && !pin.is_open) {
          add_driver(node_of(inner->second, pin.port), signals, signals.size() == 1);
        }
      }
    }
    for (const InstancePin& pin : instance.pins) {
      for (const std::size_t signal :
           pin.is_output ? nodes_of(module, pin.signals) : std::vector<std::size_t>()) {
        std::vector<std::size_t> values;
        if (inner != m_index.end()) {
          values.push_back(node_of(inner->second, pin.port));
        }
        add_driver(signal, values, pin.signals.size() == 1);
        Node& node = m_nodes[signal];
        node.controls.insert(node.controls.end(), inputs.begin(), inputs.end());
      }
    }
  }

  // The module of a signal may exist with other parameters too, and be driven there.
  void mark_undriven(std::size_t module) {
    const ModuleDrivers& drivers = m_modules[module];
    for (const std::string& signal : drivers.undriven) {
      kill(node_of(module, signal), {name_of(module, signal), {}, ""});
    }
    for (const auto& [signal, place] : drivers.signals) {
      const UndrivenSignal* undriven = reported(name_of(module, signal), place);
      if (undriven != nullptr && undriven->bits.empty()) {
        const std::size_t node = node_of(module, signal);
        if (m_nodes[node].drivers.empty()) {
          kill(node, *undriven);
        }
      }
    }
  }

  // What the tool says about a signal, which it calls by the last part of its name.
  const UndrivenSignal* reported(const std::string& signal, const Place& place) const {
    const auto found = m_reported.find({place, signal.substr(signal.rfind('.') + 1)});
    return found != m_reported.end() ? found->second : nullptr;
  }

  std::string name_of(std::size_t module, const std::string& signal) const {
    const auto found = m_modules[module].names.find(signal);
    return found != m_modules[module].names.end() ? found->second : signal;
  }

  void kill(std::size_t node, UndrivenSignal cause) {
    if (!std::exchange(m_nodes[node].is_dead, true)) {
      const std::string own = name_of(m_nodes[node].module, *m_nodes[node].signal);
      cause.name = cause.name.empty() ? own : cause.name;
      m_nodes[node].cause = std::move(cause);
      m_dead.push_back(node);
    }
  }

  void spread() {
    while (!m_dead.empty()) {
      const std::size_t dead = m_dead.back();
      m_dead.pop_back();
      for (const std::size_t use : m_nodes[dead].uses) {
        Driver& driver = m_drivers[use];
        if (--driver.live_values == 0 && --m_nodes[driver.target].live_drivers == 0) {
          kill(driver.target, m_nodes[dead].cause);
        }
      }
    }
  }

  // Behind copies, a signal of which some bits are not driven.
  const UndrivenSignal* partial_cause(std::size_t node) const {
    for (std::size_t steps = 0; steps < m_nodes.size(); ++steps) {
      const Node& at = m_nodes[node];
      const auto& places = m_modules[at.module].signals;
      const auto place = places.find(*at.signal);
      const UndrivenSignal* undriven =
          place != places.end() ? reported(name_of(at.module, *at.signal), place->second) : nullptr;
      if (undriven != nullptr && !undriven->bits.empty()) {
        return undriven;
      }
      if (at.drivers.size() != 1 || !m_drivers[at.drivers.front()].is_copy) {
        return nullptr;
      }
      node = m_drivers[at.drivers.front()].values.front();
    }
    return nullptr;
  }

  void follow_dependences(std::size_t module, const std::string& output) {
    const std::size_t start = node_of(module, output);
    std::vector<std::size_t> open = {start};
    std::set<std::size_t> seen = {start};
    const auto visit = [&](std::size_t node) {
      if (m_nodes[node].module == module && seen.insert(node).second) {
        open.push_back(node);
      }
    };
    while (!open.empty()) {
      const std::size_t node = open.back();
      open.pop_back();
      if (m_nodes[node].is_dead) {
        note(m_nodes[node].cause, false, output);
        continue;
      }
      for (const std::size_t driver : m_nodes[node].drivers) {
        std::for_each(m_drivers[driver].values.begin(), m_drivers[driver].values.end(), visit);
      }
      std::for_each(m_nodes[node].controls.begin(), m_nodes[node].controls.end(), visit);
    }
  }

  // What is the value of an output is not reported once more as what others depend on.
  void note(UndrivenSignal cause, bool is_value, const std::string& output) {
    for (const UndrivenSignal& undriven : m_undriven) {
      if (cause.place.line == 0 && cause.bits.empty() && undriven.name == cause.name) {
        cause.place = undriven.place;
      }
    }
    auto found = std::find_if(m_found.begin(), m_found.end(), [&](const UndrivenOutputs& other) {
      return other.cause.name == cause.name && other.cause.place == cause.place;
    });
    if (found == m_found.end()) {
      found = m_found.insert(found, {cause, is_value, {}});
    }
    if (found->is_value == is_value) {
      found->outputs.push_back(output);
    }
  }

  const std::vector<ModuleDrivers>& m_modules;
  const std::vector<UndrivenSignal>& m_undriven;
  std::map<std::pair<Place, std::string>, const UndrivenSignal*> m_reported;
  std::map<std::string, std::size_t> m_index; // of modules by name
  std::map<std::pair<std::size_t, std::string>, std::size_t> m_ids;
  std::vector<Node> m_nodes;
  std::vector<Driver> m_drivers;
  std::vector<std::size_t> m_dead; // whose uses do not count them as dead yet
  std::vector<UndrivenOutputs> m_found;
};

std::string format_place(const Place& place) {
  return place.file + ":" + std::to_string(place.line);
}

std::string quoted_list(const std::vector<std::string>& names) {
  constexpr std::size_t MAX_NAMES = 3;
  std::string list;
  for (std::size_t i = 0; i < std::min(names.size(), MAX_NAMES); ++i) {
    list += (i == 0 ? "'" : ", '") + names[i] + "'";
  }
  const std::size_t more = names.size() - std::min(names.size(), MAX_NAMES);
  return (names.size() == 1 ? "output " : "outputs ") + list +
         (more != 0 ? " and " + std::to_string(more) + " more" : "");
}

} // namespace

std::vector<UndrivenOutputs> trace_undriven(const std::vector<ModuleDrivers>& modules,
                                            const std::string& top,
                                            const std::vector<std::string>& outputs,
                                            const std::vector<UndrivenSignal>& undriven) {
  return Tracer(modules, undriven).trace(top, outputs);
}

void report_undriven(const std::vector<UndrivenOutputs>& found,
                     const std::map<std::string, Place>& places, Report& report) {
  for (const auto& [cause, is_value, outputs] : found) {
    const bool has_place = cause.place.line != 0;
    if (!is_value && has_place) {
      std::string text = "nothing drives '" + cause.name;
      text.append("', on which ").append(quoted_list(outputs)).append(" may depend");
      report.warning("port-undriven", cause.place, text);
    }
    for (const std::string& output : is_value ? outputs : std::vector<std::string>()) {
      const Place& place = places.at(output);
      std::string text = "nothing drives output '" + output;
      text += cause.bits.empty() ? "'" : "' in " + cause.bits;
      if (cause.name != output || (has_place && cause.place != place)) {
        text.append(": its value is that of '").append(cause.name).append("'");
        text.append(has_place ? " (" + format_place(cause.place) + ")" : "");
      }
      report.error("port-undriven", place, text);
    }
  }
}

} // namespace bfcl::component
