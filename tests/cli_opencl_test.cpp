// SPDX-License-Identifier: BSD-3-Clause
// Libraries with OpenCL code, with scripts in the place of the kit's two tools: "bfcl-link" joins
// its inputs as they are, "bfcl-opt" prints the file.
#include "pkg.h"

#include "support.h"
#include "unique_fd.h"

#include <csignal>
#include <set>

namespace {

constexpr const char* SPIR = ".vex.clang_ir.spir64-unknown-unknown-ostrahw";
constexpr const char* LINUX = ".vex.clang_ir.x86_64-unknown-linux-ostrahw";
constexpr const char* WINDOWS = ".vex.clang_ir.x86_64-pc-windows-ostrahw";

constexpr const char* LINKER = R"(#!/bin/sh
printf '<%s>' "$@" >> link.log
echo >> link.log
while [ "$1" != -o ]; do cat "$1" >> joined || exit 9; shift; done
mv joined "$2"
)";

class OpenCl : public InTempDir {
protected:
  OpenCl() {
    write_tool("bfcl-link", LINKER);
    write_tool("bfcl-opt", "#!/bin/sh\n[ \"$1\" = -S ] && cat \"$2\"\n");
  }

  static void write_tool(const std::string& name, const std::string& text) {
    write_file("tools/" + name, text);
    std::filesystem::permissions("tools/" + name, std::filesystem::perms::owner_all);
  }

  static void write_package(const std::string& path, const std::vector<std::pair<std::string, std::string>>& sections) {
    vex_pkg_file* pkg = vex_pkg_open_file(path.c_str(), VEX_PKG_READ_WRITE | VEX_PKG_CREATE | 0x100);
    for (const auto& [name, text] : sections) {
      EXPECT_EQ(1U, vex_pkg_add_data_section(pkg, name.c_str(), text.data(), text.size()));
    }
    vex_pkg_close_file(pkg);
  }

  static Outcome library(const std::vector<std::string>& words) {
    return bfcl_library(words, {{"PATH", "tools:/usr/bin:/bin"}});
  }

  static std::string files() {
    std::set<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(".")) {
      names.insert(entry.path().filename().string());
    }
    std::string text;
    for (const std::string& name : names) {
      text += (text.empty() ? "" : " ") + name;
    }
    return text;
  }
};

} // namespace

TEST_F(OpenCl, LinksEachTargetAndFindsFunctions) {
  write_package("a", {{SPIR, "sa\n"}, {LINUX, "define i32 @zeta(i32)\n"}});
  write_package("b", {{LINUX, "declare i32 @no()\ndefine i32 @alpha(i32)\n"}});
  const Outcome created = library({"create", "-v", "-name", "lib", "b", "a"});
  EXPECT_EQ(0, created.status);
  const std::string spir = SPIR;
  const std::string linux = LINUX;
  EXPECT_EQ("library create called with 2 component files\n"
            "Executing cmd: bfcl-link \"a" +
                spir + ".bc\"  -o \"lib.bfclib" + spir +
                ".bc\" \n"
                "Return code is 0\n"
                "Executing cmd: bfcl-link \"a" +
                linux + ".bc\" \"b" + linux + ".bc\"  -o \"lib.bfclib" + linux +
                ".bc\" \n"
                "Return code is 0\n"
                "Executing cmd: bfcl-opt -S \"lib.bfclib" +
                linux +
                ".bc\"\n"
                "Found function definitions: \n"
                "   define i32 @zeta(i32)\n"
                "   define i32 @alpha(i32)\n",
            created.out);
  EXPECT_EQ("", created.err);
  EXPECT_EQ(spir + "\n" + linux + "\n.vex.comp_table\n.vex.info\n.vex.version\n", section_names_of("lib.bfclib"));
  EXPECT_EQ("sa\n", section_of("lib.bfclib", SPIR));
  EXPECT_EQ("alpha LLVM_IR <clang_ir>\nzeta LLVM_IR <clang_ir>\n<END_OF_TABLE>",
            section_of("lib.bfclib", ".vex.comp_table"));
  EXPECT_EQ("a b lib.bfclib link.log tools", files());

  EXPECT_EQ("Library version: no_version\nLibrary name:    lib\nLibrary vendor:  no_vendor\n"
            "Components:\nalpha, LLVM_IR\nzeta, LLVM_IR\n",
            library({"list", "lib.bfclib"}).out);
  // A library is an OpenCL input like any other.
  ASSERT_EQ(0, library({"create", "-o", "again", "lib.bfclib"}).status);
  EXPECT_EQ(section_of("lib.bfclib", LINUX), section_of("again", LINUX));
}

TEST_F(OpenCl, MixedTablesTakeTheLastNames) {
  ASSERT_EQ(0, library({"-c", write_component("comp", "mid"), "-o", "hdl"}).status);
  write_package("ocl", {{LINUX, "define i32 @alpha(i32)\n"}, {WINDOWS, "w"}});
  const Outcome created = library({"create", "-o", "lib", "ocl", "hdl"});
  EXPECT_EQ(0, created.status);
  EXPECT_EQ("", created.out);
  EXPECT_EQ("mid HDL .vex.comp.mid\nmid LLVM_IR <clang_ir>\n<END_OF_TABLE>", section_of("lib", ".vex.comp_table"));
  EXPECT_EQ(".vex.comp.mid\n" + std::string(LINUX) + "\n" + WINDOWS + "\n.vex.comp_table\n.vex.info\n.vex.version\n",
            section_names_of("lib"));
}

TEST_F(OpenCl, Failures) {
  ASSERT_EQ(0, library({"-c", write_component("comp", "f"), "-o", "hdl"}).status);
  const std::string cannot_add =
      std::string("Error: Cannot add linked OpenCL section package file lib") + LINUX + ".bc to the library!\n";
  const struct {
    const char* name;
    std::string linux_ir;
    const char* linker;
    std::string out;
    std::string err;
  } cases[] = {
      {"kernels", "define spir_kernel void @k2()\ndefine void @h()\ndefine spir_kernel void @k1()", LINKER,
       "Error: The following functions are OpenCL kernels:\n   k2\n   k1\n"
       "Adding OpenCL kernels to the library would cause these kernels to be instantiated in every "
       "user design that links to this library, with no control from the user!\n",
       ""},
      {"a function of both kinds", "define void @f()", LINKER,
       "Error: Have more than one definition of component named f!\n", ""},
      {"a name with a blank", "define void @\"a b\"()", LINKER,
       "Error: OpenCL function \"a b\" has a name that contains a blank!\n", ""},
      {"a linker that fails", "", "#!/bin/sh\nexit 3\n", "", ""},
      {"a linker that dies", "", "#!/bin/sh\nkill -9 $$\n", "", "Killed\n"}, // says the shell
      {"a linker that writes nothing", "", "#!/bin/sh\n", cannot_add,
       std::string("Couldn't open file lib") + LINUX + ".bc for reading\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    write_tool("bfcl-link", c.linker);
    write_package("ocl", {{LINUX, c.linux_ir}});
    write_file("lib", "to be removed");
    const Outcome result = library({"create", "-o", "lib", "hdl", "ocl"});
    std::filesystem::remove("link.log");
    EXPECT_EQ(1, result.status);
    EXPECT_EQ(c.out, result.out);
    EXPECT_EQ(c.err, result.err);
    EXPECT_EQ("comp hdl ocl tools", files());
  }
  const std::string long_name = std::string(90, 'd') + "/" + std::string(90, 'd');
  std::string long_path;
  for (int i = 0; i < 20; ++i) {
    long_path += long_name + "/../../";
  }
  std::filesystem::create_directories(long_name);
  std::vector<std::string> words = {"create", "-o", "lib"};
  for (int i = 0; i < 35; ++i) {
    write_package("p" + std::to_string(i), {{LINUX, ""}});
    words.push_back(long_path + "p" + std::to_string(i));
  }
  const Outcome too_long = library(words);
  EXPECT_EQ(1, too_long.status);
  EXPECT_EQ("Error: The command to link OpenCL code is 133440 bytes long, the system takes 131071!\n", too_long.out);
  write_tool("bfcl-link", "#!/bin/sh\nexit 3\n");
  EXPECT_NE(std::string::npos, library({"create", "-v", "-o", "lib", "ocl"}).out.find("Return code is 768\n"));
  std::filesystem::remove("tools/bfcl-link");
  EXPECT_NE(std::string::npos, library({"create", "-v", "-o", "lib", "ocl"}).out.find("Return code is 32512\n"));
}

// Runs with the same library use the same bitcode files.
TEST_F(OpenCl, OneRunAtATimeMakesALibrary) {
  write_package("ocl", {{LINUX, "define void @f()"}});
  write_file("lib", "");
  EXPECT_TRUE(waits_for_lock("lib", [] { library({"create", "-o", "lib", "ocl"}); }));
  std::filesystem::create_hard_link("lib", "other name"); // which is locked while it is written, too
  EXPECT_TRUE(waits_for_lock("lib", [] { library({"create", "-o", "lib", "ocl"}); }));
  EXPECT_EQ("f LLVM_IR <clang_ir>\n<END_OF_TABLE>", section_of("lib", ".vex.comp_table"));
}

TEST_F(OpenCl, TheLinkerOfAKilledRunKeepsTheLock) {
  write_package("ocl", {{LINUX, ""}});
  mkfifo("end", 0600);
  write_tool("bfcl-link", "#!/bin/sh\np=$PPID\n"
                          "[ $(cat /proc/$p/comm) = bfcl-library ] || p=$(cut -d ' ' -f 4 /proc/$p/stat)\n"
                          "kill -9 $p\nread line <end\n");
  EXPECT_EQ(128 + SIGKILL, library({"create", "-o", "lib", "ocl"}).status);
  const unique_fd fd(open("lib", O_RDWR));
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  EXPECT_EQ(-1, fcntl(fd.get(), F_OFD_SETLK, &lock));
  write_file("end", "\n");
}

TEST_F(OpenCl, AMissingOptimiserFindsNothing) {
  std::filesystem::remove("tools/bfcl-opt");
  write_package("ocl", {{LINUX, "define void @f()"}});
  EXPECT_EQ(0, library({"create", "-o", "lib", "ocl"}).status);
  EXPECT_EQ("<END_OF_TABLE>", section_of("lib", ".vex.comp_table"));
}

TEST_F(OpenCl, ADefinitionWithoutANameAbortsAndLeavesNothing) {
  write_package("ocl", {{LINUX, "define dereferenceable(8) ptr @f()\n"}});
  const Outcome result = library({"create", "-o", "lib", "ocl"});
  EXPECT_EQ(134, result.status);
  EXPECT_NE(std::string::npos, result.err.find("Assertion `fname_end > fname_start + 1' failed.\n")) << result.err;
  EXPECT_EQ("link.log ocl tools", files());
}

TEST_F(OpenCl, UnwritableBitcodeFile) {
  write_package("ocl", {{LINUX, ""}});
  const std::string file = std::string("ocl") + LINUX + ".bc";
  mkfifo(file.c_str(), 0666);
  for (const bool is_fifo : {true, false}) {
    const Outcome result = library({"create", "-o", "lib", "ocl"});
    EXPECT_EQ(1, result.status);
    EXPECT_EQ(std::string("Error: Couldn't write section ") + LINUX + " into a new file " + file + "!\n", result.out);
    EXPECT_EQ(is_fifo, std::filesystem::is_fifo(file));
    std::filesystem::remove(file);
    std::filesystem::create_directory(file);
  }
}

// The files that bitcode goes into may not be those that the command was given.
TEST_F(OpenCl, BitcodeFilesSpareInputsAndOutput) {
  const std::string suffix = std::string(LINUX) + ".bc";
  for (const std::string& name : {std::string("a"), "a" + suffix, "b" + suffix}) {
    write_package(name, {{LINUX, "define void @f()\n"}});
  }
  const std::string bitcode = read_file("a" + suffix);
  const struct {
    std::vector<std::string> words;
    std::string refused;
  } cases[] = {
      {{"create", "-o", "lib", "a", "a" + suffix}, "a" + suffix},
      {{"create", "-o", "a" + suffix + "x", "a", "a" + suffix}, "a" + suffix},
      {{"create", "-o", "b", "a", "b" + suffix}, "b" + suffix},
  };
  for (const auto& c : cases) {
    const Outcome result = library(c.words);
    EXPECT_EQ(1, result.status);
    EXPECT_EQ("Error: Output file " + c.refused + " is also an input file!\n", result.out);
    EXPECT_EQ(bitcode, read_file(c.refused));
  }
  std::filesystem::remove("a" + suffix);
  EXPECT_EQ(1, library({"create", "-o", "a" + suffix, "a"}).status);
  std::filesystem::create_symlink("b" + suffix, "a" + suffix);
  std::filesystem::create_symlink("b" + suffix, "lib" + suffix);
  EXPECT_EQ(0, library({"create", "-o", "lib", "a"}).status);
  EXPECT_EQ(bitcode, read_file("b" + suffix));
  std::filesystem::remove("lib");
  std::filesystem::remove("link.log");
  EXPECT_EQ("a b" + suffix + " tools", files());
}

// Names reach the tools as they are, whatever the shell would make of them.
TEST_F(OpenCl, HostileFileNames) {
  const std::vector<std::string> names = {"-o",          "-x",   "a b", "$HOME", "`touch ran`", "$(touch ran)", "a\"b",
                                          "a;touch ran", "a\nb", "\\",  "\\$x",  "a\\\\b",      "a\\",          "*",
                                          "!",           "'",    "a&b", "#",     "\xff\xfe"};
  std::vector<std::string> words = {"create", "-o", "lib \"$HOME\"`x`"};
  for (const std::string& name : names) {
    write_package(name, {{LINUX, std::string("define void @f").append(std::to_string(words.size())).append("()\n")}});
    words.push_back(name == "-o" ? "./-o" : name);
  }
  EXPECT_EQ(0, library(words).status);
  const std::string table = section_of("lib \"$HOME\"`x`", ".vex.comp_table");
  for (std::size_t i = 3; i < words.size(); ++i) {
    EXPECT_NE(std::string::npos, table.find(std::to_string(i) + " LLVM_IR")) << words[i];
  }
  std::filesystem::remove("link.log");
  std::filesystem::remove("lib \"$HOME\"`x`");
  std::filesystem::remove_all("tools");
  for (const std::string& name : names) {
    EXPECT_TRUE(std::filesystem::remove(name)) << name;
  }
  EXPECT_EQ("", files());
}

TEST_F(OpenCl, ClangIrIsExtracted) {
  write_package("ocl", {{LINUX, "define void @f()\n"}});
  ASSERT_EQ(0, library({"create", "-o", "x.lib", "ocl"}).status);
  const std::string file = "out/x.lib.x86_64-unknown-linux-ostrahw.bc";
  write_file(file, "longer than what is written over it");
  const Outcome extracted = library({"extract_clang_ir", "./x.lib", "x86_64-unknown-linux-ostrahw", "out"});
  EXPECT_EQ(0, extracted.status);
  EXPECT_EQ(file + "\n", extracted.out);
  EXPECT_EQ("define void @f()\n", read_file(file));

  const std::string invalid =
      std::string("Specified clang ir type 'spir64' is invalid!\n"
                  "Valid ones are suffixes following '.vex.clang_ir' in the following names:\n") +
      "   " + SPIR + "\n   " + LINUX + "\n   " + WINDOWS + "\n";
  write_package("odd", {{".vex.clang_ir.spir64", "served"}});
  std::filesystem::create_directory("own");
  std::filesystem::create_hard_link("x.lib", "own/x.lib.x86_64-unknown-linux-ostrahw.bc");
  const struct {
    std::vector<std::string> operands;
    int status;
    std::string out;
  } cases[] = {
      {{"x.lib", "spir64", "out"}, 1, invalid + "Section .vex.clang_ir.spir64 does not exist in file x.lib!\n"},
      {{"odd", "spir64", "out"}, 0, invalid + "out/odd.spir64.bc\n"},
      {{"x.lib", "x86_64-pc-windows-ostrahw", "out"},
       1,
       std::string("Section ") + WINDOWS + " does not exist in file x.lib!\n"},
      {{"x.lib", "x86_64-unknown-linux-ostrahw", "no"},
       1,
       "no/x.lib.x86_64-unknown-linux-ostrahw.bc\nCould not write section " + std::string(LINUX) +
           " to file no/x.lib.x86_64-unknown-linux-ostrahw.bc!\n"},
      {{"x.lib", "x86_64-unknown-linux-ostrahw", "own"},
       1,
       "Error: Output file own/x.lib.x86_64-unknown-linux-ostrahw.bc is also an input file!\n"},
      {{"absent", "spir64", "out"}, 1, "Error: Cannot open library file absent\n"},
  };
  for (const auto& c : cases) {
    std::vector<std::string> words = c.operands;
    words.insert(words.begin(), "extract_clang_ir");
    const Outcome result = library(words);
    EXPECT_EQ(c.status, result.status);
    EXPECT_EQ(c.out, result.out);
  }
}
