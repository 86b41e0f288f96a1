// SPDX-License-Identifier: BSD-3-Clause
#include "design.h"

#include "ghdl.h"
#include "verilator.h"

#include <algorithm>

#include <strings.h>

namespace bfcl::component {

const Port* Design::find_port(const std::string& name) const {
  const auto found = std::find_if(ports.begin(), ports.end(), [&](const Port& port) {
    return port.name == name || (ignores_case && strcasecmp(port.name.c_str(), name.c_str()) == 0);
  });
  return found != ports.end() ? &*found : nullptr;
}

bool Design::has_module(const std::string& name, const Place& at) const {
  return modules.empty() ||
         std::any_of(modules.begin(), modules.end(), [&](const DesignModule& module) {
           return module.name == name && module.place == at;
         });
}

std::optional<Design> elaborate(const ElaborationRequest& request, Report& report) {
  const bool is_vhdl =
      std::any_of(request.files.begin(), request.files.end(),
                  [](const auto& file) { return file_kind(file) == FileKind::vhdl; });
  return is_vhdl ? elaborate_vhdl(request, report) : elaborate_verilog(request, report);
}

} // namespace bfcl::component
