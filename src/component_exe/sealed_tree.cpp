// SPDX-License-Identifier: BSD-3-Clause
#include "sealed_tree.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>

namespace bfcl::component {

namespace {

namespace fs = std::filesystem;

// Tools split, expand or misread other characters in the names of files.
bool is_safe(const std::string& name) {
  return name.find_first_not_of(
             "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-") ==
             std::string::npos &&
         name.front() != '-';
}

std::string safe_form(const std::string& name) {
  std::string safe = "bfcl";
  for (const char character : name) {
    const std::string one(1, character);
    safe += is_safe("a" + one) ? one : "_" + std::to_string(static_cast<unsigned char>(character));
  }
  return safe;
}

// The folder without symbolic links, but the file's own name as it is: tools look for includes
// beside the name that they opened.
std::string real_name(const std::string& file) {
  std::error_code error;
  const fs::path path = fs::absolute(file, error);
  const fs::path folder = fs::canonical(path.parent_path(), error);
  return error || !fs::is_regular_file(path, error) ? std::string()
                                                    : (folder / path.filename()).string();
}

// The deepest folder that all files are below.
fs::path common_folder(const std::vector<std::string>& files) {
  fs::path common;
  for (const std::string& file : files) {
    const fs::path folder = fs::path(file).parent_path();
    if (file.empty()) {
      continue;
    }
    if (common.empty()) {
      common = folder;
      continue;
    }
    fs::path shared;
    auto [left, right] = std::mismatch(common.begin(), common.end(), folder.begin(), folder.end());
    for (auto part = common.begin(); part != left; ++part) {
      shared /= *part;
    }
    common = shared;
  }
  return common;
}

} // namespace

bool SealedTree::create(const std::vector<std::string>& files) {
  std::map<std::string, std::string> first_spelling; // by the file that it really is
  for (const std::string& file : files) {
    std::error_code error;
    const std::string name = real_name(file);
    const std::string target = name.empty() ? name : fs::canonical(name, error).string();
    m_files.push_back(first_spelling.try_emplace(target, name).first->second);
  }
  m_base = common_folder(m_files).string();
  m_root = m_temp.path() + "/tree";
  // As deep as the real folder, so that too many ".." do not lead into the machine's own files.
  const fs::path base = fs::path(m_base).relative_path();
  for (auto part = base.begin(); part != base.end(); ++part) {
    m_root += "/d";
  }
  std::error_code error;
  if (m_temp.path().empty() || !fs::create_directories(m_root, error) ||
      !fs::create_directories(work(), error)) {
    return false;
  }
  m_folders.emplace_back(".");
  for (const std::string& file : m_files) {
    m_names.push_back(file.empty() ? file : link(file));
  }
  return true;
}

std::string SealedTree::link(const std::string& real_file) {
  const fs::path relative = fs::path(real_file).lexically_relative(m_base);
  std::error_code error;
  fs::path folder; // below root, by its safe name
  for (const fs::path& part : relative.parent_path()) {
    const fs::path parent = folder;
    fs::create_directory(m_root / parent / part, error);
    folder /= is_safe(part.string()) || part == ".." ? part.string() : safe_form(part.string());
    if (folder.filename() != part) {
      fs::create_directory_symlink(part, m_root / folder, error);
    }
    if (std::find(m_folders.begin(), m_folders.end(), folder.string()) == m_folders.end()) {
      m_folders.push_back(folder.string());
    }
  }
  const std::string name = relative.filename().string();
  fs::create_symlink(real_file, m_root / folder / name, error);
  if (is_safe(name)) {
    return (folder / name).string();
  }
  const fs::path safe = folder / safe_form(name);
  fs::create_symlink(real_file, m_root / safe, error);
  return safe.string();
}

std::string SealedTree::add(const std::string& real_file) {
  return link(real_name(real_file));
}

std::optional<std::size_t> SealedTree::file_of(const std::string& tool_name) const {
  const std::string real = real_path(tool_name);
  for (std::size_t index = 0; index < m_files.size(); ++index) {
    if (!m_files[index].empty() && (m_names[index] == tool_name || m_files[index] == real)) {
      return index;
    }
  }
  return std::nullopt;
}

std::string SealedTree::real_path(const std::string& tool_name) const {
  const fs::path path = (fs::path(m_root) / tool_name).lexically_normal();
  const fs::path relative = path.lexically_relative(m_root);
  std::error_code error;
  const fs::path target = fs::read_symlink(path, error);
  if (!error) {
    return target.string();
  }
  const bool inside = path.string().rfind(m_temp.path(), 0) == 0;
  return inside ? (fs::path(m_base) / relative).lexically_normal().string() : path.string();
}

bool SealedTree::write(const std::string& name, const std::string& text) const {
  std::ofstream file(m_root + "/" + name, std::ios::binary);
  file << text;
  file.close();
  return file.good();
}

void SealedTree::hide(std::size_t index) const {
  std::error_code error;
  fs::remove(m_root + "/" + m_names[index], error);
  fs::remove(m_root + "/" + fs::path(m_files[index]).lexically_relative(m_base).string(), error);
}

bool SealedTree::replace(std::size_t index, const std::string& text) const {
  hide(index); // else the text would be written through the link
  return write(m_names[index], text);
}

void SealedTree::show(std::size_t index) const {
  const fs::path relative = fs::path(m_files[index]).lexically_relative(m_base);
  std::error_code error;
  fs::create_symlink(m_files[index], m_root / relative, error);
  fs::create_symlink(m_files[index], m_root + "/" + m_names[index], error);
}

} // namespace bfcl::component
