// hosted/servers/system_service_protocol.cpp - the ids of processes and the drivers of device numbers.
#include <sys/sysmacros.h>

#include <cstring>

#include "hosted/servers/protocols.h"
#include "platform/protocol/sysvc.h"

namespace hosted {

namespace {

class system_service_protocol : public device_protocol {
public:
    explicit system_service_protocol(process_source &source) : source_(source) {}

    std::optional<uint32_t> perform(uint32_t command, const request_view &request) override {
        switch (command) {
        case SYSVCCMD_GET_PID:
        case SYSVCCMD_GET_PPID:
        case SYSVCCMD_GET_PGID:
        case SYSVCCMD_GET_SID: return id(command, request);
        case SYSVCCMD_DECOMPOSE_DEVICE: return decompose(request);
        case SYSVCCMD_GET_MAX_MAJOR: return max_major(request);
        default: return std::nullopt;
        }
    }

private:
    uint32_t id(uint32_t command, const request_view &request) {
        auto *block = request.block<sysvc_id_block>();
        if (block == nullptr) return SYSVCERR_INVALID_2;
        uint64_t value = 0;
        const uint32_t error = source_.id(command, block->task, value);
        if (error == 0) block->id = value;
        return error;
    }

    uint32_t decompose(const request_view &request) {
        auto *block = request.block<sysvc_device_block>();
        if (block == nullptr) return SYSVCERR_INVALID_2;
        uint64_t device = 0;
        std::memcpy(&device, block, sizeof device);
        const auto found = source_.drivers().find(gnu_dev_major(device));
        if (found == source_.drivers().end()) return SYSVCERR_NO_DEVICE;
        const auto room = request.bytes(request.payload + sizeof *block, found->second.size() + 1);
        if (room.empty()) return SYSVCERR_NO_SPACE;
        block->number = gnu_dev_minor(device);
        std::memcpy(room.data(), found->second.c_str(), room.size());
        return 0;
    }

    uint32_t max_major(const request_view &request) {
        auto *block = request.block<sysvc_max_major_block>();
        if (block == nullptr) return SYSVCERR_INVALID_2;
        const auto highest = source_.max_major();
        if (!highest) return IOERROR_NOT_FOUND;
        block->max_major = *highest;
        return 0;
    }

    process_source &source_;
};

}  // namespace

std::unique_ptr<device_protocol> make_system_service_protocol(process_source &source) {
    return std::make_unique<system_service_protocol>(source);
}

}  // namespace hosted
