// SPDX-License-Identifier: BSD-3-Clause
#include "BaseVisitor.h"

#include "vex_assert.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <sstream>
#include <string_view>

namespace vex::xml {

namespace {

std::string line_suffix(int line) {
  return line > 0 ? "', line " + std::to_string(line) + "\n" : "'\n";
}

std::string with_extra(const std::string& msg, const std::string& extra) {
  return extra.empty() ? msg : msg + "\n" + extra;
}

void append_to_key(std::string& key, const std::string& elem_name) {
  key += key.empty() ? "" : "/";
  key += elem_name;
}

BaseVisitor* checked_parent(BaseVisitor* parent) {
  VEX_ASSERT_TEXT(parent != nullptr, "parent != 0");
  return parent;
}

} // namespace

BaseVisitor::BaseVisitor(VisitorCallbacks* callbacks, bool debug)
    : m_debug(debug), m_callbacks(callbacks) {}

BaseVisitor::BaseVisitor(BaseVisitor* parent)
    : m_debug(checked_parent(parent)->m_debug), m_callbacks(parent->m_callbacks) {}

bool BaseVisitor::VisitEnter(const tinyxml2::XMLDocument&) {
  debug("[xml] entering document\n");
  return ok();
}

bool BaseVisitor::VisitExit(const tinyxml2::XMLDocument&) {
  debug("[xml] exiting document\n");
  return ok();
}

bool BaseVisitor::VisitEnter(const tinyxml2::XMLElement& elem, const tinyxml2::XMLAttribute*) {
  if (m_error) {
    return false;
  }
  m_elem_stack.emplace_back(elem.Value());
  auto& entry = get_elem_stack_count_entry();
  ++entry.second;
  if (m_debug) {
    debug("[xml] entering " + entry.first + "\n");
  }
  return ok();
}

bool BaseVisitor::VisitExit(const tinyxml2::XMLElement& elem) {
  if (m_error) {
    return false;
  }
  VEX_ASSERT_TEXT(!m_elem_stack.empty(), "m_elem_stack.size() > 0");
  VEX_ASSERT(m_elem_stack.back() == elem.Value());
  if (m_debug) {
    debug("[xml] exiting " + get_elem_stack_key() + "\n");
  }
  m_elem_stack.pop_back();
  return ok();
}

bool BaseVisitor::Visit(const tinyxml2::XMLDeclaration&) {
  return ok();
}
bool BaseVisitor::Visit(const tinyxml2::XMLText&) {
  return ok();
}
bool BaseVisitor::Visit(const tinyxml2::XMLComment&) {
  return ok();
}
bool BaseVisitor::Visit(const tinyxml2::XMLUnknown&) {
  return ok();
}

bool BaseVisitor::check_element_stack(unsigned count, ...) const {
  va_list names;
  va_start(names, count);
  const bool result = check_element_stack_va(count, names);
  va_end(names);
  return result;
}

bool BaseVisitor::check_element_stack_va(unsigned count, va_list names) const {
  return !m_elem_stack.empty() && matches_stack(m_elem_stack.size() - 1, count, names);
}

bool BaseVisitor::check_element_stack_with_top(unsigned count, ...) const {
  va_list names;
  va_start(names, count);
  const bool result = check_element_stack_with_top_va(count, names);
  va_end(names);
  return result;
}

bool BaseVisitor::check_element_stack_with_top_va(unsigned count, va_list names) const {
  return matches_stack(m_elem_stack.size(), count, names);
}

bool BaseVisitor::matches_stack(std::size_t depth, unsigned count, va_list names) const {
  bool matches = depth == count;
  for (std::size_t level = 0; level < count; ++level) {
    const char* elem_name = va_arg(names, const char*);
    VEX_ASSERT_TEXT(elem_name != nullptr, "elem_name != 0");
    matches = matches && m_elem_stack[level] == elem_name;
  }
  return matches;
}

unsigned BaseVisitor::get_element_count(unsigned count, ...) const {
  va_list names;
  va_start(names, count);
  const unsigned result = get_element_count_va(count, names);
  va_end(names);
  return result;
}

unsigned BaseVisitor::get_element_count_va(unsigned count, va_list names) const {
  std::string key;
  for (unsigned i = 0; i < count; ++i) {
    const char* elem_name = va_arg(names, const char*);
    VEX_ASSERT_TEXT(elem_name != nullptr, "elem_name != 0");
    append_to_key(key, elem_name);
  }
  const auto found = m_elem_counts.find(key);
  return found != m_elem_counts.end() ? found->second : 0;
}

std::string BaseVisitor::get_elem_stack_key() const {
  std::string key;
  for (const std::string& name : m_elem_stack) {
    append_to_key(key, name);
  }
  return key;
}

std::map<std::string, unsigned>::value_type& BaseVisitor::get_elem_stack_count_entry() {
  return *m_elem_counts.try_emplace(get_elem_stack_key(), 0).first;
}

bool BaseVisitor::attribute_exists(const tinyxml2::XMLElement& elem, const char* name) {
  return elem.FindAttribute(name) != nullptr;
}

const char* BaseVisitor::get_source_name() const {
  return m_callbacks != nullptr ? m_callbacks->get_source_name() : nullptr;
}

void BaseVisitor::debug(const std::string& msg) {
  if (m_debug && m_callbacks != nullptr) {
    m_callbacks->debug(msg);
  }
}

// Without a source name the text ends before the name.
std::string BaseVisitor::frame(const char* head_start, const std::string& head_end,
                               const std::string& msg) const {
  std::ostringstream text;
  text << head_start;
  const char* source_name = get_source_name();
  if (source_name == nullptr) {
    return text.str();
  }
  text << source_name << head_end;
  if (!msg.empty()) {
    text << msg << "\n";
  }
  return text.str();
}

bool BaseVisitor::deliver_error(const std::string& head_end, const std::string& msg) {
  if (m_callbacks != nullptr) {
    m_callbacks->report_error(frame("Error in '", head_end, msg));
  }
  m_error = true;
  return false;
}

bool BaseVisitor::report_error(const tinyxml2::XMLNode& node, const std::string& msg) {
  return deliver_error(line_suffix(node.GetLineNum()), msg);
}

bool BaseVisitor::report_error(const tinyxml2::XMLAttribute& attribute, const std::string& msg) {
  return deliver_error(line_suffix(attribute.GetLineNum()), msg);
}

bool BaseVisitor::report_error(const std::string& msg) {
  return deliver_error("':\n", msg);
}

bool BaseVisitor::report_warning(const std::string& msg) {
  if (m_callbacks != nullptr) {
    m_callbacks->report_warning(frame("Warning in '", "':\n", msg));
  }
  return true;
}

bool BaseVisitor::report_unexpected_elem(const tinyxml2::XMLElement& elem,
                                         const std::string& extra) {
  return report_error(elem,
                      with_extra("Unexpected element '" + std::string(elem.Value()) + "'.", extra));
}

bool BaseVisitor::report_unexpected_elem_stack(const tinyxml2::XMLElement& elem, unsigned count,
                                               ...) {
  va_list names;
  va_start(names, count);
  const bool expected = check_element_stack_va(count, names);
  va_end(names);
  return expected || report_unexpected_elem(elem, "");
}

bool BaseVisitor::report_unexpected_elem_stack_with_top(const tinyxml2::XMLElement& elem,
                                                        unsigned count, ...) {
  va_list names;
  va_start(names, count);
  const bool expected = check_element_stack_with_top_va(count, names);
  va_end(names);
  return expected || report_unexpected_elem(elem, "");
}

bool BaseVisitor::report_unexpected_elem_count_error(const tinyxml2::XMLElement& elem,
                                                     unsigned min_count, unsigned max_count) {
  VEX_ASSERT(min_count <= max_count);
  if (max_count == 0) {
    return report_unexpected_elem(elem, "");
  }
  std::ostringstream msg;
  msg << "Expected element <" << elem.Value() << "> to appear ";
  if (min_count != max_count) {
    msg << min_count << "-" << max_count << " times.";
  } else if (min_count == 1) {
    msg << "exactly once.";
  } else {
    msg << "exactly " << min_count << " times.";
  }
  return report_error(elem, msg.str());
}

bool BaseVisitor::check_bounds(const tinyxml2::XMLElement& elem, unsigned actual,
                               unsigned min_count, unsigned max_count) {
  VEX_ASSERT(min_count <= max_count);
  return (actual >= min_count && actual <= max_count) ||
         report_unexpected_elem_count_error(elem, min_count, max_count);
}

bool BaseVisitor::report_unexpected_elem_count(const tinyxml2::XMLElement& elem, unsigned min_count,
                                               unsigned max_count, unsigned count, ...) {
  va_list names;
  va_start(names, count);
  const unsigned actual = get_element_count_va(count, names);
  va_end(names);
  return check_bounds(elem, actual, min_count, max_count);
}

bool BaseVisitor::report_unexpected_elem_count(const tinyxml2::XMLElement& elem, unsigned expected,
                                               unsigned count, ...) {
  va_list names;
  va_start(names, count);
  const unsigned actual = get_element_count_va(count, names);
  va_end(names);
  return check_bounds(elem, actual, expected, expected);
}

bool BaseVisitor::report_unexpected_elem_stack_count(const tinyxml2::XMLElement& elem,
                                                     unsigned min_count, unsigned max_count) {
  return check_bounds(elem, get_elem_stack_count_entry().second, min_count, max_count);
}

bool BaseVisitor::report_unexpected_elem_stack_count(const tinyxml2::XMLElement& elem,
                                                     unsigned expected) {
  return report_unexpected_elem_stack_count(elem, expected, expected);
}

bool BaseVisitor::report_missing_attr(const tinyxml2::XMLElement& elem,
                                      const std::string& attr_name, const std::string& extra) {
  return report_error(
      elem, with_extra("Expected attribute '" + attr_name + "' on element '" + elem.Value() + "'.",
                       extra));
}

bool BaseVisitor::report_attr_error(const tinyxml2::XMLElement& elem, const std::string& attr_name,
                                    const std::string& msg) {
  const tinyxml2::XMLAttribute* attribute = elem.FindAttribute(attr_name.c_str());
  return attribute != nullptr ? report_error(*attribute, msg) : report_error(elem, msg);
}

bool BaseVisitor::report_attr_type_error(const tinyxml2::XMLElement& elem,
                                         const std::string& attr_name, const std::string& extra) {
  return report_attr_error(elem, attr_name,
                           with_extra("Incorrect type for attribute '" + attr_name +
                                          "' on element '" + elem.Value() + "'.",
                                      extra));
}

template <typename Names>
bool BaseVisitor::report_attrs_outside(const tinyxml2::XMLElement& elem, const Names& allowed) {
  for (const tinyxml2::XMLAttribute* attribute = elem.FirstAttribute(); attribute != nullptr;
       attribute = attribute->Next()) {
    const std::string_view name = attribute->Name();
    if (std::find(allowed.begin(), allowed.end(), name) == allowed.end()) {
      report_error(*attribute, "Unexpected attribute '" + std::string(name) + "'.");
    }
  }
  return ok();
}

bool BaseVisitor::report_unexpected_attrs(const tinyxml2::XMLElement& elem,
                                          const std::vector<std::string>& allowed) {
  return report_attrs_outside(elem, allowed);
}

bool BaseVisitor::report_unexpected_attrs(const tinyxml2::XMLElement& elem, unsigned count, ...) {
  std::vector<const char*> allowed;
  va_list names;
  va_start(names, count);
  for (unsigned i = 0; i < count; ++i) {
    allowed.push_back(va_arg(names, const char*));
  }
  va_end(names);
  return report_attrs_outside(elem, allowed);
}

bool BaseVisitor::report_unexpected_attrs(const tinyxml2::XMLElement& elem, unsigned count,
                                          const char* const* allowed) {
  return report_attrs_outside(elem, std::span(allowed, count));
}

} // namespace vex::xml
