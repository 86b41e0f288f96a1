// SPDX-License-Identifier: BSD-3-Clause
#include "verilator_drivers.h"

#include <cstring>
#include <utility>

namespace bfcl::component {

using tinyxml2::XMLElement;

std::string attribute(const XMLElement& element, const char* name) {
  const char* value = element.Attribute(name);
  return value != nullptr ? value : "";
}

bool is_named(const XMLElement& element, const char* name) {
  return std::strcmp(element.Name(), name) == 0;
}

namespace {

// Recursion is as deep as the XML library lets elements nest.
class DriverReader {
public:
  DriverReader(const XmlPlaces& place_of, ModuleDrivers& drivers)
      : m_place_of(place_of), m_drivers(drivers) {}

  void read(const XMLElement& scope, const std::string& prefix) {
    m_scopes.emplace_back();
    for (const XMLElement* var = scope.FirstChildElement("var"); var != nullptr;
         var = var->NextSiblingElement("var")) {
      const std::string name = attribute(*var, "name");
      m_scopes.back()[name] = prefix + name;
      m_drivers.signals[prefix + name] = m_place_of(*var);
    }
    for_each_child(scope, [&](const XMLElement& child) { read_statement(child, prefix); });
    m_scopes.pop_back();
  }

private:
  template <typename Visit>
  static void for_each_child(const XMLElement& parent, Visit visit) {
    for (const XMLElement* child = parent.FirstChildElement(); child != nullptr;
         child = child->NextSiblingElement()) {
      visit(*child);
    }
  }

  void read_statement(const XMLElement& element, const std::string& prefix) {
    const std::string kind = element.Name();
    if (kind == "contassign" || kind.starts_with("assign")) {
      read_assignment(element);
    } else if (kind == "instance") {
      read_instance(element);
    } else if (kind == "if" || kind == "case" || kind == "while") {
      const std::size_t count = m_conditions.size();
      if (element.FirstChildElement() != nullptr) {
        collect(*element.FirstChildElement(), m_conditions);
      }
      read(element, prefix);
      m_conditions.resize(count);
    } else if (kind == "readmem" || kind == "taskref") { // may write what it names
      std::vector<std::string> written;
      collect(element, written);
      for (const std::string& target : written) {
        m_drivers.drivers.push_back({target, {}, {}, false});
      }
    } else if (kind == "begin" || kind == "func" || kind == "task") {
      read(element, prefix + attribute(element, "name") + ".");
    } else if (element.FirstChildElement() != nullptr) {
      read(element, prefix);
    }
  }

  // The value, the target, and maybe a delay.
  void read_assignment(const XMLElement& element) {
    const XMLElement* value = element.FirstChildElement();
    const XMLElement* target = value != nullptr ? value->NextSiblingElement() : nullptr;
    if (target == nullptr) {
      return;
    }
    SignalDriver driver;
    driver.conditions = m_conditions;
    read_value(*value, driver.values, driver.conditions);
    driver.is_copy = is_named(*value, "varref") && is_named(*target, "varref");
    std::vector<std::string> targets;
    read_target(*target, targets, driver.conditions);
    for (const std::string& name : targets) {
      driver.target = name;
      m_drivers.drivers.push_back(driver);
    }
  }

  // What an index or the condition of a choice reads is no part of the value.
  void read_value(const XMLElement& value, std::vector<std::string>& values,
                  std::vector<std::string>& conditions) const {
    const bool is_choice = is_named(value, "cond");
    const bool is_selection = is_named(value, "sel") || is_named(value, "arraysel");
    const XMLElement* first = value.FirstChildElement();
    if (!is_choice && !is_selection) {
      collect_own(value, values);
    }
    for_each_child(value, [&](const XMLElement& child) {
      if ((&child == first && is_choice) || (&child != first && is_selection)) {
        collect(child, conditions);
      } else {
        read_value(child, values, conditions);
      }
    });
  }

  // A selection has what it selects from first, then the index.
  void read_target(const XMLElement& target, std::vector<std::string>& targets,
                   std::vector<std::string>& conditions) {
    const bool is_selection = std::strstr(target.Name(), "sel") != nullptr;
    if (is_named(target, "varref") || is_named(target, "varxref")) {
      collect(target, targets);
    }
    bool is_first = true;
    for_each_child(target, [&](const XMLElement& child) {
      if (is_selection && !is_first) {
        collect(child, conditions);
      } else {
        read_target(child, targets, conditions);
      }
      is_first = false;
    });
  }

  void read_instance(const XMLElement& element) {
    ModuleInstance instance;
    instance.module = attribute(element, "defName");
    for_each_child(element, [&](const XMLElement& port) {
      const std::string direction = attribute(port, "direction");
      const XMLElement* connected = port.FirstChildElement();
      InstancePin pin;
      pin.port = attribute(port, "name");
      pin.is_output = direction != "in";
      pin.is_open = connected == nullptr;
      if (connected != nullptr) {
        collect(*connected, pin.signals);
      }
      if (direction == "inout" && connected != nullptr) { // each side may drive the other
        for (const std::string& signal : pin.signals) {
          m_drivers.drivers.push_back({signal, {}, {}, false});
        }
      }
      instance.pins.push_back(std::move(pin));
    });
    m_drivers.instances.push_back(std::move(instance));
  }

  // The signals that an expression names.
  void collect(const XMLElement& expression, std::vector<std::string>& names) const {
    collect_own(expression, names);
    for_each_child(expression, [&](const XMLElement& child) { collect(child, names); });
  }

  void collect_own(const XMLElement& expression, std::vector<std::string>& names) const {
    if (is_named(expression, "varref")) {
      names.push_back(full_name(attribute(expression, "name")));
    } else if (is_named(expression, "varxref")) { // elsewhere, which is taken for driven
      names.push_back(attribute(expression, "dotted") + "." + attribute(expression, "name"));
    }
  }

  std::string full_name(const std::string& name) const {
    for (auto scope = m_scopes.rbegin(); scope != m_scopes.rend(); ++scope) {
      const auto found = scope->find(name);
      if (found != scope->end()) {
        return found->second;
      }
    }
    return name;
  }

  const XmlPlaces& m_place_of;
  ModuleDrivers& m_drivers;
  std::vector<std::map<std::string, std::string>> m_scopes; // full names by names
  std::vector<std::string> m_conditions;                    // of the statements around
};

} // namespace

ModuleDrivers read_drivers(const XMLElement& module, const XmlPlaces& place_of) {
  ModuleDrivers drivers;
  drivers.name = attribute(module, "name");
  DriverReader(place_of, drivers).read(module, "");
  return drivers;
}

} // namespace bfcl::component
