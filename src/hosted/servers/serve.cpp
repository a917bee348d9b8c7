// hosted/servers/serve.cpp - the base of device servers on kernel calls, and the loop that serves.
#include "hosted/servers/serve.h"

#include <cstring>
#include <functional>
#include <map>
#include <mutex>
#include <new>
#include <string>
#include <utility>

#include "hosted/clocks.h"
#include "hosted/kernel/arena.h"
#include "hosted/kernel/run.h"
#include "hosted/wire/guest.h"
#include "platform/kernel.h"
#include "platform/protocol/registry.h"

namespace ventix {

namespace {

int64_t milliseconds() { return static_cast<int64_t>(hosted::milliseconds_of(CLOCK_MONOTONIC)); }

class attached_host final : public hosted::server_host {
public:
    explicit attached_host(std::span<std::byte> slice) : memory_(slice) {}

    hosted::arena &memory() override { return memory_; }
    void post(uint64_t port, uint64_t code, uint64_t word2) override {
        static_cast<void>(_SL_SendMsg(port, 0, code, word2, WAIT_FOREVER));  // fails for a dead port
    }
    void after(int64_t delay, std::function<void()> event) override {
        events_.emplace(std::pair(milliseconds() + delay, events_made_++), std::move(event));
    }
    uint64_t task_of(uint64_t handle) override {
        uint64_t master = handle;
        static_cast<void>(_SL_GetObjectInfo(handle, OBJINFO_HANDLE, &master));  // of a task that has ended: as it is
        return master;
    }
    bool has_ended(uint64_t task) override {
        const auto [known, is_new] = ended_.try_emplace(task);
        uint64_t master = 0;
        if (is_new) known->second = _SL_GetObjectInfo(task, OBJINFO_HANDLE, &master) == RESULT_NO_OBJECT;
        return known->second;
    }
    uint64_t new_port(uint64_t) override { return _SL_CreateMsgPort(0, 0); }
    uint64_t new_semaphore(uint64_t, int64_t count) override { return _SL_CreateSemaphore(0, count); }
    void destroy(uint64_t handle) override {
        if (handle != 0) _SL_DeleteObject(handle, DELETE_OBJECT);
    }
    uint64_t new_handle_to(uint64_t handle) override { return _SL_CreateHandle(0, handle, RIGHTS_OPEN); }
    void close_handle(uint64_t handle) override { _SL_DeleteObject(handle, DELETE_HANDLE); }

    // Begins a message: which tasks have ended is asked anew.
    void begin_message() { ended_.clear(); }

    // Runs the events that are due. Returns the milliseconds until the next one, or WAIT_FOREVER.
    int64_t run_events() {
        while (!events_.empty()) {
            const int64_t left = events_.begin()->first.first - milliseconds();
            if (left > 0) return left;
            const auto event = events_.extract(events_.begin());
            event.mapped()();
        }
        return WAIT_FOREVER;
    }

private:
    hosted::arena memory_;
    std::map<std::pair<int64_t, uint64_t>, std::function<void()>> events_;  // by time due, then by making
    uint64_t events_made_ = 0;
    std::map<uint64_t, bool> ended_;  // what is known of tasks for the length of a message
};

// Asks the registry to make a device's key, guarded by a port.
//   reply    a port for the registry's answers
uint64_t publish(std::string_view name, uint64_t port, uint64_t reply) {
    kernel_message message{};
    const auto exchange = [&](uint64_t to, const kernel_message &sent, uint64_t from) {
        const uint64_t result = _SL_SendMsg(to, sent.word1, sent.code, sent.word2, WAIT_FOREVER);
        return result != RESULT_SUCCESS ? result : _SL_RecvMsgPtr(from, &message, WAIT_FOREVER);
    };
    const kernel_message open = {reply, DEVMSG_OPEN, _SL_GetState(KSTATE_CURRENT_TASK)};
    if (const uint64_t failed = exchange(_SL_GetState(KSTATE_REGISTRY_PORT), open, reply)) return failed;
    const auto *const record = reinterpret_cast<const device_record *>(message.word2);
    if (record == nullptr) return RESULT_NOT_PERMITTED;
    const uint64_t server_port = record->server_port, context_address = record->context;
    uint64_t result = RESULT_NOT_PERMITTED;
    const std::string path = std::string(DEVICE_DIRECTORY).append(name);
    if (record->accepted != 0 && context_address != 0) {
        const client_context context = *reinterpret_cast<const client_context *>(context_address);
        auto *const request = reinterpret_cast<IOreq *>(context.request);
        auto *const block = reinterpret_cast<reg_int_block *>(context.buffer);
        if (request != nullptr && sizeof *block + path.size() < context.buffer_size) {
            std::memcpy(block + 1, path.c_str(), path.size() + 1);
            *block = {.path = reinterpret_cast<uint64_t>(block + 1), .value = port};
            request->command = REGCMD_CREATE_GUARD;
            request->payload = context.buffer;
            const uint64_t answers = request->reply_port;
            result = exchange(server_port, {answers, IOMSG_BEGIN, request->id}, answers);
            if (result == RESULT_SUCCESS && message.code != IOMSG_DONE) result = request->error;
        }
    }
    static_cast<void>(exchange(server_port, {0, DEVMSG_CLOSE, reply}, reply));
    return result;
}

}  // namespace

uint64_t serve(std::string_view name, protocol_list protocols, hosted::device_behaviour behaviour) {
    hosted::guest *const machine = hosted::this_run().attached.get();
    if (machine == nullptr || !reg_is_name(name)) return RESULT_NOT_PERMITTED;
    static std::mutex serving;  // this process has one slice
    const std::unique_lock lock(serving, std::try_to_lock);
    if (!lock) return RESULT_NOT_PERMITTED;
    const auto slice = machine->take_slice();
    if (slice.empty()) return RESULT_NO_MEMORY;
    attached_host host(slice);
    hosted::device_server server(host, std::move(behaviour));
    for (auto &protocol : protocols) server.add(std::move(protocol));
    const uint64_t port = _SL_CreateMsgPort(0, 0), reply = _SL_CreateMsgPort(0, 0);
    server.set_port(port);
    uint64_t result = publish(name, port, reply);
    _SL_DeleteObject(reply, DELETE_OBJECT);
    while (result == RESULT_SUCCESS || result == RESULT_TIMEOUT || result == RESULT_INTERRUPTED) {
        try {
            kernel_message message{};
            result = _SL_RecvMsgPtr(port, &message, host.run_events());
            if (result != RESULT_SUCCESS) continue;
            host.begin_message();
            server.receive({message, machine->addressed()});
        } catch (const std::bad_alloc &) {
            // The request or the open that it was for goes without an answer; the others are served.
        }
    }
    _SL_DeleteObject(port, DELETE_OBJECT);
    return result;
}

}  // namespace ventix
