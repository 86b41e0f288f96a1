// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "design.h"

#include <string>

// Sources without what is behind the ports of a unit, for tools that are asked for nothing else: an
// error in the body of a module hides its ports from them.

namespace bfcl::component {

// The text with the body of a module blanked out, all but what its ports may depend on (parameters,
// types, functions, directives), or with an empty body in each architecture of an entity, which is
// in lower case. The lines stay where they are. Empty when the text does not define the unit.
[[nodiscard]] std::string without_body(const std::string& text, const std::string& unit,
                                       FileKind kind);

} // namespace bfcl::component
