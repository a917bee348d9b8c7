// hosted/terminal.cpp - platform/terminal.h over the terminals of the machine.
#include "platform/terminal.h"

#include <mutex>

#include "hosted/kernel/run.h"

namespace {

template <class Request> auto with_terminals(Request request) {
    hosted::kernel &owner = hosted::running();
    const std::lock_guard lock(owner.mutex());
    return request(owner.machine().terminals());
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
