// The terminal calls of a build for the real system, whose own open() and ioctl() reach the device. Beside the hosted
// kernel, which has terminals of its own, this file is left out.
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
