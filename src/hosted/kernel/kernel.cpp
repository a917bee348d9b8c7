// kernel.cpp - objects and handles, messages, semaphores, iterators, and the one function that waits.
#include "hosted/kernel/kernel.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <limits>
#include <utility>

#include "platform/protocol/task.h"

namespace hosted {

namespace {

constexpr uint64_t NEVER = std::numeric_limits<uint64_t>::max();

uint64_t milliseconds_of(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

// The later of two times, where the sum may run past the end of time.
uint64_t later(uint64_t time, uint64_t milliseconds) {
    return milliseconds > NEVER - 1 - time ? NEVER - 1 : time + milliseconds;
}

uint64_t fail(caller &who, uint64_t result) {
    who.last_error = result;
    return NO_OBJECT;
}

// Behind the port of item 10: tells the machine of every task's end.
class exit_notices : public server {
public:
    explicit exit_notices(machine &told) : told_(told) {}
    void receive(const kernel_message &message) override {
        if (message.code == MSG_TASK_EXIT) told_.exit_notice(message.word1, message.word2);
    }

private:
    machine &told_;
};

}  // namespace

enum class kernel::object_kind : uint8_t { any, port, semaphore, iterator, memo };

// An object of the kernel's own. It lives as long as one of its handles; what still holds it then finds it dead.
struct kernel::object {
    static constexpr object_kind KIND = object_kind::any;
    explicit object(object_kind made) : is(made) {}

    const object_kind is;  // tells what it is at less cost than the language does: every call asks
    uint64_t master = 0;
    uint64_t owner = 0;             // the task it was made for
    std::vector<uint64_t> handles;  // those that still stand for it
    bool dead = false;
};

struct kernel::port_object : object {
    static constexpr object_kind KIND = object_kind::port;
    port_object() : object(KIND) {}
    std::deque<kernel_message> queue;
    server *behind = nullptr;  // takes messages at once, in place of the queue
};

struct kernel::semaphore_object : object {
    static constexpr object_kind KIND = object_kind::semaphore;
    semaphore_object() : object(KIND) {}
    int64_t count = 0;
};

struct kernel::iterator_object : object {
    static constexpr object_kind KIND = object_kind::iterator;
    iterator_object() : object(KIND) {}
    std::unique_ptr<hosted::walk> walk;
};

struct kernel::memo_object : object {
    static constexpr object_kind KIND = object_kind::memo;
    memo_object() : object(KIND) {}
};

kernel::kernel(std::unique_ptr<hosted::machine> machine)
    : machine_(std::move(machine)), next_handle_(machine_->first_handle()) {
    if (const auto tick = machine_->virtual_tick()) {
        virtual_clock_ = true;
        virtual_tick_ = *tick;
    }
    machine_->attach(*this);
}

// The servers refer to the machine, and events to both.
kernel::~kernel() {
    events_.clear();
    servers_.clear();
}

caller &kernel::enter() {
    auto made = std::make_unique<caller>();
    made->task = machine_->task();
    made->thread = machine_->thread(callers_.empty());
    if (made->thread == 0) made->thread = new_handle();
    callers_.push_back(std::move(made));
    return *callers_.back();
}

void kernel::leave(const caller &who) {
    std::erase_if(callers_, [&](const auto &one) { return one.get() == &who; });
    wake_waiters();  // those who wait may be all that is left
}

// ---- handles --------------------------------------------------------------------------------------------------------

uint64_t kernel::new_handle() {
    while (next_handle_ == 0 || next_handle_ == NO_OBJECT || machine_->reserves(next_handle_)) next_handle_++;
    return next_handle_++;
}

template <class T> const std::shared_ptr<kernel::object> *kernel::entry(uint64_t handle) const {
    const auto found = handles_.find(handle);
    const bool fits = found != handles_.end() && (T::KIND == object_kind::any || found->second->is == T::KIND);
    return fits ? &found->second : nullptr;
}

template <class T> T *kernel::find(uint64_t handle) const {
    const auto *found = entry<T>(handle);
    return found == nullptr ? nullptr : static_cast<T *>(found->get());
}

template <class T> std::shared_ptr<T> kernel::hold(uint64_t handle) const {
    const auto *found = entry<T>(handle);
    return found == nullptr ? nullptr : std::static_pointer_cast<T>(*found);
}

uint64_t kernel::master(uint64_t handle) const {
    const auto found = foreign_handles_.find(handle);
    return found == foreign_handles_.end() ? handle : found->second;
}

template <class T> std::shared_ptr<T> kernel::add(uint64_t owner) {
    auto made = std::make_shared<T>();
    made->master = new_handle();
    made->owner = owner;
    made->handles.push_back(made->master);
    handles_.emplace(made->master, made);
    return made;
}

void kernel::drop(object &gone) {
    gone.dead = true;
    for (const uint64_t handle : std::exchange(gone.handles, {})) handles_.erase(handle);
    wake_waiters();
}

uint64_t kernel::create_handle(caller &who, uint64_t named) {
    if (const auto own = hold<object>(named)) {
        const uint64_t handle = new_handle();
        own->handles.push_back(handle);
        handles_.emplace(handle, own);
        return handle;
    }
    const uint64_t foreign = master(named);
    if (!machine_->knows(foreign)) return fail(who, RESULT_NO_OBJECT);
    const uint64_t handle = new_handle();
    foreign_handles_.emplace(handle, foreign);
    return handle;
}

uint64_t kernel::delete_object(caller &who, uint64_t handle, uint64_t flags) {
    const bool whole = (flags & DELETE_OBJECT) != 0;
    if (const auto own = hold<object>(handle)) {  // it goes with its last handle, and drop() is still at it then
        if (whole || own->handles.size() == 1) {
            drop(*own);
        } else {
            std::erase(own->handles, handle);
            handles_.erase(handle);
        }
        return RESULT_SUCCESS;
    }
    if (!whole && foreign_handles_.erase(handle) != 0) return RESULT_SUCCESS;
    const uint64_t foreign = master(handle);
    if (!machine_->knows(foreign)) return RESULT_NO_OBJECT;
    if (!whole) return RESULT_NOT_PERMITTED;  // an object of the machine is not ours to forget
    if (const uint64_t result = machine_->destroy(foreign); result != RESULT_SUCCESS) return result;
    std::erase_if(foreign_handles_, [&](const auto &made) { return made.second == foreign; });
    if (foreign == who.task) who.fate = fate::self_deleted;
    return RESULT_SUCCESS;
}

// ---- ports and messages ---------------------------------------------------------------------------------------------

uint64_t kernel::new_port(uint64_t owner) { return add<port_object>(owner)->master; }

uint64_t kernel::create_port(const caller &who) { return new_port(who.task); }

uint64_t kernel::serve(std::unique_ptr<server> made) {
    const auto port = add<port_object>(0);
    port->behind = made.get();
    made->set_port(port->master);
    servers_.push_back(std::move(made));
    return port->master;
}

uint64_t kernel::registry_port() {
    if (registry_port_ == 0) registry_port_ = serve(machine_->make_registry(*this));
    return registry_port_;
}

uint64_t kernel::device_port(std::string_view name) {
    if (const auto known = device_ports_.find(name); known != device_ports_.end()) return known->second;
    auto made = machine_->make_device(*this, name);
    const uint64_t port = made ? serve(std::move(made)) : NO_OBJECT;
    if (port != NO_OBJECT) device_ports_.emplace(name, port);
    return port;
}

uint64_t kernel::send(uint64_t port, const kernel_message &message) {
    auto *const to = find<port_object>(port);
    if (to == nullptr) return RESULT_NO_OBJECT;
    const kernel_message sent = {message.word1, message.code & 0xFFFFFFFF, message.word2};
    if (to->behind != nullptr) {
        to->behind->deliver(sent, port);
    } else {
        to->queue.push_back(sent);
        wake_waiters();
    }
    return RESULT_SUCCESS;
}

void kernel::post(uint64_t port, uint64_t code, uint64_t word2) {
    static_cast<void>(send(port, {0, code, word2}));  // an answer due to a dead port is dropped
}

uint64_t kernel::receive(std::unique_lock<std::mutex> &lock, caller &who, uint64_t port, kernel_message &message,
                         int64_t timeout) {
    const auto from = hold<port_object>(port);
    if (!from || from->behind != nullptr) return RESULT_NO_OBJECT;
    const auto ready = [&from = *from] { return from.dead || !from.queue.empty(); };
    if (const uint64_t result = wait(lock, who, timeout, ready); result != RESULT_SUCCESS) return result;
    if (from->dead) return RESULT_NO_OBJECT;
    message = from->queue.front();
    from->queue.pop_front();
    return RESULT_SUCCESS;
}

// ---- semaphores -----------------------------------------------------------------------------------------------------

uint64_t kernel::new_semaphore(uint64_t owner, int64_t count) {
    const auto made = add<semaphore_object>(owner);
    made->count = count;
    return made->master;
}

uint64_t kernel::create_semaphore(caller &who, int64_t count) {
    return count < 0 ? fail(who, RESULT_BAD_ARGUMENT) : new_semaphore(who.task, count);
}

uint64_t kernel::wait_semaphore(std::unique_lock<std::mutex> &lock, caller &who, uint64_t semaphore, int64_t count,
                                int64_t timeout) {
    const auto awaited = hold<semaphore_object>(semaphore);
    if (!awaited) return RESULT_NO_OBJECT;
    if (count < 0) return RESULT_BAD_ARGUMENT;
    const auto ready = [&on = *awaited, count] { return on.dead || on.count >= count; };
    if (const uint64_t result = wait(lock, who, timeout, ready); result != RESULT_SUCCESS) return result;
    if (awaited->dead) return RESULT_NO_OBJECT;
    awaited->count -= count;
    return RESULT_SUCCESS;
}

uint64_t kernel::signal_semaphore(uint64_t semaphore, int64_t count) {
    auto *const signalled = find<semaphore_object>(semaphore);
    if (signalled == nullptr) return RESULT_NO_OBJECT;
    if (count < 0 || count > std::numeric_limits<int64_t>::max() - signalled->count) return RESULT_BAD_ARGUMENT;
    signalled->count += count;
    wake_waiters();
    return RESULT_SUCCESS;
}

void kernel::destroy(uint64_t handle) {
    if (const auto own = hold<object>(handle)) drop(*own);
}

// ---- time and waiting -----------------------------------------------------------------------------------------------

uint64_t kernel::now() const { return virtual_clock_ ? virtual_tick_ : milliseconds_of(CLOCK_BOOTTIME); }

// Waits go by a clock that the machine's sleep does not move; the tick counts from boot, sleep included.
uint64_t kernel::clock() const { return virtual_clock_ ? virtual_tick_ : milliseconds_of(CLOCK_MONOTONIC); }

void kernel::after(int64_t milliseconds, std::function<void()> event) {
    const uint64_t due = later(clock(), milliseconds < 0 ? 0 : static_cast<uint64_t>(milliseconds));
    events_.emplace(std::pair(due, events_made_++), std::move(event));
    wake_waiters();
}

uint64_t kernel::wait_until(std::unique_lock<std::mutex> &lock, caller &who, int64_t timeout,
                            std::function<bool()> ready) {
    if (!lock.owns_lock()) lock.lock();  // the only thread does without it, but cannot wait without
    const waiter self = {std::move(ready), timeout < 0 ? NEVER : later(clock(), static_cast<uint64_t>(timeout))};
    struct listed {  // one leaves the list also where an event finds no memory
        std::vector<const waiter *> &all;
        const waiter *one;
        ~listed() { std::erase(all, one); }
    };
    waiters_.push_back(&self);
    const listed until_the_end{waiters_, &self};
    while (true) {
        if (self.ready()) return RESULT_SUCCESS;
        const uint64_t at = clock();
        if (!events_.empty() && events_.begin()->first.first <= at) {
            auto event = events_.extract(events_.begin());
            event.mapped()();  // an event due at the very deadline still comes
            continue;
        }
        if (self.deadline <= at) return RESULT_TIMEOUT;
        if (virtual_clock_) {
            move_virtual_clock(lock, self, who);
            if (who.fate != fate::returns) return RESULT_TIMEOUT;
            continue;
        }
        const uint64_t until = std::min(self.deadline, events_.empty() ? NEVER : events_.begin()->first.first);
        if (until == NEVER) {
            wake_.wait(lock);
        } else {
            wake_.wait_for(lock, std::chrono::milliseconds(std::min<uint64_t>(until - at, 3600000)));
        }
    }
}

// Moves the clock to what comes next, if every thread that has begun to call waits and none of them can go on already;
// else waits for the others. Where nothing will ever come, the caller is lost.
void kernel::move_virtual_clock(std::unique_lock<std::mutex> &lock, const waiter &self, caller &who) {
    const auto goes_on = [this](const waiter *one) { return one->deadline <= virtual_tick_ || one->ready(); };
    if (waiters_.size() < callers_.size() || std::any_of(waiters_.begin(), waiters_.end(), goes_on)) {
        wake_.wait(lock);
        return;
    }
    uint64_t next = events_.empty() ? NEVER : events_.begin()->first.first;
    for (const waiter *one : waiters_) next = std::min(next, one->deadline);
    if (next == NEVER) {
        who.fate = fate::deadlock;
        return;
    }
    virtual_tick_ = next;
    if (self.deadline > next || waiters_.size() > 1) wake_.notify_all();
}

uint64_t kernel::delay(std::unique_lock<std::mutex> &lock, caller &who, uint64_t milliseconds) {
    const auto longest = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
    const auto timeout = static_cast<int64_t>(std::min(milliseconds, longest));
    return wait(lock, who, timeout, [] { return false; }) == RESULT_TIMEOUT ? RESULT_SUCCESS : RESULT_INTERRUPTED;
}

// ---- state and objects ----------------------------------------------------------------------------------------------

uint64_t kernel::state(const caller &who, uint64_t item) {
    switch (item) {
    case KSTATE_CURRENT_THREAD: return who.thread;
    case KSTATE_CURRENT_TASK: return who.task;
    case KSTATE_TICK: return now();
    default: break;
    }
    if (uint64_t value = 0; machine_->state(item, value)) return value;
    switch (item) {
    case KSTATE_REGISTRY_PORT: return registry_port();
    case KSTATE_EXIT_NOTICE_PORT:
        if (exit_port_ == 0) exit_port_ = serve(std::make_unique<exit_notices>(*machine_));
        return exit_port_;
    default: return 0;
    }
}

uint64_t kernel::object_info(const caller &who, uint64_t handle, uint64_t item, uint64_t &value) {
    if (const auto *own = find<object>(handle)) {
        if (item == OBJINFO_OWNER) {
            value = own->owner;
        } else if (item == OBJINFO_HANDLE) {
            value = own->master;
        } else {
            return RESULT_NO_ITEM;
        }
        return RESULT_SUCCESS;
    }
    const uint64_t foreign = master(handle);
    if (foreign == who.thread && item == THREADINFO_FETCHED_REGISTER) {
        value = who.fetched_register;
        return RESULT_SUCCESS;
    }
    const auto is_thread = [foreign](const auto &one) { return one->thread == foreign; };
    if (item == OBJINFO_HANDLE && !machine_->knows(foreign) &&
        std::any_of(callers_.begin(), callers_.end(), is_thread)) {
        value = foreign;
        return RESULT_SUCCESS;
    }
    return machine_->object_info(foreign, item, value);
}

uint64_t kernel::address_memo(caller &who, uint64_t address) {
    if (!arena_.contains(address)) return fail(who, RESULT_NO_OBJECT);
    if (arena_memo_ == 0) arena_memo_ = add<memo_object>(0)->master;
    return arena_memo_;
}

uint64_t kernel::control(caller &who, uint64_t handle, uint64_t code, uint64_t a, uint64_t b, uint64_t d) {
    const uint64_t foreign = master(handle);
    switch (code) {
    case CTRL_SET_PROPERTY: return machine_->set_property(foreign, a, b);
    case CTRL_FETCH_REGISTER: {
        uint64_t value = 0;
        const uint64_t result = machine_->fetch_register(foreign, a, b, value);
        if (result != RESULT_SUCCESS) return result;
        who.fetched_register = d >= sizeof value ? value : value & ((uint64_t{1} << (8 * d)) - 1);
        return RESULT_SUCCESS;
    }
    default: return machine_->knows(foreign) ? RESULT_BAD_ARGUMENT : RESULT_NO_OBJECT;
    }
}

uint64_t kernel::raise(uint64_t task, uint64_t exception, uint64_t parameter) {
    return machine_->raise(master(task), exception, parameter);
}

uint64_t kernel::system_data(uint64_t group, uint64_t index, uint64_t &value) {
    const uint64_t result = machine_->system_data(group, index, value);
    if (result != RESULT_NO_ITEM || !machine_->traces_calls()) return result;
    return trace_.read(group, index, value);
}

// ---- iterators ------------------------------------------------------------------------------------------------------

uint64_t kernel::create_iterator(const caller &who) { return add<iterator_object>(who.task)->master; }

uint64_t kernel::begin_iterator(uint64_t iterator, uint64_t parent, uint64_t kind) {
    auto *const begun = find<iterator_object>(iterator);
    if (begun == nullptr) return RESULT_NO_OBJECT;
    return machine_->begin(master(parent), kind, begun->walk);
}

uint64_t kernel::step_iterator(uint64_t iterator) {
    auto *const stepped = find<iterator_object>(iterator);
    if (stepped == nullptr) return RESULT_NO_OBJECT;
    return stepped->walk ? stepped->walk->step() : uint64_t{RESULT_NO_ITEM};
}

uint64_t kernel::iterator_info(uint64_t iterator, uint64_t item, uint64_t &value) {
    auto *const asked = find<iterator_object>(iterator);
    if (asked == nullptr) return RESULT_NO_OBJECT;
    return asked->walk ? asked->walk->info(item, value) : uint64_t{RESULT_NO_ITEM};
}

}  // namespace hosted
