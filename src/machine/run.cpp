// machine/run.cpp - run: keeps a described machine running on a socket, for a command or until it is asked to end.
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "hosted/kernel/run.h"
#include "hosted/wire/host.h"
#include "machine/verbs.h"

namespace verbs {
namespace {

constexpr int NOT_STARTED = 127;
constexpr int SIGNALLED = 128;  // + the signal

// A command may change its directory.
std::string absolute(const std::string &path) {
    char here[PATH_MAX];
    return path[0] == '/' || getcwd(here, sizeof here) == nullptr ? path : std::string(here) + '/' + path;
}

// Starts the command with the signals as this process found them. The terminal's are the command's alone from here on.
//   mask     the blocked signals, as this process found them
//   child    out: its process id
//   returns  0, or an error number
int start(char **command, const std::string &socket, const sigset_t &mask, pid_t &child) {
    setenv(hosted::MACHINE_VARIABLE, socket.c_str(), 1);
    unsetenv(hosted::SAVE_VARIABLE);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setsigmask(&attributes, &mask);
    sigset_t initial;
    sigemptyset(&initial);
    for (const int restored : {SIGPIPE, SIGXFSZ}) sigaddset(&initial, restored);  // set for this program's own output
    for (const int terminal : {SIGINT, SIGQUIT}) {
        if (signal(terminal, SIG_IGN) != SIG_IGN) sigaddset(&initial, terminal);
    }
    posix_spawnattr_setsigdefault(&attributes, &initial);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    const int error = posix_spawnp(&child, command[0], nullptr, &attributes, command, environ);
    posix_spawnattr_destroy(&attributes);
    return error;
}

void print_counts(const char *when, const hosted::wire::machine_counts &found) {
    std::fprintf(stderr, "ventix-machine: %s: tasks %zu, connections %zu, handles %zu, blocks %zu, descriptors %zu\n",
                 when, found.tasks, found.connections, found.handles, found.blocks, found.descriptors);
}

}  // namespace

int run(int argc, char **argv) {
    const char *socket = "", *save = "";
    bool verbose = false;
    const auto line =
        parse(argc, argv, {{"--socket", &socket}, {"--save", &save}, {"--verbose", nullptr, &verbose}}, 1, 1, true);
    if (!line) return WRONG_USE;

    sigset_t mask;
    sigprocmask(SIG_SETMASK, nullptr, &mask);
    signal(SIGCHLD, SIG_DFL);           // a command that nobody waits for would leave no status
    static hosted::wire::host machine;  // its socket is removed also where the process leaves by exit()
    std::string message;
    if (!machine.open(line->operands[0], save, socket, message)) return fail(UNREADABLE, "%s", message.c_str());
    pid_t child = 0;
    if (line->command != nullptr) {
        if (const int error = start(line->command, absolute(machine.path()), mask, child); error != 0) {
            return fail(NOT_STARTED, "%s: %s", line->command[0], std::strerror(error));
        }
    } else {
        std::printf("%s=%s\n", hosted::MACHINE_VARIABLE, absolute(machine.path()).c_str());
        std::fflush(stdout);
    }
    if (verbose) print_counts("begin", machine.counts());
    int status = 0;
    const bool served = machine.serve(child, status, message);
    if (!served) fail(UNREADABLE, "%s", message.c_str());
    machine.close();
    if (verbose) print_counts("end", machine.counts());
    if (!served) return UNREADABLE;
    return WIFSIGNALED(status) ? SIGNALLED + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace verbs
