// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <utility>

#include <fcntl.h>
#include <unistd.h>

// Owns a file descriptor.
class unique_fd {
public:
  explicit unique_fd(int fd = -1) : m_fd(fd) {}
  unique_fd(unique_fd&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
  unique_fd& operator=(unique_fd other) noexcept {
    std::swap(m_fd, other.m_fd);
    return *this;
  }
  ~unique_fd() {
    if (m_fd >= 0) {
      close(m_fd);
    }
  }

  [[nodiscard]] int get() const { return m_fd; }
  [[nodiscard]] int release() { return std::exchange(m_fd, -1); }
  explicit operator bool() const { return m_fd >= 0; }

  // Opens a file for reading, without waiting for the writer of a FIFO.
  static unique_fd open_for_reading(const char* path) {
    return unique_fd(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  }

private:
  int m_fd;
};
