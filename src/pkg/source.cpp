// SPDX-License-Identifier: BSD-3-Clause
#include "source.h"

#include "helpers.h"

#include <utility>

#include <sys/mman.h>
#include <unistd.h>

namespace vex::pkg {

namespace {

constexpr std::size_t PAGE_SIZE = 4096;

bool are_equal(const timespec& left, const timespec& right) {
  return left.tv_sec == right.tv_sec && left.tv_nsec == right.tv_nsec;
}

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

bool MappedBytes::absorb(MappedBytes& above) {
  const std::size_t size = (m_size + PAGE_SIZE - 1) / PAGE_SIZE * PAGE_SIZE;
  if (static_cast<char*>(m_bytes) + size != above.m_bytes) {
    return false;
  }
  m_size = size + std::exchange(above.m_size, 0);
  above.m_bytes = nullptr;
  return true;
}

bool MappedSource::has_changed() const {
  struct stat now = {};
  return stat(path.c_str(), &now) == 0 && now.st_dev == status.st_dev &&
         now.st_ino == status.st_ino &&
         (now.st_size != status.st_size || !are_equal(now.st_mtim, status.st_mtim));
}

SourceFile::SourceFile(const char* path)
    : m_path(path != nullptr ? path : ""), m_fd(unique_fd::open_for_reading(m_path)) {
  if (!m_fd || fstat(m_fd.get(), &m_status) != 0 || !S_ISREG(m_status.st_mode)) {
    m_fd = unique_fd();
  }
}

bool SourceFile::check_open() const {
  report(!m_fd, "Couldn't open file %s for reading\n", m_path);
  return static_cast<bool>(m_fd);
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

} // namespace vex::pkg
