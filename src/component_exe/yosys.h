// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "aiger.h"
#include "harness.h"
#include "sealed_tree.h"

#include <string>
#include <vector>

// yosys reads the RTL and makes an and-inverter graph of it and its harness; yosys-abc, which comes
// with yosys, decides properties of the graph.

namespace bfcl::component {

// Paths of the files that yosys writes, without extension, for a mode.
[[nodiscard]] std::string graph_file(const SealedTree& tree, HarnessMode mode);

// Makes the graphs of all modes from the listed sources below the tree's root, in which the
// harness's files are written. Empty when all is well, otherwise why not, as one line.
[[nodiscard]] std::string make_graphs(const SealedTree& tree,
                                      const std::vector<std::string>& sources,
                                      const vex::efi::EFIElem& elem, bool lower_case);

// What is known of an output of a graph.
struct Verdict {
  enum class Kind {
    never,     // it is low in every clock, forever
    bounded,   // it is low in the first `clocks` clocks
    high,      // it is high in clock `clocks` - 1, and never before
    undecided, // it is low in the first `clocks` clocks, fewer than were asked for; `problem` says
               // why
  };
  Kind kind = Kind::undecided;
  std::size_t clocks = 0;
  std::string problem;
  std::vector<std::vector<std::size_t>> high; // inputs by clock, when the output becomes high
};

struct Effort {
  std::size_t clocks = 0;        // to look at when there is no proof of all
  bool is_expected_high = false; // a proof is not tried
};

// Decides whether output `index` of a graph can become high. Thread-safe.
[[nodiscard]] Verdict decide(const std::string& graph_file, std::size_t index,
                             const Effort& effort);

} // namespace bfcl::component
