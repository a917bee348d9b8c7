// Whole runs as data: each tests/cases/*.case holds the runs of one command, each run a machine, the arguments, and all
// that must come of it. A case becomes the test Cases.COMMAND/TITLE. The form:
//
//   === title                      begins a case
//   machine: FILE                  below tests/machines, or demo; or a block. Without it the machine is empty
//   run: task -n --sort '1,desc'   the arguments; quotes and backslashes as in a shell
//   env: NAME=VALUE                repeatable
//   output: /dev/full              standard output goes to this file, and is compared no more
//   status: 1                      0 unless given
//   stdout: stderr: calls: saved:
//                                  blocks: the key alone, then lines that begin with | (the rest and a line feed) or
//                                  % (the same with the escapes \n \t \r \\ \xHH, and no line feed of its own)
//   # comment
//
// What is not given of stdout and stderr must be empty. `calls` is the whole call log: `*` stands for any characters of
// a line, a line `...` for any lines. `saved` lists texts that the saved machine must hold in this order. The run has a
// directory of its own, with the machine in it under its own name (a block: machine.json).
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <sstream>
#include <stdexcept>

#include "run_ventix.h"
#include "shell_words.h"

namespace {

namespace fs = std::filesystem;

constexpr char machines_directory[] = VENTIX_SOURCE_DIR "/tests/machines/";
constexpr char demo_machine[] = VENTIX_SOURCE_DIR "/machines/demo.json";

struct test_case {
    int line = 0;  // of its title
    std::string title;
    std::map<std::string, std::string> fields;  // by key; blocks joined
    std::vector<std::string> environment;
    bool machine_is_block = false;
};

// ---- reading --------------------------------------------------------------------------------------------------------

std::runtime_error wrong(int line, const std::string &what) {
    return std::runtime_error("line " + std::to_string(line) + ": " + what);
}

std::vector<std::string> lines_of(const std::string &text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

std::string trimmed(const std::string &text) {
    const size_t begin = text.find_first_not_of(" \t");
    return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(" \t") + 1 - begin);
}

std::string unescaped(const std::string &text, int line) {
    std::string result;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\') {
            result += text[i];
            continue;
        }
        const char kind = ++i < text.size() ? text[i] : '\0';
        switch (kind) {
        case 'n': result += '\n'; break;
        case 't': result += '\t'; break;
        case 'r': result += '\r'; break;
        case '\\': result += '\\'; break;
        case 'x': {
            const std::string digits = text.substr(i + 1, 2);
            if (digits.size() < 2 || digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
                throw wrong(line, "two hexadecimal digits expected behind \\x");
            result += static_cast<char>(std::stoi(digits, nullptr, 16));
            i += 2;
            break;
        }
        default: throw wrong(line, "unknown escape");
        }
    }
    return result;
}

std::vector<test_case> read_cases(const std::string &text) {
    static const std::vector<std::string> single = {"machine", "run", "output", "status"};
    static const std::vector<std::string> blocks = {"machine", "stdout", "stderr", "calls", "saved"};
    const auto among = [](const std::vector<std::string> &keys, const std::string &key) {
        return std::find(keys.begin(), keys.end(), key) != keys.end();
    };

    std::vector<test_case> cases;
    std::string *block = nullptr;  // the one that is being read
    int number = 0;
    for (const auto &line : lines_of(text)) {
        ++number;
        if (line.starts_with("=== ")) {
            const std::string title = trimmed(line.substr(4));
            for (const auto &other : cases) {
                if (other.title == title) throw wrong(number, "the title stands twice");
            }
            cases.push_back({.line = number, .title = title, .fields = {}, .environment = {}});
            block = nullptr;
            continue;
        }
        if (line.starts_with('#') || trimmed(line).empty()) continue;
        if (cases.empty()) throw wrong(number, "a case begins with === and its title");
        if (line[0] == '|' || line[0] == '%') {
            if (!block) throw wrong(number, "no block was begun");
            *block += line[0] == '|' ? line.substr(1) + '\n' : unescaped(line.substr(1), number);
            continue;
        }
        const size_t colon = line.find(':');
        if (colon == std::string::npos) throw wrong(number, "KEY: VALUE expected");
        test_case &test = cases.back();
        const std::string key = line.substr(0, colon);
        const std::string value = trimmed(line.substr(colon + 1));
        block = nullptr;
        if (key == "env") {
            test.environment.push_back(value);
            continue;
        }
        const bool is_block = value.empty() && among(blocks, key);
        if (!is_block && !among(single, key)) throw wrong(number, "unknown key, or one that takes a block: " + key);
        if (test.fields.contains(key)) throw wrong(number, "given twice: " + key);
        test.fields[key] = value;
        if (key == "run" && !shell_words(value)) throw wrong(number, "a quote or a backslash without its end");
        if (!is_block) continue;
        block = &test.fields[key];
        if (key == "machine") test.machine_is_block = true;
    }
    for (const auto &test : cases) {
        if (!test.fields.contains("run")) throw wrong(test.line, "the case has no run");
    }
    return cases;
}

// ---- comparing ------------------------------------------------------------------------------------------------------

void expect_text(const char *what, const std::string &expected, const std::string &actual) {
    // Of a run that does not stop writing, the beginning tells enough.
    EXPECT_EQ(expected, actual.substr(0, expected.size() + 10000)) << what;
}

// Whether a pattern covers a text from its first element to its last; a gap in it stands for any elements.
template <class Pattern, class Text, class Gap, class Same>
bool covers(const Pattern &pattern, const Text &text, const Gap &gap, Same same) {
    size_t p = 0, t = 0, behind_gap = 0, resume = 0;  // the last gap passed, and the text tried behind it
    while (t < text.size()) {
        if (p < pattern.size() && pattern[p] == gap) {
            behind_gap = ++p;
            resume = t;
        } else if (p < pattern.size() && same(pattern[p], text[t])) {
            ++p, ++t;
        } else if (behind_gap != 0) {
            p = behind_gap;
            t = ++resume;
        } else {
            return false;
        }
    }
    return std::all_of(pattern.begin() + static_cast<std::ptrdiff_t>(p), pattern.end(),
                       [&](const auto &left) { return left == gap; });
}

bool line_matches(const std::string &pattern, const std::string &line) {
    return covers(pattern, line, '*', std::equal_to<>());
}

bool log_matches(const std::vector<std::string> &patterns, const std::vector<std::string> &log) {
    return covers(patterns, log, "...", line_matches);
}

void expect_calls(const std::string &expected, const std::string &actual) {
    const auto patterns = lines_of(expected), log = lines_of(actual);
    if (log_matches(patterns, log)) return;
    // Patterns become the lines that they may stand for, so that the difference shows the others.
    std::string shown;
    auto from = log.begin();
    for (const auto &pattern : patterns) {
        const auto same = [&pattern](const std::string &line) { return line_matches(pattern, line); };
        const auto found = std::find_if(from, log.end(), same);
        if (found != log.end()) from = found + 1;
        shown += (found != log.end() ? *found : pattern) + '\n';
    }
    expect_text("kernel calls", shown, actual);
}

void expect_saved(const std::string &expected, const std::string &saved) {
    size_t at = 0;
    for (const auto &line : lines_of(expected)) {
        const std::string text = trimmed(line);
        at = saved.find(text, at);
        ASSERT_NE(at, saved.npos) << "not in the saved machine, behind the texts above it: " << text << '\n' << saved;
        at += text.size();
    }
}

// ---- running --------------------------------------------------------------------------------------------------------

// Puts the machine into the directory of the run. Gives its name there.
std::string place_machine(const test_case &test, const scratch_directory &directory) {
    const auto field = test.fields.find("machine");
    if (test.machine_is_block) return directory.write("machine.json", field->second), "machine.json";
    const std::string name = field == test.fields.end() ? "empty.json" : field->second;
    const fs::path source = name == "demo" ? fs::path(demo_machine) : fs::path(machines_directory + name);
    fs::copy_file(source, directory.file(source.filename()));
    return source.filename();
}

void run_case(const test_case &test) {
    const auto field = [&test](const char *key) -> std::string {
        const auto found = test.fields.find(key);
        return found == test.fields.end() ? "" : found->second;
    };
    const scratch_directory directory;
    ventix_run run;
    run.arguments = shell_words(field("run")).value();
    run.environment = test.environment;
    run.machine = place_machine(test, directory);
    run.directory = directory.path();
    run.output_file = field("output");
    if (test.fields.contains("calls")) run.environment.push_back("VENTIX_CALL_LOG=calls.log");
    if (test.fields.contains("saved")) run.environment.push_back("VENTIX_MACHINE_SAVE=saved.json");

    const ventix_result result = run_ventix(run);
    const int status = test.fields.contains("status") ? std::stoi(field("status")) : 0;
    EXPECT_EQ(result.status, status);
    if (!test.fields.contains("output")) expect_text("standard output", field("stdout"), result.output);
    expect_text("standard error", field("stderr"), result.diagnostics);
    if (test.fields.contains("calls")) expect_calls(field("calls"), read_file(directory.file("calls.log")));
    if (test.fields.contains("saved")) expect_saved(field("saved"), read_file(directory.file("saved.json")));
}

// ---- making the tests -----------------------------------------------------------------------------------------------

class case_test : public testing::Test {
public:
    explicit case_test(std::function<void()> body) : body_(std::move(body)) {}
    void TestBody() override { body_(); }

private:
    std::function<void()> body_;
};

void add_test(const std::string &name, const std::string &file, int line, std::function<void()> body) {
    testing::RegisterTest("Cases", name.c_str(), nullptr, nullptr, file.c_str(), line,
                          [body = std::move(body)]() -> testing::Test * { return new case_test(body); });
}

void add_file(const fs::path &path) {
    const std::string command = path.stem(), file = "tests/cases/" + path.filename().string();
    try {
        for (const auto &test : read_cases(read_file(path))) {
            add_test(command + '/' + test.title, file, test.line, [test, file] {
                const testing::ScopedTrace trace(file.c_str(), test.line, test.fields.at("run"));
                run_case(test);
            });
        }
    } catch (const std::exception &error) {
        const std::string what = error.what();
        add_test(command, file, 1, [file, what] { ADD_FAILURE() << file << ": " << what; });
    }
}

[[maybe_unused]] const bool added = [] {
    std::vector<fs::path> files;
    for (const auto &entry : fs::directory_iterator(VENTIX_SOURCE_DIR "/tests/cases")) {
        if (entry.path().extension() == ".case") files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());
    for (const auto &file : files) add_file(file);
    return true;
}();

// ---- the form's own test --------------------------------------------------------------------------------------------

TEST(CaseFiles, CallLogsArePatterns) {
    struct row {
        std::vector<std::string> patterns, log;
        bool match;
    };
    const row rows[] = {
        {{}, {}, true},
        {{}, {"a"}, false},
        {{"a"}, {}, false},
        {{"..."}, {}, true},
        {{"...", "a(*) = 0", "..."}, {"b", "a(1, 2) = 0", "c"}, true},
        {{"...", "a(*) = 0"}, {"a(1) = 0", "b", "a(2) = 0"}, true},
        {{"...", "a(*) = 0"}, {"a(1) = 0", "b"}, false},
        {{"a(*)", "b"}, {"a(1) x", "b"}, false},
        {{"...", "a", "b", "..."}, {"a", "a", "b"}, true},
        {{"*b*c"}, {"abcbd"}, false},
        {{"*b*c"}, {"abcbc"}, true},
    };
    for (const auto &[patterns, log, match] : rows)
        EXPECT_EQ(log_matches(patterns, log), match) << testing::PrintToString(patterns);
}

TEST(CaseFiles, SlipsAreFoundWhereTheyStand) {
    const std::pair<const char *, const char *> rows[] = {
        {"run: x\n", "line 1: a case begins with === and its title"},
        {"=== a\nstatus: 1\n", "line 1: the case has no run"},
        {"=== a\nrun: x\n=== a\nrun: x\n", "line 3: the title stands twice"},
        {"=== a\nrun: x\n\n|text\n", "line 4: no block was begun"},
        {"=== a\nrun: 'x\n", "line 2: a quote or a backslash without its end"},
        {"=== a\nrun: x\\\n", "line 2: a quote or a backslash without its end"},
        {"=== a\nrun: x\nstdout: text\n", "line 3: unknown key, or one that takes a block: stdout"},
        {"=== a\nrun: x\nstderr:\n|y\nstderr:\n", "line 5: given twice: stderr"},
        {"=== a\nrun: x\nstdout:\n%\\q\n", "line 4: unknown escape"},
    };
    for (const auto &[text, message] : rows) {
        try {
            read_cases(text);
            ADD_FAILURE() << "accepted: " << text;
        } catch (const std::exception &error) {
            EXPECT_STREQ(error.what(), message);
        }
    }
    EXPECT_EQ(shell_words(R"(a 'b "c' "d \" \e" \'f '')"),
              (std::vector<std::string>{"a", "b \"c", "d \" \\e", "'f", ""}));
}

}  // namespace
