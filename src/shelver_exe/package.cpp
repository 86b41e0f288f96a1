// SPDX-License-Identifier: BSD-3-Clause
#include "package.h"

#include "EFISpecHandle.h"
#include "commands.h"
#include "front_end.h"
#include "shelver.h"
#include "usage.h"
#include "vex_assert.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <unistd.h>

namespace {

struct spec_deleter {
  void operator()(efi_spec_handle* spec) const { free_efi_spec_handle(spec); }
};
using spec_ptr = std::unique_ptr<efi_spec_handle, spec_deleter>;

std::string to_lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  return text;
}

// How many levels one name climbs at most.
int find_directory_depth(const std::string& name) {
  int level = 0;
  int highest = 0;
  std::size_t start = 0;
  for (std::size_t slash = name.find('/'); slash != std::string::npos;
       slash = name.find('/', start)) {
    const std::string component = name.substr(start, slash - start);
    if (component == "..") {
      highest = std::max(highest, ++level);
    } else if (!component.empty() && component != ".") {
      --level;
    }
    start = slash + 1;
  }
  return highest;
}

bool has_accepted_extension(const std::string& path, const PkgSectionKind& kind) {
  if (kind.extensions.empty()) {
    return true;
  }
  const std::size_t dot = path.rfind('.');
  return dot != std::string::npos && kind.extensions.contains(to_lower(path.substr(dot + 1)));
}

bool check_source_file(const std::string& path, const PkgSectionKind& kind) {
  if (!file_is_a_regular_file(path)) {
    std::printf("Error: File %s, specified in XML spec file, does not exist or is not a file!\n",
                path.c_str());
    return false;
  }
  if (!has_accepted_extension(path, kind)) {
    std::printf("Error: File %s, specified in XML spec file, has an unsupported file extension!\n",
                path.c_str());
    return false;
  }
  return true;
}

bool add_listed_file(vex_pkg_file* pkg, const std::string& name, const std::string& path,
                     const PkgSectionKind& kind) {
  if (!check_source_file(path, kind)) {
    return false;
  }
  if (verbose != 0) {
    std::printf("Adding file %s located in %s\n", name.c_str(), path.c_str());
  }
  return add_sourcefile_to_container(pkg, kind.prefix.c_str(), name.c_str(), path.c_str()) != 0;
}

bool add_text_section(vex_pkg_file* pkg, const char* name, const std::string& text) {
  return vex_pkg_add_data_section(pkg, name, text.data(), text.size()) != 0;
}

// The contents of a package, collected from the components of a specification. Its texts must live
// until the package is closed.
struct PackageContents {
  explicit PackageContents(const efi_spec_handle* spec);

  std::string header; // the component header table
  std::string prefix; // the directory prefix
  std::vector<std::string> sources;
  std::vector<std::string> c_models;
};

PackageContents::PackageContents(const efi_spec_handle* spec) {
  for (int i = 0; i < get_num_efi_elems(spec); ++i) {
    const efi_elem_handle* elem = get_efi_elem(spec, i);
    header += get_function_name(elem);
    header += " HDL\n";
    for (int file = 0; file < get_num_c_model_files(elem); ++file) {
      c_models.emplace_back(get_c_model_file(elem, file));
    }
    for (int file = 0; file < get_num_source_files(elem); ++file) {
      sources.emplace_back(get_source_file(elem, file));
    }
  }
  header += END_OF_TABLE;
}

// Adds all sections, up to the first failure.
bool add_contents(vex_pkg_file* pkg, PackageContents& contents, const std::string& spec_path) {
  const PkgSectionKind source_kind(SOURCE_SECTION_PREFIX, {"v", "sv", "svh", "vhd", "hex", "mif"});
  const PkgSectionKind c_model_kind(C_MODEL_SECTION_PREFIX, {});
  const std::string spec_dir = directory_part(spec_path);
  if (!add_text_section(pkg, DIR_CONTAINER_SECTION_NAME, contents.prefix) ||
      add_filenames_to_pkg(pkg, contents.sources, spec_dir, source_kind) == 0 ||
      add_filenames_to_pkg(pkg, contents.c_models, spec_dir, c_model_kind) == 0 ||
      add_sourcefile_to_container(pkg, XML_SPEC_SECTION_PREFIX, base_name(spec_path).c_str(),
                                  spec_path.c_str()) == 0) {
    return false;
  }
  if (!add_text_section(pkg, COMP_HEADER_SECTION_NAME, contents.header)) {
    std::printf("Error: Couldn't add section %s\n", COMP_HEADER_SECTION_NAME);
    return false;
  }
  return true;
}

// The readers of the tables split them at white space.
bool check_function_names(const efi_spec_handle* spec, const std::string& spec_path) {
  for (int i = 0; i < get_num_efi_elems(spec); ++i) {
    const std::string name = get_function_name(get_efi_elem(spec, i));
    if (name.empty() || name.find_first_of(" \t\n\v\f\r") != std::string::npos) {
      std::printf(
          "Error: Function %d of file %s has a name that is empty or contains white space!\n",
          i + 1, spec_path.c_str());
      return false;
    }
  }
  return true;
}

// The readers of a package list its sections one a line.
bool check_file_names(const PackageContents& contents, const std::string& spec_path) {
  const auto has_line_end = [](const std::string& name) {
    return name.find('\n') != std::string::npos;
  };
  if (std::any_of(contents.sources.begin(), contents.sources.end(), has_line_end) ||
      std::any_of(contents.c_models.begin(), contents.c_models.end(), has_line_end) ||
      has_line_end(base_name(spec_path))) {
    std::printf("Error: A file name in %s, or its own, contains a line end!\n", spec_path.c_str());
    return false;
  }
  return true;
}

// The paths of all files that the package is made from.
std::vector<std::string> find_input_files(const std::string& spec_path,
                                          const PackageContents& contents) {
  std::vector<std::string> paths = {spec_path};
  for (const auto* names : {&contents.sources, &contents.c_models}) {
    for (const std::string& name : *names) {
      paths.push_back(my_strjoin(directory_part(spec_path), name));
    }
  }
  return paths;
}

} // namespace

PkgSectionKind::PkgSectionKind(std::string section_prefix,
                               std::initializer_list<std::string> file_extensions)
    : prefix(std::move(section_prefix)) {
  for (const std::string& extension : file_extensions) {
    extensions.insert(to_lower(extension));
  }
}

int find_max_directory_depth(const std::vector<std::string>& names) {
  int depth = 0;
  for (const std::string& name : names) {
    depth = std::max(depth, find_directory_depth(name));
  }
  return depth;
}

std::string gen_directory_prefix(int depth, const std::string& spec_dir) {
  VEX_ASSERT(depth >= 0);
  std::array<char, 4096> working_directory = {};
  if (getcwd(working_directory.data(), working_directory.size()) == nullptr) {
    std::printf("Error: Current working directory name is way too long!\n");
    std::exit(1);
  }
  const std::string full = my_strjoin(working_directory.data(), spec_dir);
  std::size_t cut = full.size();
  for (int level = 0; level < depth; ++level) {
    cut = cut > 0 ? full.rfind('/', cut - 1) : std::string::npos;
    if (cut == std::string::npos) {
      std::printf("Error: Cannot go %d levels higher from %s.\n", depth, full.c_str());
      std::printf("Number of levels is based on number of \"..\" in filenames inside XML file.\n");
      std::exit(1);
    }
  }
  const std::string prefix = depth > 0 ? full.substr(cut + 1) : "";
  return prefix.empty() ? prefix : prefix + "/";
}

int add_sourcefile_to_container(vex_pkg_file* pkg, const char* prefix, const char* name,
                                const char* path) {
  const std::string section = std::string(prefix) + name;
  if (vex_pkg_add_data_section_from_file(pkg, section.c_str(), path) == 0) {
    std::printf("Error: Couldn't add section %s from file %s\n", section.c_str(), path);
    return 0;
  }
  return 1;
}

int add_filenames_to_pkg(vex_pkg_file* pkg, std::vector<std::string>& names,
                         const std::string& spec_dir, const PkgSectionKind& kind) {
  std::sort(names.begin(), names.end());
  int ok = 1;
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (i > 0 && names[i] == names[i - 1]) {
      continue;
    }
    if (!add_listed_file(pkg, names[i], my_strjoin(spec_dir, names[i]), kind)) {
      ok = 0;
    }
  }
  return ok;
}

int create_component_container(int argc, char** argv) {
  if (argc != 5 || std::strcmp(argv[3], "-o") != 0) {
    show_help(argv[0], "hdl-comp-pkg");
    return 1;
  }
  const std::string spec_path = argv[2];
  const std::string output_file = argv[4];
  if (!file_is_a_regular_file(spec_path)) {
    std::printf("Error: File %s does not exist or is not a regular file!\n", spec_path.c_str());
    show_help(argv[0], "hdl-comp-pkg");
    return 1;
  }
  const spec_ptr spec(load_efi_spec_file(spec_path.c_str()));
  if (spec == nullptr) {
    return 1;
  }
  VEX_ASSERT(!output_file.empty());
  PackageContents contents(spec.get());
  if (!check_function_names(spec.get(), spec_path) || !check_file_names(contents, spec_path) ||
      !check_output_is_no_input(output_file, find_input_files(spec_path, contents), true)) {
    return 1;
  }
  vex_pkg_ptr pkg = create_new_package(output_file);
  if (pkg == nullptr) {
    std::printf("Error: Cannot create a new file %s\n", output_file.c_str());
    return 1;
  }
  const int depth = std::max(find_max_directory_depth(contents.sources),
                             find_max_directory_depth(contents.c_models));
  contents.prefix = gen_directory_prefix(depth, directory_part(spec_path));
  const bool added = add_contents(pkg.get(), contents, spec_path);
  const bool written = close_new_package(std::move(pkg), output_file);
  return added && written ? 0 : 1;
}
