// files.cpp - reading the texts that the operating system gives.
#include "hosted/live/files.h"

#include <algorithm>
#include <cerrno>
#include <charconv>

#include "hosted/utf8.h"

namespace hosted::live {

namespace {

// Fields and the gaps between them are short: a loop is done before a search for any of several characters has begun.
constexpr auto is_blank = [](char c) { return c == ' ' || c == '\t'; };

void skip_blanks(std::string_view &text) {
    text.remove_prefix(static_cast<size_t>(std::find_if_not(text.begin(), text.end(), is_blank) - text.begin()));
}

}  // namespace

std::optional<std::string_view> read_file(const std::string &path, std::span<char> buffer) {
    const descriptor file = open_file(AT_FDCWD, path.c_str());
    std::string_view text;
    if (file) errno = read_all(file.get(), buffer, text);
    if (!file || errno != 0) return std::nullopt;
    return text;
}

bool read_file(const std::string &path, std::string &text) {
    text.clear();
    const descriptor file = open_file(AT_FDCWD, path.c_str());
    if (file) errno = read_all(file.get(), text, LARGEST_TEXT);
    return file && errno == 0;
}

std::string_view next_line(std::string_view &text) {
    const size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end == text.npos ? text.size() : end + 1);
    return line;
}

std::string_view next_field(std::string_view &text) {
    skip_blanks(text);
    const auto end = std::find_if(text.begin(), text.end(), is_blank);
    const std::string_view field = text.substr(0, static_cast<size_t>(end - text.begin()));
    text.remove_prefix(field.size());
    return field;
}

std::optional<uint64_t> next_number(std::string_view &text) {
    std::string_view rest = text;
    skip_blanks(rest);
    uint64_t value = 0;
    const auto [behind, error] = std::from_chars(rest.data(), rest.data() + rest.size(), value);
    if (error != std::errc{}) return std::nullopt;
    rest.remove_prefix(static_cast<size_t>(behind - rest.data()));
    text = rest;
    return value;
}

std::optional<uint64_t> whole_number(std::string_view text) {
    uint64_t value = 0;
    const auto [behind, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc{} || behind != text.data() + text.size()) return std::nullopt;
    return value;
}

std::string_view trimmed(std::string_view text) {
    constexpr std::string_view around = " \t\r\n";
    const size_t begin = text.find_first_not_of(around);
    if (begin == text.npos) return {};
    return text.substr(begin, text.find_last_not_of(around) + 1 - begin);
}

void clean(std::string &text) {
    for (size_t at = 0; at < text.size();) {
        const size_t begin = at;
        char32_t character = 0;
        bool unsafe = false;
        if (next_character(text, at, character)) {
            unsafe = steers_terminal(character);
        } else {
            unsafe = static_cast<unsigned char>(text[at++]) < 0xA0;  // a control byte of 8-bit terminals
        }
        if (unsafe)
            std::fill(text.begin() + static_cast<ptrdiff_t>(begin), text.begin() + static_cast<ptrdiff_t>(at), '?');
    }
}

}  // namespace hosted::live
