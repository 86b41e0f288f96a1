// SPDX-License-Identifier: BSD-3-Clause
#include "included_files.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string_view>

namespace bfcl::component {

namespace {

namespace fs = std::filesystem;

// A FIFO among the files must not keep us waiting.
std::string read_regular_file(const std::string& path) {
  std::error_code error;
  std::stringstream text;
  if (fs::is_regular_file(path, error)) {
    text << std::ifstream(path, std::ios::binary).rdbuf();
  }
  return std::move(text).str();
}

constexpr std::size_t MAX_NAME = 4096; // bytes of a path

// The text that begins with a name between quotes or angle brackets, as that name, or empty.
std::string_view quoted_name(std::string_view text) {
  text = text.substr(0, MAX_NAME + 2);
  const char end = text.empty()          ? '\0'
                   : text.front() == '"' ? '"'
                   : text.front() == '<' ? '>'
                                         : '\0';
  const std::size_t length = end == '\0' ? std::string_view::npos : text.find(end, 1);
  if (length == std::string_view::npos || text.substr(0, length).find('\n') < length) {
    return {};
  }
  return text.substr(1, length - 1);
}

std::string_view skip(std::string_view text, std::string_view characters) {
  const std::size_t start = text.find_first_not_of(characters);
  return start == std::string_view::npos ? std::string_view{} : text.substr(start);
}

bool follows_directive_mark(std::string_view before) {
  const std::size_t last = before.find_last_not_of(" \t");
  return last != std::string_view::npos && (before[last] == '#' || before[last] == '`');
}

void append_names_after(std::string_view text, std::string_view keyword,
                        std::vector<std::string>& names) {
  const bool is_directive = keyword == "include";
  for (std::size_t at = 0; (at = text.find(keyword, at)) != std::string_view::npos;) {
    const std::string_view before = text.substr(0, at);
    at += keyword.size();
    const std::string_view name =
        quoted_name(skip(text.substr(at), is_directive ? " \t" : " \t\r\n(bh"));
    if (!name.empty() && (!is_directive || follows_directive_mark(before))) {
      names.emplace_back(name);
    }
  }
}

std::vector<std::string> named_files(const std::string& text) {
  std::vector<std::string> names;
  append_names_after(text, "include", names);
  append_names_after(text, "$readmem", names);
  return names;
}

std::string joined_path(const std::string& folder, const std::string& name) {
  return folder.empty() || name.starts_with('/') ? name : folder + "/" + name;
}

// The existing file that a name means, or empty.
std::string resolve(const std::string& name, const std::string& includer,
                    const std::vector<std::string>& folders) {
  std::vector<std::string> places = {fs::path(includer).parent_path().string()};
  places.insert(places.end(), folders.begin(), folders.end());
  for (const std::string& folder : places) {
    std::error_code error;
    const std::string path = joined_path(folder, name);
    if (fs::is_regular_file(path, error)) {
      return dependency_path(path);
    }
  }
  return "";
}

} // namespace

std::string dependency_path(const std::string& path) {
  std::error_code error;
  const fs::path normal = fs::path(path).lexically_normal();
  // Through a link to a folder, ".." leads to where the real folder is. Ninja does not know that.
  if (path.find("..") == std::string::npos || !fs::exists(path, error) ||
      fs::equivalent(path, normal, error)) {
    return normal.string();
  }
  return fs::canonical(path, error).string();
}

std::vector<std::string> find_included_files(const std::vector<std::string>& files,
                                             const std::vector<std::string>& folders) {
  std::vector<std::string> paths = files;
  std::set<std::string> seen(files.begin(), files.end());
  for (std::size_t next = 0; next < paths.size(); ++next) {
    const std::string includer = paths[next];
    for (const std::string& name : named_files(read_regular_file(includer))) {
      std::string path = resolve(name, includer, folders);
      if (!path.empty() && seen.insert(path).second) {
        paths.push_back(std::move(path));
      }
    }
  }
  paths.erase(paths.begin(), paths.begin() + static_cast<std::ptrdiff_t>(files.size()));
  return paths;
}

} // namespace bfcl::component
