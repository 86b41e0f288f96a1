// SPDX-License-Identifier: BSD-3-Clause
#include "tree.h"

#include "printable.h"

#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <string_view>

#include <langinfo.h>
#include <unistd.h>

namespace bfcl::package {

namespace {

// What a line begins with, four characters for each level above it.
struct Branches {
  const char* child;
  const char* last_child;
  const char* below_child;
};
constexpr Branches UTF8_BRANCHES = {"├── ", "└── ", "│   "};
constexpr Branches ASCII_BRANCHES = {"|-- ", "`-- ", "|   "};
constexpr const char* BELOW_LAST_CHILD = "    ";
constexpr std::size_t BRANCH_WIDTH = 4;
constexpr std::size_t HANGING_INDENT = 2;
constexpr std::size_t MIN_TEXT_WIDTH = 20;

// The columns of a terminal that the character takes; 1 if the locale does not know it.
std::size_t count_columns(std::string_view character) {
  wchar_t code = 0;
  std::mbstate_t state = {};
  const std::size_t length = std::mbrtowc(&code, character.data(), character.size(), &state);
  const int columns = length == character.size() ? wcwidth(code) : -1;
  return columns >= 0 ? static_cast<std::size_t>(columns) : 1;
}

// The bytes of the longest beginning of the text that takes at most `width` columns.
std::size_t find_fitting_length(std::string_view text, std::size_t width) {
  std::size_t length = 0;
  for (std::size_t columns = 0; length < text.size();) {
    const std::string_view rest = text.substr(length);
    const std::string_view character =
        rest.substr(0, std::max<std::size_t>(printable_character_length(rest), 1));
    columns += count_columns(character);
    if (columns > width) {
      break;
    }
    length += character.size();
  }
  return length;
}

// Removes a line from the text, with the blank at which it was cut, and returns the line.
std::string_view take_line(std::string_view& text, std::size_t width) {
  std::size_t length = find_fitting_length(text, width);
  std::size_t next = length;
  if (length < text.size()) {
    const std::size_t blank = text.rfind(' ', length);
    if (blank != std::string_view::npos && blank > 0) {
      length = blank;
      next = blank + 1;
    }
  }
  const std::string_view line = text.substr(0, length);
  text.remove_prefix(next);
  return line;
}

class TreePrinter {
public:
  explicit TreePrinter(const TreeStyle& style)
      : m_style(style), m_branches(style.utf8 ? UTF8_BRANCHES : ASCII_BRANCHES) {}

  void print(const TreeNode& node, std::size_t level, const std::string& first,
             const std::string& below) {
    print_text(node, level, first, below);
    for (const TreeNode& child : node.children) {
      const bool last = &child == &node.children.back();
      print(child, level + 1, below + (last ? m_branches.last_child : m_branches.child),
            below + (last ? BELOW_LAST_CHILD : m_branches.below_child));
    }
  }

  [[nodiscard]] std::string take_result() { return std::move(m_result); }

private:
  void print_text(const TreeNode& node, std::size_t level, const std::string& first,
                  const std::string& below) {
    const std::size_t used = level * BRANCH_WIDTH;
    const std::size_t width =
        m_style.width > used + MIN_TEXT_WIDTH ? m_style.width - used : MIN_TEXT_WIDTH;
    std::string_view rest = node.text;
    print_line(node, first, take_line(rest, width));
    const std::string hanging = below + std::string(HANGING_INDENT, ' ');
    while (!rest.empty()) {
      print_line(node, hanging, take_line(rest, width - HANGING_INDENT));
    }
  }

  void print_line(const TreeNode& node, const std::string& before, std::string_view text) {
    const bool bold = m_style.colour && node.is_heading;
    m_result.append(before).append(bold ? "\x1b[1m" : "").append(text);
    m_result.append(bold ? "\x1b[0m\n" : "\n");
  }

  TreeStyle m_style;
  Branches m_branches;
  std::string m_result;
};

} // namespace

TreeNode& TreeNode::add(std::string child, bool heading) {
  children.push_back({std::move(child), heading, {}});
  return children.back();
}

TreeStyle find_style_of_stdout() {
  const auto is_set = [](const char* value) { return value != nullptr && *value != '\0'; };
  const char* terminal = std::getenv("TERM");
  const bool plain =
      is_set(std::getenv("NO_COLOR")) || !is_set(terminal) || std::strcmp(terminal, "dumb") == 0;
  TreeStyle style;
  std::setlocale(LC_CTYPE, "");
  style.utf8 = std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0;
  std::setlocale(LC_CTYPE, "C.UTF-8"); // names are UTF-8 in every locale
  style.colour = !plain && isatty(STDOUT_FILENO) == 1;
  return style;
}

std::string print_tree(const TreeNode& root, const TreeStyle& style) {
  TreePrinter printer(style);
  printer.print(root, 0, "", "");
  return printer.take_result();
}

} // namespace bfcl::package
