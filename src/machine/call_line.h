// machine/call_line.h - parses a line of the call log.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "hosted/kernel/calls.h"
#include "platform/kernel.h"

namespace verbs {

// An argument as the log shows it. An output has no words if the call failed, and a record has three.
struct logged_argument {
    bool is_count = false;   // in signed decimal
    bool is_output = false;  // in braces
    uint8_t count = 0;       // of the words
    std::array<uint64_t, 3> words{};
};

struct logged_call {
    hosted::call which{};
    std::vector<logged_argument> arguments;  // as many as the call has parameters
    std::optional<uint64_t> result;          // none for a call that ended the process

    bool succeeded() const;

    // The argument for a parameter of the call, by its name in the header; 0 where there is none.
    uint64_t operator[](std::string_view parameter) const;

    // What a receive took off the port; nothing for any other call.
    std::optional<kernel_message> received() const;
};

// Nothing for a line that no log of this release has.
std::optional<logged_call> parse_call(std::string_view line);

// The names of a call's parameters.
std::span<const std::string_view> parameters_of(hosted::call which);

}  // namespace verbs
