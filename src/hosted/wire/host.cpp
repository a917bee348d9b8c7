// hosted/wire/host.cpp - accepting, serving and ending connections.
#include "hosted/wire/host.h"

#include <fcntl.h>
#include <malloc.h>
#include <poll.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <new>
#include <tuple>
#include <utility>

#include "hosted/boot.h"
#include "hosted/kernel/run.h"
#include "platform/protocol/terminal.h"

namespace hosted::wire {

namespace {

constexpr size_t MOST_CONNECTIONS = 4096;
constexpr size_t LONGEST_TEXT = 4096;        // bytes
constexpr size_t MOST_TERMINALS = 256;       // open ones of a task
constexpr size_t STACK = size_t{512} << 10;  // bytes of each connection's thread; those never used cost nothing
constexpr time_t HELLO_WAIT = 10;            // seconds for a process to say what it wants

// What an event is about: these, or the number of a connection, or the handle of a task with TASK_EVENT added.
constexpr uint64_t LISTENER_EVENT = 1, SIGNAL_EVENT = 2, COMMAND_EVENT = 3;
constexpr uint64_t FIRST_CONNECTION = 16;
constexpr uint64_t TASK_EVENT = uint64_t{1} << 63;

std::string system_text(const std::string &path) { return path + ": " + std::strerror(errno); }

sigset_t set_of(std::initializer_list<int> signals) {
    sigset_t made;
    sigemptyset(&made);
    for (const int one : signals) sigaddset(&made, one);
    return made;
}

bool is_ignored(int signal) {
    struct sigaction found {};
    return sigaction(signal, nullptr, &found) == 0 && found.sa_handler == SIG_IGN;
}

descriptor open_spare() { return open_file(AT_FDCWD, "/dev/null"); }

bool has_hung_up(int socket) {
    pollfd asked{socket, POLLRDHUP, 0};
    return poll(&asked, 1, 0) > 0 && (asked.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0;
}

// ---- calls by number ------------------------------------------------------------------------------------------------

// Takes the arguments of a call from the words of a request. Outputs that are wanted get the next words of the answer.
struct argument_taker {
    const uint64_t *word;
    uint64_t *output;

    template <class Parameter> Parameter take() {
        const uint64_t given = *word++;
        if constexpr (std::is_same_v<Parameter, uint64_t *>) {
            return given != 0 ? output++ : nullptr;
        } else if constexpr (std::is_same_v<Parameter, kernel_message *>) {
            static_assert(sizeof(kernel_message) == 3 * sizeof(uint64_t));
            return given != 0 ? reinterpret_cast<kernel_message *>(output) : nullptr;
        } else {
            return static_cast<Parameter>(given);
        }
    }
};

using call_entry = uint64_t (*)(const uint64_t *words, uint64_t *outputs);

template <auto entry> struct entry_for;
template <class... Parameters, uint64_t (*entry)(Parameters...)> struct entry_for<entry> {
    static_assert(sizeof...(Parameters) <= REQUEST_WORDS);
    static uint64_t make(const uint64_t *words, uint64_t *outputs) {
        [[maybe_unused]] argument_taker taker{words, outputs};
        return std::apply(entry, std::tuple<Parameters...>{taker.take<Parameters>()...});  // braces keep the order
    }
};

constexpr call_entry entries[] = {
#define HOSTED_CALL(identifier, name, returned) entry_for<_SL_##name>::make,
    HOSTED_KERNEL_CALLS(HOSTED_CALL)
#undef HOSTED_CALL
};

}  // namespace

struct host::connection {
    uint64_t number = 0;
    descriptor socket;
    std::shared_ptr<guest_task> task;
    std::atomic<uint64_t> thread = 0;  // its handle; 0 before the hello
    caller *who = nullptr;             // for whom its thread calls
    bool first = false;                // of its process: the task ends with it
    receiver requests;
    std::string text;
    bool text_used = false;
};

// ---- opening --------------------------------------------------------------------------------------------------------

host::~host() {
    if (!path_.empty()) unlink(path_.c_str());
    if (lock_) unlink((path_ + ".lock").c_str());
    if (!directory_.empty()) rmdir(directory_.c_str());
}

// A size that cannot change: neither side can make the other read past the end of the memory.
bool host::share_memory(std::string &message) {
    memory_ = descriptor(memfd_create("ventix-machine", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    if (!memory_ || ftruncate(memory_.get(), ARENA_SIZE) != 0 ||
        fcntl(memory_.get(), F_ADD_SEALS, F_SEAL_GROW | F_SEAL_SHRINK | F_SEAL_SEAL) != 0) {
        message = system_text("shared memory");
        return false;
    }
    auto *const at = reinterpret_cast<void *>(ARENA_ADDRESS);
    if (mmap(at, ARENA_SIZE, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_NORESERVE | MAP_FIXED_NOREPLACE, memory_.get(),
             0) == at)
        return true;
    message = system_text("shared memory at its address");
    return false;
}

bool host::open(const std::string &file, const std::string &save, std::string socket, std::string &message) {
    const sigset_t ending = set_of({SIGTERM, SIGHUP, SIGINT, SIGQUIT});
    pthread_sigmask(SIG_BLOCK, &ending, nullptr);  // in the threads that this one makes as well
    mallopt(M_ARENA_MAX, 1);  // memory is taken with the kernel's lock held; many heaps would only be large
    fault_list faults;
    auto inner = make_described_machine(file, save, faults, message);
    if (!inner || !share_memory(message)) return false;
    if (socket.empty()) socket = new_path(message);
    if (socket.empty() || !listen_at(socket, message)) return false;
    const sigset_t none = set_of({});
    events_ = descriptor(epoll_create1(EPOLL_CLOEXEC));
    signals_ = descriptor(signalfd(-1, &none, SFD_CLOEXEC | SFD_NONBLOCK));
    spare_ = open_spare();
    if (!events_ || !signals_ || !spare_) {
        message = system_text("events");
        return false;
    }
    auto made = std::make_unique<running_machine>(std::move(inner), faults, memory_.get());
    machine_ = made.get();
    install(std::move(made), {}, {reinterpret_cast<std::byte *>(ARENA_ADDRESS), MACHINE_PART});
    return true;
}

std::string host::new_path(std::string &message) {
    const std::string name = "ventix-" + std::to_string(getpid());
    if (const char *runtime = std::getenv("XDG_RUNTIME_DIR");
        runtime != nullptr && *runtime == '/' && access(runtime, W_OK | X_OK) == 0) {
        return runtime + ('/' + name);
    }
    const char *temporary = std::getenv("TMPDIR");
    directory_ = std::string(temporary != nullptr && *temporary == '/' ? temporary : "/tmp") + "/ventix-XXXXXX";
    if (mkdtemp(directory_.data()) != nullptr) return directory_ + '/' + name;
    message = system_text(directory_);
    directory_.clear();
    return {};
}

// Takes the lock file beside the socket, which a machine holds for its life.
bool host::lock_path(std::string &message) {
    const std::string path = path_ + ".lock";
    for (;;) {
        descriptor file = open_file(AT_FDCWD, path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW, 0600);
        struct stat held {
        }, named{};
        if (!file || fstat(file.get(), &held) != 0) return message = system_text(path), false;
        if (!S_ISREG(held.st_mode) || held.st_uid != geteuid()) {
            return message = path + ": not a lock file of this user", false;
        }
        if (flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
            message = errno == EWOULDBLOCK ? path_ + ": a machine runs there already" : system_text(path);
            return false;
        }
        // Whoever held the lock may have removed the file since.
        if (stat(path.c_str(), &named) != 0 || held.st_ino != named.st_ino || held.st_dev != named.st_dev) continue;
        lock_ = std::move(file);
        return true;
    }
}

bool host::listen_at(const std::string &path, std::string &message) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        message = path + ": longer than the 107 bytes that a socket's path may have";
        return false;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    const auto *const where = reinterpret_cast<const sockaddr *>(&address);
    path_ = path;
    listener_ = descriptor(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!listener_ || !lock_path(message)) {
        if (!listener_) message = system_text(path);
        path_.clear();
        return false;
    }
    const descriptor probe(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (connect(probe.get(), where, sizeof address) != 0 && errno == ECONNREFUSED) {
        struct stat left {};  // by a machine that was killed
        if (lstat(path.c_str(), &left) == 0 && S_ISSOCK(left.st_mode)) unlink(path.c_str());
    }
    const mode_t mask = umask(0177);
    const bool bound = bind(listener_.get(), where, sizeof address) == 0;
    const int error = errno;
    umask(mask);
    if (bound && listen(listener_.get(), SOMAXCONN) == 0) return true;
    errno = bound ? errno : error;
    message = system_text(path);
    if (!bound) {  // what is there is not ours to remove
        unlink((path + ".lock").c_str());
        lock_ = descriptor();
        path_.clear();
    }
    return false;
}

// ---- the loop of events ---------------------------------------------------------------------------------------------

namespace {

bool watch(int events, int file, uint32_t what, uint64_t about) {
    epoll_event wanted{};
    wanted.events = what;
    wanted.data.u64 = about;
    return epoll_ctl(events, EPOLL_CTL_ADD, file, &wanted) == 0;
}

}  // namespace

bool host::serve(pid_t command, int &status, std::string &message) {
    rlimit files{};  // a command keeps its own limits
    if (getrlimit(RLIMIT_NOFILE, &files) == 0) {
        files.rlim_cur = files.rlim_max;
        setrlimit(RLIMIT_NOFILE, &files);
    }
    sigset_t ending = command == 0 ? set_of({SIGTERM, SIGHUP, SIGINT, SIGQUIT}) : set_of({SIGTERM, SIGHUP});
    if (is_ignored(SIGHUP)) sigdelset(&ending, SIGHUP);
    const descriptor child(command == 0 ? -1 : static_cast<int>(syscall(SYS_pidfd_open, command, 0)));
    if (signalfd(signals_.get(), &ending, 0) < 0 || (command != 0 && !child) ||
        !watch(events_.get(), listener_.get(), EPOLLIN, LISTENER_EVENT) ||
        !watch(events_.get(), signals_.get(), EPOLLIN, SIGNAL_EVENT) ||
        (command != 0 && !watch(events_.get(), child.get(), EPOLLIN, COMMAND_EVENT))) {
        message = system_text("events");
        return false;
    }
    for (;;) {
        epoll_event happened[64];
        const int count = static_cast<int>(
            retry_interrupted([&] { return epoll_wait(events_.get(), happened, std::size(happened), -1); }));
        if (count < 0) {
            message = system_text("events");
            return false;
        }
        for (int i = 0; i < count; ++i) {
            const uint64_t about = happened[i].data.u64;
            signalfd_siginfo signal{};
            switch (about) {
            case LISTENER_EVENT: accept_one(); break;
            case COMMAND_EVENT:
                if (waitpid(command, &status, 0) == command) return true;
                message = system_text("the command");
                return false;
            case SIGNAL_EVENT:
                if (read(signals_.get(), &signal, sizeof signal) != sizeof signal) break;
                if (command == 0) return true;
                kill(command, static_cast<int>(signal.ssi_signo));
                break;
            default: (about & TASK_EVENT) != 0 ? hang_up(about & ~TASK_EVENT) : interrupt(about);
            }
        }
    }
}

// Where there is no memory for one more connection, it is closed, and the others go on.
void host::accept_one() try {
    const auto accept = [this] { return descriptor(accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC)); };
    descriptor socket = accept();
    if (!socket) {
        if (errno == EAGAIN || errno == EINTR || errno == ECONNABORTED) return;
        // Out of descriptors or memory: what is served goes on. The peer must not wait until some of it ends.
        spare_ = descriptor();
        socket = accept();
        const timespec pause{0, 10'000'000};
        if (socket) {
            send_hello(socket.get(), {.answer = verdict::full}, false);
        } else {
            nanosleep(&pause, nullptr);
        }
        socket = descriptor();
        spare_ = open_spare();
        return;
    }
    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(socket.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0 || peer.uid != geteuid() ||
        peer.pid <= 0) {
        return;
    }
    auto made = std::make_shared<connection>();
    made->socket = std::move(socket);
    bool taken = false;
    {
        const std::lock_guard lock(connections_lock_);
        made->number = FIRST_CONNECTION + last_connection_++;
        if (connections_.size() < MOST_CONNECTIONS) taken = connections_.emplace(made->number, made).second;
    }
    // The event comes once: what is done for it ends the connection's thread.
    taken = taken && watch(events_.get(), made->socket.get(), EPOLLRDHUP | EPOLLET, made->number) && start_thread(made);
    if (taken) return;
    send_hello(made->socket.get(), {.answer = verdict::full}, false);
    leave(std::move(made));
} catch (const std::bad_alloc &) {
}

bool host::start_thread(const connection_pointer &made) {
    struct start {
        host &owner;
        connection_pointer made;
    };
    std::unique_ptr<start> begun(new (std::nothrow) start{*this, made});
    if (!begun) return false;
    const auto run = [](void *given) -> void * {
        const std::unique_ptr<start> mine(static_cast<start *>(given));
        mine->owner.serve_connection(*mine->made);
        mine->owner.leave(std::move(mine->made));
        return nullptr;
    };
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_attr_setstacksize(&attributes, STACK);
    pthread_t thread{};
    const bool started = pthread_create(&thread, &attributes, run, begun.get()) == 0;
    pthread_attr_destroy(&attributes);
    if (started) static_cast<void>(begun.release());
    return started;
}

// The process of a task has ended, though somebody may still hold its sockets.
void host::hang_up(uint64_t task) {
    {
        const std::lock_guard lock(connections_lock_);
        for (const auto &[number, one] : connections_) {
            if (one->thread != 0 && one->task->handle == task) shutdown(one->socket.get(), SHUT_RDWR);
        }
    }
    const std::lock_guard lock(running().mutex());
    running().interrupt(task);
}

// The peer of a connection has closed it: its thread must not wait in a call.
void host::interrupt(uint64_t number) {
    uint64_t thread = 0;
    {
        const std::lock_guard lock(connections_lock_);
        const auto found = connections_.find(number);
        if (found != connections_.end()) thread = found->second->thread;
    }
    if (thread == 0) return;  // not yet in any call
    const std::lock_guard lock(running().mutex());
    running().interrupt(thread);
}

// ---- one connection -------------------------------------------------------------------------------------------------

void host::serve_connection(connection &served) {
    try {
        if (!greet(served)) return;
        request given;
        while (!served.task->ended && served.requests.receive(served.socket.get(), &given, sizeof given) == 0) {
            answer made{.sequence = given.sequence};
            if (!answer_one(served, given, made)) return;
            if (send_packet(served.socket.get(), &made, sizeof made) != 0) return;
        }
    } catch (const std::exception &) {
        // No memory for this connection: it ends, and the others go on.
    }
}

bool host::send_hello(int to, const hello &said, bool with_memory) const {
    hello sent = said;
    iovec from{&sent, sizeof sent};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr message{};
    message.msg_iov = &from;
    message.msg_iovlen = 1;
    if (with_memory) {
        message.msg_control = control;
        message.msg_controllen = sizeof control;
        cmsghdr *const header = CMSG_FIRSTHDR(&message);
        header->cmsg_level = SOL_SOCKET;
        header->cmsg_type = SCM_RIGHTS;
        header->cmsg_len = CMSG_LEN(sizeof(int));
        const int number = memory_.get();
        std::memcpy(CMSG_DATA(header), &number, sizeof number);
    }
    return retry_interrupted([&] { return sendmsg(to, &message, MSG_NOSIGNAL); }) == sizeof sent;
}

// Exchanges hellos, and makes the peer a task or a thread of its task.
bool host::greet(connection &greeted) {
    const int socket = greeted.socket.get();
    limit_waits(socket, HELLO_WAIT);
    hello given{};
    if (greeted.requests.receive(socket, &given, sizeof given) != 0 || given.magic != MAGIC) return false;
    limit_waits(socket, 0);
    const auto refuse = [&](verdict why) { return send_hello(socket, {.answer = why}, false), false; };
    if (given.major != MAJOR) return refuse(verdict::other_version);
    if (given.what != purpose::attach && given.what != purpose::join) return refuse(verdict::refused);

    ucred peer{};
    socklen_t size = sizeof peer;
    if (getsockopt(socket, SOL_SOCKET, SO_PEERCRED, &peer, &size) != 0) return false;
    greeted.first = given.what == purpose::attach;
    std::string name;
    descriptor lifetime;
    if (greeted.first) {
        live::proc_root root("/proc");
        live::process process(root);
        lifetime = descriptor(static_cast<int>(syscall(SYS_pidfd_open, peer.pid, 0)));
        if (!lifetime || !process.open(peer.pid) || process.name(name) != RESULT_SUCCESS) {
            return refuse(errno == EMFILE || errno == ENFILE ? verdict::full : verdict::refused);
        }
    }
    uint64_t thread = 0;
    {
        const std::lock_guard lock(running().mutex());
        greeted.task = greeted.first ? machine_->attach_process(peer.pid, std::move(lifetime), name)
                                     : machine_->find_process(peer.pid);
        if (greeted.task) thread = machine_->add_thread(*greeted.task, static_cast<int>(given.thread));
    }
    if (!greeted.task) return refuse(verdict::refused);
    if (thread == 0) return refuse(verdict::full);
    greeted.who = &call_for(greeted.task->handle, thread);
    served_task = greeted.task->handle;
    greeted.thread = thread;
    if (greeted.first &&
        !watch(events_.get(), greeted.task->lifetime.get(), EPOLLIN | EPOLLET, greeted.task->handle | TASK_EVENT)) {
        return refuse(verdict::full);
    }
    // An end of the peer that was noticed before this thread could be interrupted.
    if (has_hung_up(socket)) return false;
    return send_hello(socket, {.arena_address = ARENA_ADDRESS, .arena_size = ARENA_SIZE}, greeted.first);
}

bool host::answer_one(connection &asked, const request &given, answer &made) {
    if (given.what < CALL_COUNT) return call(asked, static_cast<hosted::call>(given.what), given, made), true;
    return serve_other(asked, static_cast<service>(given.what), given, made);
}

void host::call(connection &asked, hosted::call which, const request &given, answer &made) {
    caller &who = *asked.who;
    guest_task &task = *asked.task;
    who.fate = fate::returns;
    std::optional<uint64_t> fault;
    if (task.limited) {
        const std::lock_guard lock(running().mutex());
        if (task.calls_left-- == 0) who.fate = fate::endless;
        fault = task.faults.strike(which, which == hosted::call::send_msg ? static_cast<uint32_t>(given.words[2]) : 0);
    }
    if (who.fate == fate::returns) {
        made.result =
            fault ? fail_call(who, which, *fault) : entries[static_cast<size_t>(which)](given.words, made.words);
    }
    made.faulted = fault.has_value();
    made.last_error = who.last_error;
    made.fate = static_cast<uint8_t>(who.fate);
    if (which == hosted::call::recv_msg || which == hosted::call::recv_msg_ptr) made.words[3] = who.addressed;
}

// Returns false for a service that does not exist, a text that is too long, or a task that has ended.
bool host::serve_other(connection &asked, service what, const request &given, answer &made) {
    kernel &owner = running();
    const std::lock_guard lock(owner.mutex());
    if (asked.task->ended) return false;  // nothing would release what it gets
    terminal_source &terminals = machine_->terminals();
    const auto number = static_cast<int>(given.words[0]);
    switch (what) {
    case service::add_text: {
        if (std::exchange(asked.text_used, false)) asked.text.clear();
        const auto *const piece = reinterpret_cast<const char *>(given.words);
        asked.text.append(piece, strnlen(piece, sizeof given.words));
        return asked.text.size() <= LONGEST_TEXT;
    }
    case service::read_text: {
        const size_t offset = std::min<uint64_t>(given.words[0], asked.text.size());
        asked.text.copy(reinterpret_cast<char *>(made.words), sizeof made.words, offset);
        return asked.text_used = true;
    }
    case service::open_terminal: {
        const bool full = asked.task->terminals.size() >= MOST_TERMINALS;
        const int opened = full ? -1 : terminals.open_terminal(asked.text.c_str(), number);
        made.last_error = static_cast<uint64_t>(full ? EMFILE : errno);
        made.result = static_cast<uint64_t>(opened);
        if (opened >= 0) asked.task->terminals.push_back(opened);
        return asked.text_used = true;
    }
    case service::control_terminal: {
        char buffer[TERM_LAYOUT_SIZE];
        std::memcpy(buffer, given.words + 2, sizeof buffer);
        const auto &own = asked.task->terminals;
        const bool may_use = number == STDIN_FILENO || std::ranges::find(own, number) != own.end();
        made.result = static_cast<uint64_t>(terminals.control_terminal(may_use ? number : -1, given.words[1], buffer));
        made.last_error = static_cast<uint64_t>(errno);
        std::memcpy(made.words, buffer, sizeof buffer);
        return true;
    }
    case service::close_terminal:
        if (std::erase(asked.task->terminals, number) != 0) terminals.close_terminal(number);
        return true;
    case service::take_slice: {
        const auto address = machine_->take_slice(*asked.task);
        made.result = address ? RESULT_SUCCESS : RESULT_NO_MEMORY;
        made.words[0] = address.value_or(0);
        return true;
    }
    case service::subject: {
        auto subject = owner.registry_subject(given.words[0], {given.words[1], given.words[2], given.words[3]});
        made.result = subject ? RESULT_SUCCESS : RESULT_NO_ITEM;
        if (!subject) return true;
        asked.text = std::move(subject->path);
        asked.text_used = true;
        made.words[0] = subject->command;
        made.words[1] = asked.text.size();
        return true;
    }
    default: return false;
    }
}

// A further connection of the task finds it ended: what it made since then goes as well. The connection's descriptors
// are closed before the last one is reported gone.
void host::leave(connection_pointer left) {
    if (left->task) {
        const std::lock_guard lock(running().mutex());
        if (left->first || left->task->ended) machine_->end_task(*left->task);
        machine_->remove_thread(*left->task, left->thread);
    }
    const std::lock_guard lock(connections_lock_);
    connections_.erase(left->number);
    left.reset();
    if (connections_.empty()) all_left_.notify_all();
}

// ---- the end --------------------------------------------------------------------------------------------------------

void host::close() {
    std::unique_lock lock(connections_lock_);
    while (!connections_.empty()) {
        std::vector<uint64_t> threads;
        for (const auto &[number, one] : connections_) {
            shutdown(one->socket.get(), SHUT_RDWR);
            threads.push_back(one->thread);
        }
        lock.unlock();
        {
            const std::lock_guard calls(running().mutex());
            for (const uint64_t thread : threads) running().interrupt(thread);
        }
        lock.lock();
        // One that was still exchanging hellos is found the next time.
        all_left_.wait_for(lock, std::chrono::milliseconds(100), [this] { return connections_.empty(); });
    }
}

machine_counts host::counts() {
    machine_counts found;
    {
        const std::lock_guard lock(connections_lock_);
        found.connections = connections_.size();
    }
    const std::lock_guard lock(running().mutex());
    found.tasks = machine_->task_count();
    found.handles = running().handle_count();
    found.blocks = running().memory().block_count();
    live::proc_root root("/proc");
    std::vector<int> numbers;
    if (root.reader.list(root.directory(), "self/fd", numbers, nullptr) == 0) found.descriptors = numbers.size();
    return found;
}

}  // namespace hosted::wire
