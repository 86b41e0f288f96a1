// SPDX-License-Identifier: BSD-3-Clause
#include "design.h"

#include "ghdl.h"
#include "rtl_text.h"
#include "verilator.h"

#include <algorithm>
#include <filesystem>

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

namespace {

bool defines(const std::string& file, FileKind kind, const std::string& unit) {
  if (file_kind(file) != kind) {
    return false;
  }
  const std::vector<RtlUnit> units = units_in(read_text(file), kind);
  return std::any_of(units.begin(), units.end(), [&](const RtlUnit& found) {
    return kind == FileKind::vhdl ? strcasecmp(found.name.c_str(), unit.c_str()) == 0
                                  : found.name == unit;
  });
}

} // namespace

bool is_in_other_language(const ElaborationRequest& request, FileKind kind,
                          const std::string& unit) {
  return std::any_of(request.files.begin(), request.files.end(),
                     [&](const std::string& file) { return defines(file, kind, unit); });
}

std::optional<Design> elaborate(const ElaborationRequest& request, Report& report) {
  const auto has = [&request](FileKind kind) {
    return std::any_of(request.files.begin(), request.files.end(),
                       [kind](const std::string& file) { return file_kind(file) == kind; });
  };
  const bool is_vhdl =
      has(FileKind::vhdl) &&
      (!has(FileKind::verilog) || is_in_other_language(request, FileKind::vhdl, request.top));
  auto design = is_vhdl ? elaborate_vhdl(request, report) : elaborate_verilog(request, report);
  // A tool that fails without a word. Files that do not exist are reported elsewhere.
  std::error_code error;
  if (!design && report.status() == STATUS_OK &&
      std::all_of(request.files.begin(), request.files.end(), [&](const std::string& file) {
        return std::filesystem::is_regular_file(file, error);
      })) {
    report.cannot_check(request.subject(),
                        std::string(is_vhdl ? "ghdl" : "verilator") + " failed without a message");
  }
  return design;
}

} // namespace bfcl::component
