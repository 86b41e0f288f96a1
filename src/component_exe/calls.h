// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// The calls that a component is simulated with: arguments, and the memory behind pointers.

namespace bfcl::component {

// The smallest and the greatest value.
using Range = std::pair<std::int64_t, std::int64_t>;

enum class ValueKind { integer, floating, boolean };

// One INPUT or MEM_INPUT, with what the C model says about its type.
struct CallInput {
  std::string name;
  std::size_t bytes = 0; // of the port
  bool is_pointer = false;
  bool is_writable = false; // what a pointer points to
  // Of a value, or of what a pointer points to:
  ValueKind kind = ValueKind::integer;
  bool is_signed = false;
  std::size_t element_bytes = 0;             // of a vector's elements, or of the whole value
  std::optional<Range> range = std::nullopt; // of elements of at most 8 bytes
};

// The memory is a row of pages, one for each pointer of each call: first those that are only read,
// then those that may be written. Files have the pages one after the other. The component's
// addresses start at MEMORY_BASE, above 2^32 so that every bit of a pointer counts, and leave a gap
// after each page, so that an access beyond a page is noticed.
inline constexpr std::uint64_t MEMORY_BASE = 0x7F3A5C000000;
inline constexpr std::size_t PAGE_BYTES = 4096;
inline constexpr std::size_t PAGE_STRIDE = 2 * PAGE_BYTES;
// A pointer is in the first half of its page, so that this much can be accessed behind it.
inline constexpr std::size_t REACH_BYTES = PAGE_BYTES / 2;
inline constexpr std::size_t MAX_PAGES = 8192;

// The calls are made in phases, each after a reset; bench/bench.cpp has their table. In the last
// phase several calls write to one buffer.
inline constexpr std::size_t PHASE_COUNT = 7;

struct CallPlan {
  std::size_t count = 0; // of calls, in all phases; make_calls may make fewer or more
  std::uint64_t seed = 0;
  std::size_t capacity = 0;  // of the component: a phase has more calls
  std::size_t alignment = 8; // of addresses, bytes
};

struct Calls {
  std::vector<CallInput> inputs;
  std::size_t argument_bytes = 0;                      // of one call
  std::array<std::size_t, PHASE_COUNT + 1> first = {}; // call of each phase; at the end their count
  std::vector<unsigned char> arguments; // of each call, in order, each with its lowest byte first
  std::size_t pages = 0;
  std::size_t first_writable_page = 0;
  std::vector<unsigned char> memory; // all pages

  [[nodiscard]] std::size_t count() const { return first.back(); }
  // The arguments of call `index` for people: "left=0x2a, right=0x7fc00000 (nan)".
  [[nodiscard]] std::string describe(std::size_t index) const;
};

// Random values, among them many corner values: the same for the same inputs and plan. The number
// of calls is limited by MAX_PAGES.
[[nodiscard]] Calls make_calls(std::vector<CallInput> inputs, const CallPlan& plan);

// "0x" and all bytes, the highest first; for a number of at most 8 bytes that is not a plain
// unsigned one its value behind it.
[[nodiscard]] std::string describe_value(const CallInput& input, const unsigned char* bytes);

} // namespace bfcl::component
