// SPDX-License-Identifier: BSD-3-Clause
#include "simulation.h"

#include "description.h"
#include "process.h"
#include "verilator_run.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <thread>

namespace bfcl::component {

namespace {

namespace fs = std::filesystem;
using vex::efi::EFIElem;

constexpr std::chrono::seconds BUILD_TIME_LIMIT{300};
constexpr std::chrono::seconds RUN_TIME_LIMIT{300};

// A name as a Verilog identifier, escaped unless it is a plain one. (An escaped one may be a
// keyword too.)
std::string identifier(const std::string& name) {
  return "\\" + name + " ";
}

std::string vector_type(std::size_t bits) {
  return "logic [" + std::to_string(std::max<std::size_t>(bits, 1) - 1) + ":0] ";
}

// The ports of bfcl_bench and the connections of the component in it.
class Wiring {
public:
  explicit Wiring(const SimulationJob& job) : m_job(job) {}

  void connect(const std::string& port, const std::string& signal) {
    const Port* found = m_job.design.find_port(port);
    add(m_connections,
        "." + identifier(found != nullptr ? found->name : port) + "(" + signal + ")");
  }

  void declare(const std::string& declaration) { add(m_declarations, declaration); }

  // A signal of a memory port, when the module has it. Records its width in bits.
  void connect_memory(const std::string& port, const char* signal, bool is_input,
                      std::size_t index) {
    const Port* found = m_job.design.find_port(port + "_" + signal);
    if (found != nullptr) {
      const std::string name = memory_signal(index, signal);
      declare((is_input ? "input " : "output ") + vector_type(found->width) + name);
      connect(port + "_" + signal, name);
    }
  }

  [[nodiscard]] const std::string& connections() const { return m_connections; }
  [[nodiscard]] const std::string& declarations() const { return m_declarations; }

  static std::string memory_signal(std::size_t index, const char* signal) {
    return "m" + std::to_string(index) + "_" + signal;
  }

private:
  static void add(std::string& list, const std::string& item) {
    list += (list.empty() ? "" : ",\n    ") + item;
  }

  const SimulationJob& m_job;
  std::string m_connections, m_declarations;
};

// The signals of a memory port, for each optype and for both, in the order of the bench's
// MemorySignals.
struct MemorySignal {
  const char* name;
  bool is_input;
  bool of_reads;
  bool of_writes;
};

constexpr MemorySignal MEMORY_SIGNALS[] = {
    {"waitrequest", true, true, true},  {"address", false, true, true},
    {"burstcount", false, true, true},  {"read", false, true, false},
    {"readdata", true, true, false},    {"readdatavalid", true, true, false},
    {"write", false, false, true},      {"writedata", false, false, true},
    {"byteenable", false, false, true}, {"writeack", true, false, true},
};

bool belongs(const MemorySignal& signal, bool writes) {
  return writes ? signal.of_writes : signal.of_reads;
}

std::string parameter_list(const SimulationJob& job) {
  if (job.design.ignores_case) {
    return ""; // ghdl applied them
  }
  std::map<std::string, std::string> values; // the last of a name counts
  for (std::size_t i = 0; i < job.component.m_parameter_names.size(); ++i) {
    values[job.component.m_parameter_names[i]] = job.component.m_parameter_values[i];
  }
  std::string text;
  for (const auto& [name, value] : values) {
    text += (text.empty() ? " #(" : ", ") + ("." + identifier(name)) + "(" + value + ")";
  }
  return text.empty() ? "" : text + ")";
}

void connect_inputs(const SimulationJob& job, Wiring& wiring) {
  std::size_t bit = 0;
  for (const CallInput& input : job.calls.inputs) {
    if (input.bytes != 0) {
      wiring.connect(input.name,
                     "in[" + std::to_string(bit) + " +: " + std::to_string(8 * input.bytes) + "]");
    }
    bit += 8 * input.bytes;
  }
  wiring.declare("input " + vector_type(bit) + "in");
}

void connect_memories(const SimulationJob& job, Wiring& wiring) {
  for (std::size_t i = 0; i < job.component.m_mem_port_names.size(); ++i) {
    for (const MemorySignal& signal : MEMORY_SIGNALS) {
      if (belongs(signal, job.component.m_mem_port_optypes[i] == "write")) {
        wiring.connect_memory(job.component.m_mem_port_names[i], signal.name, signal.is_input, i);
      }
    }
  }
}

std::string memory_entry(const SimulationJob& job, std::size_t index) {
  const std::string& port = job.component.m_mem_port_names[index];
  const bool writes = job.component.m_mem_port_optypes[index] == "write";
  std::string text = "      {\"" + port + "\", " + (writes ? "true" : "false");
  for (const MemorySignal& signal : MEMORY_SIGNALS) {
    const Port* found = job.design.find_port(port + "_" + signal.name);
    const bool present = found != nullptr && belongs(signal, writes);
    text += present ? ", signal(top." + Wiring::memory_signal(index, signal.name) + ", " +
                          std::to_string(found->width) + ")"
                    : ", Signal{}";
  }
  return text + "},\n";
}

std::string pointer_entries(const Calls& calls) {
  std::string text;
  std::size_t offset = 0;
  for (const CallInput& input : calls.inputs) {
    if (input.is_pointer) {
      text += "{\"" + input.name + "\", " + std::to_string(offset) + "}, ";
    }
    offset += input.bytes;
  }
  return text;
}

std::string first_calls(const Calls& calls) {
  std::string text;
  for (const std::size_t first : calls.first) {
    text += std::to_string(first) + ", ";
  }
  return text;
}

void write_file(const std::string& path, const std::string& text, bool& good) {
  std::ofstream file(path, std::ios::binary);
  file << text;
  good = file.flush().good() && good;
}

// Copies what there is; make builds the others.
void copy_objects(const fs::path& from, const fs::path& to) {
  std::error_code error;
  fs::create_directories(to, error);
  for (const char* name : {"verilated.o", "verilated_threads.o", "verilated_fst_c.o"}) {
    fs::copy_file(from / name, to / name, fs::copy_options::skip_existing, error);
  }
}

// What the compiler does not optimise takes a third of the time; only the component's logic is
// executed often enough to gain.
std::vector<std::string> verilator_command(const SealedTree& tree,
                                           const std::vector<std::string>& sources, bool waves,
                                           bool as_simulator) {
  const std::string work = tree.work();
  std::vector<std::string> argv = {
      "verilator",
      "--cc",
      "--exe",
      "--build",
      "--Mdir",
      work + "/bench",
      "--prefix",
      "Vbfcl_bench",
      "--top-module",
      "bfcl_bench",
      "--x-initial",
      "unique",
      "--x-assign",
      "unique",
      "--no-timing",
      "--bbox-sys",
      "--relative-includes",
      "-Wno-fatal",
      "-Wno-lint",
      "-Wno-style",
      "--build-jobs",
      std::to_string(std::max(1U, std::thread::hardware_concurrency())),
      "-CFLAGS",
      "-DVL_USER_FINISH -DVL_USER_STOP -DVL_USER_FATAL",
      "-MAKEFLAGS",
      "OPT_FAST=-O1 OPT_SLOW=-O0 OPT_GLOBAL=-O0"};
  argv.insert(argv.end(), FUTURE_WARNINGS.begin(), FUTURE_WARNINGS.end());
  if (!as_simulator) {
    argv.insert(argv.end(), {"-UVERILATOR", "-DSYNTHESIS"});
  }
  if (waves) {
    argv.insert(argv.end(), {"--trace-fst", "--trace-structs"});
  }
  for (const std::string& folder : tree.folders()) {
    argv.push_back("-I" + folder);
  }
  argv.insert(argv.end(), sources.begin(), sources.end());
  argv.push_back(work + "/bfcl_bench.sv");
  argv.push_back(work + "/bench.cpp");
  return argv;
}

} // namespace

std::string bench_module(const SimulationJob& job) {
  const EFIElem& component = job.component;
  Wiring wiring(job);
  wiring.declare("input logic clock, resetn, ivalid, oready");
  wiring.declare("output logic iready, ovalid");
  for (std::size_t i = 0; i < vex::efi::VRM_SIGNAL_NAME.size(); ++i) {
    wiring.connect(component.m_signal_ports[i], vex::efi::VRM_SIGNAL_NAME[i]);
  }
  connect_inputs(job, wiring);
  wiring.declare("output " + vector_type(component.m_output_width) + "out");
  if (!component.m_output_name.empty()) {
    wiring.connect(component.m_output_name, "out");
  }
  connect_memories(job, wiring);
  return "module bfcl_bench (\n    " + wiring.declarations() + ");\n  " +
         identifier(job.design.top) + parameter_list(job) + " component (\n    " +
         wiring.connections() + ");\nendmodule\n";
}

std::string bench_header(const SimulationJob& job) {
  const EFIElem& component = job.component;
  const auto yes_no = [](bool value) { return value ? "true" : "false"; };
  const auto number = [](int value) { return value != vex::efi::NOT_SET ? value : 0; };
  std::ostringstream text;
  text << "#pragma once\n#include \"Vbfcl_bench.h\"\n"
       << "constexpr bool STALL_FREE = " << yes_no(component.m_is_stall_free.value) << ";\n"
       << "constexpr bool FIXED_LATENCY = " << yes_no(component.m_is_fixed_latency.value) << ";\n"
       << "constexpr bool CAPACITY_GIVEN = " << yes_no(job.capacity_given) << ";\n"
       << "constexpr std::uint64_t LATENCY = " << number(component.m_latency) << ";\n"
       << "constexpr std::size_t CAPACITY = " << number(component.m_capacity) << ";\n"
       << "constexpr std::size_t INPUT_BYTES = " << job.calls.argument_bytes << ";\n"
       << "constexpr std::size_t OUTPUT_BYTES = " << component.m_output_width / 8 << ";\n"
       << "constexpr std::size_t FLOAT_BYTES = " << job.float_bytes << ";\n"
       << "constexpr std::uint64_t MEMORY_BASE = " << MEMORY_BASE << ";\n"
       << "constexpr std::size_t PAGE_BYTES = " << PAGE_BYTES << ";\n"
       << "constexpr std::size_t PAGE_STRIDE = " << PAGE_STRIDE << ";\n"
       << "constexpr std::size_t PAGES = " << job.calls.pages << ";\n"
       << "constexpr std::size_t FIRST_WRITABLE_PAGE = " << job.calls.first_writable_page << ";\n"
       << "constexpr std::size_t FIRST_CALLS[] = {" << first_calls(job.calls) << "};\n"
       << "inline const std::vector<Pointer> POINTERS = {" << pointer_entries(job.calls) << "};\n"
       << "inline std::vector<MemorySignals> memory_signals([[maybe_unused]] Vbfcl_bench& top) {\n"
       << "  return {\n";
  for (std::size_t i = 0; i < component.m_mem_port_names.size(); ++i) {
    text << memory_entry(job, i);
  }
  text << "  };\n}\n";
  return text.str();
}

SimulationOutcome parse_outcome(const std::string& text) {
  SimulationOutcome outcome;
  outcome.problem = "the simulation wrote no outcome";
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    std::istringstream fields(line);
    if (line.rfind("done ", 0) == 0) {
      std::string word;
      fields >> word >> outcome.answered >> outcome.wrote_burst;
      outcome.problem.clear();
      continue;
    }
    SimulationFinding finding;
    long long call = -1;
    fields.ignore(0);
    std::getline(fields, finding.rule, '\t');
    fields >> call >> finding.clock;
    fields.ignore(1);
    std::getline(fields, finding.phase, '\t');
    std::getline(fields, finding.text);
    if (call >= 0) {
      finding.call = static_cast<std::size_t>(call);
    }
    outcome.findings.push_back(std::move(finding));
  }
  return outcome;
}

bool write_bench(const SimulationJob& job, const SealedTree& tree) {
  const std::string work = tree.work();
  bool good = true;
  write_file(work + "/bfcl_bench.sv", bench_module(job), good);
  write_file(work + "/component.h", bench_header(job), good);
  for (const auto& [name, text] : BENCH_SOURCES) {
    write_file(work + "/" + name, text, good);
  }
  return good;
}

namespace {

// The first error, which the others mostly follow from.
std::string describe_build(const SealedTree& tree, const ToolResult& result) {
  for (const VerilatorMessage& message : parse_verilator_messages(result.errors)) {
    if (result.end == ToolResult::End::exited && message.is_error && message.line != 0) {
      return "verilator: " + tidy_path(tree.real_path(message.file)) + ":" +
             std::to_string(message.line) + ": " + message.text;
    }
  }
  return describe_failure("verilator", result);
}

} // namespace

std::string build_bench(const SealedTree& tree, const std::vector<std::string>& sources, bool waves,
                        RuntimeObjects& objects) {
  const std::string build = tree.work() + "/bench";
  copy_objects(objects.folder.path(), build);
  // Sources may differ for simulators; `check` elaborates them as synthesis does, if it can.
  ToolResult result;
  for (const bool as_simulator : {false, true}) {
    result = run_tool(verilator_command(tree, sources, waves, as_simulator), tree.root(),
                      BUILD_TIME_LIMIT);
    if (result.ok() || result.end != ToolResult::End::exited) {
      break;
    }
  }
  copy_objects(build, objects.folder.path());
  return result.ok() ? "" : describe_build(tree, result);
}

SimulationOutcome run_bench(const SealedTree& tree, const std::string& folder, std::uint64_t seed,
                            bool ack_words, const std::string& waves) {
  std::vector<std::string> argv = {tree.work() + "/bench/Vbfcl_bench", folder, std::to_string(seed),
                                   ack_words ? "word" : "burst"};
  if (!waves.empty()) {
    argv.push_back(waves);
  }
  const ToolResult result = run_tool(argv, tree.root(), RUN_TIME_LIMIT);
  if (!result.ok()) {
    SimulationOutcome outcome;
    outcome.problem = describe_failure("the simulation", result);
    return outcome;
  }
  std::ifstream file(folder + "/outcome.txt");
  std::ostringstream text;
  text << file.rdbuf();
  return parse_outcome(text.str());
}

} // namespace bfcl::component
