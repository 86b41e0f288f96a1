// SPDX-License-Identifier: BSD-3-Clause
#include "commands.h"
#include "front_end.h"
#include "library.h"
#include "malloc_ptr.h"
#include "opencl.h"
#include "package.h"
#include "unique_fd.h"
#include "usage.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <string_view>

#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr const char* EMULATION_DIRECTORY = ".emu_models";
constexpr mode_t EMULATION_DIRECTORY_MODE = 0770;

// The largest listing of one package's section names, in bytes. Only the part that the names fill
// is touched.
constexpr std::size_t NAME_LIST_SIZE = 0x4000000;

bool report_open_error() {
  const int error = errno;
  std::fflush(stdout); // both streams may be one pipe
  std::fprintf(stderr, "Couldn't open file for writing: %s\n", std::strerror(error));
  return false;
}

// A file's bytes under a name that no other process uses.
class PartFile {
public:
  explicit PartFile(const std::string& folder) : m_path(folder + "/.bfcl-XXXXXX") {
    m_fd = unique_fd(mkostemp(m_path.data(), O_CLOEXEC));
    m_exists = static_cast<bool>(m_fd);
  }
  ~PartFile() {
    if (m_exists) {
      unlink(m_path.c_str());
    }
  }
  PartFile(const PartFile&) = delete;
  PartFile& operator=(const PartFile&) = delete;

  [[nodiscard]] int fd() const { return m_fd.get(); }
  // A file system of the network may write the bytes, or fail to, when the file is closed.
  [[nodiscard]] bool rename_to(const std::string& path) {
    m_exists = close(m_fd.release()) != 0 || std::rename(m_path.c_str(), path.c_str()) != 0;
    return !m_exists;
  }

private:
  std::string m_path;
  unique_fd m_fd;
  bool m_exists = false;
};

// Writes a new file. It gets its name when it is complete, because the next run skips a file of
// that name, and another run may write it at the same time. The messages are those of the
// container.
bool write_new_file(const std::string& path, const void* bytes, std::size_t size) {
  PartFile part(directory_part(path));
  const mode_t mask = umask(0);
  umask(mask);
  if (part.fd() < 0 || fchmod(part.fd(), 0666 & ~mask) != 0) {
    return report_open_error();
  }
  const std::size_t written = move_all(size, [&](std::size_t done, std::size_t left) {
    return write(part.fd(), static_cast<const char*>(bytes) + done, left);
  });
  if (written < size) {
    std::fflush(stdout);
    std::fprintf(stderr, "Wrote only %zu out of %zu bytes into %s for writing", written, size,
                 path.c_str());
    return false;
  }
  return part.rename_to(path) || report_open_error();
}

// Extracts the C models of one library's components.
class CModelExtraction {
public:
  CModelExtraction(vex_pkg_file* library, const char* path, const char* destination)
      : m_library(library), m_path(path), m_destination(destination) {}

  // Each prints what went wrong when it returns false. A component that several functions share is
  // extracted with the first one.
  bool extract_component(const char* section);

private:
  vex_pkg_ptr open_component(const char* section);
  std::unique_ptr<char[]> list_sections(vex_pkg_file* component, const char* section);
  bool extract_file(vex_pkg_file* component, const char* section, const std::string& model);

  vex_pkg_file* m_library;
  const char* m_path;
  std::string m_destination;
  malloc_ptr<char> m_component; // one component package at a time
  std::size_t m_capacity = 0;
  std::set<std::string_view> m_extracted; // sections; their names are the caller's
};

bool CModelExtraction::extract_component(const char* section) {
  if (!m_extracted.insert(section).second) {
    return true;
  }
  const vex_pkg_ptr component = open_component(section);
  if (component == nullptr) {
    return false;
  }
  const std::unique_ptr<char[]> names = list_sections(component.get(), section);
  if (names == nullptr) {
    return false;
  }
  if (file_is_directory(EMULATION_DIRECTORY) == 0) {
    mkdir(EMULATION_DIRECTORY, EMULATION_DIRECTORY_MODE);
  }
  char* save = nullptr;
  for (const char* name = shelver_strtok_r(names.get(), "\n", &save); name != nullptr;
       name = shelver_strtok_r(nullptr, "\n", &save)) {
    if (std::string_view(name).starts_with(C_MODEL_SECTION_PREFIX) &&
        !extract_file(component.get(), section, name)) {
      return false;
    }
  }
  return true;
}

vex_pkg_ptr CModelExtraction::open_component(const char* section) {
  std::size_t size = 0;
  if (vex_pkg_section_exists(m_library, section, &size) == 0) {
    std::printf("Error: Library file %s doesn't have component header section %s!\n", m_path,
                section);
    return nullptr;
  }
  m_component.reset(grow_string(m_component.release(), size + 1, &m_capacity));
  vex_pkg_ptr component;
  if (vex_pkg_read_section(m_library, section, m_component.get(), size + 1) != 0) {
    component.reset(vex_pkg_open_file_from_memory(m_component.get(), size, VEX_PKG_SHOW_ERRORS));
  }
  // Any bytes open; a package has its string table, by this name.
  if (component == nullptr ||
      vex_pkg_section_exists(component.get(), VEX_PKG_STRING_TABLE, nullptr) == 0) {
    std::printf("Error: Couldn't read section %s from component package %s!\n", section, m_path);
    return nullptr;
  }
  return component;
}

std::unique_ptr<char[]> CModelExtraction::list_sections(vex_pkg_file* component,
                                                        const char* section) {
  std::unique_ptr<char[]> names(new (std::nothrow) char[NAME_LIST_SIZE]);
  if (names != nullptr) {
    names[0] = '\0'; // a listing without names does not change the buffer
  }
  if (names == nullptr || vex_pkg_section_names(component, names.get(), NAME_LIST_SIZE) == 0) {
    std::printf("Error: Couldn't read internals of section %s in library file %s!\n", section,
                m_path);
    return nullptr;
  }
  return names;
}

bool CModelExtraction::extract_file(vex_pkg_file* component, const char* section,
                                    const std::string& model) {
  const std::string file = base_name(model.substr(std::strlen(C_MODEL_SECTION_PREFIX)));
  const std::string output = m_destination + "/" + base_name(m_path) + "_" + section + "_" + file;
  if (file_is_a_regular_file(output)) {
    return true;
  }
  std::printf("%s\n", output.c_str());
  std::size_t size = 0;
  void* data = nullptr;
  if (vex_pkg_section_exists(component, model.c_str(), &size) == 0 ||
      vex_pkg_read_section_transient(component, model.c_str(), &data) == 0 ||
      !write_new_file(output, data, size)) {
    std::printf("Cannot write section %s to file %s!\n", model.c_str(), output.c_str());
    return false;
  }
  return true;
}

// Only reports an unknown IR type: a library may contain its section all the same.
void check_ir_type(const char* ir_type, const std::string& section) {
  if (std::find(CLANG_IR_TYPE_SECT_NAME.begin(), CLANG_IR_TYPE_SECT_NAME.end(), section) !=
      CLANG_IR_TYPE_SECT_NAME.end()) {
    return;
  }
  std::printf("Specified clang ir type '%s' is invalid!\n", ir_type);
  std::printf("Valid ones are suffixes following '%s' in the following names:\n",
              CLANG_IR_SECTION_PREFIX);
  for (const char* name : CLANG_IR_TYPE_SECT_NAME) {
    std::printf("   %s\n", name);
  }
}

} // namespace

int extract_c_models(int argc, char** argv) {
  if (argc != 4) {
    show_help(argv[0], "extract_c_models");
    return 1;
  }
  const char* path = argv[2];
  const vex_pkg_ptr library = open_library(path);
  if (library == nullptr) {
    return 1;
  }
  ComponentTable table;
  if (!table.read(library.get(), path)) {
    return 1;
  }
  CModelExtraction extraction(library.get(), path, argv[3]);
  for (const shelver_comp_table_entry& entry : table) {
    // OpenCL functions have a placeholder for their section.
    if (entry.section_name[0] == '.' && !extraction.extract_component(entry.section_name)) {
      return 1;
    }
  }
  return 0;
}

int extract_clang_ir(int argc, char** argv) {
  if (argc != 5) {
    show_help(argv[0], "extract_clang_ir");
    return 1;
  }
  const char* path = argv[2];
  const char* ir_type = argv[3];
  const vex_pkg_ptr library = open_library(path);
  if (library == nullptr) {
    return 1;
  }
  const std::string section = std::string(CLANG_IR_SECTION_PREFIX) + "." + ir_type;
  check_ir_type(ir_type, section);
  if (vex_pkg_section_exists(library.get(), section.c_str(), nullptr) == 0) {
    std::printf("Section %s does not exist in file %s!\n", section.c_str(), path);
    return 1;
  }
  const std::string output = std::string(argv[4]) + "/" + base_name(path) + "." + ir_type + ".bc";
  if (!check_output_is_no_input(output, {path})) {
    return 1;
  }
  std::printf("%s\n", output.c_str());
  if (vex_pkg_read_section_into_file(library.get(), section.c_str(), output.c_str()) == 0) {
    std::printf("Could not write section %s to file %s!\n", section.c_str(), output.c_str());
    return 1;
  }
  return 0;
}
