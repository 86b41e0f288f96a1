// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

// And-inverter graphs in the binary AIGER format, version 1, as yosys writes them: a design of
// inputs, latches that start at 0, two-input ANDs and outputs.

namespace bfcl::component {

class Aiger {
public:
  // Reads FILE.aig and FILE.map, in which yosys lists the names of the outputs; `file` has no
  // extension. False when one of them cannot be read or is damaged.
  [[nodiscard]] bool load(const std::string& file);

  // The index of bit 0 of an output vector among all outputs; empty when there is none.
  [[nodiscard]] std::optional<std::size_t> output(const std::string& name,
                                                  std::size_t bit = 0) const;

  // One clock: for each output vector its bits, the lowest first.
  using Clock = std::map<std::string, std::vector<bool>>;

  // The outputs in the clocks 0, 1, …, for inputs by clock and index that are high; all others are
  // low.
  [[nodiscard]] std::vector<Clock>
  simulate(const std::vector<std::vector<std::size_t>>& high) const;

private:
  struct And {
    unsigned left = 0; // literals: twice a variable, plus 1 when inverted
    unsigned right = 0;
  };

  [[nodiscard]] bool parse(const std::string& text);
  [[nodiscard]] bool parse_names(const std::string& text);

  std::size_t m_inputs = 0;
  std::vector<unsigned> m_next;    // literal of each latch
  std::vector<unsigned> m_outputs; // literals
  std::vector<And> m_ands;
  std::map<std::string, std::vector<std::size_t>> m_names; // outputs of each vector, bit 0 first
};

} // namespace bfcl::component
