// common/devmsg.cpp - the exchange of one message with a device found in the registry.
#include "common/devmsg.h"

#include <cinttypes>
#include <cstring>

#include "platform/device.h"
#include "platform/registry.h"

namespace {

// Sends one message and receives its answer on the reply port.
int exchange(const sb_devasker &asker, const char *device, uint64_t reply_port, uint32_t code, uint64_t parameter,
             uint64_t *result) {
    if (std::strlen(device) > asker.max_name) return sb_fail(asker.line, SB_FAILED, "%s: name too long", device);
    std::snprintf(asker.path.get(), asker.path_size, "%s%s", DEVICE_DIRECTORY, device);
    if (asker.verbose) sb_say(asker.line, "%s: get device MsgPort from registry (\"%s\")", device, asker.path.get());
    uint64_t port = 0;
    if (!RegGetKeyInt(GetRegDev(), asker.path.get(), &port))
        return sb_fail(asker.line, SB_FAILED, "%s: device not exist", device);

    if (asker.verbose)
        sb_say(asker.line, "%s: %s with %" PRIi64 " msec timeout", device, asker.activity, asker.timeout);
    if (_SL_SendMsg(port, reply_port, code, parameter, asker.timeout) != RESULT_SUCCESS)
        return sb_fail(asker.line, SB_FAILED, "%s: failed to send message", device);
    if (asker.verbose) sb_say(asker.line, "%s: message sent", device);

    uint64_t word1 = 0, answer = 0, value = 0;
    if (_SL_RecvMsg(reply_port, &word1, &answer, &value, asker.timeout) != RESULT_SUCCESS)
        return sb_fail(asker.line, SB_FAILED, "%s: failed to receive message", device);
    if (static_cast<uint32_t>(answer) != code + 1)
        return sb_fail(asker.line, SB_FAILED, "%s: received message is not %s", device, asker.reply);
    *result = value;
    return SB_DONE;
}

}  // namespace

int sb_devasker_open(sb_devasker &asker) {
    if (!RegCaps(GetRegDev(), &asker.max_name, nullptr, nullptr))
        return sb_fail(asker.line, SB_SETUP, "failed to get registry caps.");
    asker.path_size = size_t{asker.max_name} + sizeof DEVICE_DIRECTORY;
    asker.path.reset(static_cast<char *>(std::malloc(asker.path_size)));
    return asker.path ? SB_DONE : sb_fail(asker.line, SB_SETUP, "out of memory.");
}

int sb_devasker_ask(const sb_devasker &asker, const char *device, uint32_t code, uint64_t parameter, uint64_t *result) {
    const uint64_t port = _SL_CreateMsgPort(0, 0);
    if (port == NO_OBJECT) return sb_fail(asker.line, SB_SETUP, "failed to create MsgPort.");
    const uint64_t reply_port = _SL_CreateHandle(0, port, RIGHTS_REPLY);
    if (reply_port == NO_OBJECT) return sb_fail(asker.line, SB_SETUP, "failed to create handle to MsgPort.");
    const int status = exchange(asker, device, reply_port, code, parameter, result);
    DeleteMsgPort(reply_port);
    return status;
}
