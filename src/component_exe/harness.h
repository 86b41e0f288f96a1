// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "EFISpec.h"

#include <string>
#include <vector>

// The Verilog around a component in which its handshake is proved. It holds reset for
// RESET_CLOCKS, offers words and takes results at any time, keeps a refused word on offer, and
// answers memory requests in order at any time. Its outputs are the properties, high in a clock in
// which one is broken, and the signals that a trace shows.

namespace bfcl::component {

inline constexpr unsigned RESET_CLOCKS = 3;

// How the surroundings behave; the value of the harness's parameter MODE.
enum class HarnessMode : unsigned {
  stream, // anything that the handshake allows
  reset,  // words are offered during reset only, and registers start with any value
  result, // every word is one of two constants, and all memory reads the same
  fill,   // a word in every clock, no result is taken, memory answers at once
};

// A signal of a memory port as the trace shows it.
struct MemorySignal {
  std::string name;
  unsigned width = 0;
};

// The signals of memory port `index` of the component that the harness's output show_memory
// carries, the first in the lowest bits.
[[nodiscard]] std::vector<MemorySignal> memory_signals(const vex::efi::EFIElem& elem,
                                                       std::size_t index);

// The words in flight that the harness counts to: CAPACITY where it is declared.
[[nodiscard]] unsigned harness_capacity(const vex::efi::EFIElem& elem);

// Whether the compiler relies on CAPACITY: the component may stall, and it is known.
[[nodiscard]] bool has_capacity(const vex::efi::EFIElem& elem);

// After how many clocks without a word taken, in mode fill, the component counts as full.
[[nodiscard]] unsigned patience(const vex::efi::EFIElem& elem);

// The module bfcl_component, which wraps the component with its parameters and the memories, for a
// component whose port names are written as the description writes them or in lower case.
[[nodiscard]] std::string component_wrapper(const vex::efi::EFIElem& elem, bool lower_case);

// The module bfcl_harness around bfcl_component.
[[nodiscard]] std::string harness(const vex::efi::EFIElem& elem);

// The module of a memory behind one port, which component_wrapper instantiates.
extern const char* const MEMORY_MODEL;

} // namespace bfcl::component
