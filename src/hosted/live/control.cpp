// control.cpp - what is done to processes: ending, exceptions as signals, priorities.
//
// Every way to a call that acts goes through hold(): it takes a descriptor of the process first and looks behind it
// then, so that what was looked at and what is acted on are one process or, where it ended meanwhile, none.
#include <poll.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>

#include "hosted/live/handles.h"
#include "hosted/live/processes.h"
#include "platform/kernel.h"

namespace hosted::live {

namespace {

constexpr auto LONGEST_END = std::chrono::seconds(2);

uint64_t result_of(int error) {
    switch (error) {
    case 0: return RESULT_SUCCESS;
    case ESRCH:
    case ENOENT: return RESULT_NO_OBJECT;
    case EINVAL: return RESULT_BAD_ARGUMENT;
    case ENOMEM:
    case EMFILE:
    case ENFILE:
    case EAGAIN: return RESULT_NO_MEMORY;
    default: return RESULT_NOT_PERMITTED;
    }
}

// The signal of an exception; 0 where it has none.
int signal_of(uint64_t exception, uint64_t parameter) {
    constexpr uint64_t LAST_SIGNAL = 64;
    switch (exception) {
    case EXC_USR1: return SIGUSR1;
    case EXC_USR2: return SIGUSR2;
    case EXC_USR3: return SIGRTMIN + 3;
    case EXC_USR4: return SIGRTMIN + 4;
    case EXC_SIGNAL: return parameter <= LAST_SIGNAL ? static_cast<int>(parameter) : 0;
    default: return 0;
    }
}

// The C library declares these two only for C.
int open_pidfd(int process) { return static_cast<int>(syscall(SYS_pidfd_open, process, 0)); }
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

// Priorities of tasks and of the system: 100 to 139 are nice levels -20 to 19, and below 100 the real-time levels count
// the other way round. 99 would be real-time level 0, which does not exist.
constexpr uint64_t HIGHEST_PRIORITY = 139, FIRST_NICE = 100;
constexpr int LOWEST_NICE = -20, NO_LEVEL = 99;

// Sets one thread; true where that changed it.
bool set_thread(int thread, uint64_t priority, int &error) {
    sched_param now{};
    const int scheduler = sched_getscheduler(thread);
    const int policy = scheduler & ~SCHED_RESET_ON_FORK, kept = scheduler & SCHED_RESET_ON_FORK;
    if (scheduler < 0 || sched_getparam(thread, &now) != 0) {
        error = errno;
        return false;
    }
    const bool real_time = policy == SCHED_FIFO || policy == SCHED_RR;
    if (priority < FIRST_NICE) {
        const sched_param wanted{NO_LEVEL - static_cast<int>(priority)};
        if (real_time && now.sched_priority == wanted.sched_priority) return false;
        error = sched_setscheduler(thread, (real_time ? policy : SCHED_RR) | kept, &wanted) == 0 ? 0 : errno;
        return error == 0;
    }
    const int nice = static_cast<int>(priority - FIRST_NICE) + LOWEST_NICE;
    const auto id = static_cast<id_t>(thread);
    const bool is_normal = policy == SCHED_OTHER || policy == SCHED_BATCH || policy == SCHED_IDLE;
    if (is_normal && getpriority(PRIO_PROCESS, id) == nice) return false;
    const sched_param none{};
    if (!is_normal && sched_setscheduler(thread, SCHED_OTHER | kept, &none) != 0) error = errno;
    if (error == 0 && setpriority(PRIO_PROCESS, id, nice) != 0) error = errno;
    return error == 0;
}

}  // namespace

// A process that is held to be acted on.
struct process_table::target {
    explicit target(proc_root &root) : looked_at(root) {}

    descriptor pidfd;
    process looked_at;
};

// The numbers of the process file system are those of the calls only where both see the same processes.
bool process_table::sees_itself() {
    char text[16];
    const ssize_t length = readlinkat(root_.directory(), "self", text, sizeof text);
    return length > 0 && std::string_view(text, static_cast<size_t>(length)) == numbered_path(root_.self).c_str();
}

uint64_t process_table::hold(uint64_t handle, target &held) {
    if (!PROCESS_HANDLES.contains(handle)) return RESULT_NO_OBJECT;
    const int id = static_cast<int>(handle);
    held.pidfd = descriptor(open_pidfd(id));
    if (!held.pidfd) return errno == EINVAL ? RESULT_NO_OBJECT : result_of(errno);  // a thread's number
    if (!held.looked_at.open(id)) return RESULT_NO_OBJECT;
    if (const uint64_t result = held.looked_at.is_process(); result != RESULT_SUCCESS) return result;
    if (!sees_itself()) return RESULT_NOT_PERMITTED;
    if (was_ended(held.looked_at)) return RESULT_NO_OBJECT;
    uint64_t start = 0;
    if (!held.looked_at.start(start)) return held.looked_at.has_gone() ? RESULT_NO_OBJECT : RESULT_NOT_PERMITTED;
    const auto given = handed_out_.find(id);
    if (given != handed_out_.end() && start > given->second) return RESULT_NO_OBJECT;
    asked_.close();  // what is known of it may be about to change
    return RESULT_SUCCESS;
}

uint64_t process_table::end(uint64_t handle) {
    target held(root_);
    if (const uint64_t result = hold(handle, held); result != RESULT_SUCCESS) return result;
    const int id = held.looked_at.number();
    if (id == root_.self) return RESULT_SUCCESS;
    if (!send(held.pidfd, SIGKILL, nullptr)) return result_of(errno);
    if (const uint64_t result = await_end(held.pidfd.get()); result != RESULT_SUCCESS) return result;
    uint64_t start = 0;
    held.looked_at.start(start);
    ended_[id] = start;
    names_.erase(id);
    return RESULT_SUCCESS;
}

uint64_t process_table::raise(uint64_t handle, uint64_t exception, uint64_t parameter) {
    target held(root_);
    if (const uint64_t result = hold(handle, held); result != RESULT_SUCCESS) return result;
    const int signal = signal_of(exception, parameter);
    if (signal == 0) return RESULT_BAD_ARGUMENT;
    siginfo_t info{};
    info.si_signo = signal;
    info.si_code = SI_QUEUE;
    info.si_pid = root_.self;
    info.si_uid = getuid();
    info.si_value.sival_ptr = reinterpret_cast<void *>(static_cast<uintptr_t>(parameter));
    const bool carries = exception != EXC_SIGNAL;  // else the parameter is the signal itself
    return send(held.pidfd, signal, carries ? &info : nullptr) ? uint64_t{RESULT_SUCCESS} : result_of(errno);
}

// A thread that is made while the others are set may still have its maker's old priority: the list is gone through
// until nothing in it changes any more.
uint64_t process_table::set_priority(uint64_t handle, uint64_t priority) {
    constexpr int MOST_PASSES = 10;
    target held(root_);
    if (const uint64_t result = hold(handle, held); result != RESULT_SUCCESS) return result;
    if (priority > HIGHEST_PRIORITY || priority == NO_LEVEL) return RESULT_BAD_ARGUMENT;
    number_scan scan(open_directory(held.looked_at.directory(), "task"));
    bool any = false;
    for (int pass = 0; pass < MOST_PASSES; pass++) {
        bool changed = false;
        while (const int thread = scan.next()) {
            if (faccessat(scan.directory(), numbered_path(thread).c_str(), F_OK, 0) != 0) continue;  // has ended since
            int error = 0;
            if (set_thread(thread, priority, error)) changed = true;
            if (error == ESRCH) continue;
            if (error != 0) return result_of(error);
            any = true;
        }
        if (!changed) break;
        scan.rewind();
    }
    return any ? RESULT_SUCCESS : RESULT_NO_OBJECT;
}

}  // namespace hosted::live
