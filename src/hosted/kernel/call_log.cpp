// hosted/kernel/call_log.cpp - formatting and writing of the call log's lines.
#include "hosted/kernel/call_log.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <iterator>
#include <string>
#include <utility>

namespace hosted {

namespace {

// One line on the stack. A call has at most 6 arguments of 20 characters, or one record of three words.
class line {
public:
    line &text(std::string_view added) {
        const size_t fits = std::min(added.size(), static_cast<size_t>(std::end(characters_) - end_));
        end_ = std::copy_n(added.data(), fits, end_);
        return *this;
    }
    line &hex(uint64_t value) {
        text("0x");
        end_ = std::to_chars(end_, std::end(characters_), value, 16).ptr;
        return *this;
    }
    line &decimal(int64_t value) {
        end_ = std::to_chars(end_, std::end(characters_), value).ptr;
        return *this;
    }
    std::string_view view() const { return {characters_, static_cast<size_t>(end_ - characters_)}; }

private:
    char characters_[512];
    char *end_ = characters_;
};

void append_argument(line &to, const argument &given, bool succeeded) {
    switch (given.what) {
    case argument::kind::number: to.hex(given.value); return;
    case argument::kind::count: to.decimal(static_cast<int64_t>(given.value)); return;
    case argument::kind::output:
        to.text("{");
        if (succeeded && given.output != nullptr) to.hex(*given.output);
        to.text("}");
        return;
    case argument::kind::record:
        to.text("{");
        if (succeeded && given.record != nullptr) {
            to.hex(given.record->word1).text(", ").hex(given.record->code).text(", ").hex(given.record->word2);
        }
        to.text("}");
        return;
    }
}

}  // namespace

bool call_log::open(std::string_view name) {
    constexpr std::string_view process_id = "%p";
    std::string path(name);
    const std::string id = std::to_string(getpid());
    for (size_t at = 0; (at = path.find(process_id, at)) != path.npos; at += id.size()) {
        path.replace(at, process_id.size(), id);
    }
    file_ = open_named(std::move(path), O_WRONLY | O_APPEND | O_CREAT, 0666);
    return is_open();
}

void call_log::write(call which, std::span<const argument> arguments, bool succeeded, std::optional<uint64_t> result) {
    line made;
    made.text(call_name(which)).text("(");
    for (const argument &given : arguments) {
        if (&given != arguments.data()) made.text(", ");
        append_argument(made, given, succeeded);
    }
    made.text(")");
    if (result) made.text(" = ").hex(*result);
    write_line(made.text("\n").view());
}

void call_log::write(const request_subject &subject) {
    constexpr char digits[] = "0123456789abcdef";
    std::string made(line().text("# request ").hex(subject.command).text(" \"").view());
    for (const char c : subject.path) {
        if (c >= ' ' && c <= '~' && c != '"' && c != '\\') {
            made += c;
        } else {
            const auto byte = static_cast<unsigned char>(c);
            made.append("\\x").append({digits[byte >> 4], digits[byte & 0xF]});
        }
    }
    write_line(made += "\"\n");
}

// One write a line, so that lines of several processes do not mix and a crash loses none.
void call_log::write_line(std::string_view text) {
    const int error = write_all(file_.get(), text);
    if (error_ == 0) error_ = error;
}

}  // namespace hosted
