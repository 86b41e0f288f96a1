// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <istream>
#include <string>
#include <vector>

#include <tinyxml2.h>

namespace vex::xml {

// Receives the reports of validating visitors.
class VisitorCallbacks {
public:
  virtual ~VisitorCallbacks() = default;
  // One complete, formatted text a call.
  virtual void report_error(const std::string& msg) = 0;
  virtual void report_warning(const std::string& msg) = 0;
  // The name under which the input is known in messages; owned by the callee.
  virtual const char* get_source_name() const = 0;
  // One trace line, with its newline.
  virtual void debug(const std::string& msg) = 0;
};

// Parses a file or a text and collects what is reported about it. A loader for one kind of document
// derives from this class, parses, and runs its visitors over the document with itself as their
// callbacks.
class BaseXmlLoader : public VisitorCallbacks {
public:
  // Both return a document that the caller owns, or null with one text in the error list, also for
  // an element with more than 1,000 attributes. Each call first clears the texts of the call
  // before. The file name is not copied. parse_file also prints a line about a failure on standard
  // output.
  [[nodiscard]] tinyxml2::XMLDocument* parse_file(const char* filename);
  [[nodiscard]] tinyxml2::XMLDocument* parse_xml(const char* xml);

  void reset_errors();

  // The text at an index, which must be less than the length of the list.
  const std::string& get_error(unsigned index) const;
  const std::string& get_warning(unsigned index) const;

  // Reports the parse error of a document.
  void set_last_error(tinyxml2::XMLDocument* doc);

  // The document as text, indented by two spaces a level.
  static std::string doc_to_string(tinyxml2::XMLDocument* doc);

  void report_error(const std::string& msg) override;
  void report_warning(const std::string& msg) override;
  const char* get_source_name() const override;
  void debug(const std::string& msg) override; // to standard error

private:
  const char* m_source_name = nullptr; // not owned

public:
  // In the order of the reports.
  std::vector<std::string> m_errors;
  std::vector<std::string> m_warnings;
};

// Prints a document into memory, indented by two spaces a level. The arguments, those of every XML
// printer, make no difference.
class PrettyPrinter : public tinyxml2::XMLPrinter {
public:
  explicit PrettyPrinter(FILE* file = nullptr, bool compact = false, int depth = 0);
  void PrintSpace(int depth) override;
};

// Whether the whole text is one unsigned number in the base (0: by its prefix). If the text does
// not begin with a digit, *value is unchanged; if other characters follow the number, it is stored
// all the same. The conversion is that of unsigned long (long long): a number beyond its
// range becomes its largest value, and the 32-bit form keeps the low bits of the result. Neither is
// an error.
bool convert_to_unsigned(const char* str, unsigned int* value, int base);
bool convert_to_unsigned64(const char* str, unsigned long long* value, int base);

// Targets for reading numbers from a stream with either prefix: one word, "0x…" hexadecimal, "0…"
// octal, else decimal. A word that is not a number sets the fail bit.
struct unsigned_hex {
  unsigned int value = 0;
};
struct unsigned64_hex {
  unsigned long long value = 0;
};
std::istream& operator>>(std::istream& stream, unsigned_hex& number);
std::istream& operator>>(std::istream& stream, unsigned64_hex& number);

} // namespace vex::xml
