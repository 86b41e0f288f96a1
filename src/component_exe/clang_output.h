// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "clang.h"

#include <map>
#include <string>
#include <vector>

// What clang prints: dumps of its AST as JSON, one document for each declaration, its errors, and
// the marks of its preprocessor.

namespace bfcl::component {

// Appends the functions of a dump. `unqualified_is_private` is the rule of OpenCL C 1.2 for
// pointers without an address space. False when the text is no such dump; `problem` is then a line
// for people.
[[nodiscard]] bool read_clang_functions(const std::string& dump, bool unqualified_is_private,
                                        std::vector<ModelFunction>& functions,
                                        std::string& problem);

// The enumerators of a dump with the values that clang computed, 0 for one that is an error. Empty
// when the text is no such dump.
[[nodiscard]] std::map<std::string, unsigned> read_clang_enumerators(const std::string& dump);

// The errors of its standard error, in their order.
[[nodiscard]] std::vector<ModelError> read_clang_errors(const std::string& text);

// The functions that its warnings of missing prototypes name: all that are not static.
[[nodiscard]] std::vector<ModelFunction> read_clang_definitions(const std::string& text);

// The lines of the file `path` whose directives include another one, from what -E prints.
[[nodiscard]] std::vector<unsigned> read_clang_includes(const std::string& output,
                                                        const std::string& path);

} // namespace bfcl::component
