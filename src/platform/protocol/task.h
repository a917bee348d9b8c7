// platform/protocol/task.h - how the registry names tasks, and the message that announces the end of one.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

// The name of a task's key in PROCESS_DIRECTORY: TASK_KEY_SIZE upper-case hexadecimal digits of its handle.
inline constexpr size_t TASK_KEY_SIZE = 16;

// Writes the digits of a handle, without a NUL.
//   out      TASK_KEY_SIZE bytes
//   returns  the end of what it wrote
inline char *write_task_key(char *out, uint64_t handle) {
    for (size_t i = TASK_KEY_SIZE; i-- > 0; handle >>= 4) out[i] = "0123456789ABCDEF"[handle & 0xF];
    return out + TASK_KEY_SIZE;
}

// The values of hexadecimal digits of either case, by character; 0 for any other character.
inline constexpr auto HEX_DIGIT_VALUES = [] {
    std::array<uint8_t, 256> values{};
    for (uint8_t i = 0; i < 10; ++i) values['0' + i] = i;
    for (uint8_t i = 0; i < 6; ++i) values['a' + i] = values['A' + i] = static_cast<uint8_t>(10 + i);
    return values;
}();

// The value of hexadecimal digits of either case. Never fails: every character shifts the value by four bits, one that
// is no digit counts as 0, and only the last 16 digits count. "0x1F" and "1F" are the same, and "" is 0.
inline uint64_t parse_task_key(std::string_view digits) {
    uint64_t handle = 0;
    for (const char c : digits) handle = handle << 4 | HEX_DIGIT_VALUES[static_cast<unsigned char>(c)];
    return handle;
}

// Code of the message to KSTATE_EXIT_NOTICE_PORT; its words are the task's master handle and its exit code shifted left
// by 8.
inline constexpr uint32_t MSG_TASK_EXIT = 0xD0030002;
