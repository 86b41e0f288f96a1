// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <string>
#include <string_view>
#include <utility>

// The bytes of a regular file, mapped for reading.
//
// If another program makes the file shorter, reading the lost bytes raises SIGBUS: programs call
// exit_when_a_mapped_file_shrinks first.
class MappedFile {
public:
  MappedFile() = default;
  MappedFile(MappedFile&& other) noexcept : m_bytes(std::exchange(other.m_bytes, {})) {}
  MappedFile& operator=(MappedFile other) noexcept {
    std::swap(m_bytes, other.m_bytes);
    return *this;
  }
  ~MappedFile();

  // False after a failure, with the reason in *error (such as "No such file or directory"). A FIFO,
  // a device and a directory are refused. An empty file maps to no bytes.
  [[nodiscard]] bool map(const char* path, std::string* error);

  [[nodiscard]] std::string_view bytes() const { return m_bytes; }

private:
  std::string_view m_bytes;
};

// From now on SIGBUS prints a line on standard error and ends the process with the status.
void exit_when_a_mapped_file_shrinks(int status);
