// SPDX-License-Identifier: BSD-3-Clause
#include "finding.h"

#include <algorithm>
#include <utility>

#include <nlohmann/json.hpp>

namespace bfcl::component {

const std::vector<Rule> RULES = {
    {"description", "The specification library refuses the description"},
    {"top-missing", "The module of a FUNCTION is in none of the listed files"},
    {"module-missing",
     "An instantiated module, a package or a unit is in none of the listed files"},
    {"module-twice", "Two listed files define one module"},
    {"file-missing", "A listed file does not exist"},
    {"file-order", "The listed files work in another order only"},
    {"file-unneeded", "No module needs the listed file"},
    {"file-extension", "The listed file has an extension that packaging refuses"},
    {"file-twice", "A file is listed twice"},
    {"include-missing", "An included file does not exist"},
    {"include-unlisted", "An included file is not listed"},
    {"data-unlisted", "A data file that the RTL reads is not listed"},
    {"port-missing", "The module lacks a port of the description"},
    {"port-direction", "A port has another direction than the description says"},
    {"port-width", "A port has another width than the description says"},
    {"port-kind", "A port of the module is of a kind that no component can have"},
    {"port-undriven", "Nothing drives an output of the module, or what outputs may depend on"},
    {"port-extra", "The module has a port that the description does not name"},
    {"mem-missing", "The module lacks all signals of a memory port"},
    {"mem-signal", "The module lacks a signal of a memory port"},
    {"parameter", "A parameter of the description does not fit the module"},
    {"model", "The C model is no valid OpenCL C, or models contradict each other"},
    {"model-missing", "No C model defines the function"},
    {"model-arguments", "The C model has another number of arguments"},
    {"model-type", "An argument of the C model has another type than the description says"},
    {"model-result", "The result of the C model has another type than the OUTPUT"},
    {"model-include", "The C model includes a file, which extraction does not follow"},
    {"module-conflict", "Two components define one module differently"},
    {"question", "The module's ports can be taken for more than one thing"},
    {"unfit", "The module has a port that no wrapper can fit to a component"},
    {"hdl", "Another error of the tool that elaborates the RTL"},
    {"reset", "The module gives results or asks memory before it takes a word after reset"},
    {"latency", "A result comes after another time than EXPECTED_LATENCY"},
    {"capacity", "The module holds more or fewer words than CAPACITY"},
    {"handshake", "A word is lost, invented or changes while it has to wait"},
    {"memory",
     "The module breaks the protocol of a memory port, or writes what the C model does not"},
    {"result", "A result is not that of the C model, or depends on more than its inputs"},
};

namespace {

using nlohmann::ordered_json;

const char* name_of(Severity severity) {
  return severity == Severity::error ? "error" : "warning";
}

// File names are paths, and the format wants URIs.
std::string as_uri(const std::string& path) {
  constexpr const char* digits = "0123456789ABCDEF";
  const std::string kept = "-._~/";
  std::string uri;
  for (const char character : path) {
    const auto byte = static_cast<unsigned char>(character);
    const bool plain = (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') ||
                       (byte >= 'a' && byte <= 'z') || kept.find(character) != std::string::npos;
    if (plain) {
      uri += character;
    } else {
      uri += {'%', digits[byte / 16], digits[byte % 16]};
    }
  }
  return uri;
}

ordered_json rules_as_sarif() {
  ordered_json rules = ordered_json::array();
  for (const Rule& rule : RULES) {
    rules.push_back({{"id", rule.id}, {"shortDescription", {{"text", rule.description}}}});
  }
  return rules;
}

ordered_json as_sarif(const Finding& finding) {
  ordered_json location = {{"artifactLocation", {{"uri", as_uri(finding.place.file)}}}};
  if (finding.place.line != 0) {
    location["region"] = {{"startLine", finding.place.line}};
  }
  const ordered_json place = {{"physicalLocation", location}};
  const std::string details = finding.details.empty() ? "" : "\n" + finding.details;
  return {{"ruleId", finding.rule},
          {"level", name_of(finding.severity)},
          {"message", {{"text", finding.text + details}}},
          {"locations", ordered_json::array({place})}};
}

} // namespace

Finding& Report::error(const char* rule, Place place, std::string text, std::string details) {
  return m_findings.emplace_back(
      Finding{std::move(place), Severity::error, rule, std::move(text), std::move(details)});
}

void Report::warning(const char* rule, Place place, std::string text) {
  m_findings.push_back({std::move(place), Severity::warning, rule, std::move(text)});
}

void Report::cannot_check(const std::string& subject, std::string text) {
  m_problems.push_back({subject, std::move(text)});
}

void Report::note(const std::string& subject, std::string text) {
  m_notes.push_back({subject, std::move(text)});
}

void Report::withdraw(const std::string& rule, const std::string& text) {
  std::erase_if(m_findings, [&](const Finding& finding) {
    return finding.rule == rule && finding.text.starts_with(text);
  });
}

void Report::join_widths() {
  std::vector<Finding> joined;
  for (Finding& port : m_findings) {
    const std::size_t end =
        port.rule == "port-width" ? port.text.find(", but must") : std::string::npos;
    for (const Finding& model : m_findings) {
      if (end != std::string::npos && model.rule.starts_with("model-") && model.bits != 0 &&
          model.bits == port.bits && model.element == port.element) {
        port.text.insert(end,
                         " and in " + model.place.file + ":" + std::to_string(model.place.line));
        joined.push_back(model);
        break;
      }
    }
  }
  std::erase_if(m_findings, [&](const Finding& finding) {
    return std::find(joined.begin(), joined.end(), finding) != joined.end();
  });
}

void Report::merge(Report other) {
  std::move(other.m_findings.begin(), other.m_findings.end(), std::back_inserter(m_findings));
  std::move(other.m_notes.begin(), other.m_notes.end(), std::back_inserter(m_notes));
  std::move(other.m_problems.begin(), other.m_problems.end(), std::back_inserter(m_problems));
}

bool Report::has_errors() const {
  return std::any_of(m_findings.begin(), m_findings.end(),
                     [](const Finding& finding) { return finding.severity == Severity::error; });
}

int Report::status() const {
  if (!m_problems.empty()) {
    return STATUS_NOT_CHECKED;
  }
  return has_errors() ? STATUS_ERROR : STATUS_OK;
}

void Report::sort() {
  std::sort(m_findings.begin(), m_findings.end());
  m_findings.erase(std::unique(m_findings.begin(), m_findings.end()), m_findings.end());
}

void Report::print_problems() const {
  for (const auto& [subject, text] : m_problems) {
    std::fprintf(stderr, "bfcl-component: %s: %s\n", subject.c_str(), text.c_str());
  }
}

void Report::print() {
  sort();
  for (const Finding& finding : m_findings) {
    const Place& place = finding.place;
    const std::string line = place.line != 0 ? ":" + std::to_string(place.line) : "";
    std::printf("%s%s: %s: %s [%s]\n%s", place.file.c_str(), line.c_str(),
                name_of(finding.severity), finding.text.c_str(), finding.rule.c_str(),
                finding.details.c_str());
  }
  for (const auto& [subject, text] : m_notes) {
    std::printf("%s: %s\n", subject.c_str(), text.c_str());
  }
  std::fflush(stdout);
  print_problems();
}

void Report::print_sarif(const std::string& command) {
  sort();
  ordered_json results = ordered_json::array();
  for (const Finding& finding : m_findings) {
    results.push_back(as_sarif(finding));
  }
  ordered_json notifications = ordered_json::array();
  for (const auto& [subject, text] : m_problems) {
    notifications.push_back(
        {{"level", "error"},
         {"message", {{"text", std::string(subject).append(": ").append(text)}}}});
  }
  const ordered_json driver = {{"name", "bfcl component " + command}, {"rules", rules_as_sarif()}};
  const ordered_json run = {
      {"tool", {{"driver", driver}}},
      {"invocations", ordered_json::array({{{"executionSuccessful", m_problems.empty()},
                                            {"toolExecutionNotifications", notifications}}})},
      {"results", results}};
  const ordered_json document = {{"$schema", "https://json.schemastore.org/sarif-2.1.0.json"},
                                 {"version", "2.1.0"},
                                 {"runs", ordered_json::array({run})}};
  // Tools print bytes that need not be UTF-8.
  const auto handler = ordered_json::error_handler_t::replace;
  std::printf("%s\n", document.dump(2, ' ', false, handler).c_str());
  std::fflush(stdout);
  print_problems();
}

} // namespace bfcl::component
