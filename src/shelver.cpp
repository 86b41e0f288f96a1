// SPDX-License-Identifier: BSD-3-Clause
#include "shelver.h"

#include "vex_assert.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace {

// A section as a NUL-terminated string, or null.
std::unique_ptr<char[]> read_text_section(vex_pkg_file* pkg, const char* name) {
  std::size_t size = 0;
  if (vex_pkg_section_exists(pkg, name, &size) == 0) {
    return nullptr;
  }
  std::unique_ptr<char[]> text(new (std::nothrow) char[size + 1]);
  if (text == nullptr || vex_pkg_read_section(pkg, name, text.get(), size + 1) == 0) {
    return nullptr;
  }
  return text;
}

// Duplicates the next word of a line, or returns null when there is none.
char* duplicate_word(char* line, char** save) {
  const char* word = shelver_strtok_r(line, " ", save);
  return word != nullptr ? strdup(word) : nullptr;
}

bool parse_entry(char* line, shelver_comp_table_entry* entry) {
  char* save = nullptr;
  *entry = {};
  entry->function_name = duplicate_word(line, &save);
  entry->kind = duplicate_word(nullptr, &save);
  entry->section_name = duplicate_word(nullptr, &save);
  if (entry->section_name != nullptr && entry->kind != nullptr && entry->function_name != nullptr) {
    return true;
  }
  shelver_free_comp_table_entry(entry);
  return false;
}

} // namespace

char* shelver_strtok_r(char* str, const char* delimiters, char** save) {
  char* token = str != nullptr ? str : *save;
  token += std::strspn(token, delimiters);
  char* end = token + std::strcspn(token, delimiters);
  *save = *end != '\0' ? end + 1 : end;
  if (end == token) {
    return nullptr;
  }
  *end = '\0';
  return token;
}

int shelver_read_info_section(vex_pkg_file* lib_pkg, shelver_info_section* info_out) {
  VEX_ASSERT_TEXT(lib_pkg != nullptr, "lib_pkg != ((void *)0)");
  VEX_ASSERT_TEXT(info_out != nullptr, "info_out != ((void *)0)");
  *info_out = {};
  const std::unique_ptr<char[]> text = read_text_section(lib_pkg, INFO_SECTION_NAME);
  if (text == nullptr) {
    return 0;
  }
  char* save = nullptr;
  info_out->version = duplicate_word(text.get(), &save);
  info_out->name = duplicate_word(nullptr, &save);
  info_out->vendor = duplicate_word(nullptr, &save);
  if (info_out->vendor != nullptr && info_out->name != nullptr && info_out->version != nullptr) {
    return 1;
  }
  shelver_free_info_section(info_out);
  return 0;
}

int shelver_read_component_table(vex_pkg_file* lib_pkg, shelver_comp_table_entry* comp_table_out,
                                 unsigned* num_entries) {
  VEX_ASSERT_TEXT(lib_pkg != nullptr, "lib_pkg != ((void *)0)");
  VEX_ASSERT_TEXT(comp_table_out != nullptr, "comp_table_out != ((void *)0)");
  VEX_ASSERT_TEXT(num_entries != nullptr, "num_entries != ((void *)0)");
  const std::unique_ptr<char[]> text = read_text_section(lib_pkg, COMP_TABLE_SECTION_NAME);
  if (text == nullptr) {
    return 0;
  }
  unsigned count = 0;
  bool ok = true;
  char* save = nullptr;
  for (char* line = shelver_strtok_r(text.get(), "\n", &save);
       ok && line != nullptr && std::strcmp(line, END_OF_TABLE) != 0;
       line = shelver_strtok_r(nullptr, "\n", &save)) {
    ok = count < SHELVER_MAX_COMP_TABLE_ENTRIES && parse_entry(line, &comp_table_out[count]);
    count += ok ? 1 : 0;
  }
  if (!ok) {
    while (count > 0) {
      shelver_free_comp_table_entry(&comp_table_out[--count]);
    }
    return 0;
  }
  *num_entries = count;
  return 1;
}

void shelver_free_info_section(shelver_info_section* info) {
  if (info != nullptr) {
    std::free(info->version);
    std::free(info->name);
    std::free(info->vendor);
    *info = {};
  }
}

void shelver_free_comp_table_entry(shelver_comp_table_entry* entry) {
  if (entry != nullptr) {
    std::free(entry->function_name);
    std::free(entry->kind);
    std::free(entry->section_name);
    *entry = {};
  }
}
