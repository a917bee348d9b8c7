// tests/hosted/live/machine_test.cpp - the live machine below the kernel: which object a handle names, and what walks
// and keys agree on.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include <cstdarg>
#include <set>

#include "hosted/boot.h"
#include "hosted/kernel/kernel.h"
#include "hosted/kernel/run.h"
#include "hosted/live/register_table.h"
#include "own_child.h"
#include "platform/registry.h"

using namespace hosted;

namespace {

class LiveMachine : public testing::Test {
protected:
    LiveMachine() { owner.enter(who, owner.start().task, owner.machine().thread(true)); }

    // The handles of a walk, in its order.
    std::vector<uint64_t> handles(uint64_t parent, uint64_t kind) {
        std::vector<uint64_t> out;
        const uint64_t iterator = owner.create_iterator(who);
        if (const uint64_t result = owner.begin_iterator(iterator, parent, kind); result != RESULT_SUCCESS)
            return {result};
        while (owner.step_iterator(iterator) == RESULT_SUCCESS) {
            out.push_back(0);
            EXPECT_EQ(owner.iterator_info(iterator, OBJINFO_HANDLE, out.back()), RESULT_SUCCESS);
        }
        owner.delete_object(who, iterator, DELETE_HANDLE);
        return out;
    }
    uint64_t info(uint64_t handle, uint64_t item) {
        uint64_t value = 0;
        const uint64_t result = owner.object_info(who, handle, item, value);
        return result == RESULT_SUCCESS ? value : ~result;
    }

    std::string message;
    kernel owner{make_live_machine(message)};
    caller who;
};

TEST_F(LiveMachine, EveryHandleNamesItsObject) {
    const uint64_t self = static_cast<uint64_t>(getpid());
    EXPECT_EQ(who.task, self);
    const auto tasks = handles(SYSTEM_WIDE, ITERSEL_TASKS);
    EXPECT_NE(std::find(tasks.begin(), tasks.end(), self), tasks.end());
    std::set<uint64_t> seen = {0, NO_OBJECT};
    size_t objects = 0;
    const auto check = [&](const std::vector<uint64_t> &listed, uint64_t task) {
        for (const uint64_t handle : listed) {
            ++objects;
            EXPECT_TRUE(seen.insert(handle).second) << handle;
            EXPECT_EQ(info(handle, OBJINFO_HANDLE), handle);
            EXPECT_TRUE(task == 0 || info(handle, OBJINFO_OWNER) == task) << handle;
            EXPECT_TRUE(owner.machine().reserves(handle));
        }
    };
    check({self}, 0);
    check(handles(SYSTEM_WIDE, ITERSEL_MEMCHUNKS), 0);
    check(handles(SYSTEM_WIDE, ITERSEL_VSPACES), 0);
    for (const uint64_t kind : {ITERSEL_THREADS, ITERSEL_VIEWS, ITERSEL_MEMOS}) {
        const auto listed = handles(self, kind);
        EXPECT_FALSE(listed.empty());
        EXPECT_EQ(handles(self, kind), listed);  // stable within the run
        check(listed, self);
    }
    for (const uint64_t task : tasks) {
        if (info(task, OBJINFO_HANDLE) != task) continue;  // ended meanwhile
        check(handles(task, ITERSEL_ISRS), task);
    }
    EXPECT_GE(objects, 20u);
    for (uint64_t handle : {uint64_t{0}, *std::prev(seen.end(), 2) + 1, uint64_t{0x2FFFFFFFF}, uint64_t{0x1FFFFFFFF}}) {
        EXPECT_EQ(info(handle, OBJINFO_HANDLE), ~uint64_t{RESULT_NO_OBJECT}) << handle;
        EXPECT_EQ(handles(handle, ITERSEL_THREADS), std::vector<uint64_t>{RESULT_NO_OBJECT}) << handle;
    }
    EXPECT_EQ(handles(SYSTEM_WIDE, 0x1234), std::vector<uint64_t>{RESULT_BAD_ARGUMENT});
    EXPECT_EQ(handles(self, ITERSEL_TASKS), std::vector<uint64_t>{RESULT_NO_OBJECT});
}

TEST_F(LiveMachine, WaitsByTheRealClock) {
    std::unique_lock lock(owner.mutex());
    const uint64_t begun = owner.now();
    EXPECT_EQ(owner.delay(lock, who, 5), RESULT_SUCCESS);
    EXPECT_GE(owner.now(), begun + 5);
}

TEST_F(LiveMachine, OnlyTasksAreDestroyed) {
    own_child child;
    for (const uint64_t handle :
         {handles(child.handle(), ITERSEL_THREADS)[0], handles(child.handle(), ITERSEL_VIEWS)[0],
          handles(SYSTEM_WIDE, ITERSEL_VSPACES)[0]}) {
        EXPECT_EQ(owner.delete_object(who, handle, DELETE_OBJECT), RESULT_NOT_PERMITTED);
    }
    EXPECT_EQ(owner.control(who, child.handle(), CTRL_SET_PROPERTY, 2, 139, 0), RESULT_BAD_ARGUMENT);
    EXPECT_EQ(owner.control(who, 0, CTRL_SET_PROPERTY, 2, 139, 0), RESULT_NO_OBJECT);
    EXPECT_EQ(owner.control(who, child.handle(), CTRL_SET_PROPERTY, TASKPROP_PRIORITY, 121, 0), RESULT_SUCCESS);
    EXPECT_EQ(info(child.handle(), TASKINFO_PRIORITY), 121u);
    EXPECT_EQ(owner.raise(child.handle(), 0, 0), RESULT_BAD_ARGUMENT);
    const uint64_t thread = handles(child.handle(), ITERSEL_THREADS)[0], last = live::cpu_registers().size();
    EXPECT_EQ(owner.control(who, 0, CTRL_FETCH_REGISTER, last, 0, 8), RESULT_NO_OBJECT);
    for (const auto &[id, node, result] :
         {std::tuple(last, 0U, RESULT_SUCCESS), {uint64_t{1}, 1U, RESULT_NO_ITEM}, {last + 1, 0U, RESULT_NO_ITEM}})
        EXPECT_EQ(owner.control(who, thread, CTRL_FETCH_REGISTER, id, node, 8), result);
    EXPECT_TRUE(child.is_alive());
    uint64_t result = RESULT_TIMEOUT;  // on a busy system its end may take longer than one call waits
    for (int tries = 0; result == RESULT_TIMEOUT && tries < 10; ++tries)
        result = owner.delete_object(who, child.handle(), DELETE_OBJECT);
    EXPECT_EQ(result, RESULT_SUCCESS);
    EXPECT_EQ(owner.delete_object(who, child.handle(), DELETE_OBJECT), RESULT_NO_OBJECT);
    EXPECT_EQ(status_of(child.id(), "State:"), "Z");  // nobody has asked for its status yet, but it is gone
    const auto tasks = handles(SYSTEM_WIDE, ITERSEL_TASKS);
    EXPECT_EQ(std::find(tasks.begin(), tasks.end(), child.handle()), tasks.end());
    EXPECT_TRUE(WIFSIGNALED(child.reap()));
}

bool out_of_descriptors = false;

}  // namespace

// In place of the C library's.
extern "C" int openat(int directory, const char *path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const mode_t mode = va_arg(rest, mode_t);
    va_end(rest);
    if (!out_of_descriptors) return static_cast<int>(syscall(SYS_openat, directory, path, flags, mode));
    errno = EMFILE;
    return -1;
}

namespace {

// What exists but cannot be read is reported, not taken for a key that is not there.
TEST(LiveRegistryDeathTest, UnreadableKeyEndsTheRun) {
    const auto look_up_late = [](const char *key) {
        std::string message;
        install(make_live_machine(message));
        RegIterator record{};
        RegItBegin(GetRegDev(), &record, "run/proc");
        out_of_descriptors = true;
        uint64_t value = 0;
        key != nullptr ? RegGetKeyInt(GetRegDev(), key, &value) : RegItNext(GetRegDev(), &record);
        _exit(0);
    };
    EXPECT_EXIT(look_up_late("kernel/kernel/panic"), testing::ExitedWithCode(125), "kernel/panic: Too many open files");
    EXPECT_EXIT(look_up_late(nullptr), testing::ExitedWithCode(125), "/comm: Too many open files");
}

}  // namespace
