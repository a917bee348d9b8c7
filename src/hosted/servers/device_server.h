// hosted/servers/device_server.h - the server side of the device protocol, for every device of both machines.
//
// A device is a name, a behaviour and the protocols that it speaks. The server here opens and closes, creates and
// deletes requests, begins and aborts them, and answers queries. Where the behaviour says so, it answers late, wrongly
// or never. A protocol only performs its commands.
//
// A request that was begun is answered once, whatever happens in between. A message about an unknown request or record
// changes nothing, but its sender gets the reply that it waits for.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "hosted/kernel/arena.h"
#include "hosted/kernel/server.h"
#include "platform/protocol/device.h"

namespace hosted {

// How a device behaves beyond what its protocols do. With every member at its default it is healthy.
struct device_behaviour {
    enum class opening : uint8_t { accept, refuse, null, silent };

    struct outcome {                    // of a request of one command
        bool silent = false;            // never completes
        bool abort = false;             // completes as aborted and leaves its error word alone
        std::optional<uint32_t> error;  // completes with this error
        int64_t delay = 0;              // milliseconds until it is performed and completes
        std::optional<uint32_t> code;   // of the completion, whatever the outcome
        uint32_t times = 1;             // number of completions
        // Bytes to write over the request, and over its argument block, before it completes, by offset. Bytes out of
        // reach of the request are left out.
        std::map<uint64_t, std::string> request_bytes;
        std::map<uint64_t, std::string> payload_bytes;
    };

    struct answer {                    // to one query
        bool silent = false;           // none comes
        std::optional<uint32_t> code;  // in place of the query's code + 1
        uint64_t value = 0;
        int64_t delay = 0;   // milliseconds
        uint32_t times = 1;  // number of answers
    };

    opening open = opening::accept;
    bool null_requests = false;            // a creation returns address 0
    std::vector<uint64_t> classes;         // class codes, for the class query
    std::map<uint32_t, uint64_t> queries;  // further queries and their answers; a ping is always answered
    std::map<uint32_t, answer> answers;    // in place of the healthy answer, by query
    std::map<uint32_t, outcome> requests;  // by command
};

inline constexpr uint32_t QUERY_UNKNOWN_ANSWER = 0x20003;  // code of the answer to an unknown query

// Reads a field of shared memory, which may change between two readings: what was checked is what is used.
template <class T> T read_once(const T &shared) { return *const_cast<const volatile T *>(&shared); }

// A begun request, as a protocol sees it. The client may write its memory at any time: read each field once.
struct request_view {
    arena &memory;
    IOreq &header;
    uint64_t address;  // of the request
    uint64_t size;     // of the request, bytes
    uint64_t payload;  // address of the argument block, as the client gave it
    uint64_t buffer;   // address of the payload buffer of its device record; 0 where there is none
    uint64_t buffer_size;
    uint64_t client;  // the task that opened its device

    // The bytes from an address to the end of the request or of the payload buffer that it lies in. Empty elsewhere:
    // no request reaches other memory.
    std::span<std::byte> rest(uint64_t at) const;

    // length bytes at an address; empty unless all of them are within reach.
    std::span<std::byte> bytes(uint64_t at, uint64_t length) const;

    // The text at an address, without its NUL; nothing where no NUL is within reach, or the text is longer than so many
    // bytes. Copy it before checking it.
    std::optional<std::string_view> text(uint64_t at, uint64_t longest = UINT64_MAX) const;

    // The argument block as a record, or null (out of reach, or misaligned).
    template <class T> T *block() const {
        return bytes(payload, sizeof(T)).empty() ? nullptr : memory.record<T>(payload);
    }

    // The request as a record that begins with its header, or null where it is too short.
    template <class T> T *whole() const { return size < sizeof(T) ? nullptr : memory.record<T>(address); }
};

// One protocol of a device: a set of commands.
class device_protocol {
public:
    virtual ~device_protocol() = default;

    // Performs a request's command. Returns 0, or the error word to fail it with; nothing for a command of another
    // protocol.
    virtual std::optional<uint32_t> perform(uint32_t command, const request_view &request) = 0;

    // Receives a message that is not one of the device protocol's. Returns false if it is not one of this protocol's
    // either.
    virtual bool direct(const kernel_message &) { return false; }

    // The request at an address is deleted, or its device closed: releases what the protocol holds for it.
    virtual void forget(arena & /*memory*/, uint64_t /*request*/) {}

    // The path that a request names, for the call log; empty where its command has none, or it is out of reach.
    virtual std::string_view path_of(uint32_t /*command*/, const request_view &) { return {}; }
};

class device_server : public server {
public:
    // The host must outlive the server.
    device_server(server_host &host, device_behaviour behaviour);
    ~device_server() override;

    void add(std::unique_ptr<device_protocol> protocol);

    // Makes a client context (lock, request, payload buffer of so many bytes) at every open. 0: none.
    void make_context(uint64_t buffer_size) { context_size_ = buffer_size; }

    void receive(const delivery &received) override;
    void client_ended(uint64_t task) override;
    std::optional<request_subject> subject_of(const kernel_message &message) override;

protected:
    // Overridden by a server that must misbehave in a way that device_behaviour cannot express.
    virtual void begin(uint64_t reply_port, uint64_t id);
    virtual void abort(uint64_t reply_port, uint64_t id);

    server_host &host_;

private:
    // One open of the device.
    struct record {
        uint64_t address = 0;
        uint64_t client = 0;       // the task that opened it
        uint64_t server_port = 0;  // its own handle to the server's port; a close sent there names this record
        uint64_t private_port = 0;
        uint64_t semaphore = 0;
        uint64_t context = 0;
        uint64_t lock = 0;
        uint64_t context_port = 0;  // reply port of the context's request
        uint64_t buffer = 0;
    };

    struct request {
        uint64_t id = 0;
        uint64_t address = 0;
        uint64_t size = 0;
        uint64_t record = 0;      // address of its device record
        bool pending = false;     // begun and not answered
        uint64_t begun = 0;       // number of that begin: a late completion of an earlier one does not count
        uint64_t reply_port = 0;  // of that begin
    };

    void open(uint64_t reply_port, uint64_t client);
    void close(uint64_t reply_port, uint64_t server_port);
    void create(uint64_t record_address, uint64_t size);
    void remove(uint64_t id);
    void query(const kernel_message &message);

    uint64_t make_record(uint64_t client);
    bool fill_record(record &made);
    bool make_client_context(record &made);
    template <class Test> void release_records(Test is_gone);
    void release_requests();
    void release(const record &gone);
    IOreq *make_request(uint64_t record_address, uint64_t size);
    request *find(uint64_t id);
    void drop(const request &gone);
    void finish(request &done, const device_behaviour::outcome &outcome);
    request_view view_of(const request &viewed) const;
    uint32_t perform(const request_view &view);
    std::optional<uint64_t> answer(uint32_t code, uint64_t parameter) const;

    const device_behaviour behaviour_;
    const device_behaviour::outcome healthy_;  // of a command that the behaviour does not mention
    std::vector<std::unique_ptr<device_protocol>> protocols_;
    uint64_t context_size_ = 0;             // 0: no context
    std::map<uint64_t, record> records_;    // by address
    std::map<uint64_t, request> requests_;  // by id
    uint64_t last_id_ = 0;
    uint64_t begins_ = 0;
};

}  // namespace hosted
