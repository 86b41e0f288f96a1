// SPDX-License-Identifier: BSD-3-Clause
#include "BaseVisitor.h"

#include "support.h"

#include <memory>
#include <sstream>

namespace {

using tinyxml2::XMLElement;
using vex::xml::BaseVisitor;
using vex::xml::BaseXmlLoader;

using Loader = InTempDir;

std::unique_ptr<tinyxml2::XMLDocument> parse(BaseXmlLoader& loader, const char* text) {
  return std::unique_ptr<tinyxml2::XMLDocument>(loader.parse_xml(text));
}

// Calls a function on entering the element of a name.
class CallingVisitor : public BaseVisitor {
public:
  using Call = std::function<bool(CallingVisitor&, const XMLElement&)>;
  CallingVisitor(vex::xml::VisitorCallbacks* callbacks, std::string name, Call call)
      : BaseVisitor(callbacks, false), m_name(std::move(name)), m_call(std::move(call)) {}

  bool VisitEnter(const XMLElement& elem, const tinyxml2::XMLAttribute* attributes) override {
    const bool entered = BaseVisitor::VisitEnter(elem, attributes);
    if (entered && elem.Value() == m_name) {
      result = m_call(*this, elem);
    }
    return ok();
  }

  bool result = false;

private:
  std::string m_name;
  Call m_call;
};

constexpr const char* DOCUMENT = "<A>\n"
                                 " <B x='1'\n"
                                 "    y='2'/>\n"
                                 " <B/>\n"
                                 " <C><D/></C>\n"
                                 "</A>\n";

} // namespace

TEST_F(Loader, Failures) {
  write_file("bad.xml", "<a>\n<b>\n</a>");
  const struct {
    const char* path;
    const char* error;
  } cases[] = {
      {"absent.xml", "XML_ERROR_FILE_NOT_FOUND"},
      {"bad.xml", "XML_ERROR_MISMATCHED_ELEMENT"},
      {".", "XML_ERROR_FILE_READ_ERROR"},
  };
  BaseXmlLoader loader;
  for (const auto& c : cases) {
    const Printed printed = capture([&] { EXPECT_EQ(nullptr, loader.parse_file(c.path)); });
    EXPECT_EQ(std::string("ERROR FOUND: ") + c.error + "\n", printed.out);
    ASSERT_EQ(1U, loader.m_errors.size());
    EXPECT_EQ(0U, loader.get_error(0).find(std::string("XML error: ") + c.error + ", Error=")) << loader.get_error(0);
    EXPECT_EQ('\n', loader.get_error(0).back());
    EXPECT_EQ(c.path, loader.get_source_name());
  }
  const Printed printed = capture([&] { EXPECT_EQ(nullptr, loader.parse_xml("")); });
  EXPECT_EQ("", printed.out);
  ASSERT_EQ(1U, loader.m_errors.size());
  EXPECT_EQ(0U, loader.get_error(0).find("XML error: XML_ERROR_EMPTY_DOCUMENT"));
  EXPECT_STREQ("[mem]", loader.get_source_name());
}

TEST_F(Loader, ElementsWithManyAttributesAreNotParsed) {
  std::string attributes;
  for (int i = 0; i < 1000; ++i) {
    attributes += " a" + std::to_string(i) + "='=>'";
  }
  BaseXmlLoader loader;
  const std::string fill = "<!-- " + std::string(2000, '=') + " --><e/>= = ";
  EXPECT_NE(nullptr, parse(loader, ("<a>" + fill + "<b" + attributes + "/></a>").c_str()));
  write_file("many.xml", "<a>" + fill + "<b" + attributes + " a=''/></a>");
  const Printed printed = capture([&] { EXPECT_EQ(nullptr, loader.parse_file("many.xml")); });
  EXPECT_EQ("ERROR FOUND: XML_ERROR_PARSING_ATTRIBUTE\n", printed.out);
}

TEST_F(Loader, TextsLastUntilTheNextParse) {
  BaseXmlLoader loader;
  EXPECT_EQ(nullptr, loader.get_source_name());
  loader.report_error("e");
  loader.report_warning("w");
  EXPECT_EQ("w", loader.get_warning(0));
  EXPECT_NE(nullptr, parse(loader, "<a/>"));
  EXPECT_TRUE(loader.m_errors.empty() && loader.m_warnings.empty());
}

TEST_F(Loader, Conversions) {
  const struct {
    const char* text;
    int base;
    bool ok;
    unsigned long long value;
  } cases[] = {
      {"12", 10, true, 12}, {"12x", 10, false, 12}, {" 12", 10, false, 7}, {"-1", 10, false, 7},   {"+1", 10, false, 7},
      {"", 10, false, 7},   {"0x1F", 0, true, 31},  {"08", 0, false, 0},   {"0x1F", 10, false, 0}, {"x", 0, false, 7},
  };
  for (const auto& c : cases) {
    unsigned value = 7;
    unsigned long long value64 = 7;
    EXPECT_EQ(c.ok, vex::xml::convert_to_unsigned(c.text, &value, c.base)) << c.text;
    EXPECT_EQ(c.ok, vex::xml::convert_to_unsigned64(c.text, &value64, c.base)) << c.text;
    EXPECT_EQ(c.value, value) << c.text;
    EXPECT_EQ(c.value, value64) << c.text;
  }
  unsigned saturated = 0;
  EXPECT_TRUE(vex::xml::convert_to_unsigned("99999999999999999999999", &saturated, 10));
  EXPECT_EQ(~0U, saturated);

  std::istringstream stream("0x10 17 word");
  vex::xml::unsigned_hex number;
  vex::xml::unsigned64_hex number64;
  EXPECT_TRUE(stream >> number);
  EXPECT_EQ(16U, number.value);
  EXPECT_TRUE(stream >> number64);
  EXPECT_EQ(17U, number64.value);
  EXPECT_FALSE(stream >> number);
}

TEST(Visitor, StacksAndCounts) {
  BaseXmlLoader loader;
  const auto doc = parse(loader, DOCUMENT);
  CallingVisitor visitor(&loader, "D", [](CallingVisitor& v, const XMLElement&) {
    EXPECT_TRUE(v.check_element_stack(2, "A", "C"));
    EXPECT_FALSE(v.check_element_stack(1, "A"));
    EXPECT_FALSE(v.check_element_stack(2, "A", "B"));
    EXPECT_FALSE(v.check_element_stack(0));
    EXPECT_TRUE(v.check_element_stack_with_top(3, "A", "C", "D"));
    EXPECT_FALSE(v.check_element_stack_with_top(2, "A", "C"));
    EXPECT_EQ(2U, v.get_element_count(2, "A", "B"));
    EXPECT_EQ(0U, v.get_element_count(2, "A", "X"));
    EXPECT_EQ(0U, v.get_element_count(0));
    EXPECT_EQ("A/C/D", v.get_elem_stack_key());
    EXPECT_EQ(1U, v.get_elem_stack_count_entry().second);
    return true;
  });
  EXPECT_TRUE(doc->Accept(&visitor));
  EXPECT_TRUE(visitor.result);
  EXPECT_EQ("", visitor.get_elem_stack_key());
  EXPECT_TRUE(visitor.check_element_stack_with_top(0));
}

// Each report, made on the first B (line 2), once with its outcome and its text.
TEST(Visitor, Reports) {
  using V = CallingVisitor;
  using E = XMLElement;
  const std::string head = "Error in '[mem]', line 2\n";
  const struct {
    V::Call call;
    bool result;
    std::string text;
  } cases[] = {
      {[](V& v, const E& e) { return v.report_error(e, "m"); }, false, head + "m\n"},
      {[](V& v, const E& e) { return v.report_error(e, ""); }, false, head},
      {[](V& v, const E&) { return v.report_error("m"); }, false, "Error in '[mem]':\nm\n"},
      {[](V& v, const E&) { return v.report_warning("m"); }, true, "Warning in '[mem]':\nm\n"},
      {[](V& v, const E& e) { return v.report_unexpected_elem(e, ""); }, false, head + "Unexpected element 'B'.\n"},
      {[](V& v, const E& e) { return v.report_unexpected_elem(e, "x"); }, false, head + "Unexpected element 'B'.\nx\n"},
      {[](V& v, const E& e) { return v.report_unexpected_elem_stack(e, 1, "A"); }, true, ""},
      {[](V& v, const E& e) { return v.report_unexpected_elem_stack(e, 0); }, false,
       head + "Unexpected element 'B'.\n"},
      {[](V& v, const E& e) { return v.report_unexpected_elem_stack_with_top(e, 2, "A", "B"); }, true, ""},
      {[](V& v, const E& e) { return v.report_unexpected_elem_stack_with_top(e, 1, "A"); }, false,
       head + "Unexpected element 'B'.\n"},
      {[](V& v, const E& e) { return v.report_unexpected_elem_count_error(e, 1, 1); }, false,
       head + "Expected element <B> to appear exactly once.\n"},
      {[](V& v, const E& e) { return v.report_unexpected_elem_count_error(e, 0, 0); }, false,
       head + "Unexpected element 'B'.\n"},
      {[](V& v, const E& e) { return v.report_unexpected_elem_count_error(e, 0, 1); }, false,
       head + "Expected element <B> to appear 0-1 times.\n"},
      {[](V& v, const E&) { return v.report_error(*tinyxml2::XMLDocument().NewElement("X"), "m"); }, false,
       "Error in '[mem]'\nm\n"},
      {[](V& v, const E& e) { return v.report_unexpected_elem_count(e, 0U, 1U, 2U, "A", "B"); }, true, ""},
      {[](V& v, const E& e) { return v.report_unexpected_elem_count(e, 2U, 3U, 1U, "A"); }, false,
       head + "Expected element <B> to appear 2-3 times.\n"},
      {[](V& v, const E& e) { return v.report_unexpected_elem_count(e, 2U, 1U, "A"); }, false,
       head + "Expected element <B> to appear exactly 2 times.\n"},
      {[](V& v, const E& e) { return v.report_unexpected_elem_stack_count(e, 1); }, true, ""},
      {[](V& v, const E& e) { return v.report_unexpected_elem_stack_count(e, 2, 4); }, false,
       head + "Expected element <B> to appear 2-4 times.\n"},
      {[](V& v, const E& e) { return v.report_missing_attr(e, "z", "x"); }, false,
       head + "Expected attribute 'z' on element 'B'.\nx\n"},
      {[](V& v, const E& e) { return v.report_attr_error(e, "y", "m"); }, false, "Error in '[mem]', line 3\nm\n"},
      {[](V& v, const E& e) { return v.report_attr_error(e, "z", "m"); }, false, head + "m\n"},
      {[](V& v, const E& e) { return v.report_attr_type_error(e, "x", ""); }, false,
       head + "Incorrect type for attribute 'x' on element 'B'.\n"},
      {[](V& v, const E& e) { return v.report_unexpected_attrs(e, 2, "x", "y"); }, true, ""},
      {[](V& v, const E& e) {
         const char* allowed[] = {"y"};
         return v.report_unexpected_attrs(e, 1, allowed);
       },
       false, head + "Unexpected attribute 'x'.\n"},
      {[](V& v, const E& e) { return v.report_unexpected_attrs(e, std::vector<std::string>()); }, false,
       head + "Unexpected attribute 'x'.\n"
              "Error in '[mem]', line 3\nUnexpected attribute 'y'.\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    BaseXmlLoader loader;
    const auto doc = parse(loader, DOCUMENT);
    unsigned calls = 0;
    CallingVisitor visitor(&loader, "B", [&](CallingVisitor& v, const XMLElement& elem) {
      if (++calls == 1) {
        EXPECT_EQ(c.result, c.call(v, elem));
      }
      return true;
    });
    const bool is_error = c.text.find("Error") == 0;
    EXPECT_EQ(!is_error, doc->Accept(&visitor));
    EXPECT_EQ(is_error ? 1U : 2U, calls); // the first error ends the walk
    EXPECT_EQ(c.text, joined(loader.m_errors) + joined(loader.m_warnings));
  }
}

TEST(Visitor, WithoutCallbacksReportsAreDroppedButCount) {
  BaseXmlLoader loader;
  const auto doc = parse(loader, "<A/>");
  BaseVisitor visitor(nullptr, true);
  EXPECT_EQ(nullptr, visitor.get_source_name());
  EXPECT_TRUE(visitor.report_warning("w"));
  EXPECT_TRUE(visitor.ok());
  EXPECT_FALSE(visitor.report_error("e"));
  EXPECT_FALSE(doc->Accept(&visitor));
}

TEST(Visitor, WithoutSourceNameTheTextStopsThere) {
  BaseXmlLoader loader;
  BaseVisitor visitor(&loader, false);
  visitor.report_error("e");
  visitor.report_warning("w");
  EXPECT_EQ("Error in '", loader.get_error(0));
  EXPECT_EQ("Warning in '", loader.get_warning(0));
}

TEST(Visitor, AChildSharesCallbacksAndDebugFlag) {
  BaseXmlLoader loader;
  const auto doc = parse(loader, "<A/>");
  BaseVisitor parent(&loader, true);
  BaseVisitor child(&parent);
  EXPECT_EQ("d", capture([&child] { child.debug("d"); }).err);
  child.report_error(*doc->RootElement(), "e");
  EXPECT_FALSE(child.ok());
  EXPECT_TRUE(parent.ok());
  EXPECT_EQ("Error in '[mem]', line 1\ne\n", loader.get_error(0));
}

TEST(XmlDeathTest, Preconditions) {
  BaseXmlLoader loader;
  EXPECT_DEATH(static_cast<void>(loader.parse_file(nullptr)), "src/BaseXmlLoader.cpp:.*`filename != __null'");
  EXPECT_DEATH(static_cast<void>(loader.parse_xml(nullptr)), "`xml != __null'");
  EXPECT_DEATH(BaseXmlLoader::doc_to_string(nullptr), "`doc != __null'");
  EXPECT_DEATH(loader.get_error(0), "`index < m_errors.size\\(\\)'");
  EXPECT_DEATH(loader.get_warning(0), "`index < m_warnings.size\\(\\)'");
  const auto doc = parse(loader, "<A/>");
  const XMLElement& root = *doc->RootElement();
  BaseVisitor visitor(&loader, false);
  EXPECT_DEATH(BaseVisitor(static_cast<BaseVisitor*>(nullptr)), "src/BaseVisitor.cpp:.*`parent != 0'");
  EXPECT_DEATH(visitor.report_unexpected_elem_count_error(root, 2, 1), "`min_count <= max_count'");
  EXPECT_DEATH(visitor.VisitExit(root), "`m_elem_stack.size\\(\\) > 0'");
  visitor.VisitEnter(root, nullptr);
  EXPECT_DEATH(visitor.check_element_stack_with_top(1, static_cast<const char*>(nullptr)), "`elem_name != 0'");
  const auto other = parse(loader, "<B/>");
  EXPECT_DEATH(visitor.VisitExit(*other->RootElement()), "`m_elem_stack.back\\(\\) == elem.Value\\(\\)'");
}
