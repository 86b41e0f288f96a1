// SPDX-License-Identifier: BSD-3-Clause
#include "package_layout.h"

#include "pkg.h"
#include "printable.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <set>
#include <tuple>
#include <utility>

#include <elf.h>

namespace vex::efi {

namespace {

static_assert(std::endian::native == std::endian::little); // as the fields of a package

// The bytes of one section or table in the file.
struct Extent {
  std::uint64_t begin;
  std::uint64_t end;
  std::size_t section; // its index, or one of the two below
};
constexpr std::size_t ELF_HEADER = SIZE_MAX;
constexpr std::size_t HEADER_TABLE = SIZE_MAX - 1;

class LayoutCheck {
public:
  LayoutCheck(std::string_view image, std::vector<std::string>& faults)
      : m_image(image), m_faults(faults) {}

  bool run() {
    if (!check_header() || !find_section_table() || !find_name_table()) {
      return false;
    }
    const std::size_t old_faults = m_faults.size();
    for (std::size_t i = 1; i < m_count; ++i) {
      check_section(i);
    }
    check_names();
    check_overlaps();
    return m_faults.size() == old_faults;
  }

private:
  bool fail(std::string text) {
    m_faults.push_back(std::move(text));
    return false;
  }

  // A record at a place that has been checked.
  template <typename Record>
  Record read(std::uint64_t offset) const {
    Record record;
    std::memcpy(&record, m_image.data() + offset, sizeof record);
    return record;
  }

  Elf32_Shdr section(std::size_t index) const {
    return read<Elf32_Shdr>(m_table + index * sizeof(Elf32_Shdr));
  }

  static bool has_bytes(const Elf32_Shdr& header) {
    return header.sh_type != SHT_NULL && header.sh_type != SHT_NOBITS && header.sh_size > 0;
  }

  bool check_header() {
    if (!m_image.starts_with(std::string_view(ELFMAG, SELFMAG))) {
      return fail("not a package: not an ELF file");
    }
    if (m_image.size() < sizeof(Elf32_Ehdr)) {
      return fail("cut short: the ELF header is not whole");
    }
    m_header = read<Elf32_Ehdr>(0);
    if (m_header.e_ident[EI_CLASS] != ELFCLASS32 || m_header.e_ident[EI_DATA] != ELFDATA2LSB) {
      return fail("not a package: not a 32-bit little-endian ELF file");
    }
    return true;
  }

  // If the field of the ELF header is too small for the count, it is in the first section header.
  bool find_section_table() {
    m_table = m_header.e_shoff;
    const std::uint64_t room = m_image.size() - std::min<std::uint64_t>(m_table, m_image.size());
    if (m_table == 0) {
      return fail("not a package: no sections");
    }
    if (room < sizeof(Elf32_Shdr)) {
      return fail(format_text("cut short: the section headers would begin at byte %zu of %zu",
                              m_table, m_image.size()));
    }
    if (m_header.e_shentsize != sizeof(Elf32_Shdr)) {
      return fail(format_text("damaged: section headers of %s",
                              format_count(m_header.e_shentsize, "byte").c_str()));
    }
    m_count = m_header.e_shnum != 0 ? m_header.e_shnum : section(0).sh_size;
    if (m_count > room / sizeof(Elf32_Shdr)) {
      return fail(format_text("cut short: %s at byte %zu of %zu",
                              format_count(m_count, "section header").c_str(), m_table,
                              m_image.size()));
    }
    return true;
  }

  bool find_name_table() {
    const std::size_t index =
        m_header.e_shstrndx != SHN_XINDEX ? m_header.e_shstrndx : section(0).sh_link;
    if (index == 0 || index >= m_count || section(index).sh_type != SHT_STRTAB) {
      return fail("damaged: no table of the section names");
    }
    const Elf32_Shdr header = section(index);
    if (header.sh_offset > m_image.size() || header.sh_size > m_image.size() - header.sh_offset) {
      return fail(
          format_text("cut short: the table of the section names is at bytes %zu to %zu of %zu",
                      std::size_t{header.sh_offset}, std::size_t{header.sh_offset} + header.sh_size,
                      m_image.size()));
    }
    m_names = m_image.substr(header.sh_offset, header.sh_size);
    return m_names.ends_with('\0') || fail("damaged: the last section name is not terminated");
  }

  // Cut one character after the longest name that is allowed.
  std::string_view name(std::size_t index) const {
    const std::string_view rest =
        m_names.substr(std::min<std::size_t>(section(index).sh_name, m_names.size()));
    return rest.substr(0,
                       std::min(strnlen(rest.data(), rest.size()), VEX_PKG_MAX_SECTION_NAME + 1));
  }

  void check_section(std::size_t index) {
    const Elf32_Shdr header = section(index);
    const std::uint64_t end = std::uint64_t{header.sh_offset} + header.sh_size;
    if (header.sh_name >= m_names.size()) {
      fail(format_text("damaged: the name of section number %zu is not in the table", index));
    } else if (header.sh_type == SHT_NOBITS) {
      fail(format_text("damaged: %s has no bytes in the file", describe(index).c_str()));
    } else if (has_bytes(header) && end > m_image.size()) {
      fail(format_text("cut short: %s is at bytes %zu to %zu of %zu", describe(index).c_str(),
                       std::size_t{header.sh_offset}, std::size_t{end}, m_image.size()));
    } else if (has_bytes(header)) {
      m_extents.push_back({header.sh_offset, end, index});
    }
  }

  // Some tools let a name share the end of another one. Only the sum of the lengths is limited.
  void check_names() {
    std::set<std::string_view> seen;
    std::size_t total = 0;
    for (std::size_t i = 1; i < m_count && total <= m_image.size(); ++i) {
      const std::string_view text = name(i);
      total += text.size();
      if (text.size() > VEX_PKG_MAX_SECTION_NAME) {
        fail(format_text("section number %zu: a name of more than %zu characters", i,
                         VEX_PKG_MAX_SECTION_NAME));
      } else if (text.find('\n') != std::string_view::npos) {
        fail(format_text("section %s: a line break in the name", printable(text).c_str()));
      } else if (!text.empty() && !seen.insert(text).second) {
        fail(format_text("more than one section %s", printable(text).c_str()));
      }
    }
    if (total > m_image.size()) {
      fail("damaged: the section names overlap");
    }
  }

  void check_overlaps() {
    m_extents.push_back({0, sizeof(Elf32_Ehdr), ELF_HEADER});
    m_extents.push_back({m_table, m_table + m_count * sizeof(Elf32_Shdr), HEADER_TABLE});
    std::sort(m_extents.begin(), m_extents.end(), [](const Extent& left, const Extent& right) {
      return std::tie(left.begin, left.end) < std::tie(right.begin, right.end);
    });
    const Extent* last = &m_extents.front();
    for (std::size_t i = 1; i < m_extents.size(); ++i) {
      const Extent& next = m_extents[i];
      if (next.begin < last->end) {
        fail(format_text("damaged: %s and %s overlap", describe(last->section).c_str(),
                         describe(next.section).c_str()));
      }
      last = next.end > last->end ? &next : last;
    }
  }

  std::string describe(std::size_t index) const {
    if (index == ELF_HEADER || index == HEADER_TABLE) {
      return index == ELF_HEADER ? "the ELF header" : "the section headers";
    }
    const std::string_view text = name(index);
    return text.empty() ? format_text("section number %zu", index) : "section " + printable(text);
  }

  std::string_view m_image;
  std::vector<std::string>& m_faults;
  Elf32_Ehdr m_header = {};
  std::uint64_t m_table = 0; // offset of the section headers
  std::size_t m_count = 0;   // of section headers
  std::string_view m_names;
  std::vector<Extent> m_extents;
};

} // namespace

bool check_package_layout(std::string_view image, std::vector<std::string>& faults) {
  return LayoutCheck(image, faults).run();
}

} // namespace vex::efi
