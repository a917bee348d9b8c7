// hosted/utf8.cpp - characters of UTF-8.
#include "hosted/utf8.h"

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace hosted {

bool next_character(std::string_view text, size_t &at, char32_t &character) {
    const auto first = static_cast<uint8_t>(text[at]);
    const size_t length = first < 0x80   ? 1
                          : first < 0xC2 ? 0
                          : first < 0xE0 ? 2
                          : first < 0xF0 ? 3
                          : first < 0xF5 ? 4
                                         : 0;
    if (length == 0 || text.size() - at < length) return false;
    char32_t value = length == 1 ? first : first & (0x7FU >> length);
    for (size_t i = 1; i < length; ++i) {
        const auto byte = static_cast<uint8_t>(text[at + i]);
        if ((byte & 0xC0) != 0x80) return false;
        value = value << 6 | (byte & 0x3FU);
    }
    constexpr char32_t smallest[] = {0, 0, 0x80, 0x800, 0x10000};
    if (value < smallest[length] || value > 0x10FFFF || (value >= 0xD800 && value < 0xE000)) return false;
    at += length;
    character = value;
    return true;
}

bool is_utf8(std::string_view text) {
    char32_t character = 0;
    for (size_t at = 0; at < text.size();) {
        if (!next_character(text, at, character)) return false;
    }
    return true;
}

bool steers_terminal(char32_t character) {
    constexpr struct {
        char32_t first, last;
    } ranges[] = {
        {0x00, 0x1F},     {0x7F, 0x9F},        // control characters
        {0x061C, 0x061C}, {0x200E, 0x200F},    // marks of a direction
        {0x2028, 0x202E}, {0x2066, 0x206F},    // line ends, embeddings, overrides, isolates
        {0xFFF9, 0xFFFB}, {0xE0000, 0xE007F},  // annotations, tags
    };
    return std::any_of(std::begin(ranges), std::end(ranges),
                       [&](const auto &range) { return character >= range.first && character <= range.last; });
}

}  // namespace hosted
