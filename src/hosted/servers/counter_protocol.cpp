// hosted/servers/counter_protocol.cpp - statistics counters, and how their records are written.
#include <algorithm>
#include <cstring>
#include <string>

#include "hosted/servers/protocols.h"
#include "platform/protocol/counters.h"

namespace hosted {

namespace {

class counter_protocol : public device_protocol {
public:
    explicit counter_protocol(counter_source &source) : source_(source) {}

    std::optional<uint32_t> perform(uint32_t command, const request_view &request) override {
        if (command != CNTCMD_GET) return std::nullopt;
        const auto reachable = request.rest(request.payload);
        if (reachable.empty()) return IOERROR_BAD_COMMAND;
        const uint64_t room = std::min<uint64_t>(read_once(request.header.transfer.buffer_size), reachable.size());
        std::string bytes;
        uint64_t returned = 0;
        const uint32_t error = source_.read(request.header.unit, room, bytes, returned);
        if (error != 0) return error;
        std::memcpy(reachable.data(), bytes.data(), std::min<uint64_t>(room, bytes.size()));
        request.header.transfer.returned_size = returned;
        return 0;
    }

private:
    counter_source &source_;
};

}  // namespace

bool append_counter(std::string &bytes, uint64_t room, std::string_view name, uint64_t value) {
    name = name.substr(0, COUNTER_MAX_NAME);
    if (bytes.size() + 1 + name.size() + 1 + COUNTER_VALUE_SIZE > room) return false;
    bytes += static_cast<char>(name.size() + 1);
    bytes += name;
    bytes += '\0';
    for (unsigned shift = 0; shift < 8 * COUNTER_VALUE_SIZE; shift += 8) {
        bytes += static_cast<char>(static_cast<uint8_t>(value >> shift));
    }
    return true;
}

std::unique_ptr<device_protocol> make_counter_protocol(counter_source &source) {
    return std::make_unique<counter_protocol>(source);
}

}  // namespace hosted
