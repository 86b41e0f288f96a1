// SPDX-License-Identifier: BSD-3-Clause
#include "netlist_types.h"
#include "rtl_text.h"
#include "verilator_drivers.h"
#include "verilator_run.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <sstream>
#include <string_view>

#include <tinyxml2.h>

// The XML that verilator writes up to 5.044: netlist/module with its variables, a table of types
// that they refer to by number, a table of files that places refer to by letters.

namespace bfcl::component {

namespace {

using tinyxml2::XMLElement;

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

class NetlistReader {
public:
  // Without its deepest lines, a document does not show what expressions are made of. `folder` is
  // what file names are relative to.
  NetlistReader(const XMLElement& root, const std::string& folder, VerilatorRun& run, bool is_whole)
      : m_root(root), m_folder(folder), m_run(run), m_has_drivers(is_whole) {}

  bool read() {
    note_files();
    const XMLElement* netlist = m_root.FirstChildElement("netlist");
    for_each(netlist != nullptr ? netlist->FirstChildElement("typetable") : nullptr, nullptr,
             [this](const XMLElement& type) {
               m_types.add(attribute(type, "id"), read_type(type));
               m_elements[attribute(type, "id")] = &type;
             });
    for_each(netlist, "module", [this](const XMLElement& module) {
      m_run.design.modules.push_back({attribute(module, "origName"), place_of(module)});
      if (m_has_drivers) {
        m_run.drivers.push_back(
            read_drivers(module, [this](const XMLElement& element) { return place_of(element); }));
      }
      if (attribute(module, "topModule") == "1") {
        read_top(module);
        m_is_found = true;
      }
    });
    note_data_files(netlist);
    return m_is_found;
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
    PortType type = m_types.port_type(attribute(var, "dtype_id"));
    if (type.kind == PortKind::vector && is_unpacked(attribute(var, "dtype_id"))) {
      type = {PortKind::record, 0};
    }
    return {attribute(var, "name"),
            direction == "input"    ? Direction::input
            : direction == "output" ? Direction::output
                                    : Direction::inout,
            type.kind, type.width, place_of(var)};
  }

  // Whether it is a struct or a union without "packed", which only the source shows.
  bool is_unpacked(const std::string& id) const {
    auto found = m_elements.find(id);
    while (found != m_elements.end() && is_named(*found->second, "refdtype")) {
      found = m_elements.find(attribute(*found->second, "sub_dtype_id"));
    }
    if (found == m_elements.end() ||
        (!is_named(*found->second, "structdtype") && !is_named(*found->second, "uniondtype"))) {
      return false;
    }
    std::istringstream words = code_at(*found->second);
    std::string keyword;
    std::string next;
    words >> keyword >> next;
    return (keyword == "struct" || keyword == "union") && !next.starts_with("packed") &&
           next != "tagged";
  }

  // The source from an element's place on, without comments.
  std::istringstream code_at(const XMLElement& element) const {
    const Place place = place_of(element);
    std::istringstream numbers(attribute(element, "loc"));
    std::string column;
    for (int i = 0; i < 3; ++i) {
      std::getline(numbers, column, ',');
    }
    const std::string path = (std::filesystem::path(m_folder) / place.file).string();
    const std::string code = blank_comments(read_text(path), FileKind::verilog);
    const std::size_t at =
        begin_of_line(code, place.line) + std::strtoul(column.c_str(), nullptr, 10) - 1;
    return std::istringstream(at < code.size() ? code.substr(at) : "");
  }

  static NetlistType read_type(const XMLElement& type) {
    NetlistType read;
    read.inner = attribute(type, "sub_dtype_id");
    if (is_named(type, "basicdtype")) {
      return basic_type(attribute(type, "name"),
                        1U + static_cast<unsigned>(
                                 std::abs(type.IntAttribute("left") - type.IntAttribute("right"))));
    }
    if (is_named(type, "packarraydtype")) {
      read.shape = NetlistType::Shape::packed_array;
      read.count = elements_of(type);
    } else if (is_named(type, "structdtype") || is_named(type, "uniondtype")) {
      read.shape = is_named(type, "structdtype") ? NetlistType::Shape::structure
                                                 : NetlistType::Shape::overlay;
      for_each(&type, "memberdtype", [&](const XMLElement& member) {
        read.members.push_back(attribute(member, "sub_dtype_id"));
      });
    } else if (is_named(type, "unpackarraydtype")) {
      read.shape = NetlistType::Shape::array;
    } else if (is_named(type, "ifacerefdtype")) {
      read.shape = NetlistType::Shape::interface;
    } else if (!read.inner.empty()) {
      read.shape = NetlistType::Shape::reference;
    }
    return read;
  }

  static unsigned elements_of(const XMLElement& array) {
    std::vector<int> bounds;
    for_each(array.FirstChildElement("range"), "const", [&](const XMLElement& bound) {
      bounds.push_back(value_of_constant(attribute(bound, "name")));
    });
    return bounds.size() == 2 ? 1U + static_cast<unsigned>(std::abs(bounds[0] - bounds[1])) : 0;
  }

  void note_data_files(const XMLElement* element) {
    for (; element != nullptr; element = next_in_tree(element)) {
      const XMLElement* name =
          is_named(*element, "readmem") ? element->FirstChildElement() : nullptr;
      if (name != nullptr && is_named(*name, "const")) {
        m_run.design.data_files.push_back(
            {text_of_constant(attribute(*name, "name")), place_of(*element)});
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
  const std::string& m_folder;
  VerilatorRun& m_run;
  std::map<std::string, std::string> m_files;
  NetlistTypes m_types;
  std::map<std::string, const XMLElement*> m_elements; // of the types
  bool m_has_drivers;
  bool m_is_found = false;
};

// Expressions may nest more deeply than the XML library reads. Each element has its line, indented
// by its depth, so that the lines that are left are XML again; ports and types are not that deep.
std::string without_deep_lines(const std::string& text) {
  constexpr std::size_t MAX_INDENT = 160; // two blanks a level
  std::string shallow;
  for (std::size_t from = 0; from < text.size();) {
    const std::size_t end = std::min(text.find('\n', from), text.size() - 1) + 1;
    if (text.find_first_not_of(' ', from) - from <= MAX_INDENT) {
      shallow.append(text, from, end - from);
    }
    from = end;
  }
  return shallow;
}

} // namespace

bool read_verilator_xml(const std::string& path, const std::string& folder, VerilatorRun& run) {
  const std::string text = read_text(path);
  tinyxml2::XMLDocument document;
  document.Parse(text.c_str(), text.size());
  const bool is_whole = document.ErrorID() != tinyxml2::XML_ELEMENT_DEPTH_EXCEEDED;
  if (!is_whole) {
    const std::string shallow = without_deep_lines(text);
    document.Parse(shallow.c_str(), shallow.size());
  }
  return !document.Error() && document.RootElement() != nullptr &&
         NetlistReader(*document.RootElement(), folder, run, is_whole).read();
}

} // namespace bfcl::component
