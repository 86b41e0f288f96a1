// SPDX-License-Identifier: BSD-3-Clause
#include "create.h"

#include "commands.h"
#include "front_end.h"
#include "input_package.h"
#include "library.h"
#include "malloc_ptr.h"
#include "opencl.h"
#include "package.h"
#include "usage.h"
#include "vex_assert.h"

#include <algorithm>
#include <array>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include <unistd.h>

namespace {

// The named arguments, in the order of their values.
enum NamedArg { NAME, VENDOR, VERSION, OUTPUT, NAMED_ARG_COUNT };
const char* NAMED_ARGS[NAMED_ARG_COUNT] = {"-name", "-vendor", "-version", "-o"};

constexpr const char* TOOL_VERSION = "18.1.0.222";

// A library that is being created. When it is destroyed, the bitcode files are removed, and the
// output file unless the library was finished.
class LibraryBuild {
public:
  LibraryBuild(const std::string& path, const std::vector<std::string>& inputs)
      : m_path(path), m_opencl(path, inputs) {
    vex_assert_cleanup = [this] { remove_files(); }; // output of "bfcl-opt" can fail an assertion
  }
  ~LibraryBuild() {
    vex_assert_cleanup = nullptr;
    static_cast<void>(vex_pkg_close_file_checked(m_library.release(), false));
    remove_files();
  }
  LibraryBuild(const LibraryBuild&) = delete;
  LibraryBuild& operator=(const LibraryBuild&) = delete;

  // Each prints what went wrong when it returns false.
  bool open();
  bool add_input(const std::string& path);
  bool add_opencl_code();
  bool add_texts(const std::vector<std::string>& values);
  bool finish();

private:
  bool add_hdl_package(vex_pkg_ptr package, const std::string& path);
  bool read_header(vex_pkg_file* package, const std::string& path);
  bool parse_header(const std::string& path, std::string& first_function, std::string& section);
  bool check_kernels() const;
  void remove_files();

  std::string m_path;
  bool m_remove_output = false;
  OpenClCode m_opencl;
  std::vector<std::string> m_functions; // HDL first, in processing order, then OpenCL
  std::vector<std::string> m_kernels;
  std::string m_table; // the component table's text
  std::string m_info;
  malloc_ptr<char> m_header;
  std::size_t m_header_capacity = 0;
  InputPackages m_inputs;
  vex_pkg_ptr m_library;
};

// Of a symbolic link, the file that it leads to, unless its full path cannot be found.
void LibraryBuild::remove_files() {
  m_opencl.remove_files();
  std::array<char, PATH_MAX> target = {};
  if (m_remove_output && file_is_a_regular_file(m_path)) {
    const char* path = realpath(m_path.c_str(), target.data());
    unlink(path != nullptr ? path : m_path.c_str());
  }
}

bool LibraryBuild::open() {
  // An opening that fails may have made the file.
  m_remove_output = find_file_id(m_path).state == FileId::ABSENT;
  m_library = create_new_package(m_path);
  if (m_library == nullptr) {
    std::printf("Error: Cannot create library file %s\n", m_path.c_str());
    return false;
  }
  m_remove_output = true;
  return true;
}

bool LibraryBuild::add_input(const std::string& path) {
  vex_pkg_ptr package = m_inputs.open(path);
  if (package == nullptr) {
    std::printf("Error: Cannot open component package file %s!\n", path.c_str());
    return false;
  }
  if (vex_pkg_section_exists(package.get(), COMP_HEADER_SECTION_NAME, nullptr) != 0) {
    return add_hdl_package(std::move(package), path);
  }
  if (OpenClCode::is_in(package.get())) {
    return m_opencl.take(package.get(), path);
  }
  std::printf("Error: File %s cannot be included into a library! "
              "When compiling OpenCL files for inclusion into a library, make sure to use -shared "
              "option.\n",
              path.c_str());
  return false;
}

bool report_unreadable_header(const std::string& path) {
  std::printf("Error: Couldn't read section %s from component package %s!\n",
              COMP_HEADER_SECTION_NAME, path.c_str());
  return false;
}

bool LibraryBuild::read_header(vex_pkg_file* package, const std::string& path) {
  std::size_t size = 0;
  vex_pkg_section_exists(package, COMP_HEADER_SECTION_NAME, &size);
  m_header.reset(grow_string(m_header.release(), size + 1, &m_header_capacity));
  if (vex_pkg_read_section(package, COMP_HEADER_SECTION_NAME, m_header.get(), size + 1) == 0) {
    return report_unreadable_header(path);
  }
  return true;
}

// Takes the functions of the header into the list and the table. Without any, both names stay
// empty.
bool LibraryBuild::parse_header(const std::string& path, std::string& first_function,
                                std::string& section) {
  char* save = nullptr;
  for (char* line = shelver_strtok_r(m_header.get(), "\n", &save);
       line != nullptr && std::strcmp(line, END_OF_TABLE) != 0;
       line = shelver_strtok_r(nullptr, "\n", &save)) {
    char* save_word = nullptr;
    const char* function = shelver_strtok_r(line, " ", &save_word);
    const char* kind = shelver_strtok_r(nullptr, " ", &save_word);
    if (function == nullptr || kind == nullptr) {
      return report_unreadable_header(path);
    }
    if (section.empty()) {
      first_function = function;
      section = COMP_SECTION_PREFIX + first_function;
    }
    m_functions.emplace_back(function);
    m_table += std::string(function) + " " + kind + " " + section + "\n";
    if (verbose != 0) {
      std::printf("File %s, function %s, section %s\n", path.c_str(), function, section.c_str());
    }
  }
  return true;
}

bool LibraryBuild::add_hdl_package(vex_pkg_ptr package, const std::string& path) {
  if (!read_header(package.get(), path)) {
    return false;
  }
  std::string first_function;
  std::string section;
  if (!parse_header(path, first_function, section)) {
    return false;
  }
  if (vex_pkg_section_exists(m_library.get(), section.c_str(), nullptr) != 0) {
    std::printf("Error: Library already has function named %s!\n", first_function.c_str());
    return false;
  }
  if (!m_inputs.add_last(m_library.get(), section.c_str())) {
    std::printf("Error: Cannot add component section package file %s to the library!\n",
                path.c_str());
    return false;
  }
  return true;
}

// Kernels in a library would be part of every design that links to it.
bool LibraryBuild::check_kernels() const {
  if (m_kernels.empty()) {
    return true;
  }
  std::printf("Error: The following functions are OpenCL kernels:\n");
  for (const std::string& kernel : m_kernels) {
    std::printf("   %s\n", kernel.c_str());
  }
  std::printf(
      "Adding OpenCL kernels to the library would cause these kernels to be instantiated in "
      "every user design that links to this library, with no control from the user!\n");
  return false;
}

bool LibraryBuild::add_opencl_code() {
  const std::size_t hdl_count = m_functions.size();
  if (!m_opencl.link_into(m_library.get(), m_kernels, m_functions) ||
      find_duplicates(m_functions,
                      "Error: Have more than one definition of component named %s!\n") != 0 ||
      !check_kernels()) {
    return false;
  }
  // A blank separates the words of the table.
  const auto with_blank =
      std::find_if(m_functions.begin(), m_functions.end(),
                   [](const auto& name) { return name.find(' ') != std::string::npos; });
  if (with_blank != m_functions.end()) {
    std::printf("Error: OpenCL function %s has a name that contains a blank!\n",
                with_blank->c_str());
    return false;
  }
  // Positions in the list as it is sorted now: with HDL functions in it, its last names need not be
  // those of OpenCL functions.
  for (std::size_t i = hdl_count; i < m_functions.size(); ++i) {
    m_table += m_functions[i] + " LLVM_IR <clang_ir>\n";
  }
  return true;
}

bool LibraryBuild::add_texts(const std::vector<std::string>& values) {
  const auto add = [this](const char* section, std::string_view text) {
    return vex_pkg_add_data_section(m_library.get(), section, text.data(), text.size()) != 0;
  };
  const auto value_or = [&values](NamedArg arg, const char* none) {
    return values[arg].empty() ? std::string(none) : values[arg];
  };
  if (m_functions.size() > SHELVER_MAX_COMP_TABLE_ENTRIES) {
    std::printf("Error: The library would have %zu functions, more than the %u that can be read!\n",
                m_functions.size(), SHELVER_MAX_COMP_TABLE_ENTRIES);
    return false;
  }
  m_table += END_OF_TABLE;
  if (!add(COMP_TABLE_SECTION_NAME, m_table)) {
    std::printf("Error: Cannot add table section to the new library!\n");
    return false;
  }
  m_info = value_or(VERSION, "no_version") + " " + value_or(NAME, "no_lib_name") + " " +
           value_or(VENDOR, "no_vendor");
  if (!add(INFO_SECTION_NAME, m_info)) {
    std::printf("Error: Cannot add info section to the new library!\n");
    return false;
  }
  if (!add(VERSION_SECTION_NAME, TOOL_VERSION)) {
    std::printf("Error: Cannot add version section to the new library!\n");
    return false;
  }
  return true;
}

bool LibraryBuild::finish() {
  m_opencl.remove_files();
  m_remove_output = !close_new_package(std::move(m_library), m_path);
  return !m_remove_output;
}

// The name of the library to make, or "" after a message.
std::string choose_output(const std::vector<std::string>& values) {
  if (!values[OUTPUT].empty()) {
    return values[OUTPUT];
  }
  if (!values[NAME].empty()) {
    return values[NAME] + ".bfclib";
  }
  std::printf("Error: Neither -o nor -name arguments are specified. Don't know how to name the "
              "output!\n");
  return "";
}

int build_library(const std::string& output, const std::vector<std::string>& inputs,
                  const std::vector<std::string>& values) {
  LibraryBuild build(output, inputs);
  if (!build.open()) {
    return 1;
  }
  for (const std::string& input : inputs) {
    if (!build.add_input(input)) {
      return 1;
    }
  }
  return build.add_opencl_code() && build.add_texts(values) && build.finish() ? 0 : 1;
}

} // namespace

int fill_named_args(int argc, char** argv, int count, const char** name,
                    std::vector<std::string>& values, std::vector<std::string>& positional) {
  VEX_ASSERT(name);
  values.assign(static_cast<std::size_t>(count), "");
  int taken = 0;
  for (int i = 2; i < argc; ++i) {
    const char** found =
        taken < count
            ? std::find_if(name, name + count,
                           [&](const char* known) { return std::strcmp(known, argv[i]) == 0; })
            : name + count;
    if (found == name + count) {
      positional.emplace_back(argv[i]);
      continue;
    }
    if (i + 1 == argc) {
      std::printf("Error: argument %s is given without value!\n", *found);
      return 0;
    }
    const char* value = argv[++i];
    if (value[0] == '-') {
      std::printf("Error: option %s has value %s, which doesn't look like a valid file name!\n",
                  *found, value);
      return 0;
    }
    values[static_cast<std::size_t>(found - name)] = value;
    ++taken;
  }
  return 1;
}

int find_duplicates(std::vector<std::string>& list, const char* format) {
  std::sort(list.begin(), list.end());
  const std::string text = format;
  const std::size_t place = text.find("%s");
  int found = 0;
  for (std::size_t i = 1; i < list.size(); ++i) {
    const bool first_repeat = list[i] == list[i - 1] && (i == 1 || list[i] != list[i - 2]);
    if (first_repeat) {
      std::printf("%s", std::string(text).replace(place, 2, list[i]).c_str());
      found = 1;
    }
  }
  return found;
}

int create_full_library(int argc, char** argv) {
  std::vector<std::string> values;
  std::vector<std::string> inputs;
  if (fill_named_args(argc, argv, NAMED_ARG_COUNT, NAMED_ARGS, values, inputs) == 0) {
    show_help(argv[0], "create");
    return 1;
  }
  if (inputs.empty()) {
    std::printf("Error: No component package files are given! Not making an empty library.\n");
    show_help(argv[0], "create");
    return 1;
  }
  if (find_duplicates(inputs, "Error: supplied source filename %s appears more than once!\n") !=
      0) {
    return 1;
  }
  const std::string output = choose_output(values);
  if (output.empty()) {
    show_help(argv[0], "create");
    return 1;
  }
  if (verbose != 0) {
    std::printf("library create called with %zu component files\n", inputs.size());
  }
  if (!check_output_is_no_input(output, inputs)) {
    return 1;
  }
  return build_library(output, inputs, values);
}
