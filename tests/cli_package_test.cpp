// SPDX-License-Identifier: BSD-3-Clause
// The command line as such, and packaging.
#include "support.h"

namespace {

using Cli = InTempDir;

const std::string PACKAGE_USAGE = "Usage: bfcl library hdl-comp-pkg <spec.xml> -o <output_file>.bfco\n";

const std::string GENERAL_HELP = read_file(BFCL_SOURCE_DIR "/tests/data/help.txt");
void expect_failure(const Outcome& result, const std::string& out, const std::string& err = "") {
  EXPECT_EQ(1, result.status);
  EXPECT_EQ(out, result.out);
  EXPECT_EQ(err, result.err);
}

} // namespace

TEST_F(Cli, HelpAndUsage) {
  const std::string create = "Usage: bfcl library create [-name <library_name>] [-vendor <library_vendor>] [-version "
                             "<library_version>] [-o <output_file>] [bfco...] [bfclib...]\n";
  const std::string no_inputs = "Error: No component package files are given! Not making an empty library.\n";
  const std::string list = "Usage: bfcl library list <library_name>\n";
  const struct {
    std::vector<std::string> words;
    int status;
    std::string out;
  } cases[] = {
      {{}, 0, GENERAL_HELP},
      {{"-v"}, 0, GENERAL_HELP + GENERAL_HELP},
      {{"help"}, 0, GENERAL_HELP},
      {{"HELP", "-v"}, 0, GENERAL_HELP},
      {{"", "x"}, 0, GENERAL_HELP},
      {{"hdl-comp-pkg"}, 1, PACKAGE_USAGE},
      {{"-c", "spec.xml", "-O", "x"}, 1, PACKAGE_USAGE},
      {{"-c", "spec.xml", "-o", "x", "y"}, 1, PACKAGE_USAGE},
      {{"-v", "list"}, 1, list},
      {{"list", "a", "b"}, 1, list},
      {{"extract_c_models", "a"}, 1, "Usage: bfcl library extract_c_models <library_name> <dest_subfolder>\n"},
      {{"extract_clang_ir", "a", "b"},
       1,
       "Usage: bfcl library extract_clang_ir <library_name> <ir_type> <dest_subfolder>\n"},
      {{"create"}, 1, no_inputs + create},
      {{"create", "x", "-o"}, 1, "Error: argument -o is given without value!\n" + create},
      {{"create", "x"},
       1,
       "Error: Neither -o nor -name arguments are specified. Don't know how to name the output!\n" + create},
  };
  for (const auto& c : cases) {
    const Outcome result = bfcl_library(c.words);
    EXPECT_EQ(c.status, result.status);
    EXPECT_EQ(c.out, result.out);
    EXPECT_EQ("", result.err);
  }
}

TEST_F(Cli, LauncherPassesItsArgumentsOn) {
  write_component("a b", "f");
  const std::string launcher = BFCL_BIN_DIR "/bfcl";
  EXPECT_EQ(0, run({launcher, "library", "-c", "a b/spec.xml", "-o", "out file"}).status);
  EXPECT_NE("(none)", section_of("out file", ".comp_header"));
  std::filesystem::create_symlink(launcher, "link");
  EXPECT_EQ(GENERAL_HELP, run({"./link", "library"}).out);
  write_file("bfcl-other", "#!/bin/sh\nprintf '[%s]' \"$@\"\nexit 7\n");
  std::filesystem::permissions("bfcl-other", std::filesystem::perms::owner_all);
  const Outcome other = run({launcher, "other", "-v", "", "a  b"}, {{"PATH", ".:/usr/bin:/bin"}});
  EXPECT_EQ(7, other.status);
  EXPECT_EQ("[-v][][a  b]", other.out);
  EXPECT_EQ(127, run({launcher, "absent"}).status);
}

TEST_F(Cli, PackageHoldsEverything) {
  const std::string spec = write_component("comp", "f");
  std::string xml = replaced(read_file(spec), "<FILE name='top.v'/>",
                             "<FILE name='top.v'/><FILE name='../rtl/A.SV'/><FILE name='top.v'/>"
                             "<FILE name='./top.v'/>");
  xml = replaced(xml, "</RTL_SPEC>", "");
  const std::string second = replaced(xml.substr(xml.find("<FUNCTION")), "name='f'", "name='g'");
  write_file(spec, xml + replaced(second, "f.cl", "sub/g&amp;&#38;") + "</RTL_SPEC>");
  write_file("rtl/A.SV", std::string("a\0b", 3));
  write_file("comp/sub/g&&", "g");
  const Outcome result = bfcl_library({"-c", "-v", spec, "-o", "out.bfco"});
  EXPECT_EQ(0, result.status);
  EXPECT_EQ("Adding file ../rtl/A.SV located in comp/../rtl/A.SV\n"
            "Adding file ./top.v located in comp/./top.v\n"
            "Adding file top.v located in comp/top.v\n"
            "Adding file f.cl located in comp/f.cl\n"
            "Adding file sub/g&& located in comp/sub/g&&\n",
            result.out);
  EXPECT_EQ("", result.err);
  EXPECT_EQ(".dir_container\n.source.../rtl/A.SV\n.source../top.v\n.source.top.v\n"
            ".c_model.f.cl\n.c_model.sub/g&&\n.xml_spec.spec.xml\n.comp_header\n",
            section_names_of("out.bfco"));
  EXPECT_EQ("comp/", section_of("out.bfco", ".dir_container"));
  EXPECT_EQ(std::string("a\0b", 3), section_of("out.bfco", ".source.../rtl/A.SV"));
  EXPECT_EQ(read_file(spec), section_of("out.bfco", ".xml_spec.spec.xml"));
  EXPECT_EQ("f HDL\ng HDL\n<END_OF_TABLE>", section_of("out.bfco", ".comp_header"));
}

TEST_F(Cli, SpecificationInTheWorkingDirectory) {
  write_component(".", "f");
  EXPECT_EQ(0, bfcl_library({"-c", "spec.xml", "-o", "out.bfco"}).status);
  EXPECT_EQ("", section_of("out.bfco", ".dir_container"));
  EXPECT_EQ("int f(int a);\n", section_of("out.bfco", ".c_model.f.cl"));
}

TEST_F(Cli, SpecificationsThatDoNotLoad) {
  const std::string spec = write_component("comp", "f");
  write_file("bad.xml", "<a>");
  write_file("warns.xml", "");
  const std::string heading = "Errors in HDL component specification file:";
  expect_failure(bfcl_library({"-c", "absent", "-o", "out"}),
                 "Error: File absent does not exist or is not a regular file!\n" + PACKAGE_USAGE);
  expect_failure(bfcl_library({"-c", ".", "-o", "out"}),
                 "Error: File . does not exist or is not a regular file!\n" + PACKAGE_USAGE);
  const Outcome bad = bfcl_library({"-c", "bad.xml", "-o", "out"});
  EXPECT_EQ(1, bad.status);
  EXPECT_EQ(0U, bad.out.find("ERROR FOUND: XML_ERROR_MISMATCHED_ELEMENT\n" + heading +
                             "XML error: XML_ERROR_MISMATCHED_ELEMENT, Error="))
      << bad.out;
  EXPECT_EQ("\n\n", bad.out.substr(bad.out.size() - 2));
  write_file(spec, replaced(read_file(spec), "module='top'", "module='top' x='1' y='2'"));
  expect_failure(bfcl_library({"-c", spec, "-o", "out"}),
                 heading + "Error in 'comp/spec.xml', line 2\nUnexpected attribute 'x'.\n\n" +
                     "Error in 'comp/spec.xml', line 2\nUnexpected attribute 'y'.\n\n");
  EXPECT_FALSE(std::filesystem::exists("out"));
}

TEST_F(Cli, WarningsDoNotStop) {
  const std::string spec = write_component("comp", "f");
  write_file(spec, replaced(read_file(spec), "</ATTRIBUTES>", "<HAS_SIDE_EFFECTS value='yes'/></ATTRIBUTES>"));
  const Outcome result = bfcl_library({"-c", spec, "-o", "out"});
  EXPECT_EQ(0, result.status);
  EXPECT_EQ("Warning in 'comp/spec.xml':\nFunction is marked as both IS_STALL_FREE and "
            "HAS_SIDE_EFFECTS. Ensure your RTL module handles ivalid properly. See documentation "
            "for details.\n\n",
            result.out);
}

TEST_F(Cli, FilesThatCannotBeAdded) {
  const std::string spec = write_component("comp", "f");
  write_file(spec, replaced(read_file(spec), "<FILE name='top.v'/>",
                            "<FILE name='z.v'/><FILE name='top.v'/><FILE name='n.txt'/>"
                            "<FILE name='d.v'/><FILE name='noext'/><FILE name='e.sv'/><FILE name='e.SvH'/>"
                            "<FILE name='e.vhd'/><FILE name='e.hex'/><FILE name='e.mif'/>"));
  for (const std::string extension : {"sv", "SvH", "vhd", "hex", "mif"}) {
    write_file("comp/e." + extension, "");
  }
  write_file("comp/n.txt", "");
  write_file("comp/noext", "");
  write_file("comp/z.v", "zz");
  std::filesystem::create_directory("comp/d.v");
  // All names are found in the first files, so that the others are not looked at before.
  write_file("comp/z.v", "module top(a);");
  expect_failure(bfcl_library({"-c", spec, "-o", "out"}),
                 "Error: File comp/d.v, specified in XML spec file, does not exist or is not a file!\n"
                 "Error: File comp/n.txt, specified in XML spec file, has an unsupported file extension!\n"
                 "Error: File comp/noext, specified in XML spec file, has an unsupported file extension!\n");
  EXPECT_EQ(".dir_container\n.source.e.SvH\n.source.e.hex\n.source.e.mif\n.source.e.sv\n.source.e.vhd\n"
            ".source.top.v\n.source.z.v\n",
            section_names_of("out"));
}

TEST_F(Cli, OutputsThatCannotBeMade) {
  const std::string spec = write_component("comp", "f");
  expect_failure(bfcl_library({"-c", spec, "-o", "no/out"}), "Error: Cannot create a new file no/out\n",
                 "Couldn't open no/out: No such file or directory\n");
  const Outcome empty = bfcl_library({"-c", spec, "-o", ""});
  EXPECT_EQ(128 + SIGABRT, empty.status);
  EXPECT_NE(std::string::npos, empty.err.find("Assertion `!output_file.empty()' failed"));
  for (const std::string output : {"comp/spec.xml", "comp/top.v", "comp/f.cl"}) {
    const std::string before = read_file(output);
    expect_failure(bfcl_library({"-c", spec, "-o", output}),
                   "Error: Output file " + output + " is also an input file!\n");
    EXPECT_EQ(before, read_file(output));
  }
  write_file("comp/self.xml", replaced(read_file(spec), "name='top.v'/>", "name='top.v'/><FILE name='../self.v'/>"));
  expect_failure(bfcl_library({"-c", "comp/self.xml", "-o", "self.v"}),
                 "Error: Output file self.v is also an input file!\n");
  EXPECT_FALSE(std::filesystem::exists("self.v"));
  write_file("comp/odd.xml", replaced(read_file(spec), "name='f.cl'", "name='a&#10;b.cl'"));
  write_file("comp/a\nb.cl", "f");
  expect_failure(bfcl_library({"-c", "comp/odd.xml", "-o", "out"}),
                 "Error: A file name in comp/odd.xml, or its own, contains a line end!\n");
  for (const std::string name : {"", "int f", "f&#10;g", "f&#9;"}) {
    write_file("comp/odd.xml", replaced(read_file(spec), "name='f'", "name='" + name + "'"));
    write_file("comp/f.cl", "int f\nf\tf\ng");
    const Outcome odd = bfcl_library({"-c", "comp/odd.xml", "-o", "out"});
    EXPECT_EQ(1, odd.status);
    EXPECT_NE("", odd.out);
    EXPECT_FALSE(std::filesystem::exists("out"));
    if (name.find('&') == std::string::npos) {
      EXPECT_EQ("Error: Function 1 of file comp/odd.xml has a name that is empty or contains white space!\n", odd.out);
    }
  }
  const Outcome full = bfcl_library({"-c", spec, "-o", "/dev/full"});
  EXPECT_EQ(1, full.status);
  EXPECT_NE("", full.err);
}

TEST_F(Cli, MoreLevelsUpThanThereAre) {
  std::string up;
  for (int i = 0; i < 40; ++i) {
    up += "../";
  }
  const std::string spec = write_component("comp", "f");
  write_file(spec,
             replaced(read_file(spec), "'f.cl'", "'" + up + std::filesystem::current_path().string() + "/comp/f.cl'"));
  write_file("out", "old");
  expect_failure(bfcl_library({"-c", spec, "-o", "out"}),
                 "Error: Cannot go 40 levels higher from " + (std::filesystem::current_path() / "comp").string() +
                     ".\nNumber of levels is based on number of \"..\" in filenames inside XML "
                     "file.\n");
  EXPECT_EQ("old", read_file("out")); // created, but never written
}

TEST_F(Cli, PrintedTextSurvivesAnAbort) {
  const std::string spec = write_component("comp", "f");
  write_file(spec, replaced(read_file(spec), "</ATTRIBUTES>", "<HAS_SIDE_EFFECTS value='yes'/></ATTRIBUTES>"));
  EXPECT_EQ(0U, bfcl_library({"-c", spec, "-o", ""}).out.find("Warning in 'comp/spec.xml':\n"));
}
