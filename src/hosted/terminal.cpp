// hosted/terminal.cpp - platform/terminal.h over the terminals of the machine.
#include "platform/terminal.h"

#include <cerrno>
#include <mutex>
#include <new>

#include "hosted/kernel/run.h"
#include "hosted/wire/guest.h"

namespace {

// Makes a request of the terminals. -1 with errno set, also where it finds no memory.
template <class Request> int with_terminals(Request request) {
    hosted::run &now = hosted::this_run();
    try {
        if (now.attached) return request(static_cast<hosted::terminal_source &>(*now.attached));
        const std::lock_guard lock(now.kernel->mutex());
        return request(now.kernel->machine().terminals());
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return -1;
    }
}

}  // namespace

int OpenTerminal(const char *path, int flags) {
    return with_terminals([=](auto &terminals) { return terminals.open_terminal(path, flags); });
}

int ControlTerminal(int descriptor, unsigned long request, char *buffer) {
    return with_terminals([=](auto &terminals) { return terminals.control_terminal(descriptor, request, buffer); });
}

void CloseTerminal(int descriptor) {
    static_cast<void>(with_terminals([=](auto &terminals) { return terminals.close_terminal(descriptor), 0; }));
}
