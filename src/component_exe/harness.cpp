// SPDX-License-Identifier: BSD-3-Clause
#include "harness.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <numeric>

namespace bfcl::component {

using vex::efi::EFIElem;

// Requests of more words than `owed` counts wait. A read owes burstcount words, a write one
// acknowledgement for each burst.
const char* const MEMORY_MODEL = R"(
module bfcl_memory #(parameter WRITES = 0, parameter BURST = 1, parameter DATA = 1) (
  input clock, input resetn, input free_wait, input free_answer,
  input request, input [63:0] address, input [BURST-1:0] burstcount, input [DATA-1:0] data,
  output waitrequest, output answer, output broken
);
  reg [BURST+3:0] owed;
  reg [BURST-1:0] left;
  reg             waiting;
  reg [DATA-1:0]  waiting_data;
  reg [BURST+63:0] waiting_head;

  assign waitrequest = free_wait | owed[BURST+3];
  assign answer      = free_answer & (owed != 0);

  wire             accept = resetn & request & ~waitrequest;
  wire             starts = left == 0;
  wire [BURST-1:0] words  = starts ? burstcount : left;
  wire             last   = words == 1;
  wire [BURST+3:0] more   = !accept ? 0 : !WRITES ? burstcount : last;

  always @(posedge clock) begin
    owed         <= resetn ? owed + more - answer : 0;
    left         <= !resetn ? 0 : accept && WRITES ? words - 1'b1 : left;
    waiting      <= resetn & request & waitrequest;
    waiting_data <= data;
    waiting_head <= {burstcount, address};
  end

  wire same_head = !starts || {burstcount, address} == waiting_head;
  wire changed   = waiting && !(request && data == waiting_data && same_head);
  assign broken  = resetn && (changed || (request && starts && burstcount == 0));
endmodule
)";

namespace {

constexpr const char* HARNESS = R"(
module bfcl_harness #(parameter MODE = 0) (
  input clock, input free_ivalid, input free_oready, input always_low,
  input [`IN-1:0] free_data, input [`MEM-1:0] free_memory,
  output bad_reset, output bad_latency, output bad_ready, output bad_stable, output bad_count,
  output bad_capacity, output bad_result, output filled, output [`PORTS-1:0] bad_memory,
  output show_ivalid, output show_iready, output show_ovalid,
  output show_oready, output [`IN-1:0] show_in, output [`OUT-1:0] show_out,
  output [31:0] show_held, output [`SHOWN-1:0] show_memory
);
  localparam RESET = 1, RESULT = 2, FILL = 3;

  reg  [3:0] age;
  wire       first  = $initstate;
  wire       resetn = !first && age == `RESET_CLOCKS;
  always @(posedge clock) age <= first ? 1 : resetn ? age : age + 1'b1;

  // A word that is refused stays on offer.
  reg            refused, refused_word;
  reg  [`IN-1:0] refused_data;
  wire           word   = refused ? refused_word : free_data[0];
  wire           ivalid = MODE == FILL || (refused | free_ivalid) && !(MODE == RESET && resetn);
  wire           oready = MODE != FILL && free_oready;
  wire [`IN-1:0] data   = MODE == FILL ? `WORD0 : MODE == RESULT ? (word ? `WORD1 : `WORD0)
                        : refused ? refused_data : free_data;
  wire [`MEM-1:0] memory = MODE == FILL ? `ANSWER_AT_ONCE
                         : MODE == RESULT ? free_memory & `NOT_READDATA : free_memory;

  wire iready, ovalid, asks;
  wire [`SHOWN-1:0] shown_memory;
  wire [`OUT-1:0] out;
  bfcl_component dut (
    .clock(clock), .resetn(resetn), .ivalid(ivalid), .iready(iready), .ovalid(ovalid),
    .oready(oready), .in(data), .out(out), .free_memory(memory), .asks(asks),
    .bad_memory(bad_memory), .show_memory(shown_memory)
  );

  wire take  = resetn & ivalid & iready;
  wire give  = resetn & ovalid & (oready | `STALL_FREE);
  wire stall = resetn & ovalid & !give;
  always @(posedge clock) begin
    refused      <= resetn & ivalid & !iready;
    refused_word <= word;
    refused_data <= data;
  end

  assign bad_reset = resetn & (ovalid | asks);
  assign bad_ready = resetn & !iready;

  // Words in flight, as far as the count is possible.
  localparam QUEUE = `CAPACITY > 64 ? 64 : `CAPACITY;
  localparam LIMIT = MODE == RESULT ? QUEUE : `CAPACITY;
  reg [`COUNT-1:0] held;
  reg              lost_count;
  wire             over = held == LIMIT && take && !give;
  assign bad_count    = resetn & !lost_count & give & held == 0 & !take;
  assign bad_capacity = resetn & !lost_count & over;
  always @(posedge clock) begin
    lost_count <= resetn & (lost_count | bad_count | over);
    held       <= !resetn ? 0 : lost_count | over ? held : held + take - give;
  end

  // A result that has to wait.
  reg             stalled;
  reg [`OUT-1:0]  stalled_out;
  always @(posedge clock) begin
    stalled     <= stall;
    stalled_out <= out;
  end
  assign bad_stable = resetn & stalled & !(ovalid && out == stalled_out);

  // The latency counts from an empty component on, until a result has to wait.
  reg             delayed;
  reg [`LATENCY:0] taken;
  wire             empty = held == 0 && !lost_count;
  wire [`LATENCY:0] due  = {delayed ? {`LATENCY+1{1'b0}} : taken, take};
  always @(posedge clock) begin
    delayed <= resetn & ((delayed & !empty) | stall);
    taken   <= resetn ? due : 0;
  end
  // Without a clock between them, the result shows before the word is taken.
  wire              shows = `LATENCY == 0 && stall && ivalid;
  assign bad_latency = resetn & (!delayed | empty) & ovalid != (due[`LATENCY] | shows);

  // The first result of each of two words is that of every later one.
  reg  [QUEUE:0]   words;
  reg              known0, known1;
  reg  [`OUT-1:0]  result0, result1;
  wire             given = held == 0 ? word : words[held - 1];
  wire             match = given ? !known1 | out == result1 : !known0 | out == result0;
  assign bad_result = MODE == RESULT && give & !lost_count & !match;
  always @(posedge clock) begin
    if (take) words <= {words, word};
    known0 <= resetn & (known0 | give & !given);
    known1 <= resetn & (known1 | give & given);
    if (!known0) result0 <= out;
    if (!known1) result1 <= out;
  end

  // Too full, or no word taken for so long that none ever will be.
  reg [`IDLE-1:0] idle;
  always @(posedge clock) idle <= !resetn | iready ? 0 : idle + 1'b1;
  assign filled = MODE == FILL && resetn && (over || idle == `PATIENCE);

  // No output of a trace may be constant: yosys names no constant ones.
  assign show_ivalid = ivalid ^ always_low;
  assign show_iready = iready ^ always_low;
  assign show_ovalid = ovalid ^ always_low;
  assign show_oready = oready ^ always_low;
  assign show_in     = data ^ {`IN{always_low}};
  assign show_out    = out ^ {`OUT{always_low}};
  assign show_held   = held ^ {32{always_low}};
  assign show_memory = shown_memory ^ {`SHOWN{always_low}};
endmodule
)";

unsigned bits_for(unsigned value) {
  unsigned bits = 1;
  while (bits < 32 && (value >> bits) != 0) {
    ++bits;
  }
  return bits;
}

unsigned input_width(const EFIElem& elem) {
  return std::accumulate(elem.m_input_widths.begin(), elem.m_input_widths.end(), 0U);
}

bool writes(const EFIElem& elem, std::size_t port) {
  return elem.m_mem_port_optypes[port] == "write";
}

// The bits that the harness is free to choose for a memory port: wait, answer, data to read.
unsigned free_width(const EFIElem& elem, std::size_t port) {
  return 2 + (writes(elem, port) ? 0 : elem.m_mem_port_widths[port]);
}

unsigned shown_width(const EFIElem& elem, std::size_t port) {
  unsigned width = 0;
  for (const MemorySignal& signal : memory_signals(elem, port)) {
    width += signal.width;
  }
  return width;
}

// A constant of that many bits, in binary since the front ends limit nothing but decimals.
std::string constant(const std::string& bits) {
  return std::to_string(bits.size()) + "'b" + bits;
}

// Two words that differ in about half of their bits, the same in every run.
std::string test_word(unsigned width, bool second) {
  std::string bits;
  std::uint32_t state = 0x2545F491;
  for (unsigned bit = 0; bit < width; ++bit) {
    state = state * 1664525 + 1013904223;
    const std::uint32_t pair = state >> 30;
    bits += (second ? pair / 2 : pair % 2) != 0 ? '1' : '0';
  }
  return constant(bits);
}

std::string range(unsigned width) {
  return "[" + std::to_string(width - 1) + ":0]";
}

// ".PORT(VECTOR[HIGH:LOW])", with the name escaped so that every name is one.
std::string connection(const std::string& port, const std::string& vector, unsigned low,
                       unsigned width) {
  return ",\n    .\\" + port + " (" + vector + "[" + std::to_string(low + width - 1) + ":" +
         std::to_string(low) + "])";
}

std::string lower(std::string text) {
  for (char& character : text) {
    character =
        character >= 'A' && character <= 'Z' ? static_cast<char>(character + 32) : character;
  }
  return text;
}

void define(std::string& text, const char* name, const std::string& value) {
  text += std::string("`define ") + name + " " + value + "\n";
}

// The values of free_memory with which every memory answers at once, and the bits of it that are
// no data to read.
void define_memory(std::string& text, const EFIElem& elem) {
  std::string at_once;
  std::string not_readdata;
  unsigned shown = 0;
  for (std::size_t port = 0; port < elem.m_mem_port_names.size(); ++port) {
    const unsigned data = free_width(elem, port) - 2;
    at_once.insert(0, std::string(data, '0') + "10");
    not_readdata.insert(0, std::string(data, '0') + "11");
    shown += shown_width(elem, port);
  }
  define(text, "MEM", std::to_string(std::max<std::size_t>(at_once.size(), 1)));
  define(text, "PORTS", std::to_string(std::max<std::size_t>(elem.m_mem_port_names.size(), 1)));
  define(text, "SHOWN", std::to_string(std::max(shown, 1U)));
  define(text, "ANSWER_AT_ONCE", constant(at_once.empty() ? "0" : at_once));
  define(text, "NOT_READDATA", constant(not_readdata.empty() ? "0" : not_readdata));
}

// The wires of one memory port and the memory behind it.
std::string memory_instance(const EFIElem& elem, std::size_t port, unsigned free, unsigned shown) {
  const std::string m = "m" + std::to_string(port) + "_";
  const unsigned width = elem.m_mem_port_widths[port];
  const unsigned burst = elem.m_mem_port_burst_widths[port];
  const bool write = writes(elem, port);
  std::string text;
  std::string carried;
  for (const MemorySignal& signal : memory_signals(elem, port)) {
    text += "  wire " + range(signal.width) + " " + m + signal.name + ";\n";
    carried.insert(0, m + signal.name + (carried.empty() ? "" : ", "));
  }
  const std::string data = write ? "{" + m + "writedata, " + m + "byteenable}" : "1'b0";
  text += "  bfcl_memory #(.WRITES(" + std::to_string(static_cast<int>(write)) + "), .BURST(" +
          std::to_string(burst) + "), .DATA(" + std::to_string(write ? width + width / 8 : 1) +
          ")) " + m + "memory (.clock(clock), .resetn(resetn), .free_wait(free_memory[" +
          std::to_string(free) + "]), .free_answer(free_memory[" + std::to_string(free + 1) +
          "]),\n    .request(" + m + (write ? "write" : "read") + "), .address(" + m +
          "address), .burstcount(" + m + "burstcount), .data(" + data + "),\n    .waitrequest(" +
          m + "waitrequest), .answer(" + m + (write ? "writeack" : "readdatavalid") +
          "), .broken(bad_memory[" + std::to_string(port) + "]));\n";
  if (!write) {
    text += "  assign " + m + "readdata = free_memory[" + std::to_string(free + 1 + width) + ":" +
            std::to_string(free + 2) + "];\n";
  }
  return text + "  assign show_memory[" + std::to_string(shown + shown_width(elem, port) - 1) +
         ":" + std::to_string(shown) + "] = {" + carried + "};\n";
}

// The instance of the component.
std::string instance(const EFIElem& elem, bool lower_case) {
  const auto spelled = [&](const std::string& name) { return lower_case ? lower(name) : name; };
  std::string text = "  \\" + spelled(elem.m_module_name) + " ";
  for (std::size_t i = 0; !lower_case && i < elem.m_parameter_names.size(); ++i) {
    text += (i == 0 ? "#(" : ", ") + std::string(".\\") + elem.m_parameter_names[i] + " (" +
            elem.m_parameter_values[i] + ")";
  }
  text += !lower_case && !elem.m_parameter_names.empty() ? ") top (" : "top (";
  for (std::size_t i = 0; i < vex::efi::VRM_SIGNAL_NAME.size(); ++i) {
    text += (i == 0 ? "\n    .\\" : ",\n    .\\") + spelled(elem.m_signal_ports[i]) + " (" +
            vex::efi::VRM_SIGNAL_NAME[i] + ")";
  }
  unsigned low = 0;
  for (std::size_t i = 0; i < elem.m_input_names.size(); ++i) {
    if (elem.m_input_widths[i] != 0) {
      text += connection(spelled(elem.m_input_names[i]), "in", low, elem.m_input_widths[i]);
      low += elem.m_input_widths[i];
    }
  }
  if (elem.m_output_width != 0) {
    text += connection(spelled(elem.m_output_name), "out", 0, elem.m_output_width);
  }
  for (std::size_t port = 0; port < elem.m_mem_port_names.size(); ++port) {
    for (const MemorySignal& signal : memory_signals(elem, port)) {
      text += connection(spelled(elem.m_mem_port_names[port] + "_" + signal.name),
                         "m" + std::to_string(port) + "_" + signal.name, 0, signal.width);
    }
  }
  return text + "\n  );\n";
}

} // namespace

std::vector<MemorySignal> memory_signals(const EFIElem& elem, std::size_t index) {
  const unsigned width = elem.m_mem_port_widths[index];
  const unsigned burst = elem.m_mem_port_burst_widths[index];
  std::vector<MemorySignal> signals;
  if (writes(elem, index)) {
    signals = {{"write", 1},          {"waitrequest", 1},   {"address", 64},
               {"burstcount", burst}, {"writedata", width}, {"byteenable", width / 8},
               {"writeack", 1}};
  } else {
    signals = {{"read", 1},           {"waitrequest", 1},  {"address", 64},
               {"burstcount", burst}, {"readdata", width}, {"readdatavalid", 1}};
  }
  return signals;
}

bool has_capacity(const EFIElem& elem) {
  return !elem.m_is_stall_free.value && elem.m_capacity != vex::efi::NOT_SET;
}

unsigned harness_capacity(const EFIElem& elem) {
  constexpr unsigned unknown = 255;
  if (has_capacity(elem)) {
    return static_cast<unsigned>(elem.m_capacity);
  }
  const bool fixed = elem.m_is_fixed_latency.value && elem.m_latency != vex::efi::NOT_SET;
  return fixed ? static_cast<unsigned>(elem.m_latency) : unknown;
}

unsigned patience(const EFIElem& elem) {
  const bool known = elem.m_latency != vex::efi::NOT_SET;
  return 63 + (known ? 2 * static_cast<unsigned>(elem.m_latency) : 0);
}

std::string component_wrapper(const EFIElem& elem, bool lower_case) {
  const unsigned in = std::max(input_width(elem), 1U);
  const unsigned out = std::max(elem.m_output_width, 1U);
  std::string text = "module bfcl_component (input clock, input resetn, input ivalid, "
                     "output iready, output ovalid, input oready,\n  input " +
                     range(in) + " in, output " + range(out) +
                     " out, input [`MEM-1:0] free_memory,\n  output asks, "
                     "output [`PORTS-1:0] bad_memory, output [`SHOWN-1:0] show_memory);\n";
  std::string asks = "1'b0";
  unsigned free = 0;
  unsigned shown = 0;
  for (std::size_t port = 0; port < elem.m_mem_port_names.size(); ++port) {
    text += memory_instance(elem, port, free, shown);
    asks += " | m" + std::to_string(port) + (writes(elem, port) ? "_write" : "_read");
    free += free_width(elem, port);
    shown += shown_width(elem, port);
  }
  std::string settings;
  define_memory(settings, elem);
  return settings + text + instance(elem, lower_case) + "  assign asks = " + asks +
         ";\nendmodule\n";
}

std::string harness(const EFIElem& elem) {
  const unsigned in = std::max(input_width(elem), 1U);
  const unsigned capacity = harness_capacity(elem);
  const bool fixed = elem.m_is_fixed_latency.value && elem.m_latency != vex::efi::NOT_SET;
  std::string text;
  define_memory(text, elem);
  define(text, "IN", std::to_string(in));
  define(text, "OUT", std::to_string(std::max(elem.m_output_width, 1U)));
  define(text, "RESET_CLOCKS", std::to_string(RESET_CLOCKS));
  define(text, "STALL_FREE", elem.m_is_stall_free.value ? "1'b1" : "1'b0");
  define(text, "CAPACITY", std::to_string(capacity));
  define(text, "COUNT", std::to_string(bits_for(capacity)));
  define(text, "LATENCY", std::to_string(fixed ? elem.m_latency : 0));
  define(text, "IDLE", std::to_string(bits_for(patience(elem))));
  define(text, "PATIENCE", std::to_string(patience(elem)));
  define(text, "WORD0", test_word(in, false));
  define(text, "WORD1", test_word(in, true));
  return text + HARNESS;
}

} // namespace bfcl::component
