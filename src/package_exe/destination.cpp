// SPDX-License-Identifier: BSD-3-Clause
#include "destination.h"

#include "printable.h"
#include "signal_block.h"
#include "unique_fd.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <set>

#include <sys/random.h>
#include <sys/stat.h>

namespace bfcl::package {

using namespace vex::efi;

namespace {

constexpr int NEW_FILE_FLAGS = O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC;

std::string open_file_path(int fd) {
  return "/proc/self/fd/" + std::to_string(fd);
}

bool write_all(int fd, std::string_view bytes) {
  return move_all(bytes.size(), [&](std::size_t done, std::size_t left) {
           return write(fd, bytes.data() + done, left);
         }) == bytes.size();
}

// Writes an OpenCL package into an empty file. The container prints why it fails.
bool write_package(int fd, const std::vector<ClangIr>& code) {
  const std::string path = open_file_path(fd);
  vex_pkg_ptr pkg(vex_pkg_open_file(path.c_str(), VEX_PKG_READ_WRITE | VEX_PKG_CREATE));
  const bool added = std::all_of(code.begin(), code.end(), [&pkg](const ClangIr& target) {
    const std::string section = std::string(CLANG_IR_PREFIX) + target.target;
    return vex_pkg_add_data_section(pkg.get(), section.c_str(), target.bytes.data(),
                                    target.bytes.size()) != 0;
  });
  return (vex_pkg_close_file_checked(pkg.release()) != 0) && added;
}

const char* describe_write_error(int error) {
  if (error == EFAULT) { // reading the mapped source failed
    return "the package became shorter while it was read";
  }
  return error != 0 ? std::strerror(error) : "cannot be written";
}

bool has_bytes(int fd, std::string_view bytes) {
  std::array<char, 65536> buffer;
  while (!bytes.empty()) {
    const ssize_t count = read(fd, buffer.data(), std::min(buffer.size(), bytes.size()));
    if (count <= 0 ||
        std::memcmp(buffer.data(), bytes.data(), static_cast<std::size_t>(count)) != 0) {
      return false;
    }
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

bool has_code(int fd, const std::vector<ClangIr>& code) {
  std::vector<std::string> faults;
  const auto package = read_package_file(open_file_path(fd), faults);
  return package != nullptr && faults.empty() && package->kind == PackageKind::OPENCL &&
         std::equal(code.begin(), code.end(), package->clang_ir.begin(), package->clang_ir.end(),
                    [](const ClangIr& left, const ClangIr& right) {
                      return left.target == right.target && left.bytes == right.bytes;
                    });
}

// Whether the regular file has the planned contents.
bool has_contents(int folder, const char* name, const struct stat& status,
                  const PlannedFile& file) {
  const unique_fd fd(openat(folder, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!fd) {
    return false;
  }
  return file.code != nullptr ? has_code(fd.get(), *file.code)
                              : static_cast<std::size_t>(status.st_size) == file.bytes.size() &&
                                    has_bytes(fd.get(), file.bytes);
}

unique_fd open_folder(int parent, const char* name) {
  return unique_fd(openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

// Walks through a plan, and through those of its folders that exist.
class Destination {
public:
  Destination(const std::string& path, bool force, std::vector<std::string>& faults)
      : m_path(join_path(path, "")), m_force(force), m_faults(faults) {}

  // Finds out what must be written. The folder of `fd` exists.
  void check(const PlannedFolder& folder, int fd) {
    for (const auto& [name, file] : folder.files) {
      check_file(file, fd, name);
    }
    for (const auto& [name, below] : folder.folders) {
      check_folder(*below, fd, name);
    }
  }

  // Writes it. False after the first fault.
  bool write(const PlannedFolder& folder, int fd) {
    return std::all_of(folder.files.begin(), folder.files.end(),
                       [&](const auto& named) {
                         return m_left_alone.contains(&named.second) ||
                                write_file(named.second, fd, named.first);
                       }) &&
           std::all_of(folder.folders.begin(), folder.folders.end(), [&](const auto& named) {
             return write_folder(*named.second, fd, named.first);
           });
  }

  // Every path of the plan.
  void list(const PlannedFolder& folder, std::vector<std::string>& paths) {
    for (const auto& [name, file] : folder.files) {
      paths.push_back(m_path + name);
    }
    for (const auto& [name, below] : folder.folders) {
      const std::size_t old_size = enter(name);
      list(*below, paths);
      m_path.resize(old_size);
    }
  }

  [[nodiscard]] Written take_result() { return std::move(m_result); }

private:
  void add_fault(const std::string& name, const char* text) {
    m_faults.push_back(format_text("%s: %s", printable(m_path + name).c_str(), text));
  }

  // Appends a folder to the path; the result is the path's old size.
  std::size_t enter(const std::string& name) {
    const std::size_t old_size = m_path.size();
    m_path.append(name).append("/");
    return old_size;
  }

  void check_file(const PlannedFile& file, int folder, const std::string& name) {
    struct stat status = {};
    if (fstatat(folder, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
      if (errno != ENOENT) {
        add_fault(name, std::strerror(errno));
      }
    } else if (!S_ISREG(status.st_mode)) {
      add_fault(name, S_ISLNK(status.st_mode) ? "is a symbolic link"
                                              : "exists and is not a regular file");
    } else if (has_contents(folder, name.c_str(), status, file)) {
      m_left_alone.insert(&file);
    } else if (!m_force) {
      m_left_alone.insert(&file);
      m_result.kept.push_back(m_path + name);
    }
  }

  void check_folder(const PlannedFolder& below, int parent, const std::string& name) {
    const unique_fd fd = open_folder(parent, name.c_str());
    if (fd) {
      const std::size_t old_size = enter(name);
      check(below, fd.get());
      m_path.resize(old_size);
    } else if (errno != ENOENT) {
      add_folder_fault(parent, name, errno);
    }
  }

  void add_folder_fault(int parent, const std::string& name, int error) {
    struct stat status = {};
    const bool known = fstatat(parent, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
    add_fault(name, known && S_ISLNK(status.st_mode)    ? "is a symbolic link"
                    : known && !S_ISDIR(status.st_mode) ? "exists and is not a folder"
                                                        : std::strerror(error));
  }

  bool write_folder(const PlannedFolder& below, int parent, const std::string& name) {
    const bool made = mkdirat(parent, name.c_str(), 0777) == 0 || errno == EEXIST;
    const unique_fd fd = made ? open_folder(parent, name.c_str()) : unique_fd();
    if (!fd) {
      add_folder_fault(parent, name, errno);
      return false;
    }
    const std::size_t old_size = enter(name);
    const bool written = write(below, fd.get());
    m_path.resize(old_size);
    return written;
  }

  // The file gets its name when it is complete.
  bool write_file(const PlannedFile& file, int folder, const std::string& name) {
    const SignalBlock no_signals; // they would leave an unfinished file
    const std::string part = make_part_name();
    const unique_fd fd(openat(folder, part.c_str(), NEW_FILE_FLAGS, 0666));
    if (!fd) {
      add_fault(name, std::strerror(errno));
      return false;
    }
    errno = 0;
    const bool written = file.code != nullptr ? write_package(fd.get(), *file.code)
                                              : write_all(fd.get(), file.bytes);
    if (written && give_name(folder, part.c_str(), name.c_str())) {
      m_result.files.push_back(m_path + name);
      return true;
    }
    const int error = errno;
    unlinkat(folder, part.c_str(), 0);
    const std::size_t old_faults = m_faults.size();
    if (written && error == EEXIST) { // another program was faster
      check_file(file, folder, name);
    } else {
      add_fault(name, describe_write_error(error));
    }
    return m_faults.size() == old_faults;
  }

  // Not every file system can rename without replacing a file.
  [[nodiscard]] bool give_name(int folder, const char* part, const char* name) const {
    if (renameat2(folder, part, folder, name, m_force ? 0 : RENAME_NOREPLACE) == 0) {
      return true;
    }
    return !m_force && errno == EINVAL && linkat(folder, part, folder, name, 0) == 0 &&
           unlinkat(folder, part, 0) == 0;
  }

  static std::string make_part_name() {
    std::uint64_t random = 0;
    static_cast<void>(!getrandom(&random, sizeof random, 0));
    return format_text(".bfcl-package-%016llx", static_cast<unsigned long long>(random));
  }

  std::string m_path; // of the folder, with its "/"; empty for the working directory
  bool m_force;
  std::vector<std::string>& m_faults;
  std::set<const PlannedFile*> m_left_alone;
  Written m_result;
};

} // namespace

std::string join_path(const std::string& destination, const std::string& path) {
  const std::string joined =
      destination == "." ? path : destination + (destination.ends_with('/') ? "" : "/") + path;
  return joined.starts_with('-') ? "./" + joined : joined;
}

std::vector<std::string> list_paths(const std::string& destination, const PlannedFolder& root) {
  std::vector<std::string> faults;
  std::vector<std::string> paths;
  Destination(destination, false, faults).list(root, paths);
  return paths;
}

Written write_files(const std::string& destination, const PlannedFolder& root, bool force,
                    std::vector<std::string>& faults) {
  const std::size_t old_faults = faults.size();
  Destination target(destination, force, faults);
  const auto open_root = [&destination] {
    return unique_fd(open(destination.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  };
  unique_fd fd = open_root();
  if (fd) {
    target.check(root, fd.get());
  }
  if (faults.size() > old_faults) {
    return {};
  }
  if (!fd) {
    std::error_code error;
    std::filesystem::create_directories(destination, error);
    fd = open_root();
    if (!fd) {
      const std::string reason = error ? error.message() : std::strerror(errno);
      faults.push_back(format_text("%s: %s", printable(destination).c_str(), reason.c_str()));
      return {};
    }
  }
  target.write(root, fd.get());
  return target.take_result();
}

} // namespace bfcl::package
