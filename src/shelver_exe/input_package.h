// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "malloc_ptr.h"
#include "pkg.h"

#include <string>
#include <vector>

// Component packages that become sections of a library. A small file is read once: its bytes are
// opened as a package in memory, and are the section's contents, too. This takes a fifth less time
// than to open thousands of them and to add each from its file.
class InputPackages {
public:
  // Opens a package for reading; null after the container's message.
  vex_pkg_ptr open(const std::string& path);

  // Adds the whole file that was opened last as a section. A small one's bytes must live until the
  // library is closed: this object keeps them.
  bool add_last(vex_pkg_file* library, const char* section);

private:
  struct SmallFile {
    malloc_ptr<char> bytes;
    std::size_t size = 0;
  };
  static SmallFile read_small_file(const std::string& path);

  std::string m_path; // of the last one
  SmallFile m_last;   // without bytes when it is not small
  std::vector<malloc_ptr<char>> m_added;
};
