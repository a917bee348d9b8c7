// hosted/kernel/run.h - the life of a run: the kernel of this process, from its first call to its end.
//
// A run begins at the first kernel call or terminal request, over the machine that the environment names. It carries
// out what the kernel object cannot: it refuses a bad machine, and ends the process for a wait that never ends, a run
// past its budget of calls and a task that deletes itself.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>

#include "hosted/kernel/call_log.h"
#include "hosted/kernel/faults.h"
#include "hosted/kernel/kernel.h"

namespace hosted {

// The environment variables of a run. Any other with their prefix is refused.
inline constexpr char MACHINE_VARIABLE[] = "VENTIX_MACHINE";    // the machine: a file, a socket, or LIVE_MACHINE
inline constexpr char SAVE_VARIABLE[] = "VENTIX_MACHINE_SAVE";  // the file that a described machine is saved to
inline constexpr char CALL_LOG_VARIABLE[] = "VENTIX_CALL_LOG";  // the file that the call log is appended to
inline constexpr char LIVE_MACHINE[] = "live";                  // as where MACHINE_VARIABLE is not set

// Sees every kernel call of the process, with the kernel's lock held: for programs that bring a machine of their own.
class observer {
public:
    virtual ~observer() = default;

    // Before a call does anything. Returns the result to replace the call with, as a fault does, or nothing.
    virtual std::optional<uint64_t> begins(call which, std::span<const argument> arguments) = 0;

    // After it, with the outputs stored if it succeeded. Not called for a call that ends the process.
    virtual void ended(call which, std::span<const argument> arguments, uint64_t result, bool succeeded) = 0;
};

class guest;

// The kernel of a process and what surrounds it, or its way to the kernel of a running machine. The members are guarded
// by the kernel's lock.
struct run {
    // shared: memory for the arena that other processes map as well
    explicit run(std::unique_ptr<machine> over, fault_list listed = {}, std::span<std::byte> shared = {});
    explicit run(std::unique_ptr<guest> to);
    ~run();

    const uint64_t number;                 // unique in the process, unlike the address
    std::optional<hosted::kernel> kernel;  // nothing in a process that is attached
    std::unique_ptr<guest> attached;       // null in a process with a kernel of its own
    fault_list faults;
    call_log log;
    observer *watching = nullptr;
    bool watched;          // faults, a log, an observer or another process has a part in every call
    uint64_t calls_left;   // of the machine's budget
    bool entered = false;  // a thread has called
    bool failed = false;   // a failure was reported that must show in the status
    bool finished = false;
};

extern std::atomic<run *> current_run;  // null until the first call

run &begin_run();

// The run of this process, begun if there is none yet.
inline run &this_run() {
    run *known = current_run.load(std::memory_order_acquire);
    return known != nullptr ? *known : begin_run();
}

inline kernel &running() { return *this_run().kernel; }

// Ends the process for the fate of the caller's call, which has not returned: saves the machine and completes the call
// log before.
[[noreturn]] void end_in_call(run &ending, std::unique_lock<std::mutex> &lock, const caller &who, call which,
                              std::span<const argument> arguments);

// Ends the process with status 125 for a value that the machine cannot be asked for, by a call that cannot fail.
//   why  for a person
[[noreturn]] void end_unreadable(const char *why);

// Ends the run: saves the machine and checks the call log. A failure is reported once on standard error. Does nothing,
// and reads no environment, if no run has begun.
//   status   of the process so far
//   returns  its status now: 1 in place of 0 after a failure
int finish(int status);

// Begins a run over a machine of the caller's own, in place of the current run; and ends a run without a save: for
// programs that bring a machine, such as tests. No other thread may be inside a call.
void install(std::unique_ptr<machine> brought, fault_list faults = {}, std::span<std::byte> shared = {});
void shut_down();

// Lets one observer watch the current run, until it is shut down. Null: none.
void observe(observer *watching);

}  // namespace hosted
