// hosted/kernel/register_info.h - the processor's registers as the register-information groups of system data.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "platform/kernel.h"

namespace hosted {

struct register_info {
    std::string_view name;
    uint64_t id;
    uint64_t type;  // the type word: CPUREG_ bits and the width
};

// Reads an item of the groups over a table of registers. RESULT_NO_ITEM where there is none.
//   longest  bytes of the longest name
//   at       returns the register_info of an index in the table
template <class At>
uint64_t read_register_info(size_t count, size_t longest, At at, uint64_t group, uint64_t index, uint64_t &value) {
    constexpr uint64_t piece_size = sizeof value;                         // bytes of a name in one item
    const uint64_t stride = 2 + (longest + piece_size - 1) / piece_size;  // id, type word, name pieces
    if (group == KSYSIDX_REGISTERINFO) {
        switch (index) {
        case KSYSIDX_REGISTERINFO_COUNT: value = count; return RESULT_SUCCESS;
        case KSYSIDX_REGISTERINFO_STRIDE: value = stride; return RESULT_SUCCESS;
        case KSYSIDX_REGISTERINFO_MAXNAMELEN: value = longest; return RESULT_SUCCESS;
        default: return RESULT_NO_ITEM;
        }
    }
    if (group != KSYSIDX_REGISTERINFO_TABLE || index / stride >= count) return RESULT_NO_ITEM;
    const register_info asked = at(index / stride);
    switch (const uint64_t item = index % stride) {
    case 0: value = asked.id; break;
    case 1: value = asked.type; break;
    default: {
        const auto piece =
            asked.name.substr(std::min<uint64_t>((item - 2) * piece_size, asked.name.size()), piece_size);
        value = 0;
        std::memcpy(&value, piece.data(), piece.size());
    }
    }
    return RESULT_SUCCESS;
}

}  // namespace hosted
