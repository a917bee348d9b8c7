// faults.cpp - the calls' names, and which call of a run a fault replaces.
#include "hosted/kernel/faults.h"

#include <algorithm>

namespace hosted {

namespace {

struct row {
    std::string_view name;
    bool gives_handle;
};

constexpr std::array<row, CALL_COUNT> calls = {{
    {"_SL_CreateMsgPort", true},
    {"_SL_CreateHandle", true},
    {"_SL_DeleteObject", false},
    {"_SL_SendMsg", false},
    {"_SL_RecvMsg", false},
    {"_SL_RecvMsgPtr", false},
    {"_SL_WaitSemaphore", false},
    {"_SL_SignalSemaphore", false},
    {"_SL_Delay", false},
    {"_SL_GetState", false},
    {"_SL_GetObjectInfo", false},
    {"_SL_GetAddressMemo", true},
    {"_SL_ControlObject", false},
    {"_SL_RaiseException", false},
    {"_SL_GetSystemData", false},
    {"_SL_GetLastError", false},
    {"_SL_CreateIterator", true},
    {"_SL_BeginIterator", false},
    {"_SL_StepIterator", false},
    {"_SL_GetIteratorInfo", false},
    {"_SL_CreateSemaphore", true},
    {"_SL_CreateMemo", true},
    {"_SL_AllocView", true},
    {"_SL_VirtualFree", false},
    {"_SL_CreateStore", true},
    {"_SL_GetStore", false},
    {"_SL_CreateWatchObject", true},
    {"_SL_CreateEvent", true},
    {"_SL_SetEvent", false},
    {"_SL_ResetEvent", false},
    {"_SL_WaitForEventPtr", false},
    {"_SL_SetExceptionHandler", false},
    {"_SL_RetException", false},
    {"_SL_SetState", false},
}};

}  // namespace

std::string_view call_name(call which) { return calls[static_cast<size_t>(which)].name; }

std::optional<call> call_by_name(std::string_view name) {
    const auto found = std::find_if(calls.begin(), calls.end(), [&](const row &listed) { return listed.name == name; });
    if (found == calls.end()) return std::nullopt;
    return static_cast<call>(found - calls.begin());
}

bool call_gives_handle(call which) { return calls[static_cast<size_t>(which)].gives_handle; }

std::optional<uint64_t> fault_list::strike(call which, uint32_t code) {
    std::optional<uint64_t> result;
    for (auto &[what, seen] : faults_) {
        if (what.which != which || (what.code && *what.code != code)) continue;
        seen++;
        if (!result && seen >= what.nth && seen - what.nth < what.times) result = what.result;
    }
    return result;
}

}  // namespace hosted
