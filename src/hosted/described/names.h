// hosted/described/names.h - the names that numbered items go by in a machine file.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace hosted::described {

// What a number stands for: the same number is another item in another place.
enum class naming : uint8_t {
    state,          // items of _SL_GetState
    object,         // information items of every kind of object
    data_group,     // groups of _SL_GetSystemData, and the indexes within two of them
    register_info,  // of KSYSIDX_REGISTERINFO
    trace,          // of KSYSIDX_TRACE
    service_type,   // types of arguments and results
    none,           // items without names
};

// "KSTATE_PAGE_SIZE" -> 8
std::optional<uint64_t> item_by_name(naming kind, std::string_view name);

// 8 -> "KSTATE_PAGE_SIZE"; empty where an item has no name
std::string_view item_name(naming kind, uint64_t item);

// How the indexes within a group of system data are named.
naming index_naming(uint64_t group);

}  // namespace hosted::described
