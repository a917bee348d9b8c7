// hosted/live/isrs.cpp - finds which task serves which interrupt line.
#include "hosted/live/isrs.h"

#include <algorithm>
#include <optional>
#include <string>

#include "hosted/kernel/indexed_walk.h"
#include "hosted/live/handles.h"
#include "hosted/live/scanner.h"
#include "platform/kernel.h"

namespace hosted::live {

namespace {

constexpr int KERNEL_THREAD_PARENT = 2;

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
    case ISRINFO_SCHEDULED_HI: value = high_half(count); break;
    case ISRINFO_SCHEDULED_LO: value = low_half(count); break;
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

// A line that has a thread of its own belongs to that thread, all others to the parent of the kernel's threads. In a
// container, where that cannot be seen, they belong to the first process.
uint64_t isr_table::read() {
    if (read_) return RESULT_SUCCESS;
    const std::span<const interrupt_line> lines = interrupts_.lines();  // may throw: the next call tries again
    process parent(root_);
    const bool visible =
        parent.open(KERNEL_THREAD_PARENT) && parent.stat() != nullptr && parent.stat()->is_kernel_thread();
    if (parent.failure() != RESULT_SUCCESS) return parent.failure();
    routines_.clear();
    for (const interrupt_line &line : lines) {
        if (line.is_handled())
            routines_.push_back({line.number, line.count, visible ? KERNEL_THREAD_PARENT : FIRST_PROCESS});
    }
    std::sort(routines_.begin(), routines_.end(), [](const isr &a, const isr &b) { return a.number < b.number; });
    if (visible && !routines_.empty()) {
        if (const uint64_t result = find_threads(parent); result != RESULT_SUCCESS) return result;
    }
    for (size_t i = 0; i < routines_.size(); ++i) owned_[routines_[i].owner].push_back(i);
    read_ = true;
    return RESULT_SUCCESS;
}

uint64_t isr_table::find_threads(process &parent) {
    // The system returns this line piece by piece, and the reader's buffer is used again for every child.
    std::string line;
    std::vector<int> children;
    const auto append = [&line](std::string_view piece) { line += piece; };
    const int error = root_.reader.lines(parent.directory(), "task/2/children", append);
    if (means_failure(error)) return result_of(error);
    scanner scan(line);
    for (uint64_t id = 0; scan.decimal(id) && PROCESS_HANDLES.contains(id);) children.push_back(static_cast<int>(id));
    if (children.empty()) {
        const int list_error = root_.reader.list(root_.directory(), ".", children);
        if (list_error != 0) return result_of(list_error);
    }
    for (const int id : children) {
        if (const uint64_t result = consider(id); result != RESULT_SUCCESS) return result;
    }
    return RESULT_SUCCESS;
}

// Makes a process the owner of a line if it is the line's thread. Of two threads, the first is the one that all
// handlers of the line share. Any process may go by such a name, so only a thread of the kernel counts.
uint64_t isr_table::consider(int id) {
    std::string_view name;
    const int error = root_.reader.read(root_.directory(), numbered_path(id, "/comm").c_str(), name);
    if (error != 0) return means_failure(error) ? result_of(error) : uint64_t{RESULT_SUCCESS};
    const auto number = served_line(name);
    if (!number) return RESULT_SUCCESS;
    const auto served = std::lower_bound(routines_.begin(), routines_.end(), *number,
                                         [](const isr &one, uint64_t wanted) { return one.number < wanted; });
    const bool listed = served != routines_.end() && served->number == *number;
    if (!listed || served->owner != KERNEL_THREAD_PARENT) return RESULT_SUCCESS;
    process thread(root_);
    if (thread.open(id) && thread.stat_or_zeros().is_kernel_thread()) served->owner = id;
    return thread.failure();
}

std::unique_ptr<walk> isr_table::walk_owned(int process, uint64_t &result) {
    result = read();
    if (result != RESULT_SUCCESS) return nullptr;
    const auto owned = owned_.find(process);
    return walk_indexed(owned == owned_.end() ? 0 : owned->second.size(),
                        [this, owned](size_t index, uint64_t item, uint64_t &value) {
                            return routines_[owned->second[index]].item(item, value);
                        });
}

const isr *isr_table::find(uint64_t handle) {
    if (!ISR_HANDLES.contains(handle) || read() != RESULT_SUCCESS) return nullptr;
    const auto found = std::lower_bound(routines_.begin(), routines_.end(), handle - ISR_HANDLES.first,
                                        [](const isr &one, uint64_t wanted) { return one.number < wanted; });
    return found == routines_.end() || ISR_HANDLES.first + found->number != handle ? nullptr : &*found;
}

}  // namespace hosted::live
