// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace vex::efi::xml {

// Finds which of a list of keys occur in the lines of a text, in one pass for all keys.
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
  static constexpr std::size_t PAIR_COUNT = 65536;
  static constexpr std::size_t CHAIN_COUNT = 4096; // fewer than pairs, as it is looked at less
  static constexpr std::uint32_t NONE = UINT32_MAX;

  static std::size_t number_of(const unsigned char* pair) {
    std::uint16_t number = 0;
    std::memcpy(&number, pair, sizeof number);
    return number;
  }

  void build_tables();
  void enter_key(std::uint32_t key);
  void search_one_by_one(const char* block, std::size_t size, std::size_t longest);
  void search_together(const unsigned char* block, std::size_t size);
  std::size_t step(const unsigned char* block, std::size_t size, std::size_t end);
  void match_at(std::size_t pair, const unsigned char* place, std::size_t size);
  void mark_found(std::size_t key);

  const std::vector<std::string>& m_keys;
  std::vector<bool>& m_found;
  std::size_t m_missing = 0;
  std::size_t m_overlap = 0;

  // Keys of two bytes and more are entered by their first m_length bytes, the shortest one's
  // length. m_shift says how far no key can end after a pair; where it is 0, the keys that end so
  // begin at m_first and go on through m_next.
  std::size_t m_length = 0;
  std::size_t m_entered = 0;
  bool m_stale = true; // the tables do not stand for the keys that are missing now
  std::vector<std::uint8_t> m_shift;
  std::vector<std::uint32_t> m_first;
  std::vector<std::uint32_t> m_next;
};

} // namespace vex::efi::xml
