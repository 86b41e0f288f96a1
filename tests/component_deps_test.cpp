// SPDX-License-Identifier: BSD-3-Clause
#include "support.h"

#include <sys/stat.h>

namespace {

namespace fs = std::filesystem;

Outcome deps(std::vector<std::string> words) {
  words.insert(words.begin(), {BFCL_BIN_DIR "/bfcl-component", "deps"});
  return run(words);
}

// A specification of one function that names the files.
std::string make_spec(const std::string& source_elements, const std::string& model = "m.cl") {
  std::string ports;
  for (const char* signal : {"clock", "resetn", "ivalid", "iready", "ovalid", "oready"}) {
    ports += std::string("<VEYRA port=\"") + signal + "\" type=\"" + signal + "\"/>\n";
  }
  return "<EFI_SPEC><FUNCTION name=\"f\" module=\"f\"><INTERFACE>" + ports +
         "<INPUT port=\"a\" width=\"8\"/></INTERFACE><C_MODEL><FILE name=\"" + model + "\"/></C_MODEL><REQUIREMENTS>" +
         source_elements + "</REQUIREMENTS></FUNCTION></EFI_SPEC>\n";
}

std::string file_element(const std::string& name) {
  return "<FILE name=\"" + name + "\"/>";
}

// The rule of a dependency file with these names.
std::string rule(const std::string& target, const std::vector<std::string>& names) {
  std::string text = target + ":";
  for (const std::string& name : names) {
    text += " \\\n  " + name;
  }
  return text + "\n";
}

using ComponentDepsTest = InTempDir;

TEST_F(ComponentDepsTest, NamesEveryFileOnce) {
  for (const char* folder : {"c/rtl", "common", "real/deep"}) {
    fs::create_directories(folder);
  }
  fs::create_directory_symlink("real/deep", "link");
  write_file("c/rtl/a.v", "`include \"a.svh\"\n ` include \"no.svh\"\n// `include \"note.svh\"\n"
                          "initial $readmemh(\"t.hex\", t); initial $readmemb (\n\"u.hex\", t);\n"
                          "string include = \"c.v\"; `include\n\"n.svh\"\n`include \"open\n");
  write_file("c/rtl/a.svh", "`include \"b.svh\"\n`include \"rtl/a.svh\"\n");
  write_file("common/b.svh", "`include \"a.svh\"\n");
  write_file("c/rtl/note.svh", "");
  write_file("c/t.hex", "");
  write_file("c/rtl/u.hex", "");
  write_file("c/c.v", "");
  write_file("c/n.svh", "");
  write_file("c/m.cl", "# include \"rtl/m.h\"\n#include <c.v>\n");
  write_file("c/rtl/m.h", "");
  write_file("real/x.v", "");
  write_file("c/s.xml", make_spec("<FILE\n  name='./rtl/a.v'/><FILE name=\"../common/n&#101;w.v\"/>"
                                  "<!-- <FILE name=\"no.v\"/> --><FILE name=\"../link/../x.v\"/>"
                                  "<FILE name=\"rtl//a.v\"/>"));
  std::vector<std::string> names = {"c/rtl/a.v", "common/new.v", fs::canonical("real/x.v"),
                                    "c/m.cl",    "c/rtl/a.svh",  "c/rtl/note.svh",
                                    "c/t.hex",   "c/rtl/u.hex",  "c/rtl/m.h",
                                    "c/c.v",     "common/b.svh"};
  std::string rules;
  for (const std::string& name : names) {
    rules += "\n" + name + ":\n";
  }
  names.insert(names.begin(), "c/s.xml");
  const Outcome got = deps({"c/s.xml"});
  EXPECT_EQ(got.out, rule("s.bfco", names) + rules);
  EXPECT_EQ(got.status, 0);
}

TEST_F(ComponentDepsTest, MakeReadsTheNames) {
  const std::vector<std::string> files = {"a b.v", "c$d.v", "#e.v",  "f:g.v", "h\\ i.v",
                                          "j=k.v", "l%m.v", "n&o.v", "p'.v",  "$(shell false).v"};
  std::string elements;
  for (const std::string& file : files) {
    write_file(file, "");
    elements += file_element(file == "n&o.v" ? "n&amp;o.v" : file);
  }
  write_file("m.cl", "");
  write_file("s.xml", make_spec(elements));
  write_file("Makefile", "all: s.bfco 'a\\ b'\n-include d.d e.d\ns.bfco: s.xml\n\techo made >$@\n'a\\ b':\n"
                         "\techo other\n");
  ASSERT_EQ(deps({"s.xml", "-o", "d.d"}).status, 0);
  ASSERT_EQ(run({"make"}).status, 0);
  for (const std::string& file : files) {
    SCOPED_TRACE(file);
    EXPECT_EQ(run({"make", "-q", "s.bfco"}).status, 0);
    fs::last_write_time(file, fs::file_time_type::clock::now() + std::chrono::hours(1));
    EXPECT_EQ(run({"make", "-q", "s.bfco"}).status, 1);
    fs::remove(file);
    const bool has_rule = file.find_first_of("=%") == std::string::npos;
    EXPECT_EQ(run({"make", "-q", "s.bfco"}).status, has_rule ? 1 : 2);
    write_file(file, "");
    write_file("s.bfco", "");
  }
}

TEST_F(ComponentDepsTest, WritesWholeFilesForTheTargetsAsked) {
  write_file("1.xml", make_spec(file_element("1.v")));
  write_file("2.xml", make_spec(file_element("1.v"), "2.cl"));
  EXPECT_EQ(deps({"1.xml", "2.xml"}).out, rule("1.bfco", {"1.xml", "1.v", "m.cl"}) +
                                              rule("2.bfco", {"2.xml", "1.v", "2.cl"}) + "\n1.v:\n\nm.cl:\n\n2.cl:\n");
  umask(027);
  EXPECT_EQ(deps({"1.xml", "2.xml", "--target", "a b", "-o", "out.d"}).status, 0);
  EXPECT_EQ(read_file("out.d"),
            rule("a\\ b", {"1.xml", "2.xml", "1.v", "m.cl", "2.cl"}) + "\n1.v:\n\nm.cl:\n\n2.cl:\n");
  EXPECT_EQ(fs::status("out.d").permissions(), fs::perms(0640));
  fs::create_symlink("linked.d", "link.d");
  write_file("linked.d", "old");
  EXPECT_EQ(deps({"1.xml", "-o", "link.d"}).status, 0);
  EXPECT_EQ(read_file("linked.d"), deps({"1.xml"}).out);
  EXPECT_TRUE(fs::is_symlink("link.d"));

  write_file("bad.xml", make_spec(file_element("a.v;touch x")));
  for (const auto& [words, status, message] : std::vector<std::tuple<std::vector<std::string>, int, std::string>>{
           {{"bad.xml", "-o", "out.d"}, 2, "bfcl-component: a.v;touch x: a dependency file cannot contain this name\n"},
           {{"1.xml", "--target", "a=b"}, 2, "bfcl-component: a=b: a dependency file cannot contain this name\n"},
           {{"1.xml", "-o", "no/out.d"}, 2, "bfcl-component: no/out.d: cannot write: No such file or directory\n"},
           {{"none.xml", "-o", "out.d"}, 1, "XML error: XML_ERROR_FILE_NOT_FOUND"}}) {
    SCOPED_TRACE(joined(words));
    const Outcome got = deps(words);
    EXPECT_EQ(got.status, status);
    EXPECT_EQ(got.err.substr(0, message.size()), message);
    EXPECT_EQ(read_file("out.d").substr(0, 5), "a\\ b:");
  }
  EXPECT_EQ(std::distance(fs::directory_iterator("."), {}), 6) << "a temporary file remains";
}

} // namespace
