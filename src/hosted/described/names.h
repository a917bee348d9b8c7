// hosted/described/names.h - the numbered items of a machine file: their names, and how their values are written.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace hosted::described {

// What a number identifies. Each kind has its own numbers.
enum class naming : uint8_t {
    state,          // items of _SL_GetState
    object,         // information items of every kind of object
    data_group,     // groups of _SL_GetSystemData, and the indexes within two of them
    register_info,  // of KSYSIDX_REGISTERINFO
    trace,          // of KSYSIDX_TRACE
    service_type,   // types of arguments and results
    none,           // items without names
};

// How a saved machine writes a number: hexadecimal for handles, addresses and flag words, plain for all else.
enum class form : uint8_t { plain, hexadecimal, address };

// What the value of an item is: a handle, a number of a prefix's constants or bits of them, or neither.
enum class meaning : uint8_t { handle, name, bits, number };

// An item whose value is no amount.
struct item_meaning {
    naming kind;
    uint64_t item;
    form written;
    meaning means = meaning::number;
    std::string_view word = {};  // what a handle names, if that is known; the prefix of a name and of bits
};

struct named_item {
    naming kind;
    form value;
    std::string_view name;
    uint64_t item;
};

// The named items of a kind, by number; and their names alone.
std::span<const named_item> named_items(naming kind);
std::vector<std::string_view> item_names(naming kind);

// "KSTATE_PAGE_SIZE" -> 8
std::optional<uint64_t> item_by_name(naming kind, std::string_view name);

// 8 -> "KSTATE_PAGE_SIZE"; empty where an item has no name.
std::string_view item_name(naming kind, uint64_t item);

// plain where an item has no name
form item_form(naming kind, uint64_t item);

// null where the value is an amount
const item_meaning *find_meaning(naming kind, uint64_t item);

// The key of an item in a file: its name, or its number where it has none, from 0x1000 on in hexadecimal.
std::string item_key(naming kind, uint64_t item);

// How the indexes within a group of system data are named.
naming index_naming(uint64_t group);

}  // namespace hosted::described
