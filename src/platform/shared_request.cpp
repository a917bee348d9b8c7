// platform/shared_request.cpp - locking and running the request that all callers of a device share.
#include "platform/shared_request.h"

#include <atomic>

#include "platform/device.h"
#include "platform/uninterrupted.h"

device_record *open_once(device_record *&variable, const char *name) {
    const std::atomic_ref shown(variable);
    if (device_record *open = shown.load(std::memory_order_acquire)) return open;
    device_record *opened = OpenDevice(name);
    shared_request unused{};
    find_shared_request(opened, unused);  // read at the open, while nothing else was asked of the server
    device_record *winner = nullptr;
    if (opened == nullptr || shown.compare_exchange_strong(winner, opened, std::memory_order_acq_rel)) return opened;
    CloseDevice(opened);
    return winner;
}

bool lock_shared_request(const shared_request &shared) {
    if (uninterrupted([&] { return _SL_WaitSemaphore(shared.lock, 1, WAIT_FOREVER); }) != RESULT_SUCCESS) {
        DeleteTask(0);
        return false;
    }
    shared.request->payload = reinterpret_cast<uint64_t>(shared.buffer);
    return true;
}

void unlock_shared_request(const shared_request &shared) {
    if (uninterrupted([&] { return _SL_SignalSemaphore(shared.lock, 1); }) != RESULT_SUCCESS) DeleteTask(0);
}

int run_shared_request(const shared_request &shared, uint32_t command) {
    shared.request->command = command;
    return sync_io(shared.server_port, shared.request);
}
