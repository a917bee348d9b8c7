// tests/robustness_test.cpp - a mistyped operand acts on nothing that it does not name. (`sweep --words` tests that
// such runs end well.)
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <cinttypes>
#include <cstddef>
#include <cstdio>
#include <string>
#include <vector>

#include "hosted/boot.h"
#include "hosted/kernel/run.h"
#include "hosted/live/own_child.h"
#include "main/tools.h"

namespace {

using words = std::vector<std::string>;

// Ends this process at the first system call that would act on another.
bool forbid_acting() {
    std::vector<sock_filter> program = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr))};
    for (const int call :
         {SYS_kill, SYS_tkill, SYS_tgkill, SYS_rt_sigqueueinfo, SYS_rt_tgsigqueueinfo, SYS_pidfd_send_signal,
          SYS_setpriority, SYS_ioprio_set, SYS_sched_setscheduler, SYS_sched_setparam, SYS_sched_setattr,
          SYS_sched_setaffinity, SYS_ptrace, SYS_process_vm_readv, SYS_process_vm_writev}) {
        program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<unsigned>(call), 0, 1));
        program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS));
    }
    program.push_back(BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW));
    const sock_fprog given = {static_cast<unsigned short>(program.size()), program.data()};
    return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &given) == 0;
}

// Runs a command on the live machine in a process that may not act, once for each handle as its last word. Returns its
// wait status: SIGSYS if it tried to act.
constexpr int UNABLE = 77;
int try_to_act(const words &command, const std::vector<uint64_t> &handles) {
    const pid_t child = fork();
    if (child == 0) {
        const int nowhere = open("/dev/null", O_WRONLY);
        dup2(nowhere, STDOUT_FILENO);
        dup2(nowhere, STDERR_FILENO);
        const tool *row = s_tools;
        while (command[0] != row->name) ++row;
        std::string message;
        hosted::install(hosted::make_live_machine(message));
        if (!forbid_acting()) _exit(UNABLE);
        for (const uint64_t handle : handles) {
            char text[24];
            std::snprintf(text, sizeof text, "0x%" PRIx64, handle);
            words arguments(command.begin() + 1, command.end());
            arguments.emplace_back(text);
            std::vector<char *> pointers;
            for (auto &argument : arguments) pointers.push_back(argument.data());
            pointers.push_back(nullptr);
            row->entry(static_cast<int>(arguments.size()), pointers.data());
        }
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return status;
}

TEST(Robustness, NumbersOfNoProcessActOnNone) {
    own_child child;
    const uint64_t id = child.handle(), high = uint64_t{1} << 32, top = high << 31, ones = ~top | top;
    // No truncation, shift or sign may turn a number into the child's: many of these contain it.
    const std::vector<uint64_t> nothing = {id + high,  id + 2 * high, id + (high << 16), id << 32, id | top, ~id + 1,
                                           0x7FFFFFFF, 0x80000000,    0xFFFFFFFF,        high,     top,      ones};
    const std::vector<words> commands = {{"taskkill", "-P"},
                                         {"raiseexc", "-p", "9", "-P", "SIGNAL"},
                                         {"raiseexc", "-P", "USR1"},
                                         {"tprop", "-P", "-s", "139", "prior"},
                                         {"threads", "-R", "-P"}};
    for (const words &command : commands) {
        const int acted = try_to_act(command, {id});
        if (WIFEXITED(acted) && WEXITSTATUS(acted) == UNABLE) GTEST_SKIP() << "system calls cannot be forbidden";
        EXPECT_EQ(acted & 0x7F, command[0] != "tprop" || geteuid() == 0 ? SIGSYS : 0) << command[0];
        EXPECT_EQ(try_to_act(command, nothing), 0) << command[0];
        EXPECT_EQ(try_to_act(command, {0}) & 0x7F, command[0] == "taskkill" ? SIGSYS : 0) << "0 is itself to taskkill";
    }
    EXPECT_TRUE(child.is_alive());
}

}  // namespace
