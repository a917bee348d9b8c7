// hosted/live/maps.h - the mappings of processes as views, and the memory objects mapped as memos.
//
// Each mapping is a view. Mappings of one file (device and inode) are views of one memo, and every other mapping has a
// memo of its own. All of them belong to the process: a file that two processes map is two memos.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string_view>
#include <vector>

#include "hosted/kernel/machine.h"
#include "hosted/live/handles.h"
#include "hosted/live/process.h"

namespace hosted::live {

// One line of a process's "maps".
struct mapping_line {
    uint64_t begin, end;  // addresses
    bool readable, writable, executable, shared;
    uint64_t offset;         // into the file, bytes
    uint64_t device, inode;  // inode 0: no file
    std::string_view name;   // path, or a name in brackets; may be empty
};
bool parse_mapping(std::string_view line, mapping_line &out);

// Counts the memos that process_map would have, without making them. Returns 0 or the error number.
//   directory  where the process's "maps" is
int count_memos(proc_root &root, int directory, uint64_t &count);

// What one process maps, as it was when first asked. Its views have the handles from first_handle on, in order of
// address, and its memos those after them.
class process_map {
public:
    struct view {
        uint64_t begin, pages, offset;  // offset in pages
        uint32_t memo;                  // index
        uint32_t flags;                 // VIEWFLAG_
    };
    struct memo {
        uint64_t address = 0;   // of a fixed one; of hardware: the lowest offset mapped
        uint64_t size = 0;      // bytes mapped
        uint64_t resident = 0;  // bytes, known after read_resident()
        uint32_t views = 0;
        uint32_t type = 0;     // MEMO_HW, MEMO_FIX
        bool deleted = false;  // the file has no name any more
    };

    // start: of the process, which distinguishes it from a later one of its number
    process_map(int task, uint64_t start, uint64_t first_handle)
        : task_(task), start_(start), first_handle_(first_handle) {}

    // Reads the mappings from the "maps" in a directory. Returns 0 or the error number.
    int read(proc_root &root, int directory);

    // Adds up the resident amounts, unless that is done: they are in a far longer file. They stay 0 where the caller
    // may not look. Returns RESULT_SUCCESS or a failure.
    uint64_t read_resident(proc_root &root, int directory);
    bool resident_known() const { return resident_known_; }

    int task() const { return task_; }
    uint64_t start() const { return start_; }
    uint64_t first_handle() const { return first_handle_; }
    uint64_t end_handle() const { return first_handle_ + views_.size() + memos_.size(); }
    size_t view_count() const { return views_.size(); }
    size_t memo_count() const { return memos_.size(); }

    // Both: RESULT_NO_ITEM past the last.
    uint64_t view_item(size_t index, uint64_t item, uint64_t &value) const;
    uint64_t memo_item(size_t index, uint64_t item, uint64_t &value) const;

private:
    int task_;
    uint64_t start_;
    uint64_t first_handle_;
    bool resident_known_ = false;
    std::vector<view> views_;
    std::vector<memo> memos_;
};

// What processes map, read once of each in a run. A process that has the number of a former one is read anew; its
// handles follow those of the former.
class map_table {
public:
    explicit map_table(proc_root &root) : root_(root) {}

    // Walks over a process's views and memos; null where that fails (result says why).
    std::unique_ptr<walk> walk_views(process &owner, uint64_t &result);
    std::unique_ptr<walk> walk_memos(process &owner, uint64_t &result);

    bool knows(uint64_t handle) { return find(handle) != nullptr; }
    uint64_t info(uint64_t handle, uint64_t item, uint64_t &value);

private:
    process_map *map_of(process &owner, uint64_t &result);
    process_map *last_before(uint64_t handle);  // whose first handle is below it
    process_map *find(uint64_t handle);
    uint64_t memo_item(process_map &map, int directory, size_t index, uint64_t item, uint64_t &value);

    proc_root &root_;
    std::map<uint64_t, process_map> maps_;  // by first handle
};

}  // namespace hosted::live
