// hosted/kernel/calls.h - the list of kernel calls: number, name and what each returns.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/kernel.h"

namespace hosted {

// What the returned word of a call is.
enum class call_returns : uint8_t {
    code,    // RESULT_SUCCESS, or the code of its failure
    handle,  // a handle; NO_OBJECT on failure, with the code as the thread's last error
    value,   // a value; the call cannot fail
};

// Every call, in the order of platform/kernel.h: CALL(identifier, name without _SL_, what it returns). A call's
// position is its type in the kernel trace.
// clang-format off
#define HOSTED_KERNEL_CALLS(CALL) \
    CALL(create_msg_port, CreateMsgPort, handle) \
    CALL(create_handle, CreateHandle, handle) \
    CALL(delete_object, DeleteObject, code) \
    CALL(send_msg, SendMsg, code) \
    CALL(recv_msg, RecvMsg, code) \
    CALL(recv_msg_ptr, RecvMsgPtr, code) \
    CALL(wait_semaphore, WaitSemaphore, code) \
    CALL(signal_semaphore, SignalSemaphore, code) \
    CALL(delay, Delay, code) \
    CALL(get_state, GetState, value) \
    CALL(get_object_info, GetObjectInfo, code) \
    CALL(get_address_memo, GetAddressMemo, handle) \
    CALL(control_object, ControlObject, code) \
    CALL(raise_exception, RaiseException, code) \
    CALL(get_system_data, GetSystemData, code) \
    CALL(get_last_error, GetLastError, value) \
    CALL(create_iterator, CreateIterator, handle) \
    CALL(begin_iterator, BeginIterator, code) \
    CALL(step_iterator, StepIterator, code) \
    CALL(get_iterator_info, GetIteratorInfo, code) \
    CALL(create_semaphore, CreateSemaphore, handle) \
    CALL(create_memo, CreateMemo, handle) \
    CALL(alloc_view, AllocView, handle) \
    CALL(virtual_free, VirtualFree, code) \
    CALL(create_store, CreateStore, handle) \
    CALL(get_store, GetStore, code) \
    CALL(create_watch_object, CreateWatchObject, handle) \
    CALL(create_event, CreateEvent, handle) \
    CALL(set_event, SetEvent, code) \
    CALL(reset_event, ResetEvent, code) \
    CALL(wait_for_event_ptr, WaitForEventPtr, code) \
    CALL(set_exception_handler, SetExceptionHandler, code) \
    CALL(ret_exception, RetException, code) \
    CALL(set_state, SetState, code)
// clang-format on

enum class call : uint8_t {
#define HOSTED_CALL(identifier, name, returned) identifier,
    HOSTED_KERNEL_CALLS(HOSTED_CALL)
#undef HOSTED_CALL
};

struct call_properties {
    std::string_view name;  // "_SL_SendMsg"; ends with a NUL
    call_returns returns;
};

// By the number of the call.
inline constexpr auto call_table = std::to_array<call_properties>({
#define HOSTED_CALL(identifier, name, returned) {"_SL_" #name, call_returns::returned},
    HOSTED_KERNEL_CALLS(HOSTED_CALL)
#undef HOSTED_CALL
});
inline constexpr size_t CALL_COUNT = call_table.size();

constexpr const call_properties &properties_of(call which) { return call_table[static_cast<size_t>(which)]; }
constexpr std::string_view call_name(call which) { return properties_of(which).name; }

// Whether a call succeeded, by what it returned.
constexpr bool has_succeeded(call which, uint64_t result) {
    switch (properties_of(which).returns) {
    case call_returns::code: return result == RESULT_SUCCESS;
    case call_returns::handle: return result != NO_OBJECT;
    default: return true;
    }
}

// The call of a name, or nothing.
constexpr std::optional<call> call_by_name(std::string_view name) {
    for (size_t i = 0; i < CALL_COUNT; ++i) {
        if (call_table[i].name == name) return static_cast<call>(i);
    }
    return std::nullopt;
}

struct caller;

// Makes the calling thread's kernel calls, until it ends, those of a thread of another process. A call reports what it
// leads to beyond its result in caller::fate and does not act on it. The task must be known to the machine.
//   thread   its handle; 0: the kernel makes one
//   returns  the caller that the calls belong to, for the thread's life
caller &call_for(uint64_t task, uint64_t thread);

// Fails a call as a fault does. Returns its result.
uint64_t fail_call(caller &who, call which, uint64_t failure);

}  // namespace hosted
