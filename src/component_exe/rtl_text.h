// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "design.h"

#include <optional>
#include <string>
#include <vector>

// What can be read off the text of RTL sources without elaborating them: names, for messages that
// help and to spare runs of the tools. What a component is judged by comes from the tools.

namespace bfcl::component {

// ASCII letters in lower case, as the names of VHDL are compared.
[[nodiscard]] std::string lower_case(std::string text);

// The bytes of a file; empty when it cannot be read.
[[nodiscard]] std::string read_text(const std::string& path);

// Where a line, counted from 1, begins in a text; the text's end when it has fewer lines.
[[nodiscard]] std::size_t begin_of_line(const std::string& text, unsigned line);

// The text with comments and the contents of strings blanked out, at the same length and lines.
[[nodiscard]] std::string blank_comments(std::string text, FileKind kind);

// A module, interface, package, entity … that a text defines.
struct RtlUnit {
  std::string name;    // of VHDL in lower case
  std::string keyword; // such as module, package, entity
  unsigned line = 0;
  std::size_t name_end = 0; // the offset behind the name
};
[[nodiscard]] std::vector<RtlUnit> units_in(const std::string& text, FileKind kind);

// The line of a unit's definition in a text, or 0.
[[nodiscard]] unsigned line_of_unit(const std::string& text, const std::string& unit,
                                    FileKind kind);

// Of VHDL: the first line from an entity's definition on that has a name, or that of the entity
// when the name is empty; 0 when there is none. The names of the entity's generics. Names are in
// lower case.
[[nodiscard]] unsigned line_in_entity(const std::string& text, const std::string& entity,
                                      const std::string& name);
[[nodiscard]] std::vector<std::string> generics_of(const std::string& text,
                                                   const std::string& entity);

// The macros that a Verilog text defines.
[[nodiscard]] std::vector<std::string> macros_in(const std::string& text);

// Whether a word (an identifier) is in a text.
[[nodiscard]] bool has_word(const std::string& text, const std::string& word);

// The candidate that `name` is most probably a misspelling of, or empty.
[[nodiscard]] std::string nearest_name(const std::string& name,
                                       const std::vector<std::string>& candidates);

// "; did you mean 'NEAREST'?", or empty.
[[nodiscard]] std::string suggestion(const std::string& name,
                                     const std::vector<std::string>& candidates);

// The path of a source that is not listed, in a folder of the listed ones or of the description,
// that defines a unit; or empty.
[[nodiscard]] std::string neighbour_with(const std::string& unit,
                                         const ElaborationRequest& request);

// How the description would list a file: its path from there, as an XML element.
[[nodiscard]] std::string file_element(const std::string& file, const ElaborationRequest& request);

// "; FILE has it: add <FILE …/>" for a unit that a neighbour defines, which the report notes, a
// suggestion from the units that are listed otherwise, or empty.
[[nodiscard]] std::string where_to_find(const std::string& unit, const ElaborationRequest& request,
                                        const std::vector<std::string>& listed_units,
                                        Report& report);

// Whether a listed file does not exist and nearly has the name of this one.
[[nodiscard]] bool is_misspelled(const std::string& file, const ElaborationRequest& request);

// Whether a listed file that does not exist is most probably the one that defines a unit: it has
// the unit's name, or nearly that of the neighbour which does.
[[nodiscard]] bool is_in_misspelled_file(const std::string& unit,
                                         const ElaborationRequest& request);

// Whether a listed file of the kind defines a unit. No tool here elaborates both languages at once.
[[nodiscard]] bool is_in_other_language(const ElaborationRequest& request, FileKind kind,
                                        const std::string& unit);

// Warns that the files elaborate in another order only than the description lists them in.
void report_order(const ElaborationRequest& request, const std::vector<std::string>& order,
                  Report& report);

} // namespace bfcl::component
