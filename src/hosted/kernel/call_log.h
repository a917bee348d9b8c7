// hosted/kernel/call_log.h - one line per kernel call, appended to a file.
//
//     # request 0xc0020021 "run/dev/rtc0"
//     _SL_SendMsg(0x100004, 0x100005, 0x20100, 0x1, -1) = 0x0
//     _SL_GetIteratorInfo(0x21, 0x401, {0xa}) = 0x0
//
// Numbers are in lower-case hexadecimal, time-outs and semaphore counts in signed decimal. Outputs are in braces, which
// stay empty when the call failed. A call that ends the process has no result. The line of a send that begins a request
// to the registry follows one with the request's command and path, where bytes outside printable ASCII, quotes and
// backslashes are written as \xHH.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "hosted/descriptors.h"
#include "hosted/kernel/calls.h"
#include "hosted/kernel/server.h"
#include "platform/kernel.h"

namespace hosted {

// One argument of a call.
struct argument {
    enum class kind : uint8_t { number, count, output, record };
    // The type of the parameter says which kind it is.
    // NOLINTBEGIN(google-explicit-constructor): a call lists its parameters as they are
    argument(uint64_t number) : what(kind::number), value(number) {}
    argument(int64_t count) : what(kind::count), value(static_cast<uint64_t>(count)) {}
    argument(uint64_t *out) : what(kind::output), output(out) {}
    argument(kernel_message *out) : what(kind::record), record(out) {}
    // NOLINTEND(google-explicit-constructor)

    kind what;
    uint64_t value = 0;                // number; count: as its two's complement
    uint64_t *output = nullptr;        // where an output is stored; may be null
    kernel_message *record = nullptr;  // likewise for a record of three words
};

class call_log {
public:
    // Opens the file to append to; %p in its name is the process id. Returns false, with errno set, on failure.
    bool open(std::string_view name);
    bool is_open() const { return static_cast<bool>(file_); }

    // Writes the line of a call. Outputs are shown if it succeeded. Takes no memory.
    void write(call which, std::span<const argument> arguments, bool succeeded, std::optional<uint64_t> result);

    // Writes the line of a request to the registry.
    void write(const request_subject &subject);

    // The errno of the first write that failed, or 0.
    int error() const { return error_; }

private:
    void write_line(std::string_view text);

    descriptor file_;
    int error_ = 0;
};

}  // namespace hosted
