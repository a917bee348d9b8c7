// What people may type by mistake or on purpose, for every command: it ends with a status that commands promise, and
// without a report of a sanitizer (which would be another status).
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "run_ventix.h"

namespace {

constexpr const char *commands[] = {"counters", "date",    "devping", "devquery", "dumpktrace", "free",    "kblayout",
                                    "lscpureg", "lsisr",   "lsmaj",   "lsmem",    "raiseexc",   "readlog", "readreg",
                                    "sendlog",  "svccall", "svcinfo", "task",     "taskkill",   "threads", "tmemo",
                                    "tprop",    "treereg", "tview",   "uptime"};

void expect_promised_end(const char *command, const std::vector<std::string> &arguments) {
    static constexpr int promised[] = {0, 1, 2, 100, 101, 255};
    const scratch_directory directory;
    ventix_run run;
    run.machine = VENTIX_SOURCE_DIR "/machines/demo.json";
    run.directory = directory.path();
    run.arguments = {command};
    run.arguments.insert(run.arguments.end(), arguments.begin(), arguments.end());
    const auto result = run_ventix(run);
    // readreg counts the keys that it could not show, in 8 bits.
    const bool counts = std::string_view(command) == "readreg" && result.status >= 0 && result.status < 256;
    EXPECT_TRUE(counts || std::find(std::begin(promised), std::end(promised), result.status) != std::end(promised))
        << command << ' ' << arguments.front().substr(0, 20) << ": " << result.status << '\n'
        << result.diagnostics.substr(0, 2000);
    EXPECT_EQ(result.diagnostics.find("Sanitizer"), std::string::npos) << command;
    EXPECT_EQ(result.diagnostics.find("runtime error"), std::string::npos) << command;
}

TEST(Robustness, OperandsWithoutMeasure) {
    const std::string wide(128 * 1024 - 1, 'x');  // the longest that the system passes on
    for (const char *command : commands) {
        expect_promised_end(command, {"", ""});
        expect_promised_end(command, std::vector<std::string>(10000, "x"));
        expect_promised_end(command, std::vector<std::string>(8, wide));
        expect_promised_end(command, {"-" + std::string(100000, 'a')});
    }
}

// Every letter once per command; what follows it goes round. The letters that a command does not know end it at once.
TEST(Robustness, LettersWithAbsurdArguments) {
    const std::string values[] = {"",     "-1",     "18446744073709551616", "0x",
                                  "%n%s", "\xFF\n", std::string(5000, 'A'), std::string(400, '9')};
    size_t turn = 0;
    for (const char *command : commands) {
        for (const char letter : std::string("acdefhlmnpstuxLTS")) {
            std::vector<std::string> arguments = {std::string("-") + letter};
            if (++turn % 9 != 0) arguments.push_back(values[turn % 9 - 1]);
            expect_promised_end(command, arguments);
        }
    }
}

}  // namespace
