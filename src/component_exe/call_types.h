// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "calls.h"
#include "clang.h"

// What the types of a C model say about the values of a call.

namespace bfcl::component {

// Gives an argument the kind and the elements of its type, unless the type is the user's own.
void apply_type(const ModelType& type, CallInput& input);

// The bytes of an element of a floating type, or vector of one, of so many bytes; 0 for any other.
[[nodiscard]] std::size_t float_bytes(const ModelType& type, std::size_t bytes);

} // namespace bfcl::component
