// SPDX-License-Identifier: BSD-3-Clause
#include "component_package.h"

#include "package_layout.h"
#include "printable.h"
#include "shelver.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace vex::efi {

namespace {

// Collects faults of the package that is the section `where` of a library, or of a file.
class FaultList {
public:
  explicit FaultList(std::vector<std::string>& faults, std::string_view where = "")
      : m_faults(faults), m_where(where.empty() ? "" : printable(where) + ": ") {}

  void add(const std::string& text) { m_faults.push_back(m_where + text); }
  [[nodiscard]] std::vector<std::string>& texts() const { return m_faults; }

private:
  std::vector<std::string>& m_faults;
  std::string m_where;
};

struct Section {
  std::string name;
  std::string_view bytes;
};

// Takes the text up to the delimiter, which is dropped, or all of it.
std::string_view take_until(std::string_view& text, char delimiter) {
  const std::size_t end = text.find(delimiter);
  const std::string_view token = text.substr(0, end);
  text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  return token;
}

// What follows the prefix, or nothing when the text does not begin with it.
std::optional<std::string> strip_prefix(std::string_view text, std::string_view prefix) {
  return text.starts_with(prefix) ? std::optional(std::string(text.substr(prefix.size())))
                                  : std::nullopt;
}

vex_pkg_ptr open_image(std::string_view image) {
  return vex_pkg_ptr(
      vex_pkg_open_file_from_memory(const_cast<char*>(image.data()), image.size(), 0));
}

// The names of all named sections, each followed by a line break. The container writes them into a
// buffer that must be large enough; in an undamaged package they are part of its bytes.
std::string list_section_names(vex_pkg_file* pkg, std::size_t package_size) {
  std::string names;
  for (std::size_t size = 4096; size / 8 < package_size; size *= 4) {
    names.assign(size, '\0');
    if (vex_pkg_section_names(pkg, names.data(), names.size()) != 0) {
      names.resize(names.find('\0'));
      return names.empty() ? names : names + "\n";
    }
  }
  return "";
}

std::vector<Section> read_sections(vex_pkg_file* pkg, std::size_t package_size, FaultList& faults) {
  const std::string names = list_section_names(pkg, package_size);
  std::vector<Section> sections;
  for (std::string_view rest = names; !rest.empty();) {
    Section section = {std::string(take_until(rest, '\n')), {}};
    std::size_t size = 0;
    void* bytes = nullptr;
    if (vex_pkg_section_exists(pkg, section.name.c_str(), &size) == 0 ||
        vex_pkg_read_section_transient(pkg, section.name.c_str(), &bytes) == 0) {
      faults.add(format_text("section %s cannot be read", printable(section.name).c_str()));
    } else {
      section.bytes = {static_cast<const char*>(bytes), size};
      sections.push_back(std::move(section));
    }
  }
  return sections;
}

// The words of each line of a table that ends with END_OF_TABLE, up to the first fault. Readers of
// libraries accept a limited number of lines, and a library has the lines of all its packages.
std::vector<std::vector<std::string>> read_table(const Section& section, std::size_t word_count,
                                                 FaultList& faults) {
  std::vector<std::vector<std::string>> lines;
  std::string_view rest = section.bytes;
  while (!rest.empty() && rest != END_OF_TABLE) {
    std::vector<std::string> words;
    std::string_view line = take_until(rest, '\n');
    while (!line.empty() && words.size() <= word_count) {
      words.emplace_back(take_until(line, ' '));
    }
    if (words.size() != word_count || std::count(words.begin(), words.end(), "") > 0) {
      faults.add(format_text("%s: line %zu is not %zu words", section.name.c_str(),
                             lines.size() + 1, word_count));
      return lines;
    }
    if (lines.size() == SHELVER_MAX_COMP_TABLE_ENTRIES) {
      faults.add(format_text("%s: more than %u lines, the most that readers accept",
                             section.name.c_str(), SHELVER_MAX_COMP_TABLE_ENTRIES));
      return lines;
    }
    lines.push_back(std::move(words));
  }
  if (rest.empty()) {
    faults.add(format_text("%s: no line <END_OF_TABLE>", section.name.c_str()));
  }
  return lines;
}

void read_header(const Section& section, ComponentPackage& package, FaultList& faults) {
  for (auto& words : read_table(section, 2, faults)) {
    if (words[1] != HDL_KIND) {
      faults.add(format_text("%s: function %s is of the kind %s, not HDL", section.name.c_str(),
                             printable(words[0]).c_str(), printable(words[1]).c_str()));
    }
    package.functions.push_back(std::move(words[0]));
  }
}

void read_directory_prefix(const Section& section, ComponentPackage& package, FaultList& faults) {
  package.directory_prefix = section.bytes;
  if (!section.bytes.empty() && !section.bytes.ends_with('/')) {
    faults.add(format_text("%s: no \"/\" at the end", section.name.c_str()));
  }
}

void read_specification(const Section& section, std::string name, ComponentPackage& package,
                        FaultList& faults) {
  if (!package.specification_name.empty()) {
    faults.add("more than one section .xml_spec.NAME");
  } else if (name.empty() || name.find('/') != std::string::npos) {
    faults.add(
        format_text("section %s does not end with a file name", printable(section.name).c_str()));
  } else {
    package.specification_name = std::move(name);
    package.specification = section.bytes;
  }
}

// Stores a section in the member of the package that its name selects.
void read_component_section(const Section& section, ComponentPackage& package, FaultList& faults) {
  if (section.name == DIR_CONTAINER_SECTION) {
    read_directory_prefix(section, package, faults);
  } else if (section.name == COMP_HEADER_SECTION) {
    read_header(section, package, faults);
  } else if (auto source = strip_prefix(section.name, SOURCE_PREFIX)) {
    package.files.push_back({PackagedFileKind::SOURCE, std::move(*source), section.bytes});
  } else if (auto c_model = strip_prefix(section.name, C_MODEL_PREFIX)) {
    package.files.push_back({PackagedFileKind::C_MODEL, std::move(*c_model), section.bytes});
  } else if (auto spec = strip_prefix(section.name, XML_SPEC_PREFIX)) {
    read_specification(section, std::move(*spec), package, faults);
  } else {
    faults.add(format_text("section %s does not belong in a component package",
                           printable(section.name).c_str()));
  }
}

bool has_section(const std::vector<Section>& sections, std::string_view name) {
  return std::any_of(sections.begin(), sections.end(),
                     [name](const Section& section) { return section.name == name; });
}

void require_sections(const std::vector<Section>& sections,
                      std::initializer_list<const char*> names, FaultList& faults) {
  for (const char* name : names) {
    if (!has_section(sections, name)) {
      faults.add(format_text("no section %s", name));
    }
  }
}

ComponentPackage read_component(const std::vector<Section>& sections, FaultList& faults) {
  ComponentPackage package;
  for (const Section& section : sections) {
    read_component_section(section, package, faults);
  }
  require_sections(sections, {DIR_CONTAINER_SECTION, COMP_HEADER_SECTION}, faults);
  if (package.specification_name.empty()) {
    faults.add("no section .xml_spec.NAME");
  }
  return package;
}

// The component package in a section of a library.
void read_nested_component(const Section& section, PackageFile& file,
                           std::vector<std::string>& texts) {
  FaultList faults(texts, section.name);
  std::vector<std::string> layout_faults;
  if (!check_package_layout(section.bytes, layout_faults)) {
    std::for_each(layout_faults.begin(), layout_faults.end(),
                  [&faults](const std::string& fault) { faults.add(fault); });
    return;
  }
  vex_pkg_ptr pkg = open_image(section.bytes);
  const auto sections = read_sections(pkg.get(), section.bytes.size(), faults);
  if (!has_section(sections, COMP_HEADER_SECTION)) {
    faults.add("not a component package: no section .comp_header");
    return;
  }
  ComponentPackage package = read_component(sections, faults);
  package.section = section.name;
  package.image = section.bytes;
  package.pkg = std::move(pkg);
  file.components.push_back(std::move(package));
}

void read_info(const Section& section, PackageFile& file, FaultList& faults) {
  shelver_info_section info = {};
  if (shelver_read_info_section(file.pkg.get(), &info) != 0) {
    file.version = info.version;
    file.name = info.name;
    file.vendor = info.vendor;
    shelver_free_info_section(&info);
  }
  if (section.bytes != file.version + " " + file.name + " " + file.vendor) {
    faults.add(".vex.info: not the three words version, name and vendor");
  }
}

void read_component_table(const Section& section, PackageFile& file, FaultList& faults) {
  for (auto& words : read_table(section, 3, faults)) {
    file.functions.push_back({std::move(words[0]), std::move(words[1]), std::move(words[2])});
  }
}

void read_library(const std::vector<Section>& sections, PackageFile& file, FaultList& faults) {
  for (const Section& section : sections) {
    if (section.name.starts_with(COMPONENT_PREFIX)) {
      read_nested_component(section, file, faults.texts());
    } else if (section.name == COMP_TABLE_SECTION_NAME) {
      read_component_table(section, file, faults);
    } else if (section.name == INFO_SECTION_NAME) {
      read_info(section, file, faults);
    } else if (!section.name.starts_with(CLANG_IR_PREFIX) && section.name != VERSION_SECTION) {
      faults.add(
          format_text("section %s does not belong in a library", printable(section.name).c_str()));
    }
  }
  require_sections(sections, {INFO_SECTION_NAME, VERSION_SECTION}, faults);
}

void read_clang_ir(const std::vector<Section>& sections, PackageFile& file) {
  for (const Section& section : sections) {
    if (auto target = strip_prefix(section.name, CLANG_IR_PREFIX)) {
      file.clang_ir.push_back({std::move(*target), section.bytes});
    }
  }
}

bool read_image(std::string_view image, PackageFile& file, std::vector<std::string>& texts) {
  if (!check_package_layout(image, texts)) {
    return false;
  }
  FaultList faults(texts);
  file.image = image;
  file.pkg = open_image(image);
  const auto sections = read_sections(file.pkg.get(), image.size(), faults);
  if (has_section(sections, COMP_TABLE_SECTION_NAME)) {
    file.kind = PackageKind::LIBRARY;
    read_library(sections, file, faults);
  } else if (has_section(sections, COMP_HEADER_SECTION)) {
    file.kind = PackageKind::COMPONENT;
    ComponentPackage package = read_component(sections, faults);
    package.image = image;
    file.components.push_back(std::move(package));
  }
  read_clang_ir(sections, file);
  if (file.kind == PackageKind::NONE && !file.clang_ir.empty()) {
    file.kind = PackageKind::OPENCL;
  }
  if (file.kind == PackageKind::NONE) {
    faults.add("not a component package, a library or an OpenCL package");
  }
  return file.kind != PackageKind::NONE;
}

} // namespace

std::unique_ptr<PackageFile> read_package_file(const std::string& path,
                                               std::vector<std::string>& faults) {
  auto result = std::make_unique<PackageFile>();
  std::string error;
  if (!result->file.map(path.c_str(), &error)) {
    faults.push_back(format_text("cannot open: %s", error.c_str()));
    return nullptr;
  }
  return read_image(result->file.bytes(), *result, faults) ? std::move(result) : nullptr;
}

std::unique_ptr<PackageFile> read_package_image(std::string_view image,
                                                std::vector<std::string>& faults) {
  auto result = std::make_unique<PackageFile>();
  return read_image(image, *result, faults) ? std::move(result) : nullptr;
}

const ComponentPackage* find_component(const PackageFile& file, std::string_view function) {
  const auto found = std::find_if(
      file.components.begin(), file.components.end(), [&](const ComponentPackage& package) {
        return std::find(package.functions.begin(), package.functions.end(), function) !=
               package.functions.end();
      });
  return found != file.components.end() ? &*found : nullptr;
}

} // namespace vex::efi
