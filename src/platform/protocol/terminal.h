// platform/protocol/terminal.h - control requests of a terminal device.
#pragma once

#include <cstddef>

enum : unsigned long {
    TERMCTL_GET_LAYOUT = 0x6B01,  // the device writes the layout's name to the buffer
    TERMCTL_SET_LAYOUT = 0x6B02,  // the buffer holds the new name
};

inline constexpr size_t TERM_LAYOUT_SIZE = 32;  // of the buffer: a name of at most 31 characters and its NUL
inline constexpr int TERM_OPEN_FLAGS = 260;     // by the numbers of the platform's open()
