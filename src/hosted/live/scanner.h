// hosted/live/scanner.h - a scan over a text of the system, from its front.
//
// A listing scans some files of every process, so all of it is inline. Nothing is trusted: a scan stops at what it does
// not understand, and rejects a number that does not fit 64 bits.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>

namespace hosted::live {

class scanner {
public:
    explicit scanner(std::string_view text) : at_(text.data()), end_(text.data() + text.size()) {}

    bool done() const { return at_ == end_; }
    std::string_view rest() const { return {at_, static_cast<size_t>(end_ - at_)}; }

    bool take(char wanted) {
        if (done() || *at_ != wanted) return false;
        ++at_;
        return true;
    }
    void skip_blanks() {
        while (!done() && (*at_ == ' ' || *at_ == '\t')) ++at_;
    }
    void skip(size_t count) { at_ += std::min(count, rest().size()); }
    void skip_past(char wanted) {
        const auto *found = static_cast<const char *>(std::memchr(at_, wanted, rest().size()));
        at_ = found == nullptr ? end_ : found + 1;
    }

    // The bytes before the next one of a kind, which is skipped; all that is left where there is none.
    std::string_view until(char end) {
        const char *begin = at_;
        const auto *found = static_cast<const char *>(std::memchr(at_, end, rest().size()));
        at_ = found == nullptr ? end_ : found + 1;
        return {begin, static_cast<size_t>((found == nullptr ? end_ : found) - begin)};
    }
    std::string_view line() { return until('\n'); }

    std::string_view word() {
        skip_blanks();
        const char *begin = at_;
        while (!done() && *at_ != ' ' && *at_ != '\t' && *at_ != '\n') ++at_;
        return {begin, static_cast<size_t>(at_ - begin)};
    }

    // Each returns false where there is no number, or it does not fit. Decimal ones may follow blanks.
    bool decimal(uint64_t &value) {
        skip_blanks();
        return digits(value);
    }
    std::optional<uint64_t> decimal() {
        uint64_t value = 0;
        return decimal(value) ? std::optional(value) : std::nullopt;
    }
    bool integer(uint64_t &value) {  // a negative one is its two's complement
        skip_blanks();
        const bool negative = take('-');
        if (!digits(value)) return false;
        if (negative) value = 0 - value;
        return true;
    }
    bool hexadecimal(uint64_t &value) {
        constexpr ptrdiff_t most_digits = 16;
        const char *begin = at_;
        uint64_t read = 0;
        for (int digit; !done() && (digit = hex_digit(*at_)) >= 0; ++at_)
            read = read << 4 | static_cast<unsigned>(digit);
        if (at_ == begin || at_ - begin > most_digits) return false;
        value = read;
        return true;
    }

private:
    bool digits(uint64_t &value) {
        constexpr ptrdiff_t safe_digits = 19;
        constexpr uint64_t least_of_20_digits = 10'000'000'000'000'000'000U;
        const char *begin = at_;
        uint64_t read = 0;
        for (; !done() && *at_ >= '0' && *at_ <= '9'; ++at_) read = read * 10 + static_cast<uint64_t>(*at_ - '0');
        const ptrdiff_t count = at_ - begin;
        if (count == 0) return false;
        // Of 20 digits, those that begin with 1 fit unless they wrapped round to less than that.
        if (count > safe_digits && (count > safe_digits + 1 || *begin != '1' || read < least_of_20_digits))
            return false;
        value = read;
        return true;
    }

    static int hex_digit(char c) {
        if (c >= '0' && c <= '9') return c - '0';
        return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
    }

    const char *at_;
    const char *end_;
};

// The number after a key at the start of a line, such as "\nTgid:"; 0 where there is no such line. The line feed is
// part of the key, so that a text within a line is never taken for a key.
inline uint64_t value_of(std::string_view text, std::string_view key) {
    uint64_t value = 0;
    if (const size_t found = text.find(key); found != text.npos)
        scanner(text.substr(found + key.size())).decimal(value);
    return value;
}

}  // namespace hosted::live
