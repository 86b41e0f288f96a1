// SPDX-License-Identifier: BSD-3-Clause
#include "EFISpecKeySearch.h"
#include "EFISpecXml.h"

#include "unique_fd.h"
#include "vex_assert.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include <sys/stat.h>

// The checks of a whole component, made when its elements close, and the searches of its files.

namespace vex::efi::xml {

namespace {

constexpr std::size_t MIN_BLOCK_SIZE = 4096;
constexpr std::size_t MAX_BLOCK_SIZE = std::size_t{1} << 18;

// The capacity in words of a pipeline stage with that latency: without registers, none.
int default_capacity(int latency) {
  return latency != 0 ? 1 : 0;
}

// Names in the rest of the file will be reported as missing: prints why, if there was an error.
void report_read_error(const std::string& path, int error) {
  if (error != 0) {
    std::fprintf(stderr, "Error reading %s: %s\n", path.c_str(), std::strerror(error));
  }
}

template <typename List, typename Value>
bool contains(const List& list, const Value& value) {
  return std::find(list.begin(), list.end(), value) != list.end();
}

} // namespace

bool fileOK(const std::string& path) {
  return static_cast<bool>(unique_fd::open_for_reading(path.c_str()));
}

bool strings_in_file(const std::string& path, const std::vector<std::string>& keys,
                     std::vector<bool>& result) {
  VEX_ASSERT(result.size() == keys.size());
  const unique_fd fd = unique_fd::open_for_reading(path.c_str());
  if (!fd) {
    return false;
  }
  // A directory, a FIFO or a device has no lines, and reading it may never end.
  struct stat status = {};
  KeySearch search(keys, result);
  if (fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return search.is_complete();
  }
  // The names are usually near the beginning of a file: the first block is small.
  const auto file_size = static_cast<std::size_t>(status.st_size);
  std::size_t block_size = std::max(MIN_BLOCK_SIZE, search.state_count());
  const std::size_t max_block_size =
      std::clamp(file_size + 1, block_size, std::max(block_size, MAX_BLOCK_SIZE));
  const auto buffer = std::make_unique_for_overwrite<char[]>(max_block_size);
  while (!search.is_complete()) {
    const std::size_t count = move_all(block_size, [&](std::size_t done, std::size_t left) {
      return read(fd.get(), buffer.get() + done, left);
    });
    if (count == 0) {
      report_read_error(path, errno);
      break;
    }
    search.search(buffer.get(), count);
    block_size = std::min(2 * block_size, max_block_size);
  }
  return search.is_complete();
}

std::string addPrefix(const std::string& prefix, const std::string& path) {
  return prefix.empty() ? path : prefix + "/" + path;
}

std::vector<std::string> search_keys(const EFIElem& elem) {
  std::vector<std::string> keys = {elem.m_module_name};
  keys.insert(keys.end(), elem.m_input_names.begin(), elem.m_input_names.end());
  if (!elem.m_output_name.empty()) {
    keys.push_back(elem.m_output_name);
  }
  keys.insert(keys.end(), elem.m_mem_port_names.begin(), elem.m_mem_port_names.end());
  keys.insert(keys.end(), elem.m_parameter_names.begin(), elem.m_parameter_names.end());
  return keys;
}

bool EFIElemVisitor::VisitExit(const tinyxml2::XMLElement& elem) {
  const std::string name = elem.Value();
  if (ok() && name == "ATTRIBUTES" && !check_attributes()) {
    return false;
  }
  if (ok() && name == "FUNCTION" &&
      !(check_interface(elem) && check_memory_ports() && (!m_component_checks || check_files()))) {
    return false;
  }
  return BaseVisitor::VisitExit(elem);
}

bool EFIElemVisitor::check_attributes() {
  const bool stall_free = m_elem->m_is_stall_free.value;
  const bool fixed_latency = m_elem->m_is_fixed_latency.value;
  const bool capacity_set = m_elem->m_capacity != NOT_SET;
  if (m_elem->m_latency == NOT_SET) {
    return report_error("EXPECTED_LATENCY attribute is not set!");
  }
  if (m_elem->m_latency < 0) {
    return report_error("EXPECTED_LATENCY attribute must be at least 0!");
  }
  if (capacity_set && m_elem->m_capacity < 0) {
    return report_error("CAPACITY attribute must be at least 0!");
  }
  if (!capacity_set && !stall_free && !fixed_latency) {
    return report_error(
        "CAPACITY attribute is not set for a function that is stallable and doesn't have fixed "
        "latency! Set the CAPACITY attribute or double-check IS_STALL_FREE and IS_FIXED_LATENCY "
        "attributes. Incorrectly set CAPACITY may lead to non-functioning hardware.");
  }
  if (stall_free && !fixed_latency) {
    return report_error(
        "Function is marked as IS_STALL_FREE but IS_FIXED_LATENCY set to \"no\". Variable-latency "
        "functions that do not stall will NOT work inside OpenCL pipelines. Either also set "
        "IS_FIXED_LATENCY to \"yes\" or set IS_STALL_FREE to \"no\" and make sure your function "
        "properly handles valid/stall signals.");
  }
  if (stall_free && m_elem->m_has_side_effects.value) {
    report_warning("Function is marked as both IS_STALL_FREE and HAS_SIDE_EFFECTS. Ensure your RTL "
                   "module handles ivalid properly. See documentation for details.");
  }
  if (!capacity_set) {
    m_elem->m_capacity = default_capacity(m_elem->m_latency);
  }
  return true;
}

bool EFIElemVisitor::check_interface(const tinyxml2::XMLElement& elem) {
  for (std::size_t i = 0; i < VRM_SIGNAL_NAME.size(); ++i) {
    if (m_elem->m_signal_ports[i].empty()) {
      return report_error(elem, "Component is missing Veyra signal '" +
                                    std::string(VRM_SIGNAL_NAME[i]) +
                                    "' in HDL component specification." + VEYRA_SIGNAL_HELP);
    }
  }
  if (m_elem->m_input_names.empty()) {
    return report_error(
        elem, std::string("Missing Input Signals (<INPUT>) in HDL component specification.") +
                  VEYRA_SIGNAL_HELP);
  }
  if (m_elem->m_requirement_files.empty()) {
    return report_error(std::string("Missing HDL component source file requirement "
                                    "(<REQUIREMENTS>) in HDL component specification.") +
                        VEYRA_SIGNAL_HELP);
  }
  if (m_elem->m_c_model_files.empty()) {
    return report_error("Missing OpenCL C model (<C_MODEL>) in HDL component specification.");
  }
  return true;
}

bool EFIElemVisitor::check_memory_ports() {
  const auto& access = m_elem->m_input_access_types;
  const bool readwrite = contains(access, MEM_INPUT_READWRITE);
  const bool writes = contains(m_elem->m_mem_port_optypes, "write");
  if (!m_elem->m_mem_port_names.empty() && !readwrite && !contains(access, MEM_INPUT_READONLY)) {
    return report_error(
        std::string("Expecting at least one <MEM_INPUT> in HDL component specification.") +
        VEYRA_SIGNAL_HELP);
  }
  if (writes && !readwrite) {
    return report_error(std::string("Expecting at least one <MEM_INPUT> with \"readwrite\" "
                                    "attribute in HDL component specification.") +
                        VEYRA_SIGNAL_HELP);
  }
  if (readwrite && !writes) {
    return report_error(std::string("Expecting <VEYRA_MEM> with \"write\" attribute in HDL "
                                    "component specification.") +
                        VEYRA_SIGNAL_HELP);
  }
  return true;
}

bool EFIElemVisitor::check_files() {
  const char* name = get_source_name();
  const std::string source_name = name != nullptr ? name : "";
  const std::size_t slash = source_name.rfind('/');
  const std::string directory = slash != std::string::npos ? source_name.substr(0, slash) : "";
  std::string text;
  if (!search_c_models(directory, text) || !search_requirements(directory, text)) {
    return false;
  }
  return text.empty() ||
         report_error(text + "A simple 'grep' method was used to search the files\n\n");
}

bool EFIElemVisitor::search_c_models(const std::string& directory, std::string& report_text) {
  std::vector<bool> found(1, false);
  for (const std::string& file : m_elem->m_c_model_files) {
    const std::string path = addPrefix(directory, file);
    if (!fileOK(path)) {
      return report_error("Couldn't open OpenCL C model file " + path);
    }
    if (strings_in_file(path, {m_elem->m_function_name}, found)) {
      return true;
    }
  }
  report_text += "Function name '" + m_elem->m_function_name +
                 "' is not found in any specified OpenCL C model files!\n"
                 "OpenCL C model function name must match function name in the XML file.\n\n";
  return true;
}

bool EFIElemVisitor::search_requirements(const std::string& directory, std::string& report_text) {
  const std::vector<std::string> keys = search_keys(*m_elem);
  std::vector<bool> found(keys.size(), false);
  for (const std::string& file : m_elem->m_requirement_files) {
    const std::string path = addPrefix(directory, file);
    if (!fileOK(path)) {
      return report_error("Couldn't open Requirements file " + path);
    }
    if (strings_in_file(path, keys, found)) {
      return true;
    }
  }
  report_text +=
      "The following module name, parameter name, input or an output name specified in XML file is "
      "not found in any requirement file:\n";
  for (std::size_t i = 0; i < keys.size(); ++i) {
    if (!found[i]) {
      report_text += "   '" + keys[i] + "'\n";
    }
  }
  return true;
}

} // namespace vex::efi::xml
