// SPDX-License-Identifier: BSD-3-Clause
#include "EFISpecKeySearch.h"

#include "vex_assert.h"

#include <algorithm>

namespace vex::efi::xml {

namespace {

// Cells of a state.
constexpr std::size_t REACHED = 0; // only of states with a flag
constexpr std::size_t FALLBACK = 1;
constexpr std::size_t CHAIN_CLASS = 2;
constexpr std::size_t CHAIN_NEXT = 3;
constexpr std::size_t CHAIN_SIZE = 4;

// The class of the bytes that no key contains.
constexpr std::uint32_t OTHER = 2;

// Rows are faster and chains are smaller. The states up to this size are rows: texts reach mostly
// the first ones. After them, only a state with several children is one.
constexpr std::size_t MIN_ROW_CELLS = std::size_t{1} << 18;

// Each step waits for memory, so several parts of a block are searched in turns. Six parts take
// 0.4 ns for a byte, two take 1 ns.
constexpr std::size_t CURSORS = 6;

} // namespace

// A line contains no line end, so a key with one is never found.
KeySearch::KeySearch(const std::vector<std::string>& keys, std::vector<bool>& found)
    : m_keys(keys), m_found(found), m_row_size(OTHER + 1) {
  m_class.fill(OTHER);
  for (std::size_t i = 0; i < keys.size(); ++i) {
    m_missing += found[i] ? 0 : 1;
    if (found[i] || keys[i].find('\n') != std::string::npos) {
      continue;
    }
    m_order.push_back(static_cast<std::uint32_t>(i));
    m_longest = std::max(m_longest, keys[i].size());
    for (const char byte : keys[i]) {
      class_of(byte) = class_of(byte) != OTHER ? class_of(byte) : static_cast<State>(m_row_size++);
    }
  }
  std::sort(m_order.begin(), m_order.end(),
            [&keys](std::size_t a, std::size_t b) { return keys[a] < keys[b]; });
  m_ends.resize(m_order.size());
  add_state(0, m_order.size(), 0, ROOT);
  for (std::size_t i = 0; i < m_nodes.size(); ++i) {
    add_children(m_nodes[i]);
  }
}

// The state's text is the first `depth` bytes of the keys from `begin` to `end`.
KeySearch::State KeySearch::add_state(std::size_t begin, std::size_t end, std::size_t depth,
                                      State fallback) {
  const auto state = static_cast<State>(m_cells.size());
  std::size_t longer = begin;
  for (; longer < end && key(longer).size() == depth; ++longer) {
    m_ends[longer] = state;
  }
  const bool branches = longer < end && key(longer)[depth] != key(end - 1)[depth];
  const bool is_row = branches || m_cells.size() < MIN_ROW_CELLS;
  const bool is_end = depth > 0 && (longer > begin || (fallback & END) != 0);
  m_cells.resize(m_cells.size() + (is_row ? m_row_size : CHAIN_SIZE));
  VEX_ASSERT(m_cells.size() < END);
  cell(state, FALLBACK) = fallback;
  const State flags = (is_row ? 0 : CHAIN) | (is_end ? END : 0);
  m_nodes.push_back({state | flags, static_cast<std::uint32_t>(longer),
                     static_cast<std::uint32_t>(end), static_cast<std::uint32_t>(depth)});
  return state | flags;
}

// The keys are sorted: those with the same byte after the parent's text follow each other.
void KeySearch::add_children(Node parent) {
  const bool is_row = (parent.state & CHAIN) == 0;
  const State fallback = cell(parent.state, FALLBACK);
  for (State byte_class = OTHER; is_row && byte_class < m_row_size; ++byte_class) {
    cell(parent.state, byte_class) = next(fallback, byte_class);
  }
  for (std::size_t begin = parent.begin, end = begin; begin < parent.end; begin = end) {
    const char byte = key(begin)[parent.depth];
    while (end < parent.end && key(end)[parent.depth] == byte) {
      ++end;
    }
    const State byte_class = class_of(byte);
    const State child = add_state(begin, end, parent.depth + 1, next(fallback, byte_class));
    if (!is_row) {
      cell(parent.state, CHAIN_CLASS) = byte_class;
    }
    cell(parent.state, is_row ? byte_class : CHAIN_NEXT) = child;
  }
}

KeySearch::State KeySearch::next(State state, State byte_class) {
  while ((state & CHAIN) != 0) {
    if (cell(state, CHAIN_CLASS) == byte_class) {
      return cell(state, CHAIN_NEXT);
    }
    state = cell(state, FALLBACK);
  }
  return cell(state, byte_class);
}

KeySearch::State KeySearch::leave_flagged(State state, State byte_class) {
  cell(state, REACHED) = 1;
  return next(state, byte_class);
}

void KeySearch::search(const char* block, std::size_t size) {
  const State* const cells = m_cells.data();
  const auto step = [this, cells](State& state, char byte) {
    const State byte_class = class_of(byte);
    state = state < END ? cells[state + byte_class] : leave_flagged(state, byte_class);
  };
  const std::size_t part = size / CURSORS;
  std::size_t done = 0;
  if (part >= m_longest) {
    std::array<State, CURSORS> states = {m_state};
    for (; done < part; ++done) {
#pragma GCC unroll 8
      for (std::size_t i = 0; i < CURSORS; ++i) {
        step(states[i], block[i * part + done]);
      }
    }
    // Each but the last continues in the next part, for a key across the border.
    for (std::size_t i = 1; i < CURSORS; ++i) {
      for (std::size_t k = 0; k < m_longest; ++k) {
        step(states[i - 1], block[i * part + k]);
      }
    }
    m_state = states.back();
    done = CURSORS * part;
  }
  for (; done < size; ++done) {
    step(m_state, block[done]);
  }
  collect();
}

// A text that ends with a state's text ends with that of its fallback, too.
void KeySearch::collect() {
  cell(m_state, REACHED) = 1;
  for (auto node = m_nodes.rbegin(); node != m_nodes.rend(); ++node) {
    cell(cell(node->state, FALLBACK), REACHED) |= cell(node->state, REACHED);
  }
  for (std::size_t i = 0; i < m_order.size(); ++i) {
    if (cell(m_ends[i], REACHED) != 0 && !m_found[m_order[i]]) {
      m_found[m_order[i]] = true;
      --m_missing;
    }
  }
}

} // namespace vex::efi::xml
