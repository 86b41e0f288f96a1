// SPDX-License-Identifier: BSD-3-Clause
#pragma once

// Prints the general help when `command` is null, else the usage line of that command, which must
// be one of the table's. The program's name makes no difference: all texts say "bfcl library".
void show_help(const char* program, const char* command);
