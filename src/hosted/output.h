// hosted/output.h - standard output of a run: one large buffer, and a report of what could not be written.
#pragma once

namespace hosted {

// What begins each message of this process on standard error. Set before anything else runs, if at all.
inline const char *program_name = "ventix";

// Gives standard output its buffer. Called once, before main().
//   reader_gone  called when a write fails because the reader has gone (EPIPE); null: the write fails like any other
void prepare_output(void (*reader_gone)());

// Flushes standard output. A failure is reported on standard error, once; a reader that went away is not one.
//   status   of the run so far
//   returns  its status now: 1 in place of 0 after a failure
int check_output(int status);

}  // namespace hosted
