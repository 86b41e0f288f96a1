// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <string>
#include <vector>

namespace bfcl::package {

// A line of a tree and what is below it.
struct TreeNode {
  std::string text; // printable, in UTF-8
  bool is_heading = false;
  std::vector<TreeNode> children;

  TreeNode& add(std::string child, bool heading = false);
};

struct TreeStyle {
  bool utf8 = false;   // lines of box characters instead of "|--"
  bool colour = false; // headings in bold
  std::size_t width = 80;
};

// The style for standard output: colour on a terminal unless NO_COLOR is set, box characters in a
// UTF-8 locale. Sets LC_CTYPE to C.UTF-8, for print_tree.
TreeStyle find_style_of_stdout();

// The tree as lines of at most `width` columns of a terminal, where the locale of LC_CTYPE gives
// the columns of a character. A longer text continues in the next line, at a blank if there is one.
std::string print_tree(const TreeNode& root, const TreeStyle& style);

} // namespace bfcl::package
