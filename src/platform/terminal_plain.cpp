// platform/terminal_plain.cpp - the terminal calls of a build for the real system, whose open() and ioctl() reach the
// device. A build with the hosted kernel, which has its own terminals, leaves this file out.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "platform/terminal.h"

int OpenTerminal(const char *path, int flags) { return open(path, flags); }

int ControlTerminal(int descriptor, unsigned long request, char *buffer) { return ioctl(descriptor, request, buffer); }

void CloseTerminal(int descriptor) {
    // Nothing was written that a failed close could lose.
    static_cast<void>(close(descriptor));
}
