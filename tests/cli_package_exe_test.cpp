// SPDX-License-Identifier: BSD-3-Clause
// Looking into packages and libraries, and taking them apart.
#include "package_exe/tree.h"
#include "support.h"

#include <clocale>
#include <cstdlib>
#include <sstream>

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

// The text with the prefix in front of each line.
std::string with_prefix(const std::string& prefix, const std::string& text) {
  std::string result;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    result += prefix + line + "\n";
  }
  return result;
}

// The text with each line in a branch of a tree that continues below it, or is its last one.
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
             make_package({{".vex.clang_ir.x86_64-unknown-linux-ostrahw", "BC"}, {".vex.clang_ir.spir64", "B"}}));
  EXPECT_EQ("code: OpenCL package, " + size("code") +
                "├── target x86_64-unknown-linux-ostrahw, 2 bytes\n└── target spir64, 1 byte\n",
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
  EXPECT_NE(std::string::npos, result.out.find("v\\ufffd")); // ASCII: nothing disturbs a terminal
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

namespace {

// The commands that the output ends with.
std::string commands_of(const std::string& out) {
  const std::string heading = "To make the same again:\n";
  const std::size_t place = out.find(heading);
  return place != std::string::npos ? out.substr(place + heading.size()) : "";
}

// Runs the commands in a shell.
void run_commands(const std::string& commands) {
  const Outcome result =
      run({"sh", "-ec", commands}, {{"PATH", BFCL_BIN_DIR ":.:" + std::string(std::getenv("PATH"))}});
  EXPECT_EQ(0, result.status) << result.out << result.err;
}

} // namespace

TEST_F(Packages, UnpackedComponentsPackageToTheSameBytes) {
  std::vector<std::string> specs = {"mix/mix.xml", "./add/spec.xml", "s p/../add/spec.xml"};
  for (const std::string name : {"copy_add", "crc32c", "dither", "isqrt", "minmax", "popcount"}) {
    specs.push_back(BFCL_SOURCE_DIR "/examples/" + name + "/" + name + ".xml");
  }
  // Names through folders that are left again, of one file, of shared files; deep prefixes.
  std::filesystem::create_directories("s p/deep");
  write_file("s p/deep/x.xml",
             replaced(replaced(XML, "top.v'/>", "top.v'/><FILE name='./top.v'/><FILE name='a/../../t.v'/>"), "../model",
                      "../../model"));
  write_file("s p/t.v", "");
  write_file("s p/deep/top.v", read_file("mix/top.v"));
  std::filesystem::create_directory("s p/deep/a");
  specs.push_back("s p/deep/x.xml");
  specs.push_back("s p/./deep/x.xml"); // "." counts as a folder
  specs.push_back("s p/deep//x.xml");
  for (const std::string& spec : specs) {
    SCOPED_TRACE(spec);
    ASSERT_EQ("", bfcl_library({"-c", spec, "-o", "it's.bfco"}).out);
    const Outcome unpacked = bfcl_package({"unpack", "it's.bfco", "-C", "new/it's"});
    EXPECT_EQ("", unpacked.err);
    EXPECT_EQ(0, unpacked.status);
    run_commands(commands_of(unpacked.out));
    EXPECT_EQ(read_file("it's.bfco"), read_file("new/it's/it's.bfco"));
    std::filesystem::remove_all("new");
  }
}

TEST_F(Packages, UnpackWritesWhatItLists) {
  const std::string paths = "add/add.cl\nadd/spec.xml\nadd/top.v\nmix/mix/mix.xml\nmix/mix/top.v\nmix/model/m.cl\n";
  const Outcome listed = bfcl_package({"unpack", "lib.bfclib", "-C", "new", "--list"});
  EXPECT_EQ(with_prefix("new/", paths), listed.out);
  EXPECT_FALSE(std::filesystem::exists("new"));
  std::filesystem::create_directory("new");
  std::filesystem::current_path("new");
  EXPECT_EQ(paths + "To make the same again:\n  bfcl library hdl-comp-pkg add/spec.xml -o add.bfco\n"
                    "  bfcl library hdl-comp-pkg mix/mix/mix.xml -o mix.bfco\n",
            bfcl_package({"unpack", "../lib.bfclib"}).out);
  EXPECT_EQ(XML, read_file("mix/mix/mix.xml"));
  const Outcome one = bfcl_package({"unpack", "../lib.bfclib", "--function", "mix", "-C", "one/"});
  EXPECT_EQ("one/mix/mix.xml\none/mix/top.v\none/model/m.cl\nTo make the same again:\n"
            "  bfcl library hdl-comp-pkg one/mix/mix.xml -o one/mix.bfco\n",
            one.out);
  EXPECT_EQ("./-one/mix/mix.xml\n", bfcl_package({"unpack", "../mix.bfco", "-C-one", "--list"}).out.substr(0, 19));
  EXPECT_EQ("", run({"find", ".", "-name", ".bfcl*"}).out);
}

TEST_F(Packages, SplitLibrariesAreBuiltAgain) {
  const std::string ir = ".vex.clang_ir.x86_64-unknown-linux-ostrahw";
  write_file("code.bfco", make_package({{ir, "BC1"}, {".vex.clang_ir.spir64-unknown-unknown-ostrahw", "BC2"}}));
  write_file("bfcl-link", "#!/bin/sh\nexec cp \"$1\" \"$3\"\n");
  write_file("bfcl-opt", "#!/bin/sh\necho 'define i32 @util(i32 %a)'\n");
  std::filesystem::copy("mix.bfco", "0.bfco"); // its function comes after that of add.bfco
  std::filesystem::copy("add.bfco", "opencl.bfco");
  write_file("opencl.bfco", replaced(read_file("opencl.bfco"), "add HDL", "a_d HDL"));
  const struct {
    std::string packages;
    std::string names;
  } cases[] = {{"add.bfco mix.bfco", "new/add.bfco\nnew/mix.bfco\n"},
               {"0.bfco add.bfco", "new/1-mix.bfco\nnew/2-add.bfco\n"},
               {"code.bfco", "new/opencl.bfco\n"},
               {"add.bfco code.bfco mix.bfco", "new/add.bfco\nnew/mix.bfco\nnew/opencl.bfco\n"}};
  run_commands("chmod +x bfcl-link bfcl-opt");
  for (const auto& [packages, names] : cases) {
    SCOPED_TRACE(packages);
    run_commands("bfcl library create -vendor \"it's\" -o l.bfclib " + packages);
    const Outcome split = bfcl_package({"unpack", "--packages", "l.bfclib", "-C", "new"});
    EXPECT_EQ("", split.err);
    EXPECT_EQ(names + "To make the same again:\n"
                      "  bfcl library create -vendor 'it'\\''s' -o new/l.bfclib new/*.bfco\n",
              split.out);
    run_commands(commands_of(split.out));
    EXPECT_EQ(read_file("l.bfclib"), read_file("new/l.bfclib"));
    EXPECT_EQ(0, bfcl_package({"unpack", "--packages", "l.bfclib", "-C", "new"}).status);
    std::filesystem::remove_all("new");
  }
  EXPECT_EQ("new/opencl.bfco\n",
            bfcl_package({"unpack", "--packages", "l.bfclib", "-C", "new", "--function", "util"}).out);
  EXPECT_EQ("BC1", section_of("new/opencl.bfco", ir));
  EXPECT_EQ("new/mix.bfco\n", bfcl_package({"unpack", "--packages", "l.bfclib", "-C", "new", "--function", "mix"}).out);
  EXPECT_EQ(read_file("mix.bfco"), read_file("new/mix.bfco"));
}

TEST_F(Packages, HostileNamesAreRefused) {
  const auto component = [](const std::string& prefix, const Sections& files) {
    Sections sections = {{".dir_container", prefix}, {".xml_spec.s.xml", "<x/>"}};
    sections.insert(sections.end(), files.begin(), files.end());
    sections.emplace_back(".comp_header", "f HDL\n<END_OF_TABLE>");
    return make_package(sections);
  };
  const auto library = [&](const std::string& function) {
    return make_package({{".vex.comp." + function, component("", {})},
                         {".vex.comp_table", "f HDL .vex.comp.f\n<END_OF_TABLE>"},
                         {".vex.info", "1 n v"},
                         {".vex.version", ""}});
  };
  const std::string out = "leads out of the folder that the package is unpacked to";
  const std::string deep = [] {
    std::string name;
    for (int i = 0; i < 300; ++i) {
      name += "d/";
    }
    return name;
  }();
  const struct {
    std::string image;
    std::string fault;
  } cases[] = {
      {component("", {{".source.../x.v", ""}}), ".source.../x.v: " + out},
      {component("", {{".c_model.a/../../x.v", ""}}), ".c_model.a/../../x.v: " + out},
      {component("d/", {{".source.../../x.v", ""}}), ".source.../../x.v: " + out},
      {component("", {{".source./etc/x.v", ""}}), ".source./etc/x.v: absolute file name"},
      {component("/", {}), ".dir_container: not a list of folder names"},
      {component("../", {{".source.../x.v", ""}}), ".dir_container: not a list of folder names"},
      {component("/etc/", {}), ".dir_container: not a list of folder names"},
      {component("a//", {}), ".dir_container: 2 folders, but file names climb 0 levels"},
      {component(std::string("a\0b/", 4), {}), ".dir_container: not a list of folder names"},
      {component(std::string(300, 'd') + "/", {}), ".dir_container: not a list of folder names"},
      {component(deep, {}), ".dir_container: not a list of folder names"},
      {component("d/", {}), ".dir_container: 1 folder, but file names climb 0 levels"},
      {component("", {{".source.", ""}}), ".source.: not a file name"},
      {component("", {{".source.a/", ""}}), ".source.a/: not a file name"},
      {component("", {{".source.a/..", ""}}), ".source.a/..: not a file name"},
      {component("", {{".source." + std::string(300, 'n'), ""}}),
       ".source." + std::string(300, 'n') + ": file name too long"},
      {component("", {{".source." + deep + "x.v", ""}}), ".source." + deep + "x.v: file name too long"},
      {component("", {{".source.b", "1"}, {".source.a/../b", "2"}}),
       ".source.a/../b: has the same place as another file of other contents"},
      {component("", {{".c_model.s.xml", ""}}), ".c_model.s.xml: has the same place as another file of other contents"},
      {component("", {{".source.a", ""}, {".source.a/b", ""}}), ".source.a/b: needs a folder where another file is"},
      {component("", {{".source.a/b", ""}, {".source.a", ""}}), ".source.a: is where another file needs a folder"},
      {component("", {{".source.\x1b/../../\x1b", ""}}), ".source.\\x1b/../../\\x1b: " + out},
      {component("", {{".source.x\ny", ""}}), "section .source.x\\ny: a line break in the name"},
      {library("../f"), ".vex.comp.../f: does not end with a folder name"},
      {library(".."), ".vex.comp...: does not end with a folder name"},
      {replaced(library("f"), ".comp_header", ".xomp_header"),
       ".vex.comp.f: not a component package: no section .comp_header"},
  };
  for (const auto& [image, fault] : cases) {
    write_file("bad", image);
    const Outcome result = bfcl_package({"unpack", "bad", "-C", "new"});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("", result.out);
    EXPECT_EQ("bfcl-package: bad: " + fault + "\n", result.err);
    EXPECT_FALSE(std::filesystem::exists("new"));
  }
  write_file("bad", library("a/b"));
  EXPECT_EQ("bfcl-package: bad: .vex.comp.a/b: does not end with a file name\n",
            bfcl_package({"unpack", "--packages", "bad", "-C", "new"}).err);
  const std::pair<std::vector<std::string>, std::string> refused[] = {
      {{"add.bfco", "--packages"}, "add.bfco: not a library: only libraries contain packages"},
      {{"add.bfco", "--function", "x"}, "add.bfco: no component package defines the function x"},
      {{"lib.bfclib", "--packages", "--function", "x"}, "lib.bfclib: no function x"},
      {{"absent"}, "absent: cannot open: No such file or directory"}};
  for (auto [words, fault] : refused) {
    words.insert(words.begin(), {"unpack", "-C", "new"});
    EXPECT_EQ("bfcl-package: " + fault + "\n", bfcl_package(words).err);
    EXPECT_FALSE(std::filesystem::exists("new"));
  }
}

TEST_F(Packages, WhatExistsIsKept) {
  const struct {
    std::string name;
    std::string prepare; // in a shell
    std::string fault;   // with which nothing is written
  } cases[] = {
      {"a file that is a link", "ln -s ../victim new/mix/top.v", "new/mix/top.v: is a symbolic link"},
      {"a dangling link", "ln -s ../absent new/mix/top.v", "new/mix/top.v: is a symbolic link"},
      {"a folder that is a link", "rm -r new/mix; ln -s ../outside new/mix", "new/mix: is a symbolic link"},
      {"a file that is a folder", "mkdir new/mix/top.v", "new/mix/top.v: exists and is not a regular file"},
      {"a file that is a FIFO", "mkfifo new/mix/top.v", "new/mix/top.v: exists and is not a regular file"},
      {"a folder that is a file", "echo >new/model", "new/model: exists and is not a folder"},
      {"the destination is a file", "rm -r new; echo >new", "new: Not a directory"},
  };
  for (const auto& [name, prepare, fault] : cases) {
    SCOPED_TRACE(name);
    run_commands("mkdir -p outside new/mix; echo 1 >victim; " + prepare + "; find new outside | sort >before");
    std::vector<std::string> words = {"unpack", "mix.bfco", "-C", "new"};
    for (int forced = 0; forced < 2; ++forced) {
      const Outcome result = bfcl_package(words);
      words.push_back("--force");
      EXPECT_EQ(1, result.status);
      EXPECT_EQ("", result.out);
      EXPECT_EQ("bfcl-package: mix.bfco: " + fault + "\n", result.err);
    }
    run_commands("find new outside | sort | cmp - before; rm -r new");
  }
  EXPECT_EQ("1\n", read_file("victim"));

  std::filesystem::create_directory("new");
  std::filesystem::create_directory_symlink("new", "link"); // the destination itself may be one
  write_file("new/mix/top.v", "mine");
  write_file("new/mix/mix.xml", XML);
  const Outcome kept = bfcl_package({"unpack", "mix.bfco", "-C", "link"});
  EXPECT_EQ(1, kept.status);
  EXPECT_EQ("link/model/m.cl\n", kept.out);
  EXPECT_EQ("bfcl-package: mix.bfco: link/mix/top.v exists with other contents and is kept; --force replaces it\n",
            kept.err);
  EXPECT_EQ("mine", read_file("new/mix/top.v"));
  const Outcome forced = bfcl_package({"unpack", "mix.bfco", "-C", "link", "--force"});
  EXPECT_EQ(0, forced.status);
  EXPECT_EQ("link/mix/top.v\n", forced.out.substr(0, 15));
  EXPECT_EQ(read_file("mix/top.v"), read_file("new/mix/top.v"));
  const Outcome full =
      run({"sh", "-c", "(ulimit -f 0; " BFCL_BIN_DIR "/bfcl-package unpack mix.bfco -C full 2>&1) | cat"});
  EXPECT_EQ("bfcl-package: mix.bfco: full/mix/mix.xml: File too large\n", full.out);
  EXPECT_EQ("full\nfull/mix\n", run({"find", "full"}).out);
  EXPECT_EQ("bfcl-package: mix.bfco: /proc/mix: No such file or directory\n", // after which nothing is tried
            bfcl_package({"unpack", "mix.bfco", "-C", "/proc"}).err);
}

TEST_F(Packages, Verify) {
  const auto ir = [](const std::string& target) { return ".vex.clang_ir." + target; };
  const std::string add = read_file("add.bfco");
  const std::string mix = read_file("mix.bfco");
  const auto library = [&](const std::string& table, const std::string& section = ".vex.comp.add") {
    return make_package({{section, add},
                         {ir("x86_64-unknown-linux-ostrahw"), "BC"},
                         {".vex.comp_table", table + "<END_OF_TABLE>"},
                         {".vex.info", "1 n v"},
                         {".vex.version", ""}});
  };
  const std::string line = "add HDL .vex.comp.add\n";
  const struct {
    std::string image;
    std::string faults; // one a line, without the file's name
  } cases[] = {
      {add, "ok\n"},
      {mix, "ok\n"},
      {read_file("lib.bfclib"), "ok\n"},
      {library(line + "u LLVM_IR <clang_ir>\nadd LLVM_IR <clang_ir>\n"), "ok\n"},
      {make_package({{ir("x86_64-unknown-linux-ostrahw"), ""}}), "ok\n"},
      {make_package({{ir("spir64-unknown-unknown-ostrahw"), ""}}),
       "no section .vex.clang_ir.x86_64-unknown-linux-ostrahw beside those of other targets\n"},
      {make_package({{ir("x86_64-unknown-linux-ostrahw"), ""}, {ir("x"), ""}}),
       "section .vex.clang_ir.x: not a target that \"create\" accepts\n"},
      {add.substr(0, add.size() - 1), "cut short: 8 section headers at byte 5272 of 5591\n"},
      {replaced(add, "<RTL_SPEC>", "<RTL_SPUR>"),
       "XML error: XML_ERROR_MISMATCHED_ELEMENT, Error=XML_ERROR_MISMATCHED_ELEMENT ErrorID=14 (0xe) Line number=1: "
       "XMLElement name=RTL_SPUR\n"},
      {replaced(add, "<FILE name='top.v'", "<FILES nam='top.v'"),
       "Error in 'spec.xml', line 5: Unexpected element 'FILES'.\n"},
      {replaced(add, "<EXPECTED_LATENCY value='1'/>", "<!--EXPECTED_LATENCY value-->"),
       "Error in 'spec.xml': EXPECTED_LATENCY attribute is not set!\n"},
      {replaced(add, "FUNCTION name='add'", "FUNCTION name='a+d'"),
       "function a+d of the specification is not in .comp_header\n"
       "function add of .comp_header is not in the specification\n"
       "function a+d is not found in any C model\n"},
      {replaced(add, "add HDL\n<END_OF_TABLE>", "add HDL\nadd HDL\n<END_O"), ".comp_header: line 3 is not 2 words\n"},
      {replaced(add, ".source.top.v", ".source.toq.v"),
       "no section .source.top.v for a file that the specification names\n"
       "section .source.toq.v: the specification does not name this file\n"},
      {replaced(mix, ".c_model.../model/m.cl", ".c_model...//model/mcl"),
       "no section .c_model.../model/m.cl for a file that the specification names\n"
       "section .c_model...//model/mcl: the specification does not name this file\n"},
      {make_package({{".dir_container", "mix/"},
                     {".source.top.v", "mix_top a p"},
                     {".c_model.../model/m.cl", "mix"},
                     {".xml_spec.mix.xml", XML},
                     {".comp_header", "mix HDL\nmix HDL\n<END_OF_TABLE>"}}),
       ".comp_header: a function is listed twice\n"
       "name q of the specification is not found in any source\n"},
      {replaced(mix, "mix/", "m/x/"), ".dir_container: 2 folders, but file names climb 1 level\n"},
      {replaced(mix, "mix/", "../."), ".dir_container: no \"/\" at the end\n"},
      {replaced(read_file("lib.bfclib"), "<RTL_SPEC>\n<FUNCTION name='add'", "<RTL_SPEC>\n<FUNCTION name='bad'"),
       ".vex.comp.add: function bad of the specification is not in .comp_header\n"
       ".vex.comp.add: function add of .comp_header is not in the specification\n"
       ".vex.comp.add: function bad is not found in any C model\n"},
      {replaced(library(line), ".c_model.add.cl", ".c_mod\nl.add.cl"),
       ".vex.comp.add: section .c_mod\\nl.add.cl: a line break in the name\n"},
      {library(""), ".vex.comp.add: function add is not in .vex.comp_table\n"},
      {library(line + line), ".vex.comp_table: two lines for function add\n"},
      {library(line + "u LLVM_IR .vex.comp.add\n"), ".vex.comp_table: no bitcode for function u\n"},
      {library(line + "u VHDL .vex.comp.add\n"), ".vex.comp_table: function u has the unknown kind VHDL\n"},
      {library(line + "u HDL .vex.comp.u\n"), ".vex.comp_table: no component package .vex.comp.u for function u\n"},
      {library(line + "u HDL .vex.comp.add\n"), ".vex.comp_table: .vex.comp.add does not define function u\n"},
      {library("add HDL .vex.comp.sum\n", ".vex.comp.sum"),
       ".vex.comp.sum: not named after the first function of the package\n"},
  };
  for (const auto& [image, faults] : cases) {
    write_file("it", image);
    const Outcome result = bfcl_package({"verify", "it"});
    EXPECT_EQ(with_prefix("it: ", faults), result.out);
    EXPECT_EQ("", result.err);
    EXPECT_EQ(faults == "ok\n" ? 0 : 1, result.status);
  }
  const Outcome several = bfcl_package({"verify", "absent", "add.bfco"});
  EXPECT_EQ(1, several.status);
  EXPECT_EQ("absent: cannot open: No such file or directory\nadd.bfco: ok\n", several.out);
}

TEST_F(Packages, Usage) {
  for (const std::vector<std::string>& words :
       std::vector<std::vector<std::string>>{{},
                                             {"show"},
                                             {"unknown"},
                                             {"unpack"},
                                             {"unpack", "mix.bfco", "lib.bfclib"},
                                             {"unpack", "mix.bfco", "-C", ""},
                                             {"unpack", "mix.bfco", "--function", ""},
                                             {"show", "--unknown", "mix.bfco"}}) {
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
  ASSERT_NE(nullptr, std::setlocale(LC_CTYPE, "C.UTF-8"));
  EXPECT_EQ("a\u0301\u0301\u6f22\u6f22\u6f22\u6f22\u6f22\u6f22\u6f22\u6f22\u6f22\n  \u6f22\n",
            print_tree({"a\u0301\u0301\u6f22\u6f22\u6f22\u6f22\u6f22\u6f22\u6f22\u6f22\u6f22\u6f22", false, {}},
                       {false, false, 20}));
}
