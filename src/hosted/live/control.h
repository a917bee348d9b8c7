// hosted/live/control.h - the system calls that change a process: its end, signals and priorities.
//
// Results are RESULT_ codes. The caller has made sure which process it is (process_table::hold).
#pragma once

#include <cstdint>

#include "hosted/descriptors.h"
#include "hosted/live/process.h"

namespace hosted::live {

// A descriptor of the process of a number; empty with errno set, EINVAL for a thread's number.
descriptor open_process(int id);

// Kills a process and waits until it has ended: RESULT_TIMEOUT after 2 seconds.
uint64_t kill_process(const descriptor &pidfd);

// Sends the signal of an exception. EXC_SIGNAL takes the signal as its parameter; the others carry the parameter as the
// signal's value.
//   returns  RESULT_BAD_ARGUMENT for an exception or a signal that does not exist
uint64_t signal_process(const descriptor &pidfd, uint64_t exception, uint64_t parameter);

// Sets the priority of every thread, unless it is what the process reads now. The scale is that of
// stat_record::task_priority(): 100 to 139 are nice levels, below 100 are real-time levels.
//   returns  RESULT_BAD_ARGUMENT for a priority that does not exist, RESULT_NOT_PERMITTED also where a thread's
//            scheduling policy has no priority
uint64_t set_process_priority(process &which, uint64_t priority);

}  // namespace hosted::live
