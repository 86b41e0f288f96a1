// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "EFISpec.h"
#include "design.h"
#include "finding.h"

#include <array>
#include <memory>
#include <string>
#include <vector>

// A component specification as the commands see it: the model that the specification library
// loads, and the line of each of its elements.

namespace bfcl::component {

// Lines of the XML file, counted from 1. The lists are parallel to those of EFIElem.
struct ElementLines {
  unsigned function = 0;
  unsigned attributes = 0; // the ATTRIBUTES element; 0 when there is none
  unsigned interface = 0;
  unsigned requirements = 0;
  unsigned c_model = 0;
  unsigned latency = 0; // EXPECTED_LATENCY
  unsigned capacity = 0;
  unsigned output = 0;
  std::array<unsigned, vex::efi::VRM_SIGNAL_NAME.size()> signals = {};
  std::vector<unsigned> inputs; // INPUT and MEM_INPUT
  std::vector<unsigned> mem_ports;
  std::vector<unsigned> parameters;
  std::vector<unsigned> requirement_files;
  std::vector<unsigned> c_model_files;
};

struct Description {
  std::string path;      // of the XML file, to open it
  std::string folder;    // that its file names are relative to; empty for the working directory
  std::string name;      // of the XML file in messages
  std::string container; // the package or library that it was unpacked from, or empty
  std::unique_ptr<vex::efi::EFISpec> spec;
  std::vector<ElementLines> lines; // of each component, parallel to spec->efi_elems()

  // The path of a file that the description names, to open it.
  [[nodiscard]] std::string file_path(const std::string& file) const;

  // The name of such a file in messages: a path from the working directory, or PACKAGE(FILE).
  [[nodiscard]] std::string file_name(const std::string& file) const;

  // The elaboration of a component's top module.
  [[nodiscard]] ElaborationRequest request_for(std::size_t component) const;

  // A line of the description itself.
  [[nodiscard]] Place place(unsigned line) const { return {name, line}; }
};

// A path without needless "." and "..", so that a file has one name in messages.
[[nodiscard]] std::string tidy_path(const std::string& path);

// Loads and checks a specification with the specification library, whose diagnostics, in its order
// and form, are printed to standard output, or appended to `diagnostics`. False when it has errors.
// When they are those of the library's search for names in the files, the description is there all
// the same (`spec` is not null): who looks closer can say more about them. `container` is the
// package that it was unpacked from, or empty.
[[nodiscard]] bool load_description(const std::string& path, Description& description,
                                    const std::string& container = "",
                                    std::vector<std::string>* diagnostics = nullptr);

// Adds such diagnostics ("Error in 'FILE', line N" and lines of text) to a report, as findings of
// the rule "description" in `operand`.
void report_diagnostics(const std::string& operand, const std::vector<std::string>& texts,
                        Report& report);

} // namespace bfcl::component
