// process.cpp - the items of processes and threads, each from the file that gives it at the least cost.
#include "hosted/live/process.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <algorithm>
#include <climits>

#include "hosted/live/handles.h"
#include "hosted/live/maps.h"
#include "platform/kernel.h"

namespace hosted::live {

namespace {

constexpr uint64_t PRIORITY_BASE = 100;  // of a task, above the system's figure

uint64_t high_half(uint64_t value) { return value >> 32; }
uint64_t low_half(uint64_t value) { return value & 0xFFFFFFFF; }

reading outcome(int error) {
    if (error == 0) return reading::done;
    return means_gone(error) ? reading::gone : reading::refused;
}

// Both are the last lines of a long text.
switch_counts parse_switches(std::string_view status) {
    status.remove_prefix(std::min(status.rfind("\nvoluntary_ctxt_switches:"), status.size()));
    return {value_of(status, "\nvoluntary_ctxt_switches:"), value_of(status, "\nnonvoluntary_ctxt_switches:")};
}

// Where a character stands last, or npos; text.rfind() looks at one at a time.
size_t last_of(std::string_view text, char wanted) {
    const void *found = memrchr(text.data(), wanted, text.size());
    return found == nullptr ? text.npos : static_cast<size_t>(static_cast<const char *>(found) - text.data());
}

// The last component of a path; all of it where there is no '/'.
std::string_view base_name(std::string_view path) {
    const size_t slash = path.rfind('/');
    return slash == path.npos ? path : path.substr(slash + 1);
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

// ---- texts ----------------------------------------------------------------------------------------------------------

uint64_t stat_record::task_priority() const {
    const int64_t value = priority + static_cast<int64_t>(PRIORITY_BASE);
    return value < 0 ? 0 : static_cast<uint64_t>(value);  // deadline scheduling is above every real-time level
}

// "ID (NAME) STATE PARENT ...". The name may hold anything, so its end is the last parenthesis: numbers follow.
bool parse_stat(std::string_view text, stat_record &record) {
    const size_t open = text.find('(');
    const size_t closed = last_of(text, ')');
    if (open == text.npos || closed == text.npos || closed < open || closed + 2 >= text.size()) return false;
    const std::string_view name = text.substr(open + 1, closed - open - 1);
    record.name_length = name.copy(record.name_bytes.data(), record.name_bytes.size());
    record.state = text[closed + 2];

    constexpr size_t FIRST = 4, LAST = 23;  // fields, counted from 1 as the system's documentation does
    uint64_t field[LAST + 1] = {};
    scanner rest(text.substr(std::min(closed + 3, text.size())));
    for (size_t i = FIRST; i <= LAST; i++) {
        if (!rest.decimal(field[i])) return false;
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

// "running", or "NUMBER ARGUMENT ... STACK-POINTER PROGRAM-COUNTER", or without arguments where it is in no call.
blocked_call parse_blocked_call(std::string_view text) {
    blocked_call call;
    scanner scan(text);
    if (!scan.decimal(call.number)) return call;
    uint64_t words[8] = {};
    size_t count = 0;
    for (; count < std::size(words); count++) {
        scan.skip_blanks();
        if (!scan.take('0') || !scan.take('x') || !scan.hexadecimal(words[count])) break;
    }
    if (count < 2) return {};
    call.blocked = true;
    std::copy(words, words + count - 2, call.arguments);
    call.stack_pointer = words[count - 2];
    call.program_counter = words[count - 1];
    return call;
}

uint64_t blocked_call::waited_address() const {
    if (!blocked) return 0;
    switch (number) {
    case SYS_futex:
#ifdef SYS_futex_waitv
    case SYS_futex_waitv:
#endif
#ifdef SYS_poll
    case SYS_poll:
#endif
    case SYS_ppoll:
    case SYS_rt_sigtimedwait: return arguments[0];
    default: return 0;
    }
}

// ---- what both have in common ---------------------------------------------------------------------------------------

bool proc_object::open(int below, const char *path, int number) {
    directory_ = open_file(below, path, O_PATH | O_DIRECTORY);
    number_ = directory_ || !means_gone(errno) ? number : 0;
    stat_read_ = reading::not_yet;
    return number_ != 0;
}

void proc_object::close() {
    directory_ = descriptor();
    number_ = 0;
}

bool proc_object::exists() { return number() != 0 && faccessat(directory(), "stat", F_OK, 0) == 0; }

reading proc_object::read(const char *name, std::string_view &text) {
    const reading result = outcome(root_.reader.read(directory_.get(), name, text));
    if (result != reading::done) text = {};
    return result;
}

const stat_record *proc_object::stat() {
    if (stat_read_ == reading::not_yet) {
        std::string_view text;
        stat_read_ = read("stat", text);
        if (stat_read_ == reading::done && !parse_stat(text, stat_)) stat_read_ = reading::refused;
        // On its last way out: half of what it had is gone already, and reads as -1.
        if (stat_read_ == reading::done && stat_.state == 'X') stat_read_ = reading::gone;
    }
    return stat_read_ == reading::done ? &stat_ : nullptr;
}

const stat_record &proc_object::told() {
    static constexpr stat_record nothing = [] {
        stat_record record{};
        record.priority = -static_cast<int64_t>(PRIORITY_BASE);  // reads 0
        return record;
    }();
    const stat_record *record = stat();
    return record == nullptr ? nothing : *record;
}

// ---- processes ------------------------------------------------------------------------------------------------------

// The owner of a process's directory is its effective user and group, whatever may be known of it else: far cheaper
// than the file that says the same. It is asked before the stat, which then proves that there still was a process.
bool process::open(int id) {
    leads_ = pages_read_ = calls_read_ = memos_read_ = switches_read_ = reading::not_yet;
    owner_known_ = false;
    if (id <= 0 || !proc_object::open(root_.directory(), numbered_path(id).c_str(), id)) return false;
    struct ::stat owner {};
    if (fstat(directory(), &owner) != 0) {
        if (!means_gone(errno)) return true;
        close();
        return false;
    }
    user_ = owner.st_uid;
    group_ = owner.st_gid;
    owner_known_ = true;
    return true;
}

uint64_t process::is_process() {
    if (leads_ == reading::not_yet) {
        std::string_view text;
        leads_ = read("status", text);
        const bool leads = value_of(text, "\nTgid:") == static_cast<uint64_t>(number());
        if (leads_ == reading::done && !leads) leads_ = reading::gone;
    }
    if (leads_ == reading::done) return RESULT_SUCCESS;
    return leads_ == reading::refused ? RESULT_NOT_PERMITTED : RESULT_NO_OBJECT;
}

bool process::start(uint64_t &ticks) {
    if (stat() == nullptr) return false;
    ticks = stat()->start_ticks;
    return true;
}

uint64_t process::state() {
    if (has_gone()) return TASKSTATE_DELETED;
    if (number() == root_.self) return TASKSTATE_RUNNING;
    switch (told().state) {
    case 'R': return TASKSTATE_READY;
    case 'Z': return TASKSTATE_ZOMBIE;
    default: return TASKSTATE_BLOCKED;
    }
}

uint64_t process::flags() {
    if (has_gone()) return 0;
    uint64_t flags = 0;
    if (owner_known_ && user_ == 0) flags |= TASKFLAG_SUPER;
    if (told().is_kernel_thread()) flags |= TASKFLAG_KERNEL;
    return flags;
}

uint64_t process::memos() {
    if (memos_read_ == reading::not_yet) {
        memos_ = told().is_kernel_thread() ? 0 : count_memos(root_, directory());
        memos_read_ = reading::done;
    }
    return memos_;
}

// A process of one thread has its counters in its own directory; those of several are added up.
const switch_counts &process::switches() {
    if (switches_read_ != reading::not_yet) return switches_;
    switches_read_ = reading::done;
    switches_ = {};
    std::string_view text;
    if (told().threads <= 1) {
        read("status", text);
        return switches_ = parse_switches(text);
    }
    number_scan scan(open_directory(directory(), "task"));
    while (const int id = scan.next()) {
        if (root_.reader.read(scan.directory(), numbered_path(id, "/status").c_str(), text) != 0) continue;
        const switch_counts one = parse_switches(text);
        switches_.voluntary += one.voluntary;
        switches_.involuntary += one.involuntary;
    }
    return switches_;
}

// The resident pages of "stat" may be out by dozens for every processor; here the system counts them.
const page_counts &process::pages() {
    if (pages_read_ != reading::not_yet) return pages_;
    pages_read_ = reading::done;
    pages_ = {};
    if (told().is_kernel_thread()) return pages_;
    std::string_view text;
    read("statm", text);
    uint64_t field[6] = {};  // total, resident, shared, text, 0, data and stack
    scanner scan(text);
    for (uint64_t &one : field) scan.decimal(one);
    return pages_ = {.resident = field[1], .reserved = field[5]};
}

uint64_t process::system_calls() {
    if (calls_read_ == reading::not_yet) {
        std::string_view text;
        calls_read_ = read("io", text);
        calls_ = value_of(text, "\nsyscr:") + value_of(text, "\nsyscw:");
    }
    return calls_;
}

uint64_t process::item(uint64_t item, uint64_t &value) {
    switch (item) {
    case OBJINFO_HANDLE:
    case TASKINFO_HWID: value = static_cast<uint64_t>(number()); break;
    case OBJINFO_STATE: value = state(); break;
    case TASKINFO_PRIORITY: value = told().task_priority(); break;
    case TASKINFO_FLAGS: value = flags(); break;
    case TASKINFO_ALLOC_PAGES: value = pages().resident; break;
    case TASKINFO_RESERVED_PAGES: value = pages().reserved; break;
    case TASKINFO_VIRT_PAGES: value = told().virtual_bytes / root_.page_size; break;
    case TASKINFO_EXETIME_HI: value = high_half(root_.milliseconds(told().user_ticks)); break;
    case TASKINFO_EXETIME_LO: value = low_half(root_.milliseconds(told().user_ticks)); break;
    case TASKINFO_SYSTIME_HI: value = high_half(root_.milliseconds(told().system_ticks)); break;
    case TASKINFO_SYSTIME_LO: value = low_half(root_.milliseconds(told().system_ticks)); break;
    case TASKINFO_ISRTIME_HI:
    case TASKINFO_ISRTIME_LO: value = 0; break;
    case TASKINFO_THREADS: value = told().threads; break;
    case TASKINFO_MEMOS: value = memos(); break;
    case TASKINFO_PAGEFAULTS_HI: value = high_half(told().page_faults()); break;
    case TASKINFO_PAGEFAULTS_LO: value = low_half(told().page_faults()); break;
    case TASKINFO_SYSCALLS_HI: value = high_half(system_calls()); break;
    case TASKINFO_SYSCALLS_LO: value = low_half(system_calls()); break;
    case TASKINFO_CRTICK_HI: value = high_half(root_.milliseconds(told().start_ticks)); break;
    case TASKINFO_CRTICK_LO: value = low_half(root_.milliseconds(told().start_ticks)); break;
    case TASKINFO_VOLCTXSW_HI: value = high_half(switches().voluntary); break;
    case TASKINFO_VOLCTXSW_LO: value = low_half(switches().voluntary); break;
    case TASKINFO_INVCTXSW_HI: value = high_half(switches().involuntary); break;
    case TASKINFO_INVCTXSW_LO: value = low_half(switches().involuntary); break;
    case TASKINFO_GROUP: value = told().group; break;
    case TASKINFO_PARENT: value = told().parent; break;
    case TASKINFO_IDS: value = has_gone() || !owner_known_ ? 0 : (group_ & 0xFFFFu) << 16 | (user_ & 0xFFFFu); break;
    default: return RESULT_NO_ITEM;
    }
    return RESULT_SUCCESS;
}

// The system keeps so many characters of a command's name. Where a name may have been cut, the program is asked what it
// was started as; an answer that does not begin with the name is about something else.
bool process::name(std::string &out) {
    if (stat() == nullptr) return false;
    const std::string kept(stat()->name());
    std::string whole = kept;
    if (kept.size() == COMMAND_NAME_LENGTH && !stat()->is_kernel_thread()) {
        const auto longer = [&](std::string_view candidate) {
            candidate = base_name(candidate).substr(0, NAME_MAX);
            if (!candidate.starts_with(kept)) return false;
            whole = candidate;
            return true;
        };
        // A script's name stands behind its interpreter's, and behind the one option that this may have been given.
        std::string_view text;
        bool found = false;
        if (root_.reader.read_front(directory(), "cmdline", text) != 0) text = {};
        for (int argument = 0; !found && argument < 3 && !text.empty(); argument++) {
            const size_t length = std::min(text.find('\0'), text.size());
            found = longer(text.substr(0, length));
            text.remove_prefix(std::min(length + 1, text.size()));
        }
        char target[PATH_MAX];
        const ssize_t length = found ? -1 : readlinkat(directory(), "exe", target, sizeof target);
        if (length > 0) {
            constexpr std::string_view gone = " (deleted)";
            std::string_view path(target, static_cast<size_t>(length));
            if (path.ends_with(gone)) path.remove_suffix(gone.size());
            longer(path);
        }
    }
    clean(whole);
    out = std::move(whole);
    return true;
}

// ---- threads --------------------------------------------------------------------------------------------------------

bool thread::open(int tasks, int id, int owner) {
    call_read_ = switches_read_ = reading::not_yet;
    owner_ = owner;
    return id > 0 && proc_object::open(tasks, numbered_path(id).c_str(), id);
}

bool thread::open(int id) {
    call_read_ = switches_read_ = reading::not_yet;
    owner_ = 0;
    if (id <= 0) return false;
    const std::string own = "/task/" + std::to_string(id);
    if (!proc_object::open(root_.directory(), numbered_path(id, own).c_str(), id)) return false;
    std::string_view text;
    read("status", text);
    owner_ = static_cast<int>(value_of(text, "\nTgid:"));
    return true;
}

uint64_t thread::state() {
    if (has_gone()) return THREADSTATE_NOWHERE;
    if (number() == gettid()) return THREADSTATE_RUNNING;
    switch (told().state) {
    case 'R': return THREADSTATE_READY;
    case 'D':
    case 'T':
    case 't': return THREADSTATE_BLOCKED;
    case 'Z': return THREADSTATE_NOWHERE;
    default: return THREADSTATE_WAIT;
    }
}

const blocked_call &thread::call() {
    if (call_read_ == reading::not_yet) {
        std::string_view text;
        call_read_ = read("syscall", text);
        call_ = parse_blocked_call(text);
    }
    return call_;
}

const switch_counts &thread::switches() {
    if (switches_read_ == reading::not_yet) {
        std::string_view text;
        switches_read_ = read("status", text);
        switches_ = parse_switches(text);
    }
    return switches_;
}

uint64_t thread::item(uint64_t item, uint64_t &value) {
    switch (item) {
    case OBJINFO_HANDLE: value = THREAD_HANDLES.first + static_cast<uint64_t>(number()); break;
    case OBJINFO_OWNER: value = static_cast<uint64_t>(owner_); break;
    case OBJINFO_STATE: value = state(); break;
    case THREADINFO_PRIORITY: value = told().task_priority(); break;
    case THREADINFO_EXETIME: value = root_.milliseconds(told().user_ticks + told().system_ticks); break;
    case THREADINFO_ERROR:
    case THREADINFO_DEPTH: value = 0; break;
    case THREADINFO_PC: value = call().program_counter; break;
    case THREADINFO_STACKPTR: value = call().stack_pointer; break;
    case THREADINFO_WAITON:
    case THREADINFO_WAITON_MASTER: value = call().waited_address(); break;
    case THREADINFO_VOLCTXSW_HI: value = high_half(switches().voluntary); break;
    case THREADINFO_VOLCTXSW_LO: value = low_half(switches().voluntary); break;
    case THREADINFO_INVCTXSW_HI: value = high_half(switches().involuntary); break;
    case THREADINFO_INVCTXSW_LO: value = low_half(switches().involuntary); break;
    default: return RESULT_NO_ITEM;
    }
    return RESULT_SUCCESS;
}

}  // namespace hosted::live
