// SPDX-License-Identifier: BSD-3-Clause
#include "component_names.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace bfcl::component {

namespace {

// Each word between blanks.
constexpr std::string_view HANDSHAKE = " clock resetn ivalid iready ovalid oready ";

constexpr std::string_view KEYWORDS =
    " auto bool break case char const constant continue default do double else enum event_t extern "
    "false float for generic global goto half if inline int kernel linux local long pipe private "
    "ptrdiff_t queue_t read_only read_write register restrict return sampler_t short signed size_t "
    "sizeof static struct switch true typedef uchar uint ulong uniform union unix unsigned ushort "
    "void volatile while write_only ";

constexpr std::string_view BUILT_INS =
    " abs abs_diff acos acosh add_sat all any asin asinh atan atan2 atanh atomic_add atomic_and "
    "atomic_cmpxchg atomic_dec atomic_inc atomic_max atomic_min atomic_or atomic_sub atomic_xchg "
    "atomic_xor barrier bitselect cbrt ceil clamp clz copysign cos cosh cross ctz degrees distance "
    "divide dot erf erfc exp exp10 exp2 expm1 fabs fdim floor fma fmax fmin fmod fract frexp hadd "
    "hypot ilogb isequal isfinite isgreater isinf isless isnan isnormal ldexp length lgamma log "
    "log10 log1p log2 logb mad mad24 mad_hi mad_sat main max maxmag mem_fence min minmag mix modf "
    "mul24 mul_hi nan nextafter normalize popcount pow pown powr prefetch printf radians remainder "
    "remquo rhadd rint rootn rotate round rsqrt select shuffle shuffle2 sign signbit sin sincos "
    "sinh "
    "smoothstep sqrt step sub_sat tan tanh tgamma trunc upsample ";

bool is_among(std::string_view words, const std::string& name) {
  return words.find(" " + name + " ") != std::string_view::npos;
}

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char byte) { return static_cast<char>(std::tolower(byte)); });
  return text;
}

bool is_digit(char character) {
  return character >= '0' && character <= '9';
}

// "uint4", "float16", "image2d_t"
bool is_type_name(const std::string& name) {
  const std::size_t digit = name.find_first_of("0123456789");
  const std::string front = name.substr(0, digit);
  constexpr std::string_view ELEMENTS =
      " char uchar short ushort int uint long ulong float double half ";
  return front == "image" || (digit != std::string::npos && is_among(ELEMENTS, front) &&
                              is_among(" 2 3 4 8 16 ", name.substr(digit)));
}

// Letters, digits and single "_" only, a letter first and no "_" last: a name in every language.
std::string plain_name(const std::string& name) {
  std::string plain;
  for (const char character : name) {
    const bool is_plain = std::isalnum(static_cast<unsigned char>(character)) != 0;
    if (is_plain || (!plain.empty() && plain.back() != '_')) {
      plain += is_plain ? character : '_';
    }
  }
  plain.erase(plain.find_last_not_of('_') + 1);
  return plain.empty() || is_digit(plain.front()) ? "port_" + plain : plain;
}

bool is_plain_c(const std::string& name) {
  return !name.empty() && !is_digit(name.front()) &&
         std::all_of(name.begin(), name.end(),
                     [](unsigned char byte) { return byte == '_' || std::isalnum(byte) != 0; });
}

void refuse(PortPlan& plan, const Place& place, const std::string& what, unsigned bits) {
  plan.problems.push_back(
      {place, Severity::error, "unfit",
       what + " has " + std::to_string(bits) +
           " bits, and the widest OpenCL type 1024; put a module around it that "
           "has fewer"});
}

// Places the outputs one after the other; the number of bits that they take.
unsigned place_outputs(const Design& design, PortPlan& plan) {
  unsigned bits = 0;
  for (std::size_t i = 0; i < plan.uses.size(); ++i) {
    if (plan.uses[i].role == Role::output) {
      plan.uses[i].offset = (bits + 7) / 8 * 8;
      bits = plan.uses[i].offset + design.ports[i].width;
    }
  }
  return bits;
}

} // namespace

std::string Names::take(const std::string& name) {
  std::string free = name;
  for (unsigned i = 1; !m_taken.insert(lower(free)).second; ++i) {
    free = name + "_" + std::to_string(i);
  }
  return free;
}

bool is_free_name(const std::string& name) {
  return is_plain_c(name) && !is_among(HANDSHAKE, lower(name)) && !is_among(KEYWORDS, name) &&
         !is_type_name(name);
}

std::string function_name(const std::string& module) {
  const std::string plain = is_plain_c(module) ? module : plain_name(module);
  const bool is_free =
      !is_among(KEYWORDS, plain) && !is_among(BUILT_INS, plain) && !is_type_name(plain);
  return is_free ? plain : plain + "_hdl";
}

void name_component_ports(const Design& design, PortPlan& plan) {
  Names names;
  for (const char* signal : vex::efi::VRM_SIGNAL_NAME) {
    names.take(signal);
  }
  const auto name_port = [&](std::size_t index) {
    const std::string& own = design.ports[index].name;
    const bool keeps = plan.scheme == Scheme::direct || is_free_name(own);
    return names.take(keeps ? own : plain_name(own) + (is_plain_c(own) ? "_port" : ""));
  };
  std::vector<std::size_t> outputs;
  for (std::size_t i = 0; i < plan.uses.size(); ++i) {
    PortUse& use = plan.uses[i];
    if (use.role == Role::output) {
      outputs.push_back(i);
    } else if (use.role == Role::input) {
      use.component = name_port(i);
      use.width = opencl_width(design.ports[i].width);
      if (use.width == 0) {
        refuse(plan, design.ports[i].place, design.ports[i].name, design.ports[i].width);
      }
    }
  }
  const unsigned bits = place_outputs(design, plan);
  plan.result = outputs.size() == 1 ? name_port(outputs[0]) : names.take("result");
  plan.result_width = opencl_width(bits);
  if (plan.result_width == 0) {
    refuse(plan, design.place, design.top + ": the result", bits);
  }
}

unsigned opencl_width(unsigned bits) {
  for (const unsigned width : {8U, 16U, 32U, 64U, 128U, 256U, 512U, 1024U}) {
    if (bits <= width) {
      return width;
    }
  }
  return 0;
}

} // namespace bfcl::component
