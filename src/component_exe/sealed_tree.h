// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "process.h"

#include <optional>
#include <string>
#include <vector>

namespace bfcl::component {

// A temporary folder with one symbolic link for each listed file, in which tools elaborate a
// component: neither the working directory nor a neighbour supplies a module or an include. The
// files keep their places relative to each other, so that includes by relative folder work. The
// names that the tools are given have letters, digits and "._-" only, whatever the files are
// called.
class SealedTree {
public:
  // Links the files that exist; false when the folder cannot be made.
  [[nodiscard]] bool create(const std::vector<std::string>& files);

  // Where the tools run, and an empty folder for what they write. Absolute.
  [[nodiscard]] const std::string& root() const { return m_root; }
  [[nodiscard]] std::string work() const { return m_temp.path() + "/work"; }

  // The name of file `index` below root(), or empty when the file does not exist. A file that is
  // listed twice, by whatever spelling, has one name.
  [[nodiscard]] const std::string& name(std::size_t index) const { return m_names[index]; }

  // The folders below root() that have links in them or below them, root's own name "." among them.
  [[nodiscard]] const std::vector<std::string>& folders() const { return m_folders; }

  // The index of the file that a tool calls by this name (absolute or below root), if it is one.
  [[nodiscard]] std::optional<std::size_t> file_of(const std::string& tool_name) const;

  // Where a name that a tool used, absolute or below root(), is in the real file system.
  [[nodiscard]] std::string real_path(const std::string& tool_name) const;

  // Adds a link to one more real file, so that the tools see it; its name below root().
  std::string add(const std::string& real_file);

  // Writes a file of our own below root(); false when that fails.
  [[nodiscard]] bool write(const std::string& name, const std::string& text) const;

  // Puts a text of our own in the place of the link of a file, for good; false when that fails.
  [[nodiscard]] bool replace(std::size_t index, const std::string& text) const;

  // Takes the link of a file away, or puts it back.
  void hide(std::size_t index) const;
  void show(std::size_t index) const;

private:
  [[nodiscard]] std::string link(const std::string& real_file);

  TempFolder m_temp;
  std::string m_base; // the real folder that root() mirrors
  std::string m_root;
  std::vector<std::string> m_files; // real paths; empty for what does not exist
  std::vector<std::string> m_names;
  std::vector<std::string> m_folders;
};

} // namespace bfcl::component
