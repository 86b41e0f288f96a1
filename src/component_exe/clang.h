// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <optional>
#include <string>
#include <vector>

// OpenCL C models as clang sees them.

namespace bfcl::component {

// The type of an argument or a result.
struct ModelType {
  std::string name; // as clang prints it, such as "const __global uint *restrict"
  bool is_pointer = false;
  bool points_to_const = false;
  // Whether it points into memory that a component cannot reach: __local or, where the model says
  // so itself, __private.
  bool points_to_own_memory = false;
  unsigned bits = 0;        // as sizeof counts them; 0 for void and for types without a size
  bool is_3_vector = false; // a vector of three elements, which sizeof counts as four
  // Of a float, a double or a vector of them, or of what a pointer points to: bytes of an element,
  // whatever the name of the type is; 0 for any other.
  unsigned float_bytes = 0;
  [[nodiscard]] bool is_void() const { return name == "void"; }
};

struct ModelArgument {
  std::string name; // may be empty
  ModelType type;
  unsigned line = 0; // of the name, where macros are expanded
};

// A declaration or definition of a function. `line` counts from 1 in the file `path`.
struct ModelFunction {
  std::string name;
  std::string path;
  unsigned line = 0;
  bool is_definition = false;
  bool is_empty = false; // a definition without a statement
  ModelType result;
  std::vector<ModelArgument> arguments;
};

struct ModelError {
  std::string path;
  unsigned line = 0;
  std::string text;
};

struct CModel {
  // Those whose name contains the name that was asked for; of a model with errors, those whose
  // declarations come before all of them.
  std::vector<ModelFunction> functions;
  std::vector<ModelError> errors;      // why the model does not compile
  std::vector<ModelError> unwritten;   // the same of functions whose bodies are empty
  std::vector<unsigned> include_lines; // of the model's own directives
};

// Compiles the model at `path`, which must be absolute, as OpenCL C, whatever its extension is: of
// 2.0, 3.0 and 1.2 the first that it compiles as, or else 2.0. Widths are those of a 64-bit device.
// Nothing when clang is missing or failed itself; `problem` is then a line for people. Thread-safe.
[[nodiscard]] std::optional<CModel> read_c_model(const std::string& path,
                                                 const std::string& function, std::string& problem);

// The functions that the model at `path` defines, as far as clang reads it: names and places only.
[[nodiscard]] std::vector<ModelFunction> list_c_functions(const std::string& path);

} // namespace bfcl::component
