// hosted/wire/running_machine.cpp - attached tasks: their life, their figures, and their slices of memory.
#include "hosted/wire/running_machine.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <limits>

#include "hosted/clocks.h"
#include "hosted/kernel/kernel.h"
#include "hosted/wire/wire.h"
#include "platform/protocol/sysvc.h"

namespace hosted::wire {

thread_local uint64_t served_task = 0;

running_machine::running_machine(std::unique_ptr<machine> inner, const fault_list &faults, int memory)
    : inner_(std::move(inner)), faults_(faults), inner_start_(inner_->start()), slices_(SLICES), memory_(memory) {}

// The tick starts at the file's value and runs in real time.
machine_start running_machine::start() {
    const uint64_t now = milliseconds_of(CLOCK_BOOTTIME);
    machine_start made;
    made.first_handle = inner_start_.first_handle;
    made.tick_offset = inner_start_.virtual_tick.value_or(now) - now;
    return made;
}

void running_machine::attach(kernel &owner) {
    kernel_ = &owner;
    inner_->attach(owner);
    processes_.directory();  // opened now: from here on, the machine opens descriptors for its guests alone
    uint64_t flags = 0;
    super_ = inner_->object_info(inner_start_.task, TASKINFO_FLAGS, flags) == RESULT_SUCCESS &&
             (flags & TASKFLAG_SUPER) != 0;
}

// ---- tasks ----------------------------------------------------------------------------------------------------------

std::shared_ptr<guest_task> running_machine::attach_process(int process, descriptor lifetime, const std::string &name) {
    if (const auto before = find_process(process)) end_task(*before);
    auto made = std::make_shared<guest_task>();
    made->handle = kernel_->new_handle();
    made->process = process;
    made->lifetime = std::move(lifetime);
    made->faults = faults_;
    made->calls_left = inner_start_.budget_given ? *inner_start_.call_budget : std::numeric_limits<uint64_t>::max();
    made->limited = !made->faults.empty() || inner_start_.budget_given;
    tasks_.emplace(made->handle, made);
    kernel_->attach_task(made->handle);
    inner_->publish_task(made->handle, name);
    return made;
}

std::shared_ptr<guest_task> running_machine::find_process(int process) const {
    for (const auto &[handle, task] : tasks_) {
        if (task->process == process) return task;
    }
    return nullptr;
}

uint64_t running_machine::add_thread(guest_task &of, int number) {
    if (of.ended || of.threads.size() >= MOST_THREADS) return 0;
    const uint64_t handle = kernel_->new_handle();
    of.threads.emplace(handle, number);
    threads_.emplace(handle, of.handle);
    return handle;
}

void running_machine::remove_thread(guest_task &of, uint64_t handle) {
    of.threads.erase(handle);
    threads_.erase(handle);
}

void running_machine::end_task(guest_task &gone) {
    kernel_->end_task(gone.handle);
    if (gone.ended.exchange(true)) return;
    for (const auto &[handle, number] : gone.threads) threads_.erase(handle);
    for (const int terminal : gone.terminals) inner_->terminals().close_terminal(terminal);
    inner_->withdraw_task(gone.handle);
    std::set<uint64_t> others;
    for (const auto &[handle, task] : tasks_) {
        if (handle != gone.handle) others.insert(handle);
    }
    if (gone.slice) slices_[*gone.slice] = {slice_state::kept, std::move(others)};
    for (size_t i = 0; i < slices_.size(); ++i) {
        if (slices_[i].state != slice_state::kept) continue;
        slices_[i].readers.erase(gone.handle);
        if (!slices_[i].readers.empty()) continue;
        if (clear_slice(i)) slices_[i].state = slice_state::free;
    }
    tasks_.erase(gone.handle);  // the caller still holds it
}

// Returns a slice's pages to the system: it is all zeroes then.
bool running_machine::clear_slice(size_t index) const {
    const auto at = static_cast<off_t>(MACHINE_PART + index * SLICE_SIZE);
    return fallocate(memory_, FALLOC_FL_PUNCH_HOLE | FALLOC_FL_KEEP_SIZE, at, SLICE_SIZE) == 0;
}

// A free slice is cleared again: any guest can write to it.
std::optional<uint64_t> running_machine::take_slice(guest_task &of) {
    if (of.ended) return std::nullopt;
    for (size_t i = 0; i < slices_.size() && !of.slice; ++i) {
        if (slices_[i].state != slice_state::free || !clear_slice(i)) continue;
        slices_[i].state = slice_state::taken;
        of.slice = i;
    }
    return of.slice ? std::optional(ARENA_ADDRESS + MACHINE_PART + *of.slice * SLICE_SIZE) : std::nullopt;
}

bool running_machine::shares(uint64_t address) {
    const uint64_t offset = address - ARENA_ADDRESS - MACHINE_PART;
    return offset < SLICES * SLICE_SIZE && slices_[offset / SLICE_SIZE].state != slice_state::free;
}

guest_task *running_machine::find(uint64_t handle) const {
    const auto found = tasks_.find(handle);
    return found == tasks_.end() || found->second->killed ? nullptr : found->second.get();
}

guest_task *running_machine::find_thread(uint64_t handle) const {
    const auto found = threads_.find(handle);
    return found == threads_.end() ? nullptr : find(found->second);
}

bool running_machine::knows(uint64_t handle) {
    return find(handle) != nullptr || find_thread(handle) != nullptr || inner_->knows(handle);
}

// ---- figures --------------------------------------------------------------------------------------------------------

uint64_t running_machine::read(const guest_task &of, live::process &from, uint64_t item, uint64_t &value) {
    switch (item) {
    case OBJINFO_HANDLE: value = of.handle; return RESULT_SUCCESS;
    case TASKINFO_FLAGS: value = super_ ? uint64_t{TASKFLAG_SUPER} : 0; return RESULT_SUCCESS;
    case TASKINFO_MEMOS: value = 0; return RESULT_SUCCESS;  // as many as a walk shows
    case OBJINFO_STATE:
        if (of.handle == served_task) return value = TASKSTATE_RUNNING, RESULT_SUCCESS;
        [[fallthrough]];
    default: break;
    }
    const uint64_t result = from.item(item, value);
    if (result == RESULT_SUCCESS && item == TASKINFO_PARENT) {
        const auto parent = find_process(static_cast<int>(value));
        value = parent ? parent->handle : 0;
    }
    return result;
}

uint64_t running_machine::read(uint64_t handle, const guest_task &of, live::thread &from, uint64_t item,
                               uint64_t &value) {
    if (item != OBJINFO_HANDLE && item != OBJINFO_OWNER) return from.item(item, value);
    value = item == OBJINFO_HANDLE ? handle : of.handle;
    return RESULT_SUCCESS;
}

uint64_t running_machine::object_info(uint64_t handle, uint64_t item, uint64_t &value) {
    if (const guest_task *const task = find(handle)) {
        live::process from(processes_);
        return from.open(task->process) ? read(*task, from, item, value) : uint64_t{RESULT_NO_OBJECT};
    }
    if (const guest_task *const task = find_thread(handle)) {
        live::thread from(processes_);
        if (!from.open(task->threads.at(handle))) return RESULT_NO_OBJECT;
        return read(handle, *task, from, item, value);
    }
    return inner_->object_info(handle, item, value);
}

// Walks over guests open a process for each item: a descriptor for each iterator would let one guest take them all.

// The inner machine's tasks, then the attached ones.
class running_machine::task_walk : public walk {
public:
    task_walk(running_machine &owner, std::unique_ptr<walk> inner) : owner_(owner), inner_(std::move(inner)) {}

    uint64_t step() override {
        if (inner_) {
            if (const uint64_t result = inner_->step(); result != RESULT_NO_ITEM) return result;
            inner_.reset();
        }
        for (auto next = owner_.tasks_.upper_bound(last_); next != owner_.tasks_.end(); ++next) {
            last_ = next->first;
            task_ = next->second;
            if (!task_->killed && live::process(owner_.processes_).open(task_->process)) return RESULT_SUCCESS;
        }
        task_.reset();
        return RESULT_NO_ITEM;
    }

    uint64_t info(uint64_t item, uint64_t &value) override {
        if (inner_) return inner_->info(item, value);
        if (!task_) return RESULT_NO_ITEM;
        live::process from(owner_.processes_);
        from.open(task_->process);  // of one that has gone, items read 0
        return owner_.read(*task_, from, item, value);
    }

private:
    running_machine &owner_;
    std::unique_ptr<walk> inner_;
    uint64_t last_ = 0;
    std::shared_ptr<guest_task> task_;
};

// The attached threads of a task.
class running_machine::thread_walk : public walk {
public:
    thread_walk(running_machine &owner, guest_task &of) : owner_(owner), task_(owner.tasks_.at(of.handle)) {}

    uint64_t step() override {
        for (auto next = task_->threads.upper_bound(handle_); next != task_->threads.end(); ++next) {
            handle_ = next->first;
            number_ = next->second;
            if (live::thread(owner_.processes_).open(number_)) return RESULT_SUCCESS;
        }
        number_ = 0;
        return RESULT_NO_ITEM;
    }

    uint64_t info(uint64_t item, uint64_t &value) override {
        if (number_ == 0) return RESULT_NO_ITEM;
        live::thread from(owner_.processes_);
        from.open(number_);
        return owner_.read(handle_, *task_, from, item, value);
    }

private:
    running_machine &owner_;
    const std::shared_ptr<guest_task> task_;
    uint64_t handle_ = 0;
    int number_ = 0;  // on this system; 0: none
};

namespace {

class empty_walk : public walk {
    uint64_t step() override { return RESULT_NO_ITEM; }
    uint64_t info(uint64_t, uint64_t &) override { return RESULT_NO_ITEM; }
};

}  // namespace

uint64_t running_machine::begin(uint64_t parent, uint64_t kind, std::unique_ptr<walk> &out) {
    guest_task *const guest = find(parent);
    std::unique_ptr<walk> inner;
    switch (kind) {
    case ITERSEL_THREADS:
        if (guest == nullptr) break;
        out = std::make_unique<thread_walk>(*this, *guest);
        return RESULT_SUCCESS;
    case ITERSEL_MEMOS:
    case ITERSEL_VIEWS:
    case ITERSEL_ISRS:
        if (guest == nullptr) break;
        out = std::make_unique<empty_walk>();
        return RESULT_SUCCESS;
    case ITERSEL_TASKS:
        if (const uint64_t result = inner_->begin(parent, kind, inner); result != RESULT_SUCCESS) return result;
        out = std::make_unique<task_walk>(*this, std::move(inner));
        return RESULT_SUCCESS;
    default: break;
    }
    return inner_->begin(parent, kind, out);
}

std::optional<uint64_t> running_machine::process_id(uint32_t command, uint64_t key) {
    std::shared_ptr<guest_task> asked;
    if (command != SYSVCCMD_GET_PID && key <= INT32_MAX) asked = find_process(static_cast<int>(key));
    if (const auto named = tasks_.find(key); !asked && named != tasks_.end()) asked = named->second;
    live::process from(processes_);
    const live::stat_record *const stat = asked && from.open(asked->process) ? from.stat() : nullptr;
    if (stat == nullptr) return std::nullopt;
    switch (command) {
    case SYSVCCMD_GET_PID: return static_cast<uint64_t>(asked->process);
    case SYSVCCMD_GET_PPID: return stat->parent;
    case SYSVCCMD_GET_PGID: return stat->group;
    case SYSVCCMD_GET_SID: return stat->session;
    default: return std::nullopt;
    }
}

// ---- acting ---------------------------------------------------------------------------------------------------------

uint64_t running_machine::set_property(uint64_t task, uint64_t property, uint64_t value) {
    return find(task) != nullptr ? uint64_t{RESULT_NOT_PERMITTED} : inner_->set_property(task, property, value);
}

uint64_t running_machine::raise(uint64_t task, uint64_t exception, uint64_t parameter) {
    return find(task) != nullptr ? uint64_t{RESULT_NOT_PERMITTED} : inner_->raise(task, exception, parameter);
}

uint64_t running_machine::destroy(uint64_t handle) {
    guest_task *const task = find(handle);
    if (task == nullptr)
        return find_thread(handle) != nullptr ? uint64_t{RESULT_NOT_PERMITTED} : inner_->destroy(handle);
    task->killed = true;
    inner_->withdraw_task(handle);
    if (handle == served_task) return RESULT_SUCCESS;
    syscall(SYS_pidfd_send_signal, task->lifetime.get(), SIGKILL, nullptr, 0);
    return RESULT_SUCCESS;
}

}  // namespace hosted::wire
