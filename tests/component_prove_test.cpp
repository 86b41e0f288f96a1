// SPDX-License-Identifier: BSD-3-Clause
#include "support.h"

#include <cstdlib>

namespace {

namespace fs = std::filesystem;

Outcome prove(std::vector<std::string> words, const Environment& environment = {}) {
  words.insert(words.begin(), {BFCL_BIN_DIR "/bfcl-component", "prove"});
  return run(words, environment);
}

class ComponentProveTest : public InTempDir {
protected:
  void SetUp() override {
    if (std::system("command -v yosys yosys-abc ghdl >.tools") != 0) {
      GTEST_SKIP() << "yosys or ghdl is not installed";
    }
    restore();
  }

  // The examples; copy_add with two slots, of which everything can be proved in a second.
  static void restore() {
    for (const char* folder : {"common", "copy_add", "crc32c", "dither", "isqrt", "minmax", "popcount"}) {
      fs::remove_all(folder);
      fs::copy(fs::path(BFCL_SOURCE_DIR "/examples") / folder, folder);
    }
    edit("copy_add/copy_add.sv", "SLOTS = 8", "SLOTS = 2");
    edit("copy_add/copy_add.xml", "<CAPACITY value=\"8\"/>", "<CAPACITY value=\"2\"/>");
  }

  static void edit(const std::string& file, const std::string& from, const std::string& to) {
    write_file(file, replaced(read_file(file), from, to));
  }
};

struct Fault {
  const char* name;
  const char* spec;
  const char* file;
  const char* from;
  const char* to;
  std::vector<std::string> rules; // of the findings, or the ends of their messages
};

TEST_F(ComponentProveTest, EachFaultIsRefuted) {
  const char* const crc = "crc32c/crc32c.xml";
  const char* const minmax = "minmax/minmax.xml";
  const char* const popcount = "popcount/popcount.xml";
  const char* const copy = "copy_add/copy_add.xml";
  const char* const skid = "common/skid_buffer.v";
  const char* const copy_rtl = "copy_add/copy_add.sv";
  const Fault rows[] = {
      {"valid bits are not reset",
       crc,
       "crc32c/crc32.v",
       "    if (!resetn)\n      valid <= {STAGES{1'b0}};\n    else if (advance)",
       "    if (advance)",
       {"[reset]"}},
      {"a request is not reset", copy, copy_rtl, "asked   <= '0;", "", {"[reset]"}},
      {"data moves on while stalled",
       crc,
       "crc32c/crc32.v",
       "    if (advance)\n      for",
       "      for",
       {"[handshake]", "[result]"}},
      {"words are taken when full", crc, "crc32c/crc32.v", "iready   = advance", "iready   = 1'b1", {"[capacity]"}},
      {"ovalid waits for oready",
       crc,
       "crc32c/crc32.v",
       "valid_chain[STAGES];",
       "valid_chain[STAGES] && oready;",
       {"[capacity]"}},
      {"never ready", crc, "crc32c/crc32.v", "iready   = advance", "iready   = 1'b0", {"[capacity]"}},
      {"a stage less", popcount, "popcount/popcount.v", "ovalid = valid[2]", "ovalid = valid[1]", {"[latency]"}},
      {"a stage more than declared", popcount, popcount, "LATENCY value=\"3\"", "LATENCY value=\"2\"", {"[latency]"}},
      {"VHDL, a stage less than declared",
       "isqrt/isqrt.xml",
       "isqrt/isqrt.xml",
       "LATENCY value=\"4\"",
       "LATENCY value=\"5\"",
       {"[latency]"}},
      {"stall-free, but not ready",
       popcount,
       "popcount/popcount.v",
       "iready = 1'b1",
       "iready = !valid[2]",
       {"[handshake]"}},
      {"a word is lost on back-pressure", minmax, skid, "spare_full <= 1'b1", "spare_full <= 1'b0", {"[capacity]"}},
      {"a spare word is overwritten", minmax, skid, "if (iready)\n      spare", "spare", {"[result]"}},
      {"the last bit of the inputs counts otherwise while a result waits",
       minmax,
       "minmax/minmax.v",
       ".idata (choice)",
       ".idata (choice ^ (right[63] & ovalid))",
       {"[result]"}},
      {"words change places", minmax, skid, "spare_full ? spare : idata", "idata", {"[result]"}},
      {"a word is given again and again",
       minmax,
       skid,
       "spare_full <= 1'b0;\n    end else if (ivalid)",
       "end else if (ivalid)",
       {"[handshake]"}},
      {"CAPACITY too low", minmax, minmax, "CAPACITY value=\"2\"", "CAPACITY value=\"1\"", {"[capacity]"}},
      {"CAPACITY too high",
       minmax,
       minmax,
       "CAPACITY value=\"2\"",
       "CAPACITY value=\"3\"",
       {"CAPACITY is 3, but while no result is taken, the words taken are 2 [capacity]"}},
      {"another word is asked for while one waits",
       copy,
       copy_rtl,
       "sources[asked[SLOT_BITS-1:0]];",
       "sources[fetched[SLOT_BITS-1:0]];",
       {"[memory]"}},
      {"an address changes while it waits",
       copy,
       copy_rtl,
       "targets[written[SLOT_BITS-1:0]];",
       "targets[acked[SLOT_BITS-1:0]];",
       {"[memory]"}},
      {"a burst of no words",
       copy,
       copy_rtl,
       "target_mem_burstcount = 1'b1",
       "target_mem_burstcount = 1'b0",
       {"[memory]"}},
  };
  for (const Fault& fault : rows) {
    SCOPED_TRACE(fault.name);
    restore();
    edit(fault.file, fault.from, fault.to);
    const Outcome got = prove({fault.spec});
    for (const std::string& rule : fault.rules) {
      EXPECT_NE(got.out.find(rule + "\n"), std::string::npos) << rule << "\n" << got.out;
    }
    EXPECT_EQ(got.status, 1) << got.out << got.err;
    EXPECT_EQ(got.err, "");
  }
}

// A queue in an array, with the first word at the output at once: no fault may be found.
const char* const QUEUE = R"(
module queue (input clock, input resetn, input ivalid, output iready, output ovalid, input oready,
              input [7:0] word, output [7:0] same);
  reg [7:0] words [0:7];
  reg [3:0] first, last;
  assign iready = (last - first) != 4'd8;
  assign ovalid = last != first;
  assign same = words[first[2:0]];
  always @(posedge clock) begin
    if (ivalid && iready) words[last[2:0]] <= word;
    last  <= resetn ? last + (ivalid && iready) : 4'd0;
    first <= resetn ? first + (ovalid && oready) : 4'd0;
  end
endmodule
)";

// Makes a component of its own from popcount's description.
void write_queue(const std::string& text) {
  std::string spec = read_file("popcount/popcount.xml");
  for (const auto& [from, to] : {std::pair("<IS_STALL_FREE value=\"yes\"/>", "<CAPACITY value=\"8\"/>"),
                                 {"<IS_FIXED_LATENCY value=\"yes\"/>", ""},
                                 {"module=\"popcount\"", "module=\"queue\""},
                                 {"port=\"word\" width=\"64\"", "port=\"word\" width=\"8\""},
                                 {"port=\"ones\" width=\"32\"", "port=\"same\" width=\"8\""},
                                 {"popcount.v", "queue.v"}}) {
    spec = replaced(spec, from, to);
  }
  write_file("popcount/queue.v", text);
  write_file("popcount/queue.xml", spec);
}

TEST_F(ComponentProveTest, GoodComponentsAreProved) {
  write_queue(QUEUE);
  // The examples as they are have a test of their own.
  for (const std::string spec : {"crc32c/crc32c.xml", "copy_add/copy_add.xml", "popcount/queue.xml"}) {
    const Outcome got = prove({spec, "--depth", "6"});
    EXPECT_EQ(got.status, 0) << got.out;
    EXPECT_EQ(got.err, "");
    EXPECT_NE(got.out.find("without a word"), got.out.find("always ready")) << got.out;
  }
}

// Its results show before their words are taken.
TEST_F(ComponentProveTest, ComponentWithoutARegisterIsProved) {
  write_queue("module queue (input clock, input resetn, input ivalid, output iready, output ovalid, input oready,\n"
              "              input [7:0] word, output [7:0] same);\n"
              "  assign {iready, ovalid, same} = {oready, ivalid && resetn, word};\n"
              "endmodule\n");
  edit("popcount/queue.xml", "<CAPACITY value=\"8\"/>", "<IS_FIXED_LATENCY value=\"yes\"/><CAPACITY value=\"0\"/>");
  edit("popcount/queue.xml", "LATENCY value=\"3\"", "LATENCY value=\"0\"");
  const Outcome got = prove({"popcount/queue.xml"});
  EXPECT_EQ(got.status, 0) << got.out << got.err;
  EXPECT_NE(got.out.find("each result comes 0 clocks after its word: proved"), std::string::npos) << got.out;
}

TEST_F(ComponentProveTest, RefutationPrintsTheShortestTrace) {
  edit("popcount/popcount.xml", "LATENCY value=\"3\"", "LATENCY value=\"2\"");
  const Outcome got = prove({"popcount/popcount.xml", "--function", "popcount64"});
  EXPECT_EQ(got.status, 1);
  EXPECT_EQ(got.out.substr(0, got.out.find("popcount/popcount.xml: popcount64")),
            "popcount/popcount.xml:7: error: popcount64: EXPECTED_LATENCY is 2, but no result comes 2 clocks "
            "after a word [latency]\n"
            "  clock  ivalid  iready  ovalid  oready  held\n"
            "  reset       0       1       0       0  0000\n"
            "  reset       0       1       0       0  0000\n"
            "  reset       0       1       0       0  0000\n"
            "      1       1       1       0       0  0000\n"
            "      2       0       1       0       0  0001\n"
            "      3       0       1       0       0  0001\n");
}

TEST_F(ComponentProveTest, WhatCannotBeProvedIsNotRefuted) {
  const struct {
    const char* name;
    std::string queue; // Verilog
    const char* tool;  // replaced by a script
    const char* script;
    const char* message;
  } rows[] = {
      {"syntax", replaced(QUEUE, "input clock,", "input clock;"), "", "", "queue.v:2: ERROR: syntax error"},
      {"missing module", replaced(QUEUE, "endmodule", "nowhere n (clock); endmodule"), "", "", "nowhere"},
      {"falling edge", replaced(QUEUE, "posedge", "negedge"), "", "", "ERROR: Assertion failed"},
      {"driven twice", replaced(QUEUE, "endmodule", "assign ovalid = iready; endmodule"), "", "",
       "conflicting drivers"},
      {"solver crashes", QUEUE, "yosys-abc", "kill -SEGV $$", "yosys-abc was ended by signal 11"},
      {"solver says nothing", QUEUE, "yosys-abc", "exit 0", "yosys-abc"},
      {"reader is of another kind", QUEUE, "yosys", "exit 0", "yosys wrote no graph"},
  };
  fs::create_directory("bin");
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    write_queue(row.queue);
    fs::remove_all("bin");
    fs::create_directory("bin");
    if (*row.tool != '\0') {
      const std::string path = std::string("bin/") + row.tool;
      write_file(path, "#!/bin/sh\n" + std::string(row.script) + "\n");
      fs::permissions(path, fs::perms::owner_all);
    }
    const Outcome got =
        prove({"popcount/queue.xml"}, {{"PATH", fs::absolute("bin").string() + ":" + std::getenv("PATH")}});
    EXPECT_EQ(got.status, 2) << got.out;
    EXPECT_EQ(got.out.find(": error: "), std::string::npos) << got.out;
    EXPECT_NE(got.err.find(row.message), std::string::npos) << got.err;
    EXPECT_NE(got.err.find("popcount64: not proved: "), std::string::npos) << got.err;
  }
}

} // namespace
