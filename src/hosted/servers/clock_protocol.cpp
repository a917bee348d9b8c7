// hosted/servers/clock_protocol.cpp - reading and setting a real-time clock.
#include "hosted/servers/protocols.h"

namespace hosted {

namespace {

class clock_protocol : public device_protocol {
public:
    explicit clock_protocol(clock_source &source) : source_(source) {}

    std::optional<uint32_t> perform(uint32_t command, const request_view &request) override {
        if (command != RTCCMD_READ && command != RTCCMD_SET) return std::nullopt;
        auto *block = request.block<rtc_time>();
        if (block == nullptr) return IOERROR_BAD_COMMAND;
        if (command == RTCCMD_SET) return source_.set(rtc_time{*block});
        rtc_time time{};
        const uint32_t error = source_.read(time);
        if (error == 0) *block = time;
        return error;
    }

private:
    clock_source &source_;
};

}  // namespace

std::unique_ptr<device_protocol> make_clock_protocol(clock_source &source) {
    return std::make_unique<clock_protocol>(source);
}

}  // namespace hosted
