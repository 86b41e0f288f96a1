// SPDX-License-Identifier: BSD-3-Clause
#include "module_conflicts.h"

#include "rtl_text.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <set>

namespace bfcl::component {

namespace {

bool is_blank(char character) {
  return std::isspace(static_cast<unsigned char>(character)) != 0;
}

std::size_t line_start(const std::string& text, unsigned line) {
  std::size_t at = 0;
  for (unsigned number = 1; number < line && at < text.size(); ++number) {
    at = std::min(text.find('\n', at), text.size() - 1) + 1;
  }
  return at;
}

// Where the first of the words that end a unit of Verilog ends, from a place on.
std::size_t verilog_end(const std::string& code, std::size_t from) {
  std::size_t end = code.size();
  for (const std::string word : {"endmodule", "endinterface", "endpackage", "endprogram"}) {
    const std::size_t found = code.find(word, from);
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
        m_units(units_in(m_text, kind)) {}

  [[nodiscard]] const std::vector<RtlUnit>& units() const { return m_units; }

  [[nodiscard]] std::string text_of(const RtlUnit& unit) const {
    const std::size_t from = line_start(m_code, unit.line);
    return normal_text(m_text, m_code, from,
                       m_kind == FileKind::vhdl ? next_unit(unit) : verilog_end(m_code, from));
  }

private:
  // An entity's architectures belong to it.
  [[nodiscard]] std::size_t next_unit(const RtlUnit& unit) const {
    for (const RtlUnit& other : m_units) {
      if (other.line > unit.line) {
        return line_start(m_code, other.line);
      }
    }
    return m_code.size();
  }

  FileKind m_kind;
  std::string m_text;
  std::string m_code; // of the same length
  std::vector<RtlUnit> m_units;
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
    for (const RtlUnit& unit : source.units()) {
      const Place place = {description.file_name(file), unit.line};
      if ((unit.keyword != "package" && !design.has_module(unit.name, place)) ||
          !seen.insert(unit.name).second) {
        continue;
      }
      Definition definition = {place, source.text_of(unit)};
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
