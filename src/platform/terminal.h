// platform/terminal.h - opening and controlling a terminal device. Defined by the platform: the hosted kernel, or
// terminal_plain.cpp with open() and ioctl() in a build for the real system.
#pragma once

// Opens the terminal device at path.
//   flags    TERM_OPEN_FLAGS
//   returns  a descriptor to be closed with CloseTerminal, or -1 with errno set
int OpenTerminal(const char *path, int flags);

// Does one control request on a terminal.
//   descriptor  0 for standard input, or what OpenTerminal returned
//   request     TERMCTL_
//   buffer      TERM_LAYOUT_SIZE bytes, read or written by the device as the request says
//   returns     0, or -1 with errno set
int ControlTerminal(int descriptor, unsigned long request, char *buffer);

// Closes what OpenTerminal returned.
void CloseTerminal(int descriptor);
