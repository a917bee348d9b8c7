// platform/shared_request.h - the one request that all callers of a device share, with its lock and payload buffer.
// Private to this folder.
//
// Registry and system service make them when they are opened. Every use locks, points the request at the buffer, fills
// the buffer, runs the request, reads the buffer and unlocks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platform/protocol/device.h"

struct shared_request {
    uint64_t lock;
    IOreq *request;
    std::byte *buffer;
    uint64_t size;  // of the buffer, bytes
};

// What a device has to share; false for a null device, and where it has no request or the server gave an address that
// cannot be one.
bool find_shared_request(const device_record *device, shared_request &shared);

// Takes the lock and points the request at the buffer. Where the lock cannot be taken the calling task deletes itself;
// false, with nothing locked, should it outlive that.
bool lock_shared_request(const shared_request &shared);

// Gives the lock back. Where that fails the calling task deletes itself.
void unlock_shared_request(const shared_request &shared);

// Runs a command on the locked request: IO_ results of SyncIO.
int run_shared_request(const shared_request &shared, uint32_t command);

// A record copied into the buffer, and out of it. Copies, since the server may write there at any time, and since its
// address need not be aligned.
template <class T> void put(const shared_request &shared, size_t offset, const T &record) {
    std::memcpy(shared.buffer + offset, &record, sizeof record);
}

template <class T> T get(const shared_request &shared, size_t offset) {
    T record;
    std::memcpy(&record, shared.buffer + offset, sizeof record);
    return record;
}

// The address of a place in the buffer, as argument blocks hold it.
inline uint64_t address_in(const shared_request &shared, uint64_t offset) {
    return reinterpret_cast<uint64_t>(shared.buffer) + offset;
}
