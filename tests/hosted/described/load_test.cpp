// Machine files as text: what is refused, and that a saved machine is the machine that was loaded.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "hosted/described/load.h"
#include "hosted/described/save.h"
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

// A registry of directories within one another.
std::string nested(size_t levels) {
    return R"({"registry": )" + repeated(R"({"d": {"dir": )", levels) + "{}" + repeated("}}", levels) + "}";
}

TEST(Load, NamesThePlaceOfWhatIsWrong) {
    std::vector<std::pair<std::string, std::string>> cases = {
        {"", "1:1: unexpected end of input; expected '[', '{', or a literal"},
        {"{\n  \"tick\": 1,\n}", "3:1: unexpected '}'; expected string literal"},
        {"{\"a\": \"\xFF\"}", "1:8: invalid string: ill-formed UTF-8 byte"},
        {"{\"a\": \"\n\"}", "1:8: invalid string: control character U+000A (LF) must be escaped to \\u000A or \\n"},
    };
    std::ifstream file(VENTIX_SOURCE_DIR "/tests/hosted/described/refused.txt");  // a machine, then its message
    for (std::string text, message; getline(file, text) && getline(file >> std::ws, message);)
        cases.emplace_back(text, message);
    EXPECT_GT(cases.size(), 60U);
    for (const auto &[text, message] : cases) EXPECT_EQ(complaint(text), message) << text;
}

// The place stays one line that a person can read, and finding a key given twice costs no more than reading the keys.
TEST(Load, BoundsItsMessagesAndItsWork) {
    EXPECT_EQ(complaint("{\"" + std::string(100, 'k') + "\": 1}"), std::string(64, 'k') + "...: unknown key");
    EXPECT_EQ(complaint(R"({"a\nb": 1})"), "a?b: unknown key");
    EXPECT_EQ(complaint({"{}\n\0x", 5}), "2:1: unexpected NUL; expected end of input");
    std::string many = R"({"registry": {)";
    for (int i = 0; i < 100'000; ++i) many += "\"key" + std::to_string(i) + "\": 1, ";
    EXPECT_EQ(complaint(many + "\"key99999\": 2}}"), "registry.key99999: given twice");
    const std::string deep = R"({"registry": )" + repeated(R"({"d": {"dir": )", 1000);
    EXPECT_EQ(complaint(deep + "5" + repeated("}}", 1000) + "}"),
              "registry" + repeated(".d.dir", 5) + ".d..." + repeated(".d.dir", 6) + ": expected an object");
}

TEST(Load, BearsAnyDepth) {
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

// The one is written by hand in the very form of a saved machine: every key, and the order of everything that is
// walked. The other is written for people: comments, hexadecimal numbers, several values on a line.
TEST(Save, LoadsAsTheSameMachine) {
    for (const char *file : {"/tests/machines/everything.json", "/machines/demo.json"}) {
        const std::string machine = read_file(std::string(VENTIX_SOURCE_DIR) + file);
        machine_records records, again;
        std::string message;
        ASSERT_TRUE(load(machine, records, message)) << message;
        const std::string saved = machine_text(records);
        EXPECT_EQ(saved == machine, file[1] == 't');
        ASSERT_TRUE(load(saved, again, message)) << message;
        EXPECT_EQ(machine_text(again), saved);
    }
}

}  // namespace
