// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "sealed_tree.h"
#include "verilator_run.h"

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

// How verilator.h's elaboration works: one run after the other, each with what the last one lacked
// put right for the time being. verilator.cpp has the rounds, verilator_mend.cpp what can be put
// right after a message, verilator_findings.cpp what is reported.

namespace bfcl::component {

// An empty module in the place of one that is missing, with the pins that its instances have.
struct Stub {
  VerilatorMessage asked_for; // the first instance
  std::set<std::string> pins;
  std::set<std::string> parameters;

  [[nodiscard]] std::string text(const std::string& module) const;
};

// Elaborates one request, once.
class VerilogElaboration {
public:
  VerilogElaboration(const ElaborationRequest& request, Report& report)
      : m_request(request), m_report(report) {}

  std::optional<Design> run();

private:
  bool prepare();
  [[nodiscard]] VerilatorRun try_job(const VerilatorJob& job);
  bool go_on_after(const VerilatorRun& run);
  bool mend(const VerilatorMessage& message);
  bool mend_include(const VerilatorMessage& message);
  bool mend_package(const VerilatorMessage& message);
  bool mend_module(const VerilatorMessage& message);
  bool mend_pin(const VerilatorMessage& message);
  bool mend_top();
  bool mend_parameters(const VerilatorMessage& message);
  bool try_alternatives(const VerilatorRun& run);
  bool try_parameters(const VerilatorRun& run);
  bool try_order();
  void report_rest(const VerilatorRun& run);
  void report_missing(const char* rule, const Place& place, const std::string& kind,
                      const std::string& name);
  void report_duplicates(const VerilatorRun& run);
  void report_unknown_parameters(const Design* design);
  void report_unneeded(const VerilatorRun& run);
  void report_undriven(const VerilatorRun& run);
  Design finish(VerilatorRun run);
  std::optional<Design> read_ports_only();
  void set_nearest_parameters(VerilatorRun& run);
  void name_places(Design& design) const;

  bool add_neighbour(const std::string& unit, bool in_front);
  void write_stubs();
  void move_to_front(const std::string& file);
  [[nodiscard]] Place place_of(const std::string& file, unsigned line) const;
  [[nodiscard]] Place place_of(const VerilatorMessage& message) const {
    return place_of(message.file, message.line);
  }
  [[nodiscard]] unsigned line_of_instance(const VerilatorMessage& message,
                                          const std::string& module) const;
  [[nodiscard]] std::string listed_name(std::size_t index) const;
  [[nodiscard]] std::vector<std::string> unit_names(bool packages) const;
  [[nodiscard]] std::string file_with(const std::string& unit) const; // below root, or empty
  [[nodiscard]] Place parameter_place(const std::string& name) const;

  const ElaborationRequest& m_request;
  Report& m_report;
  SealedTree m_tree;
  VerilatorJob m_job;
  std::map<std::string, Stub> m_stubs;
  std::map<std::string, unsigned> m_moves; // how often a file was put in front
  std::set<std::string> m_reported_packages;
  std::vector<std::pair<std::string, std::string>> m_unknown_parameters; // name and value
  bool m_has_wrong_value = false; // a parameter that does not elaborate is left out
  bool m_is_reordered = false;
  bool m_is_mended = false; // a file or module was replaced: what follows is no finding
};

// Whether it is what the tool says after other errors.
[[nodiscard]] bool is_consequence(const VerilatorMessage& message);

// The text between the first quotation marks of a message.
[[nodiscard]] std::string quoted_name(const std::string& text);

} // namespace bfcl::component
