// hosted/kernel/kernel.h - the hosted kernel: handles, ports, messages, semaphores, iterators, events and the clock,
// over the objects of one machine.
//
// The object never ends the process, reads the environment or writes a stream. What a call leads to beyond its result
// (a wait that can never end, a task that deletes itself) is its caller's fate, and the entry functions act on it.
// Every method is called with the kernel's lock held, or by the only thread of the process. A wait takes the lock in
// any case, and releases it while it sleeps. Nothing here takes another lock or touches a socket.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
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

// What a call leads to, beyond its result.
enum class fate : uint8_t {
    returns,       // the call returns its result
    deadlock,      // its wait would never end
    endless,       // it is past the run's budget of calls
    self_deleted,  // the calling task deleted itself
};

// One calling thread of one task, and what belongs to it alone.
struct caller {
    uint64_t task = 0;
    uint64_t thread = 0;
    uint64_t last_error = 0;        // result code of its last failed call
    uint64_t fetched_register = 0;  // item THREADINFO_FETCHED_REGISTER of its thread
    uint64_t addressed = 0;         // the handle that the message of its last receive was sent to
    bool faulted = false;           // a fault replaced its last call
    bool gone = false;              // its thread has ended: every wait of its call is over
    hosted::fate fate = hosted::fate::returns;
};

class kernel final : public server_host {
public:
    // shared: memory for the arena that other processes map as well; empty: the arena makes its own
    explicit kernel(std::unique_ptr<hosted::machine> machine, std::span<std::byte> shared = {});
    ~kernel();

    std::mutex &mutex() { return mutex_; }
    hosted::machine &machine() { return *machine_; }
    const machine_start &start() const { return start_; }
    trace_ring *trace() { return trace_.get(); }  // the ring to record calls in; null where the machine has a trace

    // Registers a thread that begins to call. With a virtual clock, time moves only while every registered thread
    // waits. The caller must outlive its registration.
    //   thread  its handle; 0: the kernel makes one
    void enter(caller &who, uint64_t task, uint64_t thread);
    void leave(const caller &who);

    // Tasks of other processes. What such a task owns is counted, and deleted when it ends. The kernel records the
    // messages that a port of one has yet to answer, and answers them if the port is deleted first: no client waits for
    // ever.
    void attach_task(uint64_t task);
    bool is_attached(uint64_t task) const { return attached_.contains(task); }
    bool owns_port(uint64_t task, uint64_t port) const;  // whether the object of a handle is a port of the task

    // Ends the waits of a task's threads, or of one thread.
    void interrupt(uint64_t task_or_thread);

    // Deletes what an attached task owns and releases what servers made for it. May be repeated.
    void end_task(uint64_t task);

    bool has_object(uint64_t handle) const { return handles_.contains(handle); }

    // The number of handles, without those of the machine's own servers, which last as long as it does.
    size_t handle_count() const;

    // ---- the calls, in the order of platform/kernel.h -----------------------------------------------------------

    uint64_t create_port(const caller &who);
    uint64_t create_handle(caller &who, uint64_t named);
    uint64_t delete_object(caller &who, uint64_t handle, uint64_t flags);
    uint64_t send(uint64_t port, const kernel_message &message, uint64_t from = 0);  // from: the sending task
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

    arena &memory() override { return arena_; }
    void post(uint64_t port, uint64_t code, uint64_t word2) override;
    void after(int64_t milliseconds, std::function<void()> event) override;
    uint64_t task_of(uint64_t handle) override { return master(handle); }
    uint64_t new_port(uint64_t task) override;
    uint64_t new_semaphore(uint64_t task, int64_t count) override;
    void destroy(uint64_t handle) override;
    uint64_t new_handle_to(uint64_t other) override { return name_again(other, 0); }
    void close_handle(uint64_t handle) override;

    uint64_t now() const;   // the tick, milliseconds
    uint64_t new_handle();  // a fresh one that names nothing yet

    // The port of the registry, and of a device (NO_OBJECT: there is none of that name). Made at the first request.
    uint64_t registry_port();
    uint64_t device_port(std::string_view name);

    // What a message would begin at the registry; nothing for any other port or message.
    std::optional<request_subject> registry_subject(uint64_t port, const kernel_message &message);

private:
    enum class object_kind : uint8_t;
    struct object;
    template <auto Kind> struct object_of;
    struct port_object;
    struct semaphore_object;
    struct iterator_object;
    struct memo_object;

    // The object of a handle, the task that made the handle (0: a server), and its place in the object's list.
    struct named_object {
        std::shared_ptr<kernel::object> object;
        uint64_t maker = 0;
        size_t place = 0;
    };
    struct named_foreign {
        uint64_t object = 0;  // the machine's handle
        uint64_t maker = 0;
    };

    // A message to a port of an attached task that still needs an answer.
    struct owed_answer {
        uint64_t port = 0;  // master handle
        uint32_t code = 0;  // of the message
        uint64_t id = 0;    // of the request
    };
    using owed_answers = std::multimap<uint64_t, owed_answer>;  // by reply port; for each, the oldest first
    struct attached_task {
        size_t handles = 0;  // that it made or owns
        owed_answers owes;
    };

    // A thread that waits: for its object, until a deadline.
    struct waiter {
        std::condition_variable wake = {};
        const caller *who = nullptr;
        object *on = nullptr;    // null: for the deadline alone
        int64_t count = 0;       // wanted of a semaphore
        uint64_t deadline = 0;   // of clock(); NEVER: none
        waiter *next = nullptr;  // that waits for the same object
    };
    class enlisted;

    // The kernel's own object of a handle and kind, or null. find() is for use within the call. hold() keeps the object
    // over a wait or the end of its handles.
    template <class T> T *find(uint64_t handle) const;
    template <class T> std::shared_ptr<T> hold(uint64_t handle) const;
    template <class T> const std::shared_ptr<object> *entry(uint64_t handle) const;
    template <class T> std::shared_ptr<T> add(uint64_t owner);
    uint64_t master(uint64_t handle) const;  // the machine's own handle of its object, from any handle to it
    uint64_t name_again(uint64_t other, uint64_t maker);
    size_t *handle_count_of(uint64_t task);
    void uncount_handle(uint64_t task);
    void erase_handle(uint64_t handle);
    void drop(object &gone);
    uint64_t note_message(const port_object &to, const kernel_message &sent, uint64_t port, uint64_t from);
    void answer(const owed_answers &owed);
    uint64_t serve(std::unique_ptr<server> made);

    uint64_t clock() const;  // the clock of waits and events, milliseconds
    static bool ready(const object *on, int64_t count);
    static void wake(const object &changed);
    uint64_t wait(std::unique_lock<std::mutex> &lock, caller &who, object *on, int64_t count, int64_t timeout);
    uint64_t block(std::unique_lock<std::mutex> &lock, caller &who, object *on, int64_t count, int64_t timeout);
    void sleep(std::unique_lock<std::mutex> &lock, waiter &self, uint64_t now);
    bool move_virtual_clock(std::unique_lock<std::mutex> &lock, waiter &self);

    std::mutex mutex_;
    std::unique_ptr<hosted::machine> machine_;
    machine_start start_;
    arena arena_;
    std::unique_ptr<trace_ring> trace_;

    uint64_t next_handle_ = 0;
    uint64_t virtual_tick_ = 0;
    std::unordered_map<uint64_t, named_object> handles_;           // to the kernel's own objects
    std::unordered_map<uint64_t, named_foreign> foreign_handles_;  // made to objects of the machine
    std::unordered_map<uint64_t, attached_task> attached_;
    std::vector<std::unique_ptr<server>> servers_;
    std::map<std::pair<uint64_t, uint64_t>, std::function<void()>> events_;  // by time due, then by making
    uint64_t events_made_ = 0;
    std::vector<caller *> callers_;
    std::vector<waiter *> waiters_;  // the first one runs the events that fall due
    std::map<std::string, uint64_t, std::less<>> device_ports_;
    uint64_t registry_port_ = 0;
    uint64_t exit_port_ = 0;
    uint64_t arena_memo_ = 0;
};

}  // namespace hosted
