// terminal.h - opening and controlling a terminal device. The platform below defines both: the hosted kernel, or a
// plain open() and ioctl() in a build for the real system.
#pragma once

// Opens the terminal device at path.
//   flags    TERM_OPEN_FLAGS
//   returns  a descriptor, or -1 with errno set
int OpenTerminal(const char *path, int flags);

// Does one control request on a terminal.
//   descriptor  0 for standard input, or what OpenTerminal gave
//   request     TERMCTL_
//   buffer      TERM_LAYOUT_SIZE bytes, read or filled by the device
//   returns     0, or -1 with errno set
int ControlTerminal(int descriptor, unsigned long request, char *buffer);

// Closes what OpenTerminal gave.
void CloseTerminal(int descriptor);
