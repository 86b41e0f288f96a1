// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "unique_fd.h"

#include <cstddef>

#include <sys/stat.h>

// What the container needs beside libelf: its messages and the reading of source files.

class Arena;
struct vex_pkg_file;

// Prints to standard error if `show` is set, after what stands in standard output's buffer, so that
// the order holds when both are one pipe.
[[gnu::format(printf, 2, 3)]] void report(bool show, const char* format, ...);

// Reads from the file's begin; returns how many bytes came.
std::size_t read_all_into(int fd, void* target, std::size_t size);

// A file's bytes, mapped into memory. They must only be handed to the system: a program that looks
// at them dies by a signal when the file has become shorter.
class MappedBytes {
public:
  MappedBytes() = default;
  MappedBytes(void* bytes, std::size_t size) : m_bytes(bytes), m_size(size) {}
  MappedBytes(MappedBytes&& other) noexcept;
  MappedBytes& operator=(MappedBytes other) noexcept;
  ~MappedBytes();

  [[nodiscard]] const void* get() const { return m_bytes; }

  // Takes over what is mapped directly below, so that both go with one call of the system.
  void absorb(MappedBytes& below);

  // The bytes as a block of the arena, or null when some of them are gone or memory ran out.
  [[nodiscard]] void* copy(Arena& arena) const;

private:
  void* m_bytes = nullptr;
  std::size_t m_size = 0;
};

// A regular file to be read whole. Other kinds (a directory, a FIFO, a device) do not open: their
// size says nothing about their contents, and reading them may never end. Messages go to standard
// error.
class SourceFile {
public:
  // The path is not copied. Prints nothing.
  explicit SourceFile(const char* path);

  [[nodiscard]] bool is_open() const { return static_cast<bool>(m_fd); }

  // The same, with a message when it is not.
  [[nodiscard]] bool check_open() const;

  [[nodiscard]] const char* path() const { return m_path; }

  // What the file was when it was opened; its size is in bytes.
  [[nodiscard]] const struct stat& status() const { return m_status; }
  [[nodiscard]] std::size_t size() const { return static_cast<std::size_t>(m_status.st_size); }

  // Reads all size() bytes; false after a message, as when memory ran out and `target` is null.
  [[nodiscard]] bool read_all(void* target) const;

  // The same without copying them; nothing, without a message, where that can't be done.
  [[nodiscard]] MappedBytes map_all() const;

private:
  const char* m_path;
  unique_fd m_fd;
  struct stat m_status = {};
};

// vex_pkg_add_data_section_from_file for a file that the caller has opened.
unsigned vex_pkg_add_data_section_from_source(vex_pkg_file* pkg, const char* name,
                                              const SourceFile& file);
