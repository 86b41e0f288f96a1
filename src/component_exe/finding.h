// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstdio>
#include <string>
#include <tuple>
#include <vector>

// What the commands report: findings about components, and problems of checking itself.

namespace bfcl::component {

// Where something is written. `file` is a path from the working directory, or PACKAGE(FILE) for a
// file inside a package; `line` counts from 1, 0 when only the file is known.
struct Place {
  std::string file;
  unsigned line = 0;

  bool operator==(const Place&) const = default;
  bool operator<(const Place& other) const {
    return std::tie(file, line) < std::tie(other.file, other.line);
  }
};

enum class Severity { error, warning };

struct Finding {
  Place place;
  Severity severity = Severity::error;
  std::string rule;         // an entry of RULES
  std::string text;         // one line, without a full stop at its end
  std::string details = {}; // whole lines for below it, such as a table; may be empty
  // Of a width that differs from the description's: the element there, and the bits here.
  Place element = {};
  unsigned bits = 0;

  bool operator==(const Finding&) const = default;
  bool operator<(const Finding& other) const {
    return std::tie(place, severity, rule, text, details) <
           std::tie(other.place, other.severity, other.rule, other.text, other.details);
  }
};

struct Rule {
  const char* id;
  const char* description; // one line, for SARIF
};

// Every rule of every command, in the order of the manual.
extern const std::vector<Rule> RULES;

// The exit statuses of every command: 0 when all was checked and nothing is wrong (warnings do not
// count), 1 when at least one finding is an error, 2 when something could not be checked.
inline constexpr int STATUS_OK = 0;
inline constexpr int STATUS_ERROR = 1;
inline constexpr int STATUS_NOT_CHECKED = 2;

// Collects the findings and problems of one run of a command. Not thread-safe: each thread has its
// own, and merge() joins them.
class Report {
public:
  Finding& error(const char* rule, Place place, std::string text, std::string details = {});
  void warning(const char* rule, Place place, std::string text);

  // Something that kept `subject` (a file as the user named it) from being checked: a tool that is
  // missing or failed, a file that cannot be read. Never a fault of the component.
  void cannot_check(const std::string& subject, std::string text);

  // A line about `subject` that is no finding, such as "popcount64: ok". Printed after the findings
  // of the text form; left out of SARIF.
  void note(const std::string& subject, std::string text);

  // Takes back the findings of a rule whose text begins so: another one says more about the fault.
  void withdraw(const std::string& rule, const std::string& text);

  // A file that a finding asks to list, and what is in it: a unit or the name of an include. It is
  // printed by nothing.
  struct UnlistedFile {
    std::string path;
    std::string content;
  };
  void note_unlisted(UnlistedFile file) { m_unlisted_files.push_back(std::move(file)); }
  [[nodiscard]] const std::vector<UnlistedFile>& unlisted_files() const { return m_unlisted_files; }

  // Where the RTL and the C model agree on a width, the description is wrong: one finding names
  // both.
  void join_widths();

  void merge(Report other);

  [[nodiscard]] bool has_errors() const;
  [[nodiscard]] const std::vector<Finding>& findings() const { return m_findings; }
  [[nodiscard]] int status() const;

  // Prints the findings, sorted by file, line and text, each once, as
  //   FILE:LINE: error: TEXT [RULE]
  // (without ":LINE" for line 0) with its details below it, then the notes, both to standard
  // output; and the problems to standard error, as "bfcl-component: SUBJECT: TEXT".
  void print();

  // Prints the same as one SARIF 2.1.0 document to standard output; problems become notifications
  // of an invocation that was not successful, and are printed to standard error too. `command` is
  // the word after "bfcl component".
  void print_sarif(const std::string& command);

private:
  struct Note {
    std::string subject;
    std::string text;
  };

  void sort();
  void print_problems() const;

  std::vector<Finding> m_findings;
  std::vector<Note> m_notes;
  std::vector<Note> m_problems;
  std::vector<UnlistedFile> m_unlisted_files;
};

} // namespace bfcl::component
