// tests/hosted/kernel/calls_test.cpp - kernel calls on handles of no object or of the wrong kind, and the calls that
// this kernel does not offer.
#include <gtest/gtest.h>

#include <limits>

#include "hosted/test_machine.h"

namespace {

using results = std::vector<std::pair<uint64_t, uint64_t>>;  // actual and expected

void expect_equal(const results &all) {
    for (size_t i = 0; i < all.size(); ++i) EXPECT_EQ(all[i].first, all[i].second) << "call " << i;
}

TEST(KernelCalls, RefuseWrongHandlesAndArguments) {
    constexpr uint64_t TASK = test_machine::TASK;
    test_kernel running;
    const uint64_t port = _SL_CreateMsgPort(0, 0), lock = _SL_CreateSemaphore(0, 1), walk = _SL_CreateIterator(0, 0);
    kernel_message message{};
    uint64_t value = 77;
    for (const uint64_t handle : {uint64_t{0}, NO_OBJECT, TASK, port, lock, walk}) {
        SCOPED_TRACE(handle);
        const auto expected = [handle](uint64_t taken) { return handle == taken ? 0 : uint64_t{RESULT_NO_OBJECT}; };
        expect_equal({{_SL_SendMsg(handle, 1, 2, 3, 0), expected(port)},
                      {_SL_RecvMsg(handle, nullptr, nullptr, nullptr, 0), expected(port)},
                      {_SL_SendMsg(handle, 1, 2, 3, 0), expected(port)},
                      {_SL_RecvMsgPtr(handle, &message, 0), expected(port)},
                      {_SL_WaitSemaphore(handle, 1, 0), expected(lock)},
                      {_SL_SignalSemaphore(handle, 1), expected(lock)}});
        if (handle == walk) continue;
        expect_equal({{_SL_BeginIterator(handle, SYSTEM_WIDE, ITERSEL_TASKS), RESULT_NO_OBJECT},
                      {_SL_StepIterator(handle), RESULT_NO_OBJECT},
                      {_SL_GetIteratorInfo(handle, OBJINFO_HANDLE, &value), RESULT_NO_OBJECT},
                      {_SL_GetLastError(), RESULT_NO_OBJECT}});
    }
    constexpr int64_t MOST = std::numeric_limits<int64_t>::max();
    expect_equal({{_SL_RecvMsgPtr(port, nullptr, 0), RESULT_BAD_ARGUMENT},
                  {_SL_RecvMsgPtr(port, &message, 5), RESULT_TIMEOUT},
                  {_SL_CreateSemaphore(0, -1), NO_OBJECT},
                  {_SL_WaitSemaphore(lock, -1, 0), RESULT_BAD_ARGUMENT},
                  {_SL_WaitSemaphore(lock, 2, 5), RESULT_TIMEOUT},
                  {_SL_SignalSemaphore(lock, -1), RESULT_BAD_ARGUMENT},
                  {_SL_SignalSemaphore(lock, MOST), RESULT_BAD_ARGUMENT},
                  {_SL_StepIterator(walk), RESULT_NO_ITEM},
                  {_SL_GetIteratorInfo(walk, OBJINFO_HANDLE, &value), RESULT_NO_ITEM},
                  {_SL_GetIteratorInfo(walk, OBJINFO_HANDLE, nullptr), RESULT_BAD_ARGUMENT},
                  {_SL_GetObjectInfo(port, OBJINFO_STATE, &value), RESULT_NO_ITEM},
                  {_SL_GetObjectInfo(port, OBJINFO_HANDLE, nullptr), RESULT_BAD_ARGUMENT},
                  {_SL_GetSystemData(KSYSIDX_TRACE, 0, nullptr), RESULT_BAD_ARGUMENT},
                  {_SL_ControlObject(port, 0, 0, 0, 0, 0), RESULT_NO_OBJECT},
                  {_SL_ControlObject(TASK, 0, 0, 0, 0, 0), RESULT_BAD_ARGUMENT},
                  {_SL_GetAddressMemo(0, 0x1000, ADDRESS_MEMO_ANY), NO_OBJECT},
                  {_SL_CreateHandle(0, 0x999, RIGHTS_REPLY), NO_OBJECT},
                  {_SL_DeleteObject(0x999, DELETE_HANDLE), RESULT_NO_OBJECT},
                  {_SL_DeleteObject(TASK, DELETE_HANDLE), RESULT_NOT_PERMITTED},
                  {value, 77},
                  {_SL_GetObjectInfo(port, OBJINFO_OWNER, &value), RESULT_SUCCESS},
                  {value, TASK}});
}

TEST(KernelCalls, FailWhereTheHostedKernelOffersNone) {
    test_kernel running;
    kernel_message message{};
    uint64_t value = 77;
    for (const uint64_t made : {_SL_CreateMemo(0, 1, 0), _SL_CreateStore(0, 1), _SL_CreateWatchObject(0, 0),
                                _SL_CreateEvent(0, 0), _SL_AllocView(0, 0, 0, 0, 1, 0)})
        EXPECT_EQ(made, NO_OBJECT);
    for (const uint64_t result : {_SL_VirtualFree(0, 0, 1), _SL_GetStore(0, 0, &value), _SL_SetEvent(0),
                                  _SL_ResetEvent(0), _SL_WaitForEventPtr(0, &message, 0),
                                  _SL_SetExceptionHandler(0, 0, 0), _SL_RetException(0, 0), _SL_SetState(0, 0)})
        EXPECT_EQ(result, RESULT_BAD_ARGUMENT);
    EXPECT_EQ(value, 77u);
}

}  // namespace
