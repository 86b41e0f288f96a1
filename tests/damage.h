// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <string>
#include <vector>

// The ways in which one good file of the container's kind is damaged.

#ifdef __SANITIZE_ADDRESS__
constexpr std::size_t DAMAGE_STEP = 16; // a case takes long there, and the fuzzers run many
#else
constexpr std::size_t DAMAGE_STEP = 1;
#endif

struct Damage {
  std::string name;
  std::size_t offset;
  std::string bytes; // that are there instead; none cuts the file
};

// Every cut, and single bytes and header fields that change; only each step-th place of the cuts
// and bytes.
inline std::vector<Damage> damages_of(const std::string& file, std::size_t step = DAMAGE_STEP) {
  std::vector<Damage> damages;
  for (std::size_t i = 0; i < file.size(); i += step) {
    const std::string at = " at " + std::to_string(i);
    damages.push_back({"cut" + at, i, ""});
    damages.push_back({"0x00" + at, i, std::string(1, '\0')});
    damages.push_back({"0xff" + at, i, "\xff"});
    damages.push_back({"flipped" + at, i, std::string(1, static_cast<char>(file[i] ^ (1 << i % 8)))});
  }
  const auto word = [](std::size_t value, std::size_t width) {
    std::string bytes(sizeof value, '\0');
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes.substr(0, width);
  };
  const auto field = [&](const std::string& name, std::size_t offset, std::size_t width) {
    for (const std::size_t value : std::initializer_list<std::size_t>{0, 1, 2, 3, 8, 0x800, 0xfff0, 0xffff, 0x7fffffff,
                                                                      0x80000000, 0xffffffff, file.size()}) {
      damages.push_back({name + " " + std::to_string(value), offset, word(value, width)});
    }
  };
  field("table offset", 32, 4);
  field("entry size", 46, 2);
  field("header count", 48, 2);
  field("string-table index", 50, 2);
  std::uint32_t table = 0;
  std::memcpy(&table, &file[32], sizeof table);
  for (std::size_t header = table; header < file.size(); header += 40) {
    const std::string section = " of section " + std::to_string((header - table) / 40);
    const char* const names[] = {"name offset", "type", "flags", "address",   "offset",
                                 "size",        "link", "info",  "alignment", "entry size"};
    for (std::size_t i = 0; i < std::size(names); ++i) {
      field(names[i] + section, header + 4 * i, 4);
    }
    damages.push_back({"no space" + section, header + 4, word(8, 16) + word(0xfffffff0, 4)});
  }
  return damages;
}
