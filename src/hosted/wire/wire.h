// hosted/wire/wire.h - the packets between a running machine and the processes attached to it.
//
// The socket is of type SOCK_SEQPACKET. The process sends a hello and gets one with the descriptor of the shared
// memory. Each later packet of the process is a request, and gets one answer. Both sides run on the same processor, so
// records are sent with their layout in memory.
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>

#include "hosted/kernel/arena.h"
#include "hosted/kernel/calls.h"

namespace hosted::wire {

inline constexpr uint32_t MAGIC = 0x4D58'5456;  // "VTXM"
inline constexpr uint16_t MAJOR = 1;            // both sides must have the same
inline constexpr uint16_t MINOR = 0;

// The shared memory has the same address in every process, so addresses in it are valid in all of them. The machine
// allocates in its first part; the rest is divided into slices for processes that serve.
inline constexpr uint64_t ARENA_ADDRESS = arena::USUAL_ADDRESS;
inline constexpr uint64_t MACHINE_PART = uint64_t{4} << 30;
inline constexpr uint64_t SLICE_SIZE = uint64_t{16} << 20;
inline constexpr uint64_t SLICES = 256;
inline constexpr uint64_t ARENA_SIZE = MACHINE_PART + SLICES * SLICE_SIZE;

enum class purpose : uint32_t {
    attach,  // the first connection of a program: it becomes a task
    join,    // of a further thread of it
};

enum class verdict : uint32_t { welcome, other_version, refused, full };

// The first packet in either direction.
struct hello {
    uint32_t magic = MAGIC;
    uint16_t major = MAJOR;
    uint16_t minor = MINOR;
    purpose what = purpose::attach;     // process
    uint32_t thread = 0;                // process: its thread's number on this system
    verdict answer = verdict::welcome;  // machine
    uint32_t reserved = 0;
    uint64_t arena_address = 0;  // machine, likewise below
    uint64_t arena_size = 0;
};
static_assert(sizeof(hello) == 40);

// What a request asks for: a kernel call by its number, or one of these.
enum class service : uint32_t {
    first = 0x100,
    add_text = first,  // 48 bytes of the connection's text, which ends at a NUL; the first one after a use begins anew
    read_text,         // offset -> 32 bytes of it
    open_terminal,     // flags; the text is the path -> the descriptor, or -1; the last error is the errno
    control_terminal,  // descriptor, request, 32 bytes -> as of ioctl(), 32 bytes
    close_terminal,    // descriptor
    take_slice,        // -> its address: one for each task
    subject,           // of a send: port, word1, code, word2 -> command; the path becomes the text
};

inline constexpr size_t LONGEST_PATH = size_t{1} << 20;  // bytes, in a request to the registry
inline constexpr size_t REQUEST_WORDS = 6;
inline constexpr size_t ANSWER_WORDS = 4;

struct request {
    uint32_t sequence = 0;
    uint32_t what = 0;  // a call or a service
    uint64_t words[REQUEST_WORDS] = {};
};
static_assert(sizeof(request) == 56);

struct answer {
    uint32_t sequence = 0;  // of the request
    uint8_t fate = 0;       // hosted::fate
    uint8_t faulted = 0;    // a fault replaced the call
    uint16_t reserved = 0;
    uint64_t result = 0;
    uint64_t last_error = 0;
    uint64_t words[ANSWER_WORDS] = {};  // outputs in the order of the call's arguments; the last one of a receive is
                                        // the handle that its message was sent to
};
static_assert(sizeof(answer) == 56);

// Limits how long a connect, a send or a receive on a socket blocks: it then fails with EAGAIN. 0: for ever.
void limit_waits(int socket, time_t seconds);

// Sends one packet; blocks while the peer leaves too many unread. Returns 0, or an errno; never raises SIGPIPE.
int send_packet(int socket, const void *packet, size_t size);

// Waits for packets on one socket. Where the last one came soon, it polls for the next one for some microseconds before
// it sleeps: waking a thread on another processor costs more than an exchange. On one processor it never polls.
class receiver {
public:
    // Receives one packet of exactly this size. Descriptors sent with it are closed.
    //   returns  0, or an errno: ECONNRESET at the end of the connection, EPROTO for a packet of another size
    int receive(int socket, void *packet, size_t size);

private:
    bool quick_ = false;
    uint32_t pause_ = 0;
};

}  // namespace hosted::wire
