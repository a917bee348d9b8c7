// hosted/live/handles.h - the handles of the live machine's objects: one range for each kind.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>

namespace hosted::live {

struct handle_range {
    uint64_t first;
    uint64_t end;  // the first handle past it

    constexpr uint64_t size() const { return end - first; }
    constexpr bool contains(uint64_t handle) const { return handle >= first && handle < end; }
};

// A process's handle is its id. A thread's and an interrupt routine's is the range's first plus the thread's id or the
// line's number. Memory chunks and virtual spaces are counted in the order of their list. Views and memos have a range
// of their own for each process id, so that every run shows them under the same handles.
inline constexpr handle_range PROCESS_HANDLES = {1, 0x80000000};
inline constexpr handle_range THREAD_HANDLES = {0x100000000, 0x180000000};
inline constexpr handle_range ISR_HANDLES = {0x200000000, 0x300000000};
inline constexpr handle_range CHUNK_HANDLES = {0x300000000, 0x300010000};
inline constexpr handle_range SPACE_HANDLES = {0x300010000, 0x300020000};
inline constexpr handle_range MAPPING_HANDLES = {0x1000000000, 0x1000000000000};
inline constexpr handle_range KERNEL_HANDLES = {0x1000000000000, ~uint64_t{0}};  // ports, iterators and the like

// The part of MAPPING_HANDLES for the views and memos of a process.
constexpr handle_range mapping_handles(int process) {
    constexpr uint64_t most = uint64_t{1} << 24;
    const uint64_t first = MAPPING_HANDLES.first + static_cast<uint64_t>(process) * most;
    return {first, first + most < MAPPING_HANDLES.end ? first + most : first};  // no system has ids as high
}

constexpr bool ranges_are_apart() {
    constexpr handle_range ranges[] = {PROCESS_HANDLES, THREAD_HANDLES,  ISR_HANDLES,   CHUNK_HANDLES,
                                       SPACE_HANDLES,   MAPPING_HANDLES, KERNEL_HANDLES};
    for (size_t i = 0; i < std::size(ranges); ++i) {
        if (ranges[i].first >= ranges[i].end || (i > 0 && ranges[i].first < ranges[i - 1].end)) return false;
    }
    return true;
}
static_assert(ranges_are_apart());

}  // namespace hosted::live
