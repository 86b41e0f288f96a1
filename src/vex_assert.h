// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <functional>

// Assertions of the interface. Callers rely on them, so every build type contains them.
//
// VEX_ASSERT(expression) quotes the expression as it is written; VEX_ASSERT_TEXT(expression, text)
// quotes the given text instead. A failure prints the text with its place on standard error, in the
// form of the C library's own assertions, and aborts. What was already printed on standard output
// is flushed first: abort() would lose it. Then vex_assert_cleanup is called, if it is set: it
// removes files whose owners abort() does not destroy.
#define VEX_ASSERT(expression) VEX_ASSERT_TEXT(expression, #expression)
#define VEX_ASSERT_TEXT(expression, text)                                                          \
  (static_cast<bool>(expression) ? static_cast<void>(0)                                            \
                                 : vex_assert_fail(text, __FILE__, __LINE__, __PRETTY_FUNCTION__))

inline std::function<void()> vex_assert_cleanup;

[[noreturn]] inline void vex_assert_fail(const char* text, const char* file, int line,
                                         const char* function) {
  std::fflush(stdout);
  std::fprintf(stderr, "%s: %s:%d: %s: Assertion `%s' failed.\n", program_invocation_short_name,
               file, line, function, text);
  if (vex_assert_cleanup) {
    vex_assert_cleanup();
  }
  std::abort();
}
