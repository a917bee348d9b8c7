// platform/device.cpp - the client side of the device protocol.
#include "platform/device.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <optional>
#include <utility>

#include "platform/open_devices.h"
#include "platform/protocol/registry.h"
#include "platform/shared_request.h"
#include "platform/uninterrupted.h"

namespace {

// More classes than any device has. Bounds the questions to a device that never ends its list.
constexpr uint64_t MAX_DEVICE_CLASSES = 0x10000;

constexpr int64_t DRAIN_TIMEOUT = 1;                // milliseconds, for each message that may still arrive
constexpr int64_t LONGEST_ABORT_SEND = 0x7FFFFFFF;  // milliseconds

bool is_port(uint64_t port) { return port != 0 && port != NO_OBJECT; }

// The record at an address from a message of the server; null for 0 and for a misaligned address. Trusted: no call says
// whether a server's memory lies there.
template <class T> T *record_at(uint64_t address) {
    return address % alignof(T) == 0 ? reinterpret_cast<T *>(address) : nullptr;
}

uint64_t address_of(const void *memory) { return reinterpret_cast<uint64_t>(memory); }

// ---- messages -------------------------------------------------------------------------------------------------------

uint64_t send(uint64_t port, uint64_t word1, uint64_t code, uint64_t word2, int64_t timeout = WAIT_FOREVER) {
    return uninterrupted([=] { return _SL_SendMsg(port, word1, code, word2, timeout); });
}

uint64_t receive(uint64_t port, kernel_message &message, int64_t timeout = WAIT_FOREVER) {
    return uninterrupted([&, port, timeout] { return _SL_RecvMsgPtr(port, &message, timeout); });
}

uint32_t code_of(const kernel_message &message) { return static_cast<uint32_t>(message.code); }

// Waits for one code, ignoring all others; false where the wait fails.
bool receive_code(uint64_t port, uint32_t code, kernel_message &message) {
    do {
        if (receive(port, message) != RESULT_SUCCESS) return false;
    } while (code_of(message) != code);
    return true;
}

// A port of the library's own, and the handle to it that servers receive.
struct own_port {
    uint64_t port;
    uint64_t handle;
};

bool make_port(uint64_t rights, own_port &made) {
    made.port = _SL_CreateMsgPort(0, 0);
    if (made.port == NO_OBJECT) return false;
    made.handle = _SL_CreateHandle(0, made.port, rights);
    if (made.handle != NO_OBJECT) return true;
    DeleteMsgPort(made.port);
    return false;
}

// ---- opening --------------------------------------------------------------------------------------------------------

// Waits on the reply port for the answer to an open; null for a refusal.
device_record *await_opened(uint64_t reply, entry_pointer entry) {
    kernel_message message{};
    if (!receive_code(reply, DEVMSG_OPENED, message)) return nullptr;
    auto *device = record_at<device_record>(message.word2);
    if (device == nullptr) return nullptr;
    if (device->accepted == 0) {
        CloseDevice(device);
        return nullptr;
    }
    entry->device = read_device(device);
    add_entry(std::move(entry));
    return device;
}

// Opens the device that a port leads to.
//   must_send  fail where the send fails; else wait for the answer all the same
device_record *open_on(uint64_t port, uint64_t reply, bool must_send) {
    entry_pointer entry = make_entry();
    if (!is_port(port) || entry == nullptr) return nullptr;
    uint64_t task = _SL_GetState(KSTATE_CURRENT_TASK);
    const bool fresh = _SL_GetState(KSTATE_HANDLE_MANAGER) != 0;
    if (fresh) task = _SL_CreateHandle(0, task, RIGHTS_OPEN);

    const bool sent = send(port, reply, DEVMSG_OPEN, task) == RESULT_SUCCESS;
    device_record *device = sent || !must_send ? await_opened(reply, std::move(entry)) : nullptr;
    // An open device owns the handle.
    if (device == nullptr && fresh && task != NO_OBJECT) _SL_DeleteObject(task, DELETE_HANDLE);
    return device;
}

// Reads the integer key that holds a device's port. Uses a request of its own: the registry client's shared one belongs
// to the record that GetRegDev opened.
bool read_device_key(device_record *registry, const char *name, uint64_t reply, uint64_t &value) {
    constexpr size_t prefix = sizeof DEVICE_DIRECTORY - 1;
    constexpr uint64_t path_offset = IOREQ_INLINE + sizeof(reg_int_block);
    const size_t length = std::strlen(name);
    IOreq *request = CreateIOreq(registry, 0, IOREQ_FLAGS_DEFAULT, path_offset + prefix + length + 1, reply);
    if (request == nullptr) return false;

    auto *bytes = reinterpret_cast<char *>(request);
    auto *block = reinterpret_cast<reg_int_block *>(bytes + IOREQ_INLINE);
    std::memcpy(bytes + path_offset, DEVICE_DIRECTORY, prefix);
    std::memcpy(bytes + path_offset + prefix, name, length + 1);
    block->path = address_of(bytes + path_offset);
    request->command = REGCMD_GET_INT;
    request->payload = address_of(block);

    bool answered = BeginIO(request) == IO_SUCCESS;
    kernel_message message{};
    while (answered && code_of(message) != IOMSG_DONE) {
        answered = receive(reply, message) == RESULT_SUCCESS && code_of(message) != IOMSG_FAILED;
    }
    if (answered) value = block->value;
    DeleteIOreq(request);
    return answered;
}

// Finds a device's port by its name. Replies arrive on the port given.
uint64_t find_port(const char *name, uint64_t reply) {
    const uint64_t registry_port = _SL_GetState(KSTATE_REGISTRY_PORT);
    if (std::strcmp(name, REGISTRY_DEVICE) == 0) return registry_port;
    // Deliberate: the send's result is not examined, so an open that was not sent is awaited for ever.
    device_record *registry = open_on(registry_port, reply, false);
    if (registry == nullptr) return NO_OBJECT;
    uint64_t port = NO_OBJECT;
    read_device_key(registry, name, reply, port);  // a failure leaves NO_OBJECT
    CloseDevice(registry);
    return port;
}

// ---- requests -------------------------------------------------------------------------------------------------------

uint64_t take_semaphore(uint64_t semaphore) {
    return uninterrupted([=] { return _SL_WaitSemaphore(semaphore, 1, WAIT_FOREVER); });
}

void release_semaphore(uint64_t semaphore) {
    // Nothing can be done about a semaphore that cannot be released.
    static_cast<void>(uninterrupted([=] { return _SL_SignalSemaphore(semaphore, 1); }));
}

// Asks the server to create or delete a request and waits for its reply.
//   message  out: the reply
//   returns  false where there is none; does not wait where the message could not be sent
bool exchange(const open_device &device, uint32_t code, uint64_t word2, uint32_t reply_code, kernel_message &message) {
    return send(device.server_port, address_of(device.record), code, word2) == RESULT_SUCCESS &&
           receive_code(device.private_port, reply_code, message);
}

int send_about(const IOreq *request, uint32_t code, int64_t timeout = WAIT_FOREVER) {
    const uint64_t sent = send(device_of(request).server_port, request->reply_port, code, request->id, timeout);
    return sent == RESULT_SUCCESS ? IO_SUCCESS : IO_UNAVAILABLE;
}

// The result that a completion's code means; nothing for any other code.
std::optional<int> completion(const kernel_message &message) {
    switch (code_of(message)) {
    case IOMSG_DONE: return IO_SUCCESS;
    case IOMSG_FAILED: return IO_FAILED;
    case IOMSG_ABORTED: return IO_CANCELED;
    default: return std::nullopt;
    }
}

int local_failure(IOreq *request, int result) {
    request->error = IOERROR_LOCAL;
    return result;
}

// Waits until the server has released a request whose abort was sent. A request that was done before the server saw the
// abort gets both a completion and an acknowledgement, in either order; any other is aborted.
//   returns  true where it completed
bool await_abort(uint64_t port) {
    bool done = false;
    bool acknowledged = false;
    while (!done || !acknowledged) {
        kernel_message message{};
        if (receive(port, message) != RESULT_SUCCESS) return false;
        switch (code_of(message)) {
        case IOMSG_DONE: done = true; break;
        case IOMSG_ABORT_ACKNOWLEDGED: acknowledged = true; break;
        case IOMSG_ABORTED: return false;
        default: break;  // Deliberate: an error completion does not end the wait
        }
    }
    return true;
}

// Discards what may still arrive on a port, so that the next request does not see it.
void drain(uint64_t port) {
    kernel_message message{};
    while (receive(port, message, DRAIN_TIMEOUT) == RESULT_SUCCESS) {
    }
}

// The queries that the library asks. Deliberate: not DEVQUERY_DEBUG_COMMAND, which only devquery sends.
bool is_query(uint32_t code) {
    switch (code) {
    case DEVQUERY_GET_CLASS:
    case DEVQUERY_PING:
    case DEVQUERY_CHANGE_POWER_LEVEL:
    case DEVQUERY_POWER_LEVEL: return true;
    default: return false;
    }
}

// One query on a reply port.
int query(device_record *registry, uint64_t reply, const char *name, uint32_t code, uint64_t parameter,
          uint64_t *result) {
    uint64_t port = NO_OBJECT;
    if (!read_device_key(registry, name, reply, port)) return QUERY_NO_DEVICE;
    if (send(port, reply, code, parameter, DEVICE_QUERY_TIMEOUT) != RESULT_SUCCESS) return QUERY_NOT_SENT;
    kernel_message message{};
    if (receive(reply, message, DEVICE_QUERY_TIMEOUT) != RESULT_SUCCESS) return QUERY_NO_REPLY;
    if (code_of(message) != code + 1) return QUERY_BAD_REPLY;
    if (result != nullptr) *result = message.word2;
    return QUERY_SUCCESS;
}

}  // namespace

// ---- time -----------------------------------------------------------------------------------------------------------

uint64_t TickGetCount() { return _SL_GetState(KSTATE_TICK); }

uint64_t TickSleep(uint32_t ticks) { return _SL_Delay(ticks); }

// ---- ports and tasks ------------------------------------------------------------------------------------------------

uint64_t CreateSharedMsgPort(uint64_t reserved1, uint64_t reserved2, uint64_t task, uint64_t rights) {
    const uint64_t port = _SL_CreateMsgPort(reserved1, reserved2);
    if (port == NO_OBJECT) return NO_OBJECT;
    const uint64_t handle = _SL_CreateHandle(task, port, rights | RIGHTS_SHARED);
    if (handle == NO_OBJECT) DeleteMsgPort(port);
    return handle;
}

uint64_t DeleteMsgPort(uint64_t port) { return _SL_DeleteObject(port, DELETE_OBJECT); }

uint64_t DeleteTask(uint64_t task) {
    return _SL_DeleteObject(task != 0 ? task : _SL_GetState(KSTATE_CURRENT_TASK), DELETE_OBJECT);
}

bool IsTaskSuper(uint64_t task) {
    uint64_t flags = 0;
    return _SL_GetObjectInfo(task, TASKINFO_FLAGS, &flags) == RESULT_SUCCESS && (flags & TASKFLAG_SUPER) != 0;
}

bool IsCurrentTaskSuper() { return IsTaskSuper(_SL_GetState(KSTATE_CURRENT_TASK)); }

// ---- devices --------------------------------------------------------------------------------------------------------

uint64_t GetDeviceMsgPort(const char *name) {
    own_port reply{};
    if (name == nullptr || *name == '\0' || !make_port(RIGHTS_OPEN, reply)) return NO_OBJECT;
    const uint64_t port = find_port(name, reply.handle);
    DeleteMsgPort(reply.port);
    return port;
}

device_record *OpenDevice(const char *name) {
    own_port reply{};
    if (name == nullptr || *name == '\0' || !make_port(RIGHTS_OPEN, reply)) return nullptr;
    device_record *device = open_on(find_port(name, reply.handle), reply.handle, true);
    DeleteMsgPort(reply.port);
    return device;
}

device_record *OpenDeviceFromMsgPort(uint64_t port) {
    own_port reply{};
    if (!make_port(RIGHTS_OPEN, reply)) return nullptr;
    device_record *device = open_on(port, reply.handle, true);
    DeleteMsgPort(reply.port);
    return device;
}

int64_t CloseDevice(device_record *device) {
    if (device == nullptr) return 0;
    if (_SL_GetAddressMemo(0, address_of(device), ADDRESS_MEMO_ANY) == NO_OBJECT) {
        remove_device(device);
        return 0;
    }
    own_port reply{};
    if (!make_port(RIGHTS_QUERY_REPLY, reply)) return -1;
    const uint64_t server_port = device_of(device).server_port;
    remove_device(device);
    kernel_message message{};
    if (send(server_port, 0, DEVMSG_CLOSE, reply.handle) == RESULT_SUCCESS) {
        receive_code(reply.handle, DEVMSG_CLOSED, message);  // a failed wait changes nothing: the close was sent
    }
    DeleteMsgPort(reply.port);
    return 0;
}

// ---- I/O requests ---------------------------------------------------------------------------------------------------

IOreq *CreateIOreq(device_record *device, uint32_t unit, uint8_t flags, uint64_t size, uint64_t reply_port) {
    entry_pointer entry = make_entry();
    if (entry == nullptr) return nullptr;
    entry->device = device_of(device);
    const open_device &on = entry->device;
    if (take_semaphore(on.semaphore) != RESULT_SUCCESS) return nullptr;
    kernel_message message{};
    const bool answered = exchange(on, DEVMSG_CREATE_REQUEST, size, DEVMSG_REQUEST_CREATED, message);
    // An answer that arrives later names a request of this size: the next creation must not take it for its own.
    if (!answered) drain(on.private_port);
    release_semaphore(on.semaphore);
    auto *request = answered ? record_at<IOreq>(message.word2) : nullptr;
    if (request == nullptr) return nullptr;
    entry->request = request;
    add_entry(std::move(entry));

    request->unit = unit;
    request->status = IOREQ_STATUS_NEW;
    request->flags = flags;
    request->error = 0;
    request->timeout = 0;
    std::memset(request->reserved56, 0, sizeof request->reserved56);
    request->reply_port = reply_port;
    return request;
}

int DeleteIOreq(IOreq *request) {
    const open_device device = device_of(request);
    if (take_semaphore(device.semaphore) != RESULT_SUCCESS) return IO_UNAVAILABLE;
    remove_request(request);
    kernel_message message{};
    // Whether the reply arrives makes no difference.
    exchange(device, DEVMSG_DELETE_REQUEST, request->id, DEVMSG_REQUEST_DELETED, message);
    release_semaphore(device.semaphore);
    return IO_SUCCESS;
}

int DeleteIOreqAsync(IOreq *request) {
    const uint64_t server_port = device_of(request).server_port;
    entry_pointer entry = remove_request(request);
    if (send(server_port, 0, DEVMSG_DELETE_REQUEST_ASYNC, request->id) == RESULT_SUCCESS) return IO_SUCCESS;
    if (entry != nullptr) add_entry(std::move(entry));
    return IO_UNAVAILABLE;
}

int BeginIO(IOreq *request) { return send_about(request, IOMSG_BEGIN); }

int AbortIO(IOreq *request) { return send_about(request, IOMSG_ABORT); }

int AbortIOEx(IOreq *request, int64_t timeout) {
    return send_about(request, IOMSG_ABORT, std::clamp<int64_t>(timeout, 0, LONGEST_ABORT_SEND));
}

int WaitIO(IOreq *request, int64_t timeout) {
    kernel_message message{};
    switch (receive(request->reply_port, message, timeout)) {
    case RESULT_SUCCESS: return completion(message).value_or(IO_NO_REPLY);
    case RESULT_TIMEOUT: return IO_TIME_EXPIRED;
    default: return IO_UNAVAILABLE;
    }
}

int sync_io(uint64_t server_port, IOreq *request) {
    if (send(server_port, request->reply_port, IOMSG_BEGIN, request->id) != RESULT_SUCCESS) {
        return local_failure(request, IO_UNAVAILABLE);
    }
    const uint64_t port = request->reply_port;  // once: where it names no port of ours, the first receive fails
    while (true) {
        kernel_message message{};
        if (receive(port, message) != RESULT_SUCCESS) return local_failure(request, IO_NO_REPLY);
        if (const auto result = completion(message)) return *result;
    }
}

int SyncIO(IOreq *request) { return sync_io(device_of(request).server_port, request); }

int SyncIOEx(IOreq *request, int64_t timeout, bool abort_on_timeout, bool restart) {
    // With restart an interrupted call is repeated; without it, it ends the wait as an expired time-out does.
    const auto restarted = [restart](auto call) { return restart ? uninterrupted(call) : call(); };
    const uint64_t server = device_of(request).server_port;
    const uint64_t port = request->reply_port;
    const uint64_t id = request->id;

    const uint64_t sent = restarted([=] { return _SL_SendMsg(server, port, IOMSG_BEGIN, id, WAIT_FOREVER); });
    if (sent != RESULT_SUCCESS) {
        return local_failure(request, sent == RESULT_INTERRUPTED ? IO_INTERRUPTED : IO_UNAVAILABLE);
    }
    kernel_message message{};
    const uint64_t result = restarted([&] { return _SL_RecvMsgPtr(port, &message, timeout); });
    if (result == RESULT_SUCCESS) return completion(message).value_or(IO_NO_REPLY);

    const bool gave_up = result == RESULT_TIMEOUT || result == RESULT_INTERRUPTED;
    if (!abort_on_timeout || !gave_up || send(server, port, IOMSG_ABORT, id) != RESULT_SUCCESS) {
        return local_failure(request, IO_UNAVAILABLE);
    }
    const bool completed = await_abort(port);
    drain(port);
    if (completed) return IO_SUCCESS;
    return local_failure(request, result == RESULT_INTERRUPTED ? IO_INTERRUPTED : IO_TIME_EXPIRED);
}

// ---- queries --------------------------------------------------------------------------------------------------------

int DeviceQuery(device_record *registry, uint64_t port, const char *name, uint32_t code, uint64_t parameter,
                uint64_t *result) {
    if (registry == nullptr || name == nullptr) return QUERY_MISSING;
    if (!is_query(code)) return QUERY_UNKNOWN;
    if (is_port(port)) return query(registry, port, name, code, parameter, result);
    own_port reply{};
    if (!make_port(RIGHTS_QUERY_REPLY, reply)) return QUERY_NO_PORT;
    const int status = query(registry, reply.handle, name, code, parameter, result);
    DeleteMsgPort(reply.port);
    return status;
}

int CheckDeviceClass(device_record *registry, uint64_t port, const char *name, uint64_t device_class) {
    own_port own{};
    const bool temporary = !is_port(port);
    if (temporary && !make_port(RIGHTS_QUERY_REPLY, own)) return 1;
    const uint64_t reply = temporary ? own.handle : port;
    int status = -1;
    for (uint64_t index = 0; status != 0 && index < MAX_DEVICE_CLASSES; ++index) {
        uint64_t listed = 0;
        if (DeviceQuery(registry, reply, name, DEVQUERY_GET_CLASS, index, &listed) != QUERY_SUCCESS) break;
        if (listed == device_class) status = 0;
    }
    if (temporary) DeleteMsgPort(own.port);
    return status;
}
