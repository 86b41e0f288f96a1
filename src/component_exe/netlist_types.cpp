// SPDX-License-Identifier: BSD-3-Clause
#include "netlist_types.h"

#include <algorithm>
#include <cstdlib>

namespace bfcl::component {

namespace {

constexpr unsigned MAX_DEPTH = 100; // of types in types

} // namespace

PortType NetlistTypes::resolve(const std::string& id, unsigned depth) const {
  const auto found = m_types.find(id);
  if (found == m_types.end() || depth > MAX_DEPTH) {
    return {PortKind::other, 0};
  }
  const NetlistType& type = found->second;
  switch (type.shape) {
  case NetlistType::Shape::bits:
    return {PortKind::vector, type.count};
  case NetlistType::Shape::packed_array: {
    PortType element = resolve(type.inner, depth + 1);
    element.width *= type.count;
    return element;
  }
  case NetlistType::Shape::structure:
  case NetlistType::Shape::overlay:
    return resolve_members(type, depth);
  case NetlistType::Shape::reference:
    return resolve(type.inner, depth + 1);
  case NetlistType::Shape::array:
    return {PortKind::array, 0};
  case NetlistType::Shape::interface:
    return {PortKind::interface, 0};
  case NetlistType::Shape::other:
    break;
  }
  return {PortKind::other, 0};
}

PortType NetlistTypes::resolve_members(const NetlistType& type, unsigned depth) const {
  PortType sum;
  for (const std::string& member : type.members) {
    const PortType part = resolve(member, depth + 1);
    if (part.kind != PortKind::vector) {
      return part;
    }
    sum.width = type.shape == NetlistType::Shape::overlay ? std::max(sum.width, part.width)
                                                          : sum.width + part.width;
  }
  return sum;
}

NetlistType basic_type(const std::string& name, unsigned count) {
  const bool has_bits = name != "real" && name != "string" && name != "chandle" && name != "event";
  NetlistType type;
  type.shape = has_bits ? NetlistType::Shape::bits : NetlistType::Shape::other;
  type.count = count;
  return type;
}

std::string text_of_constant(const std::string& constant) {
  if (constant.size() >= 2 && constant.front() == '"') {
    return constant.substr(1, constant.size() - 2);
  }
  std::string text;
  const std::size_t digits = constant.rfind('h');
  for (std::size_t at = digits + 1; digits != std::string::npos && at + 1 < constant.size();
       at += 2) {
    text += static_cast<char>(std::strtoul(constant.substr(at, 2).c_str(), nullptr, 16));
  }
  return text;
}

int value_of_constant(const std::string& constant) {
  const std::size_t digits = constant.rfind('h');
  return digits == std::string::npos
             ? 0
             : static_cast<int>(std::strtoul(constant.c_str() + digits + 1, nullptr, 16));
}

} // namespace bfcl::component
