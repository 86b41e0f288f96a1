// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <string>
#include <vector>

// A table of signals by clock.

namespace bfcl::component {

struct TraceColumn {
  std::string name;
  std::vector<std::vector<bool>> values; // of each clock: bits, the lowest first
};

// One line for each clock, in hexadecimal: first the clocks of reset, then those that count from 1.
// Of a wide signal, the eight digits with the lowest bit that differs between two clocks, the last
// two if possible. More than three equal lines become one. At most about 96 columns wide: names are
// cut.
[[nodiscard]] std::string trace_table(const std::vector<TraceColumn>& columns,
                                      std::size_t reset_clocks);

} // namespace bfcl::component
