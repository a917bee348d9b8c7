// common/devmsg.cpp - the exchange of one message with a device found in the registry.
#include "common/devmsg.h"
#include "common/status.h"

#include <cinttypes>
#include <cstring>

#include "platform/device.h"
#include "platform/registry.h"

namespace {

int fail_setup(const sb_devasker &asker, const char *what) {
    std::fprintf(asker.stream, "%s: %s.\n", asker.command, what);
    return SB_SETUP;
}

int fail(const sb_devasker &asker, const char *device, const char *what) {
    std::fprintf(asker.stream, "%s: %s: %s\n", asker.command, device, what);
    return SB_FAILED;
}

// Sends one message and receives its answer on the reply port.
int exchange(const sb_devasker &asker, const char *device, uint64_t reply_port, uint32_t code, uint64_t parameter,
             uint64_t *result) {
    if (std::strlen(device) > asker.max_name) return fail(asker, device, "name too long");
    std::snprintf(asker.path.get(), asker.path_size, "%s%s", DEVICE_DIRECTORY, device);
    if (asker.verbose) {
        std::fprintf(asker.stream, "%s: %s: get device MsgPort from registry (\"%s\")\n", asker.command, device,
                     asker.path.get());
    }
    uint64_t port = 0;
    if (!RegGetKeyInt(GetRegDev(), asker.path.get(), &port)) return fail(asker, device, "device not exist");

    if (asker.verbose) {
        std::fprintf(asker.stream, "%s: %s: %s with %" PRIi64 " msec timeout\n", asker.command, device, asker.activity,
                     asker.timeout);
    }
    if (_SL_SendMsg(port, reply_port, code, parameter, asker.timeout) != RESULT_SUCCESS)
        return fail(asker, device, "failed to send message");
    if (asker.verbose) std::fprintf(asker.stream, "%s: %s: message sent\n", asker.command, device);

    uint64_t word1 = 0, answer = 0, value = 0;
    if (_SL_RecvMsg(reply_port, &word1, &answer, &value, asker.timeout) != RESULT_SUCCESS)
        return fail(asker, device, "failed to receive message");
    if (static_cast<uint32_t>(answer) != code + 1) {
        std::fprintf(asker.stream, "%s: %s: received message is not %s\n", asker.command, device, asker.reply);
        return SB_FAILED;
    }
    *result = value;
    return SB_DONE;
}

}  // namespace

int sb_devasker_open(sb_devasker &asker) {
    if (!RegCaps(GetRegDev(), &asker.max_name, nullptr, nullptr))
        return fail_setup(asker, "failed to get registry caps");
    asker.path_size = size_t{asker.max_name} + sizeof DEVICE_DIRECTORY;
    asker.path.reset(static_cast<char *>(std::malloc(asker.path_size)));
    return asker.path ? SB_DONE : fail_setup(asker, "out of memory");
}

int sb_devasker_ask(const sb_devasker &asker, const char *device, uint32_t code, uint64_t parameter, uint64_t *result) {
    const uint64_t port = _SL_CreateMsgPort(0, 0);
    if (port == NO_OBJECT) return fail_setup(asker, "failed to create MsgPort");
    const uint64_t reply_port = _SL_CreateHandle(0, port, RIGHTS_REPLY);
    if (reply_port == NO_OBJECT) return fail_setup(asker, "failed to create handle to MsgPort");
    const int status = exchange(asker, device, reply_port, code, parameter, result);
    DeleteMsgPort(reply_port);
    return status;
}
