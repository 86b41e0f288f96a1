// SPDX-License-Identifier: BSD-3-Clause
#include "EFISpecKeySearch.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace vex::efi::xml {

namespace {

constexpr std::size_t PAIR = 2;

// Below this size, making the tables takes longer than they save.
constexpr std::size_t SMALL_BLOCK = 8192;

// Lines hold no line end, so that a key with one is in none.
bool can_occur(const std::string& key) {
  return key.find('\n') == std::string::npos;
}

} // namespace

KeySearch::KeySearch(const std::vector<std::string>& keys, std::vector<bool>& found)
    : m_keys(keys), m_found(found), m_next(keys.size(), NONE) {
  for (std::size_t i = 0; i < keys.size(); ++i) {
    m_missing += found[i] ? 0 : 1;
    m_overlap = std::max(m_overlap, keys[i].size());
  }
  m_overlap -= m_overlap > 0 ? 1 : 0;
}

// Enters the keys that are still missing.
void KeySearch::build_tables() {
  m_length = UINT8_MAX;
  std::vector<std::uint32_t> entered;
  for (std::size_t i = 0; i < m_keys.size(); ++i) {
    if (!m_found[i] && m_keys[i].size() >= PAIR && can_occur(m_keys[i])) {
      entered.push_back(static_cast<std::uint32_t>(i));
      m_length = std::min(m_length, m_keys[i].size());
    }
  }
  m_entered = entered.size();
  m_stale = false;
  m_shift.assign(PAIR_COUNT, static_cast<std::uint8_t>(m_length - 1));
  m_first.assign(CHAIN_COUNT, NONE);
  for (const std::uint32_t key : entered) {
    enter_key(key);
  }
}

void KeySearch::enter_key(std::uint32_t key) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(m_keys[key].data());
  for (std::size_t end = 1; end < m_length; ++end) {
    std::uint8_t& shift = m_shift[number_of(bytes + end - 1)];
    shift = std::min(shift, static_cast<std::uint8_t>(m_length - 1 - end));
  }
  std::uint32_t& first = m_first[number_of(bytes + m_length - PAIR) % CHAIN_COUNT];
  m_next[key] = std::exchange(first, key);
}

void KeySearch::search(const char* block, std::size_t size) {
  const bool small = size < SMALL_BLOCK;
  search_one_by_one(block, size, small ? SIZE_MAX : PAIR - 1);
  if (!small) {
    search_together(reinterpret_cast<const unsigned char*>(block), size);
  }
}

// For the keys up to a length. An empty one is in any line.
void KeySearch::search_one_by_one(const char* block, std::size_t size, std::size_t longest) {
  for (std::size_t i = 0; i < m_keys.size(); ++i) {
    const std::string& key = m_keys[i];
    if (!m_found[i] && key.size() <= longest && can_occur(key) &&
        memmem(block, size, key.data(), key.size()) != nullptr) {
      mark_found(i);
    }
  }
}

// For the keys of a pair of bytes and more.
void KeySearch::search_together(const unsigned char* block, std::size_t size) {
  if (m_stale) {
    build_tables();
  }
  if (m_entered == 0) {
    return;
  }
  // Both halves at once: a step waits for what it loads, and two wait no longer than one.
  std::size_t low = m_length - 1;
  std::size_t high = std::max(size / 2, low);
  const std::size_t middle = high;
  while (low < middle && high < size) {
    low = step(block, size, low);
    high = step(block, size, high);
  }
  while (low < middle) {
    low = step(block, size, low);
  }
  while (high < size) {
    high = step(block, size, high);
  }
}

// Looks at the pair that ends at `end` and returns the next place where one can.
std::size_t KeySearch::step(const unsigned char* block, std::size_t size, std::size_t end) {
  const std::size_t pair = number_of(block + end - 1);
  const std::size_t shift = m_shift[pair];
  if (shift != 0) {
    return end + shift;
  }
  const std::size_t start = end + 1 - m_length;
  match_at(pair, block + start, size - start);
  return end + 1;
}

void KeySearch::match_at(std::size_t pair, const unsigned char* place, std::size_t size) {
  for (std::uint32_t i = m_first[pair % CHAIN_COUNT]; i != NONE; i = m_next[i]) {
    const std::string& key = m_keys[i];
    if (!m_found[i] && key.size() <= size && std::memcmp(place, key.data(), key.size()) == 0) {
      mark_found(i);
    }
  }
}

void KeySearch::mark_found(std::size_t key) {
  m_found[key] = true;
  m_stale = true;
  --m_missing;
}

} // namespace vex::efi::xml
