// terminal.cpp - platform/terminal.h over the running machine's terminals.
#include "platform/terminal.h"

#include <mutex>

#include "hosted/kernel/entry.h"

int OpenTerminal(const char *path, int flags) {
    hosted::kernel &owner = hosted::running();
    const std::lock_guard lock(owner.mutex());
    return owner.machine().open_terminal(path, flags);
}

int ControlTerminal(int descriptor, unsigned long request, char *buffer) {
    hosted::kernel &owner = hosted::running();
    const std::lock_guard lock(owner.mutex());
    return owner.machine().control_terminal(descriptor, request, buffer);
}

void CloseTerminal(int descriptor) {
    hosted::kernel &owner = hosted::running();
    const std::lock_guard lock(owner.mutex());
    owner.machine().close_terminal(descriptor);
}
