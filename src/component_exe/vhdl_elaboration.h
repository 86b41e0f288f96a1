// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "ghdl_output.h"
#include "process.h"
#include "sealed_tree.h"

#include <optional>
#include <string>
#include <utility>
#include <vector>

// How ghdl.h's elaboration works. ghdl.cpp has the runs, ghdl_findings.cpp what is reported.

namespace bfcl::component {

// Elaborates one request, once.
class VhdlElaboration {
public:
  VhdlElaboration(const ElaborationRequest& request, Report& report)
      : m_request(request), m_report(report) {}

  std::optional<Design> run();
  std::string netlist(const std::string& format);

private:
  bool prepare();
  [[nodiscard]] ToolResult ghdl(std::vector<std::string> words, bool in_new_library);
  bool replace_missing_top();
  [[nodiscard]] ToolResult synthesize(const std::string& format);
  [[nodiscard]] ToolResult synthesize_with_parameters();
  bool analyze();
  bool analyze_entity();
  bool find_order(const std::vector<GhdlMessage>& listed);
  void report_messages(const std::vector<GhdlMessage>& messages);
  bool is_verilog(const std::string& name, const GhdlMessage& message);
  bool report_missing(const GhdlMessage& message);
  void report_rest(const std::vector<GhdlMessage>& messages);
  bool check_parameters(const ToolResult& result);
  void note_undriven(const GhdlMessage& message);
  void place_signals(ModuleDrivers& module) const;
  void report_unneeded();
  void report_undriven(const Design& design, const std::string& netlist);
  void refuse_generic(std::size_t index);
  void drop_parameter(std::size_t index, const std::string& why);
  Design read_design(const ToolResult& result);
  [[nodiscard]] Place place_of(const std::string& file, unsigned line) const;
  [[nodiscard]] Place place_of_unit(const std::string& file, const std::string& unit) const;
  [[nodiscard]] Place place_of_name(const std::string& name) const;
  [[nodiscard]] std::vector<std::string> unit_names() const;
  [[nodiscard]] std::vector<std::string> generic_names() const;
  [[nodiscard]] std::string to_add(const std::string& unit) const;

  const ElaborationRequest& m_request;
  Report& m_report;
  SealedTree m_tree;
  std::vector<std::string> m_files;
  std::vector<std::pair<std::string, std::string>> m_parameters;
  std::vector<Place> m_parameter_places;
  std::string m_top;
  std::vector<UndrivenSignal> m_undriven;
  bool m_has_other_parameters = false;
  bool m_has_entity_only = false;
  unsigned m_libraries = 0;
};

} // namespace bfcl::component
