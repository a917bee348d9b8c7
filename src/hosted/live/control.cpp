// hosted/live/control.cpp - ends processes, sends exceptions as signals and sets priorities.
#include "hosted/live/control.h"

#include <poll.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <vector>

#include "platform/kernel.h"

namespace hosted::live {

namespace {

constexpr auto LONGEST_END = std::chrono::seconds(2);

// The signal of an exception; 0 where it has none.
int signal_of(uint64_t exception, uint64_t parameter) {
    constexpr uint64_t last_signal = 64;
    switch (exception) {
    case EXC_USR1: return SIGUSR1;
    case EXC_USR2: return SIGUSR2;
    case EXC_USR3: return SIGRTMIN + 3;
    case EXC_USR4: return SIGRTMIN + 4;
    case EXC_SIGNAL: return parameter <= last_signal ? static_cast<int>(parameter) : 0;
    default: return 0;
    }
}

// The C library declares this one only for C.
bool send(const descriptor &pidfd, int signal, siginfo_t *info) {
    return syscall(SYS_pidfd_send_signal, pidfd.get(), signal, info, 0) == 0;
}

uint64_t await_end(int pidfd) {
    using clock = std::chrono::steady_clock;
    const auto deadline = clock::now() + LONGEST_END;
    while (true) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - clock::now()).count();
        pollfd ended{pidfd, POLLIN, 0};
        const int ready = poll(&ended, 1, static_cast<int>(std::max<int64_t>(left, 0)));
        if (ready > 0) return RESULT_SUCCESS;
        if (ready < 0 && errno != EINTR) return result_of(errno);
        if (left <= 0) return RESULT_TIMEOUT;
    }
}

// Priorities of tasks and of the system: 100 to 139 are nice levels -20 to 19. Below 100 are the real-time levels, in
// reverse; 99 would be level 0, which does not exist.
constexpr uint64_t HIGHEST_PRIORITY = 139, FIRST_NICE = 100;
constexpr int LOWEST_NICE = -20, NO_LEVEL = 99;

constexpr int DEADLINE = 6;  // the policy whose threads are ordered by time alone

bool is_real_time(int policy) { return policy == SCHED_FIFO || policy == SCHED_RR; }

bool lacks_priority(int thread) { return (sched_getscheduler(thread) & ~SCHED_RESET_ON_FORK) == DEADLINE; }

// Sets one thread. changed: out. Returns 0 or the error number.
int set_thread(int thread, uint64_t priority, bool &changed) {
    changed = false;
    sched_param now{};
    const int scheduler = sched_getscheduler(thread);
    const int policy = scheduler & ~SCHED_RESET_ON_FORK, on_fork = scheduler & SCHED_RESET_ON_FORK;
    if (scheduler < 0 || sched_getparam(thread, &now) != 0) return errno;
    if (policy == DEADLINE) return EPERM;
    const bool real_time = is_real_time(policy);
    if (priority < FIRST_NICE) {
        const sched_param wanted{NO_LEVEL - static_cast<int>(priority)};
        if (real_time && now.sched_priority == wanted.sched_priority) return 0;
        if (sched_setscheduler(thread, (real_time ? policy : SCHED_RR) | on_fork, &wanted) != 0) return errno;
    } else {
        const int nice = static_cast<int>(priority - FIRST_NICE) + LOWEST_NICE;
        const auto id = static_cast<id_t>(thread);
        if (!real_time && getpriority(PRIO_PROCESS, id) == nice) return 0;
        const sched_param none{};
        if (real_time && sched_setscheduler(thread, SCHED_OTHER | on_fork, &none) != 0) return errno;
        if (setpriority(PRIO_PROCESS, id, nice) != 0) return errno;
    }
    changed = true;
    return 0;
}

}  // namespace

descriptor open_process(int id) { return descriptor(static_cast<int>(syscall(SYS_pidfd_open, id, 0))); }

uint64_t kill_process(const descriptor &pidfd) {
    if (!send(pidfd, SIGKILL, nullptr)) return result_of(errno);
    return await_end(pidfd.get());
}

uint64_t signal_process(const descriptor &pidfd, uint64_t exception, uint64_t parameter) {
    const int signal = signal_of(exception, parameter);
    if (signal == 0) return RESULT_BAD_ARGUMENT;
    siginfo_t info{};
    info.si_signo = signal;
    info.si_code = SI_QUEUE;
    info.si_pid = getpid();
    info.si_uid = getuid();
    info.si_value.sival_ptr = reinterpret_cast<void *>(static_cast<uintptr_t>(parameter));
    const bool carries_value = exception != EXC_SIGNAL;
    return send(pidfd, signal, carries_value ? &info : nullptr) ? uint64_t{RESULT_SUCCESS} : result_of(errno);
}

// Refuses a process that has a thread without a priority before it sets any. A thread created meanwhile may inherit the
// old priority, so the passes repeat until one changes nothing.
uint64_t set_process_priority(process &which, uint64_t priority) {
    constexpr int most_passes = 10;
    uint64_t now = 0;
    if (priority > HIGHEST_PRIORITY || priority == NO_LEVEL) return RESULT_BAD_ARGUMENT;
    if (const uint64_t result = which.item(TASKINFO_PRIORITY, now); result != RESULT_SUCCESS) return result;
    if (now == priority) return RESULT_SUCCESS;
    bool any = false, changed = true;
    for (int pass = 0; pass < most_passes && changed; ++pass) {
        std::vector<int> threads;
        descriptor tasks;
        if (const int error = which.list_threads(threads, tasks); error != 0) return result_of(error);
        if (pass == 0 && std::any_of(threads.begin(), threads.end(), lacks_priority)) return RESULT_NOT_PERMITTED;
        changed = false;
        for (const int thread : threads) {
            if (faccessat(tasks.get(), numbered_path(thread).c_str(), F_OK, 0) != 0) continue;  // has ended since
            bool one_changed = false;
            const int error = set_thread(thread, priority, one_changed);
            if (error == ESRCH) continue;
            if (error != 0) return result_of(error);
            changed |= one_changed;
            any = true;
        }
    }
    return any ? RESULT_SUCCESS : RESULT_NO_OBJECT;
}

}  // namespace hosted::live
