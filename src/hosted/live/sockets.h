// hosted/live/sockets.h - the system's TCP, UDP and local sockets, and the registry's run/socket/ over them.
//
// A socket is known by the number of its inode, which descriptors refer to. One that no descriptor refers to any more
// has none there; it gets a number above all inodes, stable within a run.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "hosted/live/proc_object.h"
#include "hosted/live/registry_tree.h"
#include "hosted/live/scanner.h"

namespace hosted::live {

enum class socket_kind : uint8_t { tcp, udp, local };

struct socket_end {
    uint32_t address[4] = {};  // in network byte order; an IPv4 address is the last word alone
    uint16_t port = 0;         // in the processor's byte order

    bool is_unspecified() const { return (address[0] | address[1] | address[2] | address[3]) == 0; }
};

// A socket of the internet's protocols.
struct internet_socket {
    bool is_v6 = false;
    socket_end local, remote;
    uint8_t state = 0;
    uint32_t user = 0;
    uint64_t inode = 0;  // 0: none
};

// Parse a line of a text like /proc/net/tcp: its addresses and state alone, or all of it. False where the line
// describes no socket.
bool parse_socket_ends(scanner &line, internet_socket &out);
bool parse_internet_socket(std::string_view text, internet_socket &out);

// The inode in what a descriptor's link says, "socket:[INODE]"; nothing where it refers to something else.
std::optional<uint64_t> socket_inode(std::string_view link);

// The sockets of the calling process's network, read when first asked for.
class socket_table {
public:
    // Where the local sockets are read from.
    enum class local_source : uint8_t {
        table,      // a text of the process file system, which has neither their users nor their peers
        diagnosis,  // the system's answers, or the table where it has none
    };
    explicit socket_table(proc_root &root, local_source local = local_source::table) : root_(root), local_(local) {}

    // Protocol, addresses and state of the socket of an inode, in one line; empty where it is not known.
    std::string describe(uint64_t inode);

    // The numbers of all sockets of a kind.
    std::vector<uint64_t> numbers(socket_kind kind);

    // Reads an item of a socket into a key, or why it cannot be read; false where the socket has no such thing.
    enum class item : uint8_t { local, remote, state, task, user };
    bool read(uint64_t number, item asked, registry_node &key);

    bool has(socket_kind kind, uint64_t number);

private:
    // Of a local socket, the ends hold state, inode and user alone.
    struct record {
        uint64_t number;
        socket_kind kind;
        bool has_user = true;
        bool has_peer = false;             // of a local socket
        uint32_t peer = 0;                 // its number; 0: not known
        uint32_t path = 0, path_size = 0;  // of a local socket, in paths_
        internet_socket ends;
    };

    const std::vector<record> &all();
    const record *find(uint64_t number);
    void read_internet(socket_kind kind, const char *path, std::vector<record> &into);
    bool ask_for_local(std::vector<record> &into);
    void read_local(std::vector<record> &into);
    std::string_view path_of(const record &of) const { return std::string_view(paths_).substr(of.path, of.path_size); }
    std::string end_text(const record &of, const socket_end &end) const;
    std::string local_text(const record &of) const;
    std::string remote_text(const record &of);
    void find_owners();

    proc_root &root_;
    local_source local_;
    std::optional<std::vector<record>> records_;  // in order of their numbers
    std::string paths_;
    std::optional<std::unordered_map<uint64_t, int>> owners_;  // processes by inode
    bool all_owners_seen_ = false;
};

// The registry's directory of all sockets. table must outlive it.
node_pointer make_socket_directory(socket_table &table);

}  // namespace hosted::live
