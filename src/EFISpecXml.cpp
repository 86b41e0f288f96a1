// SPDX-License-Identifier: BSD-3-Clause
#include "EFISpecXml.h"

#include "EFISpecXmlAttributes.h"
#include "vex_assert.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace vex::efi::xml {

using tinyxml2::XMLElement;

namespace {

// Whether a number that the XML library has read is the whole text. The library stops at the first
// character that does not fit, so that "3.5" would pass as the integer 3, and lets large integers
// wrap.
bool is_whole_integer(const char* text, int value) {
  const char* digits = text + std::strspn(text, " \t\n\r");
  const bool hex = digits[0] == '0' && (digits[1] == 'x' || digits[1] == 'X');
  char* end = nullptr;
  return std::strtol(text, &end, hex ? 16 : 10) == value && *end == '\0';
}

bool is_whole_float(const char* text) {
  char* end = nullptr;
  std::strtof(text, &end);
  return *end == '\0';
}

} // namespace

EFIVisitor::EFIVisitor(EFISpec* spec, vex::xml::VisitorCallbacks* callbacks, bool debug,
                       bool component_checks)
    : BaseVisitor(callbacks, debug), m_spec(spec), m_component_checks(component_checks) {
  VEX_ASSERT_TEXT(spec != nullptr, "spec != __null");
}

bool EFIVisitor::VisitEnter(const XMLElement& elem, const tinyxml2::XMLAttribute* first_attribute) {
  if (!BaseVisitor::VisitEnter(elem, first_attribute)) {
    return false;
  }
  const std::string name = elem.Value();
  if (name == "EFI_SPEC" || name == "RTL_SPEC") {
    return visit_efi_spec(elem);
  }
  return name == "FUNCTION" ? visit_efi_elem(elem) : report_unexpected_elem(elem, "");
}

bool EFIVisitor::visit_efi_spec(const XMLElement& elem) {
  if (report_unexpected_elem_stack(elem, 0)) {
    report_unexpected_elem_stack_count(elem, 1);
  }
  return ok();
}

bool EFIVisitor::visit_efi_elem(const XMLElement& elem) {
  // Elsewhere it is not a component, and its children are reported as unexpected.
  if (!check_element_stack(1, "EFI_SPEC") && !check_element_stack(1, "RTL_SPEC")) {
    return ok();
  }
  if (!report_unexpected_attrs(elem, 2, FUNCTION_NAME.name, MODULE_NAME.name)) {
    return ok();
  }
  EFIElemVisitor visitor(this, m_spec, m_component_checks);
  if (!elem.Accept(&visitor)) {
    set_error();
  }
  return false; // the subtree has been walked
}

bool EFIVisitor::VisitExit(const tinyxml2::XMLDocument& doc) {
  if (!BaseVisitor::VisitExit(doc)) {
    return false;
  }
  return !m_spec->efi_elems().empty() ||
         report_error("Missing Function (<FUNCTION>) in EFI specification.");
}

// The attributes that an element may have.
struct AttributeNames {
  template <typename... Name>
  constexpr AttributeNames(Name... name) : count(sizeof...(name)), names{name...} {}

  unsigned count;
  const char* names[5];
};

// Where an element may appear.
struct Place {
  unsigned depth;                  // how many ancestors it has, up to FUNCTION
  const char* parent = nullptr;    // at depth 2
  const char* or_parent = nullptr; // the other one
};

// The rules of FUNCTION and of each element under it.
struct ElementRule {
  const char* name;
  Place place;
  unsigned flags;
  AttributeNames attributes;
  bool (EFIElemVisitor::*visit)(const XMLElement& elem);
};

namespace {

constexpr Place TOP = {0};
constexpr Place IN_FUNCTION = {1};
constexpr Place IN_ATTRIBUTES = {2, "ATTRIBUTES"};
constexpr Place IN_INTERFACE = {2, "INTERFACE"};
constexpr Place IN_RESOURCES = {2, "RESOURCES"};
constexpr Place IN_FILE_LISTS = {2, "REQUIREMENTS", "C_MODEL"};

constexpr unsigned ANY = 0;
constexpr unsigned ONCE = 1;       // it appears once at most
constexpr unsigned ALL_CHECKS = 2; // later checks are made even after one failed

const ElementRule* find_rule(const char* name) {
  using V = EFIElemVisitor;
  static constexpr ElementRule rules[] = {
      {"FUNCTION", TOP, ANY, {"name", "module"}, &V::visit_efi_elem},
      {"ATTRIBUTES", IN_FUNCTION, ONCE | ALL_CHECKS, {}, &V::visit_attributes},
      {"IS_STALL_FREE", IN_ATTRIBUTES, ANY, {"value"}, &V::visit_is_stall_free},
      {"IS_FIXED_LATENCY", IN_ATTRIBUTES, ANY, {"value"}, &V::visit_is_fixed_latency},
      {"EXPECTED_LATENCY", IN_ATTRIBUTES, ANY, {"value"}, &V::visit_expected_latency},
      {"CAPACITY", IN_ATTRIBUTES, ANY, {"value"}, &V::visit_capacity},
      {"HAS_SIDE_EFFECTS", IN_ATTRIBUTES, ANY, {"value"}, &V::visit_has_side_effects},
      {"ALLOW_MERGING", IN_ATTRIBUTES, ANY, {"value"}, &V::visit_allow_merging},
      {"PARAMETER", IN_ATTRIBUTES, ANY, {"name", "value"}, &V::visit_parameter},
      {"INTERFACE", IN_FUNCTION, ONCE, {}, &V::visit_interface},
      {"VEYRA", IN_INTERFACE, ANY, {"port", "type"}, &V::visit_veyra},
      {"MEM_INPUT", IN_INTERFACE, ANY, {"port", "access"}, &V::visit_mem_input},
      {"INPUT", IN_INTERFACE, ANY, {"port", "width"}, &V::visit_input},
      {"OUTPUT", IN_INTERFACE, ONCE, {"port", "width"}, &V::visit_output},
      {"VEYRA_MEM",
       IN_INTERFACE,
       ANY,
       {"port", "width", "burstwidth", "optype", "buffer_location"},
       &V::visit_veyra_mem},
      {"REQUIREMENTS", IN_FUNCTION, ONCE | ALL_CHECKS, {}, &V::visit_requirements},
      {"C_MODEL", IN_FUNCTION, ONCE | ALL_CHECKS, {}, &V::visit_c_model},
      {"FILE", IN_FILE_LISTS, ALL_CHECKS, {"name"}, &V::visit_file},
      {"RESOURCES", IN_FUNCTION, ONCE | ALL_CHECKS, {}, &V::visit_resources},
      {"ALUTS", IN_RESOURCES, ANY, {"value"}, &V::visit_aluts},
      {"FFS", IN_RESOURCES, ANY, {"value"}, &V::visit_ffs},
      {"RAMS", IN_RESOURCES, ANY, {"value"}, &V::visit_rams},
      {"DSPS", IN_RESOURCES, ANY, {"value"}, &V::visit_dsps},
      {"MLABS", IN_RESOURCES, ANY, {"value"}, &V::visit_mlabs},
  };
  const auto* found = std::find_if(std::begin(rules), std::end(rules), [name](const auto& rule) {
    return std::strcmp(rule.name, name) == 0;
  });
  return found != std::end(rules) ? found : nullptr;
}

} // namespace

EFIElemVisitor::EFIElemVisitor(BaseVisitor* parent, EFISpec* spec, bool component_checks)
    : BaseVisitor(parent), m_spec(spec), m_component_checks(component_checks) {}

bool EFIElemVisitor::VisitEnter(const XMLElement& elem,
                                const tinyxml2::XMLAttribute* first_attribute) {
  if (!BaseVisitor::VisitEnter(elem, first_attribute)) {
    return false;
  }
  const ElementRule* rule = find_rule(elem.Value());
  if (rule == nullptr) {
    return report_unexpected_elem(elem, "");
  }
  return check_rule(elem, *rule) && (this->*rule->visit)(elem);
}

bool EFIElemVisitor::check_rule(const XMLElement& elem, const ElementRule& rule) {
  const bool all = (rule.flags & ALL_CHECKS) != 0;
  const auto& [depth, parent, or_parent] = rule.place;
  if (!check_element_stack(depth, "FUNCTION", parent) &&
      (or_parent == nullptr || !check_element_stack(depth, "FUNCTION", or_parent))) {
    report_unexpected_elem(elem, "");
  }
  if ((rule.flags & ONCE) != 0 && (all || ok())) {
    report_unexpected_elem_stack_count(elem, 1);
  }
  if (all || ok()) {
    report_unexpected_attrs(elem, rule.attributes.count, rule.attributes.names);
  }
  return ok();
}

const char* EFIElemVisitor::read_attribute(const XMLElement& elem,
                                           const RequiredAttribute& attribute) {
  const char* text = elem.Attribute(attribute.name);
  if (text == nullptr) {
    report_missing_attr(elem, attribute.name, "");
    report_attr_error(elem, attribute.label, attribute.msg);
  }
  return text;
}

bool EFIElemVisitor::read_unsigned(const XMLElement& elem, const RequiredAttribute& attribute,
                                   unsigned& result) {
  const char* text = read_attribute(elem, attribute);
  if (text == nullptr) {
    return false;
  }
  if (!vex::xml::convert_to_unsigned(text, &result, 10)) {
    report_attr_type_error(elem, attribute.name, "");
    return report_attr_error(elem, attribute.label, attribute.msg);
  }
  return true;
}

bool EFIElemVisitor::visit_efi_elem(const XMLElement& elem) {
  const char* function_name = read_attribute(elem, FUNCTION_NAME);
  if (function_name == nullptr) {
    return false;
  }
  if (m_spec->find_efi_elem_for_function_name(function_name) >= 0) {
    return report_attr_error(elem, FUNCTION_NAME.label, "Function_name string must be unique.");
  }
  const char* module_name = read_attribute(elem, MODULE_NAME);
  if (module_name == nullptr) {
    return false;
  }
  m_elem = m_spec->add_efi_elem(std::make_unique<EFIElem>(function_name, module_name));
  return ok();
}

bool EFIElemVisitor::visit_attributes(const XMLElement&) {
  return ok();
}
bool EFIElemVisitor::visit_interface(const XMLElement&) {
  return ok();
}
bool EFIElemVisitor::visit_requirements(const XMLElement&) {
  return ok();
}
bool EFIElemVisitor::visit_c_model(const XMLElement&) {
  return ok();
}
bool EFIElemVisitor::visit_resources(const XMLElement&) {
  return ok();
}

bool EFIElemVisitor::visit_is_stall_free(const XMLElement& elem) {
  return visit_yes_no(elem, "IS_STALL_FREE", m_elem->m_is_stall_free);
}
bool EFIElemVisitor::visit_is_fixed_latency(const XMLElement& elem) {
  return visit_yes_no(elem, "IS_FIXED_LATENCY", m_elem->m_is_fixed_latency);
}
bool EFIElemVisitor::visit_has_side_effects(const XMLElement& elem) {
  return visit_yes_no(elem, "HAS_SIDE_EFFECTS", m_elem->m_has_side_effects);
}
bool EFIElemVisitor::visit_allow_merging(const XMLElement& elem) {
  return visit_yes_no(elem, "ALLOW_MERGING", m_elem->m_allow_merging);
}

bool EFIElemVisitor::visit_expected_latency(const XMLElement& elem) {
  return get_attribute_value(elem, m_elem->m_latency);
}
bool EFIElemVisitor::visit_capacity(const XMLElement& elem) {
  return get_attribute_value(elem, m_elem->m_capacity);
}
bool EFIElemVisitor::visit_aluts(const XMLElement& elem) {
  return get_attribute_value(elem, m_elem->m_aluts);
}
bool EFIElemVisitor::visit_ffs(const XMLElement& elem) {
  return get_attribute_value(elem, m_elem->m_ffs);
}
bool EFIElemVisitor::visit_rams(const XMLElement& elem) {
  return get_attribute_value(elem, m_elem->m_rams);
}
bool EFIElemVisitor::visit_dsps(const XMLElement& elem) {
  return get_attribute_value(elem, m_elem->m_dsps);
}
bool EFIElemVisitor::visit_mlabs(const XMLElement& elem) {
  return get_attribute_value(elem, m_elem->m_mlabs);
}

bool EFIElemVisitor::visit_yes_no(const XMLElement& elem, const char* name, YesNo& field) {
  const bool result = get_yes_no_attribute_value(name, elem, field.value);
  field.set = true;
  return result;
}

bool EFIElemVisitor::get_yes_no_attribute_value(const std::string& name, const XMLElement& elem,
                                                bool& result) {
  const char* text = read_attribute(elem, VALUE);
  if (text == nullptr) {
    return false;
  }
  std::string value = text;
  std::transform(value.begin(), value.end(), value.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  if (value != "yes" && value != "no") {
    return report_attr_error(elem, name, name + " value must be set to \"yes\" or \"no\".");
  }
  result = value == "yes";
  return ok();
}

bool EFIElemVisitor::get_attribute_value(const XMLElement& elem, int& result) {
  const char* text = read_attribute(elem, VALUE);
  if (text == nullptr) {
    return false;
  }
  if (elem.QueryIntAttribute(VALUE.name, &result) != tinyxml2::XML_SUCCESS ||
      !is_whole_integer(text, result)) {
    return report_attr_type_error(elem, VALUE.name, "");
  }
  return ok();
}

bool EFIElemVisitor::get_attribute_value(const XMLElement& elem, float& result) {
  const char* text = read_attribute(elem, VALUE);
  if (text == nullptr) {
    return false;
  }
  if (elem.QueryFloatAttribute(VALUE.name, &result) != tinyxml2::XML_SUCCESS ||
      !is_whole_float(text)) {
    return report_attr_type_error(elem, VALUE.name, "");
  }
  return ok();
}

bool EFIElemVisitor::visit_parameter(const XMLElement& elem) {
  const char* name = read_attribute(elem, NAME);
  const char* value = name != nullptr ? read_attribute(elem, VALUE) : nullptr;
  if (value == nullptr) {
    return false;
  }
  m_elem->m_parameter_names.emplace_back(name);
  m_elem->m_parameter_values.emplace_back(value);
  return ok();
}

bool EFIElemVisitor::visit_file(const XMLElement& elem) {
  const char* path = read_attribute(elem, NAME);
  if (path == nullptr) {
    return false;
  }
  const bool is_source = check_element_stack(2, "FUNCTION", "REQUIREMENTS");
  VEX_ASSERT_TEXT(is_source || check_element_stack(2, "FUNCTION", "C_MODEL"), "0");
  (is_source ? m_elem->m_requirement_files : m_elem->m_c_model_files).emplace_back(path);
  return false; // nothing below it to walk
}

} // namespace vex::efi::xml
