// platform/kept.cpp - the list of open devices and their requests.
#include "platform/kept.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <mutex>
#include <new>

namespace {

constinit std::mutex lock;
constinit kept_entry *newest = nullptr;  // entries that are never taken off stay until the process ends

// The shared requests of open devices, for use without the lock: registry and system service are asked all the time. A
// slot is free, or filled until its device is closed, which ends every use of it.
struct shared_slot {
    std::atomic<const device_record *> device = nullptr;  // null: free
    shared_request shared{};
};
constinit std::array<shared_slot, 4> slots;

shared_slot *find_slot(const device_record *record) {
    return std::find_if(slots.begin(), slots.end(),
                        [=](const shared_slot &one) { return one.device.load(std::memory_order_acquire) == record; });
}

// The link to the newest entry for which a test holds, or to the end of the list. The lock is held.
template <class Test> kept_entry **find(Test holds) {
    kept_entry **at = &newest;
    while (*at != nullptr && !holds(**at)) at = &(*at)->next;
    return at;
}

kept_entry **find_device(const device_record *record) {
    return find([=](const kept_entry &one) { return one.request == nullptr && one.device.record == record; });
}

kept_entry **find_request(const IOreq *request) {
    return find([=](const kept_entry &one) { return one.request == request; });
}

kept_pointer unlink(kept_entry **at) {
    kept_pointer taken(*at);
    if (!taken) return taken;
    *at = taken->next;
    if (shared_slot *slot = find_slot(taken->device.record); taken->request == nullptr && slot != slots.end())
        slot->device.store(nullptr, std::memory_order_release);
    return taken;
}

// Reads the client context, once for an open device.
void read_shared(kept_device &device) {
    if (device.context == 0 || device.context % alignof(client_context) != 0) return;
    const client_context context = *reinterpret_cast<const client_context *>(device.context);
    if (context.request % alignof(IOreq) != 0) return;
    device.shared = {.server_port = device.server_port,
                     .lock = context.lock,
                     .request = reinterpret_cast<IOreq *>(context.request),
                     .buffer = reinterpret_cast<std::byte *>(context.buffer),
                     .size = context.buffer != 0 ? context.buffer_size : 0};
}

}  // namespace

kept_pointer make_entry() { return kept_pointer(new (std::nothrow) kept_entry); }

void keep(kept_pointer entry) {
    const std::scoped_lock held(lock);
    unlink(entry->request != nullptr ? find_request(entry->request) : find_device(entry->device.record));
    entry->next = newest;
    newest = entry.release();
}

kept_device kept(const device_record *record) {
    {
        const std::scoped_lock held(lock);
        if (const kept_entry *known = *find_device(record)) return known->device;
    }
    return read_device(record);
}

kept_device kept(const IOreq *request) {
    {
        const std::scoped_lock held(lock);
        if (const kept_entry *known = *find_request(request)) return known->device;
    }
    return kept(reinterpret_cast<const device_record *>(request->device));
}

kept_pointer take(const IOreq *request) {
    const std::scoped_lock held(lock);
    return unlink(find_request(request));
}

void forget(const device_record *record) {
    const std::scoped_lock held(lock);
    const auto of_device = [=](const kept_entry &one) { return one.device.record == record; };
    for (kept_entry **at = find(of_device); *at != nullptr; at = find(of_device)) unlink(at);
}

kept_device read_device(const device_record *record) {
    return {.record = record,
            .server_port = record->server_port,
            .private_port = record->private_port,
            .semaphore = record->semaphore,
            .context = record->context,
            .shared = {}};
}

bool find_shared_request(const device_record *record, shared_request &shared) {
    if (record == nullptr) return false;
    if (const shared_slot *known = find_slot(record); known != slots.end()) {
        shared = known->shared;
        return true;
    }
    const std::scoped_lock held(lock);
    kept_entry *known = *find_device(record);
    kept_device device = known != nullptr ? known->device : read_device(record);
    if (device.shared.request == nullptr) read_shared(device);
    shared = device.shared;
    if (shared.request == nullptr || known == nullptr) return shared.request != nullptr;
    known->device = device;
    if (shared_slot *slot = find_slot(nullptr); slot != slots.end()) {
        slot->shared = shared;
        slot->device.store(record, std::memory_order_release);
    }
    return true;
}
