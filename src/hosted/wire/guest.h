// hosted/wire/guest.h - carries this process's kernel calls to a running machine.
//
// The thread that attaches makes the process's first connection, which lasts as long as the process. Every other
// thread opens one at its first call and closes it when it ends; its calls fail with RESULT_NO_MEMORY where the process
// has as many as it may have. A call that cannot be answered any more ends the process with status 125.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "hosted/descriptors.h"
#include "hosted/kernel/call_log.h"
#include "hosted/kernel/machine.h"
#include "hosted/kernel/server.h"
#include "hosted/wire/wire.h"

namespace hosted {

struct caller;

class guest final : public terminal_source {
public:
    static bool is_socket(const char *path);

    // Attaches to the machine whose socket is at path, and maps the memory that it shares.
    //   message  out, on failure: "PATH: what is wrong", for a person
    //   returns  null on failure
    static std::unique_ptr<guest> attach(const char *path, std::string &message);

    // Makes one kernel call and stores its outputs.
    //   who  out: its fate, and whether a fault replaced it
    uint64_t call(hosted::call which, std::span<const argument> arguments, caller &who);

    // The registry request that a message to a port begins; nothing for any other message.
    std::optional<request_subject> subject_of(uint64_t port, const kernel_message &message);

    // The handle that the calling thread's last message was sent to.
    uint64_t addressed() const;

    // Returns this task's slice of the shared memory, which is all zeroes when it is first taken; empty where the
    // machine has none left.
    std::span<std::byte> take_slice();

    int open_terminal(const char *path, int flags) override;
    int control_terminal(int descriptor, unsigned long request, char *buffer) override;
    void close_terminal(int descriptor) override;

private:
    struct connection;
    explicit guest(std::string path) : path_(std::move(path)) {}

    bool open(connection &made, wire::purpose purpose, descriptor *memory, std::string &message) const;
    connection &of_thread();
    wire::answer exchange(uint32_t what, std::span<const uint64_t> words);
    wire::answer exchange(wire::service what, std::span<const uint64_t> words) {
        return exchange(static_cast<uint32_t>(what), words);
    }
    int terminal_result(const wire::answer &given) const;
    [[noreturn]] void end(const char *why) const;

    static thread_local connection connection_;
    const std::string path_;
    descriptor first_;  // the first connection
};

}  // namespace hosted
