// hosted/servers/serve.h - the kit: a device server that is a process of its own, on a running machine.
//
// The protocols are the same that work in a machine (hosted/servers/device_server.h, hosted/servers/protocols.h). The
// server's records and requests lie in a part of the machine's shared memory that is this process's alone to divide,
// and that every process on the machine can write to: what the rules for protocols say of a client's memory holds here
// too.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

#include "hosted/servers/device_server.h"

namespace ventix {

using protocol_list = std::vector<std::unique_ptr<hosted::device_protocol>>;

// Serves a device on the machine that VENTIX_MACHINE names, which must be a running one. Publishes it as run/dev/NAME,
// until this process ends. The calling thread serves; it returns only where it cannot.
//   name       1 to REG_MAX_NAME bytes without '/', unused on that machine
//   protocols  what the device speaks; they are asked in this order
//   behaviour  its classes and queries, and how it misbehaves (default: a healthy device of no class)
//   returns    RESULT_NOT_PERMITTED: not attached, the name is taken, or this process serves already;
//              RESULT_NO_MEMORY: no shared memory is left; RESULT_NO_OBJECT: its port was deleted; else what the
//              registry or the machine failed with
// The process ends, with status 125 and a line on standard error, when the machine does.
uint64_t serve(std::string_view name, protocol_list protocols, hosted::device_behaviour behaviour = {});

// The same for a device of one protocol.
inline uint64_t serve(std::string_view name, std::unique_ptr<hosted::device_protocol> protocol,
                      hosted::device_behaviour behaviour = {}) {
    protocol_list list;
    list.push_back(std::move(protocol));
    return serve(name, std::move(list), std::move(behaviour));
}

}  // namespace ventix
