// hosted/live/proc_object.h - what processes and threads have in common: their open directory and its "stat".
//
// Each is looked at through its open directory, which stays with that process when its number goes to another, so that
// no two answers come from different processes. A file is read when an item first needs it, once, and none that no item
// needs; its content is cached until the object is opened again.
#pragma once

#include <sys/stat.h>

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "hosted/descriptors.h"
#include "hosted/live/proc_reader.h"

namespace hosted::live {

// What all objects of one machine share: the process file system, the reader and the units of its figures.
struct proc_root {
    explicit proc_root(std::string path);

    int directory();  // of the process file system, opened at the first use; -1: there is none

    proc_reader reader;
    uint64_t page_size;         // bytes
    uint64_t ticks_per_second;  // of the times in the process file system
    int self;                   // the calling process

    // Whether the mappings of a process are counted by queries, which is found out for the second one, and how many
    // mappings of a process's text they leave out.
    enum class mapping_queries : uint8_t { unused, untried, answered, refused };
    mapping_queries queries = mapping_queries::unused;
    uint64_t unanswered_mappings = 0;

    // Scratch memory, reused for each process.
    std::vector<int> threads;
    std::vector<std::pair<uint64_t, uint64_t>> mapped_files;

    uint64_t milliseconds(uint64_t ticks) const { return ticks * 1000 / ticks_per_second; }

private:
    std::string path_;
    descriptor directory_;
};

// What the "stat" file of a process or thread says.
struct stat_record {
    static constexpr uint64_t KERNEL_THREAD = 0x200000;  // of flags

    std::array<char, 64> name_bytes;
    size_t name_length;
    char state;
    uint64_t parent, group, session;
    uint64_t flags;
    uint64_t minor_faults, major_faults;
    uint64_t user_ticks, system_ticks;
    int64_t priority;  // 0 to 39: nice levels; below: real-time
    uint64_t threads;
    uint64_t start_ticks;  // since boot
    uint64_t virtual_bytes;

    std::string_view name() const { return {name_bytes.data(), name_length}; }
    uint64_t page_faults() const { return minor_faults + major_faults; }
    bool is_kernel_thread() const { return (flags & KERNEL_THREAD) != 0; }
    bool has_ended() const { return state == 'Z' || state == 'X'; }
    uint64_t task_priority() const;  // 100 and up: nice levels; below: real-time
};
bool parse_stat(std::string_view text, stat_record &record);

// Both context switch counters.
struct switch_counts {
    uint64_t voluntary = 0;
    uint64_t involuntary = 0;
};
switch_counts parse_switches(std::string_view status);  // of the text of a "status" file

// Whether a path leads to a file, here or in a process's own root directory. The system's links to files that it marks
// as deleted cannot be followed, but a file may bear the mark in its name.
//   directory  of the process
//   found      out: the file at the path
inline constexpr std::string_view DELETED_MARK = " (deleted)";
bool leads_to(int directory, const std::string &path, dev_t device, ino_t inode, struct ::stat &found);

// The halves of a 64-bit figure, which have an item each.
constexpr uint64_t high_half(uint64_t value) { return value >> 32; }
constexpr uint64_t low_half(uint64_t value) { return value & 0xFFFFFFFF; }

class proc_object {
public:
    explicit proc_object(proc_root &root) : root_(root) {}

    int number() const { return number_; }  // 0: nothing open
    int directory() const { return directory_.get(); }
    void close();

    // Its stat; null where it has gone, may not be looked at or could not be read (see failure()).
    const stat_record *stat();
    const stat_record &stat_or_zeros();  // the same; instead of null, one of which every item reads 0
    bool has_gone() { return stat() == nullptr && stat_read_ == outcome::gone; }
    bool exists() const;  // as far as the system says now

    // RESULT_SUCCESS, or why something could not be read since the object was opened or an item was last asked for,
    // other than that it has gone or may not be looked at.
    uint64_t failure() const { return failure_; }

protected:
    const stat_record *stat_if_read() const { return stat_read_ == outcome::done ? &stat_ : nullptr; }
    void assume_stat(const stat_record &known) {
        stat_ = known;
        stat_read_ = outcome::done;
    }

    // The outcome of reading a file. A failure leaves it unread: the next question reads the file again.
    enum class outcome : uint8_t { unread, done, hidden, gone };

    // Returns false where there is no such object. Where it exists but cannot be opened, its items fail.
    bool open(int below, const char *path, int number);
    void stay_hidden(int number);  // open, but without anything to look at

    // Reads a small file of the object; an empty text where that does not succeed.
    outcome read(const char *name, std::string_view &text);
    outcome note(int error);  // of a file that the object read by itself

    proc_root &root_;
    uint64_t failure_ = 0;
    int open_error_ = 0;  // why there is no open directory

private:
    int number_ = 0;
    descriptor directory_;
    outcome stat_read_ = outcome::unread;
    stat_record stat_;
};

}  // namespace hosted::live
