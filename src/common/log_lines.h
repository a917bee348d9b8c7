// common/log_lines.h - printing the lines of a log.
#pragma once

#include <cstdint>

// Prints a slice of a log on descriptor 1, after what the stream of standard output holds: its lines, without blank
// ones, each ended by one line feed.
//   text    NUL-terminated; printed where it is, without a copy
//   length  not used: the slice ends at the NUL
//   mode    0: only lines whose beginning and end are in the slice; else also the two that may be cut
void sb_readlog_display(const char *text, uint32_t length, int mode);
