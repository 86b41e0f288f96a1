// SPDX-License-Identifier: BSD-3-Clause
#include "support.h"

#include <cstdlib>

namespace {

namespace fs = std::filesystem;

Outcome check(std::vector<std::string> words, const Environment& environment = {}) {
  words.insert(words.begin(), {BFCL_BIN_DIR "/bfcl-component", "check"});
  return run(words, environment);
}

class ComponentOperandsTest : public InTempDir {
protected:
  void SetUp() override {
    if (std::system("command -v verilator clang >.tools") != 0) {
      GTEST_SKIP() << "verilator or clang is not installed";
    }
    const fs::path examples = BFCL_SOURCE_DIR "/examples";
    for (const char* folder : {"common", "minmax", "popcount"}) {
      fs::copy(examples / folder, folder);
    }
  }

  static void edit(const std::string& file, const std::string& from, const std::string& to) {
    write_file(file, replaced(read_file(file), from, to));
  }

  static void pack(const std::string& spec, const std::string& package) {
    ASSERT_EQ(bfcl_library({"-c", spec, "-o", package}).status, 0);
  }
};

TEST_F(ComponentOperandsTest, PackagesAndLibrariesAreCheckedAsTheyWerePackaged) {
  pack("minmax/minmax.xml", "good.bfco");
  edit("minmax/minmax.cl", "ulong max_u8x8(ulong left", "ulong max_u8x8(uint left");
  edit("common/skid_buffer.v", "input  wire             resetn,", "");
  pack("minmax/minmax.xml", "my bad.bfco");
  ASSERT_EQ(bfcl_library({"create", "-name", "all", "my bad.bfco"}).status, 0);
  fs::remove_all("minmax");
  fs::remove_all("common");
  EXPECT_EQ(check({"good.bfco"}).out, "good.bfco(minmax.xml): min_u8x8: ok\ngood.bfco(minmax.xml): max_u8x8: ok\n");
  for (const std::string package : {"my bad.bfco", "all.bfclib"}) {
    const Outcome got = check({package});
    EXPECT_EQ(got.status, 1);
    EXPECT_NE(got.out.find(package + "(../common/skid_buffer.v):"), std::string::npos) << got.out;
    EXPECT_NE(got.out.find(package +
                           "(minmax.cl):14: error: argument 1 'left' is 'uint' of 32 "
                           "bits, but INPUT 'left' (" +
                           package + "(minmax.xml):53) has 64 bits [model-type]\n"),
              std::string::npos)
        << got.out;
    EXPECT_EQ(got.out.find("/tmp"), std::string::npos) << got.out;
  }
}

TEST_F(ComponentOperandsTest, ModulesOfOneNameMustBeEqual) {
  pack("minmax/minmax.xml", "minmax.bfco");
  const std::string buffer = read_file("common/skid_buffer.v");
  write_file("common/skid_buffer.v",
             "// Another comment.\n" + replaced(buffer, "module", "`timescale 1ns/1ps\nmodule"));
  EXPECT_EQ(check({"minmax.bfco", "minmax/minmax.xml"}).status, 0);
  write_file("common/skid_buffer.v", "\n" + replaced(buffer, "1'b0", "1'b1"));
  const Outcome got = check({"minmax.bfco", "minmax/minmax.xml", "popcount/popcount.xml"});
  EXPECT_EQ(got.status, 1);
  EXPECT_EQ(got.out.substr(0, got.out.find('\n')),
            "common/skid_buffer.v:7: error: 'skid_buffer' differs from the one in "
            "minmax.bfco(../common/skid_buffer.v):6, and a design with both components can contain "
            "only one [module-conflict]");
}

TEST_F(ComponentOperandsTest, HostilePackagesWriteNothingElsewhere) {
  const std::string header = "popcount64 HDL\n<END_OF_TABLE>";
  const std::string spec = read_file("popcount/popcount.xml");
  const auto package = [&](const std::string& prefix, const std::string& source, const std::string& name) {
    return make_package({{".dir_container", prefix},
                         {".source." + source, "module popcount; endmodule\n"},
                         {".c_model.popcount.cl", read_file("popcount/popcount.cl")},
                         {".xml_spec." + name, spec},
                         {".comp_header", header}});
  };
  const std::string outside = " leads out of the package's folder, or through a file\n";
  const struct {
    std::string image;
    std::string message;
  } rows[] = {
      {package("", "../evil", "s.xml"), "../evil" + outside},
      {package("a/", "b/../../../evil", "s.xml"), "b/../../../evil" + outside},
      {package("../", "evil", "s.xml"), "evil" + outside},
      {package("/tmp/", "bfcl-evil", "s.xml"), "bfcl-evil" + outside},
      {package(std::string("x/..\0/", 6), "evil", "s.xml"), "evil" + outside},
      {package("", "evil", ".."), ".." + outside},
      {package("", "popcount.cl/evil", "s.xml"), "cannot write popcount.cl into a temporary folder\n"},
      {package("", ".", "s.xml"), "." + outside},
  };
  fs::create_directories("t/inner");
  for (const auto& [image, message] : rows) {
    SCOPED_TRACE(message);
    write_file("p.bfco", image);
    const Outcome got = check({"p.bfco"}, {{"TMPDIR", fs::absolute("t/inner")}});
    EXPECT_EQ(got.status, 2) << got.out << got.err;
    EXPECT_TRUE(got.err.ends_with(message)) << got.err;
    EXPECT_TRUE(fs::is_empty("t/inner"));
    EXPECT_EQ(std::distance(fs::directory_iterator("t"), {}), 1);
    EXPECT_FALSE(fs::exists("/tmp/bfcl-evil"));
  }
  // A specification with errors shows names of the package.
  write_file("p.bfco", package("", "/x/popcount.v", "s.xml"));
  const Outcome got = check({"p.bfco"});
  EXPECT_EQ(got.status, 1);
  EXPECT_NE(got.out.find("Couldn't open Requirements file popcount.v"), std::string::npos) << got.out;
  write_file("p.bfco", "no package");
  EXPECT_EQ(check({"p.bfco"}).status, 2);
}

TEST_F(ComponentOperandsTest, OpenClCodeNeedsNoCheck) {
  write_file("o.bfco", make_package({{".vex.clang_ir.x86_64-unknown-linux-ostrahw", "BC"}}));
  const Outcome got = check({"o.bfco"});
  EXPECT_EQ(got.out, "o.bfco: OpenCL code only, nothing to check\n");
  EXPECT_EQ(got.status, 0);
}

} // namespace
