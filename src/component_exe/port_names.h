// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "design.h"

#include <string>

// What the usual names of ports mean.

namespace bfcl::component {

enum class Word {
  data, // nothing that is known
  clock,
  reset,
  clear,  // a reset, or a second one
  enable, // of the clock
  valid,
  ready,
  start,
  done,
  write, // of a queue or a memory
  read,
  mark,   // of a packet's first or last word
  mask,   // of a word's bytes
  side,   // what travels beside a packet
  test,   // of the chip, not of the function
  status, // of a queue
  pin,    // of the device
  bus,    // of a memory bus
};

struct PortName {
  Word word = Word::data;
  bool low = false; // it means the word while it is low, as "rst_n" and "full", which is not ready
  std::string stem; // what is left of the name: valid and ready of one channel share it
  const char* bus = nullptr; // the kind of bus
};

// Reads a name such as "s_axis_a_tvalid", "rst_ni" or "iValid". Knows whole names as well as words
// joined by "_" or by capitals, with or without marks of direction.
[[nodiscard]] PortName read_port_name(const std::string& name, Direction direction);

} // namespace bfcl::component
