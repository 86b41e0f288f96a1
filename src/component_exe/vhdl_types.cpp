// SPDX-License-Identifier: BSD-3-Clause
#include "vhdl_types.h"

#include "hdl_text.h"
#include "rtl_text.h"

#include <algorithm>
#include <cctype>
#include <sstream>

namespace bfcl::component {

namespace {

constexpr unsigned MAX_DEPTH = 20; // of subtypes of subtypes

using Definitions = std::map<std::string, std::string>; // by the subtype's name

// Notes each "subtype NAME is DEFINITION;".
void note_subtypes(const std::string& text, Definitions& definitions) {
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    std::string name;
    std::string is;
    std::string definition;
    if (word == "subtype" && words >> name >> is && is == "is" &&
        std::getline(words, definition, ';')) {
      std::replace_if(
          definition.begin(), definition.end(),
          [](unsigned char byte) { return std::isspace(byte) != 0; }, ' ');
      definitions[name] = definition;
    }
  }
}

// "natural range 0 to 15" for the range of an integer; empty unless it is written in literals,
// which mean the same in the wrapper.
std::string type_of_range(const std::string& range) {
  const std::size_t downto = range.find(" downto ");
  std::string low = downto == std::string::npos ? range : range.substr(downto + 8);
  low.erase(0, low.find_first_not_of(' '));
  const bool is_literal = range.find_first_not_of(" -0123456789todwn") == std::string::npos;
  return is_literal ? (low[0] == '-' ? "integer range " : "natural range ") + range : "";
}

// The base type of "work.types.word (7 downto 0)".
std::string base_type(std::string definition, const Definitions& definitions, unsigned depth) {
  definition.erase(0, definition.find_first_not_of(' '));
  definition.erase(std::min(definition.find(":="), definition.size()));
  std::string mark = definition.substr(0, definition.find_first_of(" ("));
  mark.erase(0, mark.rfind('.') + 1);
  const std::size_t range = definition.find(" range ");
  const auto found = definitions.find(mark);
  if (range != std::string::npos) {
    return type_of_range(definition.substr(range + 7));
  }
  if (found != definitions.end() && depth < MAX_DEPTH) {
    return base_type(found->second, definitions, depth + 1);
  }
  if (mark == "positive") {
    return "natural";
  }
  mark.erase(0, mark.rfind("u_", 0) == 0 ? 2 : 0); // other names of the unresolved types
  return can_connect_vhdl(mark) ? mark : "";
}

} // namespace

std::map<std::string, std::string> vhdl_types(const std::string& netlist,
                                              const std::vector<std::string>& sources) {
  Definitions definitions;
  for (const std::string& source : sources) {
    note_subtypes(lower_case(blank_comments(source, FileKind::vhdl)), definitions);
  }
  std::map<std::string, std::string> types;
  std::istringstream lines(lower_case(netlist));
  bool is_port = false;
  for (std::string line; std::getline(lines, line) && line != "end;";) {
    const std::size_t colon = line.find(": ");
    if (!is_port || colon == std::string::npos) {
      is_port = is_port || line == "  port (";
      continue;
    }
    std::string definition = line.substr(colon + 2);
    definition.erase(std::min(definition.find(';'), definition.size()));
    for (const char* mode : {"in ", "out ", "inout ", "buffer "}) {
      definition.erase(0, definition.rfind(mode, 0) == 0 ? std::string(mode).size() : 0);
    }
    std::istringstream names(line.substr(0, colon));
    for (std::string name; names >> name;) {
      name.erase(std::min(name.find(','), name.size()));
      types[name] = base_type(definition, definitions, 0);
    }
  }
  return types;
}

} // namespace bfcl::component
