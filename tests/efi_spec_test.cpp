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

// Keeps every rule; the first line is line 1.
constexpr const char* GOOD = R"(<RTL_SPEC>
  <FUNCTION name="f" module="m">
    <ATTRIBUTES>
      <IS_STALL_FREE value="no"/>
      <IS_FIXED_LATENCY value="yes"/>
      <EXPECTED_LATENCY value="3"/>
      <CAPACITY value="2"/>
      <HAS_SIDE_EFFECTS value="no"/>
      <PARAMETER name="P" value="1"/>
    </ATTRIBUTES>
    <INTERFACE>
      <VEYRA port="clock" type="clock"/>
      <VEYRA port="resetn" type="resetn"/>
      <VEYRA port="iv" type="ivalid"/>
      <VEYRA port="ir" type="iready"/>
      <VEYRA port="ov" type="ovalid"/>
      <VEYRA port="or" type="oready"/>
      <INPUT port="a" width="32"/>
      <MEM_INPUT port="p" access="readonly"/>
      <OUTPUT port="q" width="16"/>
      <VEYRA_MEM port="mem" width="512" burstwidth="5" optype="read" buffer_location=""/>
    </INTERFACE>
    <RESOURCES><ALUTS value="1.5"/><FFS value="2"/><RAMS value="0"/><DSPS value="3.5"/></RESOURCES>
    <REQUIREMENTS><FILE name="top.v"/></REQUIREMENTS>
    <C_MODEL><FILE name="m.cl"/></C_MODEL>
  </FUNCTION>
</RTL_SPEC>
)";

constexpr const char* HELP = "\nEach HDL component must conform to the following specification:\n"
                             "  - Use Veyra Streaming interface with these signals defined:\n"
                             "     - clock, resetn, iready, ivalid, oready, ovalid\n"
                             "  - Have at least one data input signal\n"
                             "  - If VEYRA_MEM port is requested, at least one MEM_INPUT must\n"
                             "    be provided.\n";

std::string at(int line, const std::string& msg) {
  return "Error in '[mem]', line " + std::to_string(line) + "\n" + msg + "\n";
}

std::string error(const std::string& msg) {
  return "Error in '[mem]':\n" + msg + "\n";
}

std::string missing(int line, const char* attr, const char* elem, const char* msg) {
  return at(line, std::string("Expected attribute '") + attr + "' on element '" + elem + "'.") + at(line, msg);
}

std::string wrong_type(int line, const char* attr, const char* elem) {
  return at(line, std::string("Incorrect type for attribute '") + attr + "' on element '" + elem + "'.");
}

std::string joined(const std::vector<std::string>& texts) {
  std::string result;
  for (const std::string& text : texts) {
    result += text;
  }
  return result;
}

// Without the searches of files.
std::unique_ptr<EFISpec> load(EFISpecXmlLoader& loader, const std::string& xml) {
  return std::unique_ptr<EFISpec>(loader.load_xml(xml.c_str()));
}

// An edit of the good specification, and the errors that it must give ("" for none).
struct Edit {
  const char* from;
  const char* to;
  std::string errors;
};

void check_edits(const std::vector<Edit>& edits) {
  for (const Edit& edit : edits) {
    SCOPED_TRACE(std::string(edit.from) + " -> " + edit.to);
    EFISpecXmlLoader loader(false, false);
    const auto spec = load(loader, replaced(GOOD, edit.from, edit.to));
    EXPECT_EQ(edit.errors, joined(loader.get_errors()));
    EXPECT_EQ(edit.errors.empty(), spec != nullptr);
  }
}

} // namespace

TEST(Spec, DocumentStructure) {
  const auto unexpected = [](int line, const std::string& name) {
    return at(line, "Unexpected element '" + name + "'.");
  };
  const auto twice = [](int line, const std::string& name) {
    return at(line, "Expected element <" + name + "> to appear exactly once.");
  };
  const std::string none = error("Missing Function (<FUNCTION>) in EFI specification.");
  check_edits({
      {"<RTL_SPEC>", "<RTL_SPEC anything='goes'>", ""},
      {"<RTL_SPEC>", "<!-- c --><RTL_SPEC>text", ""},
      {"<RTL_SPEC>", "<EFI_SPEC/>\n<RTL_SPEC>", ""},
      {"</RTL_SPEC>", "</RTL_SPEC><RTL_SPEC/>", twice(27, "RTL_SPEC")},
      {"<RTL_SPEC>", "<RTL_SPEC><EFI_SPEC/>", unexpected(1, "EFI_SPEC")},
      {"<RTL_SPEC>", "<RTL_SPEC><FUNCTIONS/>", unexpected(1, "FUNCTIONS")},
      {"module=\"m\"", "module=\"m\" b=\"\"\nc=\"\"",
       at(2, "Unexpected attribute 'b'.") + at(3, "Unexpected attribute 'c'.")},
      {"name=\"f\" ", "", missing(2, "name", "FUNCTION", "Unsupported function_name string.")},
      {" module=\"m\"", "", missing(2, "module", "FUNCTION", "Unsupported module_name string.")},
      {"</RTL_SPEC>", "<FUNCTION name='f' module='n'/></RTL_SPEC>", at(27, "Function_name string must be unique.")},
      {"<ATTRIBUTES>", "<FUNCTION name='g' module='m'/><ATTRIBUTES>", unexpected(3, "FUNCTION")},
      {"<ATTRIBUTES>", "<Attributes/><ATTRIBUTES>", unexpected(3, "Attributes")},
      {"<ATTRIBUTES>", "<ATTRIBUTES a='1'>", at(3, "Unexpected attribute 'a'.")},
      {"<INTERFACE>", "<ATTRIBUTES/><INTERFACE>", twice(11, "ATTRIBUTES")},
      {"</INTERFACE>", "<OUTPUT port='z' width='8'/></INTERFACE>", twice(22, "OUTPUT")},
      {"<INPUT port=\"a\"", "<INPUT x='1' port=\"a\"", at(18, "Unexpected attribute 'x'.")},
      {"<PARAMETER", "<ALUTS value='1'/><PARAMETER", unexpected(9, "ALUTS")},
      {"<INTERFACE>", "<INTERFACE><INTERFACE/>", unexpected(11, "INTERFACE")},
  });
  EFISpecXmlLoader loader(false, false);
  for (const auto& [xml, errors] : {std::pair<std::string, std::string>{"<EFI_SPEC/>", none},
                                    {"<FUNCTION name='f' module='m'/>", none},
                                    {"<FUNCTION><X/></FUNCTION>", unexpected(1, "X")},
                                    {"<SPEC/>", unexpected(1, "SPEC")}}) {
    EXPECT_EQ(nullptr, load(loader, xml));
    EXPECT_EQ(errors, joined(loader.get_errors()));
  }
}

TEST(Spec, InterfaceElements) {
  check_edits({
      {" port=\"clock\"", "", missing(12, "port", "VEYRA", "Unsupported port string.")},
      {" type=\"clock\"", "", missing(12, "type", "VEYRA", "Unsupported type string.")},
      {"type=\"iready\"", "\ntype=\"ivalid\"", at(16, "Multiple type string.")},
      {"port=\"ir\"", "port=\"iv\"", at(15, "Multiple uses of port.")},
      {"port=\"iv\"", "port=\"\"", at(14, "Multiple uses of port.")},
      {"port=\"clock\"", "port=\"clk\"", at(12, "expected \"clock\" as port name.")},
      {"port=\"resetn\"", "port=\"rst\"", at(13, "expected \"resetn\" as port name.")},
      {"type=\"ivalid\"", "type=\"start\"", at(14, "Unsupported veyra signal.")},
      // The value stands for an attribute's name: here there is one, on another line.
      {"port=\"iv\" type=\"ivalid\"", "type=\"port\"\nport=\"iv\"", at(15, "Unsupported veyra signal.")},
      {"width=\"32\"", "", missing(18, "width", "INPUT", "Unsupported width string.")},
      {"width=\"32\"", "width=\"32 \"", wrong_type(18, "width", "INPUT") + at(18, "Unsupported width string.")},
      {"width=\"32\"", "width=\"0x20\"", wrong_type(18, "width", "INPUT") + at(18, "Unsupported width string.")},
      {"width=\"32\"", "width=\"12\"", at(18, "Input port width must be a multiple of 8.")},
      {"width=\"32\"", "width=\"0\"", ""},
      {"port=\"a\"", "port=\"iv\"", at(18, "Multiple uses of port.")},
      {"port=\"p\"", "port=\"a\"", at(19, "Multiple uses of port name.")},
      {"</INTERFACE>", "<INPUT port='p' width='8'/></INTERFACE>", at(22, "Multiple uses of port.")},
      {"</INTERFACE>", "<INPUT port='q' width='8'/></INTERFACE>", at(22, "Multiple uses of port.")},
      {"</INTERFACE>", "<INPUT port='' width='8'/></INTERFACE>", ""},
      {"</INTERFACE>", "<INPUT port='' width='8'/><INPUT port='' width='8'/></INTERFACE>",
       at(22, "Multiple uses of port.")},
      {"width=\"16\"", "width=\"17\"", at(20, "Output port width must be a multiple of 8.")},
      {"port=\"q\"", "port=\"a\"", at(20, "Multiple uses of port.")},
      {"access=\"readonly\"", "access=\"ReadOnly\"",
       at(19, "Unsupported access string. Must be either 'readonly' or 'readwrite'.")},
      {"access=\"readonly\"", "access=\"scalar\"",
       at(19, "Unsupported access string. Must be either 'readonly' or 'readwrite'.")},
      {" access=\"readonly\"", "", missing(19, "access", "MEM_INPUT", "Unsupported access string.")},
      {" burstwidth=\"5\"", "", missing(21, "burstwidth", "VEYRA_MEM", "Unsupported width string.")},
      {"burstwidth=\"5\"", "burstwidth=\"-5\"",
       wrong_type(21, "burstwidth", "VEYRA_MEM") + at(21, "Unsupported width string.")},
      {"optype=\"read\"", "optype=\"rw\"", at(21, "Unsupported optype string.")},
      {" optype=\"read\"", "", missing(21, "optype", "VEYRA_MEM", "Unsupported optype string.")},
      {" buffer_location=\"\"", "", missing(21, "buffer_location", "VEYRA_MEM", "Unsupported buffer_location string.")},
      {"</INTERFACE>",
       "<VEYRA_MEM port='mem' width='1' burstwidth='1' optype='read' buffer_location=''/>"
       "</INTERFACE>",
       at(22, "Multiple memory port string.")},
      {"port=\"mem\"", "port=\"a\"", ""},
      {"name=\"P\" ", "", missing(9, "name", "PARAMETER", "Unsupported name string.")},
      {" value=\"1\"", "", missing(9, "value", "PARAMETER", "Unsupported value string.")},
      {"</ATTRIBUTES>", "<PARAMETER name='P' value=''/></ATTRIBUTES>", ""},
  });
}

TEST(Spec, AttributesResourcesAndFiles) {
  check_edits({
      {"FREE value=\"no\"", "FREE value=\"YES\"", ""},
      {"FREE value=\"no\"", "FREE value=\"true\"", at(4, "IS_STALL_FREE value must be set to \"yes\" or \"no\".")},
      {"FREE value=\"no\"", "FREE", missing(4, "value", "IS_STALL_FREE", "Unsupported value string.")},
      {"value=\"3\"", "", missing(6, "value", "EXPECTED_LATENCY", "Unsupported value string.")},
      {"value=\"3\"", "value=\"3.5\"", wrong_type(6, "value", "EXPECTED_LATENCY")},
      {"value=\"3\"", "value=\"\"", wrong_type(6, "value", "EXPECTED_LATENCY")},
      {"value=\"3\"", "value=\"4294967299\"", wrong_type(6, "value", "EXPECTED_LATENCY")},
      {"value=\"3\"", "value=\"0x1F\"", ""},
      {"value=\"3\"", "value=\"010\"", ""},
      {"value=\"3.5\"", "value=\"3.5 blocks\"", wrong_type(23, "value", "DSPS")},
      {"value=\"3.5\"", "", missing(23, "value", "DSPS", "Unsupported value string.")},
      {"value=\"3.5\"", "value=\"1e3\"", ""},
      {"FILE name=\"top.v\"", "FILE", missing(24, "name", "FILE", "Unsupported name string.")},
      {"<REQUIREMENTS>", "<RESOURCES/><REQUIREMENTS>", at(24, "Expected element <RESOURCES> to appear exactly once.")},
      {"<ALUTS", "<FILE name='x'/><ALUTS", at(23, "Unexpected element 'FILE'.")},
      {"<ALUTS", "<FILE x='1'/><ALUTS", at(23, "Unexpected element 'FILE'.") + at(23, "Unexpected attribute 'x'.")},
      // The content of a FILE is not looked at.
      {"<FILE name=\"top.v\"/>", "<FILE name=\"top.v\"><X/></FILE>", ""},
  });
}

TEST(Spec, SchedulingChecks) {
  const std::string no_latency = error("EXPECTED_LATENCY attribute is not set!");
  check_edits({
      {"<EXPECTED_LATENCY value=\"3\"/>", "", no_latency},
      {"value=\"3\"", "value=\"2147483647\"", no_latency},
      {"value=\"3\"", "value=\"-1\"", error("EXPECTED_LATENCY attribute must be at least 0!")},
      {"value=\"2\"", "value=\"-1\"", error("CAPACITY attribute must be at least 0!")},
      {"<IS_FIXED_LATENCY value=\"yes\"/>", "", ""},
      {"<IS_FIXED_LATENCY value=\"yes\"/>\n      <EXPECTED_LATENCY value=\"3\"/>\n      <CAPACITY "
       "value=\"2\"/>",
       "<EXPECTED_LATENCY value=\"3\"/>",
       error("CAPACITY attribute is not set for a function that is stallable and doesn't have "
             "fixed latency! Set the CAPACITY attribute or double-check IS_STALL_FREE and "
             "IS_FIXED_LATENCY attributes. Incorrectly set CAPACITY may lead to non-functioning "
             "hardware.")},
      {"value=\"no\"/>\n      <IS_FIXED_LATENCY value=\"yes\"/>", "value=\"yes\"/>",
       error("Function is marked as IS_STALL_FREE but IS_FIXED_LATENCY set to \"no\". "
             "Variable-latency functions that do not stall will NOT work inside OpenCL pipelines. "
             "Either also set IS_FIXED_LATENCY to \"yes\" or set IS_STALL_FREE to \"no\" and make "
             "sure your function properly handles valid/stall signals.")},
  });
  // Without ATTRIBUTES, none of these checks is made.
  const std::string good = GOOD;
  const std::size_t begin = good.find("    <ATTRIBUTES>");
  const std::size_t end = good.find("    <INTERFACE>");
  EFISpecXmlLoader loader(false, false);
  const auto spec = load(loader, good.substr(0, begin) + good.substr(end));
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
              joined(loader.get_warnings()));
  }
}

TEST(Spec, InterfaceChecks) {
  const std::string help = HELP;
  const std::string signal_end = "' in HDL component specification." + help;
  check_edits({
      {"<VEYRA port=\"ov\" type=\"ovalid\"/>\n      <VEYRA port=\"or\" type=\"oready\"/>", "",
       at(2, "Component is missing Veyra signal 'oready" + signal_end)},
      {"<VEYRA port=\"clock\" type=\"clock\"/>", "", at(2, "Component is missing Veyra signal 'clock" + signal_end)},
      {"<INPUT port=\"a\" width=\"32\"/>\n      <MEM_INPUT port=\"p\" access=\"readonly\"/>", "",
       at(2, "Missing Input Signals (<INPUT>) in HDL component specification." + help)},
      {"<FILE name=\"top.v\"/>", "",
       error("Missing HDL component source file requirement (<REQUIREMENTS>) in HDL component "
             "specification." +
             help)},
      {"<FILE name=\"m.cl\"/>", "", error("Missing OpenCL C model (<C_MODEL>) in HDL component specification.")},
      {"<MEM_INPUT port=\"p\" access=\"readonly\"/>", "",
       error("Expecting at least one <MEM_INPUT> in HDL component specification." + help)},
      {"optype=\"read\"", "optype=\"write\"",
       error("Expecting at least one <MEM_INPUT> with \"readwrite\" attribute in HDL component "
             "specification." +
             help)},
      {"access=\"readonly\"", "access=\"readwrite\"",
       error("Expecting <VEYRA_MEM> with \"write\" attribute in HDL component specification." + help)},
      {"<OUTPUT port=\"q\" width=\"16\"/>", "", ""},
  });
}

TEST(Spec, ModelHoldsWhatTheDocumentSays) {
  EFISpecXmlLoader loader(false, false);
  const auto spec = load(loader, GOOD);
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
  EXPECT_EQ(1.5F, elem.m_aluts);
  EXPECT_EQ(3.5F, elem.m_dsps);
  EXPECT_TRUE(elem.m_has_side_effects.set && !elem.m_has_side_effects.value);
  EXPECT_FALSE(elem.m_allow_merging.set);
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
  const std::string block((1 << 20) - 2, 'x'); // the next word lies across two reads
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

// The search of blocks against that of lines, over texts and keys of few letters.
TEST_F(Files, SearchesFindWhatLinesHold) {
  std::mt19937 random(1);
  const auto text_of = [&random](std::size_t size) {
    std::string text;
    while (text.size() < size) {
      text += "abc\n"[random() % (random() % 8 == 0 ? 4 : 3)];
    }
    return text;
  };
  for (int round = 0; round < 300; ++round) {
    const std::string text = text_of(random() % (round % 3 == 0 ? 20000 : 200));
    std::vector<std::string> keys;
    std::vector<bool> expected;
    for (int key = 0; key < 20; ++key) {
      keys.push_back(text_of(random() % 14));
      expected.push_back(!text.empty() && keys.back().find('\n') == std::string::npos &&
                         text.find(keys.back()) != std::string::npos);
    }
    std::vector<bool> found(keys.size());
    write_file("text", text);
    vex::efi::xml::strings_in_file("text", keys, found);
    ASSERT_EQ(expected, found) << round;
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
    EXPECT_EQ(c.error.empty() ? "" : "Error in 'lib/spec.xml':\n" + c.error + "\n", joined(loader.get_errors()));
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
  EFISpecXmlLoader loader(false, true);
  const std::unique_ptr<EFISpec> spec(loader.load_file("spec.xml"));
  EXPECT_NE(nullptr, spec) << joined(loader.get_errors());
}

TEST(Spec, DebuggingTracesDocumentAndWalk) {
  EFISpecXmlLoader loader(true, false);
  const Printed printed = capture([&loader] { load(loader, "<EFI_SPEC><X/></EFI_SPEC>"); });
  EXPECT_EQ("<EFI_SPEC>\n  <X/>\n</EFI_SPEC>\n[xml] entering document\n[xml] entering EFI_SPEC\n"
            "[xml] entering EFI_SPEC/X\n[xml] exiting document\n",
            printed.err);
}
