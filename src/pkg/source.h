// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "unique_fd.h"

#include <cstddef>
#include <string>

#include <sys/stat.h>

namespace vex::pkg {

// A file's bytes, mapped into memory. Reading them ends the program by a signal when the file has
// become shorter; the system's own calls fail instead.
class MappedBytes {
public:
  MappedBytes() = default;
  MappedBytes(void* bytes, std::size_t size) : m_bytes(bytes), m_size(size) {}
  MappedBytes(MappedBytes&& other) noexcept;
  MappedBytes& operator=(MappedBytes other) noexcept;
  ~MappedBytes();

  [[nodiscard]] const void* get() const { return m_bytes; }

  // Takes over what is mapped directly above, so that one call of the system unmaps both. Returns
  // whether it did.
  bool absorb(MappedBytes& above);

private:
  void* m_bytes = nullptr;
  std::size_t m_size = 0;
};

// A mapped file, which must not change while its bytes are in use.
struct MappedSource {
  std::string path;   // empty when its bytes are not in use any more
  struct stat status; // when it was mapped
  MappedBytes bytes;

  // Whether the file has other contents now. When another file has replaced it, the map is still
  // of the old one, which no path leads to any more.
  [[nodiscard]] bool has_changed() const;
};

// A regular file to be read whole. Other kinds (a directory, a FIFO, a device) do not open: their
// size says nothing about their contents, and reading them may never end. Messages are printed to
// standard error.
class SourceFile {
public:
  // The path is not copied. Prints nothing.
  explicit SourceFile(const char* path);

  // Whether the file is open; a message when it is not.
  [[nodiscard]] bool check_open() const;

  [[nodiscard]] const char* path() const { return m_path; }

  // What the file was when it was opened; its size is in bytes.
  [[nodiscard]] const struct stat& status() const { return m_status; }
  [[nodiscard]] std::size_t size() const { return static_cast<std::size_t>(m_status.st_size); }

  // Reads all size() bytes. False after a message; a null target means that memory ran out.
  [[nodiscard]] bool read_all(void* target) const;

  // Maps all size() bytes; an empty object, without a message, when that is impossible.
  [[nodiscard]] MappedBytes map_all() const;

private:
  const char* m_path;
  unique_fd m_fd;
  struct stat m_status = {};
};

} // namespace vex::pkg
