// hosted/kernel/kernel.cpp - objects and handles, messages, semaphores, iterators, and the one function that waits.
#include "hosted/kernel/kernel.h"

#include <algorithm>
#include <chrono>
#include <limits>
#include <new>
#include <set>
#include <utility>

#include "hosted/clocks.h"
#include "platform/protocol/device.h"
#include "platform/protocol/task.h"

namespace hosted {

namespace {

constexpr uint64_t NEVER = std::numeric_limits<uint64_t>::max();

// What one attached task, or one of its ports, may make the kernel hold.
constexpr size_t MOST_HANDLES = 65536;
constexpr size_t MOST_MESSAGES = 65536;

// The time so many milliseconds later, but always before NEVER.
uint64_t later(uint64_t time, uint64_t milliseconds) {
    return milliseconds > NEVER - 1 - time ? NEVER - 1 : time + milliseconds;
}

uint64_t fail(caller &who, uint64_t result) {
    who.last_error = result;
    return NO_OBJECT;
}

// Owns the port of KSTATE_EXIT_NOTICE_PORT.
class exit_notices : public server {
public:
    explicit exit_notices(machine &receiver) : receiver_(receiver) {}
    void receive(const delivery &received) override {
        const kernel_message &message = received.message;
        if (message.code == MSG_TASK_EXIT) receiver_.exit_notice(message.word1, message.word2);
    }

private:
    machine &receiver_;
};

}  // namespace

enum class kernel::object_kind : uint8_t { any, port, semaphore, iterator, memo };

// An object of the kernel's own. It lives as long as one of its handles. A call that still holds it then finds it dead.
struct kernel::object {
    static constexpr object_kind KIND = object_kind::any;
    explicit object(object_kind made) : kind(made) {}

    const object_kind kind;  // cheaper to test than the dynamic type; every call tests it
    bool dead = false;
    uint64_t master = 0;
    uint64_t owner = 0;             // the task it was made for
    std::vector<uint64_t> handles;  // that name it
    waiter *waiting = nullptr;      // the first of a list
};

template <auto Kind> struct kernel::object_of : object {
    static constexpr object_kind KIND = Kind;
    object_of() : object(Kind) {}
};

struct kernel::port_object : object_of<object_kind::port> {
    std::deque<delivery> queue;
    hosted::server *server = nullptr;  // receives messages at once, in place of the queue
};

struct kernel::semaphore_object : object_of<object_kind::semaphore> {
    int64_t count = 0;
};

struct kernel::iterator_object : object_of<object_kind::iterator> {
    std::unique_ptr<hosted::walk> walk;
};

struct kernel::memo_object : object_of<object_kind::memo> {};

kernel::kernel(std::unique_ptr<hosted::machine> machine, std::span<std::byte> shared)
    : machine_(std::move(machine)), start_(machine_->start()), arena_(shared) {
    next_handle_ = start_.first_handle;
    virtual_tick_ = start_.virtual_tick.value_or(0);
    if (start_.traces_calls) trace_ = std::make_unique_for_overwrite<trace_ring>();
    machine_->attach(*this);
}

// The servers refer to the machine, and events to both.
kernel::~kernel() {
    events_.clear();
    servers_.clear();
}

void kernel::enter(caller &who, uint64_t task, uint64_t thread) {
    who = {.task = task, .thread = thread != 0 ? thread : new_handle()};
    callers_.push_back(&who);
}

void kernel::leave(const caller &who) {
    std::erase(callers_, &who);
    if (!waiters_.empty()) waiters_.front()->wake.notify_one();  // those left may all be waiting now: time can move
}

// ---- handles --------------------------------------------------------------------------------------------------------

uint64_t kernel::new_handle() {
    while (next_handle_ == 0 || next_handle_ == NO_OBJECT || machine_->reserves(next_handle_)) ++next_handle_;
    return next_handle_++;
}

template <class T> const std::shared_ptr<kernel::object> *kernel::entry(uint64_t handle) const {
    const auto found = handles_.find(handle);
    const bool fits = found != handles_.end() && (T::KIND == object_kind::any || found->second.object->kind == T::KIND);
    return fits ? &found->second.object : nullptr;
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
    return found == foreign_handles_.end() ? handle : found->second.object;
}

// The count of a task's handles, to be raised once there is one more; null for a task that is not attached. Throws
// where the task has as many as it may have, which fails the call.
size_t *kernel::handle_count_of(uint64_t task) {
    if (attached_.empty()) return nullptr;
    const auto known = attached_.find(task);
    if (known == attached_.end()) return nullptr;
    if (known->second.handles >= MOST_HANDLES) throw std::bad_alloc();
    return &known->second.handles;
}

void kernel::uncount_handle(uint64_t task) {
    const auto known = attached_.find(task);
    if (known != attached_.end()) --known->second.handles;
}

void kernel::erase_handle(uint64_t handle) {
    const auto known = handles_.find(handle);
    if (!attached_.empty()) uncount_handle(known->second.maker);
    handles_.erase(known);
}

template <class T> std::shared_ptr<T> kernel::add(uint64_t owner) {
    size_t *const count = handle_count_of(owner);
    auto made = std::make_shared<T>();
    made->master = new_handle();
    made->owner = owner;
    made->handles.push_back(made->master);
    handles_.emplace(made->master, named_object{made, owner, 0});
    if (count != nullptr) ++*count;
    return made;
}

void kernel::drop(object &gone) {
    gone.dead = true;
    for (const uint64_t handle : std::exchange(gone.handles, {})) erase_handle(handle);
    wake(gone);
    if (attached_.empty()) return;
    const auto owner = attached_.find(gone.owner);
    if (owner == attached_.end() || owner->second.owes.empty()) return;
    owed_answers owed;
    std::erase_if(owner->second.owes, [&](const auto &one) {
        if (one.second.port == gone.master) owed.insert(one);
        return one.second.port == gone.master;
    });
    answer(owed);
}

uint64_t kernel::name_again(uint64_t other, uint64_t maker) {
    const auto named = hold<object>(other);
    if (!named) return NO_OBJECT;
    size_t *const count = handle_count_of(maker);
    const uint64_t handle = new_handle();
    named->handles.push_back(handle);
    try {
        handles_.emplace(handle, named_object{named, maker, named->handles.size() - 1});
    } catch (const std::bad_alloc &) {
        named->handles.pop_back();
        throw;
    }
    if (count != nullptr) ++*count;
    return handle;
}

uint64_t kernel::create_handle(caller &who, uint64_t named) {
    if (const uint64_t own = name_again(named, who.task); own != NO_OBJECT) return own;
    const uint64_t foreign = master(named);
    if (!machine_->knows(foreign)) return fail(who, RESULT_NO_OBJECT);
    size_t *const count = handle_count_of(who.task);
    const uint64_t handle = new_handle();
    foreign_handles_.emplace(handle, named_foreign{foreign, who.task});
    if (count != nullptr) ++*count;
    return handle;
}

// The object goes with its last handle. Deleting one of many takes no search: the last of the list takes its place.
void kernel::close_handle(uint64_t handle) {
    const auto known = handles_.find(handle);
    if (known == handles_.end()) return;
    const auto named = known->second.object;  // drop() still uses it after the last handle
    if (named->handles.size() == 1) return drop(*named);
    const uint64_t last = named->handles.back();
    named->handles[known->second.place] = last;
    handles_.find(last)->second.place = known->second.place;
    named->handles.pop_back();
    erase_handle(handle);
}

size_t kernel::handle_count() const {
    const auto exists = [this](const auto &served) { return has_object(served->port()); };
    const auto lasting =
        static_cast<size_t>(std::ranges::count_if(servers_, exists)) + (has_object(arena_memo_) ? 1 : 0);
    return handles_.size() + foreign_handles_.size() - lasting;
}

uint64_t kernel::delete_object(caller &who, uint64_t handle, uint64_t flags) {
    const bool whole = (flags & DELETE_OBJECT) != 0;
    if (const auto *const own = find<object>(handle)) {
        // Every process on the machine needs its servers. What one got from a server to use, it may give back.
        if (own->owner == 0 && (whole || handle == own->master) && is_attached(who.task)) return RESULT_NOT_PERMITTED;
        if (whole)
            destroy(handle);
        else
            close_handle(handle);
        return RESULT_SUCCESS;
    }
    if (const auto made = foreign_handles_.find(handle); !whole && made != foreign_handles_.end()) {
        uncount_handle(made->second.maker);
        foreign_handles_.erase(made);
        return RESULT_SUCCESS;
    }
    const uint64_t foreign = master(handle);
    if (!machine_->knows(foreign)) return RESULT_NO_OBJECT;
    if (!whole) return RESULT_NOT_PERMITTED;  // the machine's own handle
    if (const uint64_t result = machine_->destroy(foreign); result != RESULT_SUCCESS) return result;
    std::erase_if(foreign_handles_, [&](const auto &made) {
        if (made.second.object != foreign) return false;
        uncount_handle(made.second.maker);
        return true;
    });
    if (foreign == who.task) who.fate = fate::self_deleted;
    return RESULT_SUCCESS;
}

// ---- ports and messages ---------------------------------------------------------------------------------------------

uint64_t kernel::new_port(uint64_t task) { return add<port_object>(task)->master; }

uint64_t kernel::create_port(const caller &who) { return new_port(who.task); }

uint64_t kernel::serve(std::unique_ptr<server> made) {
    const auto port = add<port_object>(0);
    port->server = made.get();
    made->set_port(port->master);
    servers_.push_back(std::move(made));
    return port->master;
}

uint64_t kernel::registry_port() {
    if (registry_port_ == 0) registry_port_ = serve(machine_->servers().make_registry(*this));
    return registry_port_;
}

uint64_t kernel::device_port(std::string_view name) {
    if (const auto known = device_ports_.find(name); known != device_ports_.end()) return known->second;
    auto made = machine_->servers().make_device(*this, name);
    const uint64_t port = made ? serve(std::move(made)) : NO_OBJECT;
    if (port != NO_OBJECT) device_ports_.emplace(name, port);
    return port;
}

std::optional<request_subject> kernel::registry_subject(uint64_t port, const kernel_message &message) {
    const auto *const to = find<port_object>(port);
    if (to == nullptr || to->server == nullptr || to->master != registry_port_) return std::nullopt;
    return to->server->subject_of(message);
}

uint64_t kernel::send(uint64_t port, const kernel_message &message, uint64_t from) {
    auto *const to = find<port_object>(port);
    if (to == nullptr) return RESULT_NO_OBJECT;
    kernel_message sent = {message.word1, message.code & 0xFFFFFFFF, message.word2};
    if (!attached_.empty()) {
        // What the machine's servers make at an open ends with the task that asked for it, whichever task it names.
        if (to->server != nullptr && sent.code == DEVMSG_OPEN && is_attached(from)) sent.word2 = from;
        if (const uint64_t result = note_message(*to, sent, port, from); result != RESULT_SUCCESS) return result;
    }
    if (to->server != nullptr) {
        to->server->receive({sent, port});
    } else {
        to->queue.push_back({sent, port});
        wake(*to);
    }
    return RESULT_SUCCESS;
}

void kernel::post(uint64_t port, uint64_t code, uint64_t word2) {
    static_cast<void>(send(port, {0, code, word2}));  // fails for a dead port
}

uint64_t kernel::receive(std::unique_lock<std::mutex> &lock, caller &who, uint64_t port, kernel_message &message,
                         int64_t timeout) {
    const auto from = hold<port_object>(port);
    if (!from || from->server != nullptr) return RESULT_NO_OBJECT;
    if (const uint64_t result = wait(lock, who, from.get(), 0, timeout); result != RESULT_SUCCESS) return result;
    if (from->dead) return RESULT_NO_OBJECT;
    message = from->queue.front().message;
    who.addressed = from->queue.front().handle;
    from->queue.pop_front();
    return RESULT_SUCCESS;
}

// ---- tasks of other processes -------------------------------------------------------------------------------------

void kernel::attach_task(uint64_t task) { attached_.try_emplace(task); }

bool kernel::owns_port(uint64_t task, uint64_t port) const {
    const auto *const named = find<port_object>(port);
    return named != nullptr && named->owner == task && is_attached(task);
}

// Accounts for a message before it is delivered: the answer that the port of an attached task owes from now on, and the
// one that its sender no longer owes.
uint64_t kernel::note_message(const port_object &to, const kernel_message &sent, uint64_t port, uint64_t from) {
    if (to.queue.size() >= MOST_MESSAGES) return RESULT_NO_MEMORY;
    if (const auto sender = attached_.find(from); sender != attached_.end()) {
        auto &owes = sender->second.owes;
        if (const auto oldest = owes.lower_bound(port); oldest != owes.end() && oldest->first == port)
            owes.erase(oldest);
    }
    const auto owner = attached_.find(to.owner);
    if (owner == attached_.end()) return RESULT_SUCCESS;
    uint64_t reply = sent.word1;
    switch (sent.code) {
    case DEVMSG_OPEN:
    case IOMSG_BEGIN:
    case IOMSG_ABORT: break;
    case DEVMSG_CLOSE: reply = sent.word2; break;
    default: return RESULT_SUCCESS;
    }
    auto &owes = owner->second.owes;
    if (owes.size() >= MOST_MESSAGES) {  // nobody waits on a port that is gone
        std::erase_if(owes, [this](const auto &one) { return find<port_object>(one.first) == nullptr; });
    }
    if (owes.size() >= MOST_MESSAGES) return RESULT_NO_MEMORY;
    owes.emplace(reply, owed_answer{to.master, static_cast<uint32_t>(sent.code), sent.word2});
    return RESULT_SUCCESS;
}

// Answers in place of ports that are gone. One answer ends both waits of a request that was begun and aborted.
void kernel::answer(const owed_answers &owed) {
    std::set<std::pair<uint64_t, uint64_t>> aborted;
    for (const auto &[reply, one] : owed) {
        if (one.code == IOMSG_ABORT) aborted.emplace(reply, one.id);
    }
    for (const auto &[reply, one] : owed) {
        switch (one.code) {
        case DEVMSG_OPEN: post(reply, DEVMSG_OPENED, 0); break;
        case DEVMSG_CLOSE: post(reply, DEVMSG_CLOSED, 0); break;
        case IOMSG_ABORT: post(reply, IOMSG_ABORTED, one.id); break;
        default:
            if (!aborted.contains({reply, one.id})) post(reply, IOMSG_FAILED, one.id);
        }
    }
}

void kernel::interrupt(uint64_t task_or_thread) {
    for (caller *const one : callers_) {
        if (one->task == task_or_thread || one->thread == task_or_thread) one->gone = true;
    }
    for (waiter *const one : waiters_) {
        if (one->who->gone) one->wake.notify_one();
    }
}

void kernel::end_task(uint64_t task) {
    interrupt(task);
    for (const auto &served : servers_) served->client_ended(task);
    owed_answers owed;  // by all of its ports: each need not look for its own
    if (const auto known = attached_.find(task); known != attached_.end()) owed.swap(known->second.owes);
    std::vector<uint64_t> made;
    for (const auto &[handle, named] : handles_) {
        if (named.maker == task || named.object->owner == task) made.push_back(handle);
    }
    for (const uint64_t handle : made) {
        if (const auto named = hold<object>(handle); named && named->owner == task) {
            drop(*named);
        } else {
            close_handle(handle);
        }
    }
    std::erase_if(foreign_handles_, [task](const auto &one) { return one.second.maker == task; });
    answer(owed);
    attached_.erase(task);
    for (auto &[other, known] : attached_) {
        std::erase_if(known.owes, [this](const auto &one) { return find<port_object>(one.first) == nullptr; });
    }
}

// ---- semaphores -----------------------------------------------------------------------------------------------------

uint64_t kernel::new_semaphore(uint64_t task, int64_t count) {
    const auto made = add<semaphore_object>(task);
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
    if (const uint64_t result = wait(lock, who, awaited.get(), count, timeout); result != RESULT_SUCCESS) return result;
    if (awaited->dead) return RESULT_NO_OBJECT;
    awaited->count -= count;
    return RESULT_SUCCESS;
}

uint64_t kernel::signal_semaphore(uint64_t semaphore, int64_t count) {
    auto *const signalled = find<semaphore_object>(semaphore);
    if (signalled == nullptr) return RESULT_NO_OBJECT;
    if (count < 0 || count > std::numeric_limits<int64_t>::max() - signalled->count) return RESULT_BAD_ARGUMENT;
    signalled->count += count;
    wake(*signalled);
    return RESULT_SUCCESS;
}

void kernel::destroy(uint64_t handle) {
    if (const auto own = hold<object>(handle)) drop(*own);
}

// ---- time and waiting -----------------------------------------------------------------------------------------------

uint64_t kernel::now() const {
    return start_.virtual_tick ? virtual_tick_ : milliseconds_of(CLOCK_BOOTTIME) + start_.tick_offset;
}

// Waits go by a clock that the host's sleep does not move. The tick counts from boot, sleep included.
uint64_t kernel::clock() const { return start_.virtual_tick ? virtual_tick_ : milliseconds_of(CLOCK_MONOTONIC); }

void kernel::after(int64_t milliseconds, std::function<void()> event) {
    const uint64_t due = later(clock(), milliseconds < 0 ? 0 : static_cast<uint64_t>(milliseconds));
    events_.emplace(std::pair(due, events_made_++), std::move(event));
    if (!waiters_.empty()) waiters_.front()->wake.notify_one();
}

// Whether a wait for an object is over.
bool kernel::ready(const object *on, int64_t count) {
    if (on == nullptr) return false;
    if (on->dead) return true;
    if (on->kind == object_kind::semaphore) return static_cast<const semaphore_object *>(on)->count >= count;
    return !static_cast<const port_object *>(on)->queue.empty();
}

void kernel::wake(const object &changed) {
    for (waiter *one = changed.waiting; one != nullptr; one = one->next) one->wake.notify_one();
}

// A waiter on the lists of the kernel and of its object, for the length of a scope: it leaves them also where an event
// finds no memory.
class kernel::enlisted {
public:
    enlisted(std::vector<waiter *> &all, waiter &one) : all_(all), one_(one) {
        all_.push_back(&one);
        if (one.on == nullptr) return;
        one.next = one.on->waiting;
        one.on->waiting = &one;
    }
    enlisted(const enlisted &) = delete;
    enlisted &operator=(const enlisted &) = delete;
    ~enlisted() {
        std::erase(all_, &one_);
        if (!all_.empty()) all_.front()->wake.notify_one();  // the events may be its to run now
        if (one_.on == nullptr) return;
        waiter **link = &one_.on->waiting;
        while (*link != &one_) link = &(*link)->next;
        *link = one_.next;
    }

private:
    std::vector<waiter *> &all_;
    waiter &one_;
};

// Waits until the object is ready, or the time is up.
//   on     null: for the time alone
//   count  wanted of a semaphore
uint64_t kernel::wait(std::unique_lock<std::mutex> &lock, caller &who, object *on, int64_t count, int64_t timeout) {
    return ready(on, count) ? uint64_t{RESULT_SUCCESS} : block(lock, who, on, count, timeout);
}

// The one function that blocks. Runs the events that fall due meanwhile. A function of its own, so that the many waits
// that are over at once save no registers for it.
[[gnu::noinline]] uint64_t kernel::block(std::unique_lock<std::mutex> &lock, caller &who, object *on, int64_t count,
                                         int64_t timeout) {
    if (!lock.owns_lock()) lock.lock();  // the only thread calls without it, but a sleep needs it
    waiter self{.who = &who,
                .on = on,
                .count = count,
                .deadline = timeout < 0 ? NEVER : later(clock(), static_cast<uint64_t>(timeout))};
    const enlisted for_this_scope(waiters_, self);
    while (!ready(on, count)) {
        const uint64_t now = clock();
        if (who.gone) return RESULT_INTERRUPTED;
        if (!events_.empty() && events_.begin()->first.first <= now) {
            auto event = events_.extract(events_.begin());
            event.mapped()();  // an event due at the deadline itself still runs
        } else if (self.deadline <= now) {
            return RESULT_TIMEOUT;
        } else if (!start_.virtual_tick) {
            sleep(lock, self, now);
        } else if (!move_virtual_clock(lock, self)) {
            who.fate = fate::deadlock;
            return RESULT_TIMEOUT;
        }
    }
    return RESULT_SUCCESS;
}

// Sleeps until the waiter is woken, its deadline, or, for the one that runs the events, the next event.
void kernel::sleep(std::unique_lock<std::mutex> &lock, waiter &self, uint64_t now) {
    constexpr uint64_t longest = 3600000;  // milliseconds: a deadline in the far future must not overflow a time point
    const bool runs_events = waiters_.front() == &self && !events_.empty();
    const uint64_t until = std::min(self.deadline, runs_events ? events_.begin()->first.first : NEVER);
    if (until == NEVER) {
        self.wake.wait(lock);
    } else {
        self.wake.wait_for(lock, std::chrono::milliseconds(std::min(until - now, longest)));
    }
}

// Moves the virtual clock to the next event or deadline if every registered thread waits and none of them can continue
// already; else sleeps until the others have called. Returns false where there is neither event nor deadline.
bool kernel::move_virtual_clock(std::unique_lock<std::mutex> &lock, waiter &self) {
    const auto can_continue = [this](const waiter *one) {
        return one->deadline <= virtual_tick_ || ready(one->on, one->count);
    };
    if (waiters_.size() < callers_.size() || std::any_of(waiters_.begin(), waiters_.end(), can_continue)) {
        self.wake.wait(lock);
        return true;
    }
    uint64_t next = events_.empty() ? NEVER : events_.begin()->first.first;
    for (const waiter *one : waiters_) next = std::min(next, one->deadline);
    if (next == NEVER) return false;
    virtual_tick_ = next;
    for (waiter *const one : waiters_) {
        if (one != &self && one->deadline <= next) one->wake.notify_one();
    }
    return true;
}

uint64_t kernel::delay(std::unique_lock<std::mutex> &lock, caller &who, uint64_t milliseconds) {
    const auto longest = static_cast<uint64_t>(std::numeric_limits<int64_t>::max());
    const auto timeout = static_cast<int64_t>(std::min(milliseconds, longest));
    return wait(lock, who, nullptr, 0, timeout) == RESULT_TIMEOUT ? RESULT_SUCCESS : RESULT_INTERRUPTED;
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
    if (!arena_.contains(address) && !machine_->shares(address)) return fail(who, RESULT_NO_OBJECT);
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
    return result == RESULT_NO_ITEM && trace_ ? trace_->read(group, index, value) : result;
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
