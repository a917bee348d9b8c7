// tests/case_file.h - reads the files of tests/cases.
//
//   machine: lab.json             The machine of the runs below, up to the next such line: a file of tests/machines,
//                                 demo or live. The first runs of a file are on an empty machine.
//   machine: {"tasks": [          The same, given here. Lines that begin with a blank continue it, without that blank.
//     {"handle": 16}]}
//   # where the group is unknown  A comment above a run names its test. A run without one is named by its arguments.
//   1$ TZ=UTC task -n >/dev/full  A run: its exit status (0 if omitted), a dollar, settings, words as in a shell, and
//                                 optionally a file for its standard output, which is not compared then.
//   |text                         A line of its standard output. A line ... matches any lines.
//   !text                         The same of its standard error.
//   *text                         A line of the complete call log. * matches any characters, a line ... any lines.
//   &text                         A text that the saved machine holds after those of the lines above.
//   %|text                        Any of the four with the escapes \n \t \r \\ \xHH, and without the final line feed.
//
// If its words or its machine hold a @, the run is a template, and each of the rows that follow it makes a run:
//
//   @TEXT => 1!text               TEXT replaces every @. Then its exit status (0 if omitted) and its first line.
//
// Standard output and standard error are empty unless lines are given. Each run has its own directory, which holds its
// machine: under the name of its file, or as machine.json.
#pragma once

#include <algorithm>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "shell_words.h"

// The expected texts of a run, by the mark of their lines: | ! * &
using expectations = std::map<char, std::string>;

struct test_case {
    int line = 0;
    std::string name, machine, command;
    int status = 0;
    expectations expected;
};

// ---- comparing ------------------------------------------------------------------------------------------------------

// Whether a pattern matches a text from its first element to its last. A gap in the pattern matches any elements.
template <class Pattern, class Text, class Gap, class Same>
bool covers(const Pattern &pattern, const Text &text, const Gap &gap, Same same) {
    size_t p = 0, t = 0, after_gap = 0, resume = 0;  // after the last gap, and where its match was tried last
    while (t < text.size()) {
        if (p < pattern.size() && pattern[p] == gap) {
            after_gap = ++p;
            resume = t;
        } else if (p < pattern.size() && same(pattern[p], text[t])) {
            ++p, ++t;
        } else if (after_gap != 0) {
            p = after_gap;
            t = ++resume;
        } else {
            return false;
        }
    }
    return std::all_of(pattern.begin() + static_cast<std::ptrdiff_t>(p), pattern.end(),
                       [&](const auto &left) { return left == gap; });
}

// ---- reading --------------------------------------------------------------------------------------------------------

inline std::runtime_error wrong(int line, const std::string &what) {
    return std::runtime_error("line " + std::to_string(line) + ": " + what);
}

inline std::vector<std::string> lines_of(const std::string &text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

inline std::string unescaped(const std::string &text, int line) {
    constexpr std::string_view letters = "ntr\\", meanings = "\n\t\r\\";
    std::string result;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            result += text[i];
            continue;
        }
        const char kind = ++i < text.size() ? text[i] : '\0';
        if (const size_t letter = letters.find(kind); letter != letters.npos) {
            result += meanings[letter];
            continue;
        }
        const std::string digits = kind == 'x' ? text.substr(i + 1, 2) : "";
        if (digits.size() < 2 || digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
            throw wrong(line, "unknown escape");
        result += static_cast<char>(std::stoi(digits, nullptr, 16));
        i += 2;
    }
    return result;
}

inline std::string filled(const std::string &text, const std::string &hole) {
    std::string result;
    for (const char c : text) result += c == '@' ? hole : std::string(1, c);
    return result;
}

inline constexpr std::string_view marks = "|!*&";

class case_reader {
public:
    std::vector<test_case> read(const std::string &text) {
        for (const auto &line : lines_of(text)) {
            ++number_;
            take(line);
        }
        end_run();
        return std::move(cases_);
    }

private:
    void take(const std::string &line) {
        const size_t digits = std::min(line.find_first_not_of("0123456789"), line.size());
        const bool goes_on = std::exchange(in_machine_, false) && line.starts_with(' ');
        if (goes_on) {
            machine_ += line.substr(1) + '\n';
            in_machine_ = true;
        } else if (line.empty() || line[0] == '#') {
            comment_ = line.size() > 2 ? line.substr(2) : "";
        } else if (line.starts_with("machine: ")) {
            end_run();
            machine_ = line.substr(9) + '\n';
            in_machine_ = true;
        } else if (line.substr(digits, 1) == "$") {
            end_run();
            run_ = {number_, comment_, machine_, line.substr(digits + 1), digits == 0 ? 0 : std::stoi(line), {}};
            comment_.clear();
            if (!shell_words(run_.command)) throw wrong(number_, "a quote or a backslash without its end");
            begun_ = true;
            if (!has_hole()) cases_.push_back(run_);
        } else if (line[0] == '@') {
            take_row(line);
        } else if (!take_expectation(line)) {
            throw wrong(number_, "neither a machine nor a run nor what comes of one");
        }
    }

    void take_row(const std::string &line) {
        const size_t arrow = line.find(" =>");
        if (!begun_ || !has_hole()) throw wrong(number_, "no run with a @ above");
        if (arrow == line.npos) throw wrong(number_, "@TEXT => EXPECTED");
        const std::string hole = line.substr(1, arrow - 1);
        std::string rest = line.substr(std::min(line.size(), arrow + 4));
        const std::string name = run_.name.empty() ? hole : run_.name + ": " + hole;
        cases_.push_back({number_,
                          comment_.empty() ? name : comment_,
                          filled(run_.machine, hole),
                          filled(run_.command, hole),
                          0,
                          {}});
        comment_.clear();
        rows_ = true;
        const size_t digits = std::min(rest.find_first_not_of("0123456789"), rest.size());
        if (digits > 0) cases_.back().status = std::stoi(rest);
        rest.erase(0, digits);
        if (!rest.empty() && !take_expectation(rest)) throw wrong(number_, "unknown mark of what is expected");
    }

    bool take_expectation(const std::string &line) {
        const bool escaped = line[0] == '%';
        const char mark = escaped ? line.substr(1, 1)[0] : line[0];
        if (marks.find(mark) == marks.npos || mark == '\0') return false;
        if (!begun_ || (has_hole() && !rows_)) throw wrong(number_, "no run above");
        cases_.back().expected[mark] += escaped ? unescaped(line.substr(2), number_) : line.substr(1) + '\n';
        return true;
    }

    bool has_hole() const { return (run_.command + run_.machine).find('@') != std::string::npos; }

    void end_run() {
        if (begun_ && has_hole() && !rows_) throw wrong(run_.line, "no line fills the @");
        begun_ = rows_ = false;
    }

    std::vector<test_case> cases_;
    std::string machine_ = "empty.json\n", comment_;
    test_case run_;  // the last one, before its holes are filled
    bool begun_ = false, rows_ = false, in_machine_ = false;
    int number_ = 0;
};
