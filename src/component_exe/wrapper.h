// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "hdl_text.h"

#include <string>

namespace bfcl::component {

// What a wrapper does, for a line of comment.
[[nodiscard]] const char* describe(Scheme scheme);

// The text of the wrapper around a module by its plan, whose scheme is not Scheme::direct.
[[nodiscard]] std::string wrapper_text(const Design& design, const PortPlan& plan, HdlText& text);

} // namespace bfcl::component
