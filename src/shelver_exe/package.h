// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "pkg.h"

#include <initializer_list>
#include <set>
#include <string>
#include <vector>

// Component packages (".bfco"). The command "hdl-comp-pkg" writes one from a component
// specification, with these sections in this order:
//
//   .dir_container       the directory prefix
//   .source.NAME         a source file, for each distinct name, in byte order of the names
//   .c_model.NAME        a C model file, likewise
//   .xml_spec.BASENAME   the specification itself
//   .comp_header         one line "FUNCTION HDL\n" for each component, then "<END_OF_TABLE>"
//
// NAME is the file's name as the specification writes it, relative to the specification's
// directory. Text sections have no terminating NUL and the last one no final newline. The directory
// prefix is empty or a list of directory names, each followed by "/": the last levels of the
// specification's directory, as many as the file names climb through "..". With the specification
// placed under it, no name leads out of a fresh root directory.

inline constexpr const char* DIR_CONTAINER_SECTION_NAME = ".dir_container";
inline constexpr const char* COMP_HEADER_SECTION_NAME = ".comp_header";
inline constexpr const char* SOURCE_SECTION_PREFIX = ".source.";
inline constexpr const char* C_MODEL_SECTION_PREFIX = ".c_model.";
inline constexpr const char* XML_SPEC_SECTION_PREFIX = ".xml_spec.";

// A kind of file section: its names' prefix and the file extensions that it takes, in lower case
// and without the dot. No extensions at all take any file.
struct PkgSectionKind {
  PkgSectionKind(std::string section_prefix, std::initializer_list<std::string> file_extensions);

  std::string prefix;
  std::set<std::string> extensions;
};

// How many levels above their directory the names lead at most, by leading or inner "..".
int find_max_directory_depth(const std::vector<std::string>& names);

// The directory prefix for that depth: the last `depth` directories of the working directory joined
// with `spec_dir`. Ends the process with status 1, after a message, when there are not as many or
// the working directory has no name that fits.
std::string gen_directory_prefix(int depth, const std::string& spec_dir);

// Adds the file at `path` as the section prefix + name. 1, or 0 after a message.
int add_sourcefile_to_container(vex_pkg_file* pkg, const char* prefix, const char* name,
                                const char* path);

// Sorts the names and adds the file of each distinct one, looked up under spec_dir. 1, or 0 after a
// message for each file that could not be added; the others are added all the same.
int add_filenames_to_pkg(vex_pkg_file* pkg, std::vector<std::string>& names,
                         const std::string& spec_dir, const PkgSectionKind& kind);
