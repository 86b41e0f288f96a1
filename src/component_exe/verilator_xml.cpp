// SPDX-License-Identifier: BSD-3-Clause
#include "verilator_run.h"

#include <cstdlib>
#include <cstring>
#include <map>
#include <string_view>

#include <tinyxml2.h>

// The XML that verilator writes up to 5.044: netlist/module with its variables, a table of types
// that they refer to by number, a table of files that places refer to by letters.

namespace bfcl::component {

namespace {

using tinyxml2::XMLElement;

constexpr unsigned MAX_TYPE_DEPTH = 100; // of types in types

std::string attribute(const XMLElement& element, const char* name) {
  const char* value = element.Attribute(name);
  return value != nullptr ? value : "";
}

bool is_named(const XMLElement& element, const char* name) {
  return std::strcmp(element.Name(), name) == 0;
}

template <typename Visit>
void for_each(const XMLElement* parent, const char* name, Visit visit) {
  if (parent == nullptr) {
    return;
  }
  for (const XMLElement* child = parent->FirstChildElement(name); child != nullptr;
       child = child->NextSiblingElement(name)) {
    visit(*child);
  }
}

struct Type {
  PortKind kind = PortKind::vector;
  unsigned width = 0;
};

class NetlistReader {
public:
  NetlistReader(const XMLElement& root, VerilatorRun& run) : m_root(root), m_run(run) {}

  bool read() {
    note_files();
    const XMLElement* netlist = m_root.FirstChildElement("netlist");
    for_each(netlist != nullptr ? netlist->FirstChildElement("typetable") : nullptr, nullptr,
             [this](const XMLElement& type) { m_types[attribute(type, "id")] = &type; });
    for_each(netlist, "module", [this](const XMLElement& module) {
      m_run.design.modules.push_back({attribute(module, "origName"), place_of(module)});
      if (attribute(module, "topModule") == "1") {
        read_top(module);
      }
    });
    note_data_files(netlist);
    return !m_run.design.top.empty();
  }

private:
  void note_files() {
    for_each(m_root.FirstChildElement("files"), "file", [this](const XMLElement& file) {
      m_files[attribute(file, "id")] = attribute(file, "filename");
      m_run.read_files.push_back(attribute(file, "filename"));
    });
    for_each(m_root.FirstChildElement("module_files"), "file", [this](const XMLElement& file) {
      m_run.design.module_files.push_back(attribute(file, "filename"));
    });
  }

  // loc="FILE,LINE,COLUMN,LINE,COLUMN"
  Place place_of(const XMLElement& element) const {
    const std::string text = attribute(element, "loc");
    const std::size_t comma = text.find(',');
    const auto file = m_files.find(text.substr(0, comma));
    if (comma == std::string::npos || file == m_files.end()) {
      return {};
    }
    return {file->second,
            static_cast<unsigned>(std::strtoul(text.c_str() + comma + 1, nullptr, 10))};
  }

  void read_top(const XMLElement& module) {
    Design& design = m_run.design;
    design.top = attribute(module, "name");
    design.place = place_of(module);
    for_each(&module, "var", [&](const XMLElement& var) {
      if (var.Attribute("dir") != nullptr) {
        design.ports.push_back(read_port(var));
      } else if (var.Attribute("param") != nullptr || var.Attribute("localparam") != nullptr) {
        design.parameters.push_back(
            {attribute(var, "name"), var.Attribute("localparam") != nullptr});
      }
    });
  }

  Port read_port(const XMLElement& var) const {
    const std::string direction = attribute(var, "dir");
    const Type type = type_of(attribute(var, "dtype_id"), 0);
    return {attribute(var, "name"),
            direction == "input"    ? Direction::input
            : direction == "output" ? Direction::output
                                    : Direction::inout,
            type.kind, type.width, place_of(var)};
  }

  Type type_of(const std::string& id, unsigned depth) const {
    const auto found = m_types.find(id);
    if (found == m_types.end() || depth > MAX_TYPE_DEPTH) {
      return {PortKind::other, 0};
    }
    const XMLElement& type = *found->second;
    const std::string inner = attribute(type, "sub_dtype_id");
    if (is_named(type, "basicdtype")) {
      return basic_type(type);
    }
    if (is_named(type, "packarraydtype")) {
      Type element = type_of(inner, depth + 1);
      element.width *= elements_of(type);
      return element;
    }
    if (is_named(type, "structdtype") || is_named(type, "uniondtype")) {
      return compound_type(type, depth);
    }
    if (is_named(type, "unpackarraydtype")) {
      return {PortKind::array, 0};
    }
    if (is_named(type, "ifacerefdtype")) {
      return {PortKind::interface, 0};
    }
    return inner.empty() ? Type{PortKind::other, 0} : type_of(inner, depth + 1);
  }

  static Type basic_type(const XMLElement& type) {
    const std::string name = attribute(type, "name");
    if (name == "real" || name == "string" || name == "chandle" || name == "event") {
      return {PortKind::other, 0};
    }
    return {PortKind::vector, 1U + static_cast<unsigned>(std::abs(type.IntAttribute("left") -
                                                                  type.IntAttribute("right")))};
  }

  // The members of a struct are beside each other, those of a union on each other.
  Type compound_type(const XMLElement& type, unsigned depth) const {
    Type sum;
    const bool is_union = is_named(type, "uniondtype");
    for_each(&type, "memberdtype", [&](const XMLElement& member) {
      const Type part = type_of(attribute(member, "sub_dtype_id"), depth + 1);
      if (part.kind != PortKind::vector) {
        sum.kind = part.kind;
      }
      sum.width = is_union ? std::max(sum.width, part.width) : sum.width + part.width;
    });
    return sum;
  }

  static unsigned elements_of(const XMLElement& array) {
    std::vector<long> bounds;
    for_each(array.FirstChildElement("range"), "const", [&](const XMLElement& bound) {
      const std::string value = attribute(bound, "name"); // "32'sh2"
      const std::size_t digits = value.rfind('h');
      bounds.push_back(digits == std::string::npos ? 0
                                                   : static_cast<int>(std::strtoul(
                                                         value.c_str() + digits + 1, nullptr, 16)));
    });
    return bounds.size() == 2 ? 1U + static_cast<unsigned>(std::labs(bounds[0] - bounds[1])) : 0;
  }

  // A string that is a number: "40'h782e686578" is "x.hex".
  static std::string text_of(const std::string& constant) {
    if (constant.size() >= 2 && constant.front() == '"') {
      return constant.substr(1, constant.size() - 2);
    }
    std::string text;
    const std::size_t digits = constant.rfind('h');
    if (digits != std::string::npos) {
      for (std::size_t at = digits + 1; at + 1 < constant.size(); at += 2) {
        text += static_cast<char>(std::strtoul(constant.substr(at, 2).c_str(), nullptr, 16));
      }
    }
    return text;
  }

  void note_data_files(const XMLElement* element) {
    for (; element != nullptr; element = next_in_tree(element)) {
      const XMLElement* name =
          is_named(*element, "readmem") ? element->FirstChildElement() : nullptr;
      if (name != nullptr && is_named(*name, "const")) {
        m_run.design.data_files.push_back({text_of(attribute(*name, "name")), place_of(*element)});
      }
    }
  }

  // The netlist without recursion, since expressions nest as deeply as the RTL wants.
  static const XMLElement* next_in_tree(const XMLElement* element) {
    if (element->FirstChildElement() != nullptr) {
      return element->FirstChildElement();
    }
    while (element != nullptr && element->NextSiblingElement() == nullptr) {
      const tinyxml2::XMLNode* parent = element->Parent();
      element = parent != nullptr ? parent->ToElement() : nullptr;
    }
    return element != nullptr ? element->NextSiblingElement() : nullptr;
  }

  const XMLElement& m_root;
  VerilatorRun& m_run;
  std::map<std::string, std::string> m_files;
  std::map<std::string, const XMLElement*> m_types;
};

} // namespace

bool read_verilator_xml(const char* path, VerilatorRun& run) {
  tinyxml2::XMLDocument document;
  if (document.LoadFile(path) != tinyxml2::XML_SUCCESS || document.RootElement() == nullptr) {
    return false;
  }
  return NetlistReader(*document.RootElement(), run).read();
}

} // namespace bfcl::component
