// protocol/task.h - the notice that a task's end is announced with.
#pragma once

#include <cstdint>

// To the exit notice port: the task's master handle, code, the exit code shifted left by 8.
inline constexpr uint32_t MSG_TASK_EXIT = 0xD0030002;
