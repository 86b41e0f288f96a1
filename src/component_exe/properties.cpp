// SPDX-License-Identifier: BSD-3-Clause
#include "properties.h"

namespace bfcl::component {

using vex::efi::EFIElem;

namespace {

std::string count(unsigned number, const std::string& noun) {
  return std::to_string(number) + " " + noun + (number == 1 ? "" : "s");
}

Property reset_property(const Place& place) {
  return {"reset",
          "bad_reset",
          0,
          HarnessMode::reset,
          place,
          "gives no result and asks no memory after reset before it takes a word",
          "ovalid is high after reset, before a word is taken: reset does not clear it",
          "memory is asked after reset, before a word is taken: reset does not clear the request",
          {"ivalid", "iready", "ovalid", SHOW_REQUESTS}};
}

Property latency_property(const EFIElem& elem, const Place& place) {
  const auto latency = static_cast<unsigned>(elem.m_latency);
  const std::string clocks = count(latency, "clock");
  const std::string declared = "EXPECTED_LATENCY is " + std::to_string(latency);
  return {"latency",
          "bad_latency",
          0,
          HarnessMode::stream,
          place,
          "each result comes " + clocks + " after its word",
          declared + ", but ovalid is high and no word was taken " + clocks + " before",
          declared + ", but no result comes " + clocks + " after a word",
          {"ivalid", "iready", "ovalid", "oready", "held"},
          latency + 4};
}

Property capacity_property(unsigned capacity, const Place& place) {
  const std::string fault =
      "CAPACITY is " + std::to_string(capacity) + ", but the module takes one more word";
  return {"capacity",
          "bad_capacity",
          0,
          HarnessMode::stream,
          place,
          "never holds more than " + count(capacity, "word"),
          fault,
          fault,
          {"ivalid", "iready", "ovalid", "oready", "held"}};
}

// The words that it took are to be appended to the fault.
Property fill_property(const EFIElem& elem, const Place& place) {
  const unsigned capacity = harness_capacity(elem);
  const std::string fault = "CAPACITY is " + std::to_string(capacity) +
                            ", but while no result is taken, the words taken are ";
  return {"capacity",
          "filled",
          0,
          HarnessMode::fill,
          place,
          "holds " + count(capacity, "word"),
          fault,
          fault,
          {"ivalid", "iready", "ovalid", "oready", "held"},
          4 * std::size_t{capacity} + 2 * std::size_t{patience(elem)},
          true};
}

Property ready_property(const Place& place) {
  const std::string fault = "iready falls, but the component is declared stall-free";
  return {"handshake",    "bad_ready", 0,     HarnessMode::stream,           place,
          "always ready", fault,       fault, {"ivalid", "iready", "ovalid"}};
}

Property stable_property(const Place& place) {
  return {"handshake",
          "bad_stable",
          0,
          HarnessMode::stream,
          place,
          "a result that has to wait stays as it is",
          "the result changes while it has to wait",
          "ovalid falls while a result has to wait",
          {"ivalid", "iready", "ovalid", "oready", SHOW_OUTPUT}};
}

Property count_property(const Place& place) {
  const std::string fault = "a result is given for which no word was taken";
  return {"handshake",
          "bad_count",
          0,
          HarnessMode::stream,
          place,
          "gives no result without a word",
          fault,
          fault,
          {"ivalid", "iready", "ovalid", "oready", "held"}};
}

Property result_property(const Place& place) {
  const std::string fault = "a word gets another result than the same word before: results are "
                            "lost, mixed up or changed (or depend on earlier words)";
  return {"result",
          "bad_result",
          0,
          HarnessMode::result,
          place,
          "each result depends on its own word only",
          fault,
          fault,
          {"ivalid", "iready", SHOW_INPUTS, "ovalid", "oready", SHOW_OUTPUT}};
}

Property memory_property(const EFIElem& elem, std::size_t port, const Place& place) {
  const std::string& name = elem.m_mem_port_names[port];
  const std::string fault =
      name + ": the request changes while waitrequest is high, or asks for no word";
  return {"memory",     "bad_memory",
          port,         HarnessMode::stream,
          place,        name + ": requests that have to wait stay as they are",
          fault,        fault,
          {SHOW_MEMORY}};
}

} // namespace

std::vector<Property> properties_of(const Description& description, std::size_t component) {
  const EFIElem& elem = *description.spec->efi_elems()[component];
  const ElementLines& lines = description.lines[component];
  const Place function = description.place(lines.function);
  const Place capacity = description.place(lines.capacity != 0 ? lines.capacity : lines.attributes);
  std::vector<Property> properties = {reset_property(function)};
  if (elem.m_is_fixed_latency.value && elem.m_latency != vex::efi::NOT_SET) {
    properties.push_back(latency_property(elem, description.place(lines.latency)));
  }
  if (elem.m_is_stall_free.value) {
    properties.push_back(ready_property(function));
  } else {
    properties.push_back(stable_property(function));
    properties.push_back(count_property(function));
  }
  if (has_capacity(elem)) {
    properties.push_back(capacity_property(harness_capacity(elem), capacity));
    properties.push_back(fill_property(elem, capacity));
  }
  if (!elem.m_has_side_effects.value && elem.m_output_width != 0) {
    properties.push_back(result_property(function));
  }
  for (std::size_t port = 0; port < elem.m_mem_port_names.size(); ++port) {
    properties.push_back(memory_property(elem, port, description.place(lines.mem_ports[port])));
  }
  return properties;
}

} // namespace bfcl::component
