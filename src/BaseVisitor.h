// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "BaseXmlLoader.h"

#include <cstdarg>
#include <map>
#include <string>
#include <vector>

#include <tinyxml2.h>

namespace vex::xml {

// Base of the visitors that validate a document while they walk it. It keeps the path of element
// names to the current element, counts how often each path was entered, and reports what breaks a
// rule. The first error ends the walk: from then on every visit returns false.
//
// Names of elements and attributes compare exactly. Lists of names are given as a count followed by
// that many const char*, outermost element first.
//
// A report is one text handed to the callbacks: a head line with the source name and, where known,
// the line number, then the message. Reports of errors return false, reports that test a rule
// return whether the document keeps it, warnings return true and change nothing.
class BaseVisitor : public tinyxml2::XMLVisitor {
public:
  // The visitor of a whole document. The callbacks are not owned; without any, reports are dropped.
  BaseVisitor(VisitorCallbacks* callbacks, bool debug);
  // The visitor of one subtree: it shares its parent's callbacks and debug flag and nothing else. A
  // parent learns of its failure from the result of the subtree's Accept.
  explicit BaseVisitor(BaseVisitor* parent);

  bool VisitEnter(const tinyxml2::XMLDocument& doc) override;
  bool VisitExit(const tinyxml2::XMLDocument& doc) override;
  bool VisitEnter(const tinyxml2::XMLElement& elem,
                  const tinyxml2::XMLAttribute* first_attribute) override;
  bool VisitExit(const tinyxml2::XMLElement& elem) override;
  bool Visit(const tinyxml2::XMLDeclaration& declaration) override;
  bool Visit(const tinyxml2::XMLText& text) override;
  bool Visit(const tinyxml2::XMLComment& comment) override;
  bool Visit(const tinyxml2::XMLUnknown& unknown) override;

  // Whether the current element's ancestors are exactly the names given.
  bool check_element_stack(unsigned count, ...) const;
  bool check_element_stack_va(unsigned count, va_list names) const;
  // The same for the whole stack, which includes the current element.
  bool check_element_stack_with_top(unsigned count, ...) const;
  bool check_element_stack_with_top_va(unsigned count, va_list names) const;

  // How often the element with that path was entered. Asking adds no entry.
  unsigned get_element_count(unsigned count, ...) const;
  unsigned get_element_count_va(unsigned count, va_list names) const;

  // The names of the stack joined by "/", and the count of that path (added with 0 if absent).
  std::string get_elem_stack_key() const;
  std::map<std::string, unsigned>::value_type& get_elem_stack_count_entry();

  static bool attribute_exists(const tinyxml2::XMLElement& elem, const char* name);
  const char* get_source_name() const; // null without callbacks
  void debug(const std::string& msg);  // only with the debug flag and callbacks

  // The base reports: on a node, on an attribute (each with its line), without a place.
  bool report_error(const tinyxml2::XMLNode& node, const std::string& msg);
  bool report_error(const tinyxml2::XMLAttribute& attribute, const std::string& msg);
  bool report_error(const std::string& msg);
  bool report_warning(const std::string& msg);

  // The element's place. An extra text that is not empty follows on the next line.
  bool report_unexpected_elem(const tinyxml2::XMLElement& elem, const std::string& extra);
  bool report_unexpected_elem_stack(const tinyxml2::XMLElement& elem, unsigned count, ...);
  bool report_unexpected_elem_stack_with_top(const tinyxml2::XMLElement& elem, unsigned count, ...);

  // How often an element appeared: at the path given, or at the current path, whose count includes
  // the element being visited. Bounds are included. The report names the element passed in.
  bool report_unexpected_elem_count_error(const tinyxml2::XMLElement& elem, unsigned min_count,
                                          unsigned max_count);
  bool report_unexpected_elem_count(const tinyxml2::XMLElement& elem, unsigned min_count,
                                    unsigned max_count, unsigned count, ...);
  bool report_unexpected_elem_count(const tinyxml2::XMLElement& elem, unsigned expected,
                                    unsigned count, ...);
  bool report_unexpected_elem_stack_count(const tinyxml2::XMLElement& elem, unsigned min_count,
                                          unsigned max_count);
  bool report_unexpected_elem_stack_count(const tinyxml2::XMLElement& elem, unsigned expected);

  // Attributes. An error about one is tied to the attribute if the element has it, else to the
  // element.
  bool report_missing_attr(const tinyxml2::XMLElement& elem, const std::string& attr_name,
                           const std::string& extra);
  bool report_attr_error(const tinyxml2::XMLElement& elem, const std::string& attr_name,
                         const std::string& msg);
  bool report_attr_type_error(const tinyxml2::XMLElement& elem, const std::string& attr_name,
                              const std::string& extra);
  // One report for each attribute that is not allowed; false also after any earlier error.
  bool report_unexpected_attrs(const tinyxml2::XMLElement& elem,
                               const std::vector<std::string>& allowed);
  bool report_unexpected_attrs(const tinyxml2::XMLElement& elem, unsigned count, ...);
  bool report_unexpected_attrs(const tinyxml2::XMLElement& elem, unsigned count,
                               const char* const* allowed);

  // The result of a visit that has no error of its own: true until the first error.
  bool ok() const { return !m_error; }

protected:
  void set_error() { m_error = true; }

  std::vector<std::string> m_elem_stack;

private:
  bool deliver_error(const std::string& head_end, const std::string& msg);
  std::string frame(const char* head_start, const std::string& head_end,
                    const std::string& msg) const;
  bool check_bounds(const tinyxml2::XMLElement& elem, unsigned actual, unsigned min_count,
                    unsigned max_count);
  bool matches_stack(std::size_t depth, unsigned count, va_list names) const;
  template <typename Names>
  bool report_attrs_outside(const tinyxml2::XMLElement& elem, const Names& allowed);

  bool m_error = false;
  bool m_debug;
  std::map<std::string, unsigned> m_elem_counts;
  VisitorCallbacks* m_callbacks;
};

} // namespace vex::xml
