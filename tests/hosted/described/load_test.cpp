// Machine files as text: what is refused, and that a saved machine is the machine that was loaded.
#include <gtest/gtest.h>

#include <string>

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

// A registry of directories within one another, with or without its end.
std::string nested(size_t levels, bool complete = true) {
    std::string text = R"({"registry": )" + repeated(R"({"d": {"dir": )", levels) + "{}";
    return complete ? text + repeated("}}", levels) + "}" : text;
}

TEST(Load, RefusesWhatIsNoJson) {
    const struct {
        const char *text;
        const char *message;
    } cases[] = {
        {"", "1:1: unexpected end of input; expected '[', '{', or a literal"},
        {"{\n  \"tick\": 1,\n}", "3:1: unexpected '}'; expected string literal"},
        {"{\"tick\": tru }", "1:13: invalid literal"},
        {"{\"tick\" 1}", "1:9: unexpected number literal; expected ':'"},
        {"{} {}", "1:4: unexpected '{'; expected end of input"},
        {"{\"a\": \"open", "1:12: invalid string: missing closing quote"},
        {"{\"a\": \"\xFF\"}", "1:8: invalid string: ill-formed UTF-8 byte"},
        {"{\"a\": \"\n\"}", "1:8: invalid string: control character U+000A (LF) must be escaped to \\u000A or \\n"},
        {"/* open", "1:8: invalid comment; missing closing '*/'"},
        {"{\"tick\": 1e999}", "1:14: number overflow parsing '1e999'"},
    };
    for (const auto &[text, message] : cases) EXPECT_EQ(complaint(text), message) << text;
}

TEST(Load, NamesThePlaceOfABadValue) {
    const struct {
        const char *text;
        const char *message;
    } cases[] = {
        {"7", "expected an object"},
        {R"({"tik": 1})", "tik: unknown key"},
        {R"({"tick": 1, "tick": 2})", "tick: given twice"},
        {R"({"tick": 1.5})", "tick: expected a number"},
        {R"({"tick": "0x10000000000000000"})", "tick: expected a number"},
        {R"({"tick": 18446744073709551616})", "tick: expected a number"},
        {R"({"tick": null})", "tick: expected a number"},
        {R"({"self": {"super": 1}})", "self.super: expected true or false"},
        {R"({"self": {"task": 5, "thread": 5}})", "self.thread: the task has this handle"},
        {R"({"self": {"thread": 5}, "tasks": [{"handle": 5}]})",
         "self.thread: an object of another kind has this handle"},
        {R"({"self": {"task": -1}})", "self.task: no handle of an object"},
        {R"({"state": {"KSTATE_CURRENT_THREAD": 1}})", "state.KSTATE_CURRENT_THREAD: the kernel provides this item"},
        {R"({"state": {"2": 1}})", "state.2: the kernel provides this item"},
        {R"({"state": {"0x64000005": 1}})", "state.0x64000005: the kernel provides this item"},
        {R"({"state": {"TASKINFO_PRIORITY": 1}})", "state.TASKINFO_PRIORITY: unknown item"},
        {R"({"state": {"KSTATE_HANDLE_MANAGER": 1, "20": 1}})", "state.20: given twice"},
        {R"({"system_data": {"KSYSIDX_TRACE": 1}})", "system_data.KSYSIDX_TRACE: expected an object"},
        {R"({"system_data": {"1": [1, {"error": 3, "value": 2}]}})", "system_data.1[1].value: unknown key"},
        {R"({"system_data": {"1": {"KSYSIDX_TRACE_WORDS": 1}}})",
         "system_data.1.KSYSIDX_TRACE_WORDS: expected a number as the key"},
        {R"({"registers": [{"id": 1}]})", R"(registers[0]: "name" is missing)"},
        {R"({"trace": {"words": 5}})", "trace.words: expected a list"},
        {R"({"tasks": [{}]})", R"(tasks[0]: "handle" is missing)"},
        {R"({"tasks": [{"handle": 0}]})", "tasks[0].handle: no handle of an object"},
        {R"({"tasks": [{"handle": "-1"}]})", "tasks[0].handle: no handle of an object"},
        {R"({"tasks": [{"handle": 1}, {"handle": 2}, {"handle": 3, "info": {"TASKINFO_PRIORITY": "high"}}]})",
         "tasks[2].info.TASKINFO_PRIORITY: expected a number"},
        {R"({"tasks": [{"handle": 1, "info": {"0x401": 1, "TASKINFO_PRIORITY": 1}}]})",
         "tasks[0].info.TASKINFO_PRIORITY: given twice"},
        {R"({"tasks": [{"handle": 1, "info": {"PRIORITY": 1}}]})", "tasks[0].info.PRIORITY: unknown item"},
        {R"({"tasks": [{"handle": 1, "info": {"3": {"fail": 1}}}]})", R"(tasks[0].info.3: "error" is missing)"},
        {R"({"tasks": [{"handle": 1, "isrs": [{"handle": 7}]}], "memory_chunks": [{"handle": "0x7"}]})",
         "memory_chunks[0].handle: another object has this handle"},
        {R"({"tasks": [{"handle": 1, "threads": [{"handle": 2, "registers": {"1": [], "0x1": []}}]}]})",
         "tasks[0].threads[0].registers.0x1: given twice"},
        {R"({"tasks": [{"handle": 1, "refuse": {"kill": 5}}]})", "tasks[0].refuse.kill: unknown key"},
        {R"({"tasks": [{"handle": 1, "exceptions": [[1]]}]})", "tasks[0].exceptions[0]: expected a list of 2 numbers"},
        {R"({"tasks": [{"handle": 1, "name": {"hex": "0"}}]})",
         "tasks[0].name.hex: expected pairs of hexadecimal digits"},
        {R"({"tasks": [{"handle": 1, "name": 5}]})", "tasks[0].name: expected a text"},
        {R"({"registry": {"": 1}})", "registry.: a name has 1 to 51 bytes, none of them '/'"},
        {R"({"registry": {"a/b": 1}})", "registry.a/b: a name has 1 to 51 bytes, none of them '/'"},
        {R"({"registry": {"a": {"dir": {"b": {"tmp": 5}}}}})", "registry.a.dir.b.tmp: expected an object"},
        {R"({"registry": {"a": {"dir": {}, "type": 5}}})", "registry.a.dir: unknown key"},
        {R"({"registry": {"a": {}}})", "registry.a: expected the value of a key"},
        {R"({"registry": {"a": {"type": 65536}}})", "registry.a.type: number out of range"},
        {R"({"registry": {"a": true}})", "registry.a: expected the value of a key"},
        {R"({"registry_limits": {"names": 51}})", "registry_limits.names: unknown key"},
        {R"({"registry_requests": {"GET": {}}})", "registry_requests.GET: expected a number as the key"},
        {R"({"devices": [{"name": "a"}, {"name": "a"}]})", "devices[1].name: another device has this name"},
        {R"({"devices": [{"classes": []}]})", R"(devices[0]: "name" is missing)"},
        {R"({"devices": [{"name": "a", "open": "shut"}]})",
         R"(devices[0].open: expected "refuse", "null" or "silent")"},
        {R"({"devices": [{"name": "a", "requests": {"1": {"error": 1, "silent": true}}}]})",
         "devices[0].requests.1: more than one outcome"},
        {R"({"devices": [{"name": "a", "requests": {"1": {"delay": -1}}}]})",
         "devices[0].requests.1.delay: number out of range"},
        {R"({"devices": [{"name": "a", "answers": {"0x100000000": {}}}]})",
         "devices[0].answers.0x100000000: number out of range"},
        {R"({"devices": [{"name": "a", "counters": {"0": [["rx"]]}}]})",
         "devices[0].counters.0[0]: expected a name and a number"},
        {R"({"devices": [{"name": "a", "services": [{"results": [["r", "sockaddr", "10.0.0"]]}]}]})",
         "devices[0].services[0].results[0][2]: expected an address"},
        {R"({"devices": [{"name": "a", "services": [{"args": [["k", "text"]]}]}]})",
         "devices[0].services[0].args[0][1]: expected a number or the name of a type"},
        {R"({"devices": [{"name": "a", "rtc": [2024, 1]}]})", "devices[0].rtc: expected a list of 7 numbers"},
        {R"({"terminals": {"stdin": "0123456789012345678901234567890x"}})", "terminals.stdin: longer than 31 bytes"},
        {R"({"faults": [{"call": "_SL_Sleep", "result": 1}]})", "faults[0].call: no kernel call"},
        {R"({"faults": [{"call": "_SL_Delay"}]})", R"(faults[0]: "result" is missing)"},
        {R"({"faults": [{"call": "_SL_Delay", "result": 1, "nth": 0}]})", "faults[0].nth: calls are counted from 1"},
        {R"({"faults": [{"call": "_SL_Delay", "result": 1, "code": 5}]})",
         "faults[0].code: only _SL_SendMsg has a code"},
    };
    for (const auto &[text, message] : cases) EXPECT_EQ(complaint(text), message) << text;
}

// The place stays one line that a person can read, and finding a key given twice costs no more than reading the keys.
TEST(Load, BoundsItsMessagesAndItsWork) {
    EXPECT_EQ(complaint("{\"" + std::string(100, 'k') + "\": 1}"), std::string(64, 'k') + "...: unknown key");
    EXPECT_EQ(complaint(R"({"a\nb": 1})"), "a?b: unknown key");
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

TEST(Save, LoadsAsTheSameMachine) {
    const std::string machine = read_file(VENTIX_SOURCE_DIR "/tests/machines/everything.json");
    machine_records records, again;
    std::string message;
    ASSERT_TRUE(load(machine, records, message)) << message;
    const std::string saved = machine_text(records);
    // Written by hand in the very form of a saved machine: every key, and the order of everything that is walked.
    EXPECT_EQ(saved, machine);
    ASSERT_TRUE(load(saved, again, message)) << message;
    EXPECT_EQ(machine_text(again), saved);
}

// The demonstration machine is written for people: comments, hexadecimal numbers, several values on a line.
TEST(Save, WritesTheDemonstrationAnew) {
    machine_records records, again;
    std::string message;
    ASSERT_TRUE(load(read_file(VENTIX_SOURCE_DIR "/machines/demo.json"), records, message)) << message;
    const std::string saved = machine_text(records);
    ASSERT_TRUE(load(saved, again, message)) << message;
    EXPECT_EQ(machine_text(again), saved);
}

}  // namespace
