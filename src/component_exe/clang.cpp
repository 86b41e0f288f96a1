// SPDX-License-Identifier: BSD-3-Clause
#include "clang.h"

#include "clang_output.h"
#include "process.h"

#include <algorithm>
#include <fstream>
#include <sstream>

namespace bfcl::component {

namespace {

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
  const auto values = read_clang_enumerators(result.output);
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

// Whether the tool did its work: it accepted the model, or found an error in it.
bool is_verdict(const ToolResult& result) {
  return result.ok() || (result.end == ToolResult::End::exited && result.code == 1 &&
                         !read_clang_errors(result.errors).empty());
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
  return read_clang_includes(run_tool(command, "").output, path);
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

// An error in a declaration, or in front of it, may have changed it.
void drop_unsound(CModel& model) {
  std::erase_if(model.functions, [&](const ModelFunction& function) {
    unsigned last_line = function.line;
    for (const ModelArgument& argument : function.arguments) {
      last_line = std::max(last_line, argument.line);
    }
    return std::any_of(model.errors.begin(), model.errors.end(), [&](const ModelError& error) {
      return error.path != function.path || error.line <= last_line;
    });
  });
}

} // namespace

std::optional<CModel> read_c_model(const std::string& path, const std::string& function,
                                   std::string& problem) {
  const auto [standard, result] = compile(path, function);
  if (!is_verdict(result)) {
    problem = describe_failure("clang", result);
    return std::nullopt;
  }
  CModel model;
  model.errors = read_clang_errors(result.errors);
  model.include_lines = find_includes(standard, path);
  if (!read_clang_functions(result.output, standard == "CL1.2", model.functions, problem)) {
    return std::nullopt;
  }
  move_unwritten(model);
  std::vector<ModelType*> types = types_of_definitions(model.functions, function);
  ModelType number;
  number.name = "int";
  if (types.empty()) { // no such function, or a tool that prints nothing whatever it is asked
    types.push_back(&number);
  }
  if (!measure_types(standard, path, types, problem)) {
    if (model.errors.empty()) {
      return std::nullopt;
    }
    model.functions.clear();
  }
  drop_unsound(model);
  return model;
}

std::vector<ModelFunction> list_c_functions(const std::string& path) {
  std::vector<std::string> command = compile_command("CL2.0");
  command.insert(command.end(), {"-Wmissing-prototypes", "-fsyntax-only", path});
  return read_clang_definitions(run_tool(command, "").errors);
}

} // namespace bfcl::component
