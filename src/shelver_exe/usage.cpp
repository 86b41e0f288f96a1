// SPDX-License-Identifier: BSD-3-Clause
#include "usage.h"

#include "vex_assert.h"

#include <cstdio>
#include <cstring>

#define LABEL "bfcl library"

namespace {

// The two commands that the compiler's driver calls are left out: they are not for users.
constexpr const char* GENERAL_HELP =
    "\n" LABEL " - Manage OpenCL Libraries\n\n"
    "Usage:\n"
    "   " LABEL " hdl-comp-pkg <spec.xml> -o <output_file>.bfco\n"
    "          Package a single HDL component into an object file suitable\n"
    "          for inclusion into a library.\n"
    "          To package OpenCL files into a library, run bfc with -shared option instead.\n"
    "\n"
    "   " LABEL " -c ...\n"
    "          same as hdl-comp-pkg\n"
    "\n"
    "   " LABEL " create [-name <library_name>] [-vendor <library_vendor>] "
    "[-version <library_version>] [-o <output_file>] [bfco...] [bfclib...]\n"
    "          Create a library file out of bfco files created by hdl-comp-pkg\n"
    "          or 'bfc -shared', and/or other bfclib libraries.\n"
    "          -name, -vendor, and -version are optional information strings.\n"
    "\n"
    "   " LABEL " list <library_name>\n"
    "          Lists all HDL components in the library.\n"
    "          OpenCL components are currently not listable.\n"
    "\n"
    "   " LABEL " help\n"
    "          Displays this message.\n"
    "\n";

struct CommandUsage {
  const char* command;
  const char* text;
};

// There is no "add" command; its line is kept for it.
constexpr CommandUsage USAGES[] = {
    {"hdl-comp-pkg", "Usage: " LABEL " hdl-comp-pkg <spec.xml> -o <output_file>.bfco\n"},
    {"create", "Usage: " LABEL " create [-name <library_name>] [-vendor <library_vendor>] "
               "[-version <library_version>] [-o <output_file>] [bfco...] [bfclib...]\n"},
    {"add", "Usage: " LABEL " add <library_name> <one_or_more_component_packages>\n"},
    {"list", "Usage: " LABEL " list <library_name>\n"},
    {"extract_c_models", "Usage: " LABEL " extract_c_models <library_name> <dest_subfolder>\n"},
    {"extract_clang_ir",
     "Usage: " LABEL " extract_clang_ir <library_name> <ir_type> <dest_subfolder>\n"},
};

} // namespace

void show_help(const char*, const char* command) {
  if (command == nullptr) {
    std::fputs(GENERAL_HELP, stdout);
    return;
  }
  for (const CommandUsage& usage : USAGES) {
    if (std::strcmp(usage.command, command) == 0) {
      std::fputs(usage.text, stdout);
      return;
    }
  }
  VEX_ASSERT_TEXT(false, "0");
}
