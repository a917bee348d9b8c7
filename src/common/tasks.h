// common/tasks.h - tasks by name and by handle.
//
// Running tasks are published in the registry; these look-ups read it and print nothing.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/kernel.h"

// The handle of the first task, in registry order, of exactly this name; NO_OBJECT when there is none and on any
// failure. Reads one key for each task up to it.
uint64_t sb_gettaskhandle(const char *name);

// The name of a task.
//   buffer, size  room for the name and its NUL; a size of 17 always suffices for the digits
//   returns       true and the name; false and the handle's 16 digits, when the registry has no such task
bool sb_gettaskname(uint64_t handle, char *buffer, size_t size);

// How a command reads the operands that name tasks.
enum class sb_taskoperand {
    name,    // as the registry has it
    hex,     // a handle as parse_task_key reads it: 10 is 0x10
    number,  // a handle as strtoul reads it in base 0: 10 is 10, 010 is 8; text that is no number is 0
};

// The handle that an operand names.
//   returns  false for a name that no task has; a handle is never refused, whatever its value
bool sb_resolvetask(const char *operand, sb_taskoperand how, uint64_t *handle);

// The items of every row of `task`, which omits a task that has not all of them.
struct sb_taskbasics {
    uint64_t handle, flags, priority, threads, memos, alloc_pages, reserved_pages;
};
inline constexpr struct {
    uint64_t item;
    uint64_t sb_taskbasics::*value;
} SB_TASK_BASICS[] = {
    {OBJINFO_HANDLE, &sb_taskbasics::handle},
    {TASKINFO_FLAGS, &sb_taskbasics::flags},
    {TASKINFO_PRIORITY, &sb_taskbasics::priority},
    {TASKINFO_THREADS, &sb_taskbasics::threads},
    {TASKINFO_MEMOS, &sb_taskbasics::memos},
    {TASKINFO_ALLOC_PAGES, &sb_taskbasics::alloc_pages},
    {TASKINFO_RESERVED_PAGES, &sb_taskbasics::reserved_pages},
};

uint64_t sb_get_master(uint64_t handle);  // the object's master handle, or the handle itself where it cannot be read
