// isrs.cpp - who serves which interrupt line.
#include "hosted/live/isrs.h"

#include <algorithm>
#include <optional>
#include <string>

#include "hosted/live/handles.h"
#include "hosted/live/indexed_walk.h"
#include "platform/kernel.h"

namespace hosted::live {

namespace {

constexpr int KERNEL_THREAD_PARENT = 2;
constexpr int FIRST_PROCESS = 1;

// "irq/NUMBER-HANDLER", the name of a thread that serves a line.
std::optional<uint64_t> served_line(std::string_view name) {
    constexpr std::string_view prefix = "irq/";
    uint64_t number = 0;
    if (!name.starts_with(prefix)) return std::nullopt;
    scanner scan(name.substr(prefix.size()));
    if (!scan.decimal(number) || !scan.take('-')) return std::nullopt;
    return number;
}

}  // namespace

uint64_t isr::item(uint64_t item, uint64_t &value) const {
    switch (item) {
    case OBJINFO_HANDLE: value = ISR_HANDLES.first + number; break;
    case OBJINFO_OWNER: value = static_cast<uint64_t>(owner); break;
    case ISRINFO_NUMBER: value = number; break;
    case ISRINFO_SCHEDULED_HI: value = count >> 32; break;
    case ISRINFO_SCHEDULED_LO: value = count & 0xFFFFFFFF; break;
    case ISRINFO_PRIORITY:
    case ISRINFO_SYSCALLS_HI:
    case ISRINFO_SYSCALLS_LO:
    case ISRINFO_PAGEFAULTS_HI:
    case ISRINFO_PAGEFAULTS_LO:
    case ISRINFO_ISRTIME_HI:
    case ISRINFO_ISRTIME_LO: value = 0; break;
    default: return RESULT_NO_ITEM;
    }
    return RESULT_SUCCESS;
}

// A line that a thread of its own serves belongs to that thread, all others to the parent of the kernel's threads.
// Where none of those can be seen, in a container, the first process stands for the system.
void isr_table::read() {
    if (read_) return;
    read_ = true;
    process parent(root_);
    const bool visible =
        parent.open(KERNEL_THREAD_PARENT) && parent.stat() != nullptr && parent.stat()->is_kernel_thread();
    const int owner = visible ? KERNEL_THREAD_PARENT : FIRST_PROCESS;
    for (const interrupt_line &line : interrupts_.lines()) {
        if (line.handled && line.number < ISR_HANDLES.size()) routines_.push_back({line.number, line.count, owner});
    }
    std::sort(routines_.begin(), routines_.end(), [](const isr &a, const isr &b) { return a.number < b.number; });
    if (visible && !routines_.empty()) find_threads(parent);
    for (size_t i = 0; i < routines_.size(); i++) owned_[routines_[i].owner].push_back(i);
}

// Of two threads on one line, the first is the one that all its handlers share.
void isr_table::find_threads(process &parent) {
    const auto consider = [this](int id) {
        std::string_view name;
        if (root_.reader.read(root_.directory(), numbered_path(id, "/comm").c_str(), name) != 0) return;
        const auto number = served_line(name);
        if (!number) return;
        const auto served = std::lower_bound(routines_.begin(), routines_.end(), *number,
                                             [](const isr &one, uint64_t wanted) { return one.number < wanted; });
        const bool listed = served != routines_.end() && served->number == *number;
        if (!listed || served->owner != KERNEL_THREAD_PARENT) return;
        process thread(root_);  // any process may go by such a name
        if (thread.open(id) && thread.told().is_kernel_thread()) served->owner = id;
    };
    // The system gives this line piece by piece, and the reader's buffer is used again for every child.
    std::string children;
    const auto keep = [&children](std::string_view piece) { children += piece; };
    if (root_.reader.lines(parent.directory(), "task/2/children", keep) == 0 && !children.empty()) {
        scanner scan(children);
        for (uint64_t id = 0; scan.decimal(id) && id <= INT32_MAX;) consider(static_cast<int>(id));
        return;
    }
    number_scan everyone(open_directory(root_.directory(), "."));
    while (const int id = everyone.next()) consider(id);
}

std::unique_ptr<walk> isr_table::walk_owned(int process) {
    read();
    const auto owned = owned_.find(process);
    return walk_indexed(owned == owned_.end() ? 0 : owned->second.size(),
                        [this, owned](size_t index, uint64_t item, uint64_t &value) {
                            return routines_[owned->second[index]].item(item, value);
                        });
}

const isr *isr_table::find(uint64_t handle) {
    if (!ISR_HANDLES.contains(handle)) return nullptr;  // known without reading a file
    read();
    const auto found = std::lower_bound(routines_.begin(), routines_.end(), handle - ISR_HANDLES.first,
                                        [](const isr &one, uint64_t wanted) { return one.number < wanted; });
    return found == routines_.end() || ISR_HANDLES.first + found->number != handle ? nullptr : &*found;
}

}  // namespace hosted::live
