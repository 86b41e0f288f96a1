// SPDX-License-Identifier: BSD-3-Clause
#include "description.h"

#include "EFISpecXmlLoader.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <iterator>

namespace bfcl::component {

namespace {

using tinyxml2::XMLElement;

unsigned line_of(const XMLElement& element) {
  return static_cast<unsigned>(element.GetLineNum());
}

// Visits an element's children, which a valid specification has in one place and order only.
template <typename Visit>
void for_each_child(const XMLElement& parent, Visit visit) {
  for (const XMLElement* child = parent.FirstChildElement(); child != nullptr;
       child = child->NextSiblingElement()) {
    visit(*child, std::string(child->Name()));
  }
}

void note_attributes(const XMLElement& attributes, ElementLines& lines) {
  lines.attributes = line_of(attributes);
  for_each_child(attributes, [&](const XMLElement& child, const std::string& name) {
    if (name == "PARAMETER") {
      lines.parameters.push_back(line_of(child));
    } else if (name == "EXPECTED_LATENCY") {
      lines.latency = line_of(child);
    } else if (name == "CAPACITY") {
      lines.capacity = line_of(child);
    }
  });
}

void note_signal(const XMLElement& signal, ElementLines& lines) {
  const char* type = signal.Attribute("type");
  const auto* found =
      std::find_if(vex::efi::VRM_SIGNAL_NAME.begin(), vex::efi::VRM_SIGNAL_NAME.end(),
                   [type](const char* name) { return std::strcmp(name, type) == 0; });
  const auto index = std::distance(vex::efi::VRM_SIGNAL_NAME.begin(), found);
  lines.signals.at(static_cast<std::size_t>(index)) = line_of(signal);
}

void note_interface(const XMLElement& interface, ElementLines& lines) {
  lines.interface = line_of(interface);
  for_each_child(interface, [&](const XMLElement& child, const std::string& name) {
    if (name == "VEYRA") {
      note_signal(child, lines);
    } else if (name == "INPUT" || name == "MEM_INPUT") {
      lines.inputs.push_back(line_of(child));
    } else if (name == "OUTPUT") {
      lines.output = line_of(child);
    } else if (name == "VEYRA_MEM") {
      lines.mem_ports.push_back(line_of(child));
    }
  });
}

unsigned note_files(const XMLElement& list, std::vector<unsigned>& lines) {
  for_each_child(
      list, [&](const XMLElement& file, const std::string&) { lines.push_back(line_of(file)); });
  return line_of(list);
}

ElementLines lines_of_function(const XMLElement& function) {
  ElementLines lines;
  lines.function = line_of(function);
  for_each_child(function, [&](const XMLElement& child, const std::string& name) {
    if (name == "ATTRIBUTES") {
      note_attributes(child, lines);
    } else if (name == "INTERFACE") {
      note_interface(child, lines);
    } else if (name == "REQUIREMENTS") {
      lines.requirements = note_files(child, lines.requirement_files);
    } else if (name == "C_MODEL") {
      lines.c_model = note_files(child, lines.c_model_files);
    }
  });
  return lines;
}

// The lines of every FUNCTION of a valid document.
std::vector<ElementLines> element_lines(const char* path) {
  std::vector<ElementLines> lines;
  tinyxml2::XMLDocument document;
  if (document.LoadFile(path) == tinyxml2::XML_SUCCESS && document.RootElement() != nullptr) {
    for_each_child(*document.RootElement(), [&](const XMLElement& child, const std::string&) {
      lines.push_back(lines_of_function(child));
    });
  }
  return lines;
}

void replace_all(std::string& text, const std::string& from, const std::string& to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
}

// The texts of the library; of what was unpacked they name the files in the package.
std::vector<std::string> name_files(std::vector<std::string> texts,
                                    const Description& description) {
  for (std::string& text : texts) {
    if (!description.container.empty()) {
      replace_all(text, description.path, description.name);
      replace_all(text, description.folder + "/", "");
    }
  }
  return texts;
}

// As the library tool prints them: an empty line follows each text.
void print_diagnostics(const char* heading, const std::vector<std::string>& texts) {
  std::fputs(heading, stdout);
  for (const std::string& text : texts) {
    std::puts(text.c_str());
  }
}

// 0 for a file that is XML, about any other of which the library prints a line of its own; else the
// line of the error, or 1.
int line_of_xml_error(const std::string& path) {
  tinyxml2::XMLDocument document;
  return document.LoadFile(path.c_str()) == tinyxml2::XML_SUCCESS
             ? 0
             : std::max(document.ErrorLineNum(), 1);
}

} // namespace

std::string tidy_path(const std::string& path) {
  const std::filesystem::path given(path);
  const std::filesystem::path normal = given.lexically_normal();
  std::error_code error;
  // "link/.." may lead elsewhere than the text says.
  const bool same = normal == given || path.find("..") == std::string::npos ||
                    std::filesystem::equivalent(given, normal, error);
  return same && !normal.empty() ? normal.string() : path;
}

std::string Description::file_path(const std::string& file) const {
  return folder.empty() ? file : folder + "/" + file;
}

std::string Description::file_name(const std::string& file) const {
  return container.empty() ? tidy_path(file_path(file)) : container + "(" + file + ")";
}

ElaborationRequest Description::request_for(std::size_t component) const {
  const vex::efi::EFIElem& elem = *spec->efi_elems()[component];
  const ElementLines& at = lines[component];
  ElaborationRequest request;
  request.top = elem.m_module_name;
  request.top_place = place(at.function);
  request.files_place = place(at.requirements);
  for (std::size_t i = 0; i < elem.m_requirement_files.size(); ++i) {
    request.files.push_back(file_path(elem.m_requirement_files[i]));
    request.file_names.push_back(file_name(elem.m_requirement_files[i]));
    request.file_places.push_back(place(at.requirement_files[i]));
  }
  for (std::size_t i = 0; i < elem.m_parameter_names.size(); ++i) {
    request.parameters.emplace_back(elem.m_parameter_names[i], elem.m_parameter_values[i]);
    request.parameter_places.push_back(place(at.parameters[i]));
  }
  return request;
}

bool load_description(const std::string& path, Description& description,
                      const std::string& container, std::vector<std::string>* diagnostics) {
  description.path = path;
  description.container = container;
  const std::size_t slash = path.rfind('/');
  // The library tool's rule, for which "/spec.xml" has no folder either.
  description.folder = slash == std::string::npos ? "" : path.substr(0, slash);
  description.name =
      container.empty() ? tidy_path(path) : description.file_name(path.substr(slash + 1));
  const int error_line = line_of_xml_error(path);
  if (diagnostics != nullptr && error_line != 0) {
    diagnostics->push_back("Error in '" + path + "', line " + std::to_string(error_line) +
                           "\nthe file is not well-formed XML\n");
    return false;
  }
  vex::efi::EFISpecXmlLoader loader(false, true);
  description.spec.reset(loader.load_file(path.c_str()));
  const bool is_good = description.spec != nullptr;
  const std::vector<std::string> texts =
      name_files(is_good ? loader.m_warnings : loader.m_errors, description);
  if (diagnostics != nullptr) {
    diagnostics->insert(diagnostics->end(), texts.begin(), texts.end());
  } else {
    print_diagnostics(is_good ? "" : "Errors in HDL component specification file:", texts);
  }
  if (!is_good && error_line == 0) {
    description.spec.reset(vex::efi::EFISpecXmlLoader(false, false).load_file(path.c_str()));
  }
  if (description.spec != nullptr) {
    description.lines = element_lines(path.c_str());
  }
  return is_good;
}

void report_diagnostics(const std::string& operand, const std::vector<std::string>& texts,
                        Report& report) {
  for (std::string text : texts) {
    unsigned line = 0;
    const std::size_t head = text.find('\n');
    const std::size_t number = text.rfind(", line ", head);
    if (number != std::string::npos) {
      std::sscanf(text.c_str() + number, ", line %u", &line);
    }
    const bool is_warning = text.rfind("Warning", 0) == 0;
    text.erase(0, head + 1 == text.size() ? 0 : head + 1);
    text.erase(text.find_last_not_of('\n') + 1);
    if (is_warning) {
      report.warning("description", {operand, line}, text);
    } else {
      report.error("description", {operand, line}, text);
    }
  }
}

} // namespace bfcl::component
