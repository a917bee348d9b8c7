// call_log.cpp - formatting and writing of the call log's lines.
#include "hosted/kernel/call_log.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>

namespace hosted {

namespace {

void append_hex(std::string &line, uint64_t value) {
    char digits[16];
    const auto end = std::to_chars(digits, digits + sizeof digits, value, 16).ptr;
    line.append("0x").append(digits, end);
}

void append_count(std::string &line, int64_t value) {
    char digits[20];
    line.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
}

void append_argument(std::string &line, const argument &given, bool succeeded) {
    switch (given.what) {
    case argument::kind::number: append_hex(line, given.value); return;
    case argument::kind::count: append_count(line, static_cast<int64_t>(given.value)); return;
    case argument::kind::output:
        line += '{';
        if (succeeded && given.output != nullptr) append_hex(line, *given.output);
        line += '}';
        return;
    case argument::kind::record:
        line += '{';
        if (succeeded && given.record != nullptr) {
            append_hex(line, given.record->word1);
            append_hex(line += ", ", given.record->code);
            append_hex(line += ", ", given.record->word2);
        }
        line += '}';
        return;
    }
}

}  // namespace

call_log::~call_log() {
    if (descriptor_ >= 0) close(descriptor_);
}

bool call_log::open(const char *path) {
    descriptor_ = ::open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0666);
    return descriptor_ >= 0;
}

void call_log::write(call which, std::span<const argument> arguments, bool succeeded, std::optional<uint64_t> result) {
    line_.assign(call_name(which));
    const char *separator = "(";
    for (const argument &given : arguments) {
        line_ += separator;
        append_argument(line_, given, succeeded);
        separator = ", ";
    }
    line_ += arguments.empty() ? "()" : ")";
    if (result) append_hex(line_ += " = ", *result);
    line_ += '\n';

    // One write a line, so that lines of several processes do not mix, and none is lost to a crash.
    for (size_t done = 0; done < line_.size();) {
        const ssize_t written = ::write(descriptor_, line_.data() + done, line_.size() - done);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) {
            if (error_ == 0) error_ = written < 0 ? errno : EIO;
            return;
        }
        done += static_cast<size_t>(written);
    }
}

}  // namespace hosted
