// fuzz/packets_to_guest.cpp - a process that attaches ends with its own message, or makes its calls, whatever the
// machine at its socket answers.
//
// The input is the kind of memory that the machine passes, and its packets: their sizes and bytes, or those of an
// answer to the request at hand.
#include <sys/mman.h>
#include <sys/syscall.h>

#include <cstdlib>
#include <filesystem>
#include <thread>

#include "hosted/descriptors.h"
#include "hosted/kernel/kernel.h"
#include "hosted/wire/guest.h"
#include "hosted/wire/peer.h"
#include "input.h"

namespace {

struct ended {};
thread_local bool is_guest = false;

// A memory file of the machine's size, or another, sealed or not.
int make_memory(bool whole, bool sealed) {
    const int made = memfd_create("memory", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (ftruncate(made, whole ? wire::ARENA_SIZE : 4096) != 0) std::abort();
    if (sealed) fcntl(made, F_ADD_SEALS, F_SEAL_GROW | F_SEAL_SHRINK | F_SEAL_SEAL);
    return made;
}

int listening(const std::string &path) {
    const int made = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0);
    sockaddr_un address{AF_UNIX, {}};
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    if (bind(made, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0 || listen(made, 8) != 0) std::abort();
    return made;
}

// Sends a packet with as many descriptors of one file.
void send_with(int socket, const void *bytes, size_t size, int file, size_t count) {
    iovec from{const_cast<void *>(bytes), size};
    alignas(cmsghdr) char control[CMSG_SPACE(4 * sizeof(int))] = {};
    msghdr message{};
    message.msg_iov = &from;
    message.msg_iovlen = 1;
    if (count != 0) {
        message.msg_control = control;
        message.msg_controllen = CMSG_SPACE(count * sizeof(int));
        cmsghdr *const header = CMSG_FIRSTHDR(&message);
        *header = {CMSG_LEN(count * sizeof(int)), SOL_SOCKET, SCM_RIGHTS};
        std::fill_n(reinterpret_cast<int *>(CMSG_DATA(header)), count, file);
    }
    sendmsg(socket, &message, MSG_NOSIGNAL);
}

void attach_and_call(const char *path) try {
    is_guest = true;
    std::string message;
    const auto machine = hosted::guest::attach(path, message);
    if (!machine) return;
    hosted::caller who;
    kernel_message received{};
    uint64_t value = 0;
    char layout[32] = {};
    using hosted::argument;
    const argument receive[] = {uint64_t{1}, &received, int64_t{0}};
    const argument item[] = {uint64_t{1}, uint64_t{2}, &value};
    for (int i = 0; i < 2; ++i) {
        machine->call(call::recv_msg_ptr, receive, who);
        machine->call(call::get_object_info, item, who);
        machine->subject_of(1, received);
        for (std::byte &one : machine->take_slice().first(0)) one = {};
        machine->control_terminal(machine->open_terminal("/dev/terminal", 0), 1, layout);
        machine->close_terminal(3);
    }
} catch (const ended &) {
}

}  // namespace

// A process that cannot go on ends here: the thread that plays it unwinds instead.
extern "C" void _exit(int status) {
    if (is_guest) throw ended();
    syscall(SYS_exit_group, status);
    std::abort();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    static const std::string path =
        std::filesystem::temp_directory_path() / ("ventix-fuzz-" + std::to_string(getpid()));
    static const int files[] = {make_memory(true, true), make_memory(true, false), make_memory(false, true), -1};
    static const int listener = listening(path);
    static const int unlinked = std::atexit([] { unlink(path.c_str()); });
    static_cast<void>(unlinked);
    fuzz_input input(bytes, size);
    std::thread guest(attach_and_call, path.c_str());
    // A guest that nobody accepts would wait for ever.
    const int socket = hosted::retry_interrupted([] { return accept4(listener, nullptr, nullptr, SOCK_CLOEXEC); });
    const uint8_t kind = input.byte();
    char asked[sizeof(wire::request)];
    wire::hello said{.arena_address = wire::ARENA_ADDRESS, .arena_size = wire::ARENA_SIZE};
    if ((kind & 0x80) != 0) input.copy(&said, sizeof said);
    recv(socket, asked, sizeof asked, 0);
    send_with(socket, &said, sizeof said, files[kind & 3], files[kind & 3] < 0 ? 0 : kind >> 2 & 3);
    while (input.size() != 0 && recv(socket, asked, sizeof asked, 0) > 0) {
        const uint8_t length = input.byte();
        wire::answer given[2] = {};  // and what a long packet has after it
        input.copy(given, std::min<size_t>(length % 0x80, sizeof given));
        if (length < 0x80) std::memcpy(&given[0].sequence, asked, sizeof given[0].sequence);
        send_with(socket, given, length < 0xF0 ? sizeof given[0] : length % 0x40, files[0], length % 2);
    }
    close(socket);
    guest.join();
    munmap(reinterpret_cast<void *>(wire::ARENA_ADDRESS), wire::ARENA_SIZE);
    return 0;
}
