// hosted/live/terminals.cpp - terminal devices of the system.
//
// The layout requests are passed on unchanged. A terminal driver that does not know them refuses them, and its error is
// the caller's answer. Only a terminal gets one: to the driver of another device the same number may mean something
// else (to a video driver: set the overlay).
#include "hosted/live/terminals.h"

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>

#include "platform/protocol/terminal.h"

namespace hosted::live {

int open_terminal(const char *path, int flags) {
    if (flags != TERM_OPEN_FLAGS) {
        errno = EINVAL;
        return -1;
    }
    // TERM_OPEN_FLAGS means: for reading and writing, and not as the controlling terminal. The open waits neither for a
    // line's carrier nor for anything that another kind of file waits for.
    return open(path, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
}

int control_terminal(int descriptor, unsigned long request, char *buffer) {
    if (isatty(descriptor) == 0) return -1;
    if (request != TERMCTL_GET_LAYOUT && request != TERMCTL_SET_LAYOUT) {
        errno = EINVAL;
        return -1;
    }
    return ioctl(descriptor, request, buffer) < 0 ? -1 : 0;
}

void close_terminal(int descriptor) { close(descriptor); }

}  // namespace hosted::live
