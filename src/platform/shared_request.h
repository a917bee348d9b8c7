// platform/shared_request.h - use of the one request that all callers of a device share. Private to this folder.
//
// Registry and system service make a request, a lock and a payload buffer for it when they are opened. Every use locks,
// points the request at the buffer, fills the buffer, runs the request, reads the buffer and unlocks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platform/open_devices.h"

// Opens a device once per process, and returns the same record from then on.
//   variable  where the process keeps it; null before the first open. Of several threads that open it one wins; the
//             others close theirs
//   returns   the record, or null where it cannot be opened
device_record *open_once(device_record *&variable, const char *name);

// Takes the lock and points the request at the buffer.
//   returns  false, with nothing locked, where the lock cannot be taken and the calling task outlives its own deletion
bool lock_shared_request(const shared_request &shared);

// Releases the lock; deletes the calling task where that fails.
void unlock_shared_request(const shared_request &shared);

// Runs a command on the locked request. Results of SyncIO.
int run_shared_request(const shared_request &shared, uint32_t command);

// SyncIO on the device that a port leads to.
int sync_io(uint64_t server_port, IOreq *request);

// Copy a record into the buffer and out of it. The server may write there at any time, and the buffer need not be
// aligned.
template <class T> void put(const shared_request &shared, size_t offset, const T &record) {
    std::memcpy(shared.buffer + offset, &record, sizeof record);
}

template <class T> T get(const shared_request &shared, size_t offset) {
    T record;
    std::memcpy(&record, shared.buffer + offset, sizeof record);
    return record;
}

// The address of an offset in the buffer, as argument blocks hold it.
inline uint64_t address_in(const shared_request &shared, uint64_t offset) {
    return reinterpret_cast<uint64_t>(shared.buffer) + offset;
}
