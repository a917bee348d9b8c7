// hosted/kernel/server.h - a passive server: an object that owns a port and runs inside its sender's call; and what it
// needs of the kernel that it serves on.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "platform/kernel.h"

namespace hosted {

class arena;

// The kernel as a device server sees it: the hosted kernel itself, or in a process that reaches its kernel by calls an
// object that makes those calls.
class server_host {
public:
    // The memory that the server shares with its clients: the only way to reach what a client's address names.
    virtual arena &memory() = 0;

    // Queues an answer (0, code, word2) on a port. An answer due to a dead port is dropped.
    virtual void post(uint64_t port, uint64_t code, uint64_t word2) = 0;

    // Runs an event after so many milliseconds, within some call's wait. Events run in order of time, then of making.
    virtual void after(int64_t milliseconds, std::function<void()> event) = 0;

    // The task that a handle names: an open message may carry any handle to its client's task.
    virtual uint64_t task_of(uint64_t handle) = 0;

    // Whether a task has ended. A host that reports the end of a task by client_ended() need not be asked.
    virtual bool has_ended(uint64_t /*task*/) { return false; }

    // Objects made on behalf of a task, which their item OBJINFO_OWNER names. destroy() ends one with all its handles.
    virtual uint64_t new_port(uint64_t task) = 0;
    virtual uint64_t new_semaphore(uint64_t task, int64_t count) = 0;
    virtual void destroy(uint64_t handle) = 0;

    // Makes another handle to the object of a handle (NO_OBJECT: the kernel owns no such object), and deletes a handle.
    virtual uint64_t new_handle_to(uint64_t handle) = 0;
    virtual void close_handle(uint64_t handle) = 0;

protected:
    ~server_host() = default;
};

// A message as a server receives it.
struct delivery {
    kernel_message message;
    uint64_t handle = 0;  // to its port that the message was sent to: what the server gave that handle out for
};

// What a request is about: its command, and the path that it names, if any.
struct request_subject {
    uint32_t command = 0;
    std::string path;
};

class server {
public:
    virtual ~server() = default;

    // Handles one message at once; answers are posted on reply ports. Called with the kernel's lock held.
    virtual void receive(const delivery &received) = 0;

    // A task has ended: releases what was made for it.
    virtual void client_ended(uint64_t /*task*/) {}

    // The request that a begin message starts, for the call log; nothing for any other message.
    virtual std::optional<request_subject> subject_of(const kernel_message &) { return std::nullopt; }

    // The handle of its port, set once before the first message.
    void set_port(uint64_t handle) { port_ = handle; }
    uint64_t port() const { return port_; }

private:
    uint64_t port_ = 0;
};

}  // namespace hosted
