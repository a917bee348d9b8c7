// hosted/live/texts.cpp - texts of the operating system, and cleaning those that a person will read.
#include "hosted/live/texts.h"

#include <algorithm>
#include <charconv>

#include "hosted/utf8.h"
#include "platform/protocol/registry.h"

namespace hosted::live {

namespace {

bool is_printable_ascii(char c) { return c >= ' ' && c <= '~'; }

}  // namespace

std::optional<uint64_t> whole_number(std::string_view text) {
    uint64_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
    return value;
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view around = " \t\r\n";
    const size_t begin = text.find_first_not_of(around);
    if (begin == text.npos) return {};
    return text.substr(begin, text.find_last_not_of(around) + 1 - begin);
}

// A lone byte from 0x80 to 0x9F is a control character of 8-bit terminals.
text_character first_character(std::string_view text) {
    size_t size = 0;
    char32_t character = 0;
    if (next_character(text, size, character)) return {size, steers_terminal(character)};
    return {1, static_cast<unsigned char>(text[0]) < 0xA0};
}

void clean(std::string &text, line_feeds feeds) {
    if (std::all_of(text.begin(), text.end(), is_printable_ascii)) return;
    for (size_t at = 0; at < text.size();) {
        const auto [size, steers] = first_character(std::string_view(text).substr(at));
        if (steers && !(text[at] == '\n' && feeds == line_feeds::kept)) text.replace(at, size, size, '?');
        at += size;
    }
}

bool can_be_key(std::string_view name) {
    if (!reg_is_name(name)) return false;
    while (!name.empty()) {
        const auto [size, steers] = first_character(name);
        if (steers) return false;
        name.remove_prefix(size);
    }
    return true;
}

}  // namespace hosted::live
