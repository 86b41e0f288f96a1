// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "EFISpec.h"
#include "calls.h"
#include "design.h"
#include "sealed_tree.h"

#include <optional>
#include <string>
#include <vector>

// The RTL of a component, simulated by verilator in the test bench of bench/.

namespace bfcl::component {

// A source of the test bench, which the program contains.
struct BenchSource {
  const char* name;
  const char* text;
};
extern const std::vector<BenchSource> BENCH_SOURCES;

struct SimulationJob {
  const vex::efi::EFIElem& component;
  const Design& design; // of its top module
  const Calls& calls;
  bool capacity_given = false; // in the description, rather than assumed by the loader
  std::size_t float_bytes = 0; // of an element of a floating result; 0 for any other
};

// The module bfcl_bench, which contains the component and has the ports that the bench expects:
// all inputs as one, the outputs of memory port i as m<i>_SIGNAL, and so on.
[[nodiscard]] std::string bench_module(const SimulationJob& job);

// component.h of the bench: sizes, timing and the signals of the memory ports.
[[nodiscard]] std::string bench_header(const SimulationJob& job);

// What the bench found out. A call is an index into Calls, or empty.
struct SimulationFinding {
  std::string rule;
  std::optional<std::size_t> call;
  unsigned long long clock = 0;
  std::string phase; // such as "with gaps in the input"
  std::string text;
};

struct SimulationOutcome {
  std::vector<SimulationFinding> findings;
  std::size_t answered = 0; // calls
  bool wrote_burst = false; // of several words
  std::string problem;      // why it could not be simulated; or empty
};

// The bench's outcome.txt.
[[nodiscard]] SimulationOutcome parse_outcome(const std::string& text);

// Writes the bench for a component to the tree's work folder; false when that fails.
[[nodiscard]] bool write_bench(const SimulationJob& job, const SealedTree& tree);

// The object files of verilator's runtime, which are the same for all components: they take half of
// the time of a build, so the first of a run of the command keeps them for the others.
struct RuntimeObjects {
  TempFolder folder;
};

// Compiles the bench and the sources, which are Verilog below the root of the tree. Returns what
// went wrong, or nothing.
[[nodiscard]] std::string build_bench(const SealedTree& tree,
                                      const std::vector<std::string>& sources, bool waves,
                                      RuntimeObjects& objects);

// Runs it on the files that the calls and the C model left in `folder`. `waves` is empty or a path.
// `ack_words`: a writeack is for each word of a burst, not for the burst.
[[nodiscard]] SimulationOutcome run_bench(const SealedTree& tree, const std::string& folder,
                                          std::uint64_t seed, bool ack_words,
                                          const std::string& waves);

} // namespace bfcl::component
