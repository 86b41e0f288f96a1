// SPDX-License-Identifier: BSD-3-Clause
#include "verilog_keywords.h"

#include <cctype>
#include <sstream>
#include <string_view>

namespace bfcl::component {

namespace {

// Each word between blanks.
constexpr std::string_view KEYWORDS =
    " accept_on alias always always_comb always_ff always_latch and assert assign assume"
    " automatic before begin bind bins binsof bit break buf bufif0 bufif1 byte case casex"
    " casez cell chandle checker class clocking cmos config const constraint context"
    " continue cover covergroup coverpoint cross deassign default defparam design disable"
    " dist do edge else end endcase endchecker endclass endclocking endconfig endfunction"
    " endgenerate endgroup endinterface endmodule endpackage endprimitive endprogram"
    " endproperty endspecify endsequence endtable endtask enum event eventually expect"
    " export extends extern final first_match for force foreach forever fork forkjoin"
    " function generate genvar global highz0 highz1 if iff ifnone ignore_bins illegal_bins"
    " implements implies import incdir include initial inout input inside instance int"
    " integer interconnect interface intersect join join_any join_none large let liblist"
    " library local localparam logic longint macromodule matches medium modport module"
    " nand negedge nettype new nexttime nmos nor noshowcancelled not notif0 notif1 null or"
    " output package packed parameter pmos posedge primitive priority program property"
    " protected pull0 pull1 pulldown pullup pulsestyle_ondetect pulsestyle_onevent pure"
    " rand randc randcase randsequence rcmos real realtime ref reg reject_on release"
    " repeat restrict return rnmos rpmos rtran rtranif0 rtranif1 s_always s_eventually"
    " s_nexttime s_until s_until_with scalared sequence shortint shortreal showcancelled"
    " signed small soft solve specify specparam static string strong strong0 strong1"
    " struct super supply0 supply1 sync_accept_on sync_reject_on table tagged task this"
    " throughout time timeprecision timeunit tran tranif0 tranif1 tri tri0 tri1 triand"
    " trior trireg type typedef union unique unique0 unsigned until until_with untyped use"
    " uwire var vectored virtual void wait wait_order wand weak weak0 weak1 while wildcard"
    " wire with within wor xnor xor ";

// Those of VHDL too, which are no names in a netlist, and what begins lines of one.
constexpr std::string_view VHDL_KEYWORDS =
    " and assert assume begin case context cover default else end for force function generate if "
    "inout library nand nor not null or package parameter property protected release restrict "
    "return sequence strong type until use wait while with xnor xor ";
constexpr std::string_view STATEMENTS =
    " always assign endcase endmodule initial input integer localparam module output reg wire ";

bool is_among(std::string_view words, const std::string& word) {
  return words.find(" " + word + " ") != std::string_view::npos;
}

bool is_part_of_name(char character) {
  return character == '_' || character == '$' ||
         std::isalnum(static_cast<unsigned char>(character)) != 0;
}

bool is_statement(const std::string& line, std::size_t begin, std::size_t end,
                  const std::string& word) {
  const std::string before = line.substr(0, begin);
  const bool is_first = before.find_first_not_of(" (") == std::string::npos;
  const bool is_edge = (word == "posedge" || word == "negedge") &&
                       (before.ends_with("@(") || before.ends_with(" or "));
  return is_edge || (is_first && is_among(STATEMENTS, word) && line[end] != '[');
}

std::string escape_line(const std::string& line) {
  std::string text;
  for (std::size_t at = 0; at < line.size();) {
    std::size_t end = at;
    while (end < line.size() && is_part_of_name(line[end])) {
      ++end;
    }
    const std::string word = line.substr(at, end - at);
    const bool is_name = is_verilog_keyword(word) && !is_among(VHDL_KEYWORDS, word) &&
                         !is_statement(line, at, end, word);
    text += is_name ? "\\" + word + " " : word;
    if (end == at) {
      text += line[end++];
    }
    at = end;
  }
  return text;
}

} // namespace

bool is_verilog_keyword(const std::string& word) {
  return !word.empty() && is_among(KEYWORDS, word);
}

std::string escape_keywords(const std::string& netlist) {
  std::string text;
  std::istringstream lines(netlist);
  for (std::string line; std::getline(lines, line);) {
    text += escape_line(line);
    text += '\n';
  }
  return text;
}

} // namespace bfcl::component
