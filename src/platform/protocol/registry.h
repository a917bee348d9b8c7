// platform/protocol/registry.h - what the registry's client and server share: names, commands, argument blocks,
// records.
//
// An argument block is at the start of the client context's payload buffer; every address in it points into that
// buffer. Texts end in a NUL. "in" is written by the client, "out" by the server.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

// ---- names ----------------------------------------------------------------------------------------------------------

inline constexpr char REGISTRY_DEVICE[] = "Registry";  // its port is the state item KSTATE_REGISTRY_PORT

// What the kernel publishes: for each task a binary key, its name as protocol/task.h says, its value the task's name;
// for each device an integer key of its name with its port.
inline constexpr char PROCESS_DIRECTORY[] = "run/proc/";
inline constexpr char DEVICE_DIRECTORY[] = "run/dev/";

inline constexpr size_t REG_NAME_ROOM = 52;                // of an iterator record, with the NUL
inline constexpr size_t REG_MAX_NAME = REG_NAME_ROOM - 1;  // bytes of the longest name of a key

// Whether a key may have a name: 1 to REG_MAX_NAME bytes without '/'.
constexpr bool reg_is_name(std::string_view name) {
    return !name.empty() && name.size() <= REG_MAX_NAME && name.find('/') == name.npos;
}

// A component of a path that starts with one and separates them by one '/' each; index counts from 0.
constexpr std::string_view reg_component(std::string_view path, size_t index) {
    size_t begin = 0, end = 0;
    for (; end < path.size() && (path[end] != '/' || index-- > 0); ++end) {
        if (path[end] == '/') begin = end + 1;
    }
    return path.substr(begin, end - begin);
}

// ---- commands -------------------------------------------------------------------------------------------------------

enum : uint32_t {
    REGCMD_CAPS = 0xC0020001,
    REGCMD_ITERATOR_BEGIN = 0xC0020004,
    REGCMD_ITERATOR_NEXT = 0xC0020005,
    REGCMD_ITERATOR_END = 0xC0020006,
    REGCMD_KEY_INFO = 0xC0020007,
    REGCMD_CREATE_TMP = 0xC0020011,
    REGCMD_GET_INT = 0xC0020021,
    REGCMD_SET_BIN = 0xC0020022,
    REGCMD_GET_BIN = 0xC0020023,
    REGCMD_CREATE_GUARD = 0xC0020033,
};

enum : uint16_t {
    REGTYPE_INT = 16,   // 64-bit integer
    REGTYPE_BIN = 176,  // byte string
    REGTYPE_DIR = 208,
    REGTYPE_TMP = 215,  // temporary directory
};

inline constexpr uint64_t REG_ITERATOR_FAILED = 0xFFFF00000000;  // first 8 bytes after a failed begin or step

// One entry of a directory, as an iteration returns it.
struct RegIterator {
    uint32_t server_word;  // the server's own
    uint16_t type;         // REGTYPE_
    uint8_t on_entry;      // nonzero while the iterator is on an entry
    uint8_t reserved7;
    uint32_t length;           // bytes of the entry's value
    char name[REG_NAME_ROOM];  // NUL-terminated by a server that keeps to the protocol
};
static_assert(offsetof(RegIterator, type) == 4);
static_assert(offsetof(RegIterator, on_entry) == 6);
static_assert(offsetof(RegIterator, length) == 8);
static_assert(offsetof(RegIterator, name) == 12);
static_assert(sizeof(RegIterator) == 64);

struct reg_caps_block {
    uint32_t max_name;    // out: longest key name, bytes
    uint32_t max_binary;  // out: longest binary value, bytes
    uint32_t max_depth;   // out: deepest directory nesting
};
static_assert(sizeof(reg_caps_block) == 12);

struct reg_path_block {  // REGCMD_CREATE_TMP; the path follows
    uint64_t path;       // in: its address, as in every block
};
static_assert(sizeof(reg_path_block) == 8);

struct reg_int_block {  // REGCMD_GET_INT, REGCMD_CREATE_GUARD; the path follows
    uint64_t path;
    uint64_t value;  // get: out; guard: in
};
static_assert(sizeof(reg_int_block) == 16);

struct reg_bin_block {  // REGCMD_GET_BIN, REGCMD_SET_BIN; the key follows, then the data
    uint64_t path;
    uint64_t data;    // right after the key's NUL
    uint64_t length;  // bytes; get: in the capacity, out what was delivered
};
static_assert(sizeof(reg_bin_block) == 24);

struct reg_info_block {  // REGCMD_KEY_INFO; the key follows
    uint64_t path;
    uint16_t type;  // out
    uint16_t reserved10;
    uint32_t length;  // out: bytes; 8 for an integer, 0 for a directory
};
static_assert(offsetof(reg_info_block, length) == 12);
static_assert(sizeof(reg_info_block) == 16);

struct reg_begin_block {  // REGCMD_ITERATOR_BEGIN; the path follows
    uint64_t record;      // in: address of iterator, below
    uint64_t path;
    RegIterator iterator;  // out
};
static_assert(offsetof(reg_begin_block, iterator) == 16);
static_assert(sizeof(reg_begin_block) == 80);

struct reg_step_block {  // REGCMD_ITERATOR_NEXT, REGCMD_ITERATOR_END
    uint64_t record;
    RegIterator iterator;  // in and out
};
static_assert(offsetof(reg_step_block, iterator) == 8);
static_assert(sizeof(reg_step_block) == 72);
