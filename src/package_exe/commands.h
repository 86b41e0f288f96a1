// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "component_package.h"

#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace bfcl::package {

// The exit statuses of every command.
inline constexpr int STATUS_OK = 0;
inline constexpr int STATUS_FAULT = 1; // a file is damaged or could not be read or written
inline constexpr int STATUS_USAGE = 2;

// Each adds the options of a command, with a callback that runs it after the arguments are parsed
// and stores its exit status in *status. `command` and `*status` must outlive the callback.
void add_show(CLI::App& command, int* status);
void add_unpack(CLI::App& command, int* status);
void add_verify(CLI::App& command, int* status);

// Prints "bfcl-package: FILE: FAULT" on standard error for each fault.
void report_faults(const std::string& file, const std::vector<std::string>& faults);

} // namespace bfcl::package
