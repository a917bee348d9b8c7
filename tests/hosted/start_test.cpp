// tests/hosted/start_test.cpp - the surroundings of a run: missing, full and redirected streams, file size limits,
// raised privileges.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <termios.h>
#include <unistd.h>

#include <filesystem>
#include <future>
#include <span>
#include <sstream>

#include "run_ventix.h"

namespace {

constexpr char demo[] = VENTIX_SOURCE_DIR "/machines/demo.json";

// One successful run of each command on the demonstration machine, as shell words.
std::vector<std::string> runs() {
    std::istringstream list(
        "counters eth0 0;date -u -R;devping -v eth0;devquery eth0 PING;dumpktrace -n 9;free -v;kblayout;lscpureg;"
        "lsisr -n;lsmaj;lsmem -a;readlog;raiseexc 1 shell;readreg run/dev/eth0;sendlog text;svccall demo status;"
        "svcinfo demo;task -A -n;taskkill editor;threads -r init;tmemo init;tprop prior init;treereg;tview -n init;"
        "uptime");
    std::vector<std::string> all;
    for (std::string run; std::getline(list, run, ';');) all.push_back(run);
    return all;
}

// Runs a shell line in which the function `run` is the run.
ventix_result shell(const std::string &run, const std::string &line, const std::string &output = {},
                    std::vector<std::string> environment = {}) {
    return run_ventix({.arguments = {"-c", "run() { \"$0\" " + run + "; }; " + line, ventix_program()},
                       .environment = std::move(environment),
                       .machine = demo,
                       .program = "/bin/sh",
                       .output_file = output});
}

// What a run prints on a terminal.
std::string on_terminal(const std::string &run, const std::vector<std::string> &environment) {
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) return "no terminal";
    const std::string name = ptsname(master);
    const int slave = open(name.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios settings{};
    tcgetattr(slave, &settings);
    cfmakeraw(&settings);
    tcsetattr(slave, TCSANOW, &settings);
    auto shown = std::async(std::launch::async, [master] {
        std::string text;
        char piece[4096];
        for (ssize_t got; (got = read(master, piece, sizeof piece)) > 0;) text.append(piece, static_cast<size_t>(got));
        return text;
    });
    shell(run, "run", name, environment);
    close(slave);
    std::string text = shown.get();
    close(master);
    return text;
}

TEST(Start, OutputIsTheSameWhereverItGoes) {
    for (const std::string &run : runs()) {
        SCOPED_TRACE(run);
        const ventix_result plain = shell(run, "run");
        EXPECT_EQ(plain.diagnostics, "");
        EXPECT_EQ(plain.status, 0);
        EXPECT_EQ(shell(run, "run <&- | cat", "", {"COLUMNS=500", "LC_ALL=C", "TZ=Asia/Tokyo"}).output, plain.output);
        EXPECT_EQ(on_terminal(run, {"COLUMNS=20", "LANG=%n", "LC_ALL=xx_YY.none", "TZ="}), plain.output);
    }
}

TEST(Start, LostOutputIsReportedOnce) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[0]);
    const std::string unread = "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(ends[1]);
    const struct {
        const char *line;
        std::string output, reason;
        int status = 1;
    } cases[] = {
        {"run", "/dev/full", "No space left on device"},
        {"run >&-", "", "Bad file descriptor"},
        {"run <&- >&-", "", "Bad file descriptor"},
        {"trap '' PIPE; run", unread, "", 0},  // the reader closed it deliberately
        {"run", unread, "", 128 + SIGPIPE},
    };
    for (const std::string &run : runs()) {
        const bool silent = shell(run, cases[0].line, cases[0].output).status == 0;
        if (silent) {
            EXPECT_EQ(shell(run, "run").output, "") << run;
        }
        // Only readlog writes its output past the standard streams, so it and one of the others meet all cases.
        const size_t count = run == "readlog" || run == "uptime" ? std::size(cases) : 1;
        for (const auto &row : std::span(cases).first(count)) {
            SCOPED_TRACE(run + ": " + row.line + " > " + row.output);
            const scratch_directory place;
            const std::string saved = place.file("saved.json");
            const ventix_result result = shell(run, row.line, row.output, {"VENTIX_MACHINE_SAVE=" + saved});
            EXPECT_TRUE(std::filesystem::exists(saved));
            EXPECT_EQ(result.diagnostics,
                      silent || row.reason.empty() ? "" : "ventix: write error: " + row.reason + "\n");
            EXPECT_EQ(result.status, silent ? 0 : row.status);
        }
    }
    // Also where the output is written only at the end of a run that deadlocks.
    const scratch_directory place;
    const std::string mute =
        R"({"registry": {"a": 1, "k": "text"}, "registry_requests": {"0xC0020023": {"silent": true}}})";
    const std::string saved = place.file("saved.json");
    EXPECT_EQ(run_ventix({.arguments = {"readreg", "a", "k"},
                          .environment = {"VENTIX_MACHINE_SAVE=" + saved},
                          .machine = place.write("mute.json", mute),
                          .output_file = unread})
                  .status,
              128 + SIGPIPE);
    EXPECT_TRUE(std::filesystem::exists(saved));
    close(ends[1]);
}

TEST(Start, OutputOfAClosedStreamGoesToNoFile) {
    const std::string call = "_SL_GetState(0x8) = 0x1000\n";  // of the page size
    for (const char *line : {"run 2>&-", "run >&-", "run <&- >&-"}) {
        SCOPED_TRACE(line);
        const scratch_directory place;
        const bool fails = std::string(line) == "run 2>&-";
        const ventix_result result =
            shell(fails ? "free --what" : "task --help", line, "", {"VENTIX_CALL_LOG=" + place.file("calls")});
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.status, fails ? 100 : 1);
        EXPECT_EQ(read_file(place.file("calls")), call);
    }
}

TEST(Start, StatusOf256FailuresIsNotZero) { EXPECT_EQ(shell("readreg $(seq 256)", "run").status, 255); }

// A limit on file size neither ends the run nor leaves a partial file.
TEST(Start, FilesThatMayNotGrow) {
    const scratch_directory place;
    const std::string saved = place.write("saved.json", "mine");
    const std::string line = "(ulimit -f 0; run 2>&1 >" + place.file("out") + "; echo $?) | cat";
    EXPECT_EQ(shell("task", line, "", {"VENTIX_MACHINE_SAVE=" + saved}).output,
              "ventix: write error: File too large\nventix: " + saved + ": File too large\n1\n");
    EXPECT_EQ(read_file(saved), "mine");
    const std::filesystem::directory_iterator files(place.path());
    EXPECT_EQ(std::distance(begin(files), end(files)), 2);
}

// A copy with raised privileges touches no file that its caller's environment names.
TEST(Start, RaisedPrivilegesReadNoVariables) {
    const scratch_directory place;
    const std::string copy = place.file("ventix"), log = place.file("calls"), saved = place.file("saved.json");
    const auto run = [&] {
        return run_ventix({.arguments = {"uptime", "-t"},
                           .environment = {"VENTIX_CALL_LOG=" + log, "VENTIX_MACHINE_SAVE=" + saved},
                           .machine = place.write("machine.json", R"({"tick": 3661001})"),
                           .program = copy});
    };
    std::filesystem::copy_file(ventix_program(), copy);
    const ventix_result plain = run();
    EXPECT_EQ(plain.status, 0);
    EXPECT_TRUE(std::filesystem::remove(log) && std::filesystem::remove(saved));
    constexpr gid_t other = 65533;
    struct statvfs about {};
    statvfs(copy.c_str(), &about);
    const bool honoured = (about.f_flag & ST_NOSUID) == 0 && prctl(PR_GET_NO_NEW_PRIVS, 0, 0, 0, 0) == 0;
    if (!honoured || chown(copy.c_str(), static_cast<uid_t>(-1), other) != 0 || chmod(copy.c_str(), 02755) != 0)
        GTEST_SKIP() << "no right to raise privileges";
    const ventix_result raised = run();
    EXPECT_EQ(raised.status, 0) << raised.diagnostics;
    EXPECT_NE(raised.output, plain.output);
    EXPECT_FALSE(std::filesystem::exists(log) || std::filesystem::exists(saved));
}

}  // namespace
