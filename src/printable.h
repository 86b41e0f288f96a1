// SPDX-License-Identifier: BSD-3-Clause
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// The length in bytes of the UTF-8 character that the text, which must not be empty, begins with.
// 0 for a byte that begins none (a cut, overlong or surrogate sequence) and for a character that
// moves the cursor, changes the direction of the text or has no width of its own.
std::size_t printable_character_length(std::string_view text);

// A name from a file that anybody may have written, as it may go to a terminal: each byte of what
// printable_character_length refuses is written as "\xNN", a line break as "\n". Other text stays
// as it is, backslashes included.
std::string printable(std::string_view text);

// The number and the noun: "1 byte", "2 bytes".
std::string format_count(std::size_t count, const char* noun);

// What printf prints, as a string.
[[gnu::format(printf, 1, 2)]] std::string format_text(const char* format, ...);
