// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <string>
#include <vector>

// Sorts the operands of a command, which begin at argv[2], into the values of `count` named
// arguments ("" for one that is not given; the last value of one given twice counts) and the
// others. Once `count` values have been taken, whatever follows is positional. 1, or 0 after a
// message about a name without a value or with a value that begins with "-".
int fill_named_args(int argc, char** argv, int count, const char** name,
                    std::vector<std::string>& values, std::vector<std::string>& positional);

// Sorts the list and prints the format once for each name that occurs more than once, with the name
// in the place of its "%s". Returns whether there was any.
int find_duplicates(std::vector<std::string>& list, const char* format);
