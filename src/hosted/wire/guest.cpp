// hosted/wire/guest.cpp - attaching to a running machine, and calls as packets.
#include "hosted/wire/guest.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "hosted/kernel/kernel.h"
#include "hosted/kernel/run.h"
#include "platform/protocol/terminal.h"

namespace hosted {

namespace {

constexpr time_t ANSWER_WAIT = 60;  // seconds for a machine to accept a connection and to answer the hello

// Set in the child of a fork: what it would call with belongs to its parent.
std::atomic<bool> forked = false;

// Receives the machine's hello and the descriptor that comes with it.
int receive_hello(int socket, wire::hello &received, descriptor &passed) {
    iovec into{&received, sizeof received};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr message{};
    message.msg_iov = &into;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = CMSG_LEN(sizeof(int));  // room for one: the system closes any others
    const auto size = retry_interrupted([&] { return recvmsg(socket, &message, MSG_CMSG_CLOEXEC); });
    if (size < 0) return errno;
    const cmsghdr *const header = CMSG_FIRSTHDR(&message);
    if (header != nullptr && header->cmsg_level == SOL_SOCKET && header->cmsg_type == SCM_RIGHTS &&
        header->cmsg_len == CMSG_LEN(sizeof(int))) {
        int number = -1;
        std::memcpy(&number, CMSG_DATA(header), sizeof number);
        passed = descriptor(number);
    }
    if (!passed && (message.msg_flags & MSG_CTRUNC) != 0) return EMFILE;  // this process has no room for it
    return size == sizeof received ? 0 : EPROTO;
}

// Maps the shared memory where it belongs, and nowhere else. It must be what it seems: of its size for good.
const char *map_arena(int memory, const wire::hello &said) {
    constexpr int needed = F_SEAL_GROW | F_SEAL_SHRINK | F_SEAL_SEAL;
    struct stat about {};
    const int seals = fcntl(memory, F_GET_SEALS);
    if (said.arena_address != wire::ARENA_ADDRESS || said.arena_size != wire::ARENA_SIZE || seals < 0 ||
        (seals & needed) != needed || fstat(memory, &about) != 0 ||
        about.st_size != static_cast<off_t>(wire::ARENA_SIZE))
        return "the machine's memory is not what it has to be";
    auto *const at = reinterpret_cast<void *>(wire::ARENA_ADDRESS);
    void *const mapped =
        mmap(at, wire::ARENA_SIZE, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_NORESERVE | MAP_FIXED_NOREPLACE, memory, 0);
    if (mapped == at) return nullptr;
    if (mapped == MAP_FAILED && errno != EEXIST) return std::strerror(errno);
    return "the address of the machine's memory is taken in this process";
}

}  // namespace

// One thread's connection. The first one of the process is the guest's.
struct guest::connection {
    int socket = -1;
    bool owned = false;
    bool refused = false;  // a further one of a process that has all it may have, or of a machine that has
    uint32_t sequence = 0;
    uint64_t addressed = 0;
    wire::receiver answers;

    ~connection() {
        if (owned) close(socket);
    }
};

thread_local guest::connection guest::connection_;

bool guest::is_socket(const char *path) {
    struct stat about {};
    return stat(path, &about) == 0 && S_ISSOCK(about.st_mode);
}

bool guest::open(connection &made, wire::purpose purpose, descriptor *memory, std::string &message) const {
    const auto fail = [&](const std::string &what) {
        message = path_ + ": " + what;
        return false;
    };
    constexpr char unanswered[] = "the machine does not answer";
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path_.size() >= sizeof address.sun_path) return fail("no machine runs there");
    std::memcpy(address.sun_path, path_.c_str(), path_.size() + 1);
    descriptor socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    if (!socket) return fail(std::strerror(errno));
    wire::limit_waits(socket.get(), ANSWER_WAIT);
    const auto connected = retry_interrupted(
        [&] { return connect(socket.get(), reinterpret_cast<sockaddr *>(&address), sizeof address); });
    if (connected != 0) {
        const bool nobody = errno == ECONNREFUSED || errno == ENOENT || errno == EPROTOTYPE;
        const char *const other = errno == EAGAIN ? unanswered : std::strerror(errno);
        return fail(nobody ? "no machine runs there" : other);
    }
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 || peer.uid != geteuid()) {
        return fail("another user's machine");
    }
    const wire::hello own{.what = purpose, .thread = static_cast<uint32_t>(gettid())};
    wire::hello said{};
    descriptor passed;
    // A machine that takes no more connections says so and closes: it may not even read the hello.
    static_cast<void>(wire::send_packet(socket.get(), &own, sizeof own));
    int error = receive_hello(socket.get(), said, passed);
    if (error == ECONNRESET) error = receive_hello(socket.get(), said, passed);
    if (error == EMFILE) return fail(std::strerror(error));
    if (error != 0) return fail(error == EAGAIN ? unanswered : "no machine runs there");
    wire::limit_waits(socket.get(), 0);
    if (said.magic != wire::MAGIC) return fail("not a machine's socket");
    if (said.major != wire::MAJOR || said.answer == wire::verdict::other_version) {
        return fail("the machine speaks version " + std::to_string(said.major) + ", this program version " +
                    std::to_string(wire::MAJOR));
    }
    made.refused = said.answer == wire::verdict::full;
    if (made.refused) return fail("the machine takes no more connections");
    if (said.answer != wire::verdict::welcome) return fail("the machine refuses this process");
    if (memory != nullptr) {
        if (const char *wrong = map_arena(passed.get(), said)) return fail(wrong);
        *memory = std::move(socket);
        made.socket = memory->get();
    } else {
        made.socket = socket.release();
        made.owned = true;
    }
    return true;
}

std::unique_ptr<guest> guest::attach(const char *path, std::string &message) {
    std::unique_ptr<guest> made(new guest(path));
    if (!made->open(connection_, wire::purpose::attach, &made->first_, message)) return nullptr;
    pthread_atfork(nullptr, nullptr, [] { forked = true; });
    return made;
}

void guest::end(const char *why) const { end_unreadable((path_ + ": " + why).c_str()); }

guest::connection &guest::of_thread() {
    connection &mine = connection_;
    if (forked) end("a forked process has no part in its parent's machine before it runs a program");
    std::string message;
    if (mine.socket >= 0 || open(mine, wire::purpose::join, nullptr, message) || mine.refused) return mine;
    end_unreadable(message.c_str());
}

wire::answer guest::exchange(uint32_t what, std::span<const uint64_t> words) {
    connection &mine = of_thread();
    if (mine.socket < 0) return {.result = NO_OBJECT, .last_error = EMFILE};
    wire::request sent{.sequence = ++mine.sequence, .what = what};
    std::ranges::copy(words, sent.words);
    wire::answer given{};
    if (wire::send_packet(mine.socket, &sent, sizeof sent) != 0 ||
        mine.answers.receive(mine.socket, &given, sizeof given) != 0 || given.sequence != sent.sequence) {
        end("the machine has ended");
    }
    return given;
}

uint64_t guest::call(hosted::call which, std::span<const argument> arguments, caller &who) {
    uint64_t words[wire::REQUEST_WORDS] = {};
    for (size_t i = 0; i < arguments.size(); ++i) {
        const argument &given = arguments[i];
        words[i] = given.output != nullptr || given.record != nullptr ? 1 : given.value;  // whether it is wanted
    }
    const wire::answer given = exchange(static_cast<uint32_t>(which), words);
    if (connection_.socket < 0) {  // a call that returns a value returns the last error, or 0
        who.faulted = true;
        const bool has_code =
            properties_of(which).returns == call_returns::code || which == hosted::call::get_last_error;
        if (!has_code) return properties_of(which).returns == call_returns::handle ? NO_OBJECT : 0;
        return RESULT_NO_MEMORY;
    }
    who.fate = given.fate <= static_cast<uint8_t>(fate::self_deleted) ? static_cast<fate>(given.fate) : fate::returns;
    who.faulted = given.faulted != 0;
    connection_.addressed = given.words[wire::ANSWER_WORDS - 1];
    if (!has_succeeded(which, given.result) || who.faulted) return given.result;
    const uint64_t *output = given.words;
    for (const argument &wanted : arguments) {
        if (wanted.output != nullptr) *wanted.output = *output++;
        if (wanted.record != nullptr) *wanted.record = {output[0], output[1], output[2]};
    }
    return given.result;
}

uint64_t guest::addressed() const { return connection_.addressed; }

std::optional<request_subject> guest::subject_of(uint64_t port, const kernel_message &message) {
    const uint64_t words[] = {port, message.word1, message.code, message.word2};
    const wire::answer given = exchange(wire::service::subject, words);
    if (given.result != RESULT_SUCCESS) return std::nullopt;
    if (given.words[1] > wire::LONGEST_PATH) end("an answer that cannot be right");
    request_subject subject{static_cast<uint32_t>(given.words[0]), {}};
    while (subject.path.size() < given.words[1]) {
        const uint64_t offset[] = {subject.path.size()};
        const wire::answer piece = exchange(wire::service::read_text, offset);
        const size_t length = std::min(given.words[1] - offset[0], sizeof piece.words);
        subject.path.append(reinterpret_cast<const char *>(piece.words), length);
    }
    return subject;
}

std::span<std::byte> guest::take_slice() {
    const wire::answer given = exchange(wire::service::take_slice, {});
    const uint64_t begin = given.words[0] - wire::ARENA_ADDRESS;
    if (given.result != RESULT_SUCCESS || begin >= wire::ARENA_SIZE || begin % wire::SLICE_SIZE != 0) return {};
    return {reinterpret_cast<std::byte *>(given.words[0]), wire::SLICE_SIZE};
}

// ---- terminals ------------------------------------------------------------------------------------------------------

int guest::terminal_result(const wire::answer &given) const {
    if (static_cast<int>(given.result) < 0) errno = static_cast<int>(given.last_error);
    return static_cast<int>(given.result);
}

int guest::open_terminal(const char *path, int flags) {
    std::string_view rest = path;
    for (bool more = true; more;) {
        uint64_t words[wire::REQUEST_WORDS] = {};
        const size_t length = rest.copy(reinterpret_cast<char *>(words), sizeof words);
        more = length == sizeof words;  // the last piece ends with a NUL
        rest.remove_prefix(length);
        exchange(wire::service::add_text, words);
    }
    const uint64_t words[] = {static_cast<uint64_t>(flags)};
    return terminal_result(exchange(wire::service::open_terminal, words));
}

int guest::control_terminal(int descriptor, unsigned long request, char *buffer) {
    static_assert(TERM_LAYOUT_SIZE == sizeof wire::answer::words);
    uint64_t words[wire::REQUEST_WORDS] = {static_cast<uint64_t>(descriptor), request};
    std::memcpy(words + 2, buffer, TERM_LAYOUT_SIZE);
    const wire::answer given = exchange(wire::service::control_terminal, words);
    if (static_cast<int>(given.result) == 0) std::memcpy(buffer, given.words, TERM_LAYOUT_SIZE);
    return terminal_result(given);
}

void guest::close_terminal(int descriptor) {
    const uint64_t words[] = {static_cast<uint64_t>(descriptor)};
    exchange(wire::service::close_terminal, words);
}

}  // namespace hosted
