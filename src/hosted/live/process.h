// live/process.h - one process of the system, and one of its threads, seen as a task and its thread.
//
// Each is looked at through its open directory, which stays with that process when its number goes to another, so that
// no two answers come from different processes. A file is read when an item first needs it, once, and none that no item
// needs: what one file gives is kept until the object is opened anew. What has gone reads 0 and is deleted; what the
// caller may not read falls back to 0.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "hosted/live/proc_files.h"

namespace hosted::live {

// What all objects of one machine share: the process file system, the reader and the units of its figures.
struct proc_root {
    explicit proc_root(std::string path);

    int directory();  // of the process file system at that path, opened at the first question; -1: there is none

    file_reader reader;
    uint64_t page_size;                                       // bytes
    uint64_t ticks_per_second;                                // of the times that the process file system gives
    int self;                                                 // the calling process
    std::vector<std::pair<uint64_t, uint64_t>> mapped_files;  // scratch of counting what a process maps

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
    uint64_t task_priority() const;  // 100 and up: nice levels; below: real-time
};
bool parse_stat(std::string_view text, stat_record &record);

// Where a thread stands, from its "syscall" file: zeros while it runs.
struct blocked_call {
    bool blocked = false;            // in a system call, or stopped
    uint64_t number = ~uint64_t{0};  // of the system call
    uint64_t arguments[6] = {};
    uint64_t stack_pointer = 0;
    uint64_t program_counter = 0;

    uint64_t waited_address() const;  // the address in the thread's memory that its call waits on; 0: none
};
blocked_call parse_blocked_call(std::string_view text);

// The longest name that the system keeps of a command; one of that length may have been cut.
inline constexpr size_t COMMAND_NAME_LENGTH = 15;

// What came of reading a file of an object.
enum class reading : uint8_t { not_yet, done, refused, gone };

// What process and thread have in common: the open directory and its "stat".
class proc_object {
public:
    explicit proc_object(proc_root &root) : root_(root) {}

    int number() const { return number_; }  // 0: nothing open
    int directory() const { return directory_.get(); }

    // Its stat; null where it has gone or may not be looked at.
    const stat_record *stat();
    const stat_record &told();  // the same; in place of null, one of which every item reads 0
    bool has_gone() { return stat() == nullptr && stat_read_ == reading::gone; }
    bool exists();  // now, asked of the system anew

protected:
    // False where there is none. One that is there but cannot be opened, with no descriptor left, has nothing to read.
    bool open(int below, const char *path, int number);
    void close();

    // Reads a small file of the object; an empty text where that fails.
    reading read(const char *name, std::string_view &text);

    proc_root &root_;
    int number_ = 0;
    descriptor directory_;

private:
    reading stat_read_ = reading::not_yet;
    stat_record stat_;
};

// Both context switch counters.
struct switch_counts {
    uint64_t voluntary = 0;
    uint64_t involuntary = 0;
};

struct page_counts {
    uint64_t resident = 0;
    uint64_t reserved = 0;  // data and stack
};

class process : public proc_object {
public:
    using proc_object::proc_object;

    // Opens the process of a number; false where there is none. A thread's number opens as well (see is_process).
    bool open(int id);
    using proc_object::close;

    // Whether the open number is a process's own: RESULT_SUCCESS, RESULT_NO_OBJECT where it is that of a further
    // thread, RESULT_NOT_PERMITTED where the caller may not look. A number from a scan of all processes always is.
    uint64_t is_process();
    void known_as_process() { leads_ = reading::done; }

    uint64_t item(uint64_t item, uint64_t &value);

    // The name that it is published under; false where it has none that the caller may know.
    bool name(std::string &out);

    // The start of its life, in ticks since boot; false where it has gone or may not be looked at.
    bool start(uint64_t &ticks);

private:
    uint64_t flags();
    uint64_t state();
    uint64_t memos();
    const page_counts &pages();
    uint64_t system_calls();
    const switch_counts &switches();

    uint32_t user_ = 0, group_ = 0;  // effective ids
    bool owner_known_ = false;
    reading leads_ = reading::not_yet;
    reading pages_read_ = reading::not_yet, calls_read_ = reading::not_yet;
    reading memos_read_ = reading::not_yet, switches_read_ = reading::not_yet;
    page_counts pages_;
    uint64_t calls_ = 0;
    uint64_t memos_ = 0;
    switch_counts switches_;
};

class thread : public proc_object {
public:
    using proc_object::proc_object;

    // Opens a thread below the open "task" directory of its process; false where there is none.
    bool open(int tasks, int id, int owner);

    // Opens a thread by its number alone.
    bool open(int id);
    using proc_object::close;

    uint64_t item(uint64_t item, uint64_t &value);

private:
    const blocked_call &call();
    const switch_counts &switches();
    uint64_t state();

    int owner_ = 0;
    reading call_read_ = reading::not_yet, switches_read_ = reading::not_yet;
    blocked_call call_;
    switch_counts switches_;
};

}  // namespace hosted::live
