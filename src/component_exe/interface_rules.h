// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "description.h"
#include "design.h"

namespace bfcl::component {

// What the description says about the files of a component, against the file system. False when a C
// model does not exist.
bool check_files(const Description& description, std::size_t component, Report& report);

// What the description says about the ports, against those of the elaborated module; and the data
// files that the RTL reads, against those that are listed.
void check_interface(const Description& description, std::size_t component, const Design& design,
                     Report& report);

} // namespace bfcl::component
