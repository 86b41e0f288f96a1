// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <bitset>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace vex::efi::xml {

// Finds which of a list of keys occur in the lines of a text, in one pass for all keys: components
// have hundreds of names, and sources hundreds of megabytes.
//
// The text comes in blocks; each begins with the last overlap() bytes of the one before, for keys
// that lie across. The search looks at two bytes at a time and skips ahead by what no key allows
// there (Wu and Manber, "A fast algorithm for multi-pattern searching", 1994).
class KeySearch {
public:
  // Marks what it finds in `found`, one flag for each key; both must outlive the search.
  KeySearch(const std::vector<std::string>& keys, std::vector<bool>& found);

  std::size_t overlap() const { return m_overlap; }

  // Searches a block that is not empty.
  void search(const char* block, std::size_t size);

  // Whether every key has been found.
  bool is_complete() const { return m_missing == 0; }

private:
  using Keys = std::vector<std::size_t>; // indices

  static constexpr std::size_t PAIR_COUNT = 65536;
  static constexpr std::size_t PREFIX_COUNT = 65536;

  static std::size_t pair_at(const char* place) {
    std::uint16_t pair = 0;
    std::memcpy(&pair, place, sizeof pair);
    return pair;
  }
  static std::size_t prefix_at(const char* place) {
    std::uint32_t prefix = 0;
    std::memcpy(&prefix, place, sizeof prefix);
    return prefix * 0x9E3779B1U >> 16U;
  }

  void build_tables();
  void enter_key(std::size_t key);
  void search_one_by_one(const Keys& keys, const char* block, std::size_t size);
  void search_together(const char* block, std::size_t size);
  std::size_t step(const char* block, std::size_t size, std::size_t end);
  void match_at(const char* place, std::size_t size);
  void mark_found(std::size_t key);

  const std::vector<std::string>& m_keys;
  std::vector<bool>& m_found;
  std::size_t m_missing = 0;
  std::size_t m_overlap = 0;

  Keys m_odd;    // too short or too long for the tables
  Keys m_others; // those of a usual length

  // The tables hold keys by their first m_length bytes, the shortest one's length. m_shift says how
  // far no key can end after a pair. Where it is 0 and the prefix is one of a key, the text of each
  // length that keys have is looked up.
  std::size_t m_entered = 0;
  std::size_t m_length = 0;
  std::vector<std::uint8_t> m_shift;
  std::bitset<PREFIX_COUNT> m_prefixes;
  std::vector<std::size_t> m_lengths;
  std::unordered_multimap<std::string_view, std::size_t> m_by_text;
};

} // namespace vex::efi::xml
