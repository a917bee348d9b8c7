// hosted/live/thread_registers.cpp - stops a thread, reads its registers and lets it go.
#include "hosted/live/thread_registers.h"

#include <elf.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/uio.h>
#include <sys/wait.h>

#include <cerrno>
#include <chrono>
#include <ctime>

#include "platform/kernel.h"

namespace hosted::live {

namespace {

constexpr auto LONGEST_WAIT = std::chrono::milliseconds(100);

struct job {
    int thread;
    register_block *out;
    uint64_t result = RESULT_NO_MEMORY;
};

// ptrace() takes its data word as a pointer.
void *data_word(int value) { return reinterpret_cast<void *>(static_cast<intptr_t>(value)); }

// Waits until the thread stops. The wait collects nothing: if the thread ends first, its end is left to its parent.
//   signal  out: the signal that it stopped for and has to take afterwards; 0: none
uint64_t await_stop(int thread, int &signal) {
    const auto deadline = std::chrono::steady_clock::now() + LONGEST_WAIT;
    for (unsigned tries = 0;; ++tries) {
        siginfo_t info{};
        const int error = waitid(P_PID, static_cast<id_t>(thread), &info,
                                 WSTOPPED | WEXITED | WNOHANG | WNOWAIT | __WALL | __WNOTHREAD);
        if (error != 0 && errno != EINTR) return RESULT_NO_OBJECT;
        if (error == 0 && info.si_pid == thread) {
            if (info.si_code != CLD_TRAPPED && info.si_code != CLD_STOPPED) return RESULT_NO_OBJECT;
            const bool by_event = info.si_status >> 8 != 0;
            signal = by_event ? 0 : info.si_status;
            return RESULT_SUCCESS;
        }
        if (std::chrono::steady_clock::now() >= deadline) return RESULT_TIMEOUT;
        if (tries < 20) {
            sched_yield();
        } else {
            const timespec pause{0, 200000};
            nanosleep(&pause, nullptr);
        }
    }
}

uint64_t read_seized(int thread, register_block &out) {
    int signal = 0;
    if (ptrace(PTRACE_INTERRUPT, thread, nullptr, nullptr) != 0) return RESULT_NO_OBJECT;
    if (const uint64_t result = await_stop(thread, signal); result != RESULT_SUCCESS) return result;
    iovec block{out.bytes.data(), out.bytes.size()};
    const auto set = reinterpret_cast<void *>(static_cast<uintptr_t>(NT_PRSTATUS));
    const bool read = ptrace(PTRACE_GETREGSET, thread, set, &block) == 0;
    out.size = read ? block.iov_len : 0;
    ptrace(PTRACE_DETACH, thread, nullptr, data_word(signal));
    return read ? RESULT_SUCCESS : RESULT_NO_OBJECT;
}

void *perform(void *argument) {
    job &work = *static_cast<job *>(argument);
    if (ptrace(PTRACE_SEIZE, work.thread, nullptr, nullptr) == 0) {
        work.result = read_seized(work.thread, *work.out);
    } else {
        work.result = errno == ESRCH ? RESULT_NO_OBJECT : RESULT_NOT_PERMITTED;
    }
    return nullptr;
}

}  // namespace

// The tracer is a thread made for this alone. When it ends, the kernel releases all that it traces, a thread that did
// not stop in time included.
uint64_t read_registers(int thread, register_block &out) {
    if (thread <= 0) return RESULT_NO_OBJECT;
    job work{thread, &out};
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);  // the tracer inherits it: no handler of the program runs there
    pthread_t tracer;
    const bool made = pthread_create(&tracer, nullptr, perform, &work) == 0;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    if (made) pthread_join(tracer, nullptr);
    return work.result;
}

}  // namespace hosted::live
