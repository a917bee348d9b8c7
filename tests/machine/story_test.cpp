// tests/machine/story_test.cpp - call logs as people read them; tests/cases/machine.case and the pages show whole ones.
#include "machine/story.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "run_ventix.h"

namespace {

std::string rendered(const std::string &log) {
    char *text = nullptr;
    size_t size = 0;
    std::FILE *const to = open_memstream(&text, &size);
    verbs::render_log(log, to);
    std::fclose(to);
    const std::string result(text, size);
    std::free(text);
    return result;
}

std::string log_of(std::vector<std::string> arguments) {
    const scratch_directory scratch;
    run_ventix({.arguments = std::move(arguments),
                .environment = {"VENTIX_CALL_LOG=" + scratch.file("log")},
                .machine = VENTIX_SOURCE_DIR "/machines/demo.json"});
    return read_file(scratch.file("log"));
}

std::string replaced(std::string text, const std::string &what, const std::string &by) {
    for (size_t at = 0; (at = text.find(what, at)) != text.npos; at += by.size()) text.replace(at, what.size(), by);
    return text;
}

TEST(Trace, RendersTheWholeLinesOfACutLog) {
    const std::string log = log_of({"devping", "eth0"}), whole = rendered(log);
    for (size_t cut = 0, shown = 0; cut <= log.size(); ++cut) {
        if (cut > 0 && log[cut - 1] == '\n') shown = whole.find('\n', shown) + 1;
        ASSERT_EQ(rendered(log.substr(0, cut)), whole.substr(0, shown)) << cut;
    }
}

// Other handles and addresses, as another run has them, change nothing; and no number is left that has a name.
TEST(Trace, DependsOnWhatARunDoes) {
    for (const auto &arguments : std::vector<std::vector<std::string>>{
             {"tview", "shell"}, {"devping", "eth0"}, {"lsisr"}, {"readlog"}, {"taskkill", "shell"}}) {
        const std::string log = log_of(arguments), whole = rendered(log);
        const std::string moved = replaced(replaced(log, "0x10000", "0x510000"), "0x7ea0", "0x3ea0");
        EXPECT_NE(moved, log);
        EXPECT_EQ(rendered(moved), whole);
        for (const char *number : {"port 0x", "semaphore 0x", "iterator 0x", " 0x20", " 0x21", "# request 0x", " 0x110",
                                   "DEVMSG_OPEN, task"})
            EXPECT_EQ(whole.find(number), whole.npos) << number << " in " << whole;
        const bool begins_anew = log.starts_with("_SL_Create");  // which shows that another run is on the log
        EXPECT_EQ(rendered(log + log) == whole + '\n' + whole, begins_anew);
    }
}

TEST(Trace, ShowsThatAnotherTaskMakesTheCalls) {
    EXPECT_EQ(rendered("_SL_GetState(0x2) = 0x11\n_SL_GetState(0x2) = 0x12\n_SL_GetObjectInfo(0x11, 0x3, {}) = 0x2\n"),
              "_SL_GetState(KSTATE_CURRENT_TASK) = own task\n\n_SL_GetState(KSTATE_CURRENT_TASK) = own task\n"
              "_SL_GetObjectInfo(task 0x11, OBJINFO_STATE, {}) = RESULT_NO_OBJECT\n");
}

TEST(Trace, NamesRegistersFromTheirTable) {
    const std::string whole = rendered(log_of({"threads", "-r", "shell"}));
    for (const char *text : {"(KSYSIDX_REGISTERINFO_TABLE, 1, {CPUREG_READABLE | CPUREG_WRITABLE | 0x40})", "{\"r5\"}",
                             "CTRL_FETCH_REGISTER, \"cycles\", 0, 0, 8)", "_SL_GetObjectInfo(own thread, "})
        EXPECT_NE(whole.find(text), whole.npos) << text;
}

}  // namespace
