// tests/hosted/wire/death_test.cpp - a device server, its client or both are killed at every message of a client's
// session, on a machine that runs in a process of the test.
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <barrier>
#include <cstdlib>
#include <thread>

#include "hosted/kernel/run.h"
#include "hosted/servers/serve.h"
#include "hosted/wire/host.h"
#include "platform/device.h"
#include "platform/registry.h"
#include "run_ventix.h"

namespace {

using namespace hosted;

constexpr uint32_t DONE_AT_ONCE = 1, NEVER_DONE = 2;
constexpr unsigned SERVER = 1, CLIENT = 2;
constexpr int TRIES = 2000, PAUSE = 5000;  // microseconds between them
constexpr int LIMIT = 30000;               // milliseconds for one process to end

// In memory that the test, the machine, the server and the client share.
struct session {
    std::atomic<unsigned> steps_left;  // until the victims die; 0: they do not
    std::atomic<unsigned> victims;
    std::atomic<pid_t> server, client;
    wire::machine_counts before, after;  // what the machine holds without a task
};
session *shared = nullptr;

// Counts each message before and after it is sent, and once it is received.
class executioner : public observer {
    std::optional<uint64_t> begins(call which, std::span<const argument>) override {
        if (which == call::send_msg) step();
        return std::nullopt;
    }
    void ended(call which, std::span<const argument>, uint64_t, bool) override {
        if (which == call::send_msg || which == call::recv_msg || which == call::recv_msg_ptr) step();
    }
    static void step() {
        if (shared->steps_left == 0 || --shared->steps_left != 0) return;
        if ((shared->victims & SERVER) != 0) kill(shared->server, SIGKILL);
        if ((shared->victims & CLIENT) != 0) kill(shared->client, SIGKILL);
    }
};

// Runs a function in a process without a machine of its own.
template <class Body> pid_t start(const std::string &socket, Body body) {
    const pid_t child = fork();
    if (child != 0) return child;
    shut_down();
    g_registry_device = nullptr;
    clearenv();
    setenv("VENTIX_MACHINE", socket.c_str(), 1);
    _exit(body());
}

// Returns the wait status of a process, or -1 for one that hangs.
int status_of(pid_t process) {
    const int handle = static_cast<int>(syscall(SYS_pidfd_open, process, 0));
    pollfd asked{handle, POLLIN, 0};
    const bool hangs = poll(&asked, 1, LIMIT) == 0;
    if (hangs) kill(process, SIGKILL);
    close(handle);
    int status = 0;
    waitpid(process, &status, 0);
    return hangs ? -1 : status;
}

int run_machine(const std::string &file, const std::string &socket) {
    wire::host machine;
    executioner watching;
    std::string message;
    int status = 0;
    if (!machine.open(file, "", socket, message)) return 1;
    observe(&watching);
    shared->before = machine.counts();
    const bool served = machine.serve(0, status, message);
    machine.close();
    shared->after = machine.counts();
    return served ? 0 : 1;
}

class protocol : public device_protocol {
    std::optional<uint32_t> perform(uint32_t, const request_view &) override { return 0; }
};

// The name is free only once the machine has noticed the end of an earlier server.
int run_server() {
    device_behaviour behaviour;
    behaviour.requests[NEVER_DONE].silent = true;
    for (int i = 0; i < TRIES; ++i) {
        ventix::serve("victim", std::make_unique<protocol>(), behaviour);
        usleep(PAUSE);
    }
    return 1;
}

// Returns the number of the step that failed, or 0.
//   tries  to open the device
int run_client(int tries) {
    device_record *device = nullptr;
    for (; (device = OpenDevice("victim")) == nullptr && tries > 1; --tries) usleep(PAUSE);
    if (device == nullptr) return 1;
    const uint64_t port = _SL_CreateMsgPort(0, 0);
    IOreq *const request = CreateIOreq(device, 0, IOREQ_FLAGS_DEFAULT, sizeof(IOreq), port);
    if (request == nullptr) return 2;
    request->command = DONE_AT_ONCE;
    if (SyncIO(request) != IO_SUCCESS) return 3;
    request->command = NEVER_DONE;
    if (BeginIO(request) != 0 || AbortIO(request) != 0 || WaitIO(request, -1) != IO_CANCELED) return 4;
    if (DeleteIOreq(request) != 0 || CloseDevice(device) != 0) return 5;
    return 0;
}

// A process has at most 256 threads. Calls of further ones fail.
int run_threads() {
    constexpr int count = 300;
    std::atomic<int> failed = 0;
    std::barrier all(count);
    std::vector<std::jthread> threads;
    if (_SL_CreateMsgPort(0, 0) == NO_OBJECT) return 1;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back([&] {
            if (_SL_CreateMsgPort(0, 0) == NO_OBJECT && _SL_GetLastError() == RESULT_NO_MEMORY) ++failed;
            all.arrive_and_wait();
        });
    }
    threads.clear();
    return failed == count - 255 ? 0 : 2;
}

class Death : public testing::TestWithParam<unsigned> {};

TEST_P(Death, AtEveryMessage) {
    const scratch_directory directory;
    const std::string socket = directory.file("socket"), file = directory.write("machine.json", "{}");
    void *const page = mmap(nullptr, sizeof *shared, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    shared = new (page) session{};
    shared->victims = GetParam();
    const pid_t machine = start("", [&] { return run_machine(file, socket); });
    for (int i = 0; i < TRIES && access(socket.c_str(), F_OK) != 0; ++i) usleep(PAUSE);
    unsigned step = 0;
    for (bool killed = true; killed; ++step) {
        if (shared->server == 0) shared->server = start(socket, run_server);
        ASSERT_EQ(status_of(start(socket, [] { return run_client(TRIES); })), 0) << "before step " << step;
        int go[2];
        ASSERT_EQ(pipe(go), 0);
        shared->client = start(socket, [&] { return read(go[0], &go, 1) == 1 ? run_client(1) : -1; });
        shared->steps_left = step + 1;
        ASSERT_EQ(write(go[1], "", 1), 1);
        close(go[0]);
        close(go[1]);
        const int status = status_of(shared->client);
        ASSERT_NE(status, -1) << "hangs at step " << step;
        killed = shared->steps_left == 0;
        shared->steps_left = 0;
        const bool is_victim = killed && (GetParam() & CLIENT) != 0;
        EXPECT_TRUE(WIFEXITED(status) || (is_victim && WTERMSIG(status) == SIGKILL)) << status << " at step " << step;
        EXPECT_TRUE(WEXITSTATUS(status) == 0 || (killed && WEXITSTATUS(status) <= 5)) << status << " at step " << step;
        if (killed && (GetParam() & SERVER) != 0) {
            EXPECT_EQ(status_of(shared->server.exchange(0)), SIGKILL);
        }
    }
    EXPECT_GT(step, 50U);  // the sends and receives of both
    EXPECT_EQ(status_of(start(socket, run_threads)), 0);
    EXPECT_EQ(status_of(start(socket, [] { return RegCreateGuard(GetRegDev(), "mine", 1) ? 1 : 0; })), 0);
    kill(shared->server, SIGKILL);
    EXPECT_EQ(status_of(shared->server), SIGKILL);
    kill(machine, SIGTERM);
    EXPECT_EQ(status_of(machine), 0);
    const wire::machine_counts &left = shared->after;
    EXPECT_EQ(left.tasks + left.connections + left.handles + left.blocks, 0U);
    EXPECT_EQ(left.descriptors, shared->before.descriptors);
    munmap(page, sizeof *shared);
}

INSTANTIATE_TEST_SUITE_P(Of, Death, testing::Values(SERVER, CLIENT, SERVER | CLIENT));

}  // namespace
