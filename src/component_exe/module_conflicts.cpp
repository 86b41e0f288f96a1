// SPDX-License-Identifier: BSD-3-Clause
#include "module_conflicts.h"

#include "rtl_text.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <set>
#include <string_view>
#include <vector>

namespace bfcl::component {

namespace {

bool is_blank(char character) {
  return std::isspace(static_cast<unsigned char>(character)) != 0;
}

// Where each unit's line begins. Units are in the order of their lines.
std::vector<std::size_t> line_starts(const std::string& text, const std::vector<RtlUnit>& units) {
  std::vector<std::size_t> starts;
  starts.reserve(units.size());
  std::size_t at = 0;
  unsigned line = 1;
  for (const RtlUnit& unit : units) {
    for (; line < unit.line && at < text.size(); ++line) {
      at = std::min(text.find('\n', at), text.size() - 1) + 1;
    }
    starts.push_back(at);
  }
  return starts;
}

// Where the first of the words that end a unit of Verilog ends.
std::size_t verilog_end(std::string_view code) {
  std::size_t end = code.size();
  for (const std::string_view word : {"endmodule", "endinterface", "endpackage", "endprogram"}) {
    const std::size_t found = code.find(word);
    end = found < end ? found + word.size() : end;
  }
  return end;
}

// The text of the file from one place to another without comments, and with the contents of
// strings, which `code` lacks.
std::string normal_text(const std::string& text, const std::string& code, std::size_t from,
                        std::size_t to) {
  std::string normal;
  bool in_string = false;
  for (std::size_t at = from; at < to; ++at) {
    in_string = code[at] == '"' ? !in_string : in_string;
    const char character = in_string ? text[at] : code[at];
    if (!is_blank(character)) {
      normal += character;
    } else if (!normal.empty() && normal.back() != ' ') {
      normal += ' ';
    }
  }
  return normal.substr(0, normal.find_last_not_of(' ') + 1);
}

// One source file of a component.
class Source {
public:
  Source(const std::string& path, FileKind kind)
      : m_kind(kind), m_text(read_text(path)), m_code(blank_comments(m_text, kind)),
        m_units(units_in(m_text, kind)), m_starts(line_starts(m_code, m_units)) {}

  [[nodiscard]] const std::vector<RtlUnit>& units() const { return m_units; }

  // An entity's architectures belong to it.
  [[nodiscard]] std::string text_of(std::size_t unit) const {
    const std::size_t from = m_starts[unit];
    const auto next = std::upper_bound(m_starts.begin(), m_starts.end(), from);
    const std::size_t to = next != m_starts.end() ? *next : m_code.size();
    const std::string_view code = std::string_view(m_code).substr(from, to - from);
    return normal_text(m_text, m_code, from,
                       m_kind == FileKind::vhdl ? to : from + verilog_end(code));
  }

private:
  FileKind m_kind;
  std::string m_text;
  std::string m_code; // of the same length
  std::vector<RtlUnit> m_units;
  std::vector<std::size_t> m_starts;
};

} // namespace

void ModuleConflicts::add(const Description& description, std::size_t component,
                          const Design& design, Report& report) {
  std::set<std::string> seen; // two files of one component are no conflict of components
  for (const std::string& file : description.spec->efi_elems()[component]->m_requirement_files) {
    const FileKind kind = file_kind(file);
    if (kind != FileKind::verilog && kind != FileKind::vhdl) {
      continue;
    }
    const Source source(description.file_path(file), kind);
    for (std::size_t i = 0; i < source.units().size(); ++i) {
      const RtlUnit& unit = source.units()[i];
      const Place place = {description.file_name(file), unit.line};
      if ((unit.keyword != "package" && !design.has_module(unit.name, place)) ||
          !seen.insert(unit.name).second) {
        continue;
      }
      Definition definition = {place, source.text_of(i)};
      const auto [first, is_new] = m_definitions.try_emplace(unit.name, definition);
      if (!is_new && first->second.text != definition.text) {
        const Place& other = first->second.place;
        report.error("module-conflict", place,
                     "'" + unit.name + "' differs from the one in " + other.file + ":" +
                         std::to_string(other.line) +
                         ", and a design with both components can contain only one");
      }
    }
  }
}

} // namespace bfcl::component
