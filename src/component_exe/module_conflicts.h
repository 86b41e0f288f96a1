// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "description.h"
#include "design.h"

#include <cstddef>
#include <map>
#include <string>

namespace bfcl::component {

// Finds modules, interfaces, packages and entities of one name and different text in components
// that a design may contain together. Comments and white space make no difference.
class ModuleConflicts {
public:
  // Adds what a component's design is made of. Each conflict with what was added before is an error
  // of the report (module-conflict).
  void add(const Description& description, std::size_t component, const Design& design,
           Report& report);

private:
  struct Definition {
    Place place;
    std::string text; // without comments, white space as one blank
  };

  std::map<std::string, Definition> m_definitions; // the first of each name
};

} // namespace bfcl::component
