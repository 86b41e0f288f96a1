// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstdio>
#include <string>

#include <unistd.h>

namespace bfcl::component {

// Says on a terminal what takes so long.
class Progress {
public:
  explicit Progress(std::string subject) : m_subject(std::move(subject)) {}
  ~Progress() { show(""); }
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void show(const std::string& text) const {
    if (m_is_terminal) {
      std::fprintf(stderr, "\r\33[K%s%s", text.empty() ? "" : (m_subject + ": ").c_str(),
                   text.c_str());
      std::fflush(stderr);
    }
  }

private:
  std::string m_subject;
  bool m_is_terminal = isatty(STDERR_FILENO) != 0;
};

} // namespace bfcl::component
