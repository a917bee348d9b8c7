// common/service.cpp - opening service devices and asking for descriptions.
#include "common/service.h"

#include <algorithm>
#include <cstring>

#include "platform/registry.h"

namespace {

bool fail(const sb_service &service, const char *what) {
    sb_say(service.line, "%s: %s", service.name, what);
    return false;
}

}  // namespace

bool sb_service_open(sb_service &service) {
    if (sb_check_class(service.name, SERVICE_CLASS, service.reply_port) != 0)
        return fail(service, "device not exist or not a service");
    service.device = OpenDevice(service.name);
    if (service.device == nullptr) return fail(service, "failed to open device");
    service.request = CreateIOreq(service.device, 0, IOREQ_FLAGS_DEFAULT, service.size, service.reply_port);
    if (service.request == nullptr) return fail(service, "failed to create IOreq");
    return true;
}

int sb_service_perform(const sb_service &service, uint32_t command, uint64_t offset) {
    service.request->command = command;
    service.request->payload = reinterpret_cast<uint64_t>(service.request) + offset;
    return SyncIO(service.request);
}

bool sb_service_describe(const sb_service &service, const char *called, uint64_t offset, size_t name_room,
                         uint64_t max_args, svc_info_block *info) {
    auto *block = sb_service_block<svc_info_block>(service, offset);
    const size_t length = std::strlen(called);
    if (length < std::min(name_room, sizeof block->name)) {
        std::memset(block->name, 0, sizeof block->name);
        std::memcpy(block->name, called, length);
        if (sb_service_perform(service, SVCCMD_INFO, offset) == IO_SUCCESS) {
            std::memcpy(info, block, sizeof *info);
            if (info->arg_count <= max_args) return true;
        }
    }
    sb_say(service.line, "%s: \"%s\": failed to retrieve service info", service.name, called);
    return false;
}

int sb_service_namelen(const char *name, uint64_t field_size) { return static_cast<int>(strnlen(name, field_size)); }

int sb_check_class(const char *device, uint64_t device_class, uint64_t port) {
    return CheckDeviceClass(GetRegDev(), port, device, device_class);
}

const char *sb_svcls_type(uint64_t code) {
    switch (code) {
    case SVCTYPE_INTEGER: return "integer";
    case SVCTYPE_STRING: return "string";
    case SVCTYPE_WIDE_STRING: return "wide string";
    case SVCTYPE_SOCKADDR: return "sockaddr";
    default: return "??";
    }
}
