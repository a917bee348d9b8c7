// common/status.h - the exit statuses of the commands.
#pragma once

// Exit statuses. Commands that promise others keep their promise.
enum : int {
    SB_DONE = 0,
    SB_FAILED = 1,  // bad or missing operand, not found, an item or a table that failed
    SB_SETUP = 2,   // device, port, request or registry set-up
    SB_BAD_SWITCH = 100,
    SB_NO_ITERATOR = 101,  // no iterator, or no memory at set-up
};
