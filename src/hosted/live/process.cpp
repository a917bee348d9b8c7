// hosted/live/process.cpp - the items of processes, each from the file that holds it at the least cost.
#include "hosted/live/process.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>

#include "hosted/live/files.h"
#include "hosted/live/maps.h"
#include "hosted/live/scanner.h"
#include "hosted/live/texts.h"
#include "platform/kernel.h"

namespace hosted::live {

namespace {

// The last component of a path; all of it where there is no '/'.
std::string_view base_name(std::string_view path) {
    const size_t slash = path.rfind('/');
    return slash == path.npos ? path : path.substr(slash + 1);
}

// A user or group id in the 16 bits of the item. One that does not fit reads as nobody's.
uint64_t short_id(uint32_t id) {
    constexpr uint32_t overflow_id = 65534;
    return id <= 0xFFFF ? id : overflow_id;
}

}  // namespace

// The owner of a process's directory is its effective user and group, also where nothing else of it may be read, and
// costs far less than the file that says the same. It is read before the stat, which then proves that the process was
// still there.
bool process::open(int id) {
    is_process_ = pages_read_ = calls_read_ = memos_read_ = switches_read_ = survivor_read_ = outcome::unread;
    owner_known_ = false;
    if (id <= 0) return false;
    struct ::stat owner {};
    bool found = proc_object::open(root_.directory(), numbered_path(id).c_str(), id);
    if (found && directory() >= 0) {
        owner_known_ = fstat(directory(), &owner) == 0;
        found = owner_known_ || !means_gone(errno);
        user_ = owner.st_uid;
        group_ = owner.st_gid;
    }
    if (id == FIRST_PROCESS) {
        if (!found) stay_hidden(id);
        assume_process();
        return true;
    }
    if (!found) close();
    return found;
}

uint64_t process::is_process() {
    if (is_process_ == outcome::unread) {
        failure_ = RESULT_SUCCESS;
        std::string_view text;
        is_process_ = read("status", text);
        const bool own = value_of(text, "\nTgid:") == static_cast<uint64_t>(number());
        if (is_process_ == outcome::done && !own) is_process_ = outcome::gone;
    }
    switch (is_process_) {
    case outcome::done: return RESULT_SUCCESS;
    case outcome::hidden: return RESULT_NOT_PERMITTED;
    case outcome::gone: return RESULT_NO_OBJECT;
    default: return failure_;
    }
}

bool process::start(uint64_t &ticks) {
    if (stat() == nullptr) return false;
    ticks = stat()->start_ticks;
    return true;
}

int process::list_threads(std::vector<int> &numbers, descriptor &tasks) {
    return directory() < 0 ? open_error_ : root_.reader.list(directory(), "task", numbers, &tasks);
}

int process::memory_directory() {
    const stat_record &own = stat_or_zeros();
    if (own.state != 'Z' || own.threads <= 1) return directory();
    if (survivor_read_ == outcome::unread) {
        survivor_ = descriptor();
        survivor_virtual_bytes_ = 0;
        descriptor tasks;
        survivor_read_ = note(list_threads(root_.threads, tasks));
        for (const int id : root_.threads) {
            descriptor candidate = open_file(tasks.get(), numbered_path(id).c_str(), O_PATH | O_DIRECTORY);
            std::string_view text;
            stat_record record;
            const int error = candidate ? root_.reader.read(candidate.get(), "stat", text) : errno;
            if (means_failure(error)) survivor_read_ = note(error);
            if (error != 0 || !parse_stat(text, record) || record.has_ended()) continue;
            survivor_ = std::move(candidate);
            survivor_virtual_bytes_ = record.virtual_bytes;
            break;
        }
    }
    return survivor_ ? survivor_.get() : directory();
}

int process::memory_directory(uint64_t &result) {
    failure_ = RESULT_SUCCESS;
    const int found = memory_directory();
    result = failure_;
    if (result == RESULT_SUCCESS && found < 0) result = RESULT_NOT_PERMITTED;
    return result == RESULT_SUCCESS ? found : -1;
}

uint64_t process::state() {
    if (has_gone()) return TASKSTATE_DELETED;
    if (number() == root_.self) return TASKSTATE_RUNNING;
    switch (stat_or_zeros().state) {
    case 'R': return TASKSTATE_READY;
    case 'Z': return TASKSTATE_ZOMBIE;
    default: return TASKSTATE_BLOCKED;
    }
}

uint64_t process::flags() {
    if (has_gone()) return 0;
    uint64_t flags = 0;
    if (owner_known_ && user_ == 0) flags |= TASKFLAG_SUPER;
    if (stat_or_zeros().is_kernel_thread()) flags |= TASKFLAG_KERNEL;
    return flags;
}

uint64_t process::ids() {
    if (has_gone() || !owner_known_) return 0;
    return short_id(group_) << 16 | short_id(user_);
}

uint64_t process::virtual_bytes() {
    memory_directory();
    return survivor_ ? survivor_virtual_bytes_ : stat_or_zeros().virtual_bytes;
}

uint64_t process::memos() {
    if (memos_read_ == outcome::unread) {
        memos_ = 0;
        if (stat_or_zeros().is_kernel_thread() || directory() < 0) return 0;
        memos_read_ = note(count_memos(root_, memory_directory(), memos_));
    }
    return memos_;
}

// A process of one thread has its counters in its own directory; those of several are added up.
const switch_counts &process::switches() {
    if (switches_read_ != outcome::unread) return switches_;
    switches_ = {};
    std::string_view text;
    if (stat_or_zeros().threads <= 1) {
        switches_read_ = read("status", text);
        return switches_ = parse_switches(text);
    }
    descriptor tasks;
    switches_read_ = note(list_threads(root_.threads, tasks));
    for (const int id : root_.threads) {
        const int error = root_.reader.read(tasks.get(), numbered_path(id, "/status").c_str(), text);
        if (means_failure(error)) switches_read_ = note(error);
        if (error != 0) continue;
        const switch_counts one = parse_switches(text);
        switches_.voluntary += one.voluntary;
        switches_.involuntary += one.involuntary;
    }
    return switches_;
}

// The resident pages of "stat" may be out by dozens for every processor; for "statm" the system counts them.
const page_counts &process::pages() {
    if (pages_read_ != outcome::unread) return pages_;
    pages_ = {};
    if (stat_or_zeros().is_kernel_thread() || directory() < 0) return pages_;
    std::string_view text;
    pages_read_ = note(root_.reader.read(memory_directory(), "statm", text));
    if (pages_read_ != outcome::done) return pages_;
    uint64_t field[6] = {};  // total, resident, shared, text, 0, data and stack
    scanner scan(text);
    for (uint64_t &one : field) scan.decimal(one);
    return pages_ = {.resident = field[1], .reserved = field[5]};
}

uint64_t process::system_calls() {
    if (calls_read_ == outcome::unread) {
        std::string_view text;
        calls_read_ = read("io", text);
        calls_ = value_of(text, "\nsyscr:") + value_of(text, "\nsyscw:");
    }
    return calls_;
}

uint64_t process::item(uint64_t item, uint64_t &value) {
    uint64_t read = 0;
    failure_ = RESULT_SUCCESS;
    switch (item) {
    case OBJINFO_HANDLE:
    case TASKINFO_HWID: read = static_cast<uint64_t>(number()); break;
    case OBJINFO_STATE: read = state(); break;
    case TASKINFO_PRIORITY: read = stat_or_zeros().task_priority(); break;
    case TASKINFO_FLAGS: read = flags(); break;
    case TASKINFO_ALLOC_PAGES: read = pages().resident; break;
    case TASKINFO_RESERVED_PAGES: read = pages().reserved; break;
    case TASKINFO_VIRT_PAGES: read = virtual_bytes() / root_.page_size; break;
    case TASKINFO_EXETIME_HI: read = high_half(root_.milliseconds(stat_or_zeros().user_ticks)); break;
    case TASKINFO_EXETIME_LO: read = low_half(root_.milliseconds(stat_or_zeros().user_ticks)); break;
    case TASKINFO_SYSTIME_HI: read = high_half(root_.milliseconds(stat_or_zeros().system_ticks)); break;
    case TASKINFO_SYSTIME_LO: read = low_half(root_.milliseconds(stat_or_zeros().system_ticks)); break;
    case TASKINFO_ISRTIME_HI:
    case TASKINFO_ISRTIME_LO: break;
    case TASKINFO_THREADS: read = stat_or_zeros().threads; break;
    case TASKINFO_MEMOS: read = memos(); break;
    case TASKINFO_PAGEFAULTS_HI: read = high_half(stat_or_zeros().page_faults()); break;
    case TASKINFO_PAGEFAULTS_LO: read = low_half(stat_or_zeros().page_faults()); break;
    case TASKINFO_SYSCALLS_HI: read = high_half(system_calls()); break;
    case TASKINFO_SYSCALLS_LO: read = low_half(system_calls()); break;
    case TASKINFO_CRTICK_HI: read = high_half(root_.milliseconds(stat_or_zeros().start_ticks)); break;
    case TASKINFO_CRTICK_LO: read = low_half(root_.milliseconds(stat_or_zeros().start_ticks)); break;
    case TASKINFO_VOLCTXSW_HI: read = high_half(switches().voluntary); break;
    case TASKINFO_VOLCTXSW_LO: read = low_half(switches().voluntary); break;
    case TASKINFO_INVCTXSW_HI: read = high_half(switches().involuntary); break;
    case TASKINFO_INVCTXSW_LO: read = low_half(switches().involuntary); break;
    case TASKINFO_GROUP: read = stat_or_zeros().group; break;
    case TASKINFO_PARENT: read = stat_or_zeros().parent; break;
    case TASKINFO_IDS: read = ids(); break;
    default: return RESULT_NO_ITEM;
    }
    if (failure_ == RESULT_SUCCESS) value = read;
    return failure_;
}

// Where the system may have cut the command's name, the arguments and the executable are tried for one that begins with
// it; any other is about something else.
uint64_t process::name(std::string &out) {
    failure_ = RESULT_SUCCESS;
    if (stat() == nullptr) return failure_ != RESULT_SUCCESS ? failure_ : uint64_t{RESULT_NO_OBJECT};
    const std::string known(stat()->name());
    std::string whole = known;
    if (known.size() == COMMAND_NAME_LENGTH && !stat()->is_kernel_thread()) {
        const auto longer = [&](std::string_view candidate) {
            candidate = base_name(candidate).substr(0, NAME_MAX);
            if (!candidate.starts_with(known)) return false;
            whole = candidate;
            return true;
        };
        // A script's name follows its interpreter's and the one option that a script may pass to it.
        std::string_view text;
        bool found = false;
        note(root_.reader.read_front(memory_directory(), "cmdline", text));
        for (int argument = 0; !found && argument < 3 && !text.empty(); ++argument) {
            const size_t length = std::min(text.find('\0'), text.size());
            found = longer(text.substr(0, length));
            text.remove_prefix(std::min(length + 1, text.size()));
        }
        char target[PATH_MAX];
        const ssize_t length = found ? -1 : readlinkat(memory_directory(), "exe", target, sizeof target);
        if (length > 0) {
            std::string path(target, static_cast<size_t>(length));
            struct ::stat executable {
            }, named{};
            if (path.ends_with(DELETED_MARK) &&
                (fstatat(memory_directory(), "exe", &executable, 0) != 0 ||
                 !leads_to(memory_directory(), path, executable.st_dev, executable.st_ino, named)))
                path.resize(path.size() - DELETED_MARK.size());
            longer(path);
        }
    }
    if (failure_ != RESULT_SUCCESS) return failure_;
    clean(whole);
    out = std::move(whole);
    return RESULT_SUCCESS;
}

}  // namespace hosted::live
