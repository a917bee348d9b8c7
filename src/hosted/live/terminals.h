// hosted/live/terminals.h - terminal devices of the system.
#pragma once

namespace hosted::live {

// As open, ioctl and close, errno included. Only a terminal gets a request; everything else answers ENOTTY.
int open_terminal(const char *path, int flags);
int control_terminal(int descriptor, unsigned long request, char *buffer);
void close_terminal(int descriptor);

}  // namespace hosted::live
