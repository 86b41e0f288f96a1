// SPDX-License-Identifier: BSD-3-Clause
#include "calls.h"

#include "bench/random.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace bfcl::component {

namespace {

// The layout of an IEEE 754 format.
struct FloatFormat {
  std::size_t bytes;
  unsigned mantissa_bits;
  std::uint64_t exponent_mask; // shifted to bit 0
};

constexpr FloatFormat FLOAT_FORMATS[] = {{2, 10, 0x1F}, {4, 23, 0xFF}, {8, 52, 0x7FF}};

const FloatFormat& float_format(std::size_t bytes) {
  return *std::find_if(std::begin(FLOAT_FORMATS), std::end(FLOAT_FORMATS) - 1,
                       [bytes](const FloatFormat& format) { return format.bytes == bytes; });
}

// Both zeros, ones, infinities, quiet NaNs, the least and greatest denormal and normal numbers.
std::uint64_t float_corner(const FloatFormat& format, Random& random) {
  const std::uint64_t one_ulp = 1;
  const std::uint64_t mantissa = (one_ulp << format.mantissa_bits) - 1;
  const std::uint64_t infinity = format.exponent_mask << format.mantissa_bits;
  const std::uint64_t one = (format.exponent_mask / 2) << format.mantissa_bits;
  const std::uint64_t corners[] = {0,       one,      infinity,     infinity | (mantissa + 1) / 2,
                                   one_ulp, mantissa, mantissa + 1, infinity - 1};
  const std::uint64_t sign = random.below(2) << (8 * format.bytes - 1);
  return corners[random.below(std::size(corners))] | sign;
}

// A number whose sums and products with others of its kind are finite.
std::uint64_t float_near_one(const FloatFormat& format, Random& random) {
  const std::uint64_t exponent = format.exponent_mask / 2 - 4 + random.below(9);
  const std::uint64_t mantissa = random.next() >> (64 - format.mantissa_bits);
  const std::uint64_t sign = random.below(2) << (8 * format.bytes - 1);
  return sign | exponent << format.mantissa_bits | mantissa;
}

void random_float(unsigned char* bytes, std::size_t count, Random& random) {
  const FloatFormat& format = float_format(count);
  std::uint64_t value = random.next();
  const std::size_t choice = random.below(8);
  if (choice < 2) {
    value = float_corner(format, random);
  } else if (choice < 6) {
    value = float_near_one(format, random);
  }
  std::memcpy(bytes, &value, count);
}

// 0, all ones, the sign bit alone, all but the sign bit, and numbers near 0.
void integer_corner(unsigned char* bytes, std::size_t count, Random& random) {
  const std::size_t choice = random.below(6);
  const bool ones = choice == 1 || choice == 3 || choice == 5;
  std::memset(bytes, ones ? 0xFF : 0, count);
  if (choice == 2 || choice == 3) {
    bytes[count - 1] ^= 0x80;
  } else if (choice == 4 || choice == 5) {
    bytes[0] ^= static_cast<unsigned char>(1 + random.below(16));
  }
}

void random_in_range(const CallInput& input, unsigned char* bytes, Random& random) {
  const auto [low, high] = *input.range;
  const std::uint64_t span = static_cast<std::uint64_t>(high) - static_cast<std::uint64_t>(low);
  const std::uint64_t offsets[] = {0, span};
  const std::uint64_t offset = random.below(8) == 0 ? offsets[random.below(2)]
                               : span == UINT64_MAX ? random.next()
                                                    : random.next() % (span + 1);
  const std::uint64_t value = static_cast<std::uint64_t>(low) + offset;
  if (input.kind != ValueKind::floating) {
    std::memcpy(bytes, &value, input.element_bytes);
    return;
  }
  const auto number = static_cast<double>(static_cast<std::int64_t>(value));
  const auto single = static_cast<float>(number);
  input.element_bytes == 8 ? std::memcpy(bytes, &number, 8) : std::memcpy(bytes, &single, 4);
}

void random_element(const CallInput& input, unsigned char* bytes, Random& random) {
  if (input.range) {
    random_in_range(input, bytes, random);
  } else if (input.kind == ValueKind::floating) {
    random_float(bytes, input.element_bytes, random);
  } else if (input.kind == ValueKind::boolean) {
    std::memset(bytes, 0, input.element_bytes);
    bytes[0] = static_cast<unsigned char>(random.below(2));
  } else if (random.below(4) == 0) {
    integer_corner(bytes, input.element_bytes, random);
  } else {
    random.fill(bytes, input.element_bytes);
  }
}

// Fills an argument of the call that starts at `call`. Now and then it is the argument of the call
// before, or of another input of this call, so that equal values occur.
void random_value(const CallInput& input, unsigned char* bytes, const unsigned char* before,
                  const unsigned char* sibling, Random& random) {
  const std::size_t choice = random.below(16);
  if (choice == 0 && before != nullptr && !input.range) {
    std::memcpy(bytes, before, input.bytes);
    return;
  }
  if (choice < 3 && sibling != nullptr && !input.range) {
    std::memcpy(bytes, sibling, input.bytes);
    return;
  }
  for (std::size_t i = 0; i + input.element_bytes <= input.bytes; i += input.element_bytes) {
    random_element(input, bytes + i, random);
  }
}

// An input before `index` with values of the same kind, or `index` when there is none.
std::size_t find_sibling(const std::vector<CallInput>& inputs, std::size_t index) {
  for (std::size_t i = 0; i < index; ++i) {
    if (!inputs[i].is_pointer && !inputs[i].range && inputs[i].kind == inputs[index].kind &&
        inputs[i].bytes == inputs[index].bytes) {
      return i;
    }
  }
  return index;
}

struct PointerCounts {
  std::size_t readonly = 0;
  std::size_t writable = 0;
};

PointerCounts count_pointers(const std::vector<CallInput>& inputs) {
  PointerCounts counts;
  for (const CallInput& input : inputs) {
    counts.readonly += input.is_pointer && !input.is_writable ? 1 : 0;
    counts.writable += input.is_pointer && input.is_writable ? 1 : 0;
  }
  return counts;
}

void divide_into_phases(Calls& calls, const PointerCounts& pointers, const CallPlan& plan) {
  const std::size_t phases = pointers.writable != 0 ? PHASE_COUNT : PHASE_COUNT - 1;
  const std::size_t pages_each = pointers.readonly + pointers.writable;
  std::size_t each = std::max(plan.count / phases, plan.capacity + 16);
  if (pages_each != 0) {
    each = std::max<std::size_t>(std::min(each, MAX_PAGES / pages_each / phases), 1);
  }
  for (std::size_t i = 0; i < PHASE_COUNT; ++i) {
    calls.first[i + 1] = calls.first[i] + (i < phases ? each : 0);
  }
}

void random_page(const CallInput& input, unsigned char* page, Random& random) {
  if (input.kind != ValueKind::floating) {
    random.fill(page, PAGE_BYTES);
    return;
  }
  const FloatFormat& format = float_format(input.element_bytes);
  for (std::size_t i = 0; i < PAGE_BYTES; i += format.bytes) {
    const std::uint64_t value = float_near_one(format, random);
    std::memcpy(page + i, &value, format.bytes);
  }
}

class Maker {
public:
  Maker(Calls& calls, const CallPlan& plan)
      : m_calls(calls), m_plan(plan), m_pointers(count_pointers(calls.inputs)),
        m_random(plan.seed) {
    divide_into_phases(calls, m_pointers, plan);
    calls.first_writable_page = calls.count() * m_pointers.readonly;
    calls.pages = calls.count() * (m_pointers.readonly + m_pointers.writable);
    calls.memory.resize(calls.pages * PAGE_BYTES);
    for (CallInput& input : calls.inputs) {
      m_offsets.push_back(calls.argument_bytes);
      calls.argument_bytes += input.bytes;
      input.element_bytes =
          input.element_bytes != 0 ? input.element_bytes : std::max<std::size_t>(input.bytes, 1);
    }
    calls.arguments.resize(calls.count() * calls.argument_bytes);
  }

  void make() {
    for (std::size_t call = 0; call < m_calls.count(); ++call) {
      PointerCounts seen;
      for (std::size_t i = 0; i < m_calls.inputs.size(); ++i) {
        const CallInput& input = m_calls.inputs[i];
        if (!input.is_pointer) {
          make_value(call, i);
        } else if (input.is_writable) {
          const std::size_t page = call * m_pointers.writable + seen.writable++;
          make_pointer(call, i, m_calls.first_writable_page + page);
        } else {
          make_pointer(call, i, call * m_pointers.readonly + seen.readonly++);
        }
      }
    }
  }

private:
  unsigned char* argument(std::size_t call, std::size_t input) {
    return m_calls.arguments.data() + call * m_calls.argument_bytes + m_offsets[input];
  }

  void make_value(std::size_t call, std::size_t index) {
    const std::size_t sibling = find_sibling(m_calls.inputs, index);
    random_value(m_calls.inputs[index], argument(call, index),
                 call > 0 ? argument(call - 1, index) : nullptr,
                 sibling != index ? argument(call, sibling) : nullptr, m_random);
  }

  void make_pointer(std::size_t call, std::size_t index, std::size_t page) {
    const std::size_t last_phase = m_calls.first[PHASE_COUNT - 1];
    if (call > last_phase && m_random.below(4) != 0) {
      const std::size_t other = last_phase + m_random.below(call - last_phase);
      std::memcpy(argument(call, index), argument(other, index), m_calls.inputs[index].bytes);
      return;
    }
    const std::uint64_t steps = REACH_BYTES / m_plan.alignment;
    const std::uint64_t start = MEMORY_BASE + page * PAGE_STRIDE + m_plan.alignment - 1;
    const std::uint64_t address =
        start / m_plan.alignment * m_plan.alignment + m_random.below(steps) * m_plan.alignment;
    std::memcpy(argument(call, index), &address, sizeof address);
    random_page(m_calls.inputs[index], m_calls.memory.data() + page * PAGE_BYTES, m_random);
  }

  Calls& m_calls;
  const CallPlan& m_plan;
  PointerCounts m_pointers;
  std::vector<std::size_t> m_offsets; // of the inputs in a call's arguments
  Random m_random;
};

std::string decimal(const CallInput& input, const unsigned char* bytes) {
  std::uint64_t value = 0;
  std::memcpy(&value, bytes, input.bytes);
  std::array<char, 40> text = {};
  if (input.kind == ValueKind::floating && input.bytes == 8) {
    double number = 0;
    std::memcpy(&number, bytes, sizeof number);
    std::snprintf(text.data(), text.size(), " (%.17g)", number);
  } else if (input.kind == ValueKind::floating && input.bytes == 4) {
    float number = 0;
    std::memcpy(&number, bytes, sizeof number);
    std::snprintf(text.data(), text.size(), " (%.9g)", static_cast<double>(number));
  } else if (input.kind == ValueKind::integer && input.is_signed) {
    const unsigned shift = static_cast<unsigned>(64 - 8 * input.bytes);
    const auto number = static_cast<std::int64_t>(value << shift) >> shift;
    std::snprintf(text.data(), text.size(), " (%lld)", static_cast<long long>(number));
  }
  return text.data();
}

} // namespace

Calls make_calls(std::vector<CallInput> inputs, const CallPlan& plan) {
  Calls calls;
  calls.inputs = std::move(inputs);
  Maker(calls, plan).make();
  return calls;
}

std::string describe_value(const CallInput& input, const unsigned char* bytes) {
  constexpr const char* digits = "0123456789abcdef";
  std::string text = "0x";
  for (std::size_t i = input.bytes; i-- > 0;) {
    text += {digits[bytes[i] / 16], digits[bytes[i] % 16]};
  }
  const bool is_number = !input.is_pointer && input.bytes != 0 && input.bytes <= 8 &&
                         input.element_bytes == input.bytes;
  return is_number ? text + decimal(input, bytes) : text;
}

std::string Calls::describe(std::size_t index) const {
  const unsigned char* bytes = arguments.data() + index * argument_bytes;
  std::string text;
  for (const CallInput& input : inputs) {
    text += (text.empty() ? "" : ", ") + input.name + "=" + describe_value(input, bytes);
    bytes += input.bytes;
  }
  return text;
}

} // namespace bfcl::component
