// SPDX-License-Identifier: BSD-3-Clause
#include "measure.h"

#include "design.h"
#include "simulation.h"

#include <charconv>
#include <fstream>

namespace bfcl::component {

namespace {

// Prints the capacity and the latency, -1 when a single word has no result. Registers without a
// reset start with 0.
constexpr const char* MEASURING_PROGRAM = R"(#include "Vbfcl_bench.h"
#include "verilated.h"
#include <cstdio>
#include <cstdlib>

constexpr unsigned LIMIT = 4096;

void vl_finish(const char*, int, const char*) { std::_Exit(1); }
void vl_stop(const char*, int, const char*) { std::_Exit(1); }
void vl_fatal(const char*, int, const char*, const char*) { std::_Exit(1); }

struct Bench {
  VerilatedContext context;
  Vbfcl_bench top{&context};

  explicit Bench(bool takes_results) {
    top.resetn = 0;
    top.ivalid = 0;
    top.oready = takes_results;
    for (int i = 0; i < 16; ++i) {
      tick();
    }
    top.resetn = 1;
  }
  void tick() {
    settle();
    top.clock = 1;
    top.eval();
  }
  void settle() {
    top.clock = 0;
    top.eval();
  }
};

unsigned capacity() {
  Bench bench(false);
  unsigned taken = 0;
  for (unsigned i = 0; i < 2 * LIMIT; ++i) {
    bench.top.ivalid = 1;
    bench.settle();
    taken += bench.top.iready;
    bench.tick();
  }
  return taken;
}

int latency() {
  Bench bench(true);
  int clocks = 0;
  bool taken = false;
  for (unsigned i = 0; i < LIMIT; ++i) {
    bench.top.ivalid = !taken;
    bench.settle();
    const bool takes = !taken && bench.top.iready;
    if ((taken || takes) && bench.top.ovalid) {
      return clocks;
    }
    taken = taken || takes;
    clocks += taken;
    bench.tick();
  }
  return -1;
}

int main() {
  std::printf("%u %d\n", capacity(), latency());
}
)";

constexpr unsigned MAX_CAPACITY = 4096;
constexpr std::chrono::seconds RUN_TIME_LIMIT{20};

// An escaped identifier, which any port may have.
std::string connection(const std::string& port, const std::string& signal) {
  return "." + ("\\" + port) + " (" + signal + ")";
}

std::string bench_text(const MeasuredModule& module) {
  std::string parameters;
  for (const auto& [name, value] : module.parameters) {
    parameters += (parameters.empty() ? " #(" : ", ") + connection(name, value);
  }
  std::string ports;
  for (std::size_t i = 0; i < module.signals.size(); ++i) {
    ports += (i == 0 ? "" : ", ") + connection(module.signals[i], vex::efi::VRM_SIGNAL_NAME[i]);
  }
  for (const std::string& input : module.inputs) {
    ports += ", " + connection(input, "'0");
  }
  return "module bfcl_bench (\n  input logic clock, resetn, ivalid, oready,\n"
         "  output logic iready, ovalid);\n  \\" +
         module.name + " " + parameters + (parameters.empty() ? "" : ") ") + "component (" + ports +
         ");\nendmodule\n";
}

bool write_file(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary);
  file << text;
  return file.flush().good();
}

std::optional<Measurement> parse(const std::string& text) {
  Measurement result;
  const char* end = text.data() + text.size();
  const auto capacity = std::from_chars(text.data(), end, result.capacity);
  int latency = 0;
  if (capacity.ec != std::errc() || capacity.ptr == end ||
      std::from_chars(capacity.ptr + 1, end, latency).ec != std::errc() ||
      result.capacity > MAX_CAPACITY) {
    return std::nullopt;
  }
  if (latency >= 0) {
    result.latency = static_cast<unsigned>(latency);
  }
  return result;
}

} // namespace

std::optional<Measurement> measure_module(const MeasuredModule& module) {
  SealedTree tree;
  RuntimeObjects objects;
  if (!tree.create(module.files) || !write_file(tree.work() + "/component.sv", module.text) ||
      !write_file(tree.work() + "/bfcl_bench.sv", bench_text(module)) ||
      !write_file(tree.work() + "/bench.cpp", MEASURING_PROGRAM)) {
    return std::nullopt;
  }
  std::vector<std::string> sources;
  for (std::size_t i = 0; i < module.files.size(); ++i) {
    if (file_kind(module.files[i]) == FileKind::verilog && !tree.name(i).empty()) {
      sources.push_back(tree.name(i));
    }
  }
  sources.push_back(tree.work() + "/component.sv");
  if (!build_bench(tree, sources, false, objects).empty()) {
    return std::nullopt;
  }
  const ToolResult run =
      run_tool({tree.work() + "/bench/Vbfcl_bench"}, tree.root(), RUN_TIME_LIMIT);
  return run.ok() ? parse(run.output) : std::nullopt;
}

} // namespace bfcl::component
