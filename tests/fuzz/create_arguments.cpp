// SPDX-License-Identifier: BSD-3-Clause
// The operands of "create", one a line.
#include "shelver_exe/create.h"

#include <cstdint>
#include <sstream>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<std::string> words = {"bfcl-library", "create"};
  std::istringstream lines(std::string(data, data + size));
  for (std::string line; std::getline(lines, line);) {
    words.push_back(line.c_str()); // up to a NUL, as arguments go
  }
  std::vector<char*> argv;
  for (std::string& word : words) {
    argv.push_back(word.data());
  }
  const char* names[] = {"-name", "-vendor", "-version", "-o"};
  std::vector<std::string> values;
  std::vector<std::string> inputs;
  const int argc = static_cast<int>(argv.size());
  if (fill_named_args(argc, argv.data(), 4, names, values, inputs) != 0) {
    if (values.size() != 4 || inputs.size() > words.size() - 2) {
      __builtin_trap();
    }
    find_duplicates(inputs, "%s appears more than once\n");
  }
  return 0;
}
