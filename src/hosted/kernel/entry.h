// hosted/kernel/entry.h - the running kernel of this process, behind the _SL_ functions.
//
// It is made at the first kernel call or terminal request, over the machine that the environment names, and acts on
// what the kernel cannot: a machine file that is bad, a wait that never ends, a task that deletes itself.
#pragma once

#include <memory>
#include <optional>
#include <span>

#include "hosted/kernel/call_log.h"
#include "hosted/kernel/faults.h"
#include "hosted/kernel/kernel.h"

namespace hosted {

// The running kernel, made if there is none yet.
kernel &running();

// Ends the run: saves the machine and closes the call log. A failure is told once on standard error and turns status 0
// into 1. Does nothing, and reads no environment, when no kernel was made.
//   status   of the process so far
//   returns  its status now
int finish(int status);

// Puts a kernel over a machine in the place of the running one, or removes it: for programs that bring a machine of
// their own, such as tests. No other thread may be inside a call.
void install(std::unique_ptr<machine> brought, fault_list faults = {});
void shut_down();

// Sees every kernel call of the process, with the kernel's lock held: for programs that bring a machine of their own.
class observer {
public:
    virtual ~observer() = default;

    // Before a call does anything. Gives the result that it has to give without acting, as a fault does, or nothing.
    virtual std::optional<uint64_t> begins(call which, std::span<const argument> arguments) = 0;

    // Behind it; outputs are stored where it succeeded. A call that ends the process does not come here.
    virtual void ended(call which, std::span<const argument> arguments, uint64_t result, bool succeeded) = 0;
};

// Lets one watch the kernel that runs, until it is shut down; null: none.
void observe(observer *watching);

}  // namespace hosted
