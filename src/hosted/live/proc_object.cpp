// hosted/live/proc_object.cpp - opening a process or thread, and reading its "stat".
#include "hosted/live/proc_object.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>

#include "hosted/live/scanner.h"
#include "platform/kernel.h"

namespace hosted::live {

namespace {

constexpr uint64_t PRIORITY_BASE = 100;  // of a task, above the system's figure

// The position of a character's last occurrence, or npos. text.rfind() compares one character at a time.
size_t last_of(std::string_view text, char wanted) {
    const void *found = memrchr(text.data(), wanted, text.size());
    return found == nullptr ? text.npos : static_cast<size_t>(static_cast<const char *>(found) - text.data());
}

}  // namespace

proc_root::proc_root(std::string path)
    : page_size(static_cast<uint64_t>(sysconf(_SC_PAGESIZE))),
      ticks_per_second(static_cast<uint64_t>(std::max(sysconf(_SC_CLK_TCK), 1L))), self(getpid()),
      path_(std::move(path)) {}

int proc_root::directory() {
    if (!directory_) directory_ = open_file(AT_FDCWD, path_.c_str(), O_PATH | O_DIRECTORY);
    return directory_.get();
}

uint64_t stat_record::task_priority() const {
    const int64_t value = priority + static_cast<int64_t>(PRIORITY_BASE);
    return value < 0 ? 0 : static_cast<uint64_t>(value);  // deadline scheduling is above every real-time level
}

// "ID (NAME) STATE PARENT ...". The name may hold any character; only numbers follow, so the last parenthesis ends it.
bool parse_stat(std::string_view text, stat_record &record) {
    const size_t open = text.find('(');
    const size_t closed = last_of(text, ')');
    if (open == text.npos || closed == text.npos || closed < open || closed + 2 >= text.size()) return false;
    const std::string_view name = text.substr(open + 1, closed - open - 1);
    record.name_length = name.copy(record.name_bytes.data(), record.name_bytes.size());
    record.state = text[closed + 2];

    constexpr size_t first = 4, last = 23;  // fields, counted from 1 as the system's documentation does
    uint64_t field[last + 1] = {};
    scanner rest(text.substr(std::min(closed + 3, text.size())));
    for (size_t i = first; i <= last; ++i) {
        if (!rest.integer(field[i])) return false;
    }
    record.parent = field[4];
    record.group = field[5];
    record.session = field[6];
    record.flags = field[9];
    record.minor_faults = field[10];
    record.major_faults = field[12];
    record.user_ticks = field[14];
    record.system_ticks = field[15];
    record.priority = static_cast<int64_t>(field[18]);
    if (record.priority < -1000 || record.priority > 1000) return false;
    record.threads = field[20];
    record.start_ticks = field[22];
    record.virtual_bytes = field[23];
    return true;
}

// The counters are the last lines of a long text.
switch_counts parse_switches(std::string_view status) {
    status.remove_prefix(std::min(status.rfind("\nvoluntary_ctxt_switches:"), status.size()));
    return {value_of(status, "\nvoluntary_ctxt_switches:"), value_of(status, "\nnonvoluntary_ctxt_switches:")};
}

bool leads_to(int directory, const std::string &path, dev_t device, ino_t inode, struct ::stat &found) {
    const auto matches = [&](int below, const std::string &name) {
        return fstatat(below, name.c_str(), &found, AT_NO_AUTOMOUNT) == 0 && found.st_ino == inode &&
               found.st_dev == device;
    };
    return matches(AT_FDCWD, path) || matches(directory, "root" + path);
}

bool proc_object::open(int below, const char *path, int number) {
    directory_ = open_file(below, path, O_PATH | O_DIRECTORY);
    open_error_ = directory_ ? 0 : errno;
    number_ = means_gone(open_error_) ? 0 : number;
    stat_read_ = outcome::unread;
    failure_ = RESULT_SUCCESS;
    return number_ != 0;
}

void proc_object::stay_hidden(int number) {
    directory_ = descriptor();
    open_error_ = EACCES;
    number_ = number;
}

void proc_object::close() {
    directory_ = descriptor();
    number_ = 0;
}

bool proc_object::exists() const {
    return number_ != 0 && (!directory_ || faccessat(directory_.get(), "stat", F_OK, 0) == 0 || !means_gone(errno));
}

proc_object::outcome proc_object::note(int error) {
    if (error == 0) return outcome::done;
    if (means_gone(error)) return outcome::gone;
    if (means_hidden(error)) return outcome::hidden;
    failure_ = result_of(error);
    return outcome::unread;
}

proc_object::outcome proc_object::read(const char *name, std::string_view &text) {
    const int error = directory_ ? root_.reader.read(directory_.get(), name, text) : open_error_;
    if (error != 0) text = {};
    return note(error);
}

const stat_record *proc_object::stat() {
    if (stat_read_ == outcome::unread) {
        std::string_view text;
        stat_read_ = read("stat", text);
        if (stat_read_ == outcome::done && !parse_stat(text, stat_)) stat_read_ = outcome::hidden;
        // A process that is being reaped has lost half of its figures, which read -1.
        if (stat_read_ == outcome::done && stat_.state == 'X') stat_read_ = outcome::gone;
    }
    return stat_read_ == outcome::done ? &stat_ : nullptr;
}

const stat_record &proc_object::stat_or_zeros() {
    static constexpr stat_record zeros = [] {
        stat_record record{};
        record.priority = -static_cast<int64_t>(PRIORITY_BASE);  // reads 0
        return record;
    }();
    const stat_record *record = stat();
    return record == nullptr ? zeros : *record;
}

}  // namespace hosted::live
