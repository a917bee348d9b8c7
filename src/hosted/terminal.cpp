// hosted/terminal.cpp - platform/terminal.h over the terminals of the machine.
#include "platform/terminal.h"

#include <mutex>

#include "hosted/kernel/run.h"
#include "hosted/wire/guest.h"

namespace {

template <class Request> auto with_terminals(Request request) {
    hosted::run &now = hosted::this_run();
    if (now.attached) return request(static_cast<hosted::terminal_source &>(*now.attached));
    const std::lock_guard lock(now.kernel->mutex());
    return request(now.kernel->machine().terminals());
}

}  // namespace

int OpenTerminal(const char *path, int flags) {
    return with_terminals([=](auto &terminals) { return terminals.open_terminal(path, flags); });
}

int ControlTerminal(int descriptor, unsigned long request, char *buffer) {
    return with_terminals([=](auto &terminals) { return terminals.control_terminal(descriptor, request, buffer); });
}

void CloseTerminal(int descriptor) {
    with_terminals([=](auto &terminals) { terminals.close_terminal(descriptor); });
}
