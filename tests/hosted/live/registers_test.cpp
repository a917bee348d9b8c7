// tests/hosted/live/registers_test.cpp - reads the registers of threads of the test's children, which must stay as they
// were.
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/user.h>

#include <algorithm>
#include <atomic>
#include <new>
#include <thread>

#include "hosted/live/register_table.h"
#include "hosted/live/thread_registers.h"
#include "own_child.h"
#include "platform/kernel.h"

using namespace hosted;

namespace {

uint64_t value_of(const live::register_block &block, std::string_view name) {
    for (const live::cpu_register &one : live::cpu_registers()) {
        uint64_t value = 0;
        if (one.name == name && live::cpu_register_value(one, {block.bytes.data(), block.size}, value)) return value;
    }
    return 0;
}

bool is_traced(int id) { return status_of(id, "TracerPid:") != "0"; }

// A number that test and child share, 0 at first.
std::atomic<int> &shared_number() {
    constexpr int flags = MAP_SHARED | MAP_ANONYMOUS;
    return *new (mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, flags, -1, 0)) std::atomic<int>(0);
}

// Keeps a known value in a register until the flag is set.
constexpr uint64_t MARK = 0x123456789ABCDEF1;
#if defined(__x86_64__)
constexpr std::string_view marked = "r12";
void hold_mark(std::atomic<int> *flag) {
    asm volatile("mov %0, %%r12\n1: pause\n cmpl $0, (%1)\n je 1b" : : "r"(MARK), "r"(flag) : "r12", "memory", "cc");
}
#elif defined(__aarch64__)
constexpr std::string_view marked = "x20";
void hold_mark(std::atomic<int> *flag) {
    asm volatile("mov x20, %0\n1: ldr w21, [%1]\n cbz w21, 1b" : : "r"(MARK), "r"(flag) : "x20", "x21", "memory");
}
#endif

TEST(LiveRegisters, OfARunningThreadThatGoesOn) {
    std::atomic<int> &flag = shared_number();
    own_child child([&](own_child &self) {
        std::thread([&] {
            self.say(gettid());
            hold_mark(&flag);
            self.say(2);
        }).detach();
    });
    const int id = static_cast<int>(child.heard());
    live::register_block block;
    for (int i = 0; i < 50; ++i) {  // it may be just before the mark
        ASSERT_EQ(live::read_registers(id, block), RESULT_SUCCESS);
        if (value_of(block, marked) == MARK) break;
    }
    EXPECT_EQ(block.size, sizeof(user_regs_struct));
    EXPECT_EQ(value_of(block, marked), MARK);
    EXPECT_FALSE(is_traced(id));
    flag = 1;
    EXPECT_EQ(child.heard(), 2);
}

TEST(LiveRegisters, OfAStoppedProcessThatStaysSo) {
    own_child child([](own_child &self) {
        raise(SIGSTOP);
        self.say(3);
    });
    await_state(child.id(), "T");
    live::register_block block;
    ASSERT_EQ(live::read_registers(child.id(), block), RESULT_SUCCESS);
    usleep(20000);
    EXPECT_EQ(status_of(child.id(), "State:"), "T");
    EXPECT_FALSE(is_traced(child.id()));
    kill(child.id(), SIGCONT);
    EXPECT_EQ(child.heard(), 3);
}

// Signals that come while it is being read are neither lost nor taken for anything else.
TEST(LiveRegisters, OfAProcessUnderSignals) {
    static std::atomic<int> *taken = &shared_number();
    own_child child([&](own_child &self) {
        const rlimit few{1000, 1000};  // waiting ones are counted for all processes of a user: others need some too
        setrlimit(RLIMIT_SIGPENDING, &few);
        signal(SIGRTMIN, [](int) { ++*taken; });  // real-time signals queue
        self.say(1);
    });
    child.heard();
    std::atomic<bool> done = false;
    int sent = 0;
    std::thread sender([&] {
        while (!done) sent += sigqueue(child.id(), SIGRTMIN, {}) == 0 ? 1 : 0;
    });
    live::register_block block;
    uint64_t results[200] = {};
    for (uint64_t &result : results) result = live::read_registers(child.id(), block);
    done = true;
    sender.join();
    for (int i = 0; i < 5000 && *taken < sent; ++i) usleep(1000);
    EXPECT_EQ(*taken, sent);
    EXPECT_GT(std::count(std::begin(results), std::end(results), RESULT_SUCCESS), 100);  // where it got no time: 293
    for (const uint64_t result : results) EXPECT_TRUE(result == RESULT_SUCCESS || result == RESULT_TIMEOUT) << result;
}

// Whenever it ends, its status is left to its parent.
TEST(LiveRegisters, OfProcessesThatEnd) {
    for (int i = 0; i < 300; ++i) {
        char shell[] = "sh", option[] = "-c", code[] = "exit 7";
        char *const arguments[] = {shell, option, code, nullptr};
        pid_t ending = 0;  // spawned: a fork would copy all of the test's memory
        int status = 0;
        ASSERT_EQ(posix_spawn(&ending, "/bin/sh", nullptr, nullptr, arguments, nullptr), 0);
        usleep(static_cast<useconds_t>(i * 5));
        live::register_block block;
        while (live::read_registers(ending, block) == RESULT_SUCCESS) {
        }
        EXPECT_EQ(waitpid(ending, &status, 0), ending);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 7) << status;
    }
}

TEST(LiveRegisters, WhatCannotBeRead) {
    own_child ended([](own_child &) { _exit(7); });
    own_child waiting([](own_child &self) {  // a parent that lent its memory to a child cannot be stopped
        if (vfork() == 0) {
            self.say(getpid());
            char byte;
            static_cast<void>(!read(-1, &byte, 1));
            usleep(300000);
            _exit(0);
        }
        self.say(4);
    });
    live::register_block block;
    waiting.heard();
    await_state(waiting.id(), "D");
    await_state(ended.id(), "Z");
    for (const int id : {0, -1, -waiting.id(), ended.id()}) {
        EXPECT_NE(live::read_registers(id, block), RESULT_SUCCESS) << id;
    }
    EXPECT_EQ(WEXITSTATUS(ended.reap()), 7);
    EXPECT_EQ(live::read_registers(getpid(), block), RESULT_NOT_PERMITTED);
    EXPECT_EQ(live::read_registers(waiting.id(), block), RESULT_TIMEOUT);
    EXPECT_EQ(waiting.heard(), 4);  // it goes on all the same
    EXPECT_FALSE(is_traced(waiting.id()));
}

}  // namespace
