// common/registers.cpp - reading the register information item by item.
#include "common/registers.h"

#include <cstring>

#include "platform/kernel.h"

sb_registerfault sb_getregisterinfo(sb_registerinfo *info) {
    using enum sb_registerstep;
    const struct {
        uint64_t index;
        uint64_t *value;
        sb_registerstep step;
    } items[] = {{KSYSIDX_REGISTERINFO_COUNT, &info->count, count},
                 {KSYSIDX_REGISTERINFO_STRIDE, &info->stride, stride},
                 {KSYSIDX_REGISTERINFO_MAXNAMELEN, &info->max_name, max_name}};
    for (const auto &[index, value, step] : items) {
        if (const uint64_t code = _SL_GetSystemData(KSYSIDX_REGISTERINFO, index, value)) return {step, code, 0};
    }
    return {};
}

sb_text sb_newregistername(const sb_registerinfo &info) {
    if (info.max_name > SB_MAX_REGISTER_NAME) return nullptr;
    // The last piece may pass the longest name, and the NUL follows it.
    return sb_text(static_cast<char *>(std::malloc(info.max_name + sizeof(uint64_t) + 1)));
}

sb_registerfault sb_getregister(const sb_registerinfo &info, uint64_t number, sb_register *out, char *room) {
    using enum sb_registerstep;
    if (number >= SB_MAX_REGISTERS) return {id, RESULT_BAD_ARGUMENT, 0};
    uint64_t item = info.stride * number;
    const auto read = [&item](uint64_t *value) { return _SL_GetSystemData(KSYSIDX_REGISTERINFO_TABLE, item++, value); };
    if (const uint64_t code = read(&out->id)) return {id, code, 0};
    if (const uint64_t code = read(&out->type)) return {type, code, 0};
    uint64_t offset = 0;
    for (; offset < info.max_name; offset += sizeof(uint64_t)) {
        uint64_t piece = 0;
        if (const uint64_t code = read(&piece)) return {name, code, offset};
        std::memcpy(room + offset, &piece, sizeof piece);
    }
    room[offset] = '\0';
    return {};
}
