// platform/open_devices.h - the open devices and their requests, with copies of what their servers wrote. Private to
// this folder.
//
// A server can write to its records at any time, so the library copies what it follows or sends to: of a device when it
// is opened, of a shared request when it is first used. A request is bound to its device when it is created. No pointer
// is read from a server's memory after that.
//
// A record that this library did not open or create is read at each use: the caller vouches for it.
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

struct open_device {
    const device_record *record;  // names the device in messages
    uint64_t server_port;
    uint64_t private_port;
    uint64_t semaphore;
    uint64_t context;       // address of the client context, or 0
    shared_request shared;  // request is null until the first use
};

// An entry of the list of open devices and their requests.
struct open_entry {
    const IOreq *request = nullptr;  // null: the device itself
    open_device device{};
    open_entry *next = nullptr;
};
using entry_pointer = std::unique_ptr<open_entry>;

// Makes an entry to be filled and added. Null where there is no memory: to be found out before the server is asked for
// the device or request.
entry_pointer make_entry();

// Adds the entry of a device that is open, or of a request that exists. Replaces one of the same address, which the
// server has reused.
void add_entry(entry_pointer entry);

// The copy for a device, or for the device of a request. Reads the record where the list has none.
open_device device_of(const device_record *record);
open_device device_of(const IOreq *request);

// Removes a request from the list; null where it is not on it. Call it before the server learns that the request is no
// longer used: the server may reuse its address at once.
entry_pointer remove_request(const IOreq *request);

// Removes a device and its requests from the list, at the same point.
void remove_device(const device_record *record);

// Reads the record of a device.
open_device read_device(const device_record *record);

// Finds the shared request of a device. False for a null device, and where it has no such request or the address of one
// cannot be right.
bool find_shared_request(const device_record *record, shared_request &shared);
