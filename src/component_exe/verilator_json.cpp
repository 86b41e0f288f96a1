// SPDX-License-Identifier: BSD-3-Clause
#include "netlist_types.h"
#include "rtl_text.h"
#include "verilator_run.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>

#include <nlohmann/json.hpp>

// The JSON that verilator writes since 5.022: a tree of nodes, each with its "type" in capitals,
// its children in lists whose names end in "p", its place ("loc":"FILE,LINE:COLUMN,…") and its data
// type
// ("dtypep":"(ADDRESS)"). The modules are in "modulesp", the table of types in "miscsp". A second
// file has the names of the files.

namespace bfcl::component {

namespace {

using nlohmann::json;

std::string text(const json& node, const char* key) {
  const auto found = node.find(key);
  return found != node.end() && found->is_string() ? found->get<std::string>() : std::string();
}

// A child list; an empty one when there is none.
const json& children(const json& node, const char* key) {
  static const json s_none = json::array();
  const auto found = node.find(key);
  return found != node.end() && found->is_array() ? *found : s_none;
}

// The elements of a range "31:0" or "[3:0]"; 1 without one.
unsigned range_size(const std::string& range) {
  int left = 0;
  int right = 0;
  const char* digits = range.c_str() + (range.rfind('[', 0) == 0 ? 1 : 0);
  return std::sscanf(digits, "%d:%d", &left, &right) == 2
             ? 1U + static_cast<unsigned>(std::abs(left - right))
             : 1U;
}

class JsonReader {
public:
  JsonReader(const json& netlist, const json& meta, VerilatorRun& run)
      : m_netlist(netlist), m_run(run) {
    const auto files = meta.find("files");
    if (files == meta.end() || !files->is_object()) {
      return;
    }
    for (auto file = files->begin(); file != files->end(); ++file) {
      m_files[file.key()] = text(*file, "filename");
      m_run.read_files.push_back(m_files[file.key()]);
    }
  }

  bool read() {
    for (const json& table : children(m_netlist, "miscsp")) {
      for (const json& type : children(table, "typesp")) {
        m_types.add(text(type, "addr"), read_type(type));
      }
    }
    bool is_found = false;
    for (const json& module : children(m_netlist, "modulesp")) {
      if (text(module, "type") != "MODULE" && text(module, "type") != "IFACE") {
        continue;
      }
      const Place place = place_of(module);
      m_run.design.module_files.push_back(place.file);
      m_run.design.modules.push_back({text(module, "origName"), place});
      if (text(module, "name") == m_run.design.top) {
        read_top(module);
        is_found = true;
      }
    }
    note_data_files();
    return is_found;
  }

private:
  Place place_of(const json& node) const {
    const std::string loc = text(node, "loc");
    const std::size_t comma = loc.find(',');
    const auto file = m_files.find(loc.substr(0, comma));
    if (comma == std::string::npos || file == m_files.end()) {
      return {};
    }
    return {file->second,
            static_cast<unsigned>(std::strtoul(loc.c_str() + comma + 1, nullptr, 10))};
  }

  // Members and elements are types of the table, or written in their place.
  NetlistType read_type(const json& type) {
    const std::string kind = text(type, "type");
    NetlistType read;
    read.inner = text(type, "refDTypep").empty() ? text(type, "dtypep") : text(type, "refDTypep");
    if (kind == "BASICDTYPE") {
      return basic_type(text(type, "keyword").empty() ? text(type, "name") : text(type, "keyword"),
                        range_size(text(type, "range")));
    }
    if (kind == "PACKARRAYDTYPE") {
      read.shape = NetlistType::Shape::packed_array;
      read.count = range_size(text(type, "declRange"));
    } else if (kind == "STRUCTDTYPE" || kind == "UNIONDTYPE") {
      read.shape =
          kind == "STRUCTDTYPE" ? NetlistType::Shape::structure : NetlistType::Shape::overlay;
      for (const json& member : children(type, "membersp")) {
        m_types.add(text(member, "addr"), read_type(member));
        read.members.push_back(text(member, "addr"));
      }
    } else if (kind == "UNPACKARRAYDTYPE") {
      read.shape = NetlistType::Shape::array;
    } else if (kind == "IFACEREFDTYPE") {
      read.shape = NetlistType::Shape::interface;
    } else if (read.inner != text(type, "addr")) {
      read.shape = NetlistType::Shape::reference;
    }
    return read;
  }

  void read_top(const json& module) {
    Design& design = m_run.design;
    design.place = place_of(module);
    for (const json& var : children(module, "stmtsp")) {
      const std::string direction = text(var, "direction");
      const std::string var_type = text(var, "varType");
      if (text(var, "type") != "VAR") {
        continue;
      }
      if (var_type == "GPARAM" || var_type == "LPARAM") {
        design.parameters.push_back({text(var, "name"), var_type == "LPARAM"});
      } else if (direction == "INPUT" || direction == "OUTPUT" || direction == "INOUT") {
        const PortType type = m_types.port_type(text(var, "dtypep"));
        design.ports.push_back({text(var, "name"),
                                direction == "INPUT"    ? Direction::input
                                : direction == "OUTPUT" ? Direction::output
                                                        : Direction::inout,
                                type.kind, type.width, place_of(var)});
      }
    }
  }

  // Without recursion, since expressions nest as deeply as the RTL wants.
  void note_data_files() {
    std::vector<const json*> open = {&m_netlist};
    while (!open.empty()) {
      const json& node = *open.back();
      open.pop_back();
      const json& names = node.is_object() ? children(node, "filenamep") : node;
      if (node.is_object() && text(node, "type") == "READMEM" && !names.empty() &&
          text(names[0], "type") == "CONST") {
        m_run.design.data_files.push_back(
            {text_of_constant(text(names[0], "name")), place_of(node)});
      }
      for (const json& child : node) {
        if (child.is_structured()) {
          open.push_back(&child);
        }
      }
    }
  }

  const json& m_netlist;
  VerilatorRun& m_run;
  std::map<std::string, std::string> m_files;
  NetlistTypes m_types;
};

} // namespace

bool read_verilator_json(const std::string& netlist_path, const std::string& meta_path,
                         VerilatorRun& run) {
  const json netlist = json::parse(read_text(netlist_path), nullptr, false);
  const json meta = json::parse(read_text(meta_path), nullptr, false);
  return netlist.is_object() && meta.is_object() && JsonReader(netlist, meta, run).read();
}

} // namespace bfcl::component
