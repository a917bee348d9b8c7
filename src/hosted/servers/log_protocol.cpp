// hosted/servers/log_protocol.cpp - reading and writing a system log, and its emergency messages.
#include <algorithm>
#include <cstring>
#include <limits>

#include "hosted/servers/protocols.h"
#include "platform/protocol/log.h"

namespace hosted {

namespace {

// The requests carry their own argument blocks, right after the header, and the payload word is not used. Their
// time-out is ignored: nothing here takes time.
class log_protocol : public device_protocol {
public:
    explicit log_protocol(log_source &source) : source_(source) {}

    std::optional<uint32_t> perform(uint32_t command, const request_view &request) override {
        switch (command) {
        case LOGCMD_LENGTH: return length(request);
        case LOGCMD_READ: return read(request);
        case LOGCMD_WRITE: return write(request);
        default: return std::nullopt;
        }
    }

    bool direct(const kernel_message &message) override {
        if (message.code != LOGMSG_LABELLED && message.code != LOGMSG_PLAIN) return false;
        source_.emergency(message.word1, message.code, message.word2);
        return true;
    }

private:
    uint32_t length(const request_view &request) {
        auto *block = request.whole<log_read_request>();
        if (block == nullptr) return IOERROR_BAD_COMMAND;
        uint64_t characters = 0;
        const uint32_t error = source_.length(characters);
        constexpr uint64_t most = std::numeric_limits<uint32_t>::max();
        if (error == 0) block->offset = static_cast<uint32_t>(std::min(characters, most));
        return error;
    }

    uint32_t read(const request_view &request) {
        auto *block = request.whole<log_read_request>();
        if (block == nullptr) return IOERROR_BAD_COMMAND;
        const auto reachable = request.rest(read_once(block->buffer));
        const uint64_t room = std::min<uint64_t>(read_once(block->count), reachable.size());
        if (reachable.empty()) return IOERROR_BAD_COMMAND;
        std::string_view text;
        const uint32_t error = source_.read(read_once(block->offset), room, text);
        if (error != 0) return error;
        const uint64_t delivered = std::min<uint64_t>(text.size(), room);
        if (delivered != 0) std::memcpy(reachable.data(), text.data(), delivered);
        block->count = static_cast<uint32_t>(delivered);
        return 0;
    }

    uint32_t write(const request_view &request) {
        const auto *block = request.whole<log_write_request>();
        if (block == nullptr) return IOERROR_BAD_COMMAND;
        const uint16_t length = read_once(block->length);
        const auto text = request.bytes(read_once(block->buffer), length);
        if (text.size() != length) return IOERROR_BAD_COMMAND;
        return source_.write({reinterpret_cast<const char *>(text.data()), text.size()});
    }

    log_source &source_;
};

}  // namespace

std::unique_ptr<device_protocol> make_log_protocol(log_source &source) {
    return std::make_unique<log_protocol>(source);
}

}  // namespace hosted
