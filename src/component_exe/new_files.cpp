// SPDX-License-Identifier: BSD-3-Clause
#include "new_files.h"

#include <tinyxml2.h>

namespace bfcl::component {

namespace {

const char* opencl_type(unsigned width) {
  switch (width) {
  case 8:
    return "uchar";
  case 16:
    return "ushort";
  case 32:
    return "uint";
  case 64:
    return "ulong";
  case 128:
    return "ulong2";
  case 256:
    return "ulong4";
  case 512:
    return "ulong8";
  default:
    return "ulong16";
  }
}

// Writes elements with attributes and no text.
class DescriptionPrinter : public tinyxml2::XMLPrinter {
public:
  void PrintSpace(int depth) override {
    Write(std::string(2 * static_cast<std::size_t>(depth), ' ').c_str());
  }
  void value(const char* element, const std::string& value) {
    OpenElement(element);
    PushAttribute("value", value.c_str());
    CloseElement();
  }
  void file(const std::string& name) {
    OpenElement("FILE");
    PushAttribute("name", name.c_str());
    CloseElement();
  }
  void port(const char* element, const std::string& name, const char* attribute,
            const std::string& value) {
    OpenElement(element);
    PushAttribute("port", name.c_str());
    PushAttribute(attribute, value.c_str());
    CloseElement();
  }
};

void print_attributes(DescriptionPrinter& printer, const PortPlan& plan,
                      const NewComponent& component) {
  const bool is_fixed = plan.scheme == Scheme::pipeline;
  printer.OpenElement("ATTRIBUTES");
  printer.value("IS_STALL_FREE", is_fixed ? "yes" : "no");
  printer.value("IS_FIXED_LATENCY", is_fixed ? "yes" : "no");
  printer.value("EXPECTED_LATENCY",
                std::to_string(is_fixed ? plan.latency : component.timing.latency.value_or(1)));
  if (!is_fixed) {
    printer.value("CAPACITY", std::to_string(component.timing.capacity));
  }
  printer.value("HAS_SIDE_EFFECTS", is_fixed ? "no" : "yes");
  printer.value("ALLOW_MERGING", "no");
  for (const auto& [name, value] : component.parameters) {
    printer.OpenElement("PARAMETER");
    printer.PushAttribute("name", name.c_str());
    printer.PushAttribute("value", value.c_str());
    printer.CloseElement();
  }
  printer.CloseElement();
}

void print_interface(DescriptionPrinter& printer, const Design& design, const PortPlan& plan) {
  printer.OpenElement("INTERFACE");
  for (const char* signal : {"clock", "resetn", "ivalid", "iready", "ovalid", "oready"}) {
    printer.port("VEYRA", signal_port(design, plan, signal), "type", signal);
  }
  for (const PortUse& use : plan.uses) {
    if (use.role == Role::input) {
      printer.port("INPUT", use.component, "width", std::to_string(use.width));
    }
  }
  printer.port("OUTPUT", plan.result, "width", std::to_string(plan.result_width));
  printer.CloseElement();
}

// "bits 11 to 0"
std::string bit_range(unsigned offset, unsigned width) {
  return width == 1
             ? "bit " + std::to_string(offset)
             : "bits " + std::to_string(offset + width - 1) + " to " + std::to_string(offset);
}

} // namespace

std::string signal_port(const Design& design, const PortPlan& plan, const std::string& signal) {
  if (plan.scheme != Scheme::direct || signal == "clock" || signal == "resetn") {
    return signal;
  }
  const Channel& channel = signal[0] == 'i' ? plan.begins[0] : plan.ends[0];
  return design.ports[signal.substr(1) == "valid" ? *channel.valid : *channel.ready].name;
}

std::string description_text(const Design& design, const PortPlan& plan,
                             const NewComponent& component) {
  DescriptionPrinter printer;
  printer.OpenElement("EFI_SPEC");
  printer.OpenElement("FUNCTION");
  printer.PushAttribute("name", component.function.c_str());
  printer.PushAttribute("module", component.module.c_str());
  print_attributes(printer, plan, component);
  print_interface(printer, design, plan);
  printer.OpenElement("C_MODEL");
  printer.file(component.model);
  printer.CloseElement();
  printer.OpenElement("REQUIREMENTS");
  for (const std::string& file : component.files) {
    printer.file(file);
  }
  printer.CloseElement();
  printer.CloseElement();
  printer.CloseElement();
  return printer.CStr();
}

std::string prototype_text(const Design& design, const PortPlan& plan,
                           const NewComponent& component) {
  std::string arguments;
  std::string notes;
  std::string results;
  for (std::size_t i = 0; i < plan.uses.size(); ++i) {
    const PortUse& use = plan.uses[i];
    const unsigned width = design.ports[i].width;
    if (use.role == Role::input) {
      arguments += (arguments.empty() ? "" : ", ") + std::string(opencl_type(use.width)) + " " +
                   use.component;
      if (width < use.width) {
        notes += "  // " + use.component + ": only " + bit_range(0, width) + " count.\n";
      }
    } else if (use.role == Role::output) {
      results += "  //   " + bit_range(use.offset, width) + ": " + design.ports[i].name + "\n";
    }
  }
  return "// What the module " + design.top +
         " computes, for emulation and `bfcl component simulate`.\n" +
         opencl_type(plan.result_width) + " " + component.function + "(" + arguments + ")\n{\n" +
         notes + "  // Write here what the module computes, and return its result:\n" + results +
         "  // All other bits are 0.\n}\n";
}

} // namespace bfcl::component
