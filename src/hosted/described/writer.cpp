// hosted/described/writer.cpp - writing JSON, one object a line where a machine file does.
#include "hosted/described/writer.h"

#include <algorithm>
#include <charconv>
#include <new>
#include <utility>

#include "hosted/described/text.h"
#include "hosted/utf8.h"

namespace hosted::described {
namespace {

constexpr size_t INDENT = 2;           // blanks per level
constexpr size_t DEEPEST_INDENT = 16;  // levels; a deeply nested registry would be mostly blanks

}  // namespace

void json_writer::begin(char opening, char closing, bool on_lines) {
    next();
    out_.push_back(opening);
    open_.push_back({closing, on_lines, indent_ + 1});
}

void json_writer::end() {
    const level closed = open_.back();
    open_.pop_back();
    if (closed.on_lines && !closed.empty) line(closed.indent - 1);
    out_.push_back(closed.bracket);
}

// Goes to where the next value or key begins.
void json_writer::next() {
    if (std::exchange(after_key_, false) || open_.empty()) return;
    level &here = open_.back();
    const bool on_line = std::exchange(line_due_, false) || here.on_lines;
    if (!here.empty) out_ += on_line ? "," : ", ";
    if (on_line) line(here.indent);
    here.empty = false;
}

void json_writer::line(size_t indent) {
    indent_ = indent;
    out_.push_back('\n');
    out_.append(std::min(indent, DEEPEST_INDENT) * INDENT, ' ');
}

void json_writer::rewind(const position &to) {
    out_.resize(to.length);
    indent_ = to.indent;
    open_.back().empty = to.empty;
}

void json_writer::reserve(size_t bytes) {
    try {
        out_.reserve(bytes);
    } catch (const std::bad_alloc &) {
        // It grows as any text does.
    }
}

void json_writer::key(std::string_view name) {
    next();
    quote(name);
    out_ += ": ";
    after_key_ = true;
}

void json_writer::number(uint64_t value) {
    next();
    char digits[20];
    out_.append(digits, std::to_chars(digits, std::end(digits), value).ptr);
}

void json_writer::hexadecimal(uint64_t value) {
    next();
    out_ += '"' + number_text(value, true) + '"';
}

void json_writer::flag(bool value) {
    next();
    out_ += value ? "true" : "false";
}

void json_writer::text(std::string_view value) {
    if (!is_utf8(value)) return hex(value);
    next();
    quote(value);
}

void json_writer::hex(std::string_view bytes) {
    next();
    out_ += "{\"hex\": \"" + hex_text(bytes) + "\"}";
}

void json_writer::quote(std::string_view value) {
    out_.push_back('"');
    size_t copied = 0;
    for (size_t i = 0; i < value.size(); ++i) {
        const char c = value[i];
        if (static_cast<uint8_t>(c) >= ' ' && c != '"' && c != '\\' && c != 0x7F) continue;
        out_.append(value, copied, i - copied);
        copied = i + 1;
        switch (c) {
        case '"': out_ += "\\\""; break;
        case '\\': out_ += "\\\\"; break;
        case '\n': out_ += "\\n"; break;
        case '\r': out_ += "\\r"; break;
        case '\t': out_ += "\\t"; break;
        default: out_ += "\\u00" + hex_text({&c, 1});
        }
    }
    out_.append(value, copied);
    out_.push_back('"');
}

}  // namespace hosted::described
