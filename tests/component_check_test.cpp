// SPDX-License-Identifier: BSD-3-Clause
#include "support.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>

namespace {

namespace fs = std::filesystem;

Outcome check(std::vector<std::string> words, const Environment& environment = {}) {
  words.insert(words.begin(), {BFCL_BIN_DIR "/bfcl-component", "check"});
  return run(words, environment);
}

class ComponentCheckTest : public InTempDir {
protected:
  void SetUp() override {
    if (std::system("command -v verilator ghdl clang >.tools") != 0) {
      GTEST_SKIP() << "verilator, ghdl or clang is not installed";
    }
    restore();
  }

  static void restore() {
    for (const char* folder : {"common", "copy_add", "crc32c", "dither", "isqrt", "minmax", "popcount"}) {
      fs::remove_all(folder);
      fs::copy(fs::path(BFCL_SOURCE_DIR "/examples") / folder, folder);
    }
  }
};

// A row of component_edits.txt.
struct Mistake {
  unsigned line = 0; // of the table
  std::string spec;
  std::string file;
  std::string from;
  std::string to;
  std::string new_file;
  std::string new_text;
  std::string expected;
  std::string message; // a part of what is printed
};

std::vector<Mistake> read_mistakes() {
  std::vector<Mistake> mistakes;
  std::istringstream lines(read_file(BFCL_SOURCE_DIR "/tests/data/component_edits.txt"));
  unsigned number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    const std::string rest = line.size() > 2 ? line.substr(2) : "";
    switch (line.empty() ? '#' : line.front()) {
    case '#':
      break;
    case '@':
      mistakes.push_back({});
      mistakes.back().line = number;
      mistakes.back().spec = rest.substr(0, rest.find(' '));
      mistakes.back().file = rest.substr(rest.rfind(' ') + 1);
      break;
    case '-':
      mistakes.back().from += rest + "\n";
      break;
    case '+':
      (mistakes.back().new_file.empty() ? mistakes.back().to : mistakes.back().new_text) += rest + "\n";
      break;
    case '>':
      mistakes.back().new_file = rest;
      break;
    case '~':
      mistakes.back().message = rest;
      break;
    default:
      mistakes.back().expected += line + "\n";
    }
  }
  return mistakes;
}

// The findings without their texts.
std::string findings_in(const std::string& output) {
  std::string findings;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    for (const std::string severity : {": error: ", ": warning: "}) {
      const std::size_t text = line.find(severity);
      if (text != std::string::npos && line.back() == ']') {
        findings += line.substr(0, text + severity.size() - 2) + line.substr(line.rfind(" [")) + "\n";
      }
    }
  }
  return findings;
}

TEST_F(ComponentCheckTest, EachMistakeIsFoundAtItsPlace) {
  const std::vector<Mistake> mistakes = read_mistakes();
  ASSERT_GT(mistakes.size(), 40U);
  for (const Mistake& mistake : mistakes) {
    SCOPED_TRACE("component_edits.txt:" + std::to_string(mistake.line));
    restore();
    const std::string from = mistake.from.substr(0, mistake.from.rfind('\n'));
    const std::string to = mistake.to.substr(0, mistake.to.rfind('\n'));
    write_file(mistake.file, replaced(read_file(mistake.file), from, to));
    if (!mistake.new_file.empty()) {
      write_file(mistake.new_file, mistake.new_text);
    }
    const Outcome got = check({mistake.spec});
    EXPECT_EQ(findings_in(got.out), mistake.expected) << got.out << got.err;
    EXPECT_NE(got.out.find(mistake.message), std::string::npos) << got.out;
    const bool is_bad = mistake.expected.find(": error [") != std::string::npos;
    EXPECT_EQ(got.status, is_bad ? 1 : 0) << got.err;
    EXPECT_EQ(got.err, "");
  }
}

TEST_F(ComponentCheckTest, TheExamplesAreGoodWhateverTheFolderAndTheNumberOfJobs) {
  const std::string strange = "odd $HOME 'names' é";
  fs::create_directory(strange);
  for (const char* folder : {"common", "dither", "isqrt", "minmax"}) {
    fs::rename(folder, fs::path(strange) / folder);
  }
  fs::rename(strange + "/dither/dither.sv", strange + "/dither/-d i;t$her.SV");
  const std::string spec = strange + "/dither/dither.xml";
  write_file(spec, replaced(read_file(spec), "\"dither.sv\"", "\"-d i;t$her.SV\""));
  std::vector<std::string> specs = {"popcount/popcount.xml", spec, strange + "/isqrt/isqrt.xml",
                                    strange + "/minmax/minmax.xml"};
  const std::string expected = specs[0] + ": popcount64: ok\n" + specs[1] + ": dither_rgb565: ok\n" + specs[2] +
                               ": isqrt32: ok\n" + specs[3] + ": min_u8x8: ok\n" + specs[3] + ": max_u8x8: ok\n";
  for (const std::string jobs : {"1", "3"}) {
    std::vector<std::string> words = specs;
    words.insert(words.end(), {"--jobs", jobs});
    const Outcome got = check(words);
    EXPECT_EQ(got.out, expected);
    EXPECT_EQ(got.status, 0) << got.err;
  }
}

TEST_F(ComponentCheckTest, JsonIsAllThatIsPrinted) {
  write_file("popcount/popcount.v", replaced(read_file("popcount/popcount.v"), "word,", "word, input x,"));
  write_file("bad.xml", "<EFI_SPEC><FUNCTION name='f'/></EFI_SPEC>");
  write_file("no.xml", "no XML");
  const Outcome got = check({"--json", "popcount/popcount.xml", "bad.xml", "no.xml"});
  EXPECT_EQ(got.status, 1);
  for (const std::string part :
       {"{\n  \"$schema\"", "\"ruleId\": \"port-extra\"", "\"ruleId\": \"description\"", "\"startLine\": 14",
        "\"text\": \"Expected attribute 'module' on element 'FUNCTION'.\"", "\"uri\": \"no.xml\""}) {
    EXPECT_NE(got.out.find(part), std::string::npos) << part << got.out;
  }
  EXPECT_EQ(got.out.front(), '{');
}

TEST_F(ComponentCheckTest, ModulesOfTheOtherLanguageCannotBeChecked) {
  const auto edit = [](const std::string& file, const std::string& from, const std::string& to) {
    write_file(file, replaced(read_file(file), from, to));
  };
  edit("popcount/popcount.v", "wire _unused = oready;", "mixed u (.x(oready));");
  edit("popcount/popcount.xml", "<FILE name=\"popcount.v\"/>", "<FILE name=\"popcount.v\"/><FILE name=\"mixed.vhd\"/>");
  write_file("popcount/mixed.vhd", "entity mixed is port (x : in bit); end;\n");
  edit("isqrt/isqrt.vhd", "begin\n", "begin\n  u : entity work.mixed;\n");
  edit("isqrt/isqrt.xml", "<FILE name=\"isqrt.vhd\"/>", "<FILE name=\"isqrt.vhd\"/><FILE name=\"mixed.v\"/>");
  write_file("isqrt/mixed.v", "module mixed; endmodule\n");
  const Outcome got = check({"popcount/popcount.xml", "isqrt/isqrt.xml"});
  EXPECT_EQ(got.status, 2);
  EXPECT_EQ(got.out, "");
  EXPECT_EQ(got.err, "bfcl-component: popcount/popcount.xml: the VHDL entity 'mixed' in the Verilog "
                     "module at popcount/popcount.v:54 cannot be checked: no tool reads both "
                     "languages\n"
                     "bfcl-component: isqrt/isqrt.xml: the Verilog module 'mixed' in the VHDL entity "
                     "at isqrt/isqrt.vhd:29 cannot be checked: no tool reads both languages\n");
}

struct BrokenTool {
  const char* name;
  const char* tool;
  const char* script;
  const char* message;
};

// The components are good: nothing about them may be printed.
TEST_F(ComponentCheckTest, FaultsOfToolsAreNoFaultsOfComponents) {
  const BrokenTool rows[] = {
      {"old", "verilator", "echo 'Verilator 4.038 2020-07-11'", "verilator 4.038 is too old: 5.006 or later is needed"},
      {"unfit", "verilator", "echo 'Verilator 5.042 2025-11-02'",
       "verilator 5.042 leaves output ports out: another version is needed"},
      {"garbage", "verilator", "head -c 5000 /dev/zero", "verilator does not say which version it is"},
      {"no netlist", "verilator", "echo 'Verilator 5.006 2023-01-22'", "verilator's output cannot be read"},
      {"killed", "verilator", "[ $1 = --version ] && exec echo 'Verilator 5.006'\nkill -SEGV $$",
       "verilator was ended by signal 11 (Segmentation fault)"},
      {"crashed", "verilator",
       "[ $1 = --version ] && exec echo 'Verilator 5.006'\n"
       "echo '%Error: Internal Error: a.v:1:1: ../V3Ast.cpp:1: No' >&2\nexit 1",
       "verilator failed by itself: Internal Error: a.v:1:1: ../V3Ast.cpp:1: No"},
      {"old", "ghdl", "echo 'GHDL 0.37'", "ghdl 0 is too old: 2.0 or later is needed"},
      {"option", "verilator",
       "[ $1 = --version ] && exec echo 'Verilator 5.030'\necho '%Error: Invalid option: -x' >&2\nexit 1",
       "verilator failed by itself: Invalid option: -x"},
      {"silent", "ghdl", "[ $1 = --version ] && echo 'GHDL 2.0.0' || exit 1", "ghdl failed without a message"},
      {"garbage", "ghdl", "[ $1 = --version ] && echo 'GHDL 2.0.0' || echo x", "ghdl's output cannot be read"},
      {"not executable", "ghdl", nullptr, "ghdl"},
      {"silent", "clang", "exit 0", "clang does not print declarations"},
      {"other JSON", "clang", "echo '[{\"kind\": 3}]'", "clang printed something else than an AST"},
  };
  fs::create_directory("bin");
  for (const auto& [name, tool, script, message] : rows) {
    SCOPED_TRACE(std::string(tool) + ", " + name);
    const std::string path = std::string("bin/") + tool;
    write_file(path, script != nullptr ? "#!/bin/sh\n" + std::string(script) + "\n" : "");
    fs::permissions(path, fs::perms::owner_all);
    const std::string spec = tool == std::string("ghdl") ? "isqrt/isqrt.xml" : "popcount/popcount.xml";
    const Outcome got = check({spec}, {{"PATH", fs::absolute("bin").string() + ":" + std::getenv("PATH")}});
    EXPECT_EQ(got.status, 2);
    EXPECT_EQ(got.out, "");
    const std::string subject = tool == std::string("clang") ? "popcount/popcount.cl" : spec;
    EXPECT_NE(got.err.find("bfcl-component: " + subject + ": " + message), std::string::npos) << got.err;
    fs::remove(path);
  }
}

} // namespace
