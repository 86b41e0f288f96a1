// SPDX-License-Identifier: BSD-3-Clause
#include "BaseXmlLoader.h"

#include "unique_fd.h"
#include "vex_assert.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <sstream>
#include <string_view>

#include <sys/stat.h>

namespace vex::xml {

namespace {

// The parser replaces entities and keeps white space.
std::unique_ptr<tinyxml2::XMLDocument> make_document() {
  return std::make_unique<tinyxml2::XMLDocument>(true, tinyxml2::PRESERVE_WHITESPACE);
}

// The XML library compares each attribute of an element with all before it, which takes minutes for
// a few MB of them.
constexpr unsigned MAX_ATTRIBUTES = 1000;

// Whether the tag at *pos has no more than that. Moves *pos behind the tag, or behind the first "="
// too many.
bool has_few_attributes(std::string_view text, std::size_t* pos) {
  unsigned count = 0;
  char quote = '\0';
  while (*pos < text.size() && count <= MAX_ATTRIBUTES) {
    const char c = text[(*pos)++];
    if (quote != '\0') {
      quote = c == quote ? '\0' : quote;
    } else if (std::string_view("\"'").find(c) != std::string_view::npos) {
      quote = c;
    } else if (c == '>') {
      break;
    } else {
      count += c == '=' ? 1 : 0;
    }
  }
  return count <= MAX_ATTRIBUTES;
}

// How much of a text to parse: all of it (npos), or up to a place within a tag with too many
// attributes, where the parser will find an error.
std::size_t find_length_to_parse(std::string_view text) {
  constexpr std::string_view others[][2] = {
      {"<!--", "-->"}, {"<![CDATA[", "]]>"}, {"<!", ">"}, {"<?", "?>"}};
  for (std::size_t pos = text.find('<'); pos != std::string_view::npos; pos = text.find('<', pos)) {
    const auto* other = std::find_if(std::begin(others), std::end(others), [&](const auto& marks) {
      return text.substr(pos).starts_with(marks[0]);
    });
    if (other != std::end(others)) {
      pos = text.find((*other)[1], pos + (*other)[0].size());
    } else if (!has_few_attributes(text, &pos)) {
      return pos;
    }
  }
  return std::string_view::npos;
}

// A regular file's bytes; none when it cannot be read.
std::string read_regular_file(const char* filename) {
  const unique_fd fd = unique_fd::open_for_reading(filename);
  struct stat status = {};
  if (!fd || fstat(fd.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return "";
  }
  std::string text(static_cast<std::size_t>(status.st_size), '\0');
  text.resize(read_all_into(fd.get(), text.data(), text.size()));
  return text;
}

// Stores a conversion's result. True when nothing follows the number.
template <typename Value, typename Convert>
bool convert_digits(const char* str, Value* value, int base, Convert convert) {
  if (*str < '0' || *str > '9') {
    return false;
  }
  char* end = const_cast<char*>(str); // unchanged when the base is invalid
  *value = static_cast<Value>(convert(str, &end, base));
  return *end == '\0';
}

template <typename Number, typename Convert>
std::istream& read_number(std::istream& stream, Number& number, Convert convert) {
  std::string word;
  stream >> word;
  if (!convert(word.c_str(), &number.value, 0)) {
    stream.setstate(std::ios::failbit);
  }
  return stream;
}

} // namespace

tinyxml2::XMLDocument* BaseXmlLoader::parse_file(const char* filename) {
  VEX_ASSERT_TEXT(filename != nullptr, "filename != __null");
  m_source_name = filename;
  reset_errors();
  auto doc = make_document();
  const std::string text = read_regular_file(filename);
  const std::size_t length = find_length_to_parse(text);
  const tinyxml2::XMLError error =
      length == std::string::npos ? doc->LoadFile(filename) : doc->Parse(text.data(), length);
  if (error != tinyxml2::XML_SUCCESS || doc->Error()) {
    std::printf("ERROR FOUND: %s\n", doc->ErrorName());
    set_last_error(doc.get());
    return nullptr;
  }
  return doc.release();
}

tinyxml2::XMLDocument* BaseXmlLoader::parse_xml(const char* xml) {
  VEX_ASSERT_TEXT(xml != nullptr, "xml != __null");
  m_source_name = "[mem]";
  reset_errors();
  auto doc = make_document();
  doc->Parse(xml, find_length_to_parse(xml));
  if (doc->Error()) {
    set_last_error(doc.get());
    return nullptr;
  }
  return doc.release();
}

void BaseXmlLoader::reset_errors() {
  m_errors.clear();
  m_warnings.clear();
}

const std::string& BaseXmlLoader::get_error(unsigned index) const {
  VEX_ASSERT(index < m_errors.size());
  return m_errors[index];
}

const std::string& BaseXmlLoader::get_warning(unsigned index) const {
  VEX_ASSERT(index < m_warnings.size());
  return m_warnings[index];
}

void BaseXmlLoader::set_last_error(tinyxml2::XMLDocument* doc) {
  VEX_ASSERT_TEXT(doc != nullptr, "doc != __null");
  std::ostringstream text;
  text << "XML error: " << doc->ErrorName();
  // The library keeps one detail string, with the line and the error.
  const char* detail = doc->ErrorStr();
  if (detail != nullptr && *detail != '\0') {
    text << ", " << detail;
  }
  text << "\n";
  report_error(text.str());
}

std::string BaseXmlLoader::doc_to_string(tinyxml2::XMLDocument* doc) {
  VEX_ASSERT_TEXT(doc != nullptr, "doc != __null");
  PrettyPrinter printer;
  doc->Accept(&printer);
  return printer.CStr();
}

void BaseXmlLoader::report_error(const std::string& msg) {
  m_errors.push_back(msg);
}

void BaseXmlLoader::report_warning(const std::string& msg) {
  m_warnings.push_back(msg);
}

const char* BaseXmlLoader::get_source_name() const {
  return m_source_name;
}

void BaseXmlLoader::debug(const std::string& msg) {
  std::fputs(msg.c_str(), stderr);
}

PrettyPrinter::PrettyPrinter(FILE*, bool, int) : tinyxml2::XMLPrinter(nullptr, false, 0) {}

void PrettyPrinter::PrintSpace(int depth) {
  for (int level = 0; level < depth; ++level) {
    Write("  ");
  }
}

bool convert_to_unsigned(const char* str, unsigned int* value, int base) {
  return convert_digits(str, value, base, std::strtoul);
}

bool convert_to_unsigned64(const char* str, unsigned long long* value, int base) {
  return convert_digits(str, value, base, std::strtoull);
}

std::istream& operator>>(std::istream& stream, unsigned_hex& number) {
  return read_number(stream, number, convert_to_unsigned);
}

std::istream& operator>>(std::istream& stream, unsigned64_hex& number) {
  return read_number(stream, number, convert_to_unsigned64);
}

} // namespace vex::xml
