// hosted/described/text.cpp - numbers and bytes as text in a machine file.
#include "hosted/described/text.h"

#include <arpa/inet.h>

#include <charconv>

namespace hosted::described {
namespace {

constexpr std::string_view digits = "0123456789abcdef";

template <class Number> bool parse_whole(std::string_view text, Number &value, int base) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    return error == std::errc() && end == text.data() + text.size();
}

}  // namespace

std::optional<uint64_t> parse_number(std::string_view text) {
    const bool negative = text.starts_with('-');
    if (negative) text.remove_prefix(1);
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    if (hexadecimal) text.remove_prefix(2);
    uint64_t value = 0;
    if (!parse_whole(text, value, hexadecimal ? 16 : 10)) return std::nullopt;
    if (!negative) return value;
    if (value > uint64_t{1} << 63) return std::nullopt;
    return 0 - value;
}

std::string number_text(uint64_t value, bool hexadecimal) {
    char shown[2 + 20] = {'0', 'x'};
    char *const begin = shown + (hexadecimal ? 2 : 0);
    return {shown, std::to_chars(begin, std::end(shown), value, hexadecimal ? 16 : 10).ptr};
}

std::optional<std::string> parse_hex(std::string_view text) {
    std::string bytes;
    for (size_t at = 0; (at = text.find_first_not_of(" \t\n\r", at)) != text.npos; at += 2) {
        uint8_t byte = 0;
        const std::string_view pair = text.substr(at, 2);
        if (pair.size() != 2 || !parse_whole(pair, byte, 16)) return std::nullopt;
        bytes.push_back(static_cast<char>(byte));
    }
    return bytes;
}

std::string hex_text(std::string_view bytes) {
    std::string text;
    text.reserve(bytes.size() * 3);
    for (const char c : bytes) {
        const auto byte = static_cast<uint8_t>(c);
        if (!text.empty()) text.push_back(' ');
        text.push_back(digits[byte >> 4]);
        text.push_back(digits[byte & 15]);
    }
    return text;
}

std::optional<svc_sockaddr> parse_address(std::string_view text) {
    uint32_t address = 0;
    for (int part = 0; part < 4; ++part) {
        uint8_t number = 0;
        const size_t length = std::min(text.find_first_not_of("0123456789"), text.size());
        if (!parse_whole(text.substr(0, length), number, 10)) return std::nullopt;
        text.remove_prefix(length);
        address = address << 8 | number;
        if (part == 3) break;
        if (!text.starts_with('.')) return std::nullopt;
        text.remove_prefix(1);
    }
    uint16_t port = 0;
    if (!text.empty() && (text.front() != ':' || !parse_whole(text.substr(1), port, 10))) return std::nullopt;
    svc_sockaddr result{};
    result.family = SVC_FAMILY_INET;
    result.port = htons(port);
    result.address = htonl(address);
    return result;
}

}  // namespace hosted::described
