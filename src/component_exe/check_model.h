// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "description.h"

#include <cstddef>

namespace bfcl::component {

// Compares the C models of a component with its description: reports the rules model,
// model-missing, model-arguments, model-type, model-result and model-include. Thread-safe.
void check_model(const Description& description, std::size_t component, Report& report);

} // namespace bfcl::component
