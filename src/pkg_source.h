// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "malloc_ptr.h"
#include "unique_fd.h"

#include <cstddef>

// What the container needs beside libelf: its messages and the reading of source files.

// Prints to standard error if `show` is set, after what stands in standard output's buffer, so that
// the order holds when both are one pipe.
[[gnu::format(printf, 2, 3)]] void report(bool show, const char* format, ...);

// A regular file to be read whole. Other kinds (a directory, a FIFO, a device) do not open: their
// size says nothing about their contents, and reading them may never end. Messages go to standard
// error.
class SourceFile {
public:
  // The path is not copied.
  explicit SourceFile(const char* path);

  [[nodiscard]] bool is_open() const { return static_cast<bool>(m_fd); }

  // In bytes, at the time of opening.
  [[nodiscard]] std::size_t size() const { return m_size; }

  // All size() bytes, or null after a message. An empty file yields a block too.
  [[nodiscard]] malloc_ptr<void> read_all() const;

private:
  // How many bytes came.
  std::size_t read_into(char* target) const;

  const char* m_path;
  unique_fd m_fd;
  std::size_t m_size = 0;
};
