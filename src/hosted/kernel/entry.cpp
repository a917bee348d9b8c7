// entry.cpp - the _SL_ functions: they count faults, call the kernel, log and trace, and end the process where a call
// asks for it.
#include "hosted/kernel/entry.h"

#include <sys/auxv.h>
#include <sys/single_threaded.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <new>

#include "hosted/boot.h"
#include "hosted/kernel/call_log.h"

namespace hosted {

namespace {

constexpr int STATUS_BAD_MACHINE = 125;
constexpr int STATUS_DEADLOCK = 124;

std::atomic<uint64_t> runtimes_made = 0;

struct runtime {
    const uint64_t number = ++runtimes_made;  // a later one may stand at the same address
    std::unique_ptr<hosted::kernel> kernel;
    fault_list faults;
    call_log log;
    observer *watching = nullptr;
    bool traces = false;
    bool failed = false;  // something that has been told on standard error must show in the status
    bool finished = false;
};

std::atomic<runtime *> current = nullptr;  // the running kernel
std::mutex making;

[[noreturn]] void end_process(int status) {
    std::fflush(stdout);
    _exit(status);
}

void save_at_exit() {
    static_cast<void>(finish(0));  // the status is settled; only the saving is left
}

// What a variable of ours says; nothing for one that is not set, and for a process with raised privileges, which must
// not read or write files on behalf of its caller.
const char *variable(const char *name) { return getauxval(AT_SECURE) != 0 ? nullptr : std::getenv(name); }

runtime *boot() {
    auto made = std::make_unique<runtime>();
    const char *path = variable("VENTIX_MACHINE");
    std::unique_ptr<machine> machine;
    if (path == nullptr || std::strcmp(path, "live") == 0) {
        machine = make_live_machine();
    } else {
        std::string message = "VENTIX_MACHINE: empty; name a machine file, or live";
        const char *save = variable("VENTIX_MACHINE_SAVE");
        if (*path != '\0') machine = make_described_machine(path, save == nullptr ? "" : save, made->faults, message);
        if (!machine) {
            std::fprintf(stderr, "ventix: %s\n", message.c_str());
            end_process(STATUS_BAD_MACHINE);
        }
    }
    if (const char *log = variable("VENTIX_CALL_LOG"); log != nullptr && !made->log.open(log)) {
        std::fprintf(stderr, "ventix: %s: %s\n", log, std::strerror(errno));
        made->failed = true;
    }
    made->traces = machine->traces_calls();
    made->kernel = std::make_unique<hosted::kernel>(std::move(machine));
    std::atexit(save_at_exit);  // a command may leave by exit()
    return made.release();
}

[[gnu::cold, gnu::noinline]] runtime &booted() {
    const std::lock_guard lock(making);
    if (current.load(std::memory_order_relaxed) == nullptr) current.store(boot(), std::memory_order_release);
    return *current.load(std::memory_order_relaxed);
}

inline runtime &present() {
    runtime *known = current.load(std::memory_order_acquire);
    return known != nullptr ? *known : booted();
}

// The calling thread's place in the kernel, given back when the thread ends.
class registration {
public:
    registration() = default;
    registration(const registration &) = delete;
    registration &operator=(const registration &) = delete;
    ~registration() {
        runtime *known = current.load(std::memory_order_acquire);
        if (known == nullptr || in_ != known->number) return;
        const std::lock_guard lock(known->kernel->mutex());
        known->kernel->leave(*who_);
    }

    // Called with the kernel's lock held.
    caller &with(runtime &now) {
        if (in_ != now.number) {
            in_ = now.number;
            who_ = &now.kernel->enter();
        }
        return *who_;
    }

private:
    uint64_t in_ = 0;  // the runtime's number
    caller *who_ = nullptr;
};

thread_local registration place;

// finish() of this runtime, with the kernel's lock held.
int finish_run(runtime &now, int status) {
    if (now.finished) return status;
    now.finished = true;
    if (std::string message; !now.kernel->machine().save(message)) {
        std::fprintf(stderr, "ventix: %s\n", message.c_str());
        now.failed = true;
    }
    if (const int error = now.log.error(); error != 0) {
        std::fprintf(stderr, "ventix: call log: %s\n", std::strerror(error));
        now.failed = true;
    }
    return status == 0 && now.failed ? 1 : status;
}

// The thread's call ends the process: the machine is saved and the call log complete before.
[[noreturn]] void end_by_fate(runtime &now, std::unique_lock<std::mutex> &lock, const caller &who, call which,
                              std::span<const argument> arguments) {
    if (now.log.is_open()) now.log.write(which, arguments, false, std::nullopt);
    if (who.fate == fate::self_deleted) {
        static_cast<void>(finish_run(now, 0));
        kill(getpid(), SIGKILL);
        _exit(128 + SIGKILL);  // the first process of a system cannot be killed
    }
    if (lock.owns_lock()) lock.unlock();  // output whose reader has gone ends the process too, and takes it to save
    std::fflush(stdout);
    const char *object = which == call::wait_semaphore ? "semaphore" : "port";
    std::fprintf(stderr, "ventix: deadlock: %s on %s 0x%llx\n", call_name(which).data(), object,
                 static_cast<unsigned long long>(arguments.empty() ? 0 : arguments[0].value));
    end_process(finish(STATUS_DEADLOCK));
}

// A process without other threads needs no lock, which would be a good part of a short call. No call makes a thread, so
// that none is there before the call ends.
bool is_only_thread() { return __libc_single_threaded != 0; }

// One kernel call. The body gets the kernel, its lock and the caller; a handle that it could not give, or a result
// other than success, is the call's failure.
template <class Body> uint64_t invoke(call which, std::initializer_list<argument> given, uint32_t code, Body body) {
    runtime &now = present();
    std::unique_lock lock(now.kernel->mutex(), std::defer_lock);
    if (!is_only_thread()) lock.lock();
    const std::span<const argument> arguments(given.begin(), given.size());
    std::optional<uint64_t> fault;
    if (now.watching != nullptr) fault = now.watching->begins(which, arguments);
    caller &who = place.with(now);
    const call_returns returned = properties_of(which).returns;
    const bool gives_value = returned == call_returns::value;
    const bool gives_handle = returned == call_returns::handle;

    if (!fault && !now.faults.empty()) fault = now.faults.strike(which, code);
    uint64_t result = 0;
    if (fault) {
        result = gives_handle ? NO_OBJECT : *fault;
        if (gives_handle) who.last_error = *fault;
    } else {
        try {
            result = body(*now.kernel, lock, who);
        } catch (const std::bad_alloc &) {
            result = gives_handle ? NO_OBJECT : uint64_t{RESULT_NO_MEMORY};
            who.last_error = RESULT_NO_MEMORY;
        }
        if (who.fate != fate::returns) end_by_fate(now, lock, who, which, arguments);
    }
    const bool succeeded = gives_value || (gives_handle ? result != NO_OBJECT : result == RESULT_SUCCESS);
    if (!succeeded && !gives_handle) who.last_error = result;
    if (now.traces) {
        const uint8_t shown = succeeded ? trace_ring::SUCCEEDED : trace_ring::FAILED;
        now.kernel->trace().record(which, gives_value ? uint8_t{trace_ring::GAVE_VALUE} : shown, arguments);
    }
    if (now.log.is_open()) now.log.write(which, arguments, succeeded && !fault, result);
    if (now.watching != nullptr) now.watching->ended(which, arguments, result, succeeded && !fault);
    return result;
}

template <class Body> uint64_t invoke(call which, std::initializer_list<argument> given, Body body) {
    return invoke(which, given, 0, body);
}

// A call that only a run-time library needs, and that this kernel does not offer.
uint64_t not_offered(call which, std::initializer_list<argument> given) {
    return invoke(which, given, [which](kernel &, auto &, caller &who) {
        who.last_error = RESULT_BAD_ARGUMENT;
        return properties_of(which).returns == call_returns::handle ? NO_OBJECT : uint64_t{RESULT_BAD_ARGUMENT};
    });
}

// Stores what a call gave, if it gave it and the caller left room.
uint64_t give(uint64_t *room, uint64_t result, uint64_t value) {
    if (result == RESULT_SUCCESS) *room = value;
    return result;
}

constexpr auto number = argument::number;
constexpr auto decimal = argument::count;

}  // namespace

kernel &running() { return *present().kernel; }

int finish(int status) {
    runtime *known = current.load(std::memory_order_acquire);
    if (known == nullptr) return status;
    const std::lock_guard lock(known->kernel->mutex());  // other threads may still be calling
    return finish_run(*known, status);
}

void install(std::unique_ptr<machine> brought, fault_list faults) {
    shut_down();
    auto made = std::make_unique<runtime>();
    made->faults = std::move(faults);
    made->traces = brought->traces_calls();
    made->kernel = std::make_unique<hosted::kernel>(std::move(brought));
    current.store(made.release(), std::memory_order_release);
}

void shut_down() { delete current.exchange(nullptr, std::memory_order_acq_rel); }

void observe(observer *watching) { present().watching = watching; }

}  // namespace hosted

// ---- the calls ------------------------------------------------------------------------------------------------------

using namespace hosted;
using lock_type = std::unique_lock<std::mutex>;

uint64_t _SL_CreateMsgPort(uint64_t reserved1, uint64_t reserved2) {
    return invoke(call::create_msg_port, {number(reserved1), number(reserved2)},
                  [](kernel &k, lock_type &, caller &who) { return k.create_port(who); });
}

uint64_t _SL_CreateHandle(uint64_t reserved, uint64_t object, uint64_t rights) {
    return invoke(call::create_handle, {number(reserved), number(object), number(rights)},
                  [=](kernel &k, lock_type &, caller &who) { return k.create_handle(who, object); });
}

uint64_t _SL_DeleteObject(uint64_t handle, uint64_t flags) {
    return invoke(call::delete_object, {number(handle), number(flags)},
                  [=](kernel &k, lock_type &, caller &who) { return k.delete_object(who, handle, flags); });
}

// A port takes every message at once, so that a send never waits.
uint64_t _SL_SendMsg(uint64_t port, uint64_t word1, uint64_t code, uint64_t word2, int64_t timeout) {
    return invoke(call::send_msg, {number(port), number(word1), number(code), number(word2), decimal(timeout)},
                  static_cast<uint32_t>(code), [=](kernel &k, lock_type &, caller &) {
                      return k.send(port, {word1, code, word2});
                  });
}

uint64_t _SL_RecvMsg(uint64_t port, uint64_t *word1, uint64_t *code, uint64_t *word2, int64_t timeout) {
    return invoke(call::recv_msg,
                  {number(port), argument::out(word1), argument::out(code), argument::out(word2), decimal(timeout)},
                  [=](kernel &k, lock_type &lock, caller &who) {
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
    return invoke(call::recv_msg_ptr, {number(port), argument::out(record), decimal(timeout)},
                  [=](kernel &k, lock_type &lock, caller &who) {
                      if (record == nullptr) return uint64_t{RESULT_BAD_ARGUMENT};
                      kernel_message message{};
                      const uint64_t result = k.receive(lock, who, port, message, timeout);
                      if (result == RESULT_SUCCESS) *record = message;
                      return result;
                  });
}

uint64_t _SL_WaitSemaphore(uint64_t semaphore, int64_t count, int64_t timeout) {
    return invoke(call::wait_semaphore, {number(semaphore), decimal(count), decimal(timeout)},
                  [=](kernel &k, lock_type &lock, caller &who) {
                      return k.wait_semaphore(lock, who, semaphore, count, timeout);
                  });
}

uint64_t _SL_SignalSemaphore(uint64_t semaphore, int64_t count) {
    return invoke(call::signal_semaphore, {number(semaphore), decimal(count)},
                  [=](kernel &k, lock_type &, caller &) { return k.signal_semaphore(semaphore, count); });
}

uint64_t _SL_Delay(uint64_t ticks) {
    return invoke(call::delay, {number(ticks)},
                  [=](kernel &k, lock_type &lock, caller &who) { return k.delay(lock, who, ticks); });
}

uint64_t _SL_GetState(uint64_t item) {
    return invoke(call::get_state, {number(item)},
                  [=](kernel &k, lock_type &, caller &who) { return k.state(who, item); });
}

uint64_t _SL_GetObjectInfo(uint64_t handle, uint64_t item, uint64_t *value) {
    return invoke(call::get_object_info, {number(handle), number(item), argument::out(value)},
                  [=](kernel &k, lock_type &, caller &who) {
                      if (value == nullptr) return uint64_t{RESULT_BAD_ARGUMENT};
                      uint64_t read = 0;
                      const uint64_t result = k.object_info(who, handle, item, read);
                      return give(value, result, read);
                  });
}

uint64_t _SL_GetAddressMemo(uint64_t reserved, uint64_t address, uint64_t kind) {
    return invoke(call::get_address_memo, {number(reserved), number(address), number(kind)},
                  [=](kernel &k, lock_type &, caller &who) { return k.address_memo(who, address); });
}

uint64_t _SL_ControlObject(uint64_t handle, uint64_t control, uint64_t a, uint64_t b, uint64_t c, uint64_t d) {
    return invoke(call::control_object, {number(handle), number(control), number(a), number(b), number(c), number(d)},
                  [=](kernel &k, lock_type &, caller &who) { return k.control(who, handle, control, a, b, d); });
}

uint64_t _SL_RaiseException(uint64_t task, uint64_t reserved1, uint64_t exception, uint64_t parameter,
                            uint64_t reserved2) {
    return invoke(call::raise_exception,
                  {number(task), number(reserved1), number(exception), number(parameter), number(reserved2)},
                  [=](kernel &k, lock_type &, caller &) { return k.raise(task, exception, parameter); });
}

uint64_t _SL_GetSystemData(uint64_t group, uint64_t index, uint64_t *value) {
    return invoke(call::get_system_data, {number(group), number(index), argument::out(value)},
                  [=](kernel &k, lock_type &, caller &) {
                      if (value == nullptr) return uint64_t{RESULT_BAD_ARGUMENT};
                      uint64_t read = 0;
                      const uint64_t result = k.system_data(group, index, read);
                      return give(value, result, read);
                  });
}

uint64_t _SL_GetLastError() {
    return invoke(call::get_last_error, {}, [](kernel &, lock_type &, caller &who) { return who.last_error; });
}

uint64_t _SL_CreateIterator(uint64_t reserved1, uint64_t reserved2) {
    return invoke(call::create_iterator, {number(reserved1), number(reserved2)},
                  [](kernel &k, lock_type &, caller &who) { return k.create_iterator(who); });
}

uint64_t _SL_BeginIterator(uint64_t iterator, uint64_t parent, uint64_t kind) {
    return invoke(call::begin_iterator, {number(iterator), number(parent), number(kind)},
                  [=](kernel &k, lock_type &, caller &) { return k.begin_iterator(iterator, parent, kind); });
}

uint64_t _SL_StepIterator(uint64_t iterator) {
    return invoke(call::step_iterator, {number(iterator)},
                  [=](kernel &k, lock_type &, caller &) { return k.step_iterator(iterator); });
}

uint64_t _SL_GetIteratorInfo(uint64_t iterator, uint64_t item, uint64_t *value) {
    return invoke(call::get_iterator_info, {number(iterator), number(item), argument::out(value)},
                  [=](kernel &k, lock_type &, caller &) {
                      if (value == nullptr) return uint64_t{RESULT_BAD_ARGUMENT};
                      uint64_t read = 0;
                      const uint64_t result = k.iterator_info(iterator, item, read);
                      return give(value, result, read);
                  });
}

uint64_t _SL_CreateSemaphore(uint64_t reserved, int64_t count) {
    return invoke(call::create_semaphore, {number(reserved), decimal(count)},
                  [=](kernel &k, lock_type &, caller &who) { return k.create_semaphore(who, count); });
}

uint64_t _SL_CreateMemo(uint64_t reserved, uint64_t size, uint64_t kind) {
    return not_offered(call::create_memo, {number(reserved), number(size), number(kind)});
}

uint64_t _SL_AllocView(uint64_t task, uint64_t memo, uint64_t address, uint64_t offset, uint64_t pages,
                       uint64_t flags) {
    return not_offered(call::alloc_view,
                       {number(task), number(memo), number(address), number(offset), number(pages), number(flags)});
}

uint64_t _SL_VirtualFree(uint64_t task, uint64_t address, uint64_t pages) {
    return not_offered(call::virtual_free, {number(task), number(address), number(pages)});
}

uint64_t _SL_CreateStore(uint64_t reserved, uint64_t size) {
    return not_offered(call::create_store, {number(reserved), number(size)});
}

uint64_t _SL_GetStore(uint64_t store, uint64_t index, uint64_t *value) {
    return not_offered(call::get_store, {number(store), number(index), argument::out(value)});
}

uint64_t _SL_CreateWatchObject(uint64_t reserved, uint64_t object) {
    return not_offered(call::create_watch_object, {number(reserved), number(object)});
}

uint64_t _SL_CreateEvent(uint64_t reserved, uint64_t flags) {
    return not_offered(call::create_event, {number(reserved), number(flags)});
}

uint64_t _SL_SetEvent(uint64_t event) { return not_offered(call::set_event, {number(event)}); }

uint64_t _SL_ResetEvent(uint64_t event) { return not_offered(call::reset_event, {number(event)}); }

uint64_t _SL_WaitForEventPtr(uint64_t event, kernel_message *record, int64_t timeout) {
    return not_offered(call::wait_for_event_ptr, {number(event), argument::out(record), decimal(timeout)});
}

uint64_t _SL_SetExceptionHandler(uint64_t thread, uint64_t handler, uint64_t argument) {
    return not_offered(call::set_exception_handler, {number(thread), number(handler), number(argument)});
}

uint64_t _SL_RetException(uint64_t thread, uint64_t node) {
    return not_offered(call::ret_exception, {number(thread), number(node)});
}

uint64_t _SL_SetState(uint64_t item, uint64_t value) {
    return not_offered(call::set_state, {number(item), number(value)});
}
