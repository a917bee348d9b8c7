// hosted/described/writer.h - writing JSON, one object a line where a machine file does.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace hosted::described {

// Writes one JSON value after another.
class json_writer {
public:
    // The contents follow on the same line, or each on a line of its own.
    void begin_object(bool on_lines = false) { begin('{', '}', on_lines); }
    void begin_list(bool on_lines = false) { begin('[', ']', on_lines); }
    void end();

    // Puts the next value or key on a line of its own; the innermost list or object is not on lines.
    void start_line() { line_due_ = true; }

    void key(std::string_view name);
    void number(uint64_t value);
    void hexadecimal(uint64_t value);  // a text: "0x1f"
    void flag(bool value);
    void text(std::string_view value);  // as its bytes where it is not UTF-8
    void hex(std::string_view bytes);   // {"hex": "00 ff"}

    // Remove what was written since a mark, within the same list or object.
    struct position {
        size_t length;  // of the text
        size_t indent;
        bool empty;  // the list or object
    };
    position mark() const { return {out_.size(), indent_, open_.back().empty}; }
    void rewind(const position &to);

    // Takes address space for a text of that size, so that it never moves while it grows; does nothing where the system
    // has not as much. Memory that is never written costs nothing.
    void reserve(size_t bytes);

    std::string take() { return std::move(out_); }

private:
    struct level {
        char bracket;
        bool on_lines;
        size_t indent;  // of a line inside, levels
        bool empty = true;
    };

    void begin(char opening, char closing, bool on_lines);
    void next();
    void line(size_t indent);
    void quote(std::string_view value);

    std::string out_;
    std::vector<level> open_;
    size_t indent_ = 0;  // of the current line, levels
    bool after_key_ = false;
    bool line_due_ = false;
};

}  // namespace hosted::described
