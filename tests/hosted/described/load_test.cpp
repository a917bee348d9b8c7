// tests/hosted/described/load_test.cpp - machine files as text: messages for bad ones, and a saved machine loads as the
// same machine.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "hosted/described/format.h"
#include "hosted/described/names.h"
#include "run_ventix.h"

namespace {

using hosted::described::load;
using hosted::described::machine_records;
using hosted::described::machine_text;

std::string complaint(const std::string &text) {
    machine_records records;
    std::string message;
    return load(text, records, message) ? "none" : message;
}

std::string repeated(const std::string &text, size_t times) {
    std::string all;
    for (size_t i = 0; i < times; ++i) all += text;
    return all;
}

// A registry of nested directories.
std::string nested(size_t levels) {
    return R"({"registry": )" + repeated(R"({"d": {"dir": )", levels) + "{}" + repeated("}}", levels) + "}";
}

// Each row of refused.txt is MACHINE => LINE, the first line that a check prints; further lines follow it. A load fails
// with one of them, without its place in the file and what may follow a semicolon.
TEST(Check, ReportsAllThatIsWrong) {
    const scratch_directory scratch;
    std::vector<std::string> files = {"check"};
    std::vector<std::pair<std::string, std::vector<std::string>>> rows;
    std::ifstream file(VENTIX_SOURCE_DIR "/tests/hosted/described/refused.txt");
    for (std::string line; getline(file, line);) {
        const size_t arrow = line.find(" => ");
        if (arrow == line.npos) {
            rows.back().second.push_back(line.substr(4));
        } else {
            rows.emplace_back(line.substr(0, arrow), std::vector{line.substr(arrow + 4)});
            files.push_back(std::to_string(rows.size()) + ".json");
            scratch.write(files.back(), rows.back().first);
        }
    }
    EXPECT_GT(rows.size(), 70U);
    std::string expected;
    for (size_t i = 0; i < rows.size(); ++i) {
        const auto &[text, lines] = rows[i];
        const std::string message = complaint(text);
        const auto holds = [&](const std::string &line) {
            const size_t at = line.find(message);
            return at != line.npos && (at + message.size() == line.size() || line[at + message.size()] == ';');
        };
        EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), holds)) << text << '\n' << message;
        for (const auto &line : lines) expected += files[i + 1] + ':' + line + '\n';
    }
    const auto program = std::filesystem::path(ventix_program()).replace_filename("ventix-machine");
    const auto run = run_ventix({.arguments = files, .directory = scratch.path(), .program = program});
    EXPECT_EQ(run.output, expected);
    EXPECT_EQ(run.diagnostics, "");
    EXPECT_EQ(run.status, 1);
}

// The place in a message stays one readable line, and finding a key given twice takes linear time.
TEST(Load, BoundsItsMessagesAndItsWork) {
    EXPECT_EQ(complaint("{\"" + std::string(100, 'k') + "\": 1}"), std::string(64, 'k') + "...: unknown key");
    EXPECT_EQ(complaint(R"({"a\nb": 1})"), "a?b: unknown key");
    EXPECT_EQ(complaint({"{}\n\0x", 5}), "2:1: unexpected NUL; expected end of input");
    EXPECT_EQ(complaint("{\"a\": \"\xFF\"}"), "1:8: invalid string: ill-formed UTF-8 byte");
    EXPECT_EQ(complaint(repeated("[", size_t{2} << 20)), "1:1048577: nested too deep");
    std::string many = R"({"registry": {)";
    for (int i = 0; i < 100'000; ++i) many += "\"key" + std::to_string(i) + "\": 1, ";
    EXPECT_EQ(complaint(many + "\"key99999\": 2}}"), "registry.key99999: given twice");
    const std::string deep = R"({"registry": )" + repeated(R"({"d": {"dir": )", 1000);
    EXPECT_EQ(complaint(deep + "5" + repeated("}}", 1000) + "}"),
              "registry" + repeated(".d.dir", 5) + ".d..." + repeated(".d.dir", 6) + ": expected an object");
}

TEST(Load, AcceptsAnyDepth) {
    for (const size_t levels : {1'000U, 50'000U}) {
        machine_records records;
        std::string message;
        ASSERT_TRUE(load(nested(levels), records, message)) << message;
        machine_records again;
        ASSERT_TRUE(load(machine_text(records), again, message)) << message;
    }
    EXPECT_EQ(complaint(repeated("[", 50'000)).substr(0, 7), "1:50001");
    EXPECT_EQ(complaint(repeated("[", 50'000) + repeated("]", 50'000)), "expected an object");
    EXPECT_EQ(complaint(R"({"registry": {"a": )" + repeated(R"({"unreadable": )", 50'000) + "1" +
                        repeated("}", 50'000) + "}}"),
              "none");
}

// everything.json has every key and the exact form of a saved machine. The others are written for people.
TEST(Save, LoadsAsTheSameMachine) {
    for (const char *folder : {"/tests/machines", "/machines"}) {
        for (const auto &file : std::filesystem::directory_iterator(VENTIX_SOURCE_DIR + std::string(folder))) {
            SCOPED_TRACE(file.path());
            const std::string machine = read_file(file.path());
            machine_records records, again;
            std::string message;
            ASSERT_TRUE(load(machine, records, message)) << message;
            const std::string saved = machine_text(records);
            if (file.path().stem() == "everything") {
                EXPECT_EQ(saved, machine);
            }
            ASSERT_TRUE(load(saved, again, message)) << message;
            EXPECT_EQ(machine_text(again), saved);
        }
    }
}

// A run changes only the lines of what it changed: for each run, the lines that come and those that go.
TEST(Save, ShowsOnlyWhatChanged) {
    const scratch_directory scratch;
    const auto saved_by = [&](const std::string &machine, std::vector<std::string> arguments) {
        const std::string saved = scratch.file(arguments[0]);
        run_ventix(
            {.arguments = std::move(arguments), .environment = {"VENTIX_MACHINE_SAVE=" + saved}, .machine = machine});
        return saved;
    };
    const auto sorted_lines = [](const std::string &path) {
        std::ifstream file(path);
        std::multiset<std::string> lines;
        for (std::string line; getline(file, line);) lines.insert(line);
        return lines;
    };
    const std::string before = saved_by(VENTIX_SOURCE_DIR "/machines/demo.json", {"uptime"});
    for (const auto &[arguments, changed] :
         {std::pair(std::vector<std::string>{"sendlog", "x"}, 1), {{"tprop", "prior", "-s", "77", "shell"}, 2}}) {
        const auto old_lines = sorted_lines(before), new_lines = sorted_lines(saved_by(before, arguments));
        std::vector<std::string> different;
        std::set_symmetric_difference(old_lines.begin(), old_lines.end(), new_lines.begin(), new_lines.end(),
                                      std::back_inserter(different));
        EXPECT_EQ(different.size(), changed) << testing::PrintToString(different);
    }
}

// ---- the tables -----------------------------------------------------------------------------------------------------

TEST(Tables, MakeTheSchema) {
    const auto run = run_ventix({.program = VENTIX_PROGRAMS "/ventix_schema"});
    EXPECT_EQ(run.output, read_file(VENTIX_SOURCE_DIR "/docs/machine.schema.json")) << "./dev schema makes it";
}

}  // namespace
