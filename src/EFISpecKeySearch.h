// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vex::efi::xml {

// Finds which of a list of keys occur in the lines of a text. One automaton contains all keys (Aho
// and Corasick, "Efficient string matching", 1975): the time is linear in the text and in the keys,
// whatever they contain.
class KeySearch {
public:
  // Marks what it finds in `found`, one flag for each key; both must outlive the search.
  KeySearch(const std::vector<std::string>& keys, std::vector<bool>& found);

  // Searches the next block of the text. Each call visits all states: a block should have at least
  // state_count() bytes.
  void search(const char* block, std::size_t size);
  std::size_t state_count() const { return m_nodes.size(); }

  // Whether every key has been found.
  bool is_complete() const { return m_missing == 0; }

private:
  // A state is the index of its cells in m_cells, with two flags:
  //   row     reached, fallback, the next state for each class of bytes
  //   CHAIN   reached, fallback, a class, the next state for that class
  // The text of its fallback is the longest other prefix of a key that ends its own text. A chain
  // leaves all other classes to its fallback. END means that a key ends the state's text.
  using State = std::uint32_t;
  static constexpr State ROOT = 0;
  static constexpr State CHAIN = State{1} << 31U;
  static constexpr State END = State{1} << 30U;

  // A state with the keys that begin with its text and are longer.
  struct Node {
    State state;
    std::uint32_t begin, end; // in m_order
    std::uint32_t depth;      // the length of the text
  };

  const std::string& key(std::size_t place) const { return m_keys[m_order[place]]; }
  State& class_of(char byte) { return m_class[static_cast<unsigned char>(byte)]; }
  State& cell(State state, std::size_t index) { return m_cells[(state & (END - 1)) + index]; }

  State add_state(std::size_t begin, std::size_t end, std::size_t depth, State fallback);
  void add_children(Node parent);
  State next(State state, State byte_class);
  State leave_flagged(State state, State byte_class);
  void collect();

  const std::vector<std::string>& m_keys;
  std::vector<bool>& m_found;
  std::size_t m_missing = 0;
  std::size_t m_longest = 0;
  std::vector<std::uint32_t> m_order; // the keys to look for, sorted by their text
  std::vector<State> m_ends;          // the state of each
  std::array<State, 256> m_class;     // of each byte: its cell in a row
  std::size_t m_row_size;
  std::vector<State> m_cells;
  std::vector<Node> m_nodes; // by depth
  State m_state = ROOT;      // after the last block
};

} // namespace vex::efi::xml
