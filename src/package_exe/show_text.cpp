// SPDX-License-Identifier: BSD-3-Clause
#include "printable.h"
#include "show.h"

namespace bfcl::package {

using namespace vex::efi;

namespace {

// The names as one text, with ", " between them.
std::string join(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) {
    text += (text.empty() ? "" : ", ") + name;
  }
  return text;
}

std::string describe_scheduling(const EFIElem& elem) {
  std::vector<std::string> texts = {format_text("latency %d", elem.m_latency)};
  if (elem.m_capacity != NOT_SET) {
    texts.push_back(format_text("capacity %d", elem.m_capacity));
  }
  const struct {
    YesNo flag;
    const char* text;
  } flags[] = {{elem.m_is_fixed_latency, "fixed latency"},
               {elem.m_is_stall_free, "stall-free"},
               {elem.m_has_side_effects, "side effects"},
               {elem.m_allow_merging, "merging allowed"}};
  for (const auto& [flag, text] : flags) {
    if (flag.value) {
      texts.emplace_back(text);
    }
  }
  return join(texts);
}

// The ports of the streaming signals; a port of another name is followed by its signal.
std::string describe_signals(const EFIElem& elem) {
  std::vector<std::string> texts;
  for (std::size_t i = 0; i < VRM_SIGNAL_NAME.size(); ++i) {
    const std::string signal = VRM_SIGNAL_NAME[i];
    const std::string port = printable(elem.m_signal_ports[i]);
    if (!port.empty()) {
      texts.push_back(port == signal ? port : format_text("%s (%s)", port.c_str(), signal.c_str()));
    }
  }
  return "signals " + join(texts);
}

void add_inputs(const EFIElem& elem, TreeNode& node) {
  for (std::size_t i = 0; i < elem.m_input_names.size(); ++i) {
    const auto access = elem.m_input_access_types[i];
    const std::string pointer =
        access == MEM_INPUT_SCALAR
            ? ""
            : format_text(", %s pointer", MEM_INPUT_ACCESS_TYPE_NAME[access]);
    node.add(format_text("input %s, %s%s", printable(elem.m_input_names[i]).c_str(),
                         format_count(elem.m_input_widths[i], "bit").c_str(), pointer.c_str()));
  }
}

void add_memory_ports(const EFIElem& elem, TreeNode& node) {
  for (std::size_t i = 0; i < elem.m_mem_port_names.size(); ++i) {
    const std::string& location = elem.m_mem_port_buffer_locations[i];
    node.add(format_text(
        "memory port %s, %s, burst width %u, %s%s%s", printable(elem.m_mem_port_names[i]).c_str(),
        format_count(elem.m_mem_port_widths[i], "bit").c_str(), elem.m_mem_port_burst_widths[i],
        printable(elem.m_mem_port_optypes[i]).c_str(), location.empty() ? "" : ", buffer location ",
        printable(location).c_str()));
  }
}

void add_resources(const EFIElem& elem, TreeNode& node) {
  const std::pair<double, const char*> resources[] = {{elem.m_aluts, "ALUT"},
                                                      {elem.m_ffs, "FF"},
                                                      {elem.m_rams, "RAM"},
                                                      {elem.m_dsps, "DSP"},
                                                      {elem.m_mlabs, "MLAB"}};
  std::vector<std::string> texts;
  for (const auto& [count, name] : resources) {
    if (count != 0) {
      texts.push_back(format_text("%g %s%s", count, name, count == 1 ? "" : "s"));
    }
  }
  if (!texts.empty()) {
    node.add("resources " + join(texts));
  }
}

void add_component(const EFIElem& elem, TreeNode& node) {
  TreeNode& component =
      node.add(format_text("function %s, module %s", printable(elem.m_function_name).c_str(),
                           printable(elem.m_module_name).c_str()),
               true);
  component.add(describe_scheduling(elem));
  component.add(describe_signals(elem));
  add_inputs(elem, component);
  if (!elem.m_output_name.empty()) {
    component.add(format_text("output %s, %s", printable(elem.m_output_name).c_str(),
                              format_count(elem.m_output_width, "bit").c_str()));
  }
  add_memory_ports(elem, component);
  for (std::size_t i = 0; i < elem.m_parameter_names.size(); ++i) {
    component.add(format_text("parameter %s = %s", printable(elem.m_parameter_names[i]).c_str(),
                              printable(elem.m_parameter_values[i]).c_str()));
  }
  add_resources(elem, component);
}

void add_files(const ComponentPackage& package, TreeNode& node) {
  const auto add = [&node](const char* kind, const std::string& name, std::string_view bytes) {
    node.add(format_text("%s %s, %s", kind, printable(name).c_str(),
                         format_count(bytes.size(), "byte").c_str()));
  };
  if (!package.directory_prefix.empty()) {
    node.add("directory prefix " + printable(package.directory_prefix));
  }
  if (!package.specification_name.empty()) {
    add("specification", package.specification_name, package.specification);
  }
  for (const PackagedFile& file : package.files) {
    add(file.kind == PackagedFileKind::SOURCE ? "source" : "C model", file.name, file.bytes);
  }
}

// Without a specification, the header still has the names of the functions.
void add_package(const ComponentPackage& package, const EFISpec* spec, TreeNode& node) {
  if (spec != nullptr) {
    for (const auto& elem : spec->efi_elems()) {
      add_component(*elem, node);
    }
  } else {
    for (const std::string& function : package.functions) {
      node.add("function " + printable(function), true);
    }
  }
  add_files(package, node);
}

void add_library(const ShownFile& file, TreeNode& root) {
  const PackageFile& library = *file.package;
  root.add(format_text("version %s, name %s, vendor %s", printable(library.version).c_str(),
                       printable(library.name).c_str(), printable(library.vendor).c_str()));
  for (std::size_t i = 0; i < library.components.size(); ++i) {
    const ComponentPackage& package = library.components[i];
    TreeNode& node =
        root.add(format_text("component package %s, %s", printable(package.section).c_str(),
                             format_count(package.image.size(), "byte").c_str()),
                 true);
    add_package(package, file.specs[i].get(), node);
  }
  std::vector<std::string> opencl_functions;
  for (const LibraryFunction& function : library.functions) {
    if (function.kind == LLVM_IR_KIND) {
      opencl_functions.push_back(printable(function.name));
    }
  }
  if (!opencl_functions.empty()) {
    root.add("OpenCL functions " + join(opencl_functions), true);
  }
}

} // namespace

TreeNode make_tree(const ShownFile& file) {
  const PackageFile& package = *file.package;
  const char* kind = package.kind == PackageKind::LIBRARY     ? "library"
                     : package.kind == PackageKind::COMPONENT ? "component package"
                                                              : "OpenCL package";
  TreeNode root = {format_text("%s: %s, %s", printable(file.path).c_str(), kind,
                               format_count(package.image.size(), "byte").c_str()),
                   true,
                   {}};
  if (package.kind == PackageKind::LIBRARY) {
    add_library(file, root);
  } else if (package.kind == PackageKind::COMPONENT) {
    add_package(package.components.front(), file.specs.front().get(), root);
  }
  for (const ClangIr& code : package.clang_ir) {
    root.add(format_text("target %s, %s", printable(code.target).c_str(),
                         format_count(code.bytes.size(), "byte").c_str()));
  }
  return root;
}

} // namespace bfcl::package
