// SPDX-License-Identifier: BSD-3-Clause
#include "component_exe/ghdl_output.h"
#include "component_exe/verilator_run.h"
#include "support.h"

using namespace bfcl::component;

namespace {

class VerilatorTest : public InTempDir {};

std::string listed(const Design& design) {
  std::string list;
  for (const Port& port : design.ports) {
    list += port.name + " " + std::to_string(static_cast<int>(port.direction)) + " " +
            std::to_string(static_cast<int>(port.kind)) + " " + std::to_string(port.width) + " " + port.place.file +
            ":" + std::to_string(port.place.line) + "\n";
  }
  for (const Parameter& parameter : design.parameters) {
    list += parameter.name + (parameter.is_local ? " local\n" : "\n");
  }
  for (const DataFile& data : design.data_files) {
    list += data.name + " " + std::to_string(data.place.line) + "\n";
  }
  return list;
}

const std::string EXPECTED = "clock 0 0 1 a.sv:2\n"
                             "pixels 0 0 48 a.sv:3\n"
                             "either 1 0 9 a.sv:4\n"
                             "pin 2 0 2 a.sv:5\n"
                             "list 0 1 0 a.sv:6\n"
                             "bus 0 3 0 a.sv:7\n"
                             "number 0 4 0 a.sv:8\n"
                             "mixed 0 1 0 a.sv:9\n"
                             "WIDTH\nHALF local\nx.hex 12\n";

// As newer versions write it, which Debian does not have.
TEST_F(VerilatorTest, ReadsTheJsonOfNewerVersions) {
  const auto var = [](const std::string& name, const std::string& direction, const std::string& type, int line) {
    return R"J({"type":"VAR","name":")J" + name + R"J(","loc":"d,)J" + std::to_string(line) +
           R"J(:3,2:8","dtypep":"()J" + type + R"J()","varType":"PORT","direction":")J" + direction + R"J("},)J";
  };
  const std::string netlist =
      R"J({"type":"NETLIST","name":"$root","addr":"(A)","modulesp":[
      {"type":"PACKAGE","name":"p","loc":"d,1:1,1:2","stmtsp":[]},
      {"type":"MODULE","name":"top","origName":"top","loc":"d,1:8,1:11","stmtsp":[)J" +
      var("clock", "INPUT", "B", 2) + var("pixels", "INPUT", "P", 3) + var("either", "OUTPUT", "R", 4) +
      var("pin", "INOUT", "E", 5) + var("list", "INPUT", "U", 6) + var("bus", "INPUT", "I", 7) +
      var("number", "INPUT", "D", 8) + var("mixed", "INPUT", "M", 9) + var("wire", "NONE", "B", 10) +
      R"J({"type":"VAR","name":"WIDTH","varType":"GPARAM","direction":"NONE","dtypep":"(B)"},
      {"type":"VAR","name":"HALF","varType":"LPARAM","direction":"NONE","dtypep":"(B)"},
      {"type":"INITIAL","stmtsp":[{"type":"READMEM","loc":"d,12:1,12:9",
       "filenamep":[{"type":"CONST","name":"40'h782e686578"}]}]}]}],
      "miscsp":[{"type":"TYPETABLE","typesp":[
      {"type":"BASICDTYPE","addr":"(B)","dtypep":"(B)","keyword":"logic"},
      {"type":"BASICDTYPE","addr":"(C)","dtypep":"(C)","keyword":"logic","range":"7:0"},
      {"type":"BASICDTYPE","addr":"(D)","dtypep":"(D)","keyword":"real"},
      {"type":"STRUCTDTYPE","addr":"(S)","dtypep":"(S)","membersp":[
       {"type":"MEMBERDTYPE","addr":"(S1)","dtypep":"(C)"},
       {"type":"MEMBERDTYPE","addr":"(S2)","dtypep":"(C)"}]},
      {"type":"PACKARRAYDTYPE","addr":"(P)","dtypep":"(P)","refDTypep":"(S)","declRange":"[2:0]"},
      {"type":"BASICDTYPE","addr":"(C9)","dtypep":"(C9)","keyword":"bit","range":"0:8"},
      {"type":"UNIONDTYPE","addr":"(R)","dtypep":"(R)","membersp":[
       {"type":"MEMBERDTYPE","addr":"(R1)","refDTypep":"(C)","dtypep":"(R1)"},
       {"type":"MEMBERDTYPE","addr":"(R2)","refDTypep":"(C9)","dtypep":"(R2)"}]},
      {"type":"BASICDTYPE","addr":"(C2)","dtypep":"(C2)","keyword":"logic","range":"1:0"},
      {"type":"ENUMDTYPE","addr":"(E)","dtypep":"(E)","refDTypep":"(C2)"},
      {"type":"UNPACKARRAYDTYPE","addr":"(U)","refDTypep":"(C)","declRange":"[0:3]"},
      {"type":"STRUCTDTYPE","addr":"(M)","dtypep":"(M)","membersp":[
       {"type":"MEMBERDTYPE","addr":"(M1)","dtypep":"(C)"},
       {"type":"MEMBERDTYPE","addr":"(M2)","dtypep":"(U)"}]},
      {"type":"IFACEREFDTYPE","addr":"(I)","dtypep":"(I)"}]}]})J";
  write_file("netlist.json", netlist);
  write_file("meta.json", R"({"files":{"a":{"filename":"<built-in>"},"d":{"filename":"a.sv"}}})");
  VerilatorRun run;
  run.design.top = "top";
  ASSERT_TRUE(read_verilator_json("netlist.json", "meta.json", run));
  EXPECT_EQ(listed(run.design), EXPECTED);
  run.design.top = "other";
  EXPECT_FALSE(read_verilator_json("netlist.json", "meta.json", run));
  for (std::size_t length : {std::size_t{0}, netlist.size() / 2}) {
    write_file("netlist.json", netlist.substr(0, length));
    EXPECT_FALSE(read_verilator_json("netlist.json", "meta.json", run));
  }
}

TEST_F(VerilatorTest, ReadsXmlHoweverDeepItIs) {
  std::string deep;
  for (int depth = 0; depth < 600; ++depth) {
    deep += std::string(2 * static_cast<std::size_t>(depth) + 6, ' ') + "<add>\n";
  }
  for (int depth = 600; depth-- > 0;) {
    deep += std::string(2 * static_cast<std::size_t>(depth) + 6, ' ') + "</add>\n";
  }
  write_file("netlist.xml", R"(<verilator_xml>
  <files>
    <file id="d" filename="a.sv"/>
  </files>
  <netlist>
    <module loc="d,1,8,1,9" name="top" origName="top" topModule="1">
      <var loc="d,2,1,2,2" name="clock" dtype_id="1" dir="input"/>
      <var loc="d,3,1,3,2" name="either" dtype_id="2" dir="output"/>
)" + deep + R"(    </module>
    <typetable>
      <basicdtype id="1" name="logic"/>
      <refdtype id="2" sub_dtype_id="2"/>
    </typetable>
  </netlist>
</verilator_xml>
)");
  VerilatorRun run;
  run.design.top = "top";
  ASSERT_TRUE(read_verilator_xml("netlist.xml", ".", run));
  EXPECT_EQ(listed(run.design), "clock 0 0 1 a.sv:2\neither 1 4 0 a.sv:3\n");
}

TEST(VerilatorMessages, HaveAPlaceACodeAndSometimesASecondPlace) {
  const auto messages = parse_verilator_messages("%Warning-MODDUP: b.v:1:8: Duplicate declaration of module: 'm'\n"
                                                 "    1 | module m;\n"
                                                 "      |        ^\n"
                                                 "                 a.v:3:8: ... Location of original declaration\n"
                                                 "%Error: d/a.v:4:13: Can't find definition of variable: 'clok'\n"
                                                 "                 : ... Suggested alternative: 'clock'\n"
                                                 "%Error: Specified --top-module 'x' was not found in design.\n"
                                                 "%Error\nrubbish: 1:2: \n%Warning-\n");
  ASSERT_EQ(messages.size(), 3U);
  EXPECT_EQ(messages[0].code, "MODDUP");
  EXPECT_EQ(messages[0].file + messages[0].other_file, "b.va.v");
  EXPECT_EQ(messages[0].other_line, 3U);
  EXPECT_FALSE(messages[0].is_error);
  EXPECT_EQ(messages[1].line, 4U);
  EXPECT_EQ(messages[1].text, "Can't find definition of variable: 'clok'; did you mean 'clock'?");
  EXPECT_EQ(messages[2].file, "");
}

TEST(GhdlMessages, HaveAPlaceOrAreTheProgramsOwn) {
  const auto messages = parse_ghdl_messages("a.vhd:x:5: y\n/usr/bin/ghdl-mcode: no library\n"
                                            "d/a.vhd:34:5:warning: unused\n");
  ASSERT_EQ(messages.size(), 2U);
  EXPECT_EQ(messages[0].file + messages[0].text, "no library");
  EXPECT_EQ(messages[1].file + messages[1].text, "d/a.vhdunused");
  EXPECT_EQ(messages[1].line, 34U);
}

} // namespace
