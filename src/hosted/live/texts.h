// hosted/live/texts.h - texts of the operating system, and cleaning those that a person will read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "hosted/live/scanner.h"

namespace hosted::live {

// A text that is an unsigned decimal number and nothing else.
std::optional<uint64_t> whole_number(std::string_view text);

std::string_view trimmed(std::string_view text);  // without blanks, tabs and line ends around it

// ---- what acts on a terminal ----------------------------------------------------------------------------------------

// The character at the front of a text that is not empty: one of UTF-8, or a single byte that belongs to none.
struct text_character {
    size_t size;  // bytes
    bool steers;  // a terminal acts on it rather than shows it
};
text_character first_character(std::string_view text);

// Replaces each byte of the characters that steer a terminal by '?', those of line feeds too unless lines are to stay.
enum class line_feeds : uint8_t { replaced, kept };
void clean(std::string &text, line_feeds feeds = line_feeds::replaced);

// Whether a text can be the name of a registry key or device here: it has no character that steers a terminal.
bool can_be_key(std::string_view name);

}  // namespace hosted::live
