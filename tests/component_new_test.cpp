// SPDX-License-Identifier: BSD-3-Clause
#include "component_exe/description.h"
#include "component_exe/port_plan.h"
#include "support.h"

#include <cstdlib>
#include <sstream>

namespace {

namespace fs = std::filesystem;
using namespace bfcl::component;

// Ports in short: ">clk >a:12 <q:12" has two inputs and an output of 12 bits.
Design design_of(const std::string& ports) {
  Design design;
  design.top = "top";
  std::istringstream words(ports);
  for (std::string word; words >> word;) {
    const std::size_t colon = word.find(':');
    Port port;
    port.name = word.substr(1, colon - 1);
    port.direction = word[0] == '>' ? Direction::input : word[0] == '<' ? Direction::output : Direction::inout;
    port.width = colon == std::string::npos ? 1 : static_cast<unsigned>(std::stoul(word.substr(colon + 1)));
    design.ports.push_back(port);
  }
  return design;
}

// One letter for each port: Clock, Reset, Input, Output, Valid, readY, reAd, Start, Done, constant 0 or 1,
// - for open; in small letters when it is active low.
std::string letters(const PortPlan& plan) {
  std::string text;
  for (const PortUse& use : plan.uses) {
    const char letter = "?CRIOVYASD#-"[static_cast<int>(use.role)];
    text += use.role == Role::constant ? use.bits[0] : use.low ? static_cast<char>(letter + 32) : letter;
  }
  return text;
}

struct Row {
  const char* ports;
  const char* expected; // the scheme and the letters, or a part of the question
  std::vector<std::pair<std::string, std::string>> roles = {};
  std::optional<unsigned> latency = {};
  bool has_edges = true;
};

const Row ROWS[] = {
    {">aclk >aresetn >s_axis_tdata:32 >s_axis_tvalid <s_axis_tready >s_axis_tlast >s_axis_tkeep:4 "
     "<m_axis_tdata:32 <m_axis_tvalid >m_axis_tready <m_axis_tlast",
     "stream CrIVY11OVY-"},
    {">clk_i >rst_ni >data_i:9 >valid_i <ready_o <data_o:9 <valid_o >ready_i", "stream CrIVYOVY"},
    {">clock >resetn >ivalid <iready >a:8 <ovalid >oready <y:8", "direct CrVYIVYO"},
    {">clk >rstN >iData:8 >iValid <oReady <oData:8 <oValid >iReady", "stream CrIVYOVY"},
    {">clk >rst >a:8 >a_stb <a_ack >b:8 >b_stb <b_ack <z:8 <z_stb >z_ack", "stream CRIVYIVYOVY"},
    {">clk >reset >x_val <x_rdy >x_msg:64 <y_val >y_rdy <y_msg:32", "stream CRVYIVYO"},
    {">clk >rst >start <busy <done >a:8 <q:8", "call CRSyDIO"},
    {">i_clk >i_reset >i_wr <o_busy >i_n:32 <o_valid <o_err <o_q:32", "call CRVyIVOO"},
    {">clock >reset >go >x:8 <ready <p:16", "call CRSIDO"},
    {">ap_clk >ap_rst >ap_start <ap_done <ap_idle <ap_ready >a:32 <ap_return:32", "call CRSD-YIO"},
    {">clk >rst_n >i_valid >i_a:16 <o_valid <o_p:32", "call CrVIVO"},
    {">clk >rst_n >i_valid >i_a:16 <o_valid <o_p:32", "pipeline CrVIVO", {}, 2},
    {">clk >CE >test_mode >flush_i >rst_n >a:8 <q:8", "pipeline C100rIO", {}, 1},
    {">a:32 >b:32 >op:4 <y:32 <zero", "pipeline IIIOO", {}, 0},
    {">clk >parity_en >a:8 <q:8", "pipeline CIIO", {}, 1},
    {">c >a:8 <q:8", "--clock PORT"},
    {">c >a:8 <q:8", "pipeline CIO", {{"c", "clock"}}, 3},
    {">clk >wr_en >din:8 <full >rd_en <dout:8 <empty <count:3", "first word fall through"},
    {">clk >wr_en >din:8 <full >rd_en <dout:8 <empty <count:3", "stream CVIyYOv-", {{"rd_en", "ready"}}},
    {">clk >wr_en >din:8 <full >rd_en <dout:8 <empty", "stream CVIyAOv", {{"rd_en", "read"}}},
    {">clk >start >din:8 >rd_en <dout:8 <done", "'read' is for a queue", {{"rd_en", "read"}}},
    {">clk >a:8 <q:8", "--latency N"},
    {">in_i:8 <cnt_o:3 <empty_o", "pipeline IOO", {}, {}, false},
    {">valid_i <ready_o >a:8 <valid_o >ready_i <q:8", "stream VYIVYO", {}, {}, false},
    {">valid_i <ready_o >a:8 <valid_o >ready_i >aux_busy <q:8", "stream VYIVY0O", {}, {}, false},
    {">clk >rst >req:4 <gnt:4 <gnt_valid", "pipeline CRIOO", {}, 1},
    {">wclk >wrst_n >winc >wdata:8 <wfull >rinc <rdata:8 <rempty", "stream CrVIyYOv", {{"rinc", "ready"}}},
    {">clk >init >next >a:8 <ready <q:8", "more than one port may begin a call"},
    {">wclk >rclk >a:8 <q:8", "a component has one clock"},
    {">clk >start >in_valid >a:8 <done <q:8", "more than one port may begin a call"},
    {">clk >start >a:8 <x_valid <y_valid <q:8", "--map y_valid=open leaves it out, --map y_valid=output makes"},
    {">clk >req <ack >a:8 <q:8", "--map ack=done"},
    {">clk >req <ack >a:8 <q:8", "call CVDIO", {{"ack", "done"}}},
    {">clk >a:8 <valid <q:8 >mode", "--map PORT=start if it begins a call (mode)"},
    {">clk <q:8", "no input is left"},
    {">clk >a:8 >start", "no output is left"},
    {">clk >data:8 >start <busy <txd", "txd: looks like a pin"},
    {">clk =sda >a:8 <q:8", "sda: an inout is for a pin"},
    {">clk >wb_cyc_i >wb_adr_i:32 <wb_dat_o:32", "a Wishbone bus"},
    {">clk >s_axi_awaddr:32 <q:8", "an AXI memory bus"},
    {">clk >a:2048 <q:8", "a has 2048 bits", {}, 1},
    {">clk >a:8 >k:4 <q:8", "pipeline CI1O", {{"k", "4'hA"}}, 1},
    {">clk >a:8 >k:4 <q:8", "'16' is no constant of 4 bits", {{"k", "16"}}, 1},
    {">clk >a:8 <q:8", "has no port 'b'", {{"b", "open"}}, 1},
    {">clk >a:8 <q:8", "an input cannot be left open", {{"a", "open"}}, 1},
    {">clk >a:8 <q:8", "an output cannot be 'input'", {{"q", "input"}}, 1},
};

TEST(ComponentNewTest, PortsAreWhatTheirNamesSayOrAQuestion) {
  for (const Row& row : ROWS) {
    SCOPED_TRACE(row.ports);
    PortChoices choices;
    choices.roles = row.roles;
    choices.latency = row.latency;
    choices.has_edges = row.has_edges;
    const PortPlan plan = plan_ports(design_of(row.ports), choices);
    if (plan.problems.empty()) {
      const char* schemes[] = {"direct ", "stream ", "call ", "pipeline "};
      EXPECT_EQ(schemes[static_cast<int>(plan.scheme)] + letters(plan), row.expected);
    } else {
      EXPECT_NE(plan.problems[0].text.find(row.expected), std::string::npos) << plan.problems[0].text;
    }
  }
}

struct Module {
  const char* name;
  const char* extension;
  const char* text;
  std::vector<std::string> options = {};
};

const Module MODULES[] = {
    {"halve", "v",
     "module halve(input clk, input rst, input start, input [11:0] kernel, output reg done, "
     "output reg [10:0] q, output reg odd);\nalways @(posedge clk) begin done <= start & ~rst;\n"
     "q <= kernel[11:1]; odd <= kernel[0]; end\nendmodule\n"},
    {"step",
     "sv",
     "module step(input logic [7:0] clock, output logic [7:0] y);\nassign y = clock + 8'd1;\nendmodule\n",
     {"--map", "clock=input"}},
    {"two", "v",
     "module two(input clk, input rst, input [31:0] a, input a_stb, output a_ack, input [31:0] b,\n"
     "input b_stb, output b_ack, output reg [31:0] z, output reg z_stb, input z_ack);\n"
     "wire go = a_stb & b_stb & (~z_stb | z_ack); assign a_ack = go; assign b_ack = go;\n"
     "always @(posedge clk) begin if (go) z <= a + b; z_stb <= ~rst & (go | (z_stb & ~z_ack)); end\nendmodule\n"},
    {"wait", "vhd",
     "library ieee; use ieee.std_logic_1164.all; use ieee.numeric_std.all; use work.types.all;\nentity later is\n"
     "port (clk : in std_logic; rst_n : in std_logic; start, up : in std_logic; n : in natural range 0 to 100;\n"
     "wire : in integer range -8 to 7; a : in word; q : out word; done : out std_logic; big : out boolean);\n"
     "end;\narchitecture a of later is signal reg : word; begin q <= reg;\nprocess (clk) begin if rising_edge(clk) "
     "then\n"
     "done <= start and rst_n; big <= a > 100; reg <= a + n - unsigned(to_signed(wire, 12)); if up = '0' then\n"
     "reg <= a; end if; end if; end process;\nend;\n"},
};

class ComponentNewCommandTest : public InTempDir {
protected:
  void SetUp() override {
    if (std::system("command -v verilator ghdl clang >.tools") != 0) {
      GTEST_SKIP() << "verilator, ghdl or clang is not installed";
    }
  }
  static Outcome component(std::vector<std::string> words) {
    words.insert(words.begin(), BFCL_BIN_DIR "/bfcl-component");
    return run(words);
  }
};

TEST_F(ComponentNewCommandTest, WhatIsWrittenIsCheckedAndPackaged) {
  fs::create_directory("rtl files");
  write_file("rtl files/types.vhd", "library ieee; use ieee.numeric_std.all;\npackage types is\n"
                                    "subtype word is unsigned(11 downto 0);\nend;\n");
  for (const Module& module : MODULES) {
    SCOPED_TRACE(module.name);
    const std::string source = std::string("rtl files/") + module.name + "." + module.extension;
    write_file(source, module.text);
    const std::string name = module.name == std::string("wait") ? "later" : module.name;
    std::vector<std::string> words = {"new", name, source, "-o", "made here"};
    words.insert(words.end(), module.options.begin(), module.options.end());
    const Outcome made = component(words);
    EXPECT_EQ(made.status, 0) << made.out << made.err;
    EXPECT_EQ(made.out.find("are measured") == std::string::npos, name == "step") << made.out;
    const std::string spec = "made here/" + name + ".xml";
    const Outcome checked = component({"check", spec});
    EXPECT_EQ(checked.status, 0) << checked.out << checked.err;
    EXPECT_EQ(bfcl_library({"-c", spec, "-o", name + ".bfco"}).status, 0);
    const std::string wrapper =
        read_file("made here/" + name + "_component." + (module.extension == std::string("vhd") ? "vhd" : "sv"));
    EXPECT_EQ(component(words).status, 2); // nothing is written over
    EXPECT_FALSE(wrapper.empty());
  }
}

TEST_F(ComponentNewCommandTest, TimingIsMeasured) {
  write_file(
      "queue.sv",
      "module queue(input logic clk, rst, input logic [31:0] in_data, input logic in_valid, output logic in_ready,\n"
      "output logic [31:0] out_data, output logic out_valid, input logic out_ready);\n"
      "logic [31:0] words[4]; logic [2:0] w, r;\nassign in_ready = 3'(w - r) != 4;\n"
      "assign out_valid = w != r; assign out_data = words[r[1:0]];\n"
      "always_ff @(posedge clk) if (rst) begin w <= 0; r <= 0; end else begin\n"
      "if (in_valid && in_ready) begin words[w[1:0]] <= in_data; w <= w + 1; end\n"
      "if (out_valid && out_ready) r <= r + 1; end\nendmodule\n");
  const Outcome made = component({"new", "queue", "queue.sv"});
  EXPECT_NE(made.out.find("queue.xml: EXPECTED_LATENCY and CAPACITY are measured"), std::string::npos) << made.out;
  const std::string spec = read_file("queue.xml");
  EXPECT_NE(spec.find("<EXPECTED_LATENCY value=\"1\"/>\n      <CAPACITY value=\"4\"/>"), std::string::npos) << spec;
  // Here the module takes a call, and ends it, in one clock.
  write_file(
      "hls.v",
      "module hls(input ap_clk, input ap_rst, input ap_start, output ap_done, output ap_idle, output ap_ready,\n"
      "input [31:0] a, output [31:0] ap_return);\nreg [1:0] s; assign ap_done = s == 3; assign ap_ready = s == 3;\n"
      "assign ap_idle = s == 0; assign ap_return = a + 1;\n"
      "always @(posedge ap_clk) s <= ap_rst ? 0 : s == 0 ? {1'b0, ap_start} : s + 1;\nendmodule\n");
  EXPECT_EQ(component({"new", "hls", "hls.v"}).status, 0);
  EXPECT_NE(read_file("hls.xml").find("<EXPECTED_LATENCY value=\"5\"/>"), std::string::npos) << read_file("hls.xml");
}

TEST_F(ComponentNewCommandTest, PathsAreShortUnlessALinkIsLeft) {
  fs::create_directories("a/b");
  fs::create_directory_symlink("a/b", "link");
  write_file("f", "");
  write_file("a/f", "");
  EXPECT_EQ("link/../f", tidy_path("link/../f"));
  EXPECT_EQ("f", tidy_path("./f"));
  EXPECT_EQ("a/f", tidy_path("a/b/../f"));
}

TEST_F(ComponentNewCommandTest, NothingIsWrittenWithAQuestion) {
  write_file("leaf.v", "module leaf(input a, output y); assign y = ~a; endmodule\n");
  write_file("top.v", "module top(input clk, input a, output y); leaf l(a, y); endmodule\n");
  EXPECT_EQ(component({"new", "top", "top.v"}).status, 1);
  EXPECT_FALSE(fs::exists("top.xml"));
  const Outcome made = component({"new", "top", "top.v", "--latency", "0"});
  EXPECT_EQ(made.status, 0) << made.out << made.err;
  EXPECT_NE(made.out.find("leaf.v: added, which 'leaf' is in"), std::string::npos) << made.out;
}

} // namespace
