// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "design.h"

#include <map>
#include <string>
#include <vector>

// The types of a netlist that verilator writes, which refer to each other by names of its own.

namespace bfcl::component {

struct NetlistType {
  enum class Shape {
    bits,         // `count` of them
    packed_array, // `count` elements of type `inner`
    structure,    // `members` beside each other
    overlay,      // `members` on each other, of a union
    reference,    // the same as `inner`
    array,        // unpacked
    interface,
    other,
  };
  Shape shape = Shape::other;
  unsigned count = 0;
  std::string inner;
  std::vector<std::string> members;
};

// What a port of a type is.
struct PortType {
  PortKind kind = PortKind::vector;
  unsigned width = 0; // bits of a vector
};

class NetlistTypes {
public:
  void add(const std::string& id, NetlistType type) { m_types[id] = std::move(type); }

  // The type with this name; PortKind::other for a name that is not there or types without an end.
  [[nodiscard]] PortType port_type(const std::string& id) const { return resolve(id, 0); }

private:
  [[nodiscard]] PortType resolve(const std::string& id, unsigned depth) const;
  [[nodiscard]] PortType resolve_members(const NetlistType& type, unsigned depth) const;

  std::map<std::string, NetlistType> m_types;
};

// The shape of a basic type with `count` bits, by its name: a real has none.
[[nodiscard]] NetlistType basic_type(const std::string& name, unsigned count);

// The text of a constant that is a string: "\"x.hex\"", or a number such as "40'h782e686578".
[[nodiscard]] std::string text_of_constant(const std::string& constant);

// The value of a constant such as "32'sh2" or "32'hfffffffe"; 0 for anything else.
[[nodiscard]] int value_of_constant(const std::string& constant);

} // namespace bfcl::component
