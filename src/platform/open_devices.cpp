// platform/open_devices.cpp - the list of open devices and their requests.
#include "platform/open_devices.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <mutex>
#include <new>

namespace {

constinit std::mutex lock;
constinit open_entry *newest = nullptr;  // entries that are never removed stay until the process ends

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
template <class Test> open_entry **find(Test holds) {
    open_entry **at = &newest;
    while (*at != nullptr && !holds(**at)) at = &(*at)->next;
    return at;
}

open_entry **find_device(const device_record *record) {
    return find([=](const open_entry &one) { return one.request == nullptr && one.device.record == record; });
}

open_entry **find_request(const IOreq *request) {
    return find([=](const open_entry &one) { return one.request == request; });
}

entry_pointer unlink(open_entry **at) {
    entry_pointer taken(*at);
    if (!taken) return taken;
    *at = taken->next;
    if (shared_slot *slot = find_slot(taken->device.record); taken->request == nullptr && slot != slots.end())
        slot->device.store(nullptr, std::memory_order_release);
    return taken;
}

// Reads the client context, once for an open device.
void read_shared(open_device &device) {
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

entry_pointer make_entry() { return entry_pointer(new (std::nothrow) open_entry); }

void add_entry(entry_pointer entry) {
    const std::scoped_lock held(lock);
    unlink(entry->request != nullptr ? find_request(entry->request) : find_device(entry->device.record));
    entry->next = newest;
    newest = entry.release();
}

open_device device_of(const device_record *record) {
    {
        const std::scoped_lock held(lock);
        if (const open_entry *known = *find_device(record)) return known->device;
    }
    return read_device(record);
}

open_device device_of(const IOreq *request) {
    {
        const std::scoped_lock held(lock);
        if (const open_entry *known = *find_request(request)) return known->device;
    }
    return device_of(reinterpret_cast<const device_record *>(request->device));
}

entry_pointer remove_request(const IOreq *request) {
    const std::scoped_lock held(lock);
    return unlink(find_request(request));
}

void remove_device(const device_record *record) {
    const std::scoped_lock held(lock);
    const auto of_device = [=](const open_entry &one) { return one.device.record == record; };
    for (open_entry **at = find(of_device); *at != nullptr; at = find(of_device)) unlink(at);
}

open_device read_device(const device_record *record) {
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
    open_entry *known = *find_device(record);
    open_device device = known != nullptr ? known->device : read_device(record);
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
