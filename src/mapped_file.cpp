// SPDX-License-Identifier: BSD-3-Clause
#include "mapped_file.h"

#include "unique_fd.h"

#include <cerrno>
#include <csignal>
#include <cstring>

#include <sys/mman.h>
#include <sys/stat.h>

namespace {

volatile std::sig_atomic_t s_status = 1;

void exit_with_message(int) {
  constexpr std::string_view message = "Error: a file became shorter while it was read\n";
  static_cast<void>(!write(STDERR_FILENO, message.data(), message.size()));
  _exit(s_status);
}

} // namespace

MappedFile::~MappedFile() {
  if (!m_bytes.empty()) {
    munmap(const_cast<char*>(m_bytes.data()), m_bytes.size());
  }
}

bool MappedFile::map(const char* path, std::string* error) {
  const unique_fd fd = unique_fd::open_for_reading(path);
  struct stat status = {};
  if (!fd || fstat(fd.get(), &status) != 0) {
    *error = std::strerror(errno);
    return false;
  }
  if (!S_ISREG(status.st_mode)) {
    *error = "not a regular file";
    return false;
  }
  const auto size = static_cast<std::size_t>(status.st_size);
  if (size == 0) {
    *this = MappedFile();
    return true;
  }
  void* bytes = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd.get(), 0);
  if (bytes == MAP_FAILED) {
    *error = std::strerror(errno);
    return false;
  }
  MappedFile mapped;
  mapped.m_bytes = {static_cast<const char*>(bytes), size};
  *this = std::move(mapped);
  return true;
}

void exit_when_a_mapped_file_shrinks(int status) {
  s_status = status;
  struct sigaction action = {};
  action.sa_handler = exit_with_message;
  sigaction(SIGBUS, &action, nullptr);
}
