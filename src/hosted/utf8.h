// hosted/utf8.h - characters of UTF-8 in texts that may hold any bytes.
#pragma once

#include <cstddef>
#include <string_view>

namespace hosted {

// Reads the character at position at and moves at past it; false, at unchanged, where the bytes are not well-formed.
bool next_character(std::string_view text, size_t &at, char32_t &character);
bool is_utf8(std::string_view text);

// Whether a character changes what a terminal does, or the order or the lines in which it shows other characters.
bool steers_terminal(char32_t character);

}  // namespace hosted
