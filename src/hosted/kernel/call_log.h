// hosted/kernel/call_log.h - one line per kernel call, appended to a file.
//
//     _SL_GetIteratorInfo(0x21, 0x401, {0xa}) = 0x0
//
// Numbers are in lower-case hexadecimal, time-outs and semaphore counts in signed decimal, outputs in braces, which
// stay empty when the call failed. A call that ends the process has no result.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "hosted/kernel/calls.h"
#include "platform/kernel.h"

namespace hosted {

// One argument of a call.
struct argument {
    enum class kind : uint8_t { number, count, output, record };
    kind what;
    uint64_t value = 0;                      // number; count: as its two's complement
    const uint64_t *output = nullptr;        // where an output was stored; may be null
    const kernel_message *record = nullptr;  // likewise for a record of three words

    static argument number(uint64_t value) { return {kind::number, value, nullptr, nullptr}; }
    static argument count(int64_t value) { return {kind::count, static_cast<uint64_t>(value), nullptr, nullptr}; }
    static argument out(const uint64_t *output) { return {kind::output, 0, output, nullptr}; }
    static argument out(const kernel_message *record) { return {kind::record, 0, nullptr, record}; }
};

class call_log {
public:
    call_log() = default;
    ~call_log();
    call_log(const call_log &) = delete;
    call_log &operator=(const call_log &) = delete;

    // Opens the file to append to; false, with errno set, when that fails.
    bool open(const char *path);
    bool is_open() const { return descriptor_ >= 0; }

    // Writes one line. Outputs are shown when the call succeeded.
    void write(call which, std::span<const argument> arguments, bool succeeded, std::optional<uint64_t> result);

    // The errno of the first write that failed, or 0.
    int error() const { return error_; }

private:
    int descriptor_ = -1;
    int error_ = 0;
    std::string line_;
};

}  // namespace hosted
