// SPDX-License-Identifier: BSD-3-Clause
// Looking into packages and libraries, and taking them apart.
#include "package_exe/tree.h"
#include "support.h"

#include <nlohmann/json.hpp>

using bfcl::package::print_tree;
using bfcl::package::TreeNode;

namespace {

const Environment UTF8 = {{"LC_ALL", "C.UTF-8"}};

const std::string XML =
    "<RTL_SPEC><FUNCTION name='mix' module='mix_top'>\n"
    "<ATTRIBUTES><IS_STALL_FREE value='no'/><IS_FIXED_LATENCY value='no'/><EXPECTED_LATENCY value='7'/>"
    "<CAPACITY value='3'/><HAS_SIDE_EFFECTS value='yes'/></ATTRIBUTES>\n<INTERFACE>"
    "<VEYRA port='clock' type='clock'/><VEYRA port='resetn' type='resetn'/><VEYRA port='in_valid' type='ivalid'/>"
    "<VEYRA port='iready' type='iready'/><VEYRA port='oready' type='oready'/><VEYRA port='ovalid' type='ovalid'/>"
    "<INPUT port='a' width='8'/><MEM_INPUT port='p' access='readonly'/><OUTPUT port='q' width='16'/>"
    "<VEYRA_MEM port='m' width='512' burstwidth='5' optype='read' buffer_location='DDR'/></INTERFACE>\n"
    "<C_MODEL><FILE name='../model/m.cl'/></C_MODEL><REQUIREMENTS><FILE name='top.v'/></REQUIREMENTS>\n"
    "<RESOURCES><ALUTS value='10'/><DSPS value='2.5'/></RESOURCES></FUNCTION></RTL_SPEC>\n";

// Packages mix.bfco, of a component with all that can be shown, and add.bfco, and joins them to lib.
class Packages : public InTempDir {
protected:
  Packages() {
    write_file("mix/mix.xml", XML);
    write_file("mix/top.v", "module mix_top(in_valid a p q m);\n");
    write_file("model/m.cl", "int mix(int a);\n");
    EXPECT_EQ("", bfcl_library({"-c", "mix/mix.xml", "-o", "mix.bfco"}).out);
    EXPECT_EQ("", bfcl_library({"-c", write_component("add", "add"), "-o", "add.bfco"}).out);
    EXPECT_EQ("", bfcl_library({"create", "-name", "lib", "-version", "1.2", "add.bfco", "mix.bfco"}).out);
  }
};

// The text with each line in a branch of a tree that goes on below it, or is its last one.
std::string indented(const std::string& text, bool last) {
  std::string result;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    const std::string branch = last ? "└── " : "├── ";
    result += (result.empty() ? branch : last ? "    " : "│   ") + line + "\n";
  }
  return result;
}

} // namespace

TEST_F(Packages, Show) {
  const auto show = [](const std::vector<std::string>& files) {
    std::vector<std::string> words = {"show"};
    words.insert(words.end(), files.begin(), files.end());
    const Outcome result = bfcl_package(words, UTF8);
    EXPECT_EQ(0, result.status);
    EXPECT_EQ("", result.err);
    return result.out;
  };
  const auto size = [](const std::string& file) {
    return std::to_string(std::filesystem::file_size(file)) + " bytes\n";
  };
  const std::string mix = "├── function mix, module mix_top\n"
                          "│   ├── latency 7, capacity 3, side effects\n"
                          "│   ├── signals clock, resetn, iready, in_valid (ivalid), oready, ovalid\n"
                          "│   ├── input a, 8 bits\n"
                          "│   ├── input p, 64 bits, readonly pointer\n"
                          "│   ├── output q, 16 bits\n"
                          "│   ├── memory port m, 512 bits, burst width 5, read, buffer location DDR\n"
                          "│   └── resources 10 ALUTs, 2.5 DSPs\n"
                          "├── directory prefix mix/\n"
                          "├── specification mix.xml, " +
                          size("mix/mix.xml") +
                          "├── source top.v, 34 bytes\n"
                          "└── C model ../model/m.cl, 16 bytes\n";
  const std::string add = "├── function add, module top\n"
                          "│   ├── latency 1, capacity 1, fixed latency, stall-free\n"
                          "│   ├── signals clock, resetn, iready, ivalid, oready, ovalid\n"
                          "│   └── input a, 8 bits\n"
                          "├── specification spec.xml, " +
                          size("add/spec.xml") +
                          "├── source top.v, 15 bytes\n"
                          "└── C model add.cl, 16 bytes\n";
  EXPECT_EQ("mix.bfco: component package, " + size("mix.bfco") + mix + "add.bfco: component package, " +
                size("add.bfco") + add,
            show({"mix.bfco", "add.bfco"}));
  EXPECT_EQ("lib.bfclib: library, " + size("lib.bfclib") + "├── version 1.2, name lib, vendor no_vendor\n" +
                indented("component package .vex.comp.add, " + size("add.bfco") + add, false) +
                indented("component package .vex.comp.mix, " + size("mix.bfco") + mix, true),
            show({"lib.bfclib"}));
  write_file("code",
             make_package({{".vex.clang_ir.x86_64-unknown-linux-ostrahw", "BC"}, {".vex.clang_ir.spir64", ""}}));
  EXPECT_EQ("code: OpenCL package, " + size("code") +
                "├── target x86_64-unknown-linux-ostrahw, 2 bytes\n└── target spir64, 0 bytes\n",
            show({"code"}));
}

TEST_F(Packages, ShowJson) {
  const auto table = "f HDL .vex.comp.mix\nu LLVM_IR <clang_ir>\n<END_OF_TABLE>";
  write_file("lib", make_package({{".vex.comp.mix", read_file("mix.bfco")},
                                  {".vex.clang_ir.spir64", "BC"},
                                  {".vex.comp_table", table},
                                  {".vex.info", "1 n v\xff"},
                                  {".vex.version", ""}}));
  const auto expected = nlohmann::json::parse(R"({"version": 1, "files": [{
    "path": "lib", "kind": "library", "bytes": )" +
                                              std::to_string(std::filesystem::file_size("lib")) + R"(,
    "library": {"version": "1", "name": "n", "vendor": "v\ufffd"},
    "packages": [{"section": ".vex.comp.mix", "bytes": )" +
                                              std::to_string(std::filesystem::file_size("mix.bfco")) + R"(,
      "directory_prefix": "mix/", "specification": {"name": "mix.xml", "bytes": )" +
                                              std::to_string(XML.size()) + R"(},
      "files": [{"name": "top.v", "kind": "source", "bytes": 34},
                {"name": "../model/m.cl", "kind": "c_model", "bytes": 16}],
      "components": [{"function": "mix", "module": "mix_top", "latency": 7, "capacity": 3,
        "fixed_latency": false, "stall_free": false, "side_effects": true, "merging_allowed": false,
        "signals": {"clock": "clock", "resetn": "resetn", "ivalid": "in_valid", "iready": "iready",
                    "oready": "oready", "ovalid": "ovalid"},
        "inputs": [{"port": "a", "access": "scalar", "width": 8}, {"port": "p", "access": "readonly", "width": 64}],
        "output": {"port": "q", "width": 16},
        "memory_ports": [{"port": "m", "width": 512, "burst_width": 5, "operation": "read",
                          "buffer_location": "DDR"}],
        "parameters": [], "resources": {"aluts": 10.0, "ffs": 0.0, "rams": 0.0, "dsps": 2.5, "mlabs": 0.0}}]}],
    "opencl_functions": ["u"], "targets": [{"target": "spir64", "bytes": 2}]}]})");
  const Outcome result = bfcl_package({"show", "--json", "lib"});
  EXPECT_EQ(0, result.status);
  EXPECT_EQ(expected, nlohmann::json::parse(result.out)) << result.out;
}

TEST_F(Packages, ShowReportsFaultsAndGoesOn) {
  write_file("bad.bfco", replaced(read_file("add.bfco"), "<RTL_SPEC>", "<RTL_SPUR>"));
  write_file("\x1b", make_package({{".comp_header", "\x1b[2J HDL\n<END_OF_TABLE>"}, {".dir_container", ""}}));
  const Outcome result = bfcl_package({"show", "absent", "bad.bfco", "\x1b"}, {{"LC_ALL", "C"}});
  EXPECT_EQ(1, result.status);
  EXPECT_EQ("bfcl-package: absent: cannot open: No such file or directory\n"
            "bfcl-package: bad.bfco: XML error: XML_ERROR_MISMATCHED_ELEMENT, Error=XML_ERROR_MISMATCHED_ELEMENT "
            "ErrorID=14 (0xe) Line number=1: XMLElement name=RTL_SPUR\n"
            "bfcl-package: \\x1b: no section .xml_spec.NAME\n",
            result.err);
  EXPECT_EQ("bad.bfco: component package, " + std::to_string(std::filesystem::file_size("bad.bfco")) +
                " bytes\n|-- function add\n|-- specification spec.xml, " +
                std::to_string(std::filesystem::file_size("add/spec.xml")) +
                " bytes\n|-- source top.v, 15 bytes\n`-- C model add.cl, 16 bytes\n"
                "\\x1b: component package, 4680 bytes\n`-- function \\x1b[2J\n",
            result.out);
}

TEST_F(Packages, Usage) {
  for (const std::vector<std::string>& words :
       std::vector<std::vector<std::string>>{{}, {"show"}, {"unknown"}, {"show", "--unknown", "mix.bfco"}}) {
    const Outcome result = bfcl_package(words);
    EXPECT_EQ(2, result.status);
    EXPECT_EQ("", result.out);
    EXPECT_NE("", result.err);
  }
  EXPECT_EQ(0, bfcl_package({"--help"}).status);
  EXPECT_EQ(1, run({"sh", "-c", BFCL_BIN_DIR "/bfcl-package show mix.bfco >/dev/full"}).status);
}

TEST(Tree, TextsThatAreTooLongGoOn) {
  TreeNode root = {"root", true, {}};
  root.add("one two three four five").add("four five six seven eight nine");
  root.add("\u00e4\u00f6\u00fc" + std::string(30, 'x') + " y", true);
  EXPECT_EQ("\x1b[1mroot\x1b[0m\n"
            "|-- one two three four\n"
            "|     five\n"
            "|   `-- four five six seven\n"
            "|         eight nine\n"
            "`-- \x1b[1m\u00e4\u00f6\u00fcxxxxxxxxxxxxxxxxx\x1b[0m\n"
            "      \x1b[1mxxxxxxxxxxxxx y\x1b[0m\n",
            print_tree(root, {false, true, 24}));
}
