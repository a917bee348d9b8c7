// tests/sweep/server_memory.h - what the servers of a run share with their client, and so may write at any time.
#pragma once

#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <map>
#include <span>
#include <utility>
#include <vector>

#include "platform/kernel.h"
#include "platform/protocol/device.h"

using memory_words = std::span<uint64_t>;

inline memory_words words_at(uint64_t address, size_t bytes) {
    return address == 0 ? memory_words()
                        : memory_words(reinterpret_cast<uint64_t *>(address), bytes / sizeof(uint64_t));
}

// The values most likely to lead astray, in the place of one.
//   record  address of the device's
constexpr size_t HOSTILE_VALUES = 8;
inline std::array<uint64_t, HOSTILE_VALUES> hostile_values(uint64_t before, uint64_t record) {
    static void *const nowhere = mmap(nullptr, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    return {0, ~uint64_t{0}, 1, 1u << 31, before + 1, before + 4096, record, std::bit_cast<uint64_t>(nowhere)};
}

// The memory of the open devices and of their requests, as their servers reach it.
class server_memory {
public:
    // To be called for each message sent and received.
    void sent(uint64_t to, uint64_t code, uint64_t word2) {
        if (code == DEVMSG_CREATE_REQUEST) asked_ = {to, word2};
        if (code == IOMSG_BEGIN) begun_ = {to, word2};
        if (code == DEVMSG_DELETE_REQUEST || code == DEVMSG_DELETE_REQUEST_ASYNC) requests_.erase({to, word2});
        if (code != DEVMSG_CLOSE) return;
        std::erase_if(requests_, [=](const auto &one) { return one.first.first == to; });
        devices_.erase(to);
    }
    void received(const kernel_message &message) {
        if (message.word2 == 0) return;
        if (static_cast<uint32_t>(message.code) == DEVMSG_OPENED) opened(message.word2);
        if (static_cast<uint32_t>(message.code) == DEVMSG_REQUEST_CREATED)
            add(asked_.first, message.word2, asked_.second);
    }

    uint32_t command() const {
        const auto words = request();
        return words.empty() ? 0 : reinterpret_cast<const IOreq *>(words.data())->command;
    }

    // The address of the record of the device that was last asked, or 0.
    uint64_t record() const {
        const auto found = devices_.find(begun_.first);
        return found == devices_.end() ? 0 : std::bit_cast<uint64_t>(found->second[0].data());
    }

    // What the sender of a message may write before it sends it.
    std::vector<memory_words> within_reach(kernel_message &message) const {
        const auto code = static_cast<uint32_t>(message.code);
        const bool trusted = code == DEVMSG_OPENED || code == DEVMSG_REQUEST_CREATED;
        std::vector<memory_words> areas = {{&message.word1, trusted ? 2u : 3u}};
        if (code != IOMSG_DONE && code != IOMSG_FAILED && code != IOMSG_ABORTED) return areas;
        areas.push_back(request());
        const auto device = devices_.find(begun_.first);
        if (device != devices_.end()) areas.insert(areas.end(), device->second.begin(), device->second.end());
        return areas;
    }

private:
    static constexpr size_t MOST_PAYLOAD = 256, MOST_REQUEST = 640;

    // What the record leads to is read here and never again: it is written over, too.
    void opened(uint64_t address) {
        const auto *device = reinterpret_cast<const device_record *>(address);
        auto &areas = devices_[device->server_port] = {words_at(address, sizeof *device)};
        const auto *context = reinterpret_cast<const client_context *>(device->context);
        if (context == nullptr) return;
        areas.push_back(words_at(device->context, sizeof *context));
        areas.push_back(words_at(context->buffer, std::min<uint64_t>(context->buffer_size, MOST_PAYLOAD)));
        add(device->server_port, context->request, sizeof(IOreq));
    }

    void add(uint64_t server, uint64_t address, size_t size) {
        if (address == 0) return;
        const auto words = words_at(address, std::min(size, MOST_REQUEST));
        requests_[{server, reinterpret_cast<const IOreq *>(address)->id}] = words;
    }

    memory_words request() const {
        const auto found = requests_.find(begun_);
        return found == requests_.end() ? memory_words() : found->second;
    }

    std::map<uint64_t, std::vector<memory_words>> devices_;           // record first; by their servers' ports
    std::map<std::pair<uint64_t, uint64_t>, memory_words> requests_;  // by port and id
    std::pair<uint64_t, uint64_t> asked_;                             // for a request: the server's port, the size
    std::pair<uint64_t, uint64_t> begun_;                             // the server's port, the request's id
};
