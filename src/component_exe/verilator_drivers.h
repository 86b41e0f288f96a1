// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "drivers.h"

#include <functional>
#include <string>

#include <tinyxml2.h>

namespace bfcl::component {

// An attribute of an element, or an empty text.
[[nodiscard]] std::string attribute(const tinyxml2::XMLElement& element, const char* name);

[[nodiscard]] bool is_named(const tinyxml2::XMLElement& element, const char* name);

using XmlPlaces = std::function<Place(const tinyxml2::XMLElement&)>;

// What drives the signals of a module in the XML that verilator writes. Signals in a block are
// called BLOCK.SIGNAL.
[[nodiscard]] ModuleDrivers read_drivers(const tinyxml2::XMLElement& module,
                                         const XmlPlaces& place_of);

} // namespace bfcl::component
