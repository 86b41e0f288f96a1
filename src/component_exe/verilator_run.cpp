// SPDX-License-Identifier: BSD-3-Clause
#include "verilator_run.h"

#include <array>
#include <charconv>
#include <future>
#include <mutex>
#include <sstream>
#include <string_view>

namespace bfcl::component {

namespace {

constexpr unsigned OLDEST_VERSION = 5006; // 5.006, the first with --timing that we tried
constexpr unsigned FIRST_JSON_VERSION = 5022;
constexpr unsigned BROKEN_VERSION = 5042; // leaves output ports out

struct Version {
  unsigned number = 0; // 5006 for 5.006
  std::string problem; // why it does not fit, or empty
};

Version probe_version() {
  const ToolResult result = run_tool({"verilator", "--version"}, "", DEFAULT_TIME_LIMIT);
  Version version;
  unsigned major = 0;
  unsigned minor = 0;
  if (!result.ok()) {
    version.problem = describe_failure("verilator", result);
  } else if (std::sscanf(result.output.c_str(), "Verilator %4u.%3u", &major, &minor) != 2) {
    version.problem = "verilator does not say which version it is";
  } else if (version.number = major * 1000 + minor;
             version.number < OLDEST_VERSION || version.number == BROKEN_VERSION) {
    std::array<char, 96> text = {};
    std::snprintf(text.data(), text.size(), "verilator %u.%03u %s", major, minor,
                  version.number == BROKEN_VERSION
                      ? "leaves output ports out: another version is needed"
                      : "is too old: 5.006 or later is needed");
    version.problem = text.data();
  }
  return version;
}

// The version is asked for once, beside the first run: the question takes as long as a small run.
std::shared_future<Version> version_future() {
  static std::once_flag s_asked;
  static std::shared_future<Version> s_version;
  std::call_once(s_asked,
                 [] { s_version = std::async(std::launch::async, probe_version).share(); });
  return s_version;
}

std::vector<std::string> command_line(const SealedTree& tree, const VerilatorJob& job, bool json) {
  const std::string work = tree.work();
  std::vector<std::string> argv = {"verilator", "--Mdir", work + "/obj", "--top-module", job.top};
  if (json) {
    argv.insert(argv.end(), {"--json-only", "--json-only-output", work + "/netlist.json",
                             "--json-only-meta-output", work + "/meta.json"});
  } else {
    argv.insert(argv.end(), {"--xml-only", "--xml-output", work + "/netlist.xml"});
  }
  argv.insert(argv.end(), {"-Wno-fatal", "-Wno-lint", "-Wno-style", "-Wwarn-UNDRIVEN", "--timing",
                           "--bbox-sys", "--relative-includes", "--error-limit", "1000"});
  argv.insert(argv.end(), FUTURE_WARNINGS.begin(), FUTURE_WARNINGS.end());
  if (!job.as_simulator) {
    argv.insert(argv.end(), {"-UVERILATOR", "-DSYNTHESIS"});
  }
  for (const std::string& folder : tree.folders()) {
    argv.push_back("-I" + folder);
  }
  for (const auto& [name, value] : job.parameters) {
    argv.push_back(std::string("-G").append(name).append("=").append(value));
  }
  argv.insert(argv.end(), job.files.begin(), job.files.end());
  return argv;
}

// Reads "FILE:LINE:COLUMN: " off the front of a text. The names of a sealed tree have no colon.
bool take_place(std::string_view& text, std::string& file, unsigned& line, unsigned& column) {
  const std::size_t end = text.find(':');
  if (end == std::string_view::npos || end == 0) {
    return false;
  }
  unsigned number = 0;
  const char* const last = text.data() + text.size();
  const auto [after, error] = std::from_chars(text.data() + end + 1, last, number);
  if (error != std::errc() || after == last || *after != ':') {
    return false;
  }
  file = text.substr(0, end);
  line = number;
  text.remove_prefix(static_cast<std::size_t>(after - text.data()) + 1);
  const std::size_t blank = text.find(": "); // of the column
  if (blank != std::string_view::npos &&
      text.substr(0, blank).find_first_not_of("0123456789") == std::string_view::npos) {
    std::from_chars(text.data(), text.data() + blank, column);
    text.remove_prefix(blank + 1);
  }
  text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
  return true;
}

bool take_prefix(std::string_view& text, std::string_view prefix) {
  const bool found = text.substr(0, prefix.size()) == prefix;
  if (found) {
    text.remove_prefix(prefix.size());
  }
  return found;
}

// The second place of a message is on a line of its own below it.
void note_other_place(std::string_view line, VerilatorMessage& message) {
  line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
  std::string file;
  unsigned number = 0;
  unsigned column = 0;
  if (message.other_line == 0 && take_place(line, file, number, column) &&
      take_prefix(line, "... Location of")) {
    message.other_file = file;
    message.other_line = number;
  } else if (take_prefix(line, ": ... Suggested alternative: ")) {
    message.text += "; did you mean " + std::string(line) + "?";
  }
}

} // namespace

std::vector<VerilatorMessage> parse_verilator_messages(const std::string& text) {
  std::vector<VerilatorMessage> messages;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::string_view rest = line;
    VerilatorMessage message;
    message.is_error = take_prefix(rest, "%Error");
    if (!message.is_error && !take_prefix(rest, "%Warning")) {
      if (!messages.empty()) {
        note_other_place(rest, messages.back());
      }
      continue;
    }
    if (take_prefix(rest, "-")) {
      message.code = rest.substr(0, rest.find(':'));
      rest.remove_prefix(message.code.size());
    }
    if (!take_prefix(rest, ": ")) {
      continue;
    }
    take_place(rest, message.file, message.line, message.column);
    message.text = rest;
    messages.push_back(std::move(message));
  }
  return messages;
}

namespace {

// The tool's own end: a signal, an internal error, or an error without any message about the RTL.
std::string problem_of(const ToolResult& result, const std::vector<VerilatorMessage>& messages) {
  if (result.end != ToolResult::End::exited) {
    return describe_failure("verilator", result);
  }
  for (const VerilatorMessage& message : messages) {
    const bool is_internal = message.text.rfind("Internal Error", 0) == 0 ||
                             message.text.rfind("Invalid option", 0) == 0; // not what it says it is
    if (is_internal) {
      return "verilator failed by itself: " + message.text;
    }
    if (message.is_error && message.text.rfind("Exiting due to", 0) != 0 &&
        message.text.rfind("Command Failed", 0) != 0) {
      return ""; // an internal error behind it is its consequence
    }
  }
  return result.ok() ? "" : describe_failure("verilator", result);
}

} // namespace

VerilatorRun run_verilator(const SealedTree& tree, const VerilatorJob& job) {
  const std::shared_future<Version> asked = version_future();
  const bool is_known = asked.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
  bool json = is_known && asked.get().number >= FIRST_JSON_VERSION;
  VerilatorRun run;
  ToolResult result;
  if (!is_known || asked.get().problem.empty()) {
    result = run_tool(command_line(tree, job, json), tree.root());
  }
  const Version& version = asked.get();
  if (!version.problem.empty()) {
    run.problem = version.problem;
    return run;
  }
  if (!json && version.number >= FIRST_JSON_VERSION) { // only beside the question
    json = true;
    result = run_tool(command_line(tree, job, json), tree.root());
  }
  run.messages = parse_verilator_messages(result.errors);
  run.problem = problem_of(result, run.messages);
  run.ok = result.ok();
  run.design.top = job.top;
  const std::string output = tree.work();
  if (run.ok && !(json ? read_verilator_json(output + "/netlist.json", output + "/meta.json", run)
                       : read_verilator_xml(output + "/netlist.xml", tree.root(), run))) {
    run.ok = false;
    run.problem = "verilator's output cannot be read";
  }
  return run;
}

} // namespace bfcl::component
