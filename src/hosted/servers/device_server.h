// hosted/servers/device_server.h - the server side of the device protocol, for every device of both machines.
//
// A device is a name, a behaviour and the protocols that it speaks. The server here opens and closes, makes and deletes
// requests, begins and aborts them, answers queries, and answers late, wrongly or never where the behaviour says so; a
// protocol only performs its commands.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "hosted/kernel/kernel.h"
#include "hosted/kernel/server.h"
#include "platform/protocol/device.h"

namespace hosted {

// How a device behaves where that is not left to its protocols; everything at its default is a healthy device.
struct device_behaviour {
    enum class opening : uint8_t { accept, refuse, null, silent };

    struct outcome {                            // of a request of one command
        bool silent = false;                    // never completes
        bool abort = false;                     // completes as aborted
        std::optional<uint32_t> error;          // completes with this error
        int64_t delay = 0;                      // milliseconds
    };

    struct answer {                             // to one query
        bool silent = false;
        std::optional<uint32_t> code;           // in place of the query's code + 1
        std::optional<uint64_t> value;          // in place of what queries says, or 0
        int64_t delay = 0;                      // milliseconds
    };

    opening open = opening::accept;
    bool null_requests = false;                 // creating a request gives no request
    std::vector<uint64_t> classes;              // class codes, for the class query
    std::map<uint32_t, uint64_t> queries;       // further queries and their answers; a ping is always answered
    std::map<uint32_t, answer> answers;
    std::map<uint32_t, outcome> requests;       // by command
};

inline constexpr uint32_t QUERY_UNKNOWN_ANSWER = 0x20003;   // code of the answer to what a device does not answer

// A begun request, as a protocol sees it.
struct request_view {
    arena &memory;
    IOreq &header;
    uint64_t address;                           // of the request
    uint64_t size;                              // of the request, bytes

    // The argument block that the payload word names, if it lies in shared memory; else an empty span.
    std::span<std::byte> payload(uint64_t length) const { return memory.span(header.payload, length); }
    template <class T> T *block() const { return memory.record<T>(header.payload); }
};

// One protocol of a device: a set of commands.
class device_protocol {
public:
    virtual ~device_protocol() = default;

    // Performs a request's command: 0 or the error word it fails with; nothing for a command of another protocol.
    virtual std::optional<uint32_t> perform(request_view &request) = 0;

    // Takes a message that is none of the device protocol's; false if it is none of this one's either.
    virtual bool direct(const kernel_message &) { return false; }

    // A request is deleted, or its device closed: what was kept for it goes.
    virtual void forget(uint64_t /*request*/) {}
};

class device_server : public server {
public:
    device_server(kernel &owner, device_behaviour behaviour);
    ~device_server() override;

    void add(std::unique_ptr<device_protocol> protocol);

    // Makes a client context (lock, request, payload buffer of that many bytes) at every open.
    void make_context(uint64_t buffer_size) { context_size_ = buffer_size; }

    void receive(const kernel_message &message) override;

protected:
    // Overridden by a server that must misbehave in a way no behaviour says.
    virtual void begin(uint64_t reply_port, uint64_t id);
    virtual void abort(uint64_t reply_port, uint64_t id);

    kernel &kernel_;

private:
    struct request;
    struct record;

    device_behaviour behaviour_;
    std::vector<std::unique_ptr<device_protocol>> protocols_;
    uint64_t context_size_ = 0;                 // 0: no context
    std::map<uint64_t, std::unique_ptr<record>> records_;    // by address
    std::map<uint64_t, std::unique_ptr<request>> requests_;  // by id
    uint64_t next_id_ = 1;
};

}  // namespace hosted
