// SPDX-License-Identifier: BSD-3-Clause
#include "yosys.h"

#include "design.h"
#include "process.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <fstream>
#include <sstream>

namespace bfcl::component {

namespace {

// Of processor time, so that the outcome does not depend on what else the machine does; the limit
// of run_tool is for a tool that hangs.
constexpr std::chrono::seconds READ_LIMIT{60};
constexpr std::chrono::seconds PROOF_LIMIT{3};
constexpr std::chrono::seconds SEARCH_LIMIT{20};

// Bytes of address space; the tools need some tens of megabytes for ordinary components.
constexpr std::size_t MEMORY_LIMIT = std::size_t{4} << 30;

constexpr std::array MODES = {HarnessMode::stream, HarnessMode::reset, HarnessMode::result,
                              HarnessMode::fill};

// The component once for all modes: ROMs are constants before the start values of registers are
// forgotten, and every register is a plain one.
constexpr const char* PREPARE = R"(
hierarchy -check -top bfcl_component
setundef -undriven -zero bfcl_component
proc
flatten
check
opt
memory_map
opt -full
async2sync
techmap
opt -fast
)";

// A second clock, or the falling edge, has no place in a graph whose step is one clock.
constexpr const char* LOWER = R"(
proc
flatten
opt -fast
techmap
opt -fast
dffunmap
simplemap
select -assert-none t:$_DFF_N_
select -assert-none t:$_DFF_P_ w:clock %co1:+$_DFF_P_[C] %d
setundef -zero
aigmap
opt_clean
)";

// Data of before reset is of no interest there, and known registers make proofs much faster.
constexpr const char* START_AT_ZERO = "zinit -all\n";

std::string read_command(const SealedTree& tree, const std::string& source) {
  const bool system_verilog = source.size() > 3 && source.compare(source.size() - 3, 3, ".sv") == 0;
  std::string command = "read_verilog -defer -DSYNTHESIS";
  command += system_verilog ? " -sv" : "";
  for (const std::string& folder : tree.folders()) {
    command += " -I" + folder;
  }
  return command + " " + source + "\n";
}

std::string script(const SealedTree& tree, const std::vector<std::string>& sources) {
  std::string text;
  for (const std::string& source : sources) {
    text += read_command(tree, source);
  }
  text += "read_verilog bfcl_component.v\n" + std::string(PREPARE);
  text += "read_verilog bfcl_harness.v\ndesign -save all\n";
  for (const HarnessMode mode : MODES) {
    const std::string number = std::to_string(static_cast<unsigned>(mode));
    text += "design -load all\n";
    text += mode == HarnessMode::reset ? "setattr -unset init bfcl_component/w:*\n" : "";
    text += "hierarchy -check -top bfcl_harness -chparam MODE " + number + LOWER;
    text += mode == HarnessMode::result ? START_AT_ZERO : "";
    const std::string file = graph_file(tree, mode);
    text.append("write_aiger -zinit -map ").append(file).append(".map ");
    text.append(file).append(".aig\n");
  }
  return text;
}

// Its one line that says what is wrong, without the folder of links.
std::string error_line(const SealedTree& tree, const ToolResult& result) {
  std::istringstream lines(result.errors + "\n" + result.output);
  std::string line;
  while (std::getline(lines, line)) {
    if (line.find("ERROR: ") != std::string::npos) {
      for (std::size_t at = 0; (at = line.find(tree.root() + "/")) != std::string::npos;) {
        line.erase(at, tree.root().size() + 1);
      }
      return line;
    }
  }
  return describe_failure("yosys", result);
}

// What yosys only warns of, and what makes any proof worthless.
std::string fatal_warning(const ToolResult& result) {
  for (const char* text : {"multiple conflicting drivers", "found logic loop"}) {
    if (result.errors.find(text) != std::string::npos) {
      return std::string("yosys: ") + text;
    }
  }
  return {};
}

ToolResult run_abc(const std::string& file, std::size_t output, const std::string& commands,
                   std::chrono::seconds limit) {
  // Signals that correspond are merged first: without that, comparing two results takes 20 times
  // as long.
  return run_tool({"yosys-abc", "-s", "-q",
                   "read_aiger " + file + ".aig; cone -s -O " + std::to_string(output) +
                       "; scleanup; scorr; " + commands},
                  "", DEFAULT_TIME_LIMIT, {MEMORY_LIMIT, limit});
}

// The number after a text of the tool's output.
std::optional<std::size_t> number_after(const std::string& output, const std::string& text) {
  const std::size_t at = output.find(text);
  if (at == std::string::npos) {
    return std::nullopt;
  }
  return std::strtoull(output.c_str() + at + text.size(), nullptr, 10);
}

// Words "piINPUT@CLOCK=1", in which the other inputs do not matter.
std::vector<std::vector<std::size_t>> read_inputs(const std::string& path, std::size_t clocks) {
  std::vector<std::vector<std::size_t>> high(clocks);
  std::ifstream file(path);
  std::string word;
  while (file >> word) {
    std::size_t input = 0;
    std::size_t clock = 0;
    int value = 0;
    if (std::sscanf(word.c_str(), "pi%zu@%zu=%d", &input, &clock, &value) == 3 && value == 1 &&
        clock < clocks) {
      high[clock].push_back(input);
    }
  }
  return high;
}

// The clocks that a search which was ended had looked at: it prints a line "CLOCK + : ..." for
// each.
std::size_t searched_clocks(const std::string& output) {
  std::size_t clocks = 0;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    clocks += line.find(" + : ") != std::string::npos ? 1 : 0;
  }
  return clocks;
}

Verdict search(const std::string& file, std::size_t output, const Effort& effort) {
  const std::string trace = file + "." + std::to_string(output) + ".trace";
  const ToolResult result = run_abc(
      file, output, "bmc3 -v -F " + std::to_string(effort.clocks) + "; write_cex -n -m " + trace,
      SEARCH_LIMIT);
  Verdict verdict;
  if (const auto frame = number_after(result.output, "was asserted in frame ")) {
    verdict.kind = Verdict::Kind::high;
    verdict.clocks = *frame + 1;
    verdict.high = read_inputs(trace, verdict.clocks);
  } else if (result.output.find("Explored all reachable states") != std::string::npos) {
    verdict.kind = Verdict::Kind::never;
  } else if (number_after(result.output, "No output asserted in ") == effort.clocks) {
    verdict.kind = Verdict::Kind::bounded;
    verdict.clocks = effort.clocks;
  } else {
    verdict.clocks = searched_clocks(result.output);
    verdict.problem = result.end == ToolResult::End::signalled && result.code == SIGKILL
                          ? "yosys-abc took too long"
                          : describe_failure("yosys-abc", result);
  }
  return verdict;
}

} // namespace

std::string graph_file(const SealedTree& tree, HarnessMode mode) {
  return tree.work() + "/mode" + std::to_string(static_cast<unsigned>(mode));
}

std::string make_graphs(const SealedTree& tree, const std::vector<std::string>& sources,
                        const vex::efi::EFIElem& elem, bool lower_case) {
  const std::string script_file = "bfcl_prove.ys";
  if (!tree.write("bfcl_component.v", MEMORY_MODEL + component_wrapper(elem, lower_case)) ||
      !tree.write("bfcl_harness.v", harness(elem)) ||
      !tree.write(script_file, script(tree, sources))) {
    return "cannot write a temporary file";
  }
  const ToolResult result = run_tool({"yosys", "-q", "-s", script_file}, tree.root(),
                                     DEFAULT_TIME_LIMIT, {MEMORY_LIMIT, READ_LIMIT});
  return result.ok() ? fatal_warning(result) : error_line(tree, result);
}

Verdict decide(const std::string& graph_file, std::size_t index, const Effort& effort) {
  if (effort.is_expected_high) {
    return search(graph_file, index, effort);
  }
  const ToolResult proof = run_abc(graph_file, index, "pdr", PROOF_LIMIT);
  Verdict verdict;
  if (proof.output.find("Property proved") != std::string::npos) {
    verdict.kind = Verdict::Kind::never;
    return verdict;
  }
  if (proof.end == ToolResult::End::not_started || proof.end == ToolResult::End::interrupted) {
    verdict.problem = describe_failure("yosys-abc", proof);
    return verdict;
  }
  Effort deeper = effort;
  if (const auto frame = number_after(proof.output, "was asserted in frame ")) {
    deeper.clocks = std::max(effort.clocks, *frame + 1);
  }
  return search(graph_file, index, deeper);
}

} // namespace bfcl::component
