// tests/cases_test.cpp - runs of whole commands, compared with transcripts.
//
// Each file of tests/cases holds the runs of one command, machine.case those of ventix-machine; case_file.h documents
// the form. A run is the test Cases.FILE/NAME.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <set>

#include "case_file.h"
#include "run_ventix.h"

namespace {

namespace fs = std::filesystem;

constexpr char machines_directory[] = VENTIX_SOURCE_DIR "/tests/machines/";
constexpr char demo_machine[] = VENTIX_SOURCE_DIR "/machines/demo.json";

// ---- comparing ------------------------------------------------------------------------------------------------------

bool line_matches(const std::string &pattern, const std::string &line) {
    return covers(pattern, line, '*', std::equal_to<>());
}

bool log_matches(const std::vector<std::string> &patterns, const std::vector<std::string> &log) {
    return covers(patterns, log, "...", line_matches);
}

// Compares line by line; an expected line ... matches any lines.
void expect_text(const char *what, const std::string &expected, const std::string &actual) {
    if (("\n" + expected).find("\n...\n") != std::string::npos &&
        covers(lines_of(expected), lines_of(actual), "...", std::equal_to<>()))
        return;
    // The beginning is enough for a run that does not stop writing.
    EXPECT_EQ(expected, actual.substr(0, expected.size() + 10000)) << what;
}

void expect_calls(const std::string &expected, const std::string &actual) {
    const auto patterns = lines_of(expected), log = lines_of(actual);
    if (log_matches(patterns, log)) return;
    // Each pattern becomes the line that it matches, so that the difference shows the other lines.
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
    for (const auto &text : lines_of(expected)) {
        at = saved.find(text, at);
        ASSERT_NE(at, saved.npos) << "not in the saved machine, after the texts above: " << text << '\n' << saved;
        at += text.size();
    }
}

// ---- on a running machine -------------------------------------------------------------------------------------------

// Whether the runs are made on a running machine, one for each: VENTIX_TEST_ATTACHED is set.
bool runs_attached() { return std::getenv("VENTIX_TEST_ATTACHED") != nullptr; }

// What exists in one process only: the live machine, a clock that does not run, the ends that wait for nobody else, a
// bad machine, and what the environment says of a machine of the run's own. A device that lists a class at every index
// takes longer than a run may: half a million exchanges. So does the one device that answers after a minute of a real
// clock. An answer that is late by a millisecond may be in time here.
bool can_attach(const test_case &test) {
    const auto has = [](const std::string &text, const char *part) { return text.find(part) != text.npos; };
    const auto saved = test.expected.find('&');
    return test.machine != "live\n" && !has(test.machine, "\"delay\": 5001") && !has(test.machine, "\"self\"") &&
           !has(test.machine, "{\"0x20C00\": {\"value\"") && test.status != 124 && test.status != 125 &&
           !has(test.command, "VENTIX_") && !has(test.command, " slow ") &&
           (saved == test.expected.end() || !has(saved->second, "\"tick\""));
}

// The rows of a listing without what an attached run changes: its own row and the sums with it, the ports and the time.
std::vector<std::string> without_own(const std::string &text) {
    std::vector<std::string> kept;
    for (const auto &line : lines_of(text)) {
        std::istringstream words(line);
        std::string joined;
        for (std::string word; words >> word;) joined += (word == "`--" ? "|--" : word) + ' ';
        const auto has = [&](const char *part) { return joined.find(part) != joined.npos; };
        const bool sums = joined.find_first_not_of("0123456789k -|+") == joined.npos || has("Total: ");
        if (!sums && !has("000000000010000") && !has("{ 10485") && !has(" msec ")) kept.push_back(joined);
    }
    return kept;
}

// A call log without handles and addresses, which an attached run has others of.
std::string without_handles(std::string log) {
    for (const char *begin : {"0x1000", "0x40000000000000", "0x7ea"}) {
        for (size_t at = 0; (at = log.find(begin, at)) != log.npos;) {
            log.replace(at, log.find_first_not_of("0123456789abcdefx", at) - at, "*");
        }
    }
    return log;
}

// Whether a call log shows the task of the run, which is another one in an attached run: by a walk, or by its handle in
// a file that lists it.
bool shows_own_task(const std::string &log) {
    return log.find("_SL_StepIterator") != log.npos || log.find("_SL_GetState(0x2) = 0x10\n") != log.npos;
}

void expect_attached_text(const char *what, const std::string &expected, const std::string &actual) {
    const auto same = [](const std::string &pattern, const std::string &line) { return pattern == line; };
    if (!covers(without_own(expected), without_own(actual), "... ", same)) {
        EXPECT_EQ(expected, actual) << what;
    }
}

// ---- running --------------------------------------------------------------------------------------------------------

// Copies the machine into the directory of the run. Returns its name there.
std::string place_machine(const std::string &machine, const scratch_directory &directory) {
    const std::string name = machine.substr(0, machine.size() - 1);
    if (name == "live") return name;
    if (!name.ends_with(".json") && name != "demo") return directory.write("machine.json", machine), "machine.json";
    const fs::path source = name == "demo" ? fs::path(demo_machine) : fs::path(machines_directory + name);
    fs::copy_file(source, directory.file(source.filename()));
    return source.filename();
}

void run_case(const test_case &test, const fs::path &program) {
    const auto expected = [&test](char mark) {
        const auto found = test.expected.find(mark);
        return found == test.expected.end() ? "" : found->second;
    };
    const auto is_setting = [](const std::string &word) {
        return word.find('=') != word.npos && word.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZ_") == word.find('=');
    };
    const scratch_directory directory;
    ventix_run run;
    run.arguments = shell_words(test.command).value();
    while (!run.arguments.empty() && is_setting(run.arguments.front())) {
        run.environment.push_back(run.arguments.front());
        run.arguments.erase(run.arguments.begin());
    }
    if (!run.arguments.empty() && run.arguments.back().starts_with(">/")) {
        run.output_file = run.arguments.back().substr(1);
        run.arguments.pop_back();
    }
    run.machine = place_machine(test.machine, directory);
    run.directory = directory.path();
    run.program = program;
    if (!program.empty()) {  // commands that it starts find the programs
        run.environment.push_back("PATH=" + fs::path(ventix_program()).parent_path().string() + ":/usr/bin:/bin");
    }
    if (test.expected.contains('*')) run.environment.push_back("VENTIX_CALL_LOG=calls.log");
    if (test.expected.contains('&')) run.environment.push_back("VENTIX_MACHINE_SAVE=saved.json");

    const bool attached = runs_attached() && program.empty() && can_attach(test);
    if (attached) {
        std::vector<std::string> words = {"run", "--socket", "socket", run.machine, "--", ventix_program()};
        if (test.expected.contains('&')) words.insert(words.begin() + 1, {"--save", "saved.json"});
        run.arguments.insert(run.arguments.begin(), words.begin(), words.end());
        run.program = fs::path(ventix_program()).replace_filename("ventix-machine");
    }

    const ventix_result result = run_ventix(run);
    EXPECT_EQ(result.status, test.status);
    if (attached && run.output_file.empty()) {
        expect_attached_text("standard output", expected('|'), result.output);
        expect_text("standard error", expected('!'), result.diagnostics);
        if (test.expected.contains('&')) expect_saved(expected('&'), read_file(directory.file("saved.json")));
        if (test.expected.contains('*') && !shows_own_task(expected('*'))) {
            expect_calls(without_handles(expected('*')), without_handles(read_file(directory.file("calls.log"))));
        }
        return;
    }
    if (run.output_file.empty()) expect_text("standard output", expected('|'), result.output);
    expect_text("standard error", expected('!'), result.diagnostics);
    if (test.expected.contains('*')) expect_calls(expected('*'), read_file(directory.file("calls.log")));
    if (test.expected.contains('&')) expect_saved(expected('&'), read_file(directory.file("saved.json")));
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
    fs::path program;
    if (command == "machine") program = fs::path(ventix_program()).replace_filename("ventix-machine");
    std::set<std::string> names;
    try {
        for (const auto &test : case_reader().read(read_file(path))) {
            std::string name = test.name.empty() ? test.command.substr(test.command.starts_with(' ')) : test.name;
            if (!names.insert(name).second) name += " (line " + std::to_string(test.line) + ')';
            add_test(command + '/' + name, file, test.line, [test, file, program] {
                const testing::ScopedTrace trace(file.c_str(), test.line, '$' + test.command + "\non " + test.machine);
                run_case(test, program);
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

// ---- tests of the form
// -------------------------------------------------------------------------------------------------

TEST(CaseFiles, CallLogsArePatterns) {
    struct row {
        std::vector<std::string> patterns, log;
        bool match;
    };
    const row rows[] = {
        {{}, {"a"}, false},
        {{"a", "..."}, {}, false},
        {{"..."}, {}, true},
        {{"...", "a(*) = 0"}, {"a(1) = 0", "b", "a(2) = 0"}, true},
        {{"...", "a(*) = 0"}, {"a(1) = 0", "b"}, false},
        {{"a(*)", "b"}, {"a(1) x", "b"}, false},
        {{"...", "a", "b", "..."}, {"a", "a", "b"}, true},
        {{"*b*c"}, {"abcbc"}, true},
    };
    for (const auto &[patterns, log, match] : rows)
        EXPECT_EQ(log_matches(patterns, log), match) << testing::PrintToString(patterns);
}

TEST(CaseFiles, MistakesAreReportedWithTheirLine) {
    const std::pair<const char *, const char *> rows[] = {
        {"run: x\n", "line 1: neither a machine nor a run nor what comes of one"},
        {"\n|text\n", "line 2: no run above"},
        {"$ 'x\n", "line 1: a quote or a backslash without its end"},
        {"$ x\\\n", "line 1: a quote or a backslash without its end"},
        {"$ x\n%|\\q\n", "line 2: unknown escape"},
        {"$ @\n$ x\n", "line 1: no line fills the @"},
        {"$ x\n@a => 1\n", "line 2: no run with a @ above"},
        {"$ @\n@a\n", "line 2: @TEXT => EXPECTED"},
        {"machine: {\n  }\n|x\n", "line 3: no run above"},
    };
    for (const auto &[text, message] : rows) {
        try {
            case_reader().read(text);
            ADD_FAILURE() << "accepted: " << text;
        } catch (const std::exception &error) {
            EXPECT_STREQ(error.what(), message);
        }
    }
    EXPECT_EQ(shell_words(R"(a 'b "c' "d \" \e" \'f '')"),
              (std::vector<std::string>{"a", "b \"c", "d \" \\e", "'f", ""}));
}

}  // namespace
