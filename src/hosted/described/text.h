// hosted/described/text.h - numbers and bytes as text in a machine file.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/protocol/service.h"

namespace hosted::described {

// "31", "0x1F", "-1" (64-bit two's complement); nothing for any other text or a number beyond 64 bits.
std::optional<uint64_t> parse_number(std::string_view text);

// 31 -> "31" or "0x1f"
std::string number_text(uint64_t value, bool hexadecimal);

// "00 ff" -> two bytes; nothing for anything but pairs of digits and blanks between pairs.
std::optional<std::string> parse_hex(std::string_view text);
std::string hex_text(std::string_view bytes);

// "10.0.0.1:80"; the port is 0 unless given.
std::optional<svc_sockaddr> parse_address(std::string_view text);

}  // namespace hosted::described
