// SPDX-License-Identifier: BSD-3-Clause
#include "shelver.h"

#include "support.h"

#include <cstring>

namespace {

using Shelver = InTempDir;
using ShelverDeathTest = InTempDir;

// A package with that one section, opened for reading.
vex_pkg_ptr open_with_section(const char* section, const std::string& text) {
  vex_pkg_file* made = vex_pkg_open_file("lib", VEX_PKG_READ_WRITE | VEX_PKG_CREATE);
  vex_pkg_add_data_section(made, section, text.data(), text.size());
  vex_pkg_close_file(made);
  return vex_pkg_ptr(vex_pkg_open_file("lib", VEX_PKG_READ_ONLY));
}

// The entries as "name|kind|section" joined by blanks, or "(refused)".
std::string read_table(const std::string& text) {
  const vex_pkg_ptr pkg = open_with_section(".vex.comp_table", text);
  std::vector<shelver_comp_table_entry> entries(SHELVER_MAX_COMP_TABLE_ENTRIES);
  unsigned count = 0;
  if (shelver_read_component_table(pkg.get(), entries.data(), &count) == 0) {
    return "(refused)";
  }
  std::string result;
  for (unsigned i = 0; i < count; ++i) {
    result += std::string(i > 0 ? " " : "") + entries[i].function_name + "|" + entries[i].kind + "|" +
              entries[i].section_name;
    shelver_free_comp_table_entry(&entries[i]);
    EXPECT_EQ(nullptr, entries[i].function_name);
  }
  return result;
}

std::string read_info(const std::string& text) {
  const vex_pkg_ptr pkg = open_with_section(".vex.info", text);
  shelver_info_section info;
  if (shelver_read_info_section(pkg.get(), &info) == 0) {
    return "(refused)";
  }
  const std::string result = std::string(info.version) + "|" + info.name + "|" + info.vendor;
  shelver_free_info_section(&info);
  return result;
}

} // namespace

TEST_F(Shelver, Tables) {
  std::string most;
  for (unsigned i = 0; i < SHELVER_MAX_COMP_TABLE_ENTRIES; ++i) {
    most += "f HDL s\n";
  }
  const struct {
    std::string text;
    std::string expected;
  } cases[] = {
      {"<END_OF_TABLE>", ""},
      {"a HDL s\nb LLVM_IR <clang_ir>\n<END_OF_TABLE>", "a|HDL|s b|LLVM_IR|<clang_ir>"},
      {"a HDL s\n\nb HDL s\n<END_OF_TABLE>", "a|HDL|s b|HDL|s"},
      {"a HDL s\nb HDL s", "a|HDL|s b|HDL|s"},
      {"a HDL s\n<END_OF_TABLE>\nb", "a|HDL|s"},
      {"  a  HDL   s more\n", "a|HDL|s"},
      {std::string("a HDL s\n\0b", 10), "a|HDL|s"},
      {"", ""},
      {"a HDL\n<END_OF_TABLE>", "(refused)"},
      {"a HDL s\nb\n<END_OF_TABLE>", "(refused)"},
      {"a HDL s\n   \n", "(refused)"},
      {most + "f HDL s\n<END_OF_TABLE>", "(refused)"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.expected, read_table(c.text)) << c.text.substr(0, 100);
  }
  EXPECT_EQ(most.size() - 1, read_table(most + "<END_OF_TABLE>").size());
}

TEST_F(Shelver, Infos) {
  EXPECT_EQ("1.0|mylib|acme", read_info("1.0 mylib acme"));
  EXPECT_EQ("1.0|mylib|acme", read_info("1.0  mylib acme and more"));
  for (const char* text : {"", "1.0", "1.0 mylib", " 1.0 mylib "}) {
    EXPECT_EQ("(refused)", read_info(text)) << text;
  }
}

TEST_F(Shelver, MissingSections) {
  const vex_pkg_ptr pkg = open_with_section("other", "");
  shelver_info_section info;
  unsigned count = 7;
  shelver_comp_table_entry entry = {};
  EXPECT_EQ(0, shelver_read_info_section(pkg.get(), &info));
  EXPECT_EQ(nullptr, info.version);
  EXPECT_EQ(0, shelver_read_component_table(pkg.get(), &entry, &count));
  EXPECT_EQ(7U, count);
  shelver_free_comp_table_entry(nullptr);
}

TEST_F(Shelver, Tokens) {
  char text[] = ",,a,;b";
  char* save = nullptr;
  EXPECT_STREQ("a", shelver_strtok_r(text, ",;", &save));
  EXPECT_EQ(text + 4, save);
  EXPECT_STREQ("b", shelver_strtok_r(nullptr, ",;", &save));
  EXPECT_EQ(nullptr, shelver_strtok_r(nullptr, ",;", &save));
  EXPECT_EQ(text + 6, save);
}

TEST_F(ShelverDeathTest, NullArguments) {
  const vex_pkg_ptr pkg = open_with_section(".vex.info", "v n w");
  shelver_info_section info;
  shelver_comp_table_entry entry;
  unsigned count = 0;
  EXPECT_DEATH(shelver_read_info_section(nullptr, &info),
               "src/shelver.cpp:.*Assertion `lib_pkg != \\(\\(void \\*\\)0\\)' failed");
  EXPECT_DEATH(shelver_read_info_section(pkg.get(), nullptr), "info_out != \\(\\(void \\*\\)0\\)");
  EXPECT_DEATH(shelver_read_component_table(nullptr, &entry, &count), "lib_pkg != ");
  EXPECT_DEATH(shelver_read_component_table(pkg.get(), nullptr, &count), "comp_table_out != \\(\\(void \\*\\)0\\)");
  EXPECT_DEATH(shelver_read_component_table(pkg.get(), &entry, nullptr), "num_entries != \\(\\(void \\*\\)0\\)");
}
