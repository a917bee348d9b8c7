// hosted/live/socket_diagnosis.h - what the system reports of its sockets only when asked by message: who is at the
// other end of a local socket, and which IPv6 sockets are for IPv6 alone.
//
// Any caller may ask, but a system may lack the interface or a sandbox refuse it. Callers then fall back on the tables
// of the process file system.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>

namespace hosted::live {

// The states of the system's sockets, which local ones share with TCP.
inline constexpr uint8_t SOCKET_ESTABLISHED = 1, SOCKET_LISTENS = 10;

struct local_socket {
    uint8_t state = 0;
    uint32_t inode = 0;            // 0: none, as of a connection that was not accepted yet
    std::string_view address;      // as it was bound: a path and a NUL, or a NUL and a name; empty: not bound
    std::optional<uint32_t> peer;  // inode of the socket at the other end; 0: it has none
    std::optional<uint32_t> user;
};

// Parses an answer to the question for local sockets. Nothing where it is none. The address is a part of the message.
std::optional<local_socket> parse_local_socket(std::string_view message);

// Calls take() for each local socket of the calling process's network. Returns 0, or the error number; take() may have
// been called for some of them then.
int for_each_local_socket(const std::function<void(const local_socket &)> &take);

// How many sockets listen at the unspecified IPv6 address and a port (in network byte order) for IPv6 alone; 0 where
// the system does not say.
uint64_t count_v6_only(uint16_t port);

}  // namespace hosted::live
