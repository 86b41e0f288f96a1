// SPDX-License-Identifier: BSD-3-Clause
#include "call_types.h"

#include <algorithm>

namespace bfcl::component {

namespace {

// What is known of a type by its name in OpenCL C.
struct TypeKind {
  const char* name;
  ValueKind kind;
  bool is_signed;
  std::size_t bytes; // of it, or of a vector's elements
};

constexpr TypeKind TYPE_KINDS[] = {
    {"bool", ValueKind::boolean, false, 1},   {"char", ValueKind::integer, true, 1},
    {"uchar", ValueKind::integer, false, 1},  {"short", ValueKind::integer, true, 2},
    {"ushort", ValueKind::integer, false, 2}, {"int", ValueKind::integer, true, 4},
    {"uint", ValueKind::integer, false, 4},   {"long", ValueKind::integer, true, 8},
    {"ulong", ValueKind::integer, false, 8},  {"half", ValueKind::floating, true, 2},
    {"float", ValueKind::floating, true, 4},  {"double", ValueKind::floating, true, 8},
};

// "const __global float *restrict" -> "float".
std::string pointee(const std::string& type) {
  const std::string name = type.substr(0, type.rfind('*'));
  return name.substr(0, name.find_last_not_of(' ') + 1);
}

// The kind of "const uint4", of a pointer to it, or of a user's own name for a floating type; null
// for any other type of the user's own.
const TypeKind* find_type_kind(const ModelType& type) {
  std::string name = type.is_pointer ? pointee(type.name) : type.name;
  name.erase(0, name.find_last_of(' ') + 1);
  name.erase(name.find_last_not_of("0123456789") + 1);
  const auto* found =
      std::find_if(std::begin(TYPE_KINDS), std::end(TYPE_KINDS), [&](const TypeKind& kind) {
        return kind.name == name ||
               (kind.kind == ValueKind::floating && kind.bytes == type.float_bytes);
      });
  return found != std::end(TYPE_KINDS) ? found : nullptr;
}

} // namespace

void apply_type(const ModelType& type, CallInput& input) {
  const TypeKind* kind = find_type_kind(type);
  if (kind != nullptr && (input.is_pointer || input.bytes % kind->bytes == 0)) {
    input.kind = kind->kind;
    input.is_signed = kind->is_signed;
    input.element_bytes = kind->bytes;
  }
}

std::size_t float_bytes(const ModelType& type, std::size_t bytes) {
  const TypeKind* kind = find_type_kind(type);
  const bool is_floating = kind != nullptr && kind->kind == ValueKind::floating;
  return is_floating && bytes % kind->bytes == 0 ? kind->bytes : 0;
}

} // namespace bfcl::component
