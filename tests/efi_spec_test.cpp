// SPDX-License-Identifier: BSD-3-Clause
#include "EFISpecXml.h"
#include "EFISpecXmlLoader.h"

#include "support.h"

#include <memory>
#include <random>
#include <sstream>

namespace {

using vex::efi::EFIElem;
using vex::efi::EFISpec;
using vex::efi::EFISpecXmlLoader;

using Files = InTempDir;

// Keeps every rule.
const std::string GOOD = read_file(BFCL_SOURCE_DIR "/tests/data/good.xml");

constexpr const char* HELP = "\nEach HDL component must conform to the following specification:\n"
                             "  - Use Veyra Streaming interface with these signals defined:\n"
                             "     - clock, resetn, iready, ivalid, oready, ovalid\n"
                             "  - Have at least one data input signal\n"
                             "  - If VEYRA_MEM port is requested, at least one MEM_INPUT must\n"
                             "    be provided.\n";

// Without the searches of files.
std::unique_ptr<EFISpec> load(EFISpecXmlLoader& loader, const std::string& xml) {
  return std::unique_ptr<EFISpec>(loader.load_xml(xml.c_str()));
}

// An edit of the good specification, and the errors that it must give.
struct Edit {
  std::string from;
  std::string to;
  std::string errors;
};

void append_line(std::string& text, const std::string& line) {
  text += (text.empty() ? "" : "\n") + (line.size() > 2 ? line.substr(2) : "");
}

// The error that "LINE: MESSAGE" is short for.
std::string framed_error(const std::string& text) {
  const std::size_t colon = text.find(": ");
  const std::string line = text.substr(0, colon);
  std::string message = text.substr(colon + 2);
  if (message.ends_with(" (HELP)")) {
    message = replaced(message, " (HELP)", HELP);
  }
  return (line.empty() ? "Error in '[mem]':\n" : "Error in '[mem]', line " + line + "\n") + message + "\n";
}

std::vector<Edit> read_edits() {
  std::vector<Edit> edits(1);
  std::istringstream lines(read_file(BFCL_SOURCE_DIR "/tests/data/spec_edits.txt"));
  for (std::string line; std::getline(lines, line);) {
    if (line.empty() && !edits.back().from.empty()) {
      edits.emplace_back();
    } else if (line[0] == '-') {
      append_line(edits.back().from, line);
    } else if (line[0] == '+') {
      append_line(edits.back().to, line);
    } else if (!line.empty() && line[0] != '#' && line[0] != '!') {
      edits.back().errors += framed_error(line);
    }
  }
  return edits;
}

} // namespace

TEST(Spec, EditsGiveTheirErrors) {
  for (const Edit& edit : read_edits()) {
    SCOPED_TRACE(edit.from + " -> " + edit.to);
    EFISpecXmlLoader loader(false, false);
    const auto spec = load(loader, replaced(GOOD, edit.from, edit.to));
    EXPECT_EQ(edit.errors, joined(loader.m_errors));
    EXPECT_EQ(edit.errors.empty(), spec != nullptr);
  }
}

TEST(Spec, DocumentsWithoutAComponent) {
  const std::string none = "Error in '[mem]':\nMissing Function (<FUNCTION>) in EFI specification.\n";
  EFISpecXmlLoader loader(false, false);
  for (const auto& [xml, errors] : {std::pair<std::string, std::string>{"<EFI_SPEC/>", none},
                                    {"<FUNCTION name='f' module='m'/>", none},
                                    {"<FUNCTION><X/></FUNCTION>", framed_error("1: Unexpected element 'X'.")},
                                    {"<SPEC/>", framed_error("1: Unexpected element 'SPEC'.")}}) {
    EXPECT_EQ(nullptr, load(loader, xml));
    EXPECT_EQ(errors, joined(loader.m_errors));
  }
}

TEST(Spec, WithoutAttributesNothingIsScheduled) {
  const std::size_t begin = GOOD.find("    <ATTRIBUTES>");
  EFISpecXmlLoader loader(false, false);
  const auto spec = load(loader, std::string(GOOD).erase(begin, GOOD.find("    <INTERFACE>") - begin));
  ASSERT_NE(nullptr, spec);
  EXPECT_EQ(2147483647, spec->efi_elems()[0]->m_latency);
  EXPECT_EQ(2147483647, spec->efi_elems()[0]->m_capacity);
}

TEST(Spec, CapacityDefaultsAndTheWarning) {
  const struct {
    const char* latency;
    const char* stall_free;
    int capacity;
  } cases[] = {{"0", "yes", 0}, {"5", "yes", 1}, {"0", "no", 0}, {"5", "no", 1}};
  for (const auto& c : cases) {
    std::string xml = replaced(GOOD, "<CAPACITY value=\"2\"/>", "");
    xml = replaced(xml, "value=\"3\"", std::string("value=\"") + c.latency + "\"");
    xml = replaced(xml, "FREE value=\"no\"", std::string("FREE value=\"") + c.stall_free + "\"");
    xml = replaced(xml, "EFFECTS value=\"no\"", "EFFECTS value=\"yes\"");
    EFISpecXmlLoader loader(false, false);
    const auto spec = load(loader, xml);
    ASSERT_NE(nullptr, spec);
    EXPECT_EQ(c.capacity, spec->efi_elems()[0]->m_capacity);
    EXPECT_EQ(c.stall_free == std::string("yes")
                  ? "Warning in '[mem]':\nFunction is marked as both IS_STALL_FREE and "
                    "HAS_SIDE_EFFECTS. Ensure your RTL module handles ivalid properly. See "
                    "documentation for details.\n"
                  : "",
              joined(loader.m_warnings));
  }
}

TEST(Spec, ModelHoldsWhatTheDocumentSays) {
  std::string xml = replaced(GOOD, "<FFS value=\"2\"/><RAMS value=\"0\"/>",
                             "<FFS value=\"2\"/><RAMS value=\"4\"/><MLABS value=\"5\"/>");
  xml = replaced(xml, "<PARAMETER", "<ALLOW_MERGING value=\"yes\"/><PARAMETER");
  EFISpecXmlLoader loader(false, false);
  const auto spec = load(loader, xml);
  ASSERT_NE(nullptr, spec);
  const EFIElem& elem = *spec->efi_elems()[0];
  std::ostringstream text;
  text << *spec;
  EXPECT_EQ("EFI specification:\n  Element#0:\n    Function Name: f\n    Module Name:   m\n"
            "    Latency:       3\n    Stall Free:    no\n    Fixed Latency: yes\n"
            "    VRM Signals:\n      clock: clock\n      resetn: resetn\n      iready: ir\n"
            "      ivalid: iv\n      oready: or\n      ovalid: ov\n    Input Signals:\n"
            "     #0: a, width:32\n     #1: p, width:64\n    Output Signal: q, width:16"
            "    Requirements:\n  top.v\n\n",
            text.str());
  EXPECT_EQ(2, elem.m_capacity);
  EXPECT_EQ((std::vector{1.5F, 2.0F, 4.0F, 3.5F, 5.0F}),
            (std::vector{elem.m_aluts, elem.m_ffs, elem.m_rams, elem.m_dsps, elem.m_mlabs}));
  EXPECT_TRUE(elem.m_has_side_effects.set && !elem.m_has_side_effects.value);
  EXPECT_TRUE(elem.m_allow_merging.set && elem.m_allow_merging.value);
  EXPECT_TRUE(elem.m_is_fixed_latency.set && elem.m_is_stall_free.set);
  EXPECT_EQ(std::vector<std::string>{"P"}, elem.m_parameter_names);
  EXPECT_EQ((std::vector{vex::efi::MEM_INPUT_SCALAR, vex::efi::MEM_INPUT_READONLY}), elem.m_input_access_types);
  EXPECT_EQ(std::vector<unsigned>{5}, elem.m_mem_port_burst_widths);
  EXPECT_EQ(0, spec->find_efi_elem_for_function_name("f"));
  EXPECT_EQ(-1, spec->find_efi_elem_for_function_name("F"));

  std::ostringstream empty;
  empty << EFISpec();
  EXPECT_EQ("EFI specification:\n", empty.str());
  EXPECT_TRUE(EFIElem().m_is_stall_free.set && EFIElem().m_is_fixed_latency.set);
}

TEST_F(Files, Searches) {
  const std::string block((1 << 20) - 2, 'x'); // two reads share the next word
  write_file("f", "one two\nthree\n");
  write_file("big", block + "needle\nlast");
  write_file("line", "\n");
  write_file("empty", "");
  write_file("nul", std::string("a\0b", 3));
  const struct {
    const char* path;
    std::vector<std::string> keys;
    std::vector<bool> found;
  } cases[] = {
      {"f", {"two", "hre", "four", "o\nt", "One"}, {true, true, false, false, false}},
      {"big", {"needle", "last", "xn", "needles"}, {true, true, true, false}},
      {"line", {"", "x"}, {true, false}},
      {"empty", {""}, {false}},
      {"nul", {"b"}, {true}},
      {".", {"x"}, {false}},
      {"absent", {"x"}, {false}},
  };
  for (const auto& c : cases) {
    std::vector<bool> found(c.keys.size(), false);
    const bool all = vex::efi::xml::strings_in_file(c.path, c.keys, found);
    EXPECT_EQ(c.found, found) << c.path;
    EXPECT_EQ(std::find(c.found.begin(), c.found.end(), false) == c.found.end(), all) << c.path;
  }
  std::vector<bool> carried = {true, false};
  EXPECT_TRUE(vex::efi::xml::strings_in_file("f", {"absent", "one"}, carried));
  EXPECT_TRUE(vex::efi::xml::fileOK("."));
  EXPECT_FALSE(vex::efi::xml::fileOK("absent"));
  EXPECT_EQ("a//x/y", vex::efi::xml::addPrefix("a", "/x/y"));
  EXPECT_EQ("/x/y", vex::efi::xml::addPrefix("", "/x/y"));
  std::vector<bool> too_few;
  EXPECT_DEATH(vex::efi::xml::strings_in_file("f", {"x"}, too_few),
               "src/EFISpecXml.*`result.size\\(\\) == keys.size\\(\\)'");
}

// The search of all keys together against one for each, over texts and keys of few letters.
TEST_F(Files, SearchesFindWhatLinesHold) {
  std::mt19937 random(1);
  const auto text_of = [&random](std::size_t size) {
    std::string text;
    while (text.size() < size) {
      text += "abc\n"[random() % (random() % 64 == 0 ? 4 : 3)];
    }
    return text;
  };
  for (int round = 0; round < 300; ++round) {
    const std::string text = text_of(round == 0 ? 20000 : random() % (round % 3 == 0 ? 20000 : 200)) + "c";
    std::vector<std::string> keys;
    std::vector<bool> expected;
    std::string part; // several keys differ after it
    for (int key = 0; key < (round == 0 ? 8000 : 20); ++key) {
      part = key % 4 == 0 ? text.substr(random() % text.size(), 60) : part;
      keys.push_back(key % 4 == 0 ? text_of(random() % 14) : part + text_of(random() % 3));
      expected.push_back(keys.back().find('\n') == std::string::npos && text.find(keys.back()) != std::string::npos);
    }
    std::vector<bool> found(keys.size());
    write_file("text", text);
    vex::efi::xml::strings_in_file("text", keys, found);
    ASSERT_EQ(expected, found) << round;
  }
}

TEST_F(Files, SearchesFindASingleOccurrenceAnywhere) {
  const std::size_t size = 13000; // two blocks and a part
  for (const std::size_t length : {1, 5, 700}) {
    const std::string key(length, 'k');
    for (std::size_t place = 0; place <= size - length;
         place += place % 4096 < 4060 && place + length + 40 < size ? 997 : 1) {
      std::string text(size, 'x');
      write_file("text", text.replace(place, length, key));
      std::vector<bool> found(4);
      vex::efi::xml::strings_in_file("text", {"x", "xx", key, key + "k"}, found);
      ASSERT_EQ((std::vector{true, true, true, false}), found) << length << " at " << place;
    }
  }
}

TEST_F(Files, ComponentChecks) {
  const std::string source = "module m #(parameter P) (a, p, q, mem);\n";
  const std::string grep = "A simple 'grep' method was used to search the files\n\n";
  const std::string not_found =
      "The following module name, parameter name, input or an output name specified in XML file "
      "is not found in any requirement file:\n";
  const struct {
    std::string source; // "-" for no file
    std::string model;
    std::string error;
  } cases[] = {
      {source, "int f(int a);", ""},
      {"-", "-", "Couldn't open OpenCL C model file lib/m.cl"},
      {"-", "f", "Couldn't open Requirements file lib/top.v"},
      {"-", "g", "Couldn't open Requirements file lib/top.v"},
      {source, "int g(void);",
       "Function name 'f' is not found in any specified OpenCL C model files!\n"
       "OpenCL C model function name must match function name in the XML file.\n\n" +
           grep},
      {"m a P", "f", not_found + "   'p'\n   'q'\n   'mem'\n" + grep},
      {"", "",
       "Function name 'f' is not found in any specified OpenCL C model files!\n"
       "OpenCL C model function name must match function name in the XML file.\n\n" +
           not_found + "   'm'\n   'a'\n   'p'\n   'q'\n   'mem'\n   'P'\n" + grep},
  };
  write_file("lib/spec.xml", GOOD);
  for (const auto& c : cases) {
    for (const auto& [path, text] : {std::pair{"lib/top.v", c.source}, {"lib/m.cl", c.model}}) {
      std::filesystem::remove(path);
      if (text != "-") {
        write_file(path, text);
      }
    }
    EFISpecXmlLoader loader(false, true);
    const std::unique_ptr<EFISpec> spec(loader.load_file("lib/spec.xml"));
    EXPECT_EQ(c.error.empty() ? "" : "Error in 'lib/spec.xml':\n" + c.error + "\n", joined(loader.m_errors));
    EXPECT_EQ(c.error.empty(), spec != nullptr);
  }
}

TEST_F(Files, LaterFilesAreSearchedForWhatIsMissing) {
  std::string xml = replaced(GOOD, "<FILE name=\"top.v\"/>", "<FILE name='a'/><FILE name='b'/>");
  xml = replaced(xml, "<FILE name=\"m.cl\"/>", "<FILE name='c'/><FILE name='d'/>");
  write_file("a", "m P a\n");
  write_file("b", "p q mem\n");
  write_file("c", "g");
  write_file("d", "f");
  write_file("spec.xml", xml);
  efi_spec_handle* spec = load_efi_spec_file("spec.xml");
  ASSERT_NE(nullptr, spec);
  EXPECT_STREQ("m", get_module_name(get_efi_elem(spec, 0)));
  free_efi_spec_handle(spec);
}

TEST(Spec, DebuggingTracesDocumentAndWalk) {
  EFISpecXmlLoader loader(true, false);
  const Printed printed = capture([&loader] {
    load(loader, "<EFI_SPEC><X a=\"&lt;\"/></EFI_SPEC>");
    load(loader, "<EFI_SPEC/>");
  });
  EXPECT_EQ("<EFI_SPEC>\n  <X a=\"&lt;\"/>\n</EFI_SPEC>\n[xml] entering document\n[xml] entering EFI_SPEC\n"
            "[xml] entering EFI_SPEC/X\n[xml] exiting document\n"
            "<EFI_SPEC/>\n[xml] entering document\n[xml] entering EFI_SPEC\n[xml] exiting EFI_SPEC\n"
            "[xml] exiting document\n",
            printed.err);
}
