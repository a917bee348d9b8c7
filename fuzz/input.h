// fuzz/input.h - reads the bytes of one fuzz input in order, then zeroes.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "main/tools.h"

class fuzz_input {
public:
    fuzz_input(const uint8_t *bytes, size_t size) : left_(bytes, size) {}

    size_t size() const { return left_.size(); }

    template <class Number> Number number() {
        Number taken = 0;
        copy(&taken, sizeof taken);
        return taken;
    }
    uint8_t byte() { return number<uint8_t>(); }
    uint64_t word() { return number<uint64_t>(); }

    // Copies up to size bytes, as many as are left, and leaves the rest of the room unchanged.
    void copy(void *room, size_t size) {
        const size_t count = std::min(size, left_.size());
        if (count != 0) std::memcpy(room, left_.data(), count);
        left_ = left_.subspan(count);
    }

    std::string_view text(size_t size) {
        const std::string_view taken(reinterpret_cast<const char *>(left_.data()), std::min(size, left_.size()));
        left_ = left_.subspan(taken.size());
        return taken;
    }

    // The bytes up to a separator, which is skipped.
    std::string_view text_until(char separator) {
        const std::string_view all(reinterpret_cast<const char *>(left_.data()), left_.size());
        const std::string_view taken = all.substr(0, all.find(separator));
        left_ = left_.subspan(std::min(taken.size() + 1, left_.size()));
        return taken;
    }

private:
    std::span<const uint8_t> left_;
};

// The command line at the beginning of an input, up to a NUL: the command's name and its arguments, one a line. Any
// other name selects one of the commands.
class fuzz_command_line {
public:
    explicit fuzz_command_line(fuzz_input &input) {
        const std::string_view line = input.text_until('\0');
        size_t at = line.find('\n');
        const std::string_view name = line.substr(0, at);
        while (at < line.size()) {
            const size_t end = std::min(line.find('\n', at + 1), line.size());
            words_.emplace_back(line.substr(at + 1, end - at - 1));
            at = end;
        }
        for (std::string &word : words_) arguments_.push_back(word.data());
        arguments_.push_back(nullptr);
        const size_t other = name.empty() ? 0 : static_cast<uint8_t>(name[0]);
        const tool *end = s_tools;
        while (end->name != nullptr) ++end;
        command_ = std::find_if(s_tools, end, [=](const tool &row) { return name == row.name; });
        if (command_ == end) command_ -= 1 + other % static_cast<size_t>(end - s_tools);
    }

    std::string_view command() const { return command_->name; }
    bool has_option(char letter) const {
        return std::any_of(words_.begin(), words_.end(), [=](const std::string &word) {
            return word.starts_with('-') && word.find(letter) != word.npos;
        });
    }

    int run() { return command_->entry(static_cast<int>(words_.size()), arguments_.data()); }

private:
    const tool *command_;
    std::vector<std::string> words_;
    std::vector<char *> arguments_;
};

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size);
