// SPDX-License-Identifier: BSD-3-Clause
#include "printable.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <iterator>

namespace {

struct CodeRange {
  unsigned first;
  unsigned last;
};

// Control characters (C0, C1), invisible characters, line separators, direction marks and
// overrides, surrogates.
constexpr CodeRange REFUSED[] = {{0x00, 0x1f},     {0x7f, 0x9f},     {0x200b, 0x200f},
                                 {0x2028, 0x202e}, {0x2060, 0x206f}, {0xd800, 0xdfff},
                                 {0xfeff, 0xfeff}, {0x110000, ~0U}};

// Sequence lengths by their first byte; `first` is the smallest code that needs so many bytes.
struct SequenceForm {
  unsigned mask;
  unsigned lead;
  unsigned first;
};
constexpr SequenceForm FORMS[] = {
    {0x80, 0x00, 0}, {0xe0, 0xc0, 0x80}, {0xf0, 0xe0, 0x800}, {0xf8, 0xf0, 0x10000}};

} // namespace

std::size_t printable_character_length(std::string_view text) {
  const auto byte = [&text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const auto* form = std::find_if(std::begin(FORMS), std::end(FORMS), [&](const SequenceForm& f) {
    return (byte(0) & f.mask) == f.lead;
  });
  const auto length = static_cast<std::size_t>(form - std::begin(FORMS)) + 1;
  if (form == std::end(FORMS) || text.size() < length) {
    return 0;
  }
  unsigned code = byte(0) & ~form->mask;
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xc0U) != 0x80) {
      return 0;
    }
    code = code << 6U | (byte(i) & 0x3fU);
  }
  const bool refused =
      code < form->first || std::any_of(std::begin(REFUSED), std::end(REFUSED), [code](auto range) {
        return code >= range.first && code <= range.last;
      });
  return refused ? 0 : length;
}

std::string printable(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    std::size_t length = printable_character_length(text);
    if (length > 0) {
      result += text.substr(0, length);
    } else if (text[0] == '\n') {
      result += "\\n";
    } else {
      result += format_text("\\x%02x", static_cast<unsigned char>(text[0]));
    }
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return result;
}

std::string format_count(std::size_t count, const char* noun) {
  return format_text("%zu %s%s", count, noun, count == 1 ? "" : "s");
}

std::string format_text(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  std::va_list measured;
  va_copy(measured, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, measured);
  va_end(measured);
  std::string text(static_cast<std::size_t>(std::max(length, 0)), '\0');
  std::vsnprintf(text.data(), text.size() + 1, format, arguments);
  va_end(arguments);
  return text;
}
