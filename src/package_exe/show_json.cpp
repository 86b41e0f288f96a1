// SPDX-License-Identifier: BSD-3-Clause
#include "show.h"

namespace bfcl::package {

using namespace vex::efi;
using Json = nlohmann::ordered_json;

namespace {

// Null for a value that the specification does not give.
Json make_number(int value) {
  return value != NOT_SET ? Json(value) : Json();
}

Json make_inputs(const EFIElem& elem) {
  Json inputs = Json::array();
  for (std::size_t i = 0; i < elem.m_input_names.size(); ++i) {
    inputs.push_back({{"port", elem.m_input_names[i]},
                      {"access", MEM_INPUT_ACCESS_TYPE_NAME[elem.m_input_access_types[i]]},
                      {"width", elem.m_input_widths[i]}});
  }
  return inputs;
}

Json make_memory_ports(const EFIElem& elem) {
  Json ports = Json::array();
  for (std::size_t i = 0; i < elem.m_mem_port_names.size(); ++i) {
    ports.push_back({{"port", elem.m_mem_port_names[i]},
                     {"width", elem.m_mem_port_widths[i]},
                     {"burst_width", elem.m_mem_port_burst_widths[i]},
                     {"operation", elem.m_mem_port_optypes[i]},
                     {"buffer_location", elem.m_mem_port_buffer_locations[i]}});
  }
  return ports;
}

Json make_signals(const EFIElem& elem) {
  Json signals = Json::object();
  for (std::size_t i = 0; i < VRM_SIGNAL_NAME.size(); ++i) {
    if (!elem.m_signal_ports[i].empty()) {
      signals[VRM_SIGNAL_NAME[i]] = elem.m_signal_ports[i];
    }
  }
  return signals;
}

Json make_parameters(const EFIElem& elem) {
  Json parameters = Json::array();
  for (std::size_t i = 0; i < elem.m_parameter_names.size(); ++i) {
    parameters.push_back(
        {{"name", elem.m_parameter_names[i]}, {"value", elem.m_parameter_values[i]}});
  }
  return parameters;
}

Json make_component(const EFIElem& elem) {
  Json component = {{"function", elem.m_function_name},
                    {"module", elem.m_module_name},
                    {"latency", make_number(elem.m_latency)},
                    {"capacity", make_number(elem.m_capacity)},
                    {"fixed_latency", elem.m_is_fixed_latency.value},
                    {"stall_free", elem.m_is_stall_free.value},
                    {"side_effects", elem.m_has_side_effects.value},
                    {"merging_allowed", elem.m_allow_merging.value},
                    {"signals", make_signals(elem)},
                    {"inputs", make_inputs(elem)}};
  component["output"] = elem.m_output_name.empty()
                            ? Json()
                            : Json{{"port", elem.m_output_name}, {"width", elem.m_output_width}};
  component["memory_ports"] = make_memory_ports(elem);
  component["parameters"] = make_parameters(elem);
  component["resources"] = {{"aluts", elem.m_aluts},
                            {"ffs", elem.m_ffs},
                            {"rams", elem.m_rams},
                            {"dsps", elem.m_dsps},
                            {"mlabs", elem.m_mlabs}};
  return component;
}

// Without a specification, the header still has the names of the functions.
Json make_components(const ComponentPackage& package, const EFISpec* spec) {
  Json components = Json::array();
  if (spec != nullptr) {
    for (const auto& elem : spec->efi_elems()) {
      components.push_back(make_component(*elem));
    }
  } else {
    for (const std::string& function : package.functions) {
      components.push_back({{"function", function}});
    }
  }
  return components;
}

Json make_package(const ComponentPackage& package, const EFISpec* spec) {
  Json files = Json::array();
  for (const PackagedFile& file : package.files) {
    files.push_back({{"name", file.name},
                     {"kind", file.kind == PackagedFileKind::SOURCE ? "source" : "c_model"},
                     {"bytes", file.bytes.size()}});
  }
  return {{"section", package.section.empty() ? Json() : Json(package.section)},
          {"bytes", package.image.size()},
          {"directory_prefix", package.directory_prefix},
          {"specification",
           {{"name", package.specification_name}, {"bytes", package.specification.size()}}},
          {"files", files},
          {"components", make_components(package, spec)}};
}

} // namespace

Json make_json(const ShownFile& file) {
  const PackageFile& package = *file.package;
  const bool is_library = package.kind == PackageKind::LIBRARY;
  Json json = {{"path", file.path},
               {"kind", is_library                               ? "library"
                        : package.kind == PackageKind::COMPONENT ? "component_package"
                                                                 : "opencl_package"},
               {"bytes", package.image.size()}};
  if (is_library) {
    json["library"] = {
        {"version", package.version}, {"name", package.name}, {"vendor", package.vendor}};
  }
  json["packages"] = Json::array();
  for (std::size_t i = 0; i < package.components.size(); ++i) {
    json["packages"].push_back(make_package(package.components[i], file.specs[i].get()));
  }
  json["opencl_functions"] = Json::array();
  for (const LibraryFunction& function : package.functions) {
    if (function.kind == LLVM_IR_KIND) {
      json["opencl_functions"].push_back(function.name);
    }
  }
  json["targets"] = Json::array();
  for (const ClangIr& code : package.clang_ir) {
    json["targets"].push_back({{"target", code.target}, {"bytes", code.bytes.size()}});
  }
  return json;
}

} // namespace bfcl::package
