// platform/protocol/device.h - what a device's client and server share: message codes, device record, I/O request.
//
// The records are in memory that both sides map, and that belongs to the server. A client reads only the fields named
// here, and of a device record and its context only at the open. Addresses are 64-bit words: every offset is the same
// for both sides. A field's comment says who writes it.
#pragma once

#include <cstddef>
#include <cstdint>

// ---- messages: code, word1, word2 -----------------------------------------------------------------------------------

enum : uint32_t {
    DEVMSG_OPEN = 0x20D00,    // to a device's port: reply port, handle of the calling task
    DEVMSG_OPENED = 0x20D01,  // on the reply port: word2 the address of the device record, or 0
    DEVMSG_CLOSE = 0x20D10,   // to the record's server port, which identifies the record: 0, reply port
    DEVMSG_CLOSED = 0x20D11,
    DEVMSG_CREATE_REQUEST = 0x21D10,        // device record address, total size in bytes
    DEVMSG_REQUEST_CREATED = 0x21D11,       // on the record's private port: word2 the request's address, or 0
    DEVMSG_DELETE_REQUEST = 0x21D20,        // device record address, request id
    DEVMSG_REQUEST_DELETED = 0x21D21,       // on the record's private port
    DEVMSG_DELETE_REQUEST_ASYNC = 0x21DA1,  // 0, request id; no reply

    IOMSG_BEGIN = 0x20100,    // request's reply port, request id
    IOMSG_ABORT = 0x20101,    // request's reply port, request id
    IOMSG_ABORTED = 0x20002,  // on the request's reply port, as the three below
    IOMSG_FAILED = 0x20003,
    IOMSG_DONE = 0x20004,
    IOMSG_ABORT_ACKNOWLEDGED = 0x20012,

    // Queries, to a device's port: reply port, parameter. The answer has the code + 1 and the result in word2.
    DEVQUERY_GET_CLASS = 0x20C00,  // parameter: index into the device's list of classes
    DEVQUERY_CHANGE_POWER_LEVEL = 0x20C61,
    DEVQUERY_POWER_LEVEL = 0x20C63,
    DEVQUERY_PING = 0x2AD60,
    DEVQUERY_DEBUG_COMMAND = 0x2DB60,
};

// ---- device record --------------------------------------------------------------------------------------------------

struct device_record {
    uint64_t reserved0[4];
    uint64_t accepted;  // nonzero when the server accepted the open
    uint64_t reserved40[5];
    uint64_t semaphore;  // count 1; serialises the creation and deletion of requests on this record
    uint64_t reserved88[3];
    uint64_t server_port;  // receives every message about the record and its requests
    uint64_t reserved120;
    uint64_t private_port;  // receives the replies to creation and deletion
    uint64_t reserved136[8];
    uint64_t context;  // address of a client_context, or 0
};
static_assert(offsetof(device_record, accepted) == 32);
static_assert(offsetof(device_record, semaphore) == 80);
static_assert(offsetof(device_record, server_port) == 112);
static_assert(offsetof(device_record, private_port) == 128);
static_assert(offsetof(device_record, context) == 200);
static_assert(sizeof(device_record) == 208);

// Made at the open by servers whose clients share one request per process (registry, system service).
struct client_context {
    uint64_t lock;         // semaphore of count 1
    uint64_t request;      // address of the pre-made request with its reply port, or 0
    uint64_t buffer;       // address of the payload buffer
    uint64_t buffer_size;  // bytes
};
static_assert(offsetof(client_context, request) == 8);
static_assert(offsetof(client_context, buffer) == 16);
static_assert(offsetof(client_context, buffer_size) == 24);
static_assert(sizeof(client_context) == 32);

// ---- I/O request ----------------------------------------------------------------------------------------------------

struct IOreq {
    uint64_t id;           // server: identifies the request in every message about it
    uint64_t device;       // server: address of the device record; the client library does not read it
    uint64_t server_word;  // server's own
    uint64_t reply_port;   // client, at creation: receives the completions
    uint32_t unit;         // client, at creation
    uint32_t status;       // client, at creation: IOREQ_STATUS_NEW
    uint32_t command;      // client, before the start
    uint8_t flags;         // client, at creation
    uint8_t reserved45[3];
    uint32_t error;          // server: why it failed; client: IOERROR_LOCAL where it could not be sent or answered
    uint32_t timeout;        // client: milliseconds, for servers that use it
    uint64_t reserved56[3];  // cleared at creation
    union {                  // command-specific
        uint64_t words[4];
        struct {
            uint64_t buffer_size;  // client: bytes of room
            uint64_t reserved88;
            uint64_t returned_size;  // server: bytes written
            uint64_t reserved104;
        } transfer;
    };
    uint64_t payload;  // client, before the start: address of the command's argument block
    // followed by the in-line area, as long as the size asked for at creation allows
};
static_assert(offsetof(IOreq, reply_port) == 24);
static_assert(offsetof(IOreq, unit) == 32);
static_assert(offsetof(IOreq, status) == 36);
static_assert(offsetof(IOreq, command) == 40);
static_assert(offsetof(IOreq, flags) == 44);
static_assert(offsetof(IOreq, error) == 48);
static_assert(offsetof(IOreq, timeout) == 52);
static_assert(offsetof(IOreq, transfer.buffer_size) == 80);
static_assert(offsetof(IOreq, transfer.returned_size) == 96);
static_assert(offsetof(IOreq, payload) == 112);
static_assert(sizeof(IOreq) == 120);

inline constexpr uint32_t IOREQ_STATUS_NEW = 0xFFFFFFFF;
inline constexpr uint8_t IOREQ_FLAGS_DEFAULT = 3;        // of every request of the toolbox
inline constexpr uint64_t IOREQ_INLINE = sizeof(IOreq);  // offset of the in-line area

// Error words of failed requests.
enum : uint32_t {
    IOERROR_LOCAL = 1,      // from the client library: not sent, or no reply
    IOERROR_NOT_FOUND = 3,  // no such unit, service or key
    IOERROR_BAD_COMMAND = 4,
};
