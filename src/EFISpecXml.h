// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "BaseVisitor.h"
#include "EFISpec.h"

#include <set>
#include <string>
#include <vector>

namespace vex::efi::xml {

struct ElementRule;
struct RequiredAttribute;

// Walks a component specification: the root element and the FUNCTION elements under it, each of
// which it hands to an EFIElemVisitor.
class EFIVisitor : public vex::xml::BaseVisitor {
public:
  // Fills `spec`, which is not owned and must not be null. With `component_checks`, the files that
  // a component names are opened and searched.
  EFIVisitor(EFISpec* spec, vex::xml::VisitorCallbacks* callbacks, bool debug,
             bool component_checks);

  using BaseVisitor::VisitEnter;
  using BaseVisitor::VisitExit;
  bool VisitEnter(const tinyxml2::XMLElement& elem,
                  const tinyxml2::XMLAttribute* first_attribute) override;
  bool VisitExit(const tinyxml2::XMLDocument& doc) override;

  bool visit_efi_spec(const tinyxml2::XMLElement& elem);
  bool visit_efi_elem(const tinyxml2::XMLElement& elem);

private:
  EFISpec* m_spec;
  bool m_component_checks;
};

// Walks one FUNCTION element and fills one component. A table of rules contains the place of each
// element, how often it may appear, its attributes and its handler. What depends on the whole
// component is checked when an element closes.
class EFIElemVisitor : public vex::xml::BaseVisitor {
public:
  EFIElemVisitor(BaseVisitor* parent, EFISpec* spec, bool component_checks);

  using BaseVisitor::VisitEnter;
  using BaseVisitor::VisitExit;
  bool VisitEnter(const tinyxml2::XMLElement& elem,
                  const tinyxml2::XMLAttribute* first_attribute) override;
  bool VisitExit(const tinyxml2::XMLElement& elem) override;

  // The handlers, each for an element of its name that is being visited and that keeps its rule.
  // They return true to descend into the element, and false after a report.
  bool visit_efi_elem(const tinyxml2::XMLElement& elem);
  bool visit_attributes(const tinyxml2::XMLElement& elem);
  bool visit_is_stall_free(const tinyxml2::XMLElement& elem);
  bool visit_is_fixed_latency(const tinyxml2::XMLElement& elem);
  bool visit_expected_latency(const tinyxml2::XMLElement& elem);
  bool visit_capacity(const tinyxml2::XMLElement& elem);
  bool visit_has_side_effects(const tinyxml2::XMLElement& elem);
  bool visit_allow_merging(const tinyxml2::XMLElement& elem);
  bool visit_parameter(const tinyxml2::XMLElement& elem);
  bool visit_interface(const tinyxml2::XMLElement& elem);
  bool visit_veyra(const tinyxml2::XMLElement& elem);
  bool visit_mem_input(const tinyxml2::XMLElement& elem);
  bool visit_input(const tinyxml2::XMLElement& elem);
  bool visit_output(const tinyxml2::XMLElement& elem);
  bool visit_veyra_mem(const tinyxml2::XMLElement& elem);
  bool visit_requirements(const tinyxml2::XMLElement& elem);
  bool visit_c_model(const tinyxml2::XMLElement& elem);
  bool visit_file(const tinyxml2::XMLElement& elem);
  bool visit_resources(const tinyxml2::XMLElement& elem);
  bool visit_aluts(const tinyxml2::XMLElement& elem);
  bool visit_ffs(const tinyxml2::XMLElement& elem);
  bool visit_rams(const tinyxml2::XMLElement& elem);
  bool visit_dsps(const tinyxml2::XMLElement& elem);
  bool visit_mlabs(const tinyxml2::XMLElement& elem);

  // Read the "value" attribute. False after a report.
  bool get_yes_no_attribute_value(const std::string& name, const tinyxml2::XMLElement& elem,
                                  bool& result);
  bool get_attribute_value(const tinyxml2::XMLElement& elem, int& result);
  bool get_attribute_value(const tinyxml2::XMLElement& elem, float& result);

private:
  bool check_rule(const tinyxml2::XMLElement& elem, const ElementRule& rule);
  bool visit_yes_no(const tinyxml2::XMLElement& elem, const char* name, YesNo& field);

  // The attribute's text, or null after reports.
  const char* read_attribute(const tinyxml2::XMLElement& elem, const RequiredAttribute& attribute);
  bool read_unsigned(const tinyxml2::XMLElement& elem, const RequiredAttribute& attribute,
                     unsigned& result);
  bool read_data_port(const tinyxml2::XMLElement& elem, const char* width_msg, std::string& port,
                      unsigned& width);
  bool port_in_use(const std::string& port) const;

  bool check_attributes();
  bool check_interface(const tinyxml2::XMLElement& elem);
  bool check_memory_ports();
  bool check_files();
  bool search_c_models(const std::string& directory, std::string& report_text);
  bool search_requirements(const std::string& directory, std::string& report_text);

  EFISpec* m_spec;
  bool m_component_checks;
  EFIElem* m_elem = nullptr; // owned by m_spec

  // The names of m_elem's ports again, to find one among thousands.
  std::set<std::string> m_ports_in_use;
  std::set<std::string> m_mem_ports;
};

// Whether the file can be opened for reading.
bool fileOK(const std::string& path);

// Searches the file's lines for each key that is not found yet, as a plain substring, and marks in
// `result` what it finds; `result` has one flag for each key. Returns whether all keys are found,
// those of earlier files included. A file that cannot be opened yields false and changes nothing.
bool strings_in_file(const std::string& path, const std::vector<std::string>& keys,
                     std::vector<bool>& result);

// The names of a component that its source files must contain.
std::vector<std::string> search_keys(const EFIElem& elem);

// `path` under `prefix`, with a "/" between them; an absolute path too. An empty prefix adds
// nothing.
std::string addPrefix(const std::string& prefix, const std::string& path);

} // namespace vex::efi::xml
