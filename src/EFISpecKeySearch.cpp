// SPDX-License-Identifier: BSD-3-Clause
#include "EFISpecKeySearch.h"

#include <algorithm>

namespace vex::efi::xml {

namespace {

// The lengths of keys that the tables are for: a prefix, and what an 8-bit shift can pass.
constexpr std::size_t MIN_LENGTH = 4;
constexpr std::size_t MAX_LENGTH = UINT8_MAX;

// Below this size, and for one key, making the tables takes longer than they save.
constexpr std::size_t SMALL_BLOCK = 8192;

} // namespace

KeySearch::KeySearch(const std::vector<std::string>& keys, std::vector<bool>& found)
    : m_keys(keys), m_found(found) {
  for (std::size_t i = 0; i < keys.size(); ++i) {
    if (found[i]) {
      continue;
    }
    ++m_missing;
    // Lines hold no line end, so that a key with one is in none.
    if (keys[i].find('\n') == std::string::npos) {
      const bool usual = keys[i].size() >= MIN_LENGTH && keys[i].size() <= MAX_LENGTH;
      (usual ? m_others : m_odd).push_back(i);
      m_overlap = std::max(m_overlap, keys[i].size());
    }
  }
  m_overlap -= m_overlap > 0 ? 1 : 0;
}

// Enters the keys that are still missing.
void KeySearch::build_tables() {
  std::erase_if(m_others, [this](std::size_t key) { return m_found[key]; });
  m_entered = m_others.size();
  m_length = MAX_LENGTH;
  for (const std::size_t key : m_others) {
    m_length = std::min(m_length, m_keys[key].size());
  }
  m_shift.assign(PAIR_COUNT, static_cast<std::uint8_t>(m_length - 1));
  m_prefixes.reset();
  m_lengths.clear();
  m_by_text.clear();
  for (const std::size_t key : m_others) {
    enter_key(key);
  }
  std::sort(m_lengths.begin(), m_lengths.end());
  m_lengths.erase(std::unique(m_lengths.begin(), m_lengths.end()), m_lengths.end());
}

void KeySearch::enter_key(std::size_t key) {
  const std::string& text = m_keys[key];
  for (std::size_t end = 1; end < m_length; ++end) {
    std::uint8_t& shift = m_shift[pair_at(text.data() + end - 1)];
    shift = std::min(shift, static_cast<std::uint8_t>(m_length - 1 - end));
  }
  m_prefixes.set(prefix_at(text.data()));
  m_lengths.push_back(text.size());
  m_by_text.emplace(text, key);
}

void KeySearch::search(const char* block, std::size_t size) {
  search_one_by_one(m_odd, block, size);
  if (size < SMALL_BLOCK || m_others.size() == 1) {
    search_one_by_one(m_others, block, size);
  } else {
    search_together(block, size);
  }
}

// An empty key is in any line.
void KeySearch::search_one_by_one(const Keys& keys, const char* block, std::size_t size) {
  for (const std::size_t i : keys) {
    if (!m_found[i] && memmem(block, size, m_keys[i].data(), m_keys[i].size()) != nullptr) {
      mark_found(i);
    }
  }
}

void KeySearch::search_together(const char* block, std::size_t size) {
  // Keys that were found make the tables slower than they need be.
  if (m_shift.empty() || m_missing <= m_entered / 2) {
    build_tables();
  }
  if (m_others.empty()) {
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
std::size_t KeySearch::step(const char* block, std::size_t size, std::size_t end) {
  const std::size_t shift = m_shift[pair_at(block + end - 1)];
  if (shift != 0) {
    return end + shift;
  }
  const std::size_t start = end + 1 - m_length;
  if (m_prefixes[prefix_at(block + start)]) {
    match_at(block + start, size - start);
  }
  return end + 1;
}

void KeySearch::match_at(const char* place, std::size_t size) {
  for (const std::size_t length : m_lengths) {
    if (length > size) {
      return;
    }
    const auto [begin, end] = m_by_text.equal_range(std::string_view(place, length));
    std::for_each(begin, end, [this](const auto& entry) { mark_found(entry.second); });
  }
}

void KeySearch::mark_found(std::size_t key) {
  m_missing -= m_found[key] ? 0 : 1;
  m_found[key] = true;
}

} // namespace vex::efi::xml
