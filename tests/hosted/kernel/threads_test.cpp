// tests/hosted/kernel/threads_test.cpp - kernel calls and client libraries in several threads at once. The thread
// sanitizer runs these too.
#include <gtest/gtest.h>

#include <thread>

#include "hosted/test_machine.h"
#include "platform/protocol/sysvc.h"

namespace {

constexpr uint64_t THREADS = 4;
constexpr uint64_t ROUNDS = 100;

void in_threads(const std::function<void(uint64_t number)> &body) {
    std::vector<std::thread> threads;
    for (uint64_t number = 0; number < THREADS; ++number) threads.emplace_back(body, number);
    for (auto &one : threads) one.join();
}

TEST(KernelThreads, PassMessagesInOrderAndExcludeOneAnother) {
    test_kernel running;
    const uint64_t lock = _SL_CreateSemaphore(0, 1);
    uint64_t ports[THREADS];
    for (uint64_t &port : ports) port = _SL_CreateMsgPort(0, 0);
    uint64_t guarded = 0;
    in_threads([&](uint64_t number) {
        const uint64_t next = _SL_CreateHandle(0, ports[(number + 1) % THREADS], RIGHTS_REPLY);
        const uint64_t self = _SL_GetState(KSTATE_CURRENT_THREAD);  // not the one that the machine knows
        uint64_t handle = 0;
        EXPECT_EQ(_SL_GetObjectInfo(self, OBJINFO_HANDLE, &handle), RESULT_SUCCESS);
        EXPECT_EQ(handle, self);
        for (uint64_t round = 0; round < ROUNDS; ++round) {
            EXPECT_EQ(_SL_SendMsg(next, number, round, ~round, WAIT_FOREVER), RESULT_SUCCESS);
            kernel_message message{};
            EXPECT_EQ(_SL_RecvMsgPtr(ports[number], &message, WAIT_FOREVER), RESULT_SUCCESS);
            EXPECT_EQ(message.word1, (number + THREADS - 1) % THREADS);
            EXPECT_EQ(message.code, round);
            EXPECT_EQ(message.word2, ~round);
            EXPECT_EQ(_SL_WaitSemaphore(lock, 1, WAIT_FOREVER), RESULT_SUCCESS);
            ++guarded;
            EXPECT_EQ(_SL_SignalSemaphore(lock, 1), RESULT_SUCCESS);
        }
        EXPECT_EQ(_SL_DeleteObject(next, DELETE_HANDLE), RESULT_SUCCESS);
    });
    EXPECT_EQ(guarded, THREADS * ROUNDS);
}

TEST(KernelThreads, KeepTheLastErrorOfEach) {
    test_kernel running;
    in_threads([](uint64_t number) {
        for (uint64_t round = 0; round < ROUNDS; ++round) {
            uint64_t value = 0;
            const uint64_t port = _SL_CreateMsgPort(0, 0);
            kernel_message message{};
            const uint64_t failed = number % 2 == 0 ? _SL_RecvMsgPtr(port, &message, 1)
                                                    : _SL_GetObjectInfo(test_machine::TASK, TASKINFO_PRIORITY, &value);
            EXPECT_EQ(failed, number % 2 == 0 ? uint64_t{RESULT_TIMEOUT} : RESULT_NO_ITEM);
            EXPECT_EQ(_SL_GetLastError(), failed);
            EXPECT_EQ(_SL_DeleteObject(port, DELETE_OBJECT), RESULT_SUCCESS);
        }
    });
}

TEST(KernelThreads, ShareTheClients) {
    test_kernel running([](test_machine &machine) {
        for (uint64_t number = 0; number < THREADS; ++number) machine.store.keys[std::to_string(number)] = number;
        machine.makers["sysvc"] = performing_server([](uint32_t command, const hosted::request_view &request) {
            auto *ids = request.block<sysvc_id_block>();
            ids->id = command == SYSVCCMD_GET_PID ? ids->task : ~ids->task;
            return 0u;
        });
    });
    in_threads([](uint64_t number) {
        for (uint64_t round = 0; round < ROUNDS; ++round) {
            uint64_t pid = 0, parent = 0;
            const uint64_t asked = number << 32 | round;
            EXPECT_EQ(SysvcGetPid(GetSystemService(), asked, &pid), 0);
            EXPECT_EQ(SysvcGetPPid(GetSystemService(), asked, &parent), 0);
            EXPECT_EQ(pid, asked);
            EXPECT_EQ(parent, ~asked);
            EXPECT_TRUE(RegGetKeyInt(GetRegDev(), std::to_string(number).c_str(), &pid));
            EXPECT_EQ(pid, number);
            EXPECT_EQ(GetDeviceMsgPort("none"), NO_OBJECT);  // opens and closes a record of its own
        }
    });
}

}  // namespace
