// SPDX-License-Identifier: BSD-3-Clause
#include "check_model.h"

#include "clang.h"
#include "rtl_text.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string_view>

namespace bfcl::component {

namespace {

using vex::efi::EFIElem;

std::string format_place(const Place& place) {
  return place.file + (place.line != 0 ? ":" + std::to_string(place.line) : "");
}

std::string format_count(std::size_t count, const std::string& noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

// The models of one component.
class ModelChecker {
public:
  ModelChecker(const Description& description, std::size_t component, Report& report)
      : m_description(description), m_component(*description.spec->efi_elems()[component]),
        m_lines(description.lines[component]), m_report(report) {}

  void check();

private:
  void read_models();
  void report_errors(const std::string& file, const CModel& model);
  void report_missing();
  [[nodiscard]] std::optional<ModelFunction> find_similar() const;
  void report_second_definitions(const std::vector<const ModelFunction*>& definitions);
  [[nodiscard]] std::vector<const ModelFunction*> find_definitions() const;

  // What is wrong with a definition.
  [[nodiscard]] std::vector<Finding> compare(const ModelFunction& function) const;
  [[nodiscard]] Finding count_finding(const ModelFunction& function) const;
  [[nodiscard]] bool has_swapped_names(const ModelFunction& function) const;
  [[nodiscard]] std::string argument_fault(const ModelArgument& argument, std::size_t input) const;
  [[nodiscard]] std::string result_fault(const ModelType& result) const;

  [[nodiscard]] Place place_in_model(const std::string& path, unsigned line) const;
  [[nodiscard]] std::string input_text(std::size_t input) const;

  const Description& m_description;
  const EFIElem& m_component;
  const ElementLines& m_lines;
  Report& m_report;
  std::vector<ModelFunction> m_functions; // of all models
  bool m_all_read = true;
};

std::string absolute_path(const std::string& path) {
  std::error_code error;
  return std::filesystem::absolute(path, error).lexically_normal().string();
}

// A place in a model that extraction would not find is that of the tool.
Place ModelChecker::place_in_model(const std::string& path, unsigned line) const {
  for (const std::string& file : m_component.m_c_model_files) {
    if (absolute_path(m_description.file_path(file)) == path) {
      return {m_description.file_name(file), line};
    }
  }
  return {path, line};
}

void ModelChecker::report_errors(const std::string& file, const CModel& model) {
  const std::string name = m_description.file_name(file);
  for (const unsigned line : model.include_lines) {
    m_report.error("model-include", {name, line},
                   "the C model includes a file, which a library does not keep for it; put the "
                   "text of that file into the model");
  }
  for (const auto& [path, line, text] : model.unwritten) {
    m_report.warning("model", place_in_model(path, line),
                     "the body is empty: write what the component computes");
  }
  for (const auto& [path, line, text] : model.errors) {
    if (text.find("file not found") != std::string::npos) {
      m_report.error("model-include", place_in_model(path, line),
                     text + "; a C model cannot include files, since a library does not keep them");
    } else {
      m_report.error("model", place_in_model(path, line), text);
    }
  }
}

void ModelChecker::read_models() {
  for (const std::string& file : m_component.m_c_model_files) {
    std::string problem;
    const std::string path = absolute_path(m_description.file_path(file));
    auto model = read_c_model(path, m_component.m_function_name, problem);
    if (!model) {
      m_report.cannot_check(m_description.file_name(file), problem);
      m_all_read = false;
      continue;
    }
    report_errors(file, *model);
    m_all_read = m_all_read && model->errors.empty();
    std::move(model->functions.begin(), model->functions.end(), std::back_inserter(m_functions));
  }
}

std::vector<const ModelFunction*> ModelChecker::find_definitions() const {
  std::vector<const ModelFunction*> definitions;
  for (const ModelFunction& function : m_functions) {
    if (function.is_definition && function.name == m_component.m_function_name) {
      definitions.push_back(&function);
    }
  }
  return definitions;
}

// The first line of a file that contains a name, or 0.
unsigned find_line(const std::string& path, const std::string& name) {
  std::ifstream file(path, std::ios::binary);
  unsigned line = 1;
  for (std::string text; std::getline(file, text); ++line) {
    if (text.find(name) != std::string::npos) {
      return line;
    }
  }
  return 0;
}

// The definition whose name is nearest, contains the name, or is the only one.
std::optional<ModelFunction> ModelChecker::find_similar() const {
  std::vector<ModelFunction> defined;
  std::vector<std::string> names;
  for (const std::string& file : m_component.m_c_model_files) {
    for (ModelFunction& function : list_c_functions(absolute_path(m_description.file_path(file)))) {
      names.push_back(function.name);
      defined.push_back(std::move(function));
    }
  }
  const std::string& name = m_component.m_function_name;
  const std::string nearest = nearest_name(name, names);
  const auto found =
      std::find_if(defined.begin(), defined.end(), [&](const ModelFunction& function) {
        return nearest.empty() ? function.name.find(name) != std::string::npos
                               : function.name == nearest;
      });
  if (found != defined.end()) {
    return *found;
  }
  return defined.size() == 1 ? std::optional(defined.front()) : std::nullopt;
}

// A declaration, or a function of a similar name, shows best what the user meant.
void ModelChecker::report_missing() {
  const std::string& name = m_component.m_function_name;
  const auto declaration =
      std::find_if(m_functions.begin(), m_functions.end(),
                   [&](const ModelFunction& function) { return function.name == name; });
  if (declaration != m_functions.end()) {
    m_report.error("model-missing", place_in_model(declaration->path, declaration->line),
                   "'" + name + "' is declared here, but no C model defines it");
    return;
  }
  if (const std::optional<ModelFunction> similar = find_similar()) {
    m_report.error("model-missing", place_in_model(similar->path, similar->line),
                   "no C model defines '" + name + "'; did you mean '" + similar->name + "'?");
    return;
  }
  for (const std::string& file : m_component.m_c_model_files) {
    const unsigned line = find_line(m_description.file_path(file), name);
    if (line != 0) {
      m_report.error("model-missing", {m_description.file_name(file), line},
                     "no C model defines a function '" + name + "'");
      return;
    }
  }
  m_report.error("model-missing", m_description.place(m_lines.c_model),
                 "no C model defines a function '" + name + "'");
}

// Extraction gives each model a file of its own, so that both definitions meet in one program.
void ModelChecker::report_second_definitions(const std::vector<const ModelFunction*>& definitions) {
  const ModelFunction& first = *definitions.front();
  for (const ModelFunction* second : definitions) {
    if (second->path != first.path) {
      m_report.error("model", place_in_model(second->path, second->line),
                     "'" + second->name + "' is defined in " +
                         format_place(place_in_model(first.path, first.line)) + " too");
    }
  }
}

std::string ModelChecker::input_text(std::size_t input) const {
  const bool is_memory = m_component.m_input_access_types[input] != vex::efi::MEM_INPUT_SCALAR;
  return std::string(is_memory ? "MEM_INPUT" : "INPUT") + " '" + m_component.m_input_names[input] +
         "' (" + format_place(m_description.place(m_lines.inputs[input])) + ")";
}

std::string format_bits(const ModelType& type) {
  return "'" + type.name + "' of " + format_count(type.bits, "bit");
}

// Whether a vector of three elements is passed with its padding depends on the compiler.
bool fits(const ModelType& type, unsigned width) {
  return type.bits == width || (type.is_3_vector && type.bits / 4 * 3 == width);
}

// What is wrong with an argument, or nothing.
std::string ModelChecker::argument_fault(const ModelArgument& argument, std::size_t input) const {
  const ModelType& type = argument.type;
  const unsigned width = m_component.m_input_widths[input];
  switch (m_component.m_input_access_types[input]) {
  case vex::efi::MEM_INPUT_SCALAR:
    if (type.is_pointer) {
      return "is the pointer '" + type.name + "', but " + input_text(input) + " is no MEM_INPUT";
    }
    return fits(type, width) ? ""
                             : "is " + format_bits(type) + ", but " + input_text(input) + " has " +
                                   format_count(width, "bit");
  case vex::efi::MEM_INPUT_READONLY:
  case vex::efi::MEM_INPUT_READWRITE:
    break;
  }
  const bool is_readonly = m_component.m_input_access_types[input] == vex::efi::MEM_INPUT_READONLY;
  if (!type.is_pointer) {
    return "is " + format_bits(type) + ", but " + input_text(input) + " takes a pointer";
  }
  if (type.points_to_own_memory) {
    return "is the pointer '" + type.name + "', but " + input_text(input) +
           " takes one to global memory";
  }
  if (is_readonly != type.points_to_const) {
    return "is the pointer '" + type.name + "', " +
           (is_readonly ? "not to const, but " : "to const, but ") + input_text(input) + " is " +
           (is_readonly ? "readonly" : "readwrite");
  }
  return "";
}

std::string ModelChecker::result_fault(const ModelType& result) const {
  const std::string& output = m_component.m_output_name;
  const std::string place = format_place(m_description.place(m_lines.output));
  const unsigned width = m_component.m_output_width;
  if (output.empty()) {
    return result.is_void() ? "" : "returns '" + result.name + "', but the component has no OUTPUT";
  }
  if (result.is_void()) {
    return "returns nothing, but the component has the OUTPUT '" + output + "' (" + place + ")";
  }
  return fits(result, width) ? ""
                             : "returns " + format_bits(result) + ", but OUTPUT '" + output +
                                   "' (" + place + ") has " + format_count(width, "bit");
}

Finding ModelChecker::count_finding(const ModelFunction& function) const {
  const std::size_t inputs = m_component.m_input_names.size();
  const std::size_t extra = std::min(function.arguments.size(), inputs - 1);
  return {place_in_model(function.path, function.line), Severity::error, "model-arguments",
          "'" + function.name + "' takes " + format_count(function.arguments.size(), "argument") +
              ", but the component has " + format_count(inputs, "input") + ", the last of them " +
              input_text(extra)};
}

// Whether the arguments are named as the inputs are, but in another order. Only the order counts.
bool ModelChecker::has_swapped_names(const ModelFunction& function) const {
  std::vector<std::string> names;
  for (const ModelArgument& argument : function.arguments) {
    names.push_back(argument.name);
  }
  const std::vector<std::string>& inputs = m_component.m_input_names;
  return names != inputs && std::is_permutation(names.begin(), names.end(), inputs.begin());
}

std::vector<Finding> ModelChecker::compare(const ModelFunction& function) const {
  std::vector<Finding> findings;
  const auto add = [&](const char* rule, unsigned line, std::string text, unsigned element = 0,
                       unsigned bits = 0) {
    findings.push_back({place_in_model(function.path, line),
                        Severity::error,
                        rule,
                        std::move(text),
                        {},
                        m_description.place(element),
                        bits});
  };
  if (const std::string fault = result_fault(function.result); !fault.empty()) {
    add("model-result", function.line, "'" + function.name + "' " + fault, m_lines.output,
        function.result.bits);
  }
  if (function.arguments.size() != m_component.m_input_names.size()) {
    findings.push_back(count_finding(function));
    return findings;
  }
  for (std::size_t i = 0; i < function.arguments.size(); ++i) {
    const ModelArgument& argument = function.arguments[i];
    if (const std::string fault = argument_fault(argument, i); !fault.empty()) {
      add("model-type", argument.line,
          "argument " + std::to_string(i + 1) + " '" + argument.name + "' " + fault,
          m_lines.inputs[i], argument.type.is_pointer ? 0 : argument.type.bits);
    }
  }
  if (has_swapped_names(function)) {
    add("model-arguments", function.line,
        "'" + function.name + "' names its arguments as the inputs (" +
            format_place(m_description.place(m_lines.interface)) + "), but in another order");
  }
  return findings;
}

void ModelChecker::check() {
  read_models();
  const std::vector<const ModelFunction*> definitions = find_definitions();
  if (definitions.empty()) {
    if (m_all_read) {
      report_missing();
    }
    return;
  }
  report_second_definitions(definitions);
  // Of overloaded functions, the one that fits best is meant.
  std::vector<std::vector<Finding>> findings;
  findings.reserve(definitions.size());
  for (const ModelFunction* definition : definitions) {
    findings.push_back(compare(*definition));
  }
  const auto best =
      std::min_element(findings.begin(), findings.end(), [](const auto& left, const auto& right) {
        return left.size() < right.size();
      });
  for (const Finding& finding : *best) {
    Finding& reported = m_report.error(finding.rule.c_str(), finding.place, finding.text);
    reported.element = finding.element;
    reported.bits = finding.bits;
  }
}

} // namespace

void check_model(const Description& description, std::size_t component, Report& report) {
  ModelChecker(description, component, report).check();
}

} // namespace bfcl::component
