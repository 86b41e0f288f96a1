// SPDX-License-Identifier: BSD-3-Clause
// Making, listing and taking apart libraries of HDL components.
#include "pkg.h"

#include "support.h"

#include <sys/stat.h>

namespace {

// Packages a.bfco (function fa), b.bfco (fb) and fake.bfclib (no package).
class Library : public InTempDir {
protected:
  Library() {
    for (const std::string name : {"a", "b"}) {
      EXPECT_EQ(0, bfcl_library({"-c", write_component(name, "f" + name), "-o", name + ".bfco"}).status);
    }
    write_file("fake.bfclib", "no package\n");
  }

  // What the failed runs below must leave as it was.
  static void expect_failure(const std::vector<std::string>& words, const std::string& out,
                             const std::string& err = "") {
    SCOPED_TRACE(out);
    const Outcome result = bfcl_library(words);
    EXPECT_EQ(1, result.status);
    EXPECT_EQ(out, result.out);
    EXPECT_EQ(err, result.err);
    EXPECT_FALSE(std::filesystem::exists("out"));
  }
};

} // namespace

TEST_F(Library, CreateAndList) {
  const Outcome created =
      bfcl_library({"create", "b.bfco", "-vendor", "acme", "-v", "-name", "lib", "-version", "1.0", "a.bfco"});
  EXPECT_EQ(0, created.status);
  EXPECT_EQ("library create called with 2 component files\n"
            "File a.bfco, function fa, section .vex.comp.fa\n"
            "File b.bfco, function fb, section .vex.comp.fb\n",
            created.out);
  EXPECT_EQ("", created.err);
  EXPECT_EQ(".vex.comp.fa\n.vex.comp.fb\n.vex.comp_table\n.vex.info\n.vex.version\n", section_names_of("lib.bfclib"));
  EXPECT_EQ(read_file("a.bfco"), section_of("lib.bfclib", ".vex.comp.fa"));
  EXPECT_EQ("fa HDL .vex.comp.fa\nfb HDL .vex.comp.fb\n<END_OF_TABLE>", section_of("lib.bfclib", ".vex.comp_table"));
  EXPECT_EQ("1.0 lib acme", section_of("lib.bfclib", ".vex.info"));
  EXPECT_EQ("18.1.0.222", section_of("lib.bfclib", ".vex.version"));

  const Outcome listed = bfcl_library({"-v", "list", "lib.bfclib"});
  EXPECT_EQ(0, listed.status);
  EXPECT_EQ("Library version: 1.0\nLibrary name:    lib\nLibrary vendor:  acme\nComponents:\n"
            "fa, HDL\nfb, HDL\n",
            listed.out);
}

TEST_F(Library, FunctionsOfOnePackageShareASection) {
  const std::string spec = "a/spec.xml";
  const std::string xml = replaced(read_file(spec), "</RTL_SPEC>", "");
  const std::string second = replaced(xml.substr(xml.find("<FUNCTION")), "name='fa'", "name='f'");
  write_file(spec, xml + second + "</RTL_SPEC>");
  ASSERT_EQ(0, bfcl_library({"-c", spec, "-o", "a.bfco"}).status);
  write_file("y", std::string(20000, 'x')); // a longer file is written over
  ASSERT_EQ(0, bfcl_library({"create", "-name", "n", "-o", "y", "a.bfco"}).status);
  EXPECT_EQ("fa HDL .vex.comp.fa\nf HDL .vex.comp.fa\n<END_OF_TABLE>", section_of("y", ".vex.comp_table"));
  EXPECT_EQ("no_version n no_vendor", section_of("y", ".vex.info"));
  EXPECT_FALSE(std::filesystem::exists("n.bfclib"));
  ASSERT_EQ(0, bfcl_library({"create", "-o", "z", "a.bfco"}).status);
  EXPECT_EQ("no_version no_lib_name no_vendor", section_of("z", ".vex.info"));
}

TEST_F(Library, RefusedInputs) {
  const std::string no_table = "No string table section\n";
  const std::string a = read_file("a.bfco");
  const auto cannot_include = [](const std::string& file) {
    return "Error: File " + file +
           " cannot be included into a library! When compiling OpenCL files for inclusion into a "
           "library, make sure to use -shared option.\n";
  };
  write_file("no_kind", replaced(a, "fa HDL\n", "fa.HDL\n"));
  write_file("nothing", replaced(a, "fa HDL\n<END_OF_TABLE>", "<END_OF_TABLE>\nunused"));
  std::filesystem::copy("b.bfco", "c.bfco");
  ASSERT_EQ(0, bfcl_library({"create", "-o", "lib", "a.bfco"}).status);
  expect_failure({"create", "-o", "out", "absent", "absent", "b", "b"},
                 "Error: supplied source filename absent appears more than once!\n"
                 "Error: supplied source filename b appears more than once!\n");
  expect_failure({"create", "-o", "out", "a.bfco", "z"}, "Error: Cannot open component package file z!\n",
                 "Couldn't open z: No such file or directory\n");
  expect_failure({"create", "-o", "out", "a.bfco", "fake.bfclib"}, cannot_include("fake.bfclib"), no_table);
  expect_failure({"create", "-o", "out", "lib"}, cannot_include("lib"));
  expect_failure({"create", "-o", "out", "no_kind"},
                 "Error: Couldn't read section .comp_header from component package no_kind!\n");
  expect_failure({"create", "-o", "out", "nothing"}, "Error: Library already has function named !\n");
  expect_failure({"create", "-o", "out", "b.bfco", "c.bfco"}, "Error: Library already has function named fb!\n");
  expect_failure({"create", "-o", "no/out", "a.bfco"}, "Error: Cannot create library file no/out\n",
                 "Couldn't open no/out: No such file or directory\n");
  std::string many;
  for (int i = 0; i <= 16384; ++i) {
    many += "f" + std::to_string(i) + " HDL\n";
  }
  vex_pkg_ptr pkg(vex_pkg_open_file("many", VEX_PKG_READ_WRITE | VEX_PKG_CREATE));
  many += "<END_OF_TABLE>";
  EXPECT_EQ(1U, vex_pkg_add_data_section(pkg.get(), ".comp_header", many.data(), many.size()));
  pkg.reset();
  expect_failure({"create", "-o", "out", "many"},
                 "Error: The library would have 16385 functions, more than the 16384 that can be read!\n");
  EXPECT_EQ("library create called with 2 component files\n"
            "File a.bfco, function fa, section .vex.comp.fa\n"
            "Couldn't open absent: No such file or directory\n"
            "Error: Cannot open component package file absent!\n",
            run({"sh", "-c", BFCL_BIN_DIR "/bfcl-library create -v -o out a.bfco absent 2>&1"}).out);
  expect_failure({"create", "-o", "./a.bfco", "b.bfco", "a.bfco"},
                 "Error: Output file ./a.bfco is also an input file!\n");
  EXPECT_EQ(a, read_file("a.bfco"));
}

TEST_F(Library, AnOutputThatCannotBeOpenedStays) {
  std::filesystem::copy(BFCL_BIN_DIR "/bfcl-library", "busy"); // nobody may write a program that runs
  const Outcome result = run({"./busy", "create", "-o", "busy", "a.bfco"});
  EXPECT_EQ(1, result.status);
  EXPECT_EQ("Error: Cannot create library file busy\n", result.out);
  EXPECT_TRUE(std::filesystem::exists("busy"));
}

TEST_F(Library, AFailureWritesNothing) {
  write_file("other name", "old");
  std::filesystem::create_hard_link("other name", "out");
  expect_failure({"create", "-o", "out", "a.bfco", "b.bfco", "c"}, "Error: Cannot open component package file c!\n",
                 "Couldn't open c: No such file or directory\n");
  EXPECT_EQ("old", read_file("other name"));
}

TEST_F(Library, AFailureRemovesWhatALinkLeadsTo) {
  std::filesystem::create_symlink("target", "link");
  EXPECT_EQ(1, bfcl_library({"create", "-o", "link", "a.bfco", "fake.bfclib"}).status);
  EXPECT_TRUE(std::filesystem::is_symlink("link") && !std::filesystem::exists("target"));
}

TEST_F(Library, FunctionsAreDefinedOnce) {
  // The second function of one package is the first of another.
  const std::string spec = "a/spec.xml";
  const std::string xml = replaced(read_file(spec), "</RTL_SPEC>", "");
  const std::string second = replaced(xml.substr(xml.find("<FUNCTION")), "name='fa'", "name='fb'");
  write_file(spec, xml + second + "</RTL_SPEC>");
  write_file("a/fa.cl", "fa fb");
  ASSERT_EQ(0, bfcl_library({"-c", spec, "-o", "a.bfco"}).status);
  write_file("out", "removed by the failure");
  expect_failure({"create", "-o", "out", "a.bfco", "b.bfco"},
                 "Error: Have more than one definition of component named fb!\n");
}

TEST_F(Library, ListRefusesWhatIsNoLibrary) {
  ASSERT_EQ(0, bfcl_library({"create", "-o", "lib", "a.bfco"}).status);
  const std::string lib = read_file("lib");
  const std::string info = "Library version: no_version\nLibrary name:    no_lib_name\nLibrary vendor:  no_vendor\n";
  write_file("bad_info", replaced(lib, "no_version no", "no_version_no"));
  write_file("bad_info", replaced(read_file("bad_info"), "name no_v", "name_no_v"));
  write_file("bad_table", replaced(lib, "fa HDL .vex", "fa_HDL_.vex"));
  const std::string info_error = " does not have well-formed section .vex.info\n";
  expect_failure({"list", "absent"}, "Error: Cannot open library file absent\n",
                 "Couldn't open absent: No such file or directory\n");
  expect_failure({"list", "a.bfco"}, "Error: Library file a.bfco" + info_error);
  expect_failure({"list", "fake.bfclib"}, "Error: Library file fake.bfclib" + info_error, "No string table section\n");
  expect_failure({"list", "bad_info"}, "Error: Library file bad_info" + info_error);
  expect_failure({"list", "bad_table"}, info + "Error: Library file bad_table does not have well-formed section "
                                               ".vex.comp_table. It's either empty or corrupt.\n");
}

TEST_F(Library, CModelsAreExtractedOnce) {
  write_file("b/spec.xml", replaced(read_file("b/spec.xml"), "<FILE name='fb.cl'/>",
                                    "<FILE name='fb.cl'/><FILE name='m/x.cl'/>"
                                    "<FILE name='n/x.cl'/>"));
  write_file("b/m/x.cl", "first");
  write_file("b/n/x.cl", "second");
  ASSERT_EQ(0, bfcl_library({"-c", "b/spec.xml", "-o", "b.bfco"}).status);
  std::filesystem::create_directory("dest");
  const mode_t mask = umask(027);
  ASSERT_EQ(0, bfcl_library({"create", "-o", "lib", "a.bfco", "b.bfco"}).status);
  const Outcome first = bfcl_library({"extract_c_models", "./lib", "dest"});
  EXPECT_EQ(0, first.status);
  EXPECT_EQ("dest/lib_.vex.comp.fa_fa.cl\ndest/lib_.vex.comp.fb_fb.cl\n"
            "dest/lib_.vex.comp.fb_x.cl\n",
            first.out);
  EXPECT_EQ("", first.err);
  EXPECT_EQ("int fa(int a);\n", read_file("dest/lib_.vex.comp.fa_fa.cl"));
  EXPECT_EQ("first", read_file("dest/lib_.vex.comp.fb_x.cl"));
  umask(mask);
  for (const std::string path : {"lib", "dest/lib_.vex.comp.fb_x.cl", ".emu_models"}) {
    EXPECT_EQ(path == ".emu_models" ? 0750U : 0640U, static_cast<unsigned>(std::filesystem::status(path).permissions()))
        << path;
  }
  EXPECT_TRUE(std::filesystem::is_directory(".emu_models"));
  const Outcome again = bfcl_library({"extract_c_models", "lib", "dest"});
  EXPECT_EQ(0, again.status);
  EXPECT_EQ("", again.out);
}

TEST_F(Library, CModelExtractionFailures) {
  ASSERT_EQ(0, bfcl_library({"create", "-o", "lib", "a.bfco", "b.bfco"}).status);
  const std::string lib = read_file("lib");
  const std::string inner = read_file("a.bfco");
  const auto unreadable = [](const std::string& file) {
    return "Error: Couldn't read section .vex.comp.fa from component package " + file + "!\n";
  };
  std::string all_damaged = lib;
  const std::size_t place = lib.find(inner);
  write_file("bad_section", replaced(lib, "HDL .vex.comp.fa", "HDL .vex.comp.fx"));
  write_file("no_elf", all_damaged.replace(place, 4, "none"));
  write_file("no_table", replaced(lib, "fa HDL .vex", "fa_HDL_.vex"));
  write_file("only_opencl", replaced(replaced(lib, "HDL .vex", "HDL <vex"), "HDL .vex", "HDL <vex"));
  expect_failure({"extract_c_models", "lib", "dest"},
                 "dest/lib_.vex.comp.fa_fa.cl\n"
                 "Cannot write section .c_model.fa.cl to file dest/lib_.vex.comp.fa_fa.cl!\n",
                 "Couldn't open file for writing: No such file or directory\n");
  const Outcome full = run({"sh", "-c", "(ulimit -f 0; " BFCL_BIN_DIR "/bfcl-library extract_c_models lib .) | cat"});
  EXPECT_NE(std::string::npos, full.out.find("Cannot write section .c_model.fa.cl to file")) << full.out;
  EXPECT_FALSE(std::filesystem::exists("lib_.vex.comp.fa_fa.cl"));
  write_file("dir/lib_.vex.comp.fa_fa.cl/x", "");
  expect_failure({"extract_c_models", "lib", "dir"},
                 "dir/lib_.vex.comp.fa_fa.cl\n"
                 "Cannot write section .c_model.fa.cl to file dir/lib_.vex.comp.fa_fa.cl!\n",
                 "Couldn't open file for writing: Is a directory\n");
  std::filesystem::remove(".emu_models");
  expect_failure({"extract_c_models", "bad_section", "."},
                 "Error: Library file bad_section doesn't have component header section .vex.comp.fx!\n");
  expect_failure({"extract_c_models", "no_elf", "."}, unreadable("no_elf"), "No string table section\n");
  expect_failure({"extract_c_models", "no_table", "."},
                 "Error: Library file no_table does not have well-formed section .vex.comp_table. "
                 "It's either empty or corrupt.\n");
  expect_failure({"extract_c_models", "absent", "."}, "Error: Cannot open library file absent\n",
                 "Couldn't open absent: No such file or directory\n");
  const Outcome opencl = bfcl_library({"extract_c_models", "only_opencl", "."});
  EXPECT_EQ(0, opencl.status);
  EXPECT_EQ("", opencl.out);
  EXPECT_FALSE(std::filesystem::exists(".emu_models"));
}
