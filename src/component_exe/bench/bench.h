// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include "random.h"

#include <algorithm>
#include <cinttypes>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

// What the parts of the test bench share.

using Bytes = std::vector<unsigned char>;

// A port of the verilated model: its bits, lowest byte first, as this machine stores them.
struct Signal {
  unsigned char* data;
  std::size_t bits;

  std::size_t bytes() const { return (bits + 7) / 8; }
  std::uint64_t number() const {
    std::uint64_t value = 0;
    std::memcpy(&value, data, std::min(bytes(), sizeof value));
    return value;
  }
  // Every bit above `bits` stays 0, as the model expects.
  void set(std::uint64_t value) const {
    std::memset(data, 0, bytes());
    std::memcpy(data, &value, std::min(bytes(), sizeof value));
    mask();
  }
  void set(const unsigned char* value) const {
    std::memcpy(data, value, bytes());
    mask();
  }
  void set(Random& random) const {
    random.fill(data, bytes());
    mask();
  }
  void mask() const {
    if (bits % 8 != 0) {
      data[bytes() - 1] = static_cast<unsigned char>(data[bytes() - 1] & ((1U << bits % 8) - 1));
    }
  }
};

template <typename Port>
Signal signal(Port& port, std::size_t bits) {
  return {reinterpret_cast<unsigned char*>(&port), bits};
}

struct MemorySignals {
  const char* name;
  bool writes;
  Signal waitrequest, address, burstcount;       // of both
  Signal read, readdata, readdatavalid;          // of a port that reads
  Signal write, writedata, byteenable, writeack; // of one that writes
};

// A pointer among the inputs: where its address is in a call's arguments.
struct Pointer {
  const char* name;
  std::size_t offset;
};

enum class Speed { fast, slow, mixed };

// How the calls of one phase are made.
struct Phase {
  const char* name;
  bool gaps;           // in the input
  bool stalls;         // of the output
  bool fill_first;     // hold the output back until the component takes no more
  bool reset_again;    // reset it then, and begin anew
  bool valid_in_reset; // ivalid is high while resetn is low
  Speed memory;
};

// The files that simulate and the C model wrote.
struct Files {
  Bytes arguments, results, memory_before, memory_after;
};

// What the parts of the bench know about the phase that is running.
struct Run {
  const Files& files;
  const Phase& phase;
  bool ack_words; // a writeack for each word of a burst
  std::FILE* outcome;
  Random random;
  Bytes memory = {};
  std::uint64_t clock = 0;
  bool failed = false;
  bool wrote_burst = false;   // of more than one word
  bool read_writable = false; // the component read memory that it may write
};

constexpr long long NO_CALL = -1;

// Writes a finding. The phase ends with the first.
[[gnu::format(printf, 4, 5)]] inline void report(Run& run, const char* rule, long long call,
                                                 const char* format, ...) {
  std::fprintf(run.outcome, "%s\t%lld\t%" PRIu64 "\t%s\t", rule, call, run.clock, run.phase.name);
  va_list arguments;
  va_start(arguments, format);
  std::vfprintf(run.outcome, format, arguments);
  va_end(arguments);
  std::fputc('\n', run.outcome);
  std::fflush(run.outcome);
  run.failed = true;
}

inline std::string hexadecimal(const unsigned char* bytes, std::size_t count) {
  std::string text = "0x";
  for (std::size_t i = count; i-- > 0;) {
    text += "0123456789abcdef"[bytes[i] / 16];
    text += "0123456789abcdef"[bytes[i] % 16];
  }
  return text;
}
