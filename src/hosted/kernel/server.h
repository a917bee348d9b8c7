// hosted/kernel/server.h - a passive server: an object behind a port, run inside its sender's call.
#pragma once

#include "platform/kernel.h"

namespace hosted {

class server {
public:
    virtual ~server() = default;

    // Handles one message at once; answers are posted on reply ports. Called with the kernel's lock held.
    virtual void receive(const kernel_message &message) = 0;

    // Hands over a message that was sent to a handle of the port.
    void deliver(const kernel_message &message, uint64_t handle) {
        addressed_ = handle;
        receive(message);
    }

    // The handle of its port, told once before the first message.
    void set_port(uint64_t handle) { port_ = handle; }
    uint64_t port() const { return port_; }

protected:
    // The handle that the message at hand was sent to: a server tells by it what it gave out the handle for.
    uint64_t addressed() const { return addressed_; }

private:
    uint64_t port_ = 0;
    uint64_t addressed_ = 0;
};

}  // namespace hosted
