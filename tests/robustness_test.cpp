// What people may type by mistake touches nothing that was not named. (That it ends well is the sweep's, --words.)
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

// Runs a command on the live machine in a process that may not act: the status of waiting for it, which tells by
// SIGSYS that it tried.
constexpr int UNABLE = 77;
int try_to_act(words arguments) {
    const pid_t child = fork();
    if (child == 0) {
        const int nowhere = open("/dev/null", O_WRONLY);
        dup2(nowhere, STDOUT_FILENO);
        dup2(nowhere, STDERR_FILENO);
        const tool *command = s_tools;
        while (arguments[0] != command->name) ++command;
        std::vector<char *> pointers;
        for (auto &argument : arguments) pointers.push_back(argument.data());
        pointers.push_back(nullptr);
        std::string message;
        hosted::install(hosted::make_live_machine(message));
        if (!forbid_acting()) _exit(UNABLE);
        command->entry(static_cast<int>(arguments.size()) - 1, pointers.data() + 1);
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return status;
}

TEST(Robustness, NoActFromNumbersThatNameNoProcess) {
    own_child child;
    const uint64_t id = child.handle(), high = uint64_t{1} << 32, top = high << 31, ones = ~top | top;
    // What a number is cut or turned to must not count: many of these have the child's number in some part of them.
    const std::vector<uint64_t> nothing = {id + high,  id + 2 * high, id + (high << 16), id << 32, id | top, ~id + 1,
                                           0x7FFFFFFF, 0x80000000,    0xFFFFFFFF,        high,     top,      ones};
    const std::vector<words> commands = {{"taskkill", "-P"},
                                         {"raiseexc", "-p", "9", "-P", "SIGNAL"},
                                         {"raiseexc", "-P", "USR1"},
                                         {"tprop", "-P", "-s", "139", "prior"},
                                         {"threads", "-R", "-P"}};
    for (const words &command : commands) {
        const auto on = [&command](uint64_t handle) {
            char text[24];
            std::snprintf(text, sizeof text, "0x%" PRIx64, handle);
            words all = command;
            all.emplace_back(text);
            return try_to_act(all);
        };
        const int acted = on(id);
        if (WIFEXITED(acted) && WEXITSTATUS(acted) == UNABLE) GTEST_SKIP() << "system calls cannot be forbidden";
        EXPECT_EQ(acted & 0x7F, command[0] != "tprop" || geteuid() == 0 ? SIGSYS : 0) << command[0];
        for (const uint64_t handle : nothing) EXPECT_EQ(on(handle), 0) << command[0] << ' ' << handle;
        EXPECT_EQ(on(0) & 0x7F, command[0] == "taskkill" ? SIGSYS : 0) << command[0];  // 0 is itself to taskkill
    }
    EXPECT_TRUE(child.is_alive());
}

}  // namespace
