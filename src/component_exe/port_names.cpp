// SPDX-License-Identifier: BSD-3-Clause
#include "port_names.h"

#include <algorithm>
#include <cctype>
#include <iterator>
#include <string_view>
#include <vector>

namespace bfcl::component {

namespace {

struct Entry {
  std::string_view text;
  Word word;
  bool low = false;
  const char* bus = nullptr;
};

constexpr Entry WORDS[] = {
    {"clk", Word::clock},
    {"clock", Word::clock},
    {"ck", Word::clock},
    {"clki", Word::clock},
    {"rst", Word::reset},
    {"wrst", Word::reset},
    {"rrst", Word::reset},
    {"reset", Word::reset},
    {"arst", Word::reset},
    {"areset", Word::reset},
    {"srst", Word::reset},
    {"sreset", Word::reset},
    {"rstn", Word::reset, true},
    {"arstn", Word::reset, true},
    {"srstn", Word::reset, true},
    {"resetn", Word::reset, true},
    {"sresetn", Word::reset, true},
    {"aresetn", Word::reset, true},
    {"rstb", Word::reset, true},
    {"resetb", Word::reset, true},
    {"nrst", Word::reset, true},
    {"nreset", Word::reset, true},
    {"clr", Word::clear},
    {"aclr", Word::clear},
    {"sclr", Word::clear},
    {"clear", Word::clear},
    {"clrn", Word::clear, true},
    {"aclrn", Word::clear, true},
    {"flush", Word::clear},
    {"abort", Word::clear},
    {"kill", Word::clear},
    {"en", Word::enable},
    {"ena", Word::enable},
    {"ce", Word::enable},
    {"cen", Word::enable, true},
    {"cke", Word::enable},
    {"enable", Word::enable},
    {"clken", Word::enable},
    {"aclken", Word::enable},
    {"valid", Word::valid},
    {"vld", Word::valid},
    {"val", Word::valid},
    {"dv", Word::valid},
    {"nd", Word::valid},
    {"stb", Word::valid},
    {"strobe", Word::valid},
    {"req", Word::valid},
    {"request", Word::valid},
    {"validin", Word::valid},
    {"validout", Word::valid},
    {"empty", Word::valid, true},
    {"rempty", Word::valid, true},
    {"ready", Word::ready},
    {"rdy", Word::ready},
    {"rfd", Word::ready},
    {"ack", Word::ready},
    {"gnt", Word::ready},
    {"grant", Word::ready},
    {"accept", Word::ready},
    {"idle", Word::ready},
    {"busy", Word::ready, true},
    {"full", Word::ready, true},
    {"wfull", Word::ready, true},
    {"active", Word::ready, true},
    {"stall", Word::ready, true},
    {"wait", Word::ready, true},
    {"pause", Word::ready, true},
    {"halt", Word::ready, true},
    {"start", Word::start},
    {"init", Word::start},
    {"go", Word::start},
    {"begin", Word::start},
    {"run", Word::start},
    {"trig", Word::start},
    {"trigger", Word::start},
    {"kick", Word::start},
    {"launch", Word::start},
    {"next", Word::start},
    {"done", Word::done},
    {"finish", Word::done},
    {"finished", Word::done},
    {"complete", Word::done},
    {"completed", Word::done},
    {"fin", Word::done},
    {"eoc", Word::done},
    {"drdy", Word::done},
    {"wr", Word::write},
    {"we", Word::write},
    {"wen", Word::write},
    {"wren", Word::write},
    {"write", Word::write},
    {"push", Word::write},
    {"winc", Word::write},
    {"enq", Word::write},
    {"load", Word::write},
    {"ld", Word::write},
    {"rd", Word::read},
    {"re", Word::read},
    {"ren", Word::read},
    {"rden", Word::read},
    {"read", Word::read},
    {"pop", Word::read},
    {"rinc", Word::read},
    {"deq", Word::read},
    {"last", Word::mark},
    {"tlast", Word::mark},
    {"first", Word::mark},
    {"sop", Word::mark},
    {"eop", Word::mark},
    {"startofpacket", Word::mark},
    {"endofpacket", Word::mark},
    {"keep", Word::mask},
    {"tkeep", Word::mask},
    {"tstrb", Word::mask},
    {"tuser", Word::side},
    {"tid", Word::side},
    {"tdest", Word::side},
    {"test", Word::test},
    {"scan", Word::test},
    {"dft", Word::test},
    {"testmode", Word::test},
    {"almost", Word::status},
    {"prog", Word::status},
    {"afull", Word::status},
    {"aempty", Word::status},
    {"overflow", Word::status},
    {"underflow", Word::status},
    {"count", Word::status},
    {"level", Word::status},
    {"usedw", Word::status},
    {"tx", Word::pin},
    {"rx", Word::pin},
    {"txd", Word::pin},
    {"rxd", Word::pin},
    {"mosi", Word::pin},
    {"miso", Word::pin},
    {"sclk", Word::pin},
    {"scl", Word::pin},
    {"sda", Word::pin},
    {"awvalid", Word::bus, false, "an AXI memory bus"},
    {"awaddr", Word::bus, false, "an AXI memory bus"},
    {"arvalid", Word::bus, false, "an AXI memory bus"},
    {"araddr", Word::bus, false, "an AXI memory bus"},
    {"paddr", Word::bus, false, "an APB bus"},
    {"psel", Word::bus, false, "an APB bus"},
    {"penable", Word::bus, false, "an APB bus"},
    {"haddr", Word::bus, false, "an AHB bus"},
    {"htrans", Word::bus, false, "an AHB bus"},
    {"cyc", Word::bus, false, "a Wishbone bus"},
    {"waitrequest", Word::bus, false, "a memory bus"},
};

// Words that other letters may precede without a "_": "tvalid", "inready", "sysclk".
constexpr std::string_view ENDINGS[] = {"valid", "ready", "vld", "rdy",   "start", "done",
                                        "busy",  "clock", "clk", "reset", "resetn"};

// They say no more than the port's direction does.
constexpr std::string_view MARKS[] = {
    "i",      "o",    "in",    "out",    "s",    "m",    "inp", "outp",   "st",
    "axis",   "axi",  "input", "output", "sink", "snk",  "src", "source", "slave",
    "master", "ap",   "data",  "dat",    "d",    "q",    "din", "dout",   "tick",
    "pulse",  "flag", "p",     "core",   "sys",  "uart", "spi", "serial", "line"};

template <typename Table>
bool contains(const Table& table, std::string_view text) {
  return std::find(std::begin(table), std::end(table), text) != std::end(table);
}

const Entry* find_word(std::string_view text) {
  const auto* found = std::find_if(std::begin(WORDS), std::end(WORDS),
                                   [text](const Entry& entry) { return entry.text == text; });
  return found == std::end(WORDS) ? nullptr : found;
}

// Lower-case parts between "_", before a capital that follows a small letter.
std::vector<std::string> split(const std::string& name) {
  std::vector<std::string> parts(1);
  bool was_small = false;
  for (const char character : name) {
    const auto byte = static_cast<unsigned char>(character);
    if (character == '_' || (was_small && std::isupper(byte) != 0)) {
      parts.emplace_back();
    }
    if (character != '_') {
      parts.back() += static_cast<char>(std::tolower(byte));
    }
    was_small = std::islower(byte) != 0;
  }
  parts.erase(std::remove(parts.begin(), parts.end(), std::string()), parts.end());
  return parts;
}

// Splits letters such as "tvalid" or "clkin" at a word at their end or start.
std::vector<std::string> split_letters(const std::string& letters) {
  if (find_word(letters) != nullptr || contains(MARKS, letters)) {
    return {letters};
  }
  for (const std::string_view mark : {"in", "out", "i", "o"}) {
    const std::size_t size = letters.size() - std::min(letters.size(), mark.size());
    if (letters.substr(size) == mark && find_word(letters.substr(0, size)) != nullptr) {
      return {letters.substr(0, size), std::string(mark)};
    }
  }
  for (const std::string_view ending : ENDINGS) {
    if (letters.size() > ending.size() &&
        letters.compare(letters.size() - ending.size(), ending.size(), ending) == 0) {
      std::string front = letters.substr(0, letters.size() - ending.size());
      return {front == "t" || front == "a" ? "i" : front, std::string(ending)};
    }
  }
  return {letters};
}

// The parts of a name, with digits as parts of their own.
std::vector<std::string> parts_of(const std::string& name) {
  std::vector<std::string> parts;
  for (const std::string& part : split(name)) {
    const std::size_t size = part.find_last_not_of("0123456789") + 1;
    if (size > 0) {
      const std::vector<std::string> letters = split_letters(part.substr(0, size));
      parts.insert(parts.end(), letters.begin(), letters.end());
    }
    if (size < part.size()) {
      parts.push_back(part.substr(size));
    }
  }
  return parts;
}

// Two words in one name: which of them counts.
bool outranks(const Entry& later, const Entry* earlier) {
  if (earlier == nullptr) {
    return true;
  }
  switch (earlier->word) {
  case Word::bus:
  case Word::test:
  case Word::status:
    return false;
  case Word::write:
  case Word::read:
    return later.word != Word::enable; // "wr_en"
  default:
    // "clk_rst" names a reset, "valid_clk" a clock; a serial line's prefix is no word.
    return later.word != Word::pin;
  }
}

} // namespace

PortName read_port_name(const std::string& name, Direction direction) {
  PortName result;
  const std::vector<std::string> parts = parts_of(name);
  if (name == "invalid" && direction == Direction::output) {
    return result; // a flag, not the valid of "in"
  }
  const Entry* found = nullptr;
  bool flipped = false;
  for (const std::string& part : parts) {
    const Entry* entry = find_word(part);
    const bool is_reset = found != nullptr && found->word == Word::reset;
    if (part == "n" || part == "ni" || part == "no" || (is_reset && (part == "b" || part == "l"))) {
      flipped = true;
    } else if (entry != nullptr && outranks(*entry, found)) {
      found = entry;
    } else if (entry == nullptr && !contains(MARKS, part)) {
      result.stem += part;
    }
  }
  if (found == nullptr) {
    return result;
  }
  result.word = found->word;
  result.low = found->low != flipped;
  result.bus = found->bus;
  const bool whole_only = result.word == Word::enable || result.word == Word::pin ||
                          result.word == Word::write || result.word == Word::read;
  if (whole_only && !result.stem.empty() && result.stem.find_first_not_of("0123456789") == 0) {
    result.word = Word::data; // "parity_en" is an argument
  }
  return result;
}

} // namespace bfcl::component
