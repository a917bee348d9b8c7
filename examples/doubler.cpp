// doubler.cpp - a device server as a process of its own: serves "doubler" on the running machine that VENTIX_MACHINE
// names. The device doubles numbers, by a command and by a service, and counts them.
#include "doubler.h"

#include <cstdio>

#include "hosted/servers/protocols.h"
#include "hosted/servers/serve.h"
#include "platform/protocol/service.h"

namespace {
uint64_t numbers_doubled = 0;

// The device's own command.
class doubling : public hosted::device_protocol {
    std::optional<uint32_t> perform(uint32_t command, const hosted::request_view &request) override {
        if (command != DOUBLE_NUMBER) return std::nullopt;  // of another protocol
        auto *number = request.block<uint64_t>();
        if (number == nullptr) return IOERROR_BAD_COMMAND;  // out of the request's reach
        *number *= 2;
        ++numbers_doubled;
        return 0;
    }
};

// The same as a service, for `ventix svccall doubler double number=21`.
class services : public hosted::service_source {
    size_t count() const override { return 1; }
    const hosted::service_description &describe(size_t) const override { return only_; }
    uint32_t call(size_t, hosted::service_call &call) override {
        call.set_word(0, call.word(0) * 2);
        ++numbers_doubled;
        return 0;
    }
    const hosted::service_description only_ = {"double", {{"number", SVCTYPE_INTEGER}}, {{"doubled", SVCTYPE_INTEGER}}};
} the_services;

// For `ventix counters doubler 0`.
class counters : public hosted::counter_source {
    uint32_t read(uint32_t unit, uint64_t room, std::string &bytes, uint64_t &returned) override {
        if (unit != 0) return IOERROR_NOT_FOUND;
        hosted::append_counter(bytes, room, "numbers", numbers_doubled);
        returned = bytes.size();
        return 0;
    }
} the_counters;
}  // namespace

int main() {
    ventix::protocol_list protocols;
    protocols.push_back(std::make_unique<doubling>());
    protocols.push_back(hosted::make_service_protocol(the_services));
    protocols.push_back(hosted::make_counter_protocol(the_counters));
    const uint64_t result = ventix::serve(DOUBLER, std::move(protocols), {.classes = {SERVICE_CLASS}});
    std::fprintf(stderr, "doubler: cannot serve: result %llu\n", static_cast<unsigned long long>(result));
    return 1;
}
