// platform/kept.h - what the client library has read of a server's records and goes by from then on. Private to this
// folder.
//
// A server can write to its records at any time, so the library copies what it follows or sends to: of a device when it
// is opened, of a shared request when it is first used. A request is bound to its device when it is created. No pointer
// is read from a server's memory after that.
//
// A record that this library did not open or create is read at each use: whoever passes it vouches for it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/protocol/device.h"

// The one request that all callers of a device share, with its lock and payload buffer.
struct shared_request {
    uint64_t server_port;
    uint64_t lock;
    IOreq *request;
    std::byte *buffer;
    uint64_t size;  // of the buffer, bytes
};

struct kept_device {
    const device_record *record;  // names the device in messages
    uint64_t server_port;
    uint64_t private_port;
    uint64_t semaphore;
    uint64_t context;       // address of the client context, or 0
    shared_request shared;  // request is null until the first use
};

// An entry of the list of open devices and their requests.
struct kept_entry {
    const IOreq *request = nullptr;  // null: the device itself
    kept_device device{};
    kept_entry *next = nullptr;
};
using kept_pointer = std::unique_ptr<kept_entry>;

// An entry to be filled and kept, made before the server is asked for what it is for; null where there is no memory.
kept_pointer make_entry();

// Puts an entry on the list, for a device that is open or a request that exists. Replaces one of the same address,
// which the server has given out again.
void keep(kept_pointer entry);

// What the library goes by for a device, or for the device of a request.
kept_device kept(const device_record *record);
kept_device kept(const IOreq *request);

// Takes a request off the list; null where it is not on it. To be done before the server learns that the request is no
// longer used, since it may give its address to another at once.
kept_pointer take(const IOreq *request);

// Takes a device and its requests off the list, at the same point.
void forget(const device_record *record);

// What the record says now.
kept_device read_device(const device_record *record);

// What a device has to share; false for a null device, and where it has no request or the server gave an address that
// cannot be one.
bool find_shared_request(const device_record *record, shared_request &shared);
