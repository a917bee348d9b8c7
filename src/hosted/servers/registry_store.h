// hosted/servers/registry_store.h - what the registry server serves: a machine's tree of keys.
//
// Paths are as clients give them: components separated by '/', of which empty ones are skipped. The empty path is the
// root.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "platform/kernel.h"
#include "platform/protocol/registry.h"

namespace hosted {

struct registry_entry {
    std::string name;
    uint16_t type = 0;    // REGTYPE_
    uint32_t length = 0;  // bytes of its value
};

// A walk over the entries of one directory, in the registry's order. Each call moves to the next entry and reads it;
// the first call reads the first entry. Returns false at the end.
using registry_cursor = std::function<bool(registry_entry &entry)>;

struct registry_limits {
    uint32_t name = REG_MAX_NAME;  // longest key name
    uint32_t binary = 1024;        // longest binary value
    uint32_t depth = 16;           // deepest directory nesting
    uint32_t buffer = 4096;        // bytes of a client's payload buffer
};

// Removes the first component of a path and returns it; empty where none is left.
inline std::string_view next_component(std::string_view &path) {
    path.remove_prefix(std::min(path.find_first_not_of('/'), path.size()));
    const std::string_view component = path.substr(0, path.find('/'));
    path.remove_prefix(component.size());
    return component;
}

// Results are error words: 0 (done), IOERROR_NOT_FOUND, or another code. Outputs are written on success only.
class registry_store {
public:
    virtual ~registry_store() = default;

    virtual registry_limits limits() const { return {}; }
    virtual registry_cursor list(std::string_view path) = 0;  // empty: no such directory
    virtual uint32_t describe(std::string_view path, uint16_t &type, uint32_t &length) = 0;
    virtual uint32_t read_int(std::string_view path, uint64_t &value) = 0;
    virtual uint32_t read_binary(std::string_view path, std::string &value) = 0;  // the whole value

    // Make or replace a binary key, make a temporary directory, make an integer key. A read-only store does not
    // override them.
    virtual uint32_t write_binary(std::string_view, std::string_view) { return RESULT_NOT_PERMITTED; }
    virtual uint32_t create_temporary(std::string_view) { return RESULT_NOT_PERMITTED; }
    // client: the task that asks, one of whose ports may guard the key
    virtual uint32_t create_guard(std::string_view, uint64_t, uint64_t /*client*/) { return RESULT_NOT_PERMITTED; }
};

}  // namespace hosted
