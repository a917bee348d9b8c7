// hosted/kernel/calls.cpp - the _SL_ functions: each counts its faults, calls the kernel, and logs and traces the call.
#include "hosted/kernel/calls.h"

#include <sys/single_threaded.h>

#include <initializer_list>
#include <new>

#include "hosted/descriptors.h"
#include "hosted/kernel/run.h"
#include "hosted/wire/guest.h"
#include "platform/kernel.h"

namespace hosted {

namespace {

// The calling thread as the kernel of a run knows it. It leaves that kernel when the thread ends.
class registration {
public:
    registration() = default;
    registration(const registration &) = delete;
    registration &operator=(const registration &) = delete;
    ~registration() {
        run *known = current_run.load(std::memory_order_acquire);
        if (known == nullptr || run_ != known->number) return;  // never in a process that is attached elsewhere
        const std::lock_guard lock(known->kernel->mutex());
        known->kernel->leave(who_);
    }

    // Registers the thread if it is new in this run. Called with the kernel's lock held.
    void enter(run &now) {
        if (run_ != now.number) enter_kernel(now);
    }

    caller &who() { return who_; }

    // Registers the thread for one of another process.
    void enter_for(run &now, uint64_t task, uint64_t thread) {
        now.kernel->enter(who_, task, thread);
        run_ = now.number;
        for_other_ = true;
    }
    bool is_for_other() const { return for_other_; }

private:
    [[gnu::cold, gnu::noinline]] void enter_kernel(run &now) {
        now.kernel->enter(who_, now.kernel->start().task, now.kernel->machine().thread(!now.entered));
        now.entered = true;
        run_ = now.number;
    }

    uint64_t run_ = 0;  // number of the run that it is registered in
    bool for_other_ = false;
    caller who_;
};

thread_local registration registered;

// A process without other threads needs no lock, which would be a good part of a short call. No call makes a thread, so
// none is there before the call ends.
bool is_only_thread() { return __libc_single_threaded != 0; }

using lock_type = std::unique_lock<std::mutex>;

// What few runs need is kept out of line: faults, observers, the call log and the ends of a run.

// The result to replace a call with, or nothing.
[[gnu::cold, gnu::noinline]] std::optional<uint64_t> fault_for(run &now, call which,
                                                               std::span<const argument> arguments) {
    std::optional<uint64_t> fault;
    if (now.watching != nullptr) fault = now.watching->begins(which, arguments);
    const uint64_t code = which == call::send_msg ? arguments[2].value : 0;
    if (!fault) fault = now.faults.strike(which, static_cast<uint32_t>(code));
    return fault;
}

[[gnu::cold, gnu::noinline]] void report(run &now, call which, std::span<const argument> arguments, bool succeeded,
                                         uint64_t result) {
    if (now.log.is_open()) now.log.write(which, arguments, succeeded, result);
    if (now.watching != nullptr) now.watching->ended(which, arguments, result, succeeded);
}

// The result of a call that fails before or instead of acting; a call that returns a value returns the one given.
[[gnu::cold, gnu::noinline]] uint64_t fail(caller &who, call which, uint64_t failure, uint64_t value) {
    const call_returns returned = properties_of(which).returns;
    if (returned == call_returns::value) return value;
    who.last_error = failure;
    return returned == call_returns::handle ? NO_OBJECT : failure;
}

// One kernel call in a process that is attached to a running machine.
[[gnu::cold, gnu::noinline]] uint64_t invoke_attached(run &now, call which, std::span<const argument> arguments) {
    if (which == call::send_msg && now.log.is_open()) {
        const kernel_message message = {arguments[1].value, arguments[2].value & 0xFFFFFFFF, arguments[3].value};
        if (const auto subject = now.attached->subject_of(arguments[0].value, message)) now.log.write(*subject);
    }
    caller who;
    const uint64_t result = now.attached->call(which, arguments, who);
    if (who.fate != fate::returns) {
        lock_type none;
        end_in_call(now, none, who, which, arguments);
    }
    if (now.log.is_open()) now.log.write(which, arguments, has_succeeded(which, result) && !who.faulted, result);
    return result;
}

// One kernel call. The body gets the kernel, its lock and the caller, and returns the call's result. A handle that it
// could not make, or a code other than success, is the call's failure.
template <class Body> uint64_t invoke(call which, std::initializer_list<argument> given, Body body) {
    run &now = this_run();
    const std::span<const argument> arguments(given.begin(), given.size());
    const bool watched = now.watched;
    if (watched && now.attached != nullptr) return invoke_attached(now, which, arguments);
    lock_type lock(now.kernel->mutex(), std::defer_lock);
    if (!is_only_thread()) lock.lock();
    std::optional<uint64_t> fault;
    if (watched) fault = fault_for(now, which, arguments);

    registration &thread = registered;  // looked up once
    caller &who = thread.who();
    uint64_t result = 0;
    try {
        thread.enter(now);
        if (now.calls_left-- == 0) {
            who.fate = fate::endless;
        } else {
            result = fault ? fail(who, which, *fault, *fault) : body(*now.kernel, lock, who);
        }
    } catch (const std::bad_alloc &thrown) {
        const bool cannot_fail = properties_of(which).returns == call_returns::value;
        const auto *failure = dynamic_cast<const system_failure *>(&thrown);
        if (failure != nullptr && (cannot_fail || dynamic_cast<const lookup_failure *>(failure) != nullptr))
            end_unreadable(failure->what());
        result = fail(who, which, RESULT_NO_MEMORY, 0);
    }
    if (who.fate != fate::returns) {
        if (thread.is_for_other()) return result;
        end_in_call(now, lock, who, which, arguments);
    }

    const call_returns returned = properties_of(which).returns;
    const bool succeeded = has_succeeded(which, result);
    if (!succeeded && returned == call_returns::code) who.last_error = result;
    if (trace_ring *const ring = now.kernel->trace()) {
        const uint8_t shown = succeeded ? trace_ring::SUCCEEDED : trace_ring::FAILED;
        ring->record(which, returned == call_returns::value ? uint8_t{trace_ring::GAVE_VALUE} : shown, arguments);
    }
    if (watched) report(now, which, arguments, succeeded && !fault, result);
    return result;
}

// A call that only a run-time library needs, and that this kernel does not offer.
uint64_t not_offered(call which, std::initializer_list<argument> given) {
    return invoke(which, given,
                  [which](kernel &, auto &, caller &who) { return fail(who, which, RESULT_BAD_ARGUMENT, 0); });
}

// A call that reads one figure into the caller's word, its last argument: nothing is stored if it fails. The body
// stores the figure in its last argument.
template <class Body> uint64_t invoke_reader(call which, std::initializer_list<argument> given, Body body) {
    return invoke(which, given, [&](kernel &k, auto &, caller &who) -> uint64_t {
        uint64_t *const value = (given.end() - 1)->output;
        if (value == nullptr) return RESULT_BAD_ARGUMENT;
        uint64_t figure = 0;
        const uint64_t result = body(k, who, figure);
        if (result == RESULT_SUCCESS) *value = figure;
        return result;
    });
}

}  // namespace

caller &call_for(uint64_t task, uint64_t thread) {
    run &now = this_run();
    const std::lock_guard lock(now.kernel->mutex());
    registered.enter_for(now, task, thread);
    return registered.who();
}

uint64_t fail_call(caller &who, call which, uint64_t failure) { return fail(who, which, failure, failure); }

}  // namespace hosted

// ---- the calls ------------------------------------------------------------------------------------------------------

using namespace hosted;

uint64_t _SL_CreateMsgPort(uint64_t reserved1, uint64_t reserved2) {
    return invoke(call::create_msg_port, {reserved1, reserved2},
                  [](kernel &k, auto &, caller &who) { return k.create_port(who); });
}

uint64_t _SL_CreateHandle(uint64_t reserved, uint64_t object, uint64_t rights) {
    return invoke(call::create_handle, {reserved, object, rights},
                  [=](kernel &k, auto &, caller &who) { return k.create_handle(who, object); });
}

uint64_t _SL_DeleteObject(uint64_t handle, uint64_t flags) {
    return invoke(call::delete_object, {handle, flags},
                  [=](kernel &k, auto &, caller &who) { return k.delete_object(who, handle, flags); });
}

// A port accepts every message at once, so a send never waits.
uint64_t _SL_SendMsg(uint64_t port, uint64_t word1, uint64_t code, uint64_t word2, int64_t timeout) {
    return invoke(call::send_msg, {port, word1, code, word2, timeout}, [=](kernel &k, auto &, caller &who) {
        const kernel_message message = {word1, code & 0xFFFFFFFF, word2};
        if (call_log &log = this_run().log; log.is_open()) {
            if (const auto subject = k.registry_subject(port, message)) log.write(*subject);
        }
        return k.send(port, message, who.task);
    });
}

uint64_t _SL_RecvMsg(uint64_t port, uint64_t *word1, uint64_t *code, uint64_t *word2, int64_t timeout) {
    return invoke(call::recv_msg, {port, word1, code, word2, timeout}, [=](kernel &k, lock_type &lock, caller &who) {
        kernel_message message{};
        const uint64_t result = k.receive(lock, who, port, message, timeout);
        if (result != RESULT_SUCCESS) return result;
        if (word1 != nullptr) *word1 = message.word1;
        if (code != nullptr) *code = message.code;
        if (word2 != nullptr) *word2 = message.word2;
        return result;
    });
}

uint64_t _SL_RecvMsgPtr(uint64_t port, kernel_message *record, int64_t timeout) {
    return invoke(call::recv_msg_ptr, {port, record, timeout}, [=](kernel &k, lock_type &lock, caller &who) {
        if (record == nullptr) return uint64_t{RESULT_BAD_ARGUMENT};
        kernel_message message{};
        const uint64_t result = k.receive(lock, who, port, message, timeout);
        if (result == RESULT_SUCCESS) *record = message;
        return result;
    });
}

uint64_t _SL_WaitSemaphore(uint64_t semaphore, int64_t count, int64_t timeout) {
    return invoke(call::wait_semaphore, {semaphore, count, timeout}, [=](kernel &k, lock_type &lock, caller &who) {
        return k.wait_semaphore(lock, who, semaphore, count, timeout);
    });
}

uint64_t _SL_SignalSemaphore(uint64_t semaphore, int64_t count) {
    return invoke(call::signal_semaphore, {semaphore, count},
                  [=](kernel &k, auto &, auto &) { return k.signal_semaphore(semaphore, count); });
}

uint64_t _SL_Delay(uint64_t ticks) {
    return invoke(call::delay, {ticks},
                  [=](kernel &k, lock_type &lock, caller &who) { return k.delay(lock, who, ticks); });
}

uint64_t _SL_GetState(uint64_t item) {
    return invoke(call::get_state, {item}, [=](kernel &k, auto &, caller &who) { return k.state(who, item); });
}

uint64_t _SL_GetObjectInfo(uint64_t handle, uint64_t item, uint64_t *value) {
    return invoke_reader(call::get_object_info, {handle, item, value}, [=](kernel &k, caller &who, uint64_t &figure) {
        return k.object_info(who, handle, item, figure);
    });
}

uint64_t _SL_GetAddressMemo(uint64_t reserved, uint64_t address, uint64_t kind) {
    return invoke(call::get_address_memo, {reserved, address, kind},
                  [=](kernel &k, auto &, caller &who) { return k.address_memo(who, address); });
}

uint64_t _SL_ControlObject(uint64_t handle, uint64_t control, uint64_t a, uint64_t b, uint64_t c, uint64_t d) {
    return invoke(call::control_object, {handle, control, a, b, c, d},
                  [=](kernel &k, auto &, caller &who) { return k.control(who, handle, control, a, b, d); });
}

uint64_t _SL_RaiseException(uint64_t task, uint64_t reserved1, uint64_t exception, uint64_t parameter,
                            uint64_t reserved2) {
    return invoke(call::raise_exception, {task, reserved1, exception, parameter, reserved2},
                  [=](kernel &k, auto &, auto &) { return k.raise(task, exception, parameter); });
}

uint64_t _SL_GetSystemData(uint64_t group, uint64_t index, uint64_t *value) {
    return invoke_reader(call::get_system_data, {group, index, value},
                         [=](kernel &k, caller &, uint64_t &figure) { return k.system_data(group, index, figure); });
}

uint64_t _SL_GetLastError() {
    return invoke(call::get_last_error, {}, [](kernel &, auto &, caller &who) { return who.last_error; });
}

uint64_t _SL_CreateIterator(uint64_t reserved1, uint64_t reserved2) {
    return invoke(call::create_iterator, {reserved1, reserved2},
                  [](kernel &k, auto &, caller &who) { return k.create_iterator(who); });
}

uint64_t _SL_BeginIterator(uint64_t iterator, uint64_t parent, uint64_t kind) {
    return invoke(call::begin_iterator, {iterator, parent, kind},
                  [=](kernel &k, auto &, auto &) { return k.begin_iterator(iterator, parent, kind); });
}

uint64_t _SL_StepIterator(uint64_t iterator) {
    return invoke(call::step_iterator, {iterator},
                  [=](kernel &k, auto &, auto &) { return k.step_iterator(iterator); });
}

uint64_t _SL_GetIteratorInfo(uint64_t iterator, uint64_t item, uint64_t *value) {
    return invoke_reader(call::get_iterator_info, {iterator, item, value}, [=](kernel &k, caller &, uint64_t &figure) {
        return k.iterator_info(iterator, item, figure);
    });
}

uint64_t _SL_CreateSemaphore(uint64_t reserved, int64_t count) {
    return invoke(call::create_semaphore, {reserved, count},
                  [=](kernel &k, auto &, caller &who) { return k.create_semaphore(who, count); });
}

uint64_t _SL_CreateMemo(uint64_t reserved, uint64_t size, uint64_t kind) {
    return not_offered(call::create_memo, {reserved, size, kind});
}

uint64_t _SL_AllocView(uint64_t task, uint64_t memo, uint64_t address, uint64_t offset, uint64_t pages,
                       uint64_t flags) {
    return not_offered(call::alloc_view, {task, memo, address, offset, pages, flags});
}

uint64_t _SL_VirtualFree(uint64_t task, uint64_t address, uint64_t pages) {
    return not_offered(call::virtual_free, {task, address, pages});
}

uint64_t _SL_CreateStore(uint64_t reserved, uint64_t size) { return not_offered(call::create_store, {reserved, size}); }

uint64_t _SL_GetStore(uint64_t store, uint64_t index, uint64_t *value) {
    return not_offered(call::get_store, {store, index, value});
}

uint64_t _SL_CreateWatchObject(uint64_t reserved, uint64_t object) {
    return not_offered(call::create_watch_object, {reserved, object});
}

uint64_t _SL_CreateEvent(uint64_t reserved, uint64_t flags) {
    return not_offered(call::create_event, {reserved, flags});
}

uint64_t _SL_SetEvent(uint64_t event) { return not_offered(call::set_event, {event}); }

uint64_t _SL_ResetEvent(uint64_t event) { return not_offered(call::reset_event, {event}); }

uint64_t _SL_WaitForEventPtr(uint64_t event, kernel_message *record, int64_t timeout) {
    return not_offered(call::wait_for_event_ptr, {event, record, timeout});
}

uint64_t _SL_SetExceptionHandler(uint64_t thread, uint64_t handler, uint64_t argument) {
    return not_offered(call::set_exception_handler, {thread, handler, argument});
}

uint64_t _SL_RetException(uint64_t thread, uint64_t node) { return not_offered(call::ret_exception, {thread, node}); }

uint64_t _SL_SetState(uint64_t item, uint64_t value) { return not_offered(call::set_state, {item, value}); }
