// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cerrno>
#include <cstddef>
#include <utility>

#include <fcntl.h>
#include <sys/types.h>
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

// Waits until nobody else has the file's lock, and takes it until it is unlocked, or until the
// descriptor is closed here and in the programs that inherit it. Where files cannot be locked, it
// returns at once.
inline void lock_file(int fd) {
  struct flock lock = {}; // all of the file
  lock.l_type = F_WRLCK;
  static_cast<void>(fcntl(fd, F_OFD_SETLKW, &lock));
}

inline void unlock_file(int fd) {
  struct flock lock = {};
  lock.l_type = F_UNLCK;
  static_cast<void>(fcntl(fd, F_OFD_SETLK, &lock));
}

// Calls move(done, left), which calls read or write, until no bytes are left or it moves none.
// Returns the number of bytes moved. When it is less than `size`, errno is the reason, or 0 at the
// end of the file.
template <typename Move>
std::size_t move_all(std::size_t size, Move move) {
  std::size_t done = 0;
  while (done < size) {
    errno = 0;
    const ssize_t count = move(done, size - done);
    if (count == 0 || (count < 0 && errno != EINTR)) {
      break;
    }
    done += count > 0 ? static_cast<std::size_t>(count) : 0;
  }
  return done;
}

// Reads `size` bytes from the beginning of the file; returns how many it could read.
inline std::size_t read_all_into(int fd, void* target, std::size_t size) {
  return move_all(size, [&](std::size_t done, std::size_t left) {
    return pread(fd, static_cast<char*>(target) + done, left, static_cast<off_t>(done));
  });
}
