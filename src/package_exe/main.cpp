// SPDX-License-Identifier: BSD-3-Clause
#include "commands.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>

namespace {

using namespace bfcl::package;

struct Command {
  const char* name;
  const char* help; // one line
  void (*add)(CLI::App& command, int* status);
};

constexpr Command COMMANDS[] = {
    {"show", "print what packages and libraries contain", add_show},
    {"unpack", "write the files of a component, or the packages of a library", add_unpack},
    {"verify", "check that packages and libraries are complete and consistent", add_verify},
};

int run(int argc, char** argv) {
  CLI::App app("Looks into component packages and libraries, and takes them apart.",
               "bfcl package");
  app.require_subcommand(1);
  int status = STATUS_OK;
  for (const auto& [name, help, add] : COMMANDS) {
    add(*app.add_subcommand(name, help), &status);
  }
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) { // also thrown for --help
    return app.exit(error) == 0 ? STATUS_OK : STATUS_USAGE;
  }
  return status;
}

} // namespace

int main(int argc, char** argv) {
  std::signal(SIGXFSZ, SIG_IGN); // a write beyond a limit fails like one on a full disk
  exit_when_a_mapped_file_shrinks(STATUS_FAULT);
  int status = STATUS_FAULT;
  try {
    status = run(argc, argv);
  } catch (const std::exception& error) { // no memory
    std::fprintf(stderr, "bfcl-package: %s\n", error.what());
  }
  if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
    std::fprintf(stderr, "bfcl-package: cannot write to standard output: %s\n",
                 std::strerror(errno));
    return STATUS_FAULT;
  }
  return status;
}
