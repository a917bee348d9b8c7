// tests/sweep/sweep.cpp - runs every baseline again and again, each time with another kernel call or allocation
// failing, and checks that the command ends as it promises.
//
//   ventix_sweep [--of CASES] [--sample SEED] [--words | --bytes | --memory]
//   ventix_sweep --only CASES:LINE [--persistent]
//                [--call N --result R | --alloc N [--memory] | --place MESSAGE WORD VALUE]
//   ventix_sweep --promises
//   ventix_sweep --list
//
// A baseline is one run of tests/cases. Its n-th kernel call fails, for every n, with each result that makes sense for
// it; its n-th allocation fails, for every n. Either fails once, or from there on: every later call for which that
// result makes sense fails too. A baseline of more than MOST_SWEPT calls only repeats itself and is left out of this.
// Allocations inside a kernel call belong to the kernel and do not fail. Every run is a fork of one process in which
// the machine is ready. --of takes the baselines whose names begin so, --sample a small part of the runs, chosen by the
// seed. --only does the one run that a finding names and shows its output and its kernel calls. --promises and --list
// print what the random runs need.
//
// Deliberate: a run may wait for ever, with status 124, for the answer to the open of a look-up that could not be sent.
// The client library does not examine that send, as its contract says.
//
// With --memory the allocations of the kernel count too, and the baselines on the live machine take part.
//
// With --bytes nothing fails, but a server writes where it should not: at the first message of each code and command
// that a tool receives, each word of the message, of the request that it completes, of its payload, of the device
// record and of the client context becomes each of the values that are most likely to mislead. Addresses in the answer
// to an open or to the creation of a request are trusted; everything later is not.
//
// With --words nothing fails: each baseline is run with each word replaced by every absurd one, and the first of each
// command and machine also with every option of its command put in, alone and with every absurd argument.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "case_file.h"
#include "failing_allocations.h"
#include "hosted/boot.h"
#include "hosted/kernel/run.h"
#include "main/tools.h"
#include "platform/protocol/device.h"
#include "sweep/server_memory.h"

// ---- settings of the sanitizers -------------------------------------------------------------------------------------

extern "C" const char *__asan_default_options();
extern "C" const char *__asan_default_options() {
    return "detect_leaks=0:allocator_may_return_null=1:exitcode=99:quarantine_size_mb=1:malloc_context_size=0";
}

namespace {

using hosted::call;

// ---- runs and their outcomes ----------------------------------------------------------------------------------------

struct baseline {
    std::string name;     // CASES:LINE
    std::string machine;  // as the case names it
    std::vector<std::string> words;
    bool is_first = false;  // of its command on its machine
};

bool is_live(const baseline &base) { return base.machine == "live"; }

struct failure {
    uint64_t call = 0;   // number of the kernel call, from 1; 0: none
    uint64_t alloc = 0;  // of the allocation
    uint64_t result = 0;
    bool persistent = false;
    bool inside = false;   // allocations inside kernel calls count
    uint64_t message = 0;  // number of the message received with which a server writes, from 1; 0: none
    uint64_t word = 0;     // what it writes, of the words within its reach
    uint64_t value = 0;    // index into the hostile values
};

// A message as a server sent it, and how many words it could have written.
struct sighting {
    uint32_t code, command, words;
};

enum kind { port, handle, iterator, semaphore, device, request, KINDS };
constexpr const char *kind_names[] = {"port", "handle", "iterator", "semaphore", "device", "request"};
using left_open = std::array<uint64_t, KINDS>;

constexpr size_t MOST_CALLS = 1 << 16, MOST_MESSAGES = 1 << 12;

// Filled in by a run, in memory that it shares with the process that started it.
struct report {
    uint64_t calls;
    uint64_t allocations;
    uint64_t milliseconds;  // of the virtual clock
    bool over_budget;
    bool finished;      // the command returned, or left by exit()
    bool failed;        // a call or an allocation was made to fail
    uint64_t failures;  // calls that failed where some were made to, a bit each
    bool lost_open;     // an open that no server answers: it could not be sent, or had no reply port
    left_open left;
    int64_t taken;      // semaphores taken and not given back
    uint64_t messages;  // received
    char finding[240];  // a misuse of the kernel; empty: none
    call made[MOST_CALLS];
    sighting received[MOST_MESSAGES];
};

struct outcome {
    int status = 0;  // 128 + signal
    std::string output, diagnostics;
};

// ---- results that make sense ----------------------------------------------------------------------------------------

// Of a call that returns a handle, the last error after -1; of a state item, its value.
std::vector<uint64_t> sensible_results(call which) {
    switch (which) {
    case call::create_msg_port:
    case call::create_handle:
    case call::create_iterator:
    case call::get_address_memo: return {RESULT_NO_MEMORY};
    case call::get_state: return {0, NO_OBJECT};
    case call::send_msg: return {2, 5, 6, 293, 310};
    case call::recv_msg:
    case call::recv_msg_ptr:
    case call::wait_semaphore: return {2, 293, 310};
    case call::signal_semaphore: return {2, 310};
    case call::delay: return {310};
    case call::get_last_error: return {};
    default: return {2, 3, 4, 5, 6, 310};
    }
}

uint64_t bit_of(call which) { return uint64_t{1} << static_cast<unsigned>(which); }

bool makes_sense(call which, uint64_t result) {
    const auto results = sensible_results(which);
    return std::find(results.begin(), results.end(), result) != results.end();
}

// ---- what the kernel sees -------------------------------------------------------------------------------------------

class watcher : public hosted::observer {
public:
    watcher(report &to_fill, const failure &planned, uint64_t budget)
        : report_(to_fill), planned_(planned), budget_(budget) {}

    std::optional<uint64_t> begins(call which, std::span<const hosted::argument> arguments) override {
        allocations.counts = false;
        if (report_.calls < MOST_CALLS) report_.made[report_.calls] = which;
        if (++report_.calls > budget_) {
            report_.over_budget = true;
            _exit(0);
        }
        check(which, arguments);
        allocations.counts = planned_.inside;
        if (planned_.call == 0 || report_.calls < planned_.call) return std::nullopt;
        if (report_.calls > planned_.call && !(planned_.persistent && makes_sense(which, planned_.result)))
            return std::nullopt;
        report_.failed = true;
        return planned_.result;
    }

    void ended(call which, std::span<const hosted::argument> arguments, uint64_t result, bool succeeded) override {
        allocations.counts = false;
        const bool opens = which == call::send_msg && arguments[2].value == DEVMSG_OPEN;
        report_.lost_open |= opens && (!succeeded || arguments[1].value == NO_OBJECT);
        if (!succeeded && (planned_.call != 0 || planned_.inside)) report_.failures |= bit_of(which);
        switch (which) {
        case call::create_msg_port: made(port, result); break;
        case call::create_iterator: made(iterator, result); break;
        case call::create_semaphore: made(semaphore, result); break;
        case call::create_handle: made(handle, result, arguments[1].value); break;
        case call::delete_object: deleted(arguments[0].value, arguments[1].value, succeeded); break;
        case call::wait_semaphore: report_.taken += succeeded; break;
        case call::signal_semaphore: --report_.taken; break;  // one that failed was tried
        case call::send_msg: sent(arguments[0].value, arguments[2].value, arguments[3].value); break;
        case call::recv_msg_ptr:
            if (succeeded) received(*const_cast<kernel_message *>(arguments[1].record));
            break;
        case call::recv_msg:
            if (succeeded) received_in_words(arguments.subspan(1));
            break;
        default: break;
        }
        if (log.is_open()) log.write(which, arguments, succeeded, result);
        report_.milliseconds = hosted::running().now() - begun_;
        allocations.counts = true;
    }

    hosted::call_log log;  // of the run that is shown

    void finish() {
        allocations.counts = false;
        report_.finished = true;
        report_.allocations = allocations.seen;
        if (allocations.failing != 0 && allocations.seen >= allocations.failing) report_.failed = true;
        for (const auto &[name, one] : handles_) report_.left[one.what] += one.exists && !one.given_up;
        report_.left[device] = requests_.size();
        for (const auto &[server, count] : requests_) report_.left[request] += count;
    }

private:
    struct own {
        kind what;
        uint64_t object;  // that it names
        bool exists;
        bool given_up;  // its deletion was attempted
    };

    void made(kind what, uint64_t name, uint64_t object = 0) {
        if (name == NO_OBJECT) return;
        const auto stood_for = handles_.find(object);
        handles_[name] = {what,
                          object == 0                   ? name
                          : stood_for == handles_.end() ? object
                                                        : stood_for->second.object,
                          true, false};
    }

    void deleted(uint64_t name, uint64_t flags, bool succeeded) {
        const auto found = handles_.find(name);
        if (found == handles_.end()) return;
        const uint64_t object = found->second.object;
        for (auto &[other, one] : handles_) {
            if (other != name && ((flags & DELETE_OBJECT) == 0 || one.object != object)) continue;
            one.given_up = true;
            if (succeeded) one.exists = false;
        }
    }

    // Deletion of a request, and closing, count when they are asked for: the server may be gone. With a device go its
    // requests; what is left of the task's handle that an open sent is the server's.
    void sent(uint64_t to, uint64_t code, uint64_t word2) {
        memory_.sent(to, code, word2);
        switch (code) {
        case DEVMSG_OPEN: sent_task_ = word2; break;
        case DEVMSG_CREATE_REQUEST: asked_ = to; break;
        case DEVMSG_DELETE_REQUEST:
        case DEVMSG_DELETE_REQUEST_ASYNC:  // sent again where it was interrupted
            if (const auto open = requests_.find(to); open != requests_.end() && open->second > 0) --open->second;
            break;
        case DEVMSG_CLOSE: requests_.erase(to); break;
        default: break;
        }
    }

    void received(kernel_message &message) {
        memory_.received(message);
        if (message.word2 != 0 && message.code == DEVMSG_REQUEST_CREATED) ++requests_[asked_];
        if (message.word2 != 0 && message.code == DEVMSG_OPENED) {
            requests_[reinterpret_cast<const device_record *>(message.word2)->server_port] = 0;
            if (const auto task = handles_.find(sent_task_); task != handles_.end()) task->second.given_up = true;
        }
        meddle(message);
    }

    void received_in_words(std::span<const hosted::argument> words) {
        kernel_message message = {*words[0].output, *words[1].output, *words[2].output};
        received(message);
        const uint64_t written[] = {message.word1, message.code, message.word2};
        for (size_t i = 0; i < std::size(written); ++i) *const_cast<uint64_t *>(words[i].output) = written[i];
    }

    // Writes what the sender of a message should not.
    void meddle(kernel_message &message) {
        const auto areas = memory_.within_reach(message);
        size_t words = 0;
        for (const memory_words area : areas) words += area.size();
        if (report_.messages < MOST_MESSAGES)
            report_.received[report_.messages] = {static_cast<uint32_t>(message.code), memory_.command(),
                                                  static_cast<uint32_t>(words)};
        if (++report_.messages != planned_.message) return;
        size_t word = planned_.word;
        for (const memory_words area : areas) {
            if (word < area.size()) {
                report_.failed = true;
                area[word] = hostile_values(area[word], memory_.record())[planned_.value];
                return;
            }
            word -= area.size();
        }
    }

    // Every call names an object that exists.
    void check(call which, std::span<const hosted::argument> arguments) {
        const auto value = [&](size_t index) { return arguments[index].value; };
        switch (which) {
        case call::create_handle: usable(which, value(1)); break;
        case call::send_msg:
            usable(which, value(0));
            if (value(2) == DEVMSG_OPEN || value(2) == IOMSG_BEGIN || value(2) == IOMSG_ABORT) usable(which, value(1));
            if (value(2) == DEVMSG_CLOSE) usable(which, value(3));
            break;
        case call::delete_object:
        case call::recv_msg:
        case call::recv_msg_ptr:
        case call::wait_semaphore:
        case call::signal_semaphore:
        case call::begin_iterator:
        case call::step_iterator:
        case call::get_iterator_info: usable(which, value(0)); break;
        default: break;
        }
    }

    void usable(call which, uint64_t name) {
        const auto found = handles_.find(name);
        const bool gone = found != handles_.end() && !found->second.exists;
        // A device that finds no memory has no port to name in the registry.
        const bool may_be_none = planned_.inside || (planned_.call != 0 && planned_.result == NO_OBJECT);
        const bool none = name == NO_OBJECT && !may_be_none;
        if ((!gone && !none) || report_.finding[0] != '\0') return;
        std::snprintf(report_.finding, sizeof report_.finding, "call %llu, %s, on 0x%llx, %s",
                      static_cast<unsigned long long>(report_.calls), hosted::call_name(which).data(),
                      static_cast<unsigned long long>(name), gone ? "which is deleted" : "no object");
    }

    report &report_;
    const failure planned_;
    const uint64_t budget_;
    const uint64_t begun_ = hosted::running().now();
    std::map<uint64_t, own> handles_;
    std::map<uint64_t, uint64_t> requests_;  // of the open devices, by their servers' ports
    uint64_t sent_task_ = 0;
    uint64_t asked_ = 0;
    server_memory memory_;
};

// ---- one run --------------------------------------------------------------------------------------------------------

report *shared_report;  // shared with the runs
watcher *watching;

const tool *command_named(const std::string &name) {
    const tool *row = s_tools;
    while (row->name != nullptr && name != row->name) ++row;
    return row->name != nullptr ? row : nullptr;
}

[[noreturn]] void be_the_command(const baseline &base, const failure &planned, uint64_t budget, const char *log) {
    const rlimit seconds = {10, 20};
    setrlimit(RLIMIT_CPU, &seconds);
    alarm(120);  // seconds, for what sleeps on the live machine
    watching = new watcher(*shared_report, planned, budget);
    if (log != nullptr) watching->log.open(log);
    // Skips the destructors of the sanitizers' tables, which would take half of a run's time.
    on_exit(
        [](int status, void *) {
            watching->finish();
            std::fflush(nullptr);
            _exit(status);
        },
        nullptr);
    std::vector<std::string> words = base.words;
    std::vector<char *> arguments;
    for (auto &word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    hosted::observe(watching);
    allocations = {true, 0, planned.alloc, planned.persistent};
    const int status = command_named(words[0])->entry(static_cast<int>(words.size()) - 1, arguments.data() + 1);
    allocations.counts = false;
    std::exit(status);
}

int memory_file(const char *name) { return memfd_create(name, MFD_CLOEXEC); }

std::string content(int descriptor) {
    std::string text(static_cast<size_t>(std::max<off_t>(lseek(descriptor, 0, SEEK_END), 0)), '\0');
    if (pread(descriptor, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size())) text.clear();
    return text;
}

void empty(int descriptor) {
    if (ftruncate(descriptor, 0) != 0) std::perror("ftruncate");
    lseek(descriptor, 0, SEEK_SET);
}

// One run, in a process of its own.
//   log  path of its call log; null: none
outcome run(const baseline &base, const failure &planned, uint64_t budget, const char *log = nullptr) {
    static const int output = memory_file("output"), diagnostics = memory_file("diagnostics");
    empty(output);
    empty(diagnostics);
    std::memset(static_cast<void *>(shared_report), 0, offsetof(report, made));
    const pid_t child = fork();
    if (child == 0) {
        dup2(output, STDOUT_FILENO);
        dup2(diagnostics, STDERR_FILENO);
        be_the_command(base, planned, budget, log);
    }
    int ended = 0;
    waitpid(child, &ended, 0);
    return {WIFEXITED(ended) ? WEXITSTATUS(ended) : 128 + WTERMSIG(ended), content(output), content(diagnostics)};
}

// ---- what the commands promise --------------------------------------------------------------------------------------

// What stays open, as KINDS says. The registry's device does in whoever asks it, and so does the system service's.
constexpr left_open REGISTRY = {0, 0, 0, 0, 1, 0};
constexpr left_open REGISTRY_AND_SERVICE = {0, 0, 0, 0, 2, 0};
constexpr left_open REPLY_PORT = {1, 0, 0, 0, 1, 0};  // the port, but not its handle
constexpr left_open REPLY_PORT_AND_HANDLE = {1, 1, 0, 0, 1, 0};

struct promise {
    const char *command;
    std::vector<int> statuses;                   // besides 0 and 100
    std::vector<const char *> diagnostics = {};  // how its lines on standard error begin, besides its own name
    left_open left = REGISTRY;                   // where it succeeds
    bool may_be_silent = false;                  // about what its status says
    int bad_words = 0;                           // the status that comes without a message about the words
};

const promise promises[] = {
    {.command = "counters", .statuses = {1}, .left = REPLY_PORT, .bad_words = 1},
    {.command = "date", .statuses = {1, 2}, .left = REPLY_PORT_AND_HANDLE, .bad_words = 100},
    {.command = "devping", .statuses = {1, 2}, .bad_words = 100},
    {"devquery", {1, 2}},
    {"dumpktrace", {1, 255}},
    {"free", {1}},
    {"kblayout", {1}},
    {"lscpureg", {1}, {"lsreg: ", "ERROR (0x", "The retrieved maximal register name length", "Could not allocate "}},
    {"lsisr", {1, 101}},
    {"lsmaj", {1}},
    {"lsmem", {1, 101}, {"ERROR: "}},
    {"raiseexc", {1}},
    {"readlog", {1, 2}, {}, REPLY_PORT_AND_HANDLE},
    {"readreg", {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}, {}, REGISTRY, true},  // the number of keys that failed
    {.command = "sendlog", .statuses = {1, 2}, .left = REPLY_PORT_AND_HANDLE, .bad_words = 100},
    {"svccall", {1, 2}, {}, REGISTRY, true},  // an argument that finds no room
    {"svcinfo", {1, 2}},
    {"task", {1, 101}, {"ERROR: "}, REGISTRY_AND_SERVICE},
    {"taskkill", {}},
    {"threads", {1, 101}, {}, REGISTRY, true},  // a thread that cannot be read
    {"tmemo", {1, 101}, {"ERROR: "}},
    {"tprop", {1}},
    {"treereg", {1, 2, 101}, {}, REGISTRY, true},  // its messages are part of the tree, and begin with tree
    {"tview", {1, 101}, {"ERROR: "}},
    {.command = "uptime", .statuses = {}, .bad_words = 100},
};

const promise &promise_of(const std::string &command) {
    const auto *const found = std::find_if(std::begin(promises), std::end(promises),
                                           [&](const promise &one) { return command == one.command; });
    if (found != std::end(promises)) return *found;
    std::fprintf(stderr, "sweep: nobody says what %s promises\n", command.c_str());
    std::exit(1);
}

constexpr int STATUS_DEADLOCK = 124, STATUS_SANITIZER = 99, STATUS_SELF_DELETED = 128 + SIGKILL;
constexpr uint64_t MOST_MILLISECONDS = 60000;  // beyond the baseline's

bool starts_as_promised(std::string_view line, const promise &promised) {
    const std::string own = std::string(promised.command) + ": ";
    return line.starts_with(own) || std::any_of(promised.diagnostics.begin(), promised.diagnostics.end(),
                                                [&](const char *start) { return line.starts_with(start); });
}

// Whether one of these calls failed.
bool has_failed(std::initializer_list<call> calls) {
    return std::any_of(calls.begin(), calls.end(),
                       [](call which) { return (shared_report->failures & bit_of(which)) != 0; });
}

// Where a run that never ends is what the failure has to come to.
bool repeats_for_ever(const baseline &base, const failure &planned) {
    // An interrupted call is repeated by the client library, whatever it costs.
    if (planned.persistent && planned.result == RESULT_INTERRUPTED) return true;
    // A task that cannot be deleted is tried again for as long as its name is found.
    return base.words[0] == "taskkill" && std::find(base.words.begin(), base.words.end(), "-a") != base.words.end();
}

// Whether a wait without end is one that the client library promises: it does not look whether the open of a look-up
// was sent, and a semaphore that could not be given back stays taken.
bool waits_as_promised(const failure &planned, const std::string &diagnostics) {
    const auto waits_in = [&](const char *wait) { return diagnostics.find(wait) != diagnostics.npos; };
    if (planned.message != 0) return true;
    return planned.call != 0 &&
           ((shared_report->lost_open && waits_in("ventix: deadlock: _SL_RecvMsgPtr on port ")) ||
            (has_failed({call::signal_semaphore}) && waits_in("ventix: deadlock: _SL_WaitSemaphore on semaphore ")));
}

// The shared request's lock cannot be taken or given back: the task deletes itself.
bool deletes_itself(const failure &planned) {
    return planned.message != 0 || has_failed({call::wait_semaphore, call::signal_semaphore});
}

// A device is not closed without a port for the reply, nor where its record counts as gone; a request is not deleted
// without the device's semaphore.
bool keeps_open() {
    return has_failed({call::create_msg_port, call::create_handle, call::get_address_memo, call::wait_semaphore});
}

// The complaint about a run; empty: none.
std::string judge(const baseline &base, const failure &planned, const report &plain, const outcome &expected,
                  const outcome &got) {
    const promise &promised = promise_of(base.words[0]);
    if (got.status == STATUS_SANITIZER) return "sanitizer: " + got.diagnostics;
    if (shared_report->over_budget) return repeats_for_ever(base, planned) ? "" : "does not end";
    if (shared_report->finding[0] != '\0' && planned.message == 0) return shared_report->finding;
    if (got.status == STATUS_SELF_DELETED && deletes_itself(planned)) return "";
    if (got.status == STATUS_DEADLOCK && waits_as_promised(planned, got.diagnostics)) return "";
    if (!shared_report->finished) return "ends with status " + std::to_string(got.status) + ": " + got.diagnostics;
    if (shared_report->milliseconds > plain.milliseconds + MOST_MILLISECONDS)
        return "takes " + std::to_string(shared_report->milliseconds) + " ms";

    const auto &statuses = promised.statuses;
    if (got.status != 0 && got.status != 100 &&
        std::find(statuses.begin(), statuses.end(), got.status) == statuses.end())
        return "ends with status " + std::to_string(got.status);
    std::istringstream diagnostics(got.diagnostics);
    for (std::string line; std::getline(diagnostics, line);) {
        if (!starts_as_promised(line, promised)) return "says: " + line;
    }
    const bool said = !got.diagnostics.empty() || got.output.find(base.words[0] + ": ") != std::string::npos;
    if (got.status != 0 && got.status != expected.status && !said && !promised.may_be_silent)
        return "status " + std::to_string(got.status) + " without a word";

    if (planned.message != 0) return "";  // what a server has overwritten may stay open
    if (shared_report->taken > 0) return "keeps a semaphore";
    for (size_t i = 0; got.status == 0 && i < KINDS; ++i) {
        const uint64_t allowed = planned.call == 0 && planned.alloc == 0 ? promised.left[i] : plain.left[i];
        if (shared_report->left[i] > allowed && !(i >= device && keeps_open()))
            return "leaves " + std::to_string(shared_report->left[i]) + " " + kind_names[i];
    }
    return "";
}

// ---- words ----------------------------------------------------------------------------------------------------------

// In the place of a number, a name, a list or a path.
std::vector<std::string> absurd_words() {
    constexpr size_t MEGABYTE = 1 << 20;
    auto words = *shell_words(
        "'' - -- 0 -0 -1 + 7 4294967296 2147483648 -9223372036854775808 18446744073709551615 18446744073709551616 0x 08 "
        "0xFFFFFFFFFFFFFFFF 1e9 1M 9999999Y ' 1 ' , a,b,c,, 0, 1,desc,desc fancyw = a= / //../..// %n%s%p "
        "'\xFF\x80\t\x1B[2J'");
    for (const char c : {'x', '9', '/', ','}) words.emplace_back(MEGABYTE, c);
    return words;
}

// The options that a help text lists, and some that it does not.
std::set<std::string> options_in(const std::string &help) {
    constexpr std::string_view letters = "-ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";
    std::set<std::string> options = {"--none", "---", "-?", "-\xFF"};
    for (size_t at = 0; (at = help.find(" -", at)) != help.npos;) {
        const size_t end = std::min(help.find_first_not_of(letters, ++at), help.size());
        if (end - at > 1) options.insert(help.substr(at, end - at));
    }
    return options;
}

// ---- the sweep ------------------------------------------------------------------------------------------------------

struct totals {
    std::atomic<uint64_t> next;  // baseline to take
    std::atomic<uint64_t> runs, calls, allocs, findings;
    std::atomic<bool> met[1 << 22];  // hashes of the messages that have been overwritten
};

std::string arguments_of(const baseline &base, const failure &planned) {
    std::string text = "--only \"" + base.name + "\"";
    if (planned.alloc != 0) text += " --alloc " + std::to_string(planned.alloc) + (planned.inside ? " --memory" : "");
    if (planned.message != 0)
        text += " --place " + std::to_string(planned.message) + ' ' + std::to_string(planned.word) + ' ' +
                std::to_string(planned.value);
    if (planned.call != 0)
        text += " --call " + std::to_string(planned.call) + " --result " +
                (planned.result == NO_OBJECT ? "-1" : std::to_string(planned.result));
    return planned.persistent ? text + " --persistent" : text;
}

void prepare(const baseline &base) {
    hosted::fault_list faults;
    std::string message;
    std::string path = VENTIX_SOURCE_DIR "/tests/machines/" + base.machine;
    if (base.machine == "demo") path = VENTIX_SOURCE_DIR "/machines/demo.json";
    if (base.machine[0] == '{') {
        path = std::filesystem::temp_directory_path() / ("ventix-sweep." + std::to_string(getpid()) + ".json");
        std::ofstream(path, std::ios::binary) << base.machine;
    }
    auto machine =
        is_live(base) ? hosted::make_live_machine(message) : hosted::make_described_machine(path, "", faults, message);
    if (base.machine[0] == '{') std::filesystem::remove(path);
    if (!machine) {
        std::fprintf(stderr, "sweep: %s\n", message.c_str());
        std::exit(1);
    }
    hosted::install(std::move(machine), std::move(faults));
}

constexpr uint64_t PLAIN_BUDGET = 100000;  // kernel calls
constexpr uint64_t CALLS_PER_WORD = 1000;
constexpr uint64_t MOST_SWEPT = 5000;
constexpr uint64_t SAMPLED_BASELINES = 4;  // a sample takes one baseline of so many,
constexpr uint64_t SAMPLED_PART = 15;      // and of its runs one of so many

// Kernel calls that a run may make. What fails may be done in another way, but not repeated endlessly; a server may
// name a high count of what it lists, and a live machine may have more processes than before.
uint64_t budget_of(const baseline &base, const failure &planned, const report &plain) {
    return planned.message != 0 || is_live(base) ? PLAIN_BUDGET : plain.calls * 2 + 2000;
}

class sweep {
public:
    sweep(totals &sums, uint64_t seed, uint64_t part) : sums_(sums), seed_(seed), part_(part) {}

    void over(const baseline &base, uint64_t index) {
        if (!takes(base, index)) return;
        expected_ = run(base, {}, PLAIN_BUDGET);
        plain_ = std::make_unique<report>(*shared_report);
        ++sums_.runs;
        print_finding(base, {}, judge(base, {}, *plain_, expected_, expected_));
        if (plain_->calls > MOST_SWEPT) return;
        for (uint64_t n = 1; n <= plain_->calls; ++n) {
            for (const uint64_t result : sensible_results(plain_->made[n - 1])) {
                for (const bool persistent : {false, true})
                    fail(base, {.call = n, .result = result, .persistent = persistent});
            }
        }
        for (uint64_t n = 1; n <= plain_->allocations; ++n) {
            for (const bool persistent : {false, true}) fail(base, {.alloc = n, .persistent = persistent});
        }
    }

    void over_memory(const baseline &base, uint64_t index) {
        if (!takes(base, index)) return;
        expected_ = run(base, {.inside = true}, PLAIN_BUDGET);
        plain_ = std::make_unique<report>(*shared_report);
        for (uint64_t n = 1; n <= plain_->allocations; ++n) {
            for (const bool persistent : {false, true})
                fail(base, {.alloc = n, .persistent = persistent, .inside = true});
        }
    }

    void over_bytes(const baseline &base, uint64_t index) {
        if (!takes(base, index)) return;
        expected_ = run(base, {}, PLAIN_BUDGET);
        plain_ = std::make_unique<report>(*shared_report);
        for (uint64_t n = 0; n < std::min<uint64_t>(plain_->messages, MOST_MESSAGES); ++n) {
            const sighting &seen = plain_->received[n];
            std::string name = base.words[0];
            for (const uint32_t part : {seen.code, seen.command, seen.words}) name += ' ' + std::to_string(part);
            if (sums_.met[std::hash<std::string>()(name) % std::size(sums_.met)].exchange(true)) continue;
            for (uint64_t word = 0; word < seen.words; ++word) {
                for (size_t value = 0; value < HOSTILE_VALUES; ++value)
                    fail(base, {.message = n + 1, .word = word, .value = value});
            }
        }
    }

    void over_words(const baseline &base, uint64_t index) {
        if (!takes(base, index)) return;
        baseline help = base;
        help.words.resize(1);
        help.words.emplace_back("--help");
        const std::vector<std::string> absurd = absurd_words();
        const auto put = [&](size_t at, size_t replaced, const std::vector<std::string> &words) {
            baseline tried = base;
            const auto place = tried.words.begin() + static_cast<std::ptrdiff_t>(at);
            const auto free = tried.words.erase(place, place + static_cast<std::ptrdiff_t>(replaced));
            tried.words.insert(free, words.begin(), words.end());
            try_words(tried);
        };
        std::set<std::string> options;
        if (base.is_first) options = options_in(run(help, {}, PLAIN_BUDGET).output);
        for (const std::string &option : options) {
            put(1, 0, {option});
            put(base.words.size(), 0, {option});
            for (const std::string &word : absurd) {
                put(1, 0, {option, word});
                if (option.starts_with("--")) put(1, 0, {option + '=' + word});
            }
        }
        for (size_t i = 1; i < base.words.size(); ++i) {
            for (const std::string &word : absurd) put(i, 1, {word});
        }
        put(base.words.size(), 0, std::vector<std::string>(40 * 256, "x"));  // readreg counts failures in 8 bits
    }

private:
    bool takes(const baseline &base, uint64_t index) {
        random_.seed(seed_ + index);
        if (part_ > 1 && random_() % SAMPLED_BASELINES != 0) return false;
        prepare(base);
        return true;
    }

    void try_words(const baseline &tried) {
        if (part_ > 1 && random_() % (part_ * 2) != 0) return;  // there are far more of these
        const outcome got = run(tried, {}, PLAIN_BUDGET + tried.words.size() * CALLS_PER_WORD);
        ++sums_.runs;
        const promise &promised = promise_of(tried.words[0]);
        std::string wrong = judge(tried, {}, *shared_report, {promised.bad_words, "", ""}, got);
        // Whoever names task 0 names the calling one, and all ones are no object for anybody.
        const bool named =
            got.status == STATUS_SELF_DELETED || std::string_view(shared_report->finding).ends_with("no object");
        if (wrong.empty() || (tried.words[0] == "taskkill" && named)) return;
        for (const std::string &word : tried.words) wrong += " '" + word.substr(0, 60) + "'";
        print_finding(tried, {}, wrong);
    }

    void fail(const baseline &base, const failure &planned) {
        if (part_ > 1 && random_() % part_ != 0) return;
        const outcome got = run(base, planned, budget_of(base, planned, *plain_));
        ++sums_.runs;
        sums_.calls += planned.call != 0;
        sums_.allocs += planned.alloc != 0;
        std::string wrong = judge(base, planned, *plain_, expected_, got);
        const bool is_late = !shared_report->failed && !shared_report->over_budget && shared_report->finished;
        if (wrong.empty() && is_late && !is_live(base)) wrong = "the failure did not come";
        print_finding(base, planned, wrong);
    }

    void print_finding(const baseline &base, const failure &planned, const std::string &wrong) {
        if (wrong.empty()) return;
        ++sums_.findings;
        std::string text = "FINDING " + arguments_of(base, planned);
        if (planned.call != 0) text += " (" + std::string(hosted::call_name(plain_->made[planned.call - 1])) + ")";
        text += ": " + wrong + "\n";
        if (write(STDOUT_FILENO, text.data(), text.size()) < 0) std::exit(1);
    }

    totals &sums_;
    const uint64_t seed_, part_;
    std::mt19937_64 random_;
    std::unique_ptr<report> plain_;
    outcome expected_;
};

// ---- the list of baselines ------------------------------------------------------------------------------------------

// The cases that run a command, write no file of the system and end by themselves.
std::vector<baseline> read_baselines() {
    std::vector<std::filesystem::path> files;
    for (const auto &entry : std::filesystem::directory_iterator(VENTIX_SOURCE_DIR "/tests/cases"))
        files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    std::vector<baseline> list;
    std::set<std::string> seen;
    for (const auto &path : files) {
        if (path.stem() == "hostile") continue;
        std::ifstream file(path, std::ios::binary);
        for (const auto &test : case_reader().read({std::istreambuf_iterator<char>(file), {}})) {
            baseline base = {path.stem().string() + ':' + std::to_string(test.line), test.machine,
                             *shell_words(test.command), false};
            base.machine.pop_back();
            if (!base.words.empty() && base.words.back() == ">/dev/null") base.words.pop_back();
            if (base.words.empty() || !command_named(base.words[0]) || test.status > 101 ||
                base.words.back().starts_with(">/") || base.machine.find("\"faults\"") != base.machine.npos)
                continue;
            const std::string machine = base.machine[0] == '{' ? "" : base.machine;
            base.is_first = seen.insert(machine + ' ' + base.words[0]).second;
            list.push_back(base);
        }
    }
    return list;
}

baseline baseline_named(const std::string &name) {
    for (const baseline &base : read_baselines()) {
        if (base.name == name) return base;
    }
    std::fprintf(stderr, "sweep: no baseline %s\n", name.c_str());
    std::exit(1);
}

// ---- the ways to start it -------------------------------------------------------------------------------------------

int only(const std::string &line, const failure &planned) {
    const baseline base = baseline_named(line);
    prepare(base);
    const outcome plain = run(base, {}, PLAIN_BUDGET);
    const auto before = std::make_unique<report>(*shared_report);
    // The parent's standard error: the run's own is judged.
    const std::string log = "/proc/" + std::to_string(getpid()) + "/fd/2";
    const outcome got = run(base, planned, budget_of(base, planned, *before), log.c_str());
    std::printf("%s%s", got.output.c_str(), got.diagnostics.c_str());
    std::printf("status %d, %llu kernel calls, %llu allocations, %llu ms\n", got.status,
                static_cast<unsigned long long>(shared_report->calls),
                static_cast<unsigned long long>(shared_report->allocations),
                static_cast<unsigned long long>(shared_report->milliseconds));
    const std::string wrong = judge(base, planned, *before, plain, got);
    std::printf("%s\n", wrong.empty() ? "as promised" : wrong.c_str());
    return wrong.empty() ? 0 : 1;
}

// One line a command, for programs that judge runs of another kind: its name and the statuses it may end with.
int list_promises() {
    for (const promise &one : promises) {
        std::printf("%s 0 100", one.command);
        for (const int status : one.statuses) std::printf(" %d", status);
        std::printf("\n");
    }
    return 0;
}

// One line a baseline: its machine, if it has a name, and its words, each with a NUL after it.
int list_baselines() {
    for (const baseline &base : read_baselines()) {
        std::printf("%s%c", base.machine[0] == '{' ? "" : base.machine.c_str(), '\0');
        for (const std::string &word : base.words) std::printf("%s%c", word.c_str(), '\0');
        std::printf("\n");
    }
    return 0;
}

void *shared(size_t size) {
    void *memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory != MAP_FAILED) return memory;
    std::perror("sweep: mmap");
    std::exit(1);
}

using way = void (sweep::*)(const baseline &base, uint64_t index);

int all(const std::vector<baseline> &list, way over, uint64_t seed, uint64_t part, totals &sums) {
    for (long i = std::max(sysconf(_SC_NPROCESSORS_ONLN), 1L); i > 0; --i) {
        if (fork() != 0) continue;
        shared_report = static_cast<report *>(shared(sizeof *shared_report));
        sweep one(sums, seed, part);
        for (uint64_t index; (index = sums.next++) < list.size();) (one.*over)(list[index], index);
        _exit(0);
    }
    bool complete = true;
    for (int ended = 0; wait(&ended) > 0;) complete &= ended == 0;
    return complete && sums.next >= list.size() ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) {
    setenv("TZ", "UTC", 1);
    unsetenv("SYSVC_DEVICE_NAME");
    shared_report = static_cast<report *>(shared(sizeof *shared_report));
    auto &sums = *new (shared(sizeof(totals))) totals;

    std::string line, cases, mode;
    failure planned;
    uint64_t seed = 0, part = 1;
    way over = &sweep::over;
    for (int i = 1; i < argc; ++i) {
        const std::string_view option = argv[i];
        const auto operand = [&] {
            if (i + 1 < argc) return argv[++i];
            std::fprintf(stderr, "sweep: %s: operand missing\n", argv[i]);
            std::exit(2);
        };
        const auto number = [&] { return std::strtoull(operand(), nullptr, 0); };
        if (option == "--only")
            line = operand();
        else if (option == "--of")
            cases = operand();
        else if (option == "--call")
            planned.call = number();
        else if (option == "--alloc")
            planned.alloc = number();
        else if (option == "--result")
            planned.result = number();
        else if (option == "--persistent")
            planned.persistent = true;
        else if (option == "--sample")
            seed = number(), part = SAMPLED_PART;
        else if (option == "--words")
            over = &sweep::over_words, mode = " --words";
        else if (option == "--memory")
            over = &sweep::over_memory, planned.inside = true, mode = " --memory";
        else if (option == "--bytes")
            over = &sweep::over_bytes, mode = " --bytes";
        else if (option == "--place")
            planned.message = number(), planned.word = number(), planned.value = number();
        else if (option == "--promises")
            return list_promises();
        else if (option == "--list")
            return list_baselines();
        else
            return std::fprintf(stderr, "sweep: unknown: %s\n", argv[i]), 2;
    }
    if (!line.empty()) return only(line, planned);

    auto list = read_baselines();
    std::erase_if(list, [&](const baseline &one) {
        return !one.name.starts_with(cases) || (is_live(one) && over != &sweep::over_memory);
    });
    std::printf("sweep%s: ", mode.c_str());
    if (part > 1) std::printf("seed %llu, ", static_cast<unsigned long long>(seed));
    std::fflush(stdout);
    const int failed = all(list, over, seed, part, sums);
    std::printf("%zu baselines, %llu runs, %llu kernel calls and %llu allocations failed, %llu findings\n", list.size(),
                static_cast<unsigned long long>(sums.runs), static_cast<unsigned long long>(sums.calls),
                static_cast<unsigned long long>(sums.allocs), static_cast<unsigned long long>(sums.findings));
    return failed != 0 || sums.findings != 0 || list.empty() ? 1 : 0;
}
