// SPDX-License-Identifier: BSD-3-Clause
#pragma once

namespace CLI {
class App;
}

// The commands. Each adds its options to the subcommand that main made for it, with a callback that
// runs it and stores its exit status in *status.

namespace bfcl::component {

void add_check(CLI::App& command, int* status);
void add_deps(CLI::App& command, int* status);
void add_new(CLI::App& command, int* status);
void add_prove(CLI::App& command, int* status);
void add_simulate(CLI::App& command, int* status);

} // namespace bfcl::component
