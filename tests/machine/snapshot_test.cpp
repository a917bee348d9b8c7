// machine/snapshot_test.cpp - ventix-machine snapshot: what it holds, what it leaves out, and how it is written.
#include <gtest/gtest.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <filesystem>
#include <set>
#include <sstream>

#include "hosted/live/own_child.h"
#include "run_ventix.h"

namespace {

namespace fs = std::filesystem;

const std::string LIVE = "live";
constexpr char NAME[] = "snapped-task";

std::string tool() { return fs::path(ventix_program()).replace_filename("ventix-machine"); }

ventix_result snapshot(const std::string &words, const std::string &directory) {
    return run_ventix({.arguments = {"-c", "exec " + tool() + " snapshot " + words},
                       .machine = LIVE,
                       .directory = directory,
                       .program = "/bin/sh"});
}

std::vector<std::string> lines_of(const std::string &text) {
    std::istringstream in(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// A child that sleeps under a name of its own.
own_child quiet_child() {
    return own_child([](own_child &) { prctl(PR_SET_NAME, NAME); });
}

// In as many digits as tasks are listed with.
std::string handle_of(const own_child &child) {
    char text[32];
    std::snprintf(text, sizeof text, "0x%016" PRIX64, child.handle());
    return text;
}

// ---- equality -------------------------------------------------------------------------------------------------------

// @ is the child's handle. Of those after a ~ the figures go up and down, so that only the status is compared.
constexpr const char *READERS[] = {
    "threads -CpswWx -P @",
    "tmemo -P @",
    "tview -f -P @",
    "tview -n -P @",
    "task -A",
    "lscpureg",
    "lsmaj",
    "lsisr -n",
    "treereg hardware",
    "treereg kernel",
    "readreg -k kernel/hostname kernel/cmdline hardware/memory/total",
    "svcinfo host",
    "svcinfo host user",
    "svccall host hostname",
    "svccall host uname",
    "devquery host GET_CLASS",
    "devquery lo GET_CLASS",
    "devquery lo PING",
    "devping none",
    "counters lo 0",
    "counters lo 1",
    "counters cpu 9999",
    "readlog -H",
    "readlog -s 100000",
    "date -r",
    "~lsmem -v",
    "~free",
    "~counters vm 0",
    "~dumpktrace -n 1",
};

std::vector<std::string> words_of(const std::string &command, const own_child &child) {
    std::vector<std::string> words;
    std::istringstream in(command.substr(command[0] == '~'));
    for (std::string word; in >> word;) words.push_back(word == "@" ? handle_of(child) : word);
    return words;
}

// The keys of parameters that only their owner may read.
std::set<std::string> secret_keys() {
    std::set<std::string> secrets;
    for (auto at = fs::recursive_directory_iterator("/proc/sys", fs::directory_options::skip_permission_denied);
         at != fs::recursive_directory_iterator(); ++at) {
        const auto permissions = at->status().permissions();
        if (at->is_regular_file() && (permissions & fs::perms::others_read) == fs::perms::none &&
            (permissions & fs::perms::owner_read) != fs::perms::none)
            secrets.insert("kernel" + at->path().string().substr(std::string("/proc/sys").size()));
    }
    return secrets;
}

// The rows of a tree without its lines, and without those of secret keys.
void leave_public_rows(std::vector<std::string> &tree) {
    static const std::set<std::string> secrets = secret_keys();
    std::vector<std::string> path;  // of the row's directories, each as a whole
    std::erase_if(tree, [&](std::string &row) {
        const size_t name_at = std::min(row.find_first_not_of("|`- "), row.size());
        path.resize(name_at / 4);
        path.push_back((path.empty() ? "" : path.back() + '/') + row.substr(name_at, row.find(" {") - name_at));
        std::fill_n(row.begin(), name_at, ' ');
        return secrets.contains(path.back());
    });
}

struct user {
    const char *name;
    std::vector<std::string> prefix;  // words in front of the command
};

// Shown by root and by a user who may not look into the child.
class Snapshots : public testing::TestWithParam<user> {};

TEST_P(Snapshots, ShowWhatTheLiveMachineShowed) {
    const auto run = [](std::vector<std::string> words, const std::string &machine) {
        std::vector<std::string> all = GetParam().prefix;
        all.insert(all.end(), words.begin(), words.end());
        const std::string program = all.front();
        return run_ventix({.arguments = {all.begin() + 1, all.end()}, .machine = machine, .program = program});
    };
    if (run({ventix_program(), "--list"}, LIVE).status != 0) GTEST_SKIP() << "cannot run as this user";
    const own_child child = quiet_child();
    await_state(child.id(), "S");
    const scratch_directory directory;
    fs::permissions(directory.path(), fs::perms::all);
    const std::string file = directory.file("box.json");
    const auto ventix = [&](const std::string &command, const std::string &machine) {
        std::vector<std::string> words = words_of(command, child);
        words.insert(words.begin(), ventix_program());
        return run(words, machine);
    };
    std::vector<ventix_result> before;
    for (const char *const command : READERS) before.push_back(ventix(command, LIVE));
    const ventix_result taken = run({tool(), "snapshot", "--maps", "-o", file}, LIVE);
    ASSERT_EQ(taken.status, 0) << taken.diagnostics;
    EXPECT_EQ(taken.diagnostics, "");
    EXPECT_EQ(run({tool(), "check", file}, LIVE).output, "");

    size_t compared = 0;
    for (size_t i = 0; i < before.size(); ++i) {
        const std::string command = READERS[i];
        SCOPED_TRACE(command);
        const ventix_result after = ventix(command, LIVE), shown = ventix(command, file);
        EXPECT_EQ(shown.status, after.status);
        if (command[0] == '~') continue;
        EXPECT_EQ(shown.diagnostics, after.diagnostics);
        // Of the tasks only the own child is quiet; the width of a column is that of its widest row.
        const auto rows = [&](const std::string &output) {
            std::vector<std::string> lines = lines_of(output);
            if (command == "task -A") {
                std::erase_if(lines, [&](const auto &line) { return !line.starts_with(' ' + handle_of(child)); });
                EXPECT_EQ(lines.size(), 1u);
                for (auto &line : lines) {
                    const auto twice = [](char left, char right) { return left == ' ' && right == ' '; };
                    line.erase(std::unique(line.begin(), line.end(), twice), line.end());
                }
            }
            if (command.starts_with("treereg")) leave_public_rows(lines);
            return lines;
        };
        const auto first = rows(before[i].output), last = rows(after.output), held = rows(shown.output);
        constexpr const char *unsteady[] = {"file-nr", "inode-", "aio-nr", "dentry-", "conntrack", "entropy", " nr {"};
        const auto is_unsteady = [&](const std::string &line) {
            return std::ranges::any_of(unsteady, [&](const char *word) { return line.find(word) != line.npos; });
        };
        if (command.find('@') != command.npos || command == "task -A") {
            EXPECT_EQ(held, last);
        }
        if (first.size() != last.size()) continue;
        ASSERT_EQ(held.size(), last.size());
        for (size_t row = 0; row < last.size(); ++row) {
            if (first[row] != last[row] || is_unsteady(last[row])) continue;
            EXPECT_EQ(held[row], last[row]);
            ++compared;
        }
    }
    EXPECT_GT(compared, 300u);
    const std::string again = directory.file("again.json");
    run_ventix({.arguments = {"uptime"}, .environment = {"VENTIX_MACHINE_SAVE=" + again}, .machine = file});
    EXPECT_TRUE(read_file(again) == read_file(file)) << "a save is another file";
}

INSTANTIATE_TEST_SUITE_P(, Snapshots,
                         testing::Values(user{"self", {"/usr/bin/env"}},
                                         user{"other", {"/usr/bin/setpriv", "--reuid=65534", "--clear-groups"}}),
                         [](const auto &chosen) { return std::string(chosen.param.name); });

TEST(Snapshot, LeavesTheFileOnAFullDisk) {
    const scratch_directory directory;
    const std::string script =
        "mkdir full; mount -t tmpfs -o size=64k none full || exit; cd full; echo old >box.json; " + tool() +
        " snapshot --maps -o box.json; echo $?; ls -A; cat box.json";
    const ventix_result shown = run_ventix({.arguments = {"-m", "sh", "-c", script},
                                            .machine = LIVE,
                                            .directory = directory.path(),
                                            .program = "/usr/bin/unshare"});
    if (shown.output.empty()) GTEST_SKIP() << "no namespaces: " << shown.diagnostics;
    EXPECT_EQ(shown.output, "1\nbox.json\nold\n");
    EXPECT_EQ(shown.diagnostics, "ventix-machine: box.json: No space left on device\n");
}

// ---- what is left out -----------------------------------------------------------------------------------------------

// Values of keys, names and log lines with their quotes: texts that are no keys of an object.
std::set<std::string> texts_of(const std::string &file) {
    std::set<std::string> texts;
    for (const std::string &line : lines_of(file)) {
        if (line.find("\"type\"") != line.npos) continue;  // a register
        for (size_t begin = line.find('"'); begin != line.npos;) {
            size_t end = begin + 1;
            while (line[end] != '"') end += line[end] == '\\' ? 2U : 1U;
            const std::string text = line.substr(begin, end + 1 - begin);
            if (line[end + 1] != ':' && text.size() > 5 && !text.starts_with("\"0x")) texts.insert(text);
            begin = line.find('"', end + 1);
        }
    }
    return texts;
}

size_t count_of(const std::string &text, const std::string &part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != text.npos; at = text.find(part, at + 1)) count++;
    return count;
}

TEST(Snapshot, RedactionLeavesNoTextOfTheSystem) {
    const own_child child = quiet_child();
    await_state(child.id(), "S");
    const scratch_directory directory;
    ASSERT_EQ(snapshot("--maps -o plain.json", directory.path()).status, 0);
    ASSERT_EQ(snapshot("--maps --redact -o redacted.json", directory.path()).status, 0);
    const std::string plain = read_file(directory.file("plain.json"));
    const std::string redacted = read_file(directory.file("redacted.json"));
    const std::set<std::string> own = {"\"host\"",    "\"syslog\"", "\"sysvc\"",    "\"rtc0\"",   "\"hostname\"",
                                       "\"integer\"", "\"string\"", "\"sockaddr\"", "\"address\""};
    const std::set<std::string> texts = texts_of(plain), left = texts_of(redacted);
    EXPECT_TRUE(texts.contains('"' + std::string(NAME) + '"'));
    EXPECT_GT(texts.size(), 50u);
    for (const std::string &text : left) {
        const bool load = text.find_first_not_of("\"0123456789.") == text.npos;
        if (!texts.contains(text) || own.contains(text) || load) continue;
        const bool figure = redacted.find('[' + text + ", ") != redacted.npos;  // the name of one
        const bool service = redacted.find("\"name\": " + text + ", \"args\"") != redacted.npos ||
                             redacted.find("\"name\": " + text + ", \"results\"") != redacted.npos;
        EXPECT_TRUE(figure || service) << text;
    }
    EXPECT_EQ(count_of(redacted, "\"VIEWINFO_BEGIN\": \"0x0\""), count_of(redacted, "\"VIEWINFO_BEGIN\""));
    const auto views = [&](const std::string &file) {
        return lines_of(run_ventix({.arguments = {"tview", "-P", handle_of(child)}, .machine = file}).output).size();
    };
    EXPECT_EQ(views(directory.file("redacted.json")), views(directory.file("plain.json")));
    EXPECT_GT(views(directory.file("redacted.json")), 5u);
    for (const char *const command : READERS) {
        if (std::string(command).find(" lo ") != std::string::npos) continue;  // a device of another name now
        const auto words = words_of(command, child);
        const auto live = run_ventix({.arguments = words, .machine = LIVE});
        const auto shown = run_ventix({.arguments = words, .machine = directory.file("redacted.json")});
        EXPECT_EQ(shown.status, live.status) << command;
    }
}

// What only root may read is not in root's snapshot either.
TEST(Snapshot, HoldsNoSecretParameter) {
    const scratch_directory directory;
    ASSERT_EQ(snapshot("-o box.json", directory.path()).status, 0);
    for (const std::string &key : secret_keys()) {
        const auto shown = run_ventix({.arguments = {"readreg", key}, .machine = directory.file("box.json")});
        EXPECT_EQ(shown.output, "readkey: " + key + ": key not found\n");
    }
    EXPECT_EQ(read_file(directory.file("box.json")).find("environ"), std::string::npos);
}

// ---- writing --------------------------------------------------------------------------------------------------------

TEST(Snapshot, ReplacesItsFileAsAWhole) {
    const scratch_directory directory;
    const std::string file = directory.write("box.json", "{}\n");
    const auto is_whole = [&](bool old) {
        EXPECT_EQ(std::distance(fs::directory_iterator(directory.path()), {}), 1) << "a temporary file";
        const std::string text = read_file(file);
        EXPECT_TRUE((old && text == "{}\n") || (text.starts_with("{\n  \"format\": 1,") && text.ends_with("\n}\n")));
    };
    const ventix_result full = run_ventix({.arguments = {"-c", "ulimit -f 8; exec " + tool() + " snapshot -o box.json"},
                                           .machine = LIVE,
                                           .directory = directory.path(),
                                           .program = "/bin/sh"});
    EXPECT_EQ(full.status, 1);
    EXPECT_EQ(full.diagnostics, "ventix-machine: box.json: File too large\n");
    EXPECT_EQ(read_file(file), "{}\n");
    is_whole(true);
    for (const char *const delay : {"0", "0.02", "0.1", "0.3"}) {
        snapshot("-o box.json & sleep " + std::string(delay) + "; kill $!; wait", directory.path());
        is_whole(true);
    }
    EXPECT_EQ(snapshot("-o box.json", directory.path()).status, 0);
    is_whole(false);
    EXPECT_EQ(fs::status(file).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    const ventix_result printed = snapshot("", directory.path());
    EXPECT_TRUE(printed.output.starts_with("{\n  \"format\": 1,") && printed.output.ends_with("\n}\n"));
    EXPECT_EQ(snapshot(">/dev/full", directory.path()).status, 1);
}

}  // namespace
