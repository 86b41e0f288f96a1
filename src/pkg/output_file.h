// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "unique_fd.h"

#include <string>

#include <sys/stat.h>

namespace vex::pkg {

// A file that is replaced whole or not at all.
//
// The new contents are written to a temporary file in the same folder, ".bfcl-" and six characters,
// which has the output's mode, and its owner where the system allows that. It is renamed to the
// output's path at the end: at any moment this path leads to the complete old file or to the
// complete new one. Where that is impossible (the output has other hard links or no path, or the
// folder refuses) the new contents are written to memory, and the output is then truncated and
// written over, its first bytes last: a part of it has no ELF header. A file that is not regular
// is written to directly.
class OutputFile {
public:
  OutputFile() = default;
  ~OutputFile();
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;

  // Takes over the descriptor's file as the output and makes the descriptor one of the temporary
  // file, which begins with the old contents if `with_old_contents` is set. `path` is the output's
  // own, without symbolic links, or null. False with errno set.
  [[nodiscard]] bool begin(int fd, const char* path, bool with_old_contents);

  // Puts what was written and flushed in the place of the output. False with errno set.
  [[nodiscard]] bool commit(int fd);

private:
  unique_fd make_temporary_file(const struct stat& output);
  [[nodiscard]] bool overwrite(int fd) const;

  const char* m_path = nullptr;
  std::string m_temporary; // the path of a file to be removed
  unique_fd m_output;      // none when it is written to directly
};

} // namespace vex::pkg
