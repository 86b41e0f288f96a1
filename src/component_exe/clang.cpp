// SPDX-License-Identifier: BSD-3-Clause
#include "clang.h"

#include "process.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <fstream>
#include <map>
#include <sstream>
#include <string_view>

#include <nlohmann/json.hpp>

namespace bfcl::component {

namespace {

using Json = nlohmann::ordered_json; // places depend on the order of the document

constexpr const char* PROBE_NAME = "bfcl_probe_";

// Debian installs clang under its version's name too, sometimes only so.
const std::string& clang_name() {
  static const std::string s_name = [] {
    std::vector<std::string> names = {"clang"};
    for (int version = 22; version >= 11; --version) {
      names.push_back("clang-" + std::to_string(version));
    }
    const auto found = std::find_if(names.begin(), names.end(), [](const std::string& name) {
      return run_tool({name, "--version"}, "").ok();
    });
    return found != names.end() ? *found : names.front();
  }();
  return s_name;
}

// The built-in functions are declared as they are used, so that the AST contains few of them.
// Headers of the system are none of OpenCL C. A model whose result is undefined is wrong, whatever
// clang calls it.
std::vector<std::string> compile_command(const std::string& standard) {
  return {clang_name(),
          "-x",
          "cl",
          "--target=spir64",
          "-cl-std=" + standard,
          "-Wno-everything",
          "-Werror=return-type",
          "-Werror=uninitialized",
          "-nostdlibinc",
          "-fno-color-diagnostics",
          "-fno-caret-diagnostics",
          "-fno-diagnostics-show-option",
          "-Xclang",
          "-finclude-default-header",
          "-Xclang",
          "-fdeclare-opencl-builtins"};
}

std::vector<std::string> dump_command(const std::string& standard, const std::string& name,
                                      const std::vector<std::string>& files) {
  std::vector<std::string> command = compile_command(standard);
  const std::vector<std::string> dump = {"-fsyntax-only", "-Xclang", "-ast-dump=json", "-Xclang",
                                         "-ast-dump-filter=" + name};
  command.insert(command.end(), dump.begin(), dump.end());
  command.insert(command.end(), files.begin(), files.end());
  return command;
}

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

// An enumerator's expression that tells what the dump does not: the constness that a typedef hides,
// the size in bits, and whether a vector has three elements.
std::string probe_expression(const ModelType& type, bool is_vector_probe) {
  if (type.is_pointer) {
    return "_Generic((" + type.name + ")0, const __typeof__(*(" + type.name +
           ")0) *: 1, default: 0)";
  }
  return is_vector_probe ? "_Generic(*(" + type.name +
                               "*)0, char3: 1, uchar3: 1, short3: 1, ushort3: 1, int3: 1, "
                               "uint3: 1, long3: 1, ulong3: 1, float3: 1, double3: 1, default: 0)"
                         : "sizeof(" + type.name + ") * 8";
}

std::string float_probe(const ModelType& type) {
  return "_Generic(*(" + type.name + (type.is_pointer ? "" : "*") +
         ")0, float: 4, float2: 4, float3: 4, float4: 4, float8: 4, float16: 4, double: 8, "
         "double2: 8, double3: 8, double4: 8, double8: 8, double16: 8, default: 0)";
}

std::vector<ModelType*> types_of_definitions(std::vector<ModelFunction>& functions,
                                             const std::string& name) {
  std::vector<ModelType*> types;
  for (ModelFunction& function : functions) {
    if (!function.is_definition || function.name != name) {
      continue;
    }
    types.push_back(&function.result);
    for (ModelArgument& argument : function.arguments) {
      types.push_back(&argument.type);
    }
  }
  return types;
}

std::map<std::string, unsigned> read_probes(const std::string& dump) {
  std::map<std::string, unsigned> values;
  for (const Json& declaration : parse_dump(dump)) {
    values[declaration.value("name", "")] = value_of(declaration);
  }
  return values;
}

// Compiles the model once more, with an enumerator for each question about a type.
bool measure_types(const std::string& standard, const std::string& path,
                   const std::vector<ModelType*>& types, std::string& problem) {
  const TempFolder folder;
  const std::string probe_path = folder.path() + "/probe.cl";
  std::ofstream probe(probe_path);
  for (std::size_t i = 0; i < types.size(); ++i) {
    probe << "enum { " << PROBE_NAME << "a" << i << " = " << probe_expression(*types[i], false)
          << " };\nenum { " << PROBE_NAME << "b" << i << " = " << probe_expression(*types[i], true)
          << " };\nenum { " << PROBE_NAME << "c" << i << " = " << float_probe(*types[i]) << " };\n";
  }
  probe.close();
  if (folder.path().empty() || !probe) {
    problem = "cannot write a temporary file";
    return false;
  }
  const ToolResult result =
      run_tool(dump_command(standard, PROBE_NAME, {"-include", path, probe_path}), folder.path());
  if (result.end != ToolResult::End::exited) {
    problem = describe_failure("clang", result);
    return false;
  }
  const auto values = read_probes(result.output);
  if (values.empty()) {
    problem = "clang does not print declarations";
    return false;
  }
  const auto value = [&](char question, std::size_t i) {
    const auto found = values.find(PROBE_NAME + (question + std::to_string(i)));
    return found != values.end() ? found->second : 0;
  };
  for (std::size_t i = 0; i < types.size(); ++i) {
    ModelType& type = *types[i];
    type.points_to_const |= type.is_pointer && value('a', i) == 1;
    type.bits = type.is_pointer ? 64 : type.is_void() ? 0 : value('a', i);
    type.is_3_vector = !type.is_pointer && value('b', i) == 1;
    type.float_bytes = value('c', i);
  }
  return true;
}

// A line "PATH:LINE:COLUMN: error: TEXT".
std::optional<ModelError> read_error(const std::string& line) {
  for (const std::string_view mark : {": error: ", ": fatal error: "}) {
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

std::vector<ModelError> read_errors(const std::string& text) {
  std::vector<ModelError> errors;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (auto error = read_error(line)) {
      errors.push_back(std::move(*error));
    }
  }
  return errors;
}

// Whether the tool did its work: it accepted the model, or found an error in it.
bool is_verdict(const ToolResult& result) {
  return result.ok() || (result.end == ToolResult::End::exited && result.code == 1 &&
                         !read_errors(result.errors).empty());
}

// The preprocessor marks where it comes back to the model from an included file:
// # LINE "PATH" 2, LINE being that after the directive.
std::vector<unsigned> read_include_lines(const std::string& output, const std::string& path) {
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

bool contains_word_include(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::stringstream text;
  text << file.rdbuf();
  return text.str().find("include") != std::string::npos;
}

std::vector<unsigned> find_includes(const std::string& standard, const std::string& path) {
  if (!contains_word_include(path)) {
    return {};
  }
  std::vector<std::string> command = compile_command(standard);
  command.insert(command.end(), {"-E", path});
  return read_include_lines(run_tool(command, "").output, path);
}

struct Compilation {
  std::string standard;
  ToolResult result;
};

Compilation compile(const std::string& path, const std::string& function) {
  std::optional<Compilation> first;
  for (const char* standard : {"CL2.0", "CL3.0", "CL1.2"}) {
    ToolResult result = run_tool(dump_command(standard, function, {path}), "");
    if (result.ok() || !is_verdict(result)) {
      return {standard, std::move(result)};
    }
    if (!first) {
      first = Compilation{standard, std::move(result)};
    }
  }
  return std::move(*first);
}

// A function with an empty body, as a new model has it, is unfinished and not wrong.
void move_unwritten(CModel& model) {
  const bool has_empty = std::any_of(model.functions.begin(), model.functions.end(),
                                     [](const ModelFunction& f) { return f.is_empty; });
  const auto first = std::stable_partition(
      model.errors.begin(), model.errors.end(), [has_empty](const ModelError& error) {
        return !has_empty || error.text != "non-void function does not return a value";
      });
  model.unwritten.assign(first, model.errors.end());
  model.errors.erase(first, model.errors.end());
}

std::optional<CModel> read_model(const std::string& path, const std::string& function,
                                 std::string& problem) {
  const auto [standard, result] = compile(path, function);
  if (!is_verdict(result)) {
    problem = describe_failure("clang", result);
    return std::nullopt;
  }
  CModel model;
  model.errors = read_errors(result.errors);
  model.include_lines = find_includes(standard, path);
  Json declarations = parse_dump(result.output);
  if (declarations.is_discarded()) {
    problem = "clang printed something else than JSON";
    return std::nullopt;
  }
  for (Json& declaration : declarations) {
    PlaceFiller().fill(declaration); // each document begins anew
    if (declaration.value("kind", "") == "FunctionDecl") {
      model.functions.push_back(read_function(declaration, standard == "CL1.2"));
    }
  }
  move_unwritten(model);
  std::vector<ModelType*> types = types_of_definitions(model.functions, function);
  ModelType number;
  number.name = "int";
  if (types.empty()) { // no such function, or a tool that prints nothing whatever it is asked
    types.push_back(&number);
  }
  if (model.errors.empty() && !measure_types(standard, path, types, problem)) {
    return std::nullopt;
  }
  return model;
}

} // namespace

std::optional<CModel> read_c_model(const std::string& path, const std::string& function,
                                   std::string& problem) {
  try {
    return read_model(path, function, problem);
  } catch (const Json::exception&) { // a value of another type than clang's dumps have there
    problem = "clang printed something else than an AST";
    return std::nullopt;
  }
}

} // namespace bfcl::component
