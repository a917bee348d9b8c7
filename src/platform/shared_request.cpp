// shared_request.cpp - locking and running the request that all callers of a device share.
#include "platform/shared_request.h"

#include "platform/device.h"
#include "platform/uninterrupted.h"

bool find_shared_request(const device_record *device, shared_request &shared) {
    const uint64_t address = device != nullptr ? device->context : 0;
    if (address == 0 || address % alignof(client_context) != 0) return false;
    const client_context context = *reinterpret_cast<const client_context *>(address);
    if (context.request == 0 || context.request % alignof(IOreq) != 0) return false;
    shared.lock = context.lock;
    shared.request = reinterpret_cast<IOreq *>(context.request);
    shared.buffer = reinterpret_cast<std::byte *>(context.buffer);
    shared.size = context.buffer != 0 ? context.buffer_size : 0;
    return true;
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
    return SyncIO(shared.request);
}
