// SPDX-License-Identifier: BSD-3-Clause
#pragma once

// The command handlers. Each takes the argument vector without the global options: the program, the
// command word, the operands; and returns the exit status. All print to standard output.
int create_component_container(int argc, char** argv);
int create_full_library(int argc, char** argv);
int list_library_content(int argc, char** argv);
int extract_c_models(int argc, char** argv);
int extract_clang_ir(int argc, char** argv);
