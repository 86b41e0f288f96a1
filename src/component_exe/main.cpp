// SPDX-License-Identifier: BSD-3-Clause
#include "commands.h"
#include "finding.h"
#include "opencl.h"
#include "process.h"

#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>

#include <CLI/CLI.hpp>

namespace {

using namespace bfcl::component;

struct Command {
  const char* name;
  const char* help; // one line
  void (*add)(CLI::App& command, int* status);
};

constexpr Command COMMANDS[] = {
    {"check", "check that description, RTL and C model agree", add_check},
    {"new", "write a description, a C model's prototype and a wrapper for a module", add_new},
    {"prove", "prove handshake, latency and capacity of the RTL", add_prove},
    {"deps", "write what a build of a package depends on, for make and ninja", add_deps},
    {"simulate", "run the RTL against the C model with random and corner values", add_simulate},
    {"run-model", "", add_run_model}, // not in the help
};

int run(int argc, char** argv) {
  CLI::App app("Makes sure that a component's description, RTL and C model agree.",
               "bfcl component");
  app.require_subcommand(1);
  int status = STATUS_OK;
  for (const auto& [name, help, add] : COMMANDS) {
    add(*app.add_subcommand(name, help), &status);
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) { // the argument library's way to end, help included
    return app.exit(error) == 0 ? STATUS_OK : STATUS_NOT_CHECKED;
  }
  return status;
}

// The signal ends the process now that its temporary files are removed.
void end_by_interrupt() {
  const int signal = interrupt_signal();
  if (signal != 0) {
    std::signal(signal, SIG_DFL);
    std::raise(signal);
  }
}

} // namespace

int main(int argc, char** argv) {
  catch_interrupts();
  int status = STATUS_NOT_CHECKED;
  try {
    status = run(argc, argv);
  } catch (const std::exception& error) { // the standard library's, when memory is out
    std::fprintf(stderr, "bfcl-component: %s\n", error.what());
  }
  end_by_interrupt();
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    std::fprintf(stderr, "bfcl-component: cannot write to standard output: %s\n",
                 std::strerror(errno));
    return STATUS_NOT_CHECKED;
  }
  return status;
}
