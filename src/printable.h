// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// The length in bytes of the UTF-8 character at the beginning of the text, which must not be empty.
// 0 for an invalid sequence (cut, overlong, surrogate) and for a character that moves the cursor,
// changes the direction of the text or is invisible.
std::size_t printable_character_length(std::string_view text);

// Makes a name from an untrusted file safe to print on a terminal: a line break becomes "\n", and
// each byte for which printable_character_length is 0 becomes "\xNN". Other text is unchanged,
// backslashes included.
std::string printable(std::string_view text);

// The number and the noun: "1 byte", "2 bytes".
std::string format_count(std::size_t count, const char* noun);

// What printf prints, as a string.
[[gnu::format(printf, 1, 2)]] std::string format_text(const char* format, ...);
