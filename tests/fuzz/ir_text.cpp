// SPDX-License-Identifier: BSD-3-Clause
// What the kit's tool prints of a library's OpenCL code.
#include "shelver_exe/opencl.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace {

// Whether a line of the text is one that the scanner must abort on: a "(" that leaves no name
// before it. The scanner takes lines in pieces of 4094 bytes, each up to a NUL.
bool must_abort(const std::string& text) {
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = std::min(text.find('\n', start), text.size() - 1) + 1;
    const std::string piece = text.substr(start, std::min<std::size_t>(end - start, 4094));
    const char* at = std::strchr(piece.c_str(), '@');
    const char* paren = std::strchr(piece.c_str(), '(');
    if (piece.rfind("define ", 0) == 0 && at != nullptr && paren != nullptr && paren <= at + 1) {
      return true;
    }
    start += piece.size();
  }
  return false;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::string text(data, data + size);
  if (text.empty() || must_abort(text)) {
    return 0;
  }
  std::FILE* stream = fmemopen(text.data(), text.size(), "r");
  std::vector<std::string> kernels;
  std::vector<std::string> functions;
  extract_function_and_kernel_lists(stream, kernels, functions);
  static_cast<void>(std::fclose(stream));
  if (kernels.size() > functions.size() || std::count(functions.begin(), functions.end(), "") != 0) {
    __builtin_trap();
  }
  return 0;
}
