// SPDX-License-Identifier: BSD-3-Clause
#include "rtl_text.h"

#include "description.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <numeric>
#include <set>

namespace bfcl::component {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t MAX_NEIGHBOURS = 1000; // files that are searched, for folders full of others

bool is_word(char character) {
  return std::isalnum(static_cast<unsigned char>(character)) != 0 || character == '_' ||
         character == '$';
}

void blank(std::string& text, std::size_t from, std::size_t to) {
  for (std::size_t at = from; at < std::min(to, text.size()); ++at) {
    if (text[at] != '\n') {
      text[at] = ' ';
    }
  }
}

// The end of a string that begins at a quotation mark: its closing mark, or the line's end.
std::size_t string_end(const std::string& text, std::size_t at, FileKind kind) {
  for (++at; at < text.size() && text[at] != '"' && text[at] != '\n'; ++at) {
    if (text[at] == '\\' && kind == FileKind::verilog) {
      ++at;
    }
  }
  return at;
}

struct Word {
  std::string text;
  unsigned line = 0;
  std::size_t end = 0;
};

// Cuts a text into words; an escaped identifier is one without its backslash.
class Words {
public:
  explicit Words(const std::string& text) : m_text(text) {}

  bool next(Word& word) {
    while (m_at < m_text.size() && !is_word(m_text[m_at]) && m_text[m_at] != '\\') {
      m_line += m_text[m_at++] == '\n' ? 1U : 0U;
    }
    const bool is_escaped = m_at < m_text.size() && m_text[m_at] == '\\';
    const std::size_t from = is_escaped ? ++m_at : m_at;
    while (m_at < m_text.size() &&
           (is_escaped ? std::isspace(static_cast<unsigned char>(m_text[m_at])) == 0
                       : is_word(m_text[m_at]))) {
      ++m_at;
    }
    word = {m_text.substr(from, m_at - from), m_line, m_at};
    return m_at < m_text.size() || !word.text.empty();
  }

private:
  const std::string& m_text;
  std::size_t m_at = 0;
  unsigned m_line = 1;
};

const std::set<std::string> VERILOG_UNITS = {"module",  "macromodule", "interface",
                                             "package", "program",     "primitive"};
const std::set<std::string> VHDL_UNITS = {"entity", "package", "context"};
const std::set<std::string> NO_NAMES = {"automatic", "static", "class", "body", "is", "work"};

} // namespace

FileKind file_kind(const std::string& path) {
  constexpr std::array<std::pair<const char*, FileKind>, 8> KINDS = {{{".v", FileKind::verilog},
                                                                      {".sv", FileKind::verilog},
                                                                      {".vhd", FileKind::vhdl},
                                                                      {".vhdl", FileKind::vhdl},
                                                                      {".svh", FileKind::include},
                                                                      {".vh", FileKind::include},
                                                                      {".hex", FileKind::data},
                                                                      {".mif", FileKind::data}}};
  const std::string extension = lower_case(fs::path(path).extension().string());
  const auto* found = std::find_if(KINDS.begin(), KINDS.end(),
                                   [&](const auto& kind) { return extension == kind.first; });
  return found != KINDS.end() ? found->second : FileKind::other;
}

std::string lower_case(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char byte) { return static_cast<char>(std::tolower(byte)); });
  return text;
}

std::string read_text(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::size_t begin_of_line(const std::string& text, unsigned line) {
  std::size_t at = 0;
  for (; line > 1 && at < text.size(); --line) {
    at = std::min(text.find('\n', at), text.size() - 1) + 1;
  }
  return at;
}

std::string blank_comments(std::string text, FileKind kind) {
  const std::string_view line_comment = kind == FileKind::vhdl ? "--" : "//";
  for (std::size_t at = 0; at < text.size(); ++at) {
    std::size_t end = 0;
    if (text.compare(at, 2, line_comment) == 0) {
      end = std::min(text.find('\n', at), text.size());
    } else if (text.compare(at, 2, "/*") == 0) {
      const std::size_t close = text.find("*/", at + 2);
      end = close == std::string::npos ? text.size() : close + 2;
    } else if (text[at] == '"') {
      end = string_end(text, at, kind);
      blank(text, at + 1, end);
      at = end;
      continue;
    } else {
      continue;
    }
    blank(text, at, end);
    at = end - 1;
  }
  return text;
}

std::vector<RtlUnit> units_in(const std::string& text, FileKind kind) {
  const bool is_vhdl = kind == FileKind::vhdl;
  const std::string code = blank_comments(text, kind);
  const std::set<std::string>& keywords = is_vhdl ? VHDL_UNITS : VERILOG_UNITS;
  std::vector<RtlUnit> units;
  Words words(code);
  std::string keyword; // whose name comes next
  std::string last;
  for (Word word; words.next(word);) {
    const std::string name = is_vhdl ? lower_case(word.text) : word.text;
    if (keywords.contains(name) && last != "end" && last != "virtual") {
      keyword = name;
    } else if (!keyword.empty() && !NO_NAMES.contains(name)) {
      units.push_back({name, keyword, word.line, word.end});
      keyword.clear();
    } else if (name == "body" || name == "class" || name == "work") {
      keyword.clear(); // no definition of a unit
    }
    last = name;
  }
  return units;
}

std::vector<std::string> macros_in(const std::string& text) {
  std::vector<std::string> macros;
  const std::string directive = "`define";
  for (std::size_t at = text.find(directive); at != std::string::npos;
       at = text.find(directive, at + 1)) {
    const std::size_t from = text.find_first_not_of(" \t", at + directive.size());
    std::size_t end = from;
    while (end < text.size() && is_word(text[end])) {
      ++end;
    }
    if (from != std::string::npos && end > from) {
      macros.push_back(text.substr(from, end - from));
    }
  }
  return macros;
}

bool has_word(const std::string& text, const std::string& word) {
  for (std::size_t at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) {
    const std::size_t end = at + word.size();
    if ((at == 0 || !is_word(text[at - 1])) && (end == text.size() || !is_word(text[end]))) {
      return true;
    }
  }
  return false;
}

namespace {

// Edits of one character, exchanges of neighbours among them, from one word to the other.
std::size_t distance(const std::string& left, const std::string& right) {
  std::vector<std::size_t> before_last;
  std::vector<std::size_t> last(right.size() + 1);
  std::iota(last.begin(), last.end(), 0U);
  for (std::size_t row = 1; row <= left.size(); ++row) {
    std::vector<std::size_t> current(right.size() + 1, row);
    for (std::size_t column = 1; column <= right.size(); ++column) {
      const std::size_t change = left[row - 1] == right[column - 1] ? 0 : 1;
      current[column] =
          std::min({last[column] + 1, current[column - 1] + 1, last[column - 1] + change});
      if (row > 1 && column > 1 && left[row - 1] == right[column - 2] &&
          left[row - 2] == right[column - 1]) {
        current[column] = std::min(current[column], before_last[column - 2] + 1);
      }
    }
    before_last = std::exchange(last, std::move(current));
  }
  return last.back();
}

} // namespace

unsigned line_of_unit(const std::string& text, const std::string& unit, FileKind kind) {
  for (const RtlUnit& found : units_in(text, kind)) {
    if (found.name == unit) {
      return found.line;
    }
  }
  return 0;
}

unsigned line_in_entity(const std::string& text, const std::string& entity,
                        const std::string& name) {
  unsigned from = 0;
  for (const RtlUnit& unit : units_in(text, FileKind::vhdl)) {
    if (from == 0 && unit.name == entity && unit.keyword == "entity") {
      from = unit.line;
    }
  }
  std::istringstream lines(from != 0 ? lower_case(blank_comments(text, FileKind::vhdl)) : "");
  unsigned number = 0;
  for (std::string line; std::getline(lines, line);) {
    if (++number >= from && (name.empty() || has_word(line, name))) {
      return number;
    }
  }
  return 0;
}

// The names with a colon behind them in the entity's text up to its ports.
std::vector<std::string> generics_of(const std::string& text, const std::string& entity) {
  std::vector<std::string> names;
  const std::string code = lower_case(blank_comments(text, FileKind::vhdl));
  const std::size_t start = code.find("entity " + entity);
  const std::size_t ports = start == std::string::npos ? start : code.find("port", start);
  for (std::size_t colon = code.find(':', start); colon < ports;
       colon = code.find(':', colon + 1)) {
    const std::size_t end = code.find_last_not_of(" \t\r\n", colon - 1) + 1;
    const std::size_t from = code.find_last_of(" \t\r\n(;,", end - 1) + 1;
    names.push_back(code.substr(from, end - from));
  }
  return names;
}

std::string nearest_name(const std::string& name, const std::vector<std::string>& candidates) {
  std::string nearest;
  std::size_t least = std::max<std::size_t>(1, name.size() / 3) + 1;
  for (const std::string& candidate : candidates) {
    const bool is_near = candidate.size() < 256 && name.size() < 256;
    const std::size_t edits = is_near ? distance(lower_case(name), lower_case(candidate)) : least;
    if (edits < least) {
      least = edits;
      nearest = candidate;
    }
  }
  return nearest;
}

std::string suggestion(const std::string& name, const std::vector<std::string>& candidates) {
  const std::string nearest = nearest_name(name, candidates);
  return nearest.empty() ? "" : "; did you mean '" + nearest + "'?";
}

namespace {

constexpr int MAX_DEPTH = 3; // of folders below the description's

// Files of the folder, and of those below it down to `depth`, in an order that does not depend on
// the file system.
void list_sources(const fs::path& folder, int depth, std::set<std::string>& files) {
  std::error_code error;
  for (fs::directory_iterator entry(folder.empty() ? "." : folder, error), end;
       !error && entry != end && files.size() < MAX_NEIGHBOURS; entry.increment(error)) {
    const fs::path path = folder / entry->path().filename();
    const FileKind kind = file_kind(path.string());
    std::error_code ignored;
    if (depth > 0 && entry->is_directory(ignored) && !entry->is_symlink(ignored)) {
      list_sources(path, depth - 1, files);
    } else if ((kind == FileKind::verilog || kind == FileKind::vhdl) &&
               entry->is_regular_file(ignored)) {
      files.insert(path.string());
    }
  }
}

} // namespace

std::string neighbour_with(const std::string& unit, const ElaborationRequest& request) {
  std::set<std::string> files;
  std::set<std::string> listed;
  std::error_code error;
  for (const std::string& file : request.files) {
    list_sources(fs::path(file).parent_path(), 0, files);
    listed.insert(fs::weakly_canonical(file, error).string());
  }
  if (!request.top_place.file.empty()) {
    list_sources(fs::path(request.top_place.file).parent_path(), MAX_DEPTH, files);
  }
  for (const std::string& file : files) {
    if (listed.contains(fs::weakly_canonical(file, error).string())) {
      continue;
    }
    for (const RtlUnit& found : units_in(read_text(file), file_kind(file))) {
      if (found.name == unit) {
        return file;
      }
    }
  }
  return "";
}

std::string file_element(const std::string& file, const ElaborationRequest& request) {
  std::error_code error;
  const fs::path folder = fs::absolute(request.top_place.file, error).parent_path();
  const fs::path name = fs::proximate(file, folder, error);
  return "<FILE name=\"" + (error ? file : name.string()) + "\"/>";
}

std::string where_to_find(const std::string& unit, const ElaborationRequest& request,
                          const std::vector<std::string>& listed_units, Report& report) {
  const std::string neighbour = neighbour_with(unit, request);
  if (neighbour.empty()) {
    return suggestion(unit, listed_units);
  }
  report.note_unlisted({neighbour, unit});
  return "; " + tidy_path(neighbour) + " has it: add " + file_element(neighbour, request);
}

bool is_misspelled(const std::string& file, const ElaborationRequest& request) {
  std::error_code error;
  return std::any_of(request.files.begin(), request.files.end(), [&](const std::string& listed) {
    return !fs::is_regular_file(listed, error) &&
           !nearest_name(fs::path(listed).filename(), {fs::path(file).filename()}).empty();
  });
}

bool is_in_misspelled_file(const std::string& unit, const ElaborationRequest& request) {
  std::error_code error;
  const std::string neighbour = neighbour_with(unit, request);
  return (!neighbour.empty() && is_misspelled(neighbour, request)) ||
         std::any_of(request.files.begin(), request.files.end(), [&](const std::string& listed) {
           return !fs::is_regular_file(listed, error) && fs::path(listed).stem() == unit;
         });
}

void report_order(const ElaborationRequest& request, const std::vector<std::string>& order,
                  Report& report) {
  std::string list;
  for (const std::string& file : order) {
    list += (list.empty() ? "" : ", ") + file;
  }
  report.warning("file-order", request.files_place,
                 "the files do not elaborate in this order, but in: " + list);
}

} // namespace bfcl::component
