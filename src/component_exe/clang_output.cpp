// SPDX-License-Identifier: BSD-3-Clause
#include "clang_output.h"

#include <charconv>
#include <initializer_list>
#include <optional>
#include <sstream>
#include <string_view>

#include <nlohmann/json.hpp>

namespace bfcl::component {

namespace {

using Json = nlohmann::ordered_json; // places depend on the order of the document

// The declarations of a dump, which is one document after the other. Function bodies are cut off.
Json parse_dump(std::string text) {
  constexpr int BODY_DEPTH = 6;
  constexpr std::string_view boundary = "\n}\n{\n";
  for (std::size_t at = 0; (at = text.find(boundary, at)) != std::string::npos;) {
    text[at + 2] = ','; // between the braces, in the place of the line end
  }
  const auto cut = [](int depth, Json::parse_event_t, Json&) { return depth <= BODY_DEPTH; };
  return Json::parse("[" + text + "]", cut, false);
}

// Writes the line and file into each place that leaves them out because they are those of the place
// before it.
class PlaceFiller {
public:
  void fill(Json& node) {
    if (node.is_object() && node.contains("offset")) {
      fill_place(node);
    }
    if (!node.is_structured()) {
      return;
    }
    for (auto entry = node.begin(); entry != node.end(); ++entry) {
      if (!node.is_object() || entry.key() != "includedFrom") {
        fill(*entry);
      }
    }
  }

private:
  void fill_place(Json& place) {
    m_file = place.value("file", m_file);
    m_line = place.value("line", m_line);
    place["file"] = m_file;
    place["line"] = m_line;
  }

  std::string m_file;
  unsigned m_line = 0;
};

// The place where a declaration is written, or where the macro that makes it is used.
const Json& place_of(const Json& declaration) {
  static const Json s_nowhere = Json::object();
  const auto place = declaration.find("loc");
  if (place == declaration.end() || !place->is_object()) {
    return s_nowhere;
  }
  const auto expansion = place->find("expansionLoc");
  return expansion != place->end() ? *expansion : *place;
}

void erase_all(std::string& text, std::string_view part) {
  for (std::size_t at = 0; (at = text.find(part, at)) != std::string::npos;) {
    text.erase(at, part.size());
  }
}

// Every argument is __private itself, which clang says and no model does.
std::string without_own_address_space(const std::string& type) {
  const std::size_t star = type.rfind('*');
  std::string own = star == std::string::npos ? type : type.substr(star + 1);
  erase_all(own, " __private");
  erase_all(own, "__private ");
  erase_all(own, "__private");
  return (star == std::string::npos ? "" : type.substr(0, star + 1)) + own;
}

ModelType read_type(const Json& type, bool unqualified_is_private) {
  ModelType result;
  const std::string written = type.value("qualType", "");
  const std::string desugared = type.value("desugaredQualType", written);
  result.name = without_own_address_space(written);
  const std::size_t star = desugared.rfind('*');
  result.is_pointer = star != std::string::npos;
  const std::string pointee = desugared.substr(0, star);
  const auto says = [&](const char* word) { return pointee.find(word) != std::string::npos; };
  result.points_to_const = result.is_pointer && says("__constant");
  result.points_to_own_memory =
      result.is_pointer && (says("__local") || (says("__private") && !unqualified_is_private));
  return result;
}

// "uint (uint, int)" begins with the type of the result.
ModelType read_result(const Json& declaration, bool unqualified_is_private) {
  const std::string type = declaration.value("/type/qualType"_json_pointer, "");
  return read_type({{"qualType", type.substr(0, type.find(" ("))}}, unqualified_is_private);
}

ModelFunction read_function(const Json& declaration, bool unqualified_is_private) {
  ModelFunction function;
  function.name = declaration.value("name", "");
  function.path = place_of(declaration).value("file", "");
  function.line = place_of(declaration).value("line", 0U);
  function.result = read_result(declaration, unqualified_is_private);
  for (const Json& inner : declaration.value("inner", Json::array())) {
    const std::string kind = inner.is_object() ? inner.value("kind", "") : "";
    if (kind == "ParmVarDecl") {
      function.arguments.push_back(
          {inner.value("name", ""),
           read_type(inner.value("type", Json::object()), unqualified_is_private),
           place_of(inner).value("line", 0U)});
    }
    function.is_definition |= kind == "CompoundStmt";
    function.is_empty |= kind == "CompoundStmt" && !inner.contains("inner");
  }
  return function;
}

// The value that clang computed for an enumerator, or 0 when it is an error.
unsigned value_of(const Json& node) {
  if (!node.is_object()) {
    return 0;
  }
  if (const auto value = node.find("value"); value != node.end() && value->is_string()) {
    const auto text = value->get<std::string>();
    unsigned number = 0;
    std::from_chars(text.data(), text.data() + text.size(), number);
    return number;
  }
  const auto inner = node.find("inner");
  return inner != node.end() && !inner->empty() ? value_of(inner->front()) : 0;
}

// A line "PATH:LINE:COLUMN: error: TEXT", or with another one of the marks.
std::optional<ModelError> read_error(const std::string& line,
                                     std::initializer_list<std::string_view> marks) {
  for (const std::string_view mark : marks) {
    const std::size_t end = line.find(mark);
    const std::size_t column = end == std::string::npos ? end : line.rfind(':', end - 1);
    const std::size_t number = column == std::string::npos ? column : line.rfind(':', column - 1);
    ModelError error;
    if (number != std::string::npos && number != 0 &&
        std::from_chars(&line[number + 1], &line[column], error.line).ptr == &line[column]) {
      error.path = line.substr(0, number);
      error.text = line.substr(end + mark.size());
      return error;
    }
  }
  return std::nullopt;
}

} // namespace

bool read_clang_functions(const std::string& dump, bool unqualified_is_private,
                          std::vector<ModelFunction>& functions, std::string& problem) {
  try {
    Json declarations = parse_dump(dump);
    if (declarations.is_discarded()) {
      problem = "clang printed something else than JSON";
      return false;
    }
    for (Json& declaration : declarations) {
      PlaceFiller().fill(declaration); // each document begins anew
      if (declaration.value("kind", "") == "FunctionDecl") {
        functions.push_back(read_function(declaration, unqualified_is_private));
      }
    }
    return true;
  } catch (const Json::exception&) { // a value of another type than clang's dumps have there
    problem = "clang printed something else than an AST";
    return false;
  }
}

std::map<std::string, unsigned> read_clang_enumerators(const std::string& dump) {
  std::map<std::string, unsigned> values;
  try {
    for (const Json& declaration : parse_dump(dump)) {
      values[declaration.value("name", "")] = value_of(declaration);
    }
  } catch (const Json::exception&) {
    values.clear();
  }
  return values;
}

std::vector<ModelError> read_clang_errors(const std::string& text) {
  std::vector<ModelError> errors;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (auto error = read_error(line, {": error: ", ": fatal error: "})) {
      errors.push_back(std::move(*error));
    }
  }
  return errors;
}

std::vector<ModelFunction> read_clang_definitions(const std::string& text) {
  std::vector<ModelFunction> functions;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    const auto warning = read_error(line, {": warning: no previous prototype for function '"});
    if (warning && !warning->text.empty()) {
      ModelFunction function;
      function.name = warning->text.substr(0, warning->text.find('\''));
      function.path = warning->path;
      function.line = warning->line;
      function.is_definition = true;
      functions.push_back(std::move(function));
    }
  }
  return functions;
}

// The preprocessor marks where it comes back to the model from an included file:
// # LINE "PATH" 2, LINE being that after the directive.
std::vector<unsigned> read_clang_includes(const std::string& output, const std::string& path) {
  std::vector<unsigned> lines;
  std::istringstream stream(output);
  std::string quoted = "\"";
  for (const char character : path) {
    quoted += character == '"' || character == '\\' ? std::string{'\\', character}
                                                    : std::string{character};
  }
  quoted += "\" 2";
  for (std::string text; std::getline(stream, text);) {
    unsigned line = 0;
    if (text.starts_with("# ") && text.ends_with(quoted)) {
      std::from_chars(text.data() + 2, text.data() + text.size(), line);
    }
    if (line > 1) {
      lines.push_back(line - 1);
    }
  }
  return lines;
}

} // namespace bfcl::component
