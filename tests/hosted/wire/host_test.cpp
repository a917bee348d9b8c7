// tests/hosted/wire/host_test.cpp - a running machine as its peers see it: packet by packet, from processes that keep
// to no rule and from processes that die.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <deque>
#include <filesystem>
#include <functional>

#include "peer.h"
#include "platform/protocol/device.h"
#include "run_ventix.h"

namespace {

using namespace hosted;

// ventix-machine run, from here to the end of the scope.
class running {
public:
    //   files  descriptors that the machine may have
    explicit running(const std::string &machine = "{}", rlim_t files = 4096) {
        const std::string file = directory_.write("machine.json", machine);
        const std::string program = std::filesystem::path(ventix_program()).replace_filename("ventix-machine");
        child_ = fork();
        if (child_ == 0) {
            setenv("ASAN_OPTIONS", "detect_leaks=0", 1);
            const rlimit limit{files, files};
            setrlimit(RLIMIT_NOFILE, &limit);
            freopen(directory_.file("said").c_str(), "w", stderr);
            freopen("/dev/null", "w", stdout);
            execl(program.c_str(), "ventix-machine", "run", "--verbose", "--socket", path().c_str(), file.c_str(),
                  nullptr);
            _exit(127);
        }
        for (int i = 0; i < 100000 && access(path().c_str(), F_OK) != 0; ++i) usleep(100);
    }
    ~running() { end(SIGKILL); }

    std::string path() const { return directory_.file("socket"); }
    std::string end(int signal) {
        int status = -1;
        if (child_ > 0 && kill(child_, signal) == 0) waitpid(child_, &status, 0);
        child_ = -1;
        return WIFEXITED(status) ? read_file(directory_.file("said")) : "killed";
    }

private:
    scratch_directory directory_;
    pid_t child_ = -1;
};

TEST(RunningMachine, EndsABadPeerAlone) {
    running machine;
    peer good(machine.path());
    ASSERT_EQ(good.greet(), wire::verdict::welcome);
    const wire::hello hello;
    const char noise[4096] = "noise";
    const std::pair<const char *, std::function<bool(peer &)>> rows[] = {
        {"no hello", [&](peer &bad) { return bad.put(noise, sizeof hello) && bad.has_ended(); }},
        {"a cut hello", [&](peer &bad) { return bad.put(&hello, sizeof hello - 1) && bad.has_ended(); }},
        {"an empty packet", [&](peer &bad) { return bad.put(noise, 0) && bad.has_ended(); }},
        {"another version", [](peer &bad) { return bad.greet({.major = 2}) == wire::verdict::other_version; }},
        {"a thread of no task",
         [&](peer &) {
             const pid_t child = fork();
             if (child == 0)
                 _exit(peer(machine.path()).greet({.what = wire::purpose::join}) == wire::verdict::refused ? 0 : 1);
             int status = -1;
             return waitpid(child, &status, 0) == child && status == 0;
         }},
        {"a second hello",
         [&](peer &bad) {
             return bad.greet({.what = wire::purpose::join}) == wire::verdict::welcome &&
                    bad.put(&hello, sizeof hello) && bad.has_ended();
         }},
        {"a long packet",
         [&](peer &bad) {
             return bad.greet({.what = wire::purpose::join}) == wire::verdict::welcome &&
                    bad.put(noise, sizeof noise) && bad.has_ended();
         }},
        {"an unknown call",
         [](peer &bad) {
             return bad.greet({.what = wire::purpose::join}) == wire::verdict::welcome &&
                    bad.ask(0xFFFF, {}).result == 999;
         }},
    };
    for (const auto &[name, misbehaves] : rows) {
        peer bad(machine.path());
        EXPECT_TRUE(misbehaves(bad)) << name;
        EXPECT_NE(good.make_port(), NO_OBJECT) << name;
    }
}

// Messages to a server that reads them and dies: the answer that the machine gives in its place.
TEST(RunningMachine, AnswersForADeadServer) {
    running machine;
    peer client(machine.path());
    ASSERT_EQ(client.greet(), wire::verdict::welcome);
    struct row {
        std::vector<uint32_t> codes;
        uint64_t code, word2;
    };
    const row rows[] = {
        {{DEVMSG_OPEN}, DEVMSG_OPENED, 0},
        {{DEVMSG_CLOSE}, DEVMSG_CLOSED, 0},
        {{IOMSG_BEGIN}, IOMSG_FAILED, 5},
        {{IOMSG_BEGIN, IOMSG_ABORT}, IOMSG_ABORTED, 5},
        {{DEVMSG_CREATE_REQUEST}, 0, 0},  // its answer would come on a port of the server's
        {{}, 0, 0},                       // dead before the message
    };
    for (const auto &[codes, code, word2] : rows) {
        int ports[2];
        ASSERT_EQ(pipe(ports), 0);
        const pid_t server = fork();
        if (server == 0) {
            peer serving(machine.path());
            serving.greet();
            const uint64_t made[] = {serving.make_port(), serving.make_port()};  // the server's and a private one
            if (write(ports[1], made, sizeof made) != sizeof made) _exit(1);
            for (size_t i = 0; i < codes.size(); ++i) serving.receive(made[0]);
            kill(getpid(), SIGKILL);
        }
        uint64_t made[2] = {};
        ASSERT_EQ(read(ports[0], made, sizeof made), static_cast<ssize_t>(sizeof made));
        const uint64_t reply = client.make_port();
        for (const uint32_t sent : codes) {
            const bool close = sent == DEVMSG_CLOSE;
            EXPECT_EQ(client.ask(call::send_msg, {made[0], close ? 0 : reply, sent, close ? reply : 5}).result, 0u);
        }
        const wire::answer answered = client.receive(code != 0 ? reply : made[1]);
        EXPECT_EQ(answered.result, code != 0 ? RESULT_SUCCESS : RESULT_NO_OBJECT);
        EXPECT_EQ(answered.words[1], code);
        EXPECT_EQ(answered.words[2], word2);
        waitpid(server, nullptr, 0);
        EXPECT_EQ(client.ask(call::send_msg, {made[0], reply, IOMSG_BEGIN, 5}).result, RESULT_NO_OBJECT);
        const wire::answer nothing = client.ask(call::recv_msg, {reply, 1, 1, 1, 0});
        EXPECT_EQ(nothing.result, RESULT_TIMEOUT) << std::hex << nothing.words[1];
        client.ask(call::delete_object, {reply, DELETE_OBJECT});
        close(ports[0]);
        close(ports[1]);
    }
}

// One process holds as much as it may, and ends: the others need not wait for it, nor go without.
TEST(RunningMachine, OutlivesAGreedyPeer) {
    running machine("{}", 40);
    peer other(machine.path());
    ASSERT_EQ(other.greet({.thread = static_cast<uint32_t>(gettid())}), wire::verdict::welcome);
    const uint64_t task = other.ask(call::get_state, {KSTATE_CURRENT_TASK}).result;
    const uint64_t registry = other.ask(call::get_state, {KSTATE_REGISTRY_PORT}).result;
    for (const uint64_t flags : {uint64_t{DELETE_HANDLE}, uint64_t{DELETE_OBJECT}})
        EXPECT_EQ(other.ask(call::delete_object, {registry, flags}).result, RESULT_NOT_PERMITTED);
    for (int i = 0; i < 60; ++i) {  // more walks than descriptors
        const uint64_t walk = other.ask(call::create_iterator, {}).result;
        other.ask(call::begin_iterator, {walk, task, ITERSEL_THREADS});
        EXPECT_EQ(other.ask(call::step_iterator, {walk}).result, RESULT_SUCCESS) << i;
        EXPECT_EQ(other.ask(call::get_iterator_info, {walk, OBJINFO_OWNER, 1}).words[0], task);
    }
    std::deque<peer> silent;
    for (int i = 0; i < 40; ++i) silent.emplace_back(machine.path());
    EXPECT_EQ(silent.back().greet(), wire::verdict::full);
}

TEST(RunningMachine, EndsInOrderAtAnyMoment) {
    for (int i = 0; i < 10; ++i) {
        running machine;
        EXPECT_NE(machine.end(SIGTERM), "killed");
        EXPECT_FALSE(std::filesystem::exists(machine.path() + ".lock"));
    }
}

TEST(RunningMachine, LeavesNobodyWaitingAtItsEnd) {
    running machine;
    peer ended(machine.path()), waiting(machine.path());
    ended.greet();
    waiting.greet();  // this process is another task from here on: the first one may not make the machine open anything
    EXPECT_EQ(ended.ask(static_cast<uint32_t>(wire::service::open_terminal), {}).result, 999);
    const uint64_t port = waiting.make_port();
    const wire::request asked{.what = static_cast<uint32_t>(call::recv_msg),
                              .words = {port, 1, 1, 1, static_cast<uint64_t>(WAIT_FOREVER)}};
    waiting.put(&asked, sizeof asked);
    const std::string said = machine.end(SIGTERM);
    wire::answer answered;
    EXPECT_TRUE(waiting.get(answered) || waiting.has_ended());
    EXPECT_NE(said.find("end: tasks 0, connections 0, handles 0, blocks 0"), said.npos) << said;
    EXPECT_FALSE(std::filesystem::exists(machine.path()));
}

}  // namespace
