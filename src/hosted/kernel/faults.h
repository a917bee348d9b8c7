// hosted/kernel/faults.h - calls that fail on purpose.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace hosted {

// The kernel calls, in the order of platform/kernel.h.
enum class call : uint8_t {
    create_msg_port,
    create_handle,
    delete_object,
    send_msg,
    recv_msg,
    recv_msg_ptr,
    wait_semaphore,
    signal_semaphore,
    delay,
    get_state,
    get_object_info,
    get_address_memo,
    control_object,
    raise_exception,
    get_system_data,
    get_last_error,
    create_iterator,
    begin_iterator,
    step_iterator,
    get_iterator_info,
    create_semaphore,
    create_memo,
    alloc_view,
    virtual_free,
    create_store,
    get_store,
    create_watch_object,
    create_event,
    set_event,
    reset_event,
    wait_for_event_ptr,
    set_exception_handler,
    ret_exception,
    set_state,
};
inline constexpr size_t CALL_COUNT = 34;

std::string_view call_name(call which);  // "_SL_SendMsg"
std::optional<call> call_by_name(std::string_view name);
bool call_gives_handle(call which);  // its failure is NO_OBJECT and the last error

struct fault {
    call which = call::get_state;
    std::optional<uint32_t> code;  // counts only sends of a message with this code
    uint64_t nth = 1;              // the call that it replaces, counted from 1 ...
    uint64_t times = 1;            // ... and the following, in all so many
    uint64_t result = 0;
};

// The faults of one run. Every call of a name counts, also one that a fault replaces; of two that meet the first wins.
class fault_list {
public:
    void add(const fault &listed) { faults_.push_back({listed, 0}); }
    bool empty() const { return faults_.empty(); }

    // Counts one call; the result that it has to give, or nothing when it may go on.
    std::optional<uint64_t> strike(call which, uint32_t code);

private:
    struct counted {
        fault what;
        uint64_t seen;
    };
    std::vector<counted> faults_;
};

}  // namespace hosted
