// SPDX-License-Identifier: BSD-3-Clause
#include "pkg_source.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>

#include <sys/stat.h>
#include <unistd.h>

void report(bool show, const char* format, ...) {
  if (!show) {
    return;
  }
  std::fflush(stdout);
  va_list args;
  va_start(args, format);
  std::vfprintf(stderr, format, args);
  va_end(args);
}

SourceFile::SourceFile(const char* path)
    : m_path(path != nullptr ? path : ""), m_fd(unique_fd::open_for_reading(m_path)) {
  struct stat status = {};
  if (!m_fd || fstat(m_fd.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    report(true, "Couldn't open file %s for reading\n", m_path);
    m_fd = unique_fd();
    return;
  }
  m_size = static_cast<std::size_t>(status.st_size);
}

malloc_ptr<void> SourceFile::read_all() const {
  malloc_ptr<void> bytes(std::malloc(std::max<std::size_t>(m_size, 1)));
  if (bytes == nullptr) {
    report(true, "Could not allocated %zu bytes of memory\n", m_size);
    return nullptr;
  }
  const std::size_t done = read_into(static_cast<char*>(bytes.get()));
  if (done < m_size) {
    report(true, "Error reading %s. Read only %zu out of %zu bytes\n", m_path, done, m_size);
    return nullptr;
  }
  return bytes;
}

std::size_t SourceFile::read_into(char* target) const {
  std::size_t done = 0;
  while (done < m_size) {
    const ssize_t count = read(m_fd.get(), target + done, m_size - done);
    if (count == 0 || (count < 0 && errno != EINTR)) {
      break;
    }
    done += count > 0 ? static_cast<std::size_t>(count) : 0;
  }
  return done;
}
