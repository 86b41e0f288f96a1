// SPDX-License-Identifier: BSD-3-Clause
// What is read of component packages, OpenCL packages and libraries, and what is said of bad ones.
#include "component_package.h"
#include "damage.h"
#include "printable.h"
#include "support.h"

using namespace vex::efi;

namespace {

using Faults = std::vector<std::string>;

const Sections COMPONENT = {{".dir_container", "c/"},
                            {".source.../a.v", "module a"},
                            {".c_model.a.cl", ""},
                            {".xml_spec.s.xml", "<xml/>"},
                            {".comp_header", "f HDL\ng HDL\n<END_OF_TABLE>"}};

Sections library_of(const std::string& component) {
  return {{".vex.comp.f", component},
          {".vex.clang_ir.x86_64-unknown-linux-ostrahw", "BC"},
          {".vex.comp_table", "f HDL .vex.comp.f\ng HDL .vex.comp.f\nu LLVM_IR <clang_ir>\n<END_OF_TABLE>"},
          {".vex.info", "1.0 lib acme"},
          {".vex.version", "18.1.0.222"}};
}

// The sections with one of them given other bytes, another name, or taken away (an empty name).
Sections with(Sections sections, const std::string& name, const std::string& new_name, const std::string& bytes) {
  for (auto section = sections.begin(); section != sections.end(); ++section) {
    if (section->first == name) {
      *section = {new_name, bytes};
      if (new_name.empty()) {
        sections.erase(section);
      }
      return sections;
    }
  }
  sections.emplace_back(new_name, bytes);
  return sections;
}

class ComponentPackages : public InTempDir {
protected:
  const std::string m_component = make_package(COMPONENT);
  const Sections m_library = library_of(m_component);
};

} // namespace

TEST_F(ComponentPackages, AComponentPackage) {
  write_file("f.bfco", m_component);
  Faults faults;
  const auto file = read_package_file("f.bfco", faults);
  ASSERT_TRUE(file && faults.empty()) << joined(faults);
  ASSERT_EQ(PackageKind::COMPONENT, file->kind);
  const ComponentPackage& package = file->components.at(0);
  EXPECT_EQ("", package.section);
  EXPECT_EQ(m_component, package.image);
  EXPECT_EQ("c/", package.directory_prefix);
  EXPECT_EQ("s.xml", package.specification_name);
  EXPECT_EQ("<xml/>", package.specification);
  EXPECT_EQ((std::vector<std::string>{"f", "g"}), package.functions);
  ASSERT_EQ(2U, package.files.size());
  EXPECT_EQ("../a.v", package.files[0].name);
  EXPECT_EQ("module a", package.files[0].bytes);
  EXPECT_EQ(PackagedFileKind::C_MODEL, package.files[1].kind);
}

TEST_F(ComponentPackages, ALibraryAndAnOpenclPackage) {
  const std::string image = make_package(m_library);
  Faults faults;
  const auto file = read_package_image(image, faults);
  ASSERT_TRUE(file && faults.empty()) << joined(faults);
  EXPECT_EQ(PackageKind::LIBRARY, file->kind);
  EXPECT_EQ("1.0 lib acme", file->version + " " + file->name + " " + file->vendor);
  ASSERT_EQ(1U, file->components.size());
  EXPECT_EQ(m_component, file->components[0].image);
  EXPECT_EQ("a.cl", file->components[0].files.at(1).name);
  ASSERT_EQ(3U, file->functions.size());
  EXPECT_EQ("u", file->functions[2].name);
  EXPECT_EQ(&file->components[0], find_component(*file, "g"));
  EXPECT_EQ(nullptr, find_component(*file, "u"));

  const std::string opencl = make_package({m_library[1]});
  const auto code = read_package_image(opencl, faults);
  ASSERT_TRUE(code && faults.empty()) << joined(faults);
  EXPECT_EQ(PackageKind::OPENCL, code->kind);
  EXPECT_EQ("x86_64-unknown-linux-ostrahw", code->clang_ir.at(0).target);
}

TEST_F(ComponentPackages, Faults) {
  const std::string none = "not a component package, a library or an OpenCL package";
  const std::string table = ".vex.comp_table";
  std::string many;
  for (int i = 0; i < 16385; ++i) {
    many += "f HDL\n";
  }
  const struct {
    Sections sections;
    Faults expected;
  } cases[] = {
      {{}, {none}},
      {with(COMPONENT, ".comp_header", "", ""), {none}},
      {with(COMPONENT, ".dir_container", "", ""), {"no section .dir_container"}},
      {with(COMPONENT, ".dir_container", ".dir_container", "c"), {".dir_container: no \"/\" at the end"}},
      {with(COMPONENT, ".xml_spec.s.xml", "", ""), {"no section .xml_spec.NAME"}},
      {with(COMPONENT, ".xml_spec.s.xml", ".xml_spec.a/s.xml", ""),
       {"section .xml_spec.a/s.xml does not end with a file name", "no section .xml_spec.NAME"}},
      {with(COMPONENT, "", ".xml_spec.t.xml", ""), {"more than one section .xml_spec.NAME"}},
      {with(COMPONENT, "", "\x1b[2J", ""), {"section \\x1b[2J does not belong in a component package"}},
      {with(COMPONENT, "", "x\ny", ""), {"section x\\ny: a line break in the name"}},
      {with(COMPONENT, ".comp_header", ".comp_header", "f HDL\n"), {".comp_header: no line <END_OF_TABLE>"}},
      {with(COMPONENT, ".comp_header", ".comp_header", "f HDL\n\n<END_OF_TABLE>"),
       {".comp_header: line 2 is not 2 words"}},
      {with(COMPONENT, ".comp_header", ".comp_header", "f HDL\n<END_OF_TABLE>\n"),
       {".comp_header: line 2 is not 2 words"}},
      {with(COMPONENT, ".comp_header", ".comp_header", "f IP\n<END_OF_TABLE>"),
       {".comp_header: function f is of the kind IP, not HDL"}},
      {with(COMPONENT, ".comp_header", ".comp_header", many + "<END_OF_TABLE>"),
       {".comp_header: more than 16384 lines, the most that readers accept"}},
      {with(m_library, ".vex.comp.f", ".vex.comp.f", "none"), {".vex.comp.f: not a package: not an ELF file"}},
      {with(m_library, ".vex.comp.f", ".vex.comp.f", make_package(with(COMPONENT, ".dir_container", "", ""))),
       {".vex.comp.f: no section .dir_container"}},
      {with(m_library, table, table, "f HDL  .vex.comp.f\n<END_OF_TABLE>"), {".vex.comp_table: line 1 is not 3 words"}},
      {with(m_library, ".vex.info", ".vex.info", "1.0 lib"),
       {".vex.info: not the three words version, name and vendor"}},
      {with(m_library, ".vex.info", ".vex.info", "1.0 lib acme etc"),
       {".vex.info: not the three words version, name and vendor"}},
      {with(m_library, ".vex.info", "", ""), {"no section .vex.info"}},
      {with(m_library, ".vex.version", "", ""), {"no section .vex.version"}},
      {with(m_library, "", ".comp_header", ""), {"section .comp_header does not belong in a library"}},
  };
  for (const auto& [sections, expected] : cases) {
    SCOPED_TRACE(expected[0]);
    const std::string image = make_package(sections);
    Faults faults;
    static_cast<void>(read_package_image(image, faults));
    EXPECT_EQ(expected, faults);
  }
}

TEST_F(ComponentPackages, FaultsOfTheLayout) {
  const std::string image = make_package({{".comp_header", "<END_OF_TABLE>"}, {".x", "12345"}});
  std::uint32_t table = 0;
  std::memcpy(&table, &image[32], sizeof table);
  const auto field = [&](std::size_t section, std::size_t offset) { return table + 40 * section + offset; };
  const std::string of = " of " + std::to_string(image.size());
  const auto at_table = " section headers at byte " + std::to_string(table) + of;
  const std::string no_names = "damaged: no table of the section names";
  const struct {
    std::size_t offset;
    std::size_t width; // bytes
    std::uint32_t value;
    std::string expected;
  } cases[] = {
      {0, 1, 'E', "not a package: not an ELF file"},
      {4, 1, 2, "not a package: not a 32-bit little-endian ELF file"},
      {5, 1, 2, "not a package: not a 32-bit little-endian ELF file"},
      {32, 4, 0, "not a package: no sections"},
      {32, 4, 0xffffffff, "cut short: the section headers would begin at byte 4294967295" + of},
      {46, 2, 41, "damaged: section headers of 41 bytes"},
      {48, 2, 6, "cut short: 6" + at_table},
      {48, 2, 0, no_names},
      {50, 2, 0, no_names},
      {50, 2, 5, no_names},
      {50, 2, 3, no_names},
      {field(1, 16), 4, 0xffffff00,
       "cut short: the table of the section names is at bytes 4294967040 to 4294967068" + of},
      {field(1, 20), 4, 27, "damaged: the last section name is not terminated"},
      {field(3, 0), 4, 28, "damaged: the name of section number 3 is not in the table"},
      {field(3, 4), 4, 8, "damaged: section .comp_header has no bytes in the file"},
      {field(4, 20), 4, 0xffffffff, "cut short: section .x is at bytes 4480 to 4294971775" + of},
      {field(4, 0), 4, 12, "more than one section .comp_header"},
      {field(4, 16), 4, 51, "damaged: the ELF header and section .x overlap"},
      {field(4, 16), 4, table, "damaged: section .x and the section headers overlap"},
      {field(4, 16), 4, 128, "damaged: section .x and section .shstrtab overlap"},
      {field(4, 16), 4, 256, "damaged: section .x and section number 2 overlap"},
  };
  for (const auto& [offset, width, value, expected] : cases) {
    SCOPED_TRACE(expected);
    std::string damaged = image;
    std::memcpy(&damaged[offset], &value, width);
    Faults faults;
    EXPECT_EQ(nullptr, read_package_image(damaged, faults));
    EXPECT_EQ(Faults{expected}, faults);
  }
  Faults faults;
  EXPECT_EQ(nullptr, read_package_image(image.substr(0, 51), faults));
  EXPECT_EQ(nullptr, read_package_image(image.substr(0, image.size() - 1), faults));
  EXPECT_EQ((Faults{"cut short: the ELF header is not whole",
                    "cut short: 5" + at_table.substr(0, at_table.size() - 4) + std::to_string(image.size() - 1)}),
            faults);
}

TEST_F(ComponentPackages, NoDamageIsReadBeyondTheImage) {
  const std::string library = make_package(m_library);
  for (const Damage& damage : damages_of(library, DAMAGE_STEP * 7)) {
    const std::string damaged = damage.bytes.empty()
                                    ? library.substr(0, damage.offset)
                                    : std::string(library).replace(damage.offset, damage.bytes.size(), damage.bytes);
    Faults faults;
    const auto file = read_package_image(damaged, faults);
    EXPECT_TRUE(file != nullptr || !faults.empty()) << damage.name;
    for (std::size_t i = 0; file != nullptr && i < file->components.size(); ++i) {
      for (const PackagedFile& part : file->components[i].files) {
        EXPECT_NE(std::string::npos, damaged.find(part.bytes)) << damage.name;
      }
    }
  }
}

TEST_F(ComponentPackages, FilesThatCannotBeRead) {
  std::filesystem::create_directory("directory");
  write_file("empty", "");
  const std::pair<std::string, std::string> cases[] = {{"absent", "cannot open: No such file or directory"},
                                                       {"directory", "cannot open: not a regular file"},
                                                       {"/dev/zero", "cannot open: not a regular file"},
                                                       {"empty", "not a package: not an ELF file"}};
  for (const auto& [path, expected] : cases) {
    Faults faults;
    EXPECT_EQ(nullptr, read_package_file(path, faults));
    EXPECT_EQ(Faults{expected}, faults);
  }
}

TEST(Printable, Names) {
  const std::pair<std::string, std::string> cases[] = {
      {"a b\\", "a b\\"},
      {"gr\u00fc\u00df \u6f22 \U0001f600", "gr\u00fc\u00df \u6f22 \U0001f600"},
      {"\n\t\x1b[0m\x7f", "\\n\\x09\\x1b[0m\\x7f"},
      {"\u0085\u202ea\ufeff", "\\xc2\\x85\\xe2\\x80\\xaea\\xef\\xbb\\xbf"},
      {"\xc3", "\\xc3"},
      {"\xc0\xaf\xed\xa0\x80\xf4\x90\x80\x80\xff", "\\xc0\\xaf\\xed\\xa0\\x80\\xf4\\x90\\x80\\x80\\xff"}};
  for (const auto& [text, expected] : cases) {
    EXPECT_EQ(expected, printable(text));
  }
}
