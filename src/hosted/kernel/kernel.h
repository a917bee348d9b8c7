// hosted/kernel/kernel.h - the hosted kernel: handles, ports, messages, semaphores, iterators, events and the clock,
// over the objects of one machine.
//
// The object never ends the process, reads the environment or writes a stream: what a call comes to beyond its result
// (a wait that can never end, a task that deletes itself) stands in its caller's fate, and the entry functions act on
// it. Every method is called with the kernel's lock held, or by the only thread there is; it is taken for a wait.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "hosted/kernel/arena.h"
#include "hosted/kernel/machine.h"
#include "hosted/kernel/server.h"
#include "hosted/kernel/trace.h"
#include "platform/kernel.h"

namespace hosted {

// What a call came to, beyond its result.
enum class fate : uint8_t {
    returns,       // it has a result
    deadlock,      // its wait would never end
    self_deleted,  // the calling task deleted itself
};

// One calling thread of one task.
struct caller {
    uint64_t task = 0;
    uint64_t thread = 0;
    uint64_t last_error = 0;  // result code of its last failed call
    uint64_t fetched_register = 0;
    hosted::fate fate = hosted::fate::returns;
};

class kernel {
public:
    explicit kernel(std::unique_ptr<hosted::machine> machine);
    ~kernel();

    std::mutex &mutex() { return mutex_; }
    hosted::machine &machine() { return *machine_; }
    trace_ring &trace() { return trace_; }

    // A thread that has begun to call, and one that has ended. With a virtual clock, time moves when all that have
    // begun wait.
    caller &enter();
    void leave(const caller &who);

    // ---- the calls, in the order of platform/kernel.h -----------------------------------------------------------

    uint64_t create_port(const caller &who);
    uint64_t create_handle(caller &who, uint64_t named);
    uint64_t delete_object(caller &who, uint64_t handle, uint64_t flags);
    uint64_t send(uint64_t port, const kernel_message &message);
    uint64_t receive(std::unique_lock<std::mutex> &lock, caller &who, uint64_t port, kernel_message &message,
                     int64_t timeout);
    uint64_t wait_semaphore(std::unique_lock<std::mutex> &lock, caller &who, uint64_t semaphore, int64_t count,
                            int64_t timeout);
    uint64_t signal_semaphore(uint64_t semaphore, int64_t count);
    uint64_t delay(std::unique_lock<std::mutex> &lock, caller &who, uint64_t milliseconds);
    uint64_t state(const caller &who, uint64_t item);
    uint64_t object_info(const caller &who, uint64_t handle, uint64_t item, uint64_t &value);
    uint64_t address_memo(caller &who, uint64_t address);
    uint64_t control(caller &who, uint64_t handle, uint64_t code, uint64_t a, uint64_t b, uint64_t d);
    uint64_t raise(uint64_t task, uint64_t exception, uint64_t parameter);
    uint64_t system_data(uint64_t group, uint64_t index, uint64_t &value);
    uint64_t create_iterator(const caller &who);
    uint64_t begin_iterator(uint64_t iterator, uint64_t parent, uint64_t kind);
    uint64_t step_iterator(uint64_t iterator);
    uint64_t iterator_info(uint64_t iterator, uint64_t item, uint64_t &value);
    uint64_t create_semaphore(caller &who, int64_t count);

    // ---- for servers and machines -------------------------------------------------------------------------------

    arena &memory() { return arena_; }
    uint64_t now() const;               // the tick, milliseconds
    uint64_t new_handle();              // one that names nothing yet
    uint64_t new_port(uint64_t owner);  // owner: the task it is made for
    uint64_t new_semaphore(uint64_t owner, int64_t count);
    void destroy(uint64_t handle);                            // an object of the kernel's own, with all its handles
    void post(uint64_t port, uint64_t code, uint64_t word2);  // queues an answer; one for a dead port is dropped
    void after(int64_t milliseconds, std::function<void()> event);  // events come in order of time, then of making

    // The port of the registry, and of a device (NO_OBJECT: there is none of that name); made at the first question.
    uint64_t registry_port();
    uint64_t device_port(std::string_view name);

private:
    enum class object_kind : uint8_t;
    struct object;
    struct port_object;
    struct semaphore_object;
    struct iterator_object;
    struct memo_object;

    // A caller that waits: until ready says so, or the deadline.
    struct waiter {
        std::function<bool()> ready;
        uint64_t deadline;  // of the kernel's clock; NEVER: none
    };

    // The kernel's own object of a handle and kind, or null: to look at within the call, and to keep over a wait or an
    // end of handles.
    template <class T> T *find(uint64_t handle) const;
    template <class T> std::shared_ptr<T> hold(uint64_t handle) const;
    template <class T> const std::shared_ptr<object> *entry(uint64_t handle) const;
    uint64_t master(uint64_t handle) const;  // of an object of the machine, through the handles made to it
    template <class T> std::shared_ptr<T> add(uint64_t owner);
    void drop(object &gone);
    uint64_t serve(std::unique_ptr<server> made);
    uint64_t clock() const;  // milliseconds of the clock that waits and events go by
    template <class Ready>
    uint64_t wait(std::unique_lock<std::mutex> &lock, caller &who, int64_t timeout, Ready ready) {
        return ready() ? uint64_t{RESULT_SUCCESS} : wait_until(lock, who, timeout, ready);
    }
    uint64_t wait_until(std::unique_lock<std::mutex> &lock, caller &who, int64_t timeout, std::function<bool()> ready);
    void wake_waiters() {  // something changed that one of them may wait for
        if (!waiters_.empty()) wake_.notify_all();
    }
    void move_virtual_clock(std::unique_lock<std::mutex> &lock, const waiter &self, caller &who);

    std::mutex mutex_;
    std::condition_variable wake_;
    std::unique_ptr<hosted::machine> machine_;
    arena arena_;
    trace_ring trace_;

    uint64_t next_handle_ = 0;
    bool virtual_clock_ = false;
    uint64_t virtual_tick_ = 0;
    std::unordered_map<uint64_t, std::shared_ptr<object>> handles_;  // of the kernel's own objects
    std::unordered_map<uint64_t, uint64_t> foreign_handles_;         // made to objects of the machine
    std::vector<std::unique_ptr<server>> servers_;
    std::map<std::pair<uint64_t, uint64_t>, std::function<void()>> events_;  // by time due, then by making
    uint64_t events_made_ = 0;
    std::vector<std::unique_ptr<caller>> callers_;
    std::vector<const waiter *> waiters_;
    std::map<std::string, uint64_t, std::less<>> device_ports_;
    uint64_t registry_port_ = 0;
    uint64_t exit_port_ = 0;
    uint64_t arena_memo_ = 0;
};

}  // namespace hosted
