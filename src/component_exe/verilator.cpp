// SPDX-License-Identifier: BSD-3-Clause
#include "verilator.h"

#include "port_stub.h"
#include "rtl_text.h"
#include "verilog_elaboration.h"

#include <algorithm>
#include <utility>

namespace bfcl::component {

namespace {

constexpr unsigned MAX_ROUNDS = 60; // each mends one kind of fault

std::size_t count_errors(const VerilatorRun& run) {
  return static_cast<std::size_t>(
      std::count_if(run.messages.begin(), run.messages.end(), [](const VerilatorMessage& message) {
        return message.is_error && !is_consequence(message);
      }));
}

} // namespace

bool VerilogElaboration::prepare() {
  if (!m_tree.create(m_request.files)) {
    m_report.cannot_check(m_request.subject(), "no temporary folder can be made");
    return false;
  }
  m_job.top = m_request.top;
  m_job.parameters = m_request.parameters;
  for (std::size_t index = 0; index < m_request.files.size(); ++index) {
    const std::string& name = m_tree.name(index);
    if (!name.empty() && file_kind(name) == FileKind::verilog &&
        std::find(m_job.files.begin(), m_job.files.end(), name) == m_job.files.end()) {
      m_job.files.push_back(name);
    }
  }
  return true;
}

std::optional<Design> VerilogElaboration::run() {
  if (!prepare()) {
    return std::nullopt;
  }
  for (unsigned round = 0; round < MAX_ROUNDS; ++round) {
    VerilatorRun run = try_job(m_job);
    if (!run.problem.empty()) {
      m_report.cannot_check(m_request.subject(), run.problem);
      return std::nullopt;
    }
    report_duplicates(run);
    if (run.ok) {
      return finish(std::move(run));
    }
    if (!go_on_after(run)) {
      report_rest(run);
      std::optional<Design> design = read_ports_only();
      report_unknown_parameters(design ? &*design : nullptr);
      return design;
    }
  }
  m_report.cannot_check(m_request.subject(), "verilator finds ever new faults");
  return std::nullopt;
}

VerilatorRun VerilogElaboration::try_job(const VerilatorJob& job) {
  return run_verilator(m_tree, job);
}

// Mends what can be mended; false when nothing could.
bool VerilogElaboration::go_on_after(const VerilatorRun& run) {
  bool is_mended = false;
  for (const VerilatorMessage& message : run.messages) {
    is_mended = (message.is_error && mend(message)) || is_mended;
  }
  write_stubs();
  return is_mended || try_alternatives(run);
}

// What else could be wrong than the lines that the tool names: the macros that sources for
// simulators want, a parameter's value, the order of the files.
bool VerilogElaboration::try_alternatives(const VerilatorRun& run) {
  if (m_is_mended) {
    return false;
  }
  if (!m_job.as_simulator) {
    VerilatorJob job = m_job;
    job.as_simulator = true;
    const VerilatorRun other = try_job(job);
    if (other.ok) {
      m_job = job;
      return true;
    }
  }
  return try_parameters(run) || try_order();
}

bool VerilogElaboration::try_parameters(const VerilatorRun& run) {
  const std::size_t errors = count_errors(run);
  for (std::size_t left_out = 0; left_out < m_job.parameters.size(); ++left_out) {
    VerilatorJob job = m_job;
    job.parameters.erase(job.parameters.begin() + static_cast<std::ptrdiff_t>(left_out));
    const VerilatorRun other = try_job(job);
    if (other.problem.empty() && count_errors(other) < errors) {
      const auto& [name, value] = m_job.parameters[left_out];
      const auto first = std::find_if(run.messages.begin(), run.messages.end(),
                                      [](const auto& message) { return message.is_error; });
      std::string text = "value '";
      text.append(value).append("' of parameter '").append(name);
      text.append("' does not elaborate: ").append(first->text);
      m_report.error("parameter", parameter_place(name), text);
      m_job = job;
      m_has_wrong_value = true;
      return true;
    }
  }
  return false;
}

// Files without a module (packages, macros, types) first, else all in reverse.
bool VerilogElaboration::try_order() {
  VerilatorJob job = m_job;
  std::stable_partition(job.files.begin(), job.files.end(), [this](const std::string& file) {
    const std::vector<RtlUnit> units =
        units_in(read_text(m_tree.real_path(file)), FileKind::verilog);
    return std::all_of(units.begin(), units.end(),
                       [](const RtlUnit& unit) { return unit.keyword == "package"; });
  });
  for (unsigned attempt = 0; attempt < 2; ++attempt) {
    if (job.files != m_job.files && try_job(job).ok) {
      m_job = job;
      m_is_reordered = true;
      return true;
    }
    job.files = m_job.files;
    std::reverse(job.files.begin(), job.files.end());
  }
  return false;
}

// The top without its body, and without the files that contain nothing but modules.
std::optional<Design> VerilogElaboration::read_ports_only() {
  const std::string file = file_with(m_job.top);
  const std::optional<std::size_t> index = m_tree.file_of(file);
  const std::string text =
      index ? without_body(read_text(m_tree.real_path(file)), m_job.top, FileKind::verilog) : "";
  if (text.empty() || !m_tree.replace(*index, text)) {
    return std::nullopt;
  }
  std::erase_if(m_job.files, [&](const std::string& other) {
    const std::vector<RtlUnit> units =
        units_in(read_text(m_tree.real_path(other)), FileKind::verilog);
    return other != file && !units.empty() &&
           std::all_of(units.begin(), units.end(),
                       [](const RtlUnit& unit) { return unit.keyword == "module"; });
  });
  VerilatorRun run = try_job(m_job);
  for (const VerilatorMessage& message : run.messages) {
    if (!run.ok && mend_parameters(message)) {
      run = try_job(m_job);
      break;
    }
  }
  if (!run.ok) {
    return std::nullopt;
  }
  if (!m_unknown_parameters.empty() || m_has_wrong_value) {
    set_nearest_parameters(run);
  }
  name_places(run.design);
  run.design.has_ports_only = true;
  return std::move(run.design);
}

// Runs again with the values of unknown parameters set on those that are probably meant, so that
// widths are those of the component.
void VerilogElaboration::set_nearest_parameters(VerilatorRun& run) {
  std::vector<std::string> free;
  for (const Parameter& parameter : run.design.parameters) {
    const bool is_set = std::any_of(m_job.parameters.begin(), m_job.parameters.end(),
                                    [&](const auto& set) { return set.first == parameter.name; });
    if (!is_set && !parameter.is_local) {
      free.push_back(parameter.name);
    }
  }
  VerilatorJob job = m_job;
  for (const auto& [name, value] : m_unknown_parameters) {
    const std::string nearest = nearest_name(name, free);
    if (!nearest.empty()) {
      job.parameters.emplace_back(nearest, value);
      std::erase(free, nearest);
    }
  }
  const bool is_all = job.parameters.size() == m_request.parameters.size();
  if (VerilatorRun other = is_all ? try_job(job) : VerilatorRun(); other.ok) {
    m_job = job;
    run = std::move(other);
  } else {
    run.design.has_other_parameters = true;
  }
}

Design VerilogElaboration::finish(VerilatorRun run) {
  if (!m_unknown_parameters.empty() || m_has_wrong_value) {
    set_nearest_parameters(run);
  }
  Design design = run.design;
  report_undriven(run);
  report_unknown_parameters(&design);
  if (m_is_reordered) {
    std::vector<std::string> order;
    for (const std::string& file : m_job.files) {
      order.push_back(place_of(file, 0).file);
    }
    report_order(m_request, order, m_report);
  }
  name_places(design);
  if (!m_report.has_errors()) {
    report_unneeded(run);
  }
  return design;
}

std::vector<std::string> VerilogElaboration::unit_names(bool packages) const {
  std::vector<std::string> names;
  for (const std::string& file : m_job.files) {
    for (const RtlUnit& unit : units_in(read_text(m_tree.real_path(file)), FileKind::verilog)) {
      if ((unit.keyword == "package") == packages) {
        names.push_back(unit.name);
      }
    }
  }
  return names;
}

std::string VerilogElaboration::file_with(const std::string& unit) const {
  for (const std::string& file : m_job.files) {
    for (const RtlUnit& found : units_in(read_text(m_tree.real_path(file)), FileKind::verilog)) {
      if (found.name == unit) {
        return file;
      }
    }
  }
  return "";
}

std::optional<Design> elaborate_verilog(const ElaborationRequest& request, Report& report) {
  return VerilogElaboration(request, report).run();
}

} // namespace bfcl::component
