// hosted/live/thread_registers.h - reads the general registers of a thread.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace hosted::live {

// A thread's general registers as the kernel lays them out for debuggers.
struct register_block {
    alignas(8) std::array<std::byte, 1024> bytes;
    size_t size = 0;  // of what was read
};

// Reads them by stopping the thread for the moment of reading. It is seized and interrupted, never attached: a stopped
// thread stays stopped, and a running one goes on as before. The caller needs the right to trace it.
//   returns  RESULT_SUCCESS, RESULT_NO_OBJECT (ended), RESULT_NOT_PERMITTED, RESULT_TIMEOUT (did not stop within 100
//            milliseconds) or RESULT_NO_MEMORY
// As after any stop, a system call that the kernel cannot restart by itself ends as interrupted.
uint64_t read_registers(int thread, register_block &out);

}  // namespace hosted::live
