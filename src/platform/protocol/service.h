// platform/protocol/service.h - service devices: the list of services, the description of one, and a call.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr uint64_t SERVICE_CLASS = 0xDCE7005C;  // class code of every service device

enum : uint32_t {
    SVCCMD_LIST = 0xC05C0001,
    SVCCMD_INFO = 0xC05C0002,
    SVCCMD_CALL = 0xC05C0003,
};

enum : uint64_t {  // types of arguments and results
    SVCTYPE_INTEGER = 1,
    SVCTYPE_STRING = 2,
    SVCTYPE_WIDE_STRING = 3,  // 32-bit characters
    SVCTYPE_SOCKADDR = 4,
};

inline constexpr size_t SVC_NAME_SIZE = 32;  // with the NUL
inline constexpr size_t SVC_KEY_SIZE = 16;   // with the NUL
inline constexpr size_t SVC_LIST_SLOTS = 256;
inline constexpr size_t SVC_MAX_ARGS = 8;
inline constexpr size_t SVC_MAX_RESULTS = 4;

struct svc_list_block {
    uint64_t capacity;  // client: slots
    uint64_t total;     // server: services the device has
    uint64_t returned;  // server: names in this reply
    char names[SVC_LIST_SLOTS][SVC_NAME_SIZE];
};
static_assert(offsetof(svc_list_block, names) == 24);
static_assert(sizeof(svc_list_block) == 8216);

struct svc_descriptor {
    char name[SVC_KEY_SIZE];  // NUL-terminated
    uint64_t type;            // SVCTYPE_
};
static_assert(offsetof(svc_descriptor, type) == 16);
static_assert(sizeof(svc_descriptor) == 24);

struct svc_info_block {
    char name[64];  // client: NUL-terminated, at most SVC_NAME_SIZE - 1 characters
    uint64_t arg_count;
    svc_descriptor args[SVC_MAX_ARGS];
    uint64_t result_count;
    // result_count descriptors follow, as many of them as the request has room for.
};
static_assert(offsetof(svc_info_block, arg_count) == 64);
static_assert(offsetof(svc_info_block, args) == 72);
static_assert(offsetof(svc_info_block, result_count) == 264);
static_assert(sizeof(svc_info_block) == 272);

struct svc_slot {
    uint64_t type;   // SVCTYPE_
    uint64_t value;  // integer, or the address of the data
};
static_assert(offsetof(svc_slot, value) == 8);
static_assert(sizeof(svc_slot) == 16);

struct svc_call_block {
    char name[SVC_NAME_SIZE];
    uint64_t arg_count;
    uint64_t result_count;
    svc_slot args[SVC_MAX_ARGS];
    svc_slot results[SVC_MAX_RESULTS];
    uint64_t pool_cursor;  // address of the pool's next free byte
    uint64_t pool_left;    // bytes
};
static_assert(offsetof(svc_call_block, arg_count) == 32);
static_assert(offsetof(svc_call_block, args) == 48);
static_assert(offsetof(svc_call_block, results) == 176);
static_assert(offsetof(svc_call_block, pool_cursor) == 240);
static_assert(sizeof(svc_call_block) == 256);

struct svc_sockaddr {
    uint16_t family;   // SVC_FAMILY_INET
    uint16_t port;     // network byte order
    uint32_t address;  // network byte order
    uint8_t zero[8];
};
static_assert(offsetof(svc_sockaddr, address) == 4);
static_assert(sizeof(svc_sockaddr) == 16);
inline constexpr uint16_t SVC_FAMILY_INET = 2;
inline constexpr size_t SVC_SOCKADDR_ROOM = 19;  // bytes of the pool for a sockaddr: the record and its alignment
