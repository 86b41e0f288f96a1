// SPDX-License-Identifier: BSD-3-Clause
#include "port_stub.h"

#include "rtl_text.h"

#include <algorithm>
#include <cctype>
#include <set>
#include <string_view>
#include <utility>

namespace bfcl::component {

namespace {

const std::set<std::string> KEPT_STATEMENTS = {"localparam", "parameter", "input",  "output",
                                               "inout",      "import",    "typedef"};
const std::set<std::string> KEPT_DIRECTIVES = {"define", "undef", "ifdef", "ifndef",
                                               "elsif",  "else",  "endif", "include"};
const std::set<std::string> DEEPER = {"begin", "fork", "case", "casez", "casex", "task"};
const std::set<std::string> HIGHER = {"end", "join", "endcase", "endtask"};

bool is_word(char character) {
  return std::isalnum(static_cast<unsigned char>(character)) != 0 || character == '_' ||
         character == '$';
}

// Walks over the code of a Verilog body, which has no comments, and blanks out the text.
class BodyBlanker {
public:
  BodyBlanker(std::string& text, const std::string& code, std::size_t from)
      : m_text(text), m_code(code), m_at(from) {}

  void run() {
    skip_blanks();
    while (m_at < m_code.size()) {
      const char character = m_code[m_at];
      if (character == '`') {
        directive();
      } else if (is_word(character)) {
        if (!word()) {
          return;
        }
      } else {
        m_parentheses += character == '(' ? 1 : character == ')' ? -1 : 0;
        m_is_start = character == ';' && m_parentheses <= 0;
        m_parentheses = m_is_start ? 0 : m_parentheses;
        blank(m_at + 1);
      }
      skip_blanks();
    }
  }

private:
  // Comments and the contents of strings are blanks in the code.
  void skip_blanks() {
    while (m_at < m_code.size() && std::isspace(static_cast<unsigned char>(m_code[m_at])) != 0) {
      blank(m_at + 1);
    }
  }

  void blank(std::size_t to) {
    for (; m_at < to; ++m_at) {
      m_text[m_at] = m_text[m_at] == '\n' ? '\n' : ' ';
    }
  }

  [[nodiscard]] std::size_t word_end(std::size_t at) const {
    while (at < m_code.size() && is_word(m_code[at])) {
      ++at;
    }
    return at;
  }

  // Those that define and choose text stay, to the ends of their lines.
  void directive() {
    const std::size_t end = word_end(m_at + 1);
    const std::string name = m_code.substr(m_at + 1, end - m_at - 1);
    if (!KEPT_DIRECTIVES.contains(name)) {
      blank(std::max(end, m_at + 1));
      return;
    }
    m_at = std::min(m_code.find('\n', end), m_code.size());
    while (m_at < m_code.size() && m_code[m_at - 1] == '\\') {
      m_at = std::min(m_code.find('\n', m_at + 1), m_code.size());
    }
  }

  // False at the end of the module.
  bool word() {
    const std::size_t end = word_end(m_at);
    const std::string word = m_code.substr(m_at, end - m_at);
    const bool is_top = m_is_start && m_depth == 0;
    if (word == "endmodule") {
      return false;
    }
    if (is_top && (word == "generate" || word == "endgenerate")) {
      blank(end);
    } else if (is_top && KEPT_STATEMENTS.contains(word)) {
      keep_statement();
    } else if (is_top && word == "function") {
      const std::size_t last = m_code.find("endfunction", m_at);
      m_at = last == std::string::npos ? m_code.size() : word_end(last);
    } else {
      m_depth = std::max(0, m_depth + (DEEPER.contains(word) ? 1 : HIGHER.contains(word) ? -1 : 0));
      m_is_start = HIGHER.contains(word);
      blank(end);
    }
    return true;
  }

  // A structure has semicolons between its braces.
  void keep_statement() {
    for (int braces = 0; m_at < m_code.size() && (m_code[m_at] != ';' || braces > 0); ++m_at) {
      braces += m_code[m_at] == '{' ? 1 : m_code[m_at] == '}' ? -1 : 0;
    }
    m_at = std::min(m_at + 1, m_code.size());
  }

  std::string& m_text;
  const std::string& m_code;
  std::size_t m_at;
  bool m_is_start = true; // of a statement
  int m_parentheses = 0;
  int m_depth = 0; // of blocks
};

// Where the text after a module's ports begins: behind the semicolon that is neither in parentheses
// nor the end of an import in front of them. npos when there is no such module.
std::size_t body_of(const std::string& code, const std::string& module) {
  std::size_t at = std::string::npos;
  for (const RtlUnit& unit : units_in(code, FileKind::verilog)) {
    at = at == std::string::npos && unit.name == module ? unit.name_end : at;
  }
  int parentheses = 0;
  bool is_import = false;
  for (; at < code.size(); ++at) {
    parentheses += code[at] == '(' ? 1 : code[at] == ')' ? -1 : 0;
    is_import = is_import || (parentheses == 0 && code.compare(at, 7, "import ") == 0);
    if (code[at] == ';' && parentheses <= 0 && !std::exchange(is_import, false)) {
      return at + 1;
    }
  }
  return std::string::npos;
}

std::string verilog_without_body(std::string text, const std::string& module) {
  const std::string code = blank_comments(text, FileKind::verilog);
  const std::size_t body = body_of(code, module);
  if (body == std::string::npos) {
    return "";
  }
  BodyBlanker(text, code, body).run();
  return text;
}

// The words of VHDL with which a design unit, or the clauses in front of one, can begin.
bool begins_unit(const std::string& code, std::size_t at) {
  constexpr std::string_view WORDS[] = {"library ",       "entity ",  "architecture ", "package ",
                                        "configuration ", "context ", "use "};
  return std::any_of(std::begin(WORDS), std::end(WORDS), [&](std::string_view word) {
    return code.compare(at, word.size(), word) == 0;
  });
}

// Behind the last "end …;" of the architecture that a place is in.
std::size_t end_of_architecture(const std::string& code, std::size_t at) {
  std::size_t end = code.size();
  bool is_ended = false; // the statement before was "end …;"
  for (std::size_t next = code.find(';', at); next != std::string::npos;
       next = code.find(';', next + 1)) {
    const std::size_t start = std::min(code.find_first_not_of(" \t\r\n", at), next);
    is_ended = code.compare(start, 3, "end") == 0;
    at = next + 1;
    const std::size_t following = code.find_first_not_of(" \t\r\n", at);
    if (following == std::string::npos || (is_ended && begins_unit(code, following))) {
      end = at;
      break;
    }
  }
  return end;
}

// The place behind "architecture NAME of ENTITY is", which begins at `at`, or npos.
std::size_t body_of_architecture(const std::string& code, std::size_t at,
                                 const std::string& entity) {
  constexpr std::size_t MAX_HEAD = 1000;
  const std::string_view head = std::string_view(code).substr(at, MAX_HEAD);
  const std::size_t of = head.find(" of ");
  const std::size_t name = head.find_first_not_of(" \t\r\n", std::min(of, head.size() - 1) + 4);
  if (of == std::string_view::npos || name == std::string_view::npos ||
      head.compare(name, entity.size(), entity) != 0) {
    return std::string::npos;
  }
  const std::size_t is = head.find("is", name + entity.size());
  const bool is_whole = name + entity.size() < head.size() && !is_word(head[name + entity.size()]);
  return is_whole && is != std::string_view::npos ? at + is + 2 : std::string::npos;
}

std::string vhdl_without_body(const std::string& text, const std::string& entity) {
  const std::string code = lower_case(blank_comments(text, FileKind::vhdl));
  const std::string word = "architecture ";
  std::string result;
  std::size_t done = 0;
  for (std::size_t at = code.find(word); at != std::string::npos; at = code.find(word, at + 1)) {
    const std::size_t from = body_of_architecture(code, at, entity);
    if (from != std::string::npos) {
      const std::size_t to = end_of_architecture(code, from);
      const auto lines = std::count(code.data() + from, code.data() + to, '\n');
      result += text.substr(done, from - done) + " begin end;";
      result.append(static_cast<std::size_t>(lines), '\n');
      done = at = to;
    }
  }
  return done == 0 ? "" : result + text.substr(done);
}

} // namespace

std::string without_body(const std::string& text, const std::string& unit, FileKind kind) {
  return kind == FileKind::vhdl ? vhdl_without_body(text, unit) : verilog_without_body(text, unit);
}

} // namespace bfcl::component
