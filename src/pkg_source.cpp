// SPDX-License-Identifier: BSD-3-Clause
#include "pkg_source.h"

#include "arena.h"

#include <cstdarg>
#include <cstdio>
#include <utility>

#include <sys/mman.h>
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

std::size_t read_all_into(int fd, void* target, std::size_t size) {
  return move_all(size, [&](std::size_t done, std::size_t left) {
    return pread(fd, static_cast<char*>(target) + done, left, static_cast<off_t>(done));
  });
}

namespace {

constexpr std::size_t PAGE_SIZE = 4096;

} // namespace

MappedBytes::MappedBytes(MappedBytes&& other) noexcept
    : m_bytes(std::exchange(other.m_bytes, nullptr)), m_size(std::exchange(other.m_size, 0)) {}

MappedBytes& MappedBytes::operator=(MappedBytes other) noexcept {
  std::swap(m_bytes, other.m_bytes);
  std::swap(m_size, other.m_size);
  return *this;
}

MappedBytes::~MappedBytes() {
  if (m_bytes != nullptr) {
    munmap(m_bytes, m_size);
  }
}

void MappedBytes::absorb(MappedBytes& below) {
  const std::size_t size = (below.m_size + PAGE_SIZE - 1) / PAGE_SIZE * PAGE_SIZE;
  if (m_bytes != nullptr && static_cast<char*>(below.m_bytes) + size == m_bytes) {
    m_bytes = std::exchange(below.m_bytes, nullptr);
    m_size += size;
    below.m_size = 0;
  }
}

// By way of a file in memory: the system copies what is there and says so when it is not.
void* MappedBytes::copy(Arena& arena) const {
  const unique_fd file(memfd_create("bfcl-source", MFD_CLOEXEC));
  const std::size_t written = move_all(m_size, [&](std::size_t done, std::size_t left) {
    return write(file.get(), static_cast<const char*>(m_bytes) + done, left);
  });
  void* bytes = written == m_size ? arena.allocate(m_size) : nullptr;
  return bytes != nullptr && read_all_into(file.get(), bytes, m_size) == m_size ? bytes : nullptr;
}

SourceFile::SourceFile(const char* path)
    : m_path(path != nullptr ? path : ""), m_fd(unique_fd::open_for_reading(m_path)) {
  if (!m_fd || fstat(m_fd.get(), &m_status) != 0 || !S_ISREG(m_status.st_mode)) {
    m_fd = unique_fd();
  }
}

bool SourceFile::check_open() const {
  report(!is_open(), "Couldn't open file %s for reading\n", m_path);
  return is_open();
}

bool SourceFile::read_all(void* target) const {
  if (target == nullptr) {
    report(true, "Could not allocated %zu bytes of memory\n", size());
    return false;
  }
  const std::size_t done = read_all_into(m_fd.get(), target, size());
  if (done < size()) {
    report(true, "Error reading %s. Read only %zu out of %zu bytes\n", m_path, done, size());
    return false;
  }
  return true;
}

MappedBytes SourceFile::map_all() const {
  void* bytes = mmap(nullptr, size(), PROT_READ, MAP_PRIVATE, m_fd.get(), 0);
  return bytes != MAP_FAILED ? MappedBytes(bytes, size()) : MappedBytes();
}
