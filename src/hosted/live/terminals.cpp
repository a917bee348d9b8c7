// terminals.cpp - terminal devices of the system.
//
// The layout requests go out as they are; a terminal driver that does not know them refuses them with its own error,
// which is then the caller's answer. Drivers of other devices may have given the same numbers another meaning (a video
// driver sets its overlay by them), so that only what is a terminal gets one.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>

#include "hosted/live/system.h"
#include "platform/protocol/terminal.h"

namespace hosted::live {

int open_terminal(const char *path, int flags) {
    if (flags != TERM_OPEN_FLAGS) {
        errno = EINVAL;
        return -1;
    }
    // The flags' meaning here: for reading and writing, and not as the terminal that controls this process. A line
    // without a carrier, or any other file, is not waited for.
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
