// SPDX-License-Identifier: BSD-3-Clause
#include "output_file.h"

#include "helpers.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include <sys/mman.h>

namespace vex::pkg {

namespace {

constexpr const char* TEMPORARY_NAME = ".bfcl-XXXXXX";

// The first bytes of a package, without which every reader refuses it.
constexpr std::size_t HEADER_SIZE = sizeof(Elf32_Ehdr);

constexpr mode_t PERMISSION_BITS = 07777;

// Whether the system refuses to make or replace files in a folder where others may be written.
bool is_refusal(int error) {
  return error == EACCES || error == EPERM || error == EROFS || error == ENAMETOOLONG;
}

// Copies the bytes from `begin` to `end` of one file to the same place in another.
bool copy_bytes(int from, int to, std::size_t begin, std::size_t end) {
  if (begin >= end) {
    return true;
  }
  void* map = mmap(nullptr, end, PROT_READ, MAP_SHARED, from, 0);
  if (map == MAP_FAILED) {
    return false;
  }
  const MappedBytes bytes(map, end);
  return move_all(end - begin, [&](std::size_t done, std::size_t left) {
           return pwrite(to, static_cast<const char*>(map) + begin + done, left,
                         static_cast<off_t>(begin + done));
         }) == end - begin;
}

// Gives a temporary file the permissions of the output. The owner first, as changing it may clear
// bits of the mode; users other than root may only set a group of their own.
bool take_over_permissions(int fd, const struct stat& output) {
  struct stat status = {};
  if (fstat(fd, &status) != 0) {
    return false;
  }
  if ((status.st_uid != output.st_uid || status.st_gid != output.st_gid) &&
      fchown(fd, output.st_uid, output.st_gid) != 0) {
    static_cast<void>(!fchown(fd, static_cast<uid_t>(-1), output.st_gid));
  }
  return fchmod(fd, output.st_mode & PERMISSION_BITS) == 0;
}

} // namespace

OutputFile::~OutputFile() {
  if (!m_temporary.empty()) {
    unlink(m_temporary.c_str());
  }
}

unique_fd OutputFile::make_temporary_file(const struct stat& output) {
  if (m_path == nullptr || output.st_nlink > 1) {
    return unique_fd(memfd_create("package", MFD_CLOEXEC));
  }
  std::string path;
  if (!try_allocating([&] {
        path.assign(m_path, static_cast<std::size_t>(std::strrchr(m_path, '/') + 1 - m_path));
        path += TEMPORARY_NAME;
      })) {
    errno = ENOMEM;
    return unique_fd();
  }
  unique_fd file(mkostemp(path.data(), O_CLOEXEC));
  if (!file && is_refusal(errno)) {
    return unique_fd(memfd_create("package", MFD_CLOEXEC));
  }
  if (file) {
    m_temporary = std::move(path);
    if (!take_over_permissions(file.get(), output)) {
      return unique_fd();
    }
  }
  return file;
}

bool OutputFile::begin(int fd, const char* path, bool with_old_contents) {
  struct stat status = {};
  if (fstat(fd, &status) != 0) {
    return false;
  }
  if (!S_ISREG(status.st_mode)) {
    return true;
  }
  m_path = path;
  m_output = unique_fd(fcntl(fd, F_DUPFD_CLOEXEC, 0));
  const unique_fd file = m_output ? make_temporary_file(status) : unique_fd();
  if (!file) {
    return false;
  }
  if (with_old_contents &&
      !copy_bytes(fd, file.get(), 0, static_cast<std::size_t>(status.st_size))) {
    return false;
  }
  return dup3(file.get(), fd, O_CLOEXEC) != -1;
}

bool OutputFile::commit(int fd) {
  if (!m_output) {
    return true;
  }
  if (m_temporary.empty()) {
    return overwrite(fd);
  }
  if (std::rename(m_temporary.c_str(), m_path) == 0) {
    m_temporary.clear();
    return true;
  }
  return is_refusal(errno) && overwrite(fd); // another user's file in a folder such as /tmp
}

// One program after the other: two at the same time would leave a mixture.
bool OutputFile::overwrite(int fd) const {
  lock_file(m_output.get());
  struct stat status = {};
  if (fstat(fd, &status) != 0) {
    return false;
  }
  const auto size = static_cast<std::size_t>(status.st_size);
  const std::size_t header = std::min(size, HEADER_SIZE);
  return ftruncate(m_output.get(), 0) == 0 && copy_bytes(fd, m_output.get(), header, size) &&
         fsync(m_output.get()) == 0 && copy_bytes(fd, m_output.get(), 0, header) &&
         fsync(m_output.get()) == 0;
}

} // namespace vex::pkg
