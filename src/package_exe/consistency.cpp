// SPDX-License-Identifier: BSD-3-Clause
#include "consistency.h"

#include "EFISpecKeySearch.h"
#include "EFISpecXml.h"
#include "plan.h"
#include "printable.h"
#include "specification.h"

#include <algorithm>
#include <set>

namespace bfcl::package {

using namespace vex::efi;

namespace {

// "create" accepts no OpenCL package without this target, and ignores targets other than the three.
constexpr const char* REQUIRED_TARGET = "x86_64-unknown-linux-ostrahw";
constexpr std::string_view TARGETS[] = {"spir64-unknown-unknown-ostrahw", REQUIRED_TARGET,
                                        "x86_64-pc-windows-ostrahw"};

constexpr std::size_t SEARCH_BLOCK_SIZE = std::size_t{1} << 16;

using Names = std::set<std::string>;

class ComponentCheck {
public:
  ComponentCheck(const ComponentPackage& package, std::vector<std::string>& faults)
      : m_package(package), m_faults(faults),
        m_where(package.section.empty() ? "" : printable(package.section) + ": ") {}

  void run() {
    PlannedFolder ignored;
    std::size_t folder_count = 0;
    static_cast<void>(plan_component(m_package, ignored, folder_count, m_faults));
    if (const auto spec = load_specification(m_package, m_faults)) {
      check_functions(*spec);
      check_files(*spec);
      check_names(*spec);
    }
  }

private:
  // One line for each name that is in the first list only.
  template <typename Format>
  void report_difference(const Names& names, const Names& others, Format format) {
    for (const std::string& name : names) {
      if (!others.contains(name)) {
        m_faults.push_back(m_where + format(printable(name).c_str()));
      }
    }
  }

  void check_functions(const EFISpec& spec) {
    Names specified;
    for (const auto& elem : spec.efi_elems()) {
      specified.insert(elem->m_function_name);
    }
    const Names listed(m_package.functions.begin(), m_package.functions.end());
    report_difference(specified, listed, [](const char* name) {
      return format_text("function %s of the specification is not in .comp_header", name);
    });
    report_difference(listed, specified, [](const char* name) {
      return format_text("function %s of .comp_header is not in the specification", name);
    });
    if (listed.size() < m_package.functions.size()) {
      m_faults.push_back(m_where + ".comp_header: a function is listed twice");
    }
  }

  void check_files(const EFISpec& spec) {
    Names named;
    for (const auto& elem : spec.efi_elems()) {
      for (const std::string& name : elem->m_requirement_files) {
        named.insert(std::string(SOURCE_PREFIX) + name);
      }
      for (const std::string& name : elem->m_c_model_files) {
        named.insert(std::string(C_MODEL_PREFIX) + name);
      }
    }
    Names packaged;
    for (const PackagedFile& file : m_package.files) {
      const auto prefix = file.kind == PackagedFileKind::SOURCE ? SOURCE_PREFIX : C_MODEL_PREFIX;
      packaged.insert(std::string(prefix) + file.name);
    }
    report_difference(named, packaged, [](const char* name) {
      return format_text("no section %s for a file that the specification names", name);
    });
    report_difference(packaged, named, [](const char* name) {
      return format_text("section %s: the specification does not name this file", name);
    });
  }

  // As the packaging command does it, but all files of a kind are searched for the names of all
  // functions, so that each file is read once.
  void check_names(const EFISpec& spec) {
    Names functions;
    Names names;
    for (const auto& elem : spec.efi_elems()) {
      functions.insert(elem->m_function_name);
      for (std::string& name : xml::search_keys(*elem)) {
        names.insert(std::move(name));
      }
    }
    report_difference(functions, find_names(functions, PackagedFileKind::C_MODEL),
                      [](const char* name) {
                        return format_text("function %s is not found in any C model", name);
                      });
    report_difference(names, find_names(names, PackagedFileKind::SOURCE), [](const char* name) {
      return format_text("name %s of the specification is not found in any source", name);
    });
  }

  // Those of the names that are in a line of a file. Small files are searched together, as each
  // search takes time for all names.
  Names find_names(const Names& names, PackagedFileKind kind) {
    const std::vector<std::string> keys(names.begin(), names.end());
    std::vector<bool> found(keys.size());
    xml::KeySearch search(keys, found);
    std::string block;
    const auto search_block = [&] {
      search.search(block.data(), block.size());
      block.clear();
    };
    for (const PackagedFile& file : m_package.files) {
      std::string_view rest = file.kind == kind ? file.bytes : "";
      while (!rest.empty() && !search.is_complete()) {
        block.append(rest.substr(0, SEARCH_BLOCK_SIZE));
        rest.remove_prefix(std::min(SEARCH_BLOCK_SIZE, rest.size()));
        if (block.size() >= std::max(SEARCH_BLOCK_SIZE, search.state_count())) {
          search_block();
        }
      }
      block += '\n'; // a name does not continue in the next file
    }
    search_block();
    Names result;
    for (std::size_t i = 0; i < keys.size(); ++i) {
      if (found[i]) {
        result.insert(keys[i]);
      }
    }
    return result;
  }

  const ComponentPackage& m_package;
  std::vector<std::string>& m_faults;
  std::string m_where;
};

class TableCheck {
public:
  TableCheck(const PackageFile& library, std::vector<std::string>& faults)
      : m_library(library), m_faults(faults) {
    for (const ComponentPackage& package : library.components) {
      m_sections.insert(package.section);
      for (const std::string& function : package.functions) {
        m_defined.insert(package.section + " " + function);
      }
    }
  }

  void run() {
    for (const LibraryFunction& function : m_library.functions) {
      check_function(function);
    }
    for (const ComponentPackage& package : m_library.components) {
      check_package(package);
    }
  }

private:
  // In a library with OpenCL code, a component's function may have a second line, of the kind
  // LLVM_IR: "create" writes the last names of a sorted list that contains both kinds.
  void check_function(const LibraryFunction& function) {
    const std::string name = printable(function.name);
    if (!m_seen.insert(function.kind + " " + function.name).second) {
      m_faults.push_back(format_text(".vex.comp_table: two lines for function %s", name.c_str()));
    }
    if (function.kind == HDL_KIND) {
      check_hdl_function(function, name);
    } else if (function.kind != LLVM_IR_KIND) {
      m_faults.push_back(format_text(".vex.comp_table: function %s has the unknown kind %s",
                                     name.c_str(), printable(function.kind).c_str()));
    } else if (function.section != CLANG_IR_PLACEHOLDER || m_library.clang_ir.empty()) {
      m_faults.push_back(format_text(".vex.comp_table: no bitcode for function %s", name.c_str()));
    }
  }

  void check_hdl_function(const LibraryFunction& function, const std::string& name) {
    if (!m_sections.contains(function.section)) {
      m_faults.push_back(format_text(".vex.comp_table: no component package %s for function %s",
                                     printable(function.section).c_str(), name.c_str()));
    } else if (!m_defined.contains(function.section + " " + function.name)) {
      m_faults.push_back(format_text(".vex.comp_table: %s does not define function %s",
                                     printable(function.section).c_str(), name.c_str()));
    }
  }

  void check_package(const ComponentPackage& package) {
    const std::string section = printable(package.section);
    const bool named = !package.functions.empty() &&
                       package.section == std::string(COMPONENT_PREFIX) + package.functions.front();
    if (!named) {
      m_faults.push_back(
          format_text("%s: not named after the first function of the package", section.c_str()));
    }
    for (const std::string& function : package.functions) {
      if (!m_seen.contains(std::string(HDL_KIND) + " " + function)) {
        m_faults.push_back(format_text("%s: function %s is not in .vex.comp_table", section.c_str(),
                                       printable(function).c_str()));
      }
    }
  }

  const PackageFile& m_library;
  std::vector<std::string>& m_faults;
  Names m_sections; // of component packages
  Names m_defined;  // section and function
  Names m_seen;     // kind and function
};

void check_targets(const PackageFile& file, std::vector<std::string>& faults) {
  const bool found =
      std::any_of(file.clang_ir.begin(), file.clang_ir.end(),
                  [](const ClangIr& code) { return code.target == REQUIRED_TARGET; });
  for (const ClangIr& code : file.clang_ir) {
    if (std::find(std::begin(TARGETS), std::end(TARGETS), code.target) == std::end(TARGETS)) {
      faults.push_back(format_text("section .vex.clang_ir.%s: not a target that \"create\" accepts",
                                   printable(code.target).c_str()));
    }
  }
  if (!file.clang_ir.empty() && !found) {
    faults.push_back(
        format_text("no section .vex.clang_ir.%s beside those of other targets", REQUIRED_TARGET));
  }
}

} // namespace

void check_consistency(const PackageFile& file, std::vector<std::string>& faults) {
  for (const ComponentPackage& package : file.components) {
    ComponentCheck(package, faults).run();
  }
  if (file.kind == PackageKind::LIBRARY) {
    TableCheck(file, faults).run();
  }
  check_targets(file, faults);
}

} // namespace bfcl::package
