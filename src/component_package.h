// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "mapped_file.h"
#include "pkg.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

// Component packages, OpenCL packages and libraries, read into structures.
//
// A component package contains ".dir_container" (the directory prefix), ".source.NAME" and
// ".c_model.NAME" (files, named as in the specification), ".xml_spec.NAME" (the specification) and
// ".comp_header" (a line "FUNCTION HDL\n" for each component, then "<END_OF_TABLE>"). A library
// contains ".vex.comp.FUNCTION" (component packages), ".vex.clang_ir.TARGET" (bitcode) and the
// three text sections that shelver.h describes. An OpenCL package contains bitcode sections only.
namespace vex::efi {

inline constexpr const char* DIR_CONTAINER_SECTION = ".dir_container";
inline constexpr std::string_view SOURCE_PREFIX = ".source.";
inline constexpr std::string_view C_MODEL_PREFIX = ".c_model.";
inline constexpr std::string_view XML_SPEC_PREFIX = ".xml_spec.";
inline constexpr const char* COMP_HEADER_SECTION = ".comp_header";
inline constexpr std::string_view COMPONENT_PREFIX = ".vex.comp.";
inline constexpr std::string_view CLANG_IR_PREFIX = ".vex.clang_ir.";
inline constexpr const char* VERSION_SECTION = ".vex.version";

// Kinds of functions in tables, and the text in place of the section of an OpenCL function.
inline constexpr std::string_view HDL_KIND = "HDL";
inline constexpr std::string_view LLVM_IR_KIND = "LLVM_IR";
inline constexpr std::string_view CLANG_IR_PLACEHOLDER = "<clang_ir>";

enum class PackageKind { NONE, COMPONENT, OPENCL, LIBRARY };

enum class PackagedFileKind { SOURCE, C_MODEL };

// One HDL source file or C model of a package.
struct PackagedFile {
  PackagedFileKind kind;
  std::string name; // as the specification writes it: relative to its folder, perhaps with ".."
  std::string_view bytes;
};

struct ComponentPackage {
  std::string section;          // the library's section that contains it; empty for a package file
  std::string_view image;       // the whole package
  std::string directory_prefix; // empty, or folders each followed by "/"
  std::string specification_name;     // without folders; empty when there is no specification
  std::string_view specification;     // its text, without a terminator
  std::vector<PackagedFile> files;    // in the order of their sections
  std::vector<std::string> functions; // of the header, in its order
  vex_pkg_ptr pkg;                    // what the views may point into
};

// A line of a library's component table.
struct LibraryFunction {
  std::string name;
  std::string kind;    // HDL_KIND or LLVM_IR_KIND
  std::string section; // of the component package, or CLANG_IR_PLACEHOLDER
};

// Bitcode for one target.
struct ClangIr {
  std::string target; // such as "x86_64-unknown-linux-ostrahw"
  std::string_view bytes;
};

// The contents of a package file. All views are valid as long as it lives.
struct PackageFile {
  MappedFile file;
  std::string_view image; // the whole file
  PackageKind kind = PackageKind::NONE;
  std::vector<ComponentPackage> components; // those of a library, or the one that the file is
  std::vector<ClangIr> clang_ir;            // in the order of their sections

  // Of a library only.
  std::string version;
  std::string name;
  std::string vendor;
  std::vector<LibraryFunction> functions; // in the order of the table
  vex_pkg_ptr pkg;                        // what the views may point into
};

// Reads the package in a file, or in an image that must outlive the result.
//
// Each fault is appended to `faults` as a text without the file's name and without a line end, such
// as ".vex.comp.add: no section .comp_header"; names in it are printable. What could be read is
// returned all the same. Null after a fault if the file cannot be opened or is not a package.
// Nothing is printed.
[[nodiscard]] std::unique_ptr<PackageFile> read_package_file(const std::string& path,
                                                             std::vector<std::string>& faults);
[[nodiscard]] std::unique_ptr<PackageFile> read_package_image(std::string_view image,
                                                              std::vector<std::string>& faults);

// The component package that defines a function, or null.
const ComponentPackage* find_component(const PackageFile& file, std::string_view function);

} // namespace vex::efi
