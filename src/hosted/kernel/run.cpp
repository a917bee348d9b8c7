// hosted/kernel/run.cpp - the environment, the start of a run and its ends.
#include "hosted/kernel/run.h"

#include <sys/auxv.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <string>
#include <string_view>

#include "hosted/boot.h"
#include "hosted/nearest.h"
#include "hosted/output.h"
#include "hosted/wire/guest.h"

namespace hosted {

std::atomic<run *> current_run = nullptr;

namespace {

constexpr int STATUS_BAD_MACHINE = 125;
constexpr int STATUS_NEVER_ENDS = 124;

std::atomic<uint64_t> runs_made = 0;

// ---- the environment ------------------------------------------------------------------------------------------------

constexpr std::string_view PREFIX = "VENTIX_";
constexpr std::string_view variables[] = {MACHINE_VARIABLE, SAVE_VARIABLE, CALL_LOG_VARIABLE};

// Ends a process that cannot begin its run. Takes no memory.
[[noreturn, gnu::format(printf, 1, 2)]] void refuse(const char *format, ...) {
    va_list words;
    va_start(words, format);
    std::fprintf(stderr, "%s: ", program_name);
    std::vfprintf(stderr, format, words);
    std::fputc('\n', stderr);
    va_end(words);
    _exit(check_output(STATUS_BAD_MACHINE));
}

// The values of the variables, in their order; null for one that is not set.
using settings = std::array<const char *, std::size(variables)>;

// Reads them in one pass. Refuses any other with the prefix: a misspelt one must not lead a command to the live
// machine.
settings read_environment() {
    constexpr size_t most_shown = 200;  // bytes of a name
    settings values{};
    for (char *const *entry = environ; *entry != nullptr; ++entry) {
        if ((*entry)[0] != PREFIX[0]) continue;  // spares measuring every other one
        std::string_view name = *entry;
        if (!name.starts_with(PREFIX)) continue;
        name = name.substr(0, name.find('='));
        if (const auto known = std::ranges::find(variables, name); known != std::end(variables)) {
            const char *&value = values[static_cast<size_t>(known - std::begin(variables))];
            if (value == nullptr && (*entry)[name.size()] == '=') value = *entry + name.size() + 1;
            continue;
        }
        const std::string_view meant = nearest_word(name, variables);
        std::string shown(name.substr(0, most_shown));
        std::ranges::replace_if(
            shown, [](unsigned char c) { return c < ' ' || c > '~'; }, '?');
        refuse("%s: unknown variable; did you mean \"%s\"?", shown.c_str(), meant.data());
    }
    return values;
}

std::unique_ptr<run> make_run(const char *path, const char *save) {
    if (path == nullptr || std::strcmp(path, LIVE_MACHINE) == 0) {
        std::string message;
        auto machine = make_live_machine(message);
        if (!machine) refuse("%s", message.c_str());
        if (*save == '\0') return std::make_unique<run>(std::move(machine));
        refuse("%s: the live machine is not saved; ventix-machine snapshot captures it", SAVE_VARIABLE);
    }
    if (*path == '\0') refuse("%s: empty; name a machine file, or live", MACHINE_VARIABLE);
    fault_list faults;
    std::string message;
    auto machine = make_described_machine(path, save, faults, message);
    if (!machine && guest::is_socket(path)) {
        if (*save != '\0') refuse("%s: a running machine is saved by ventix-machine run --save", SAVE_VARIABLE);
        if (auto way = guest::attach(path, message)) return std::make_unique<run>(std::move(way));
    }
    if (!machine) refuse("%s", message.c_str());
    return std::make_unique<run>(std::move(machine), std::move(faults));
}

void save_at_exit() {
    static_cast<void>(finish(0));  // the status is settled; only the saving is left
}

run *boot() {
    settings values{};
    const auto &[path, save, log] = values;
    try {
        // A process with raised privileges must not read or write files on behalf of its caller.
        if (getauxval(AT_SECURE) == 0) values = read_environment();
        auto made = make_run(path, save == nullptr ? "" : save);
        if (log != nullptr && !made->log.open(log)) {
            std::fprintf(stderr, "%s: %s: %s\n", program_name, log, std::strerror(errno));
            made->failed = true;
        }
        if (made->log.is_open()) made->watched = true;
        std::atexit(save_at_exit);  // a command may leave by exit()
        return made.release();
    } catch (const std::bad_alloc &) {
        refuse("%s: %s", path == nullptr ? LIVE_MACHINE : path, std::strerror(ENOMEM));
    }
}

}  // namespace

// ---- the start ------------------------------------------------------------------------------------------------------

run::run(std::unique_ptr<machine> over, fault_list listed, std::span<std::byte> shared)
    : number(++runs_made), kernel(std::in_place, std::move(over), shared), faults(std::move(listed)),
      watched(!faults.empty()), calls_left(kernel->start().call_budget.value_or(std::numeric_limits<uint64_t>::max())) {
}

run::run(std::unique_ptr<guest> to) : number(++runs_made), attached(std::move(to)), watched(true), calls_left(0) {}

run::~run() = default;

[[gnu::cold, gnu::noinline]] run &begin_run() {
    static std::mutex beginning;
    const std::lock_guard lock(beginning);
    if (current_run.load(std::memory_order_relaxed) == nullptr) current_run.store(boot(), std::memory_order_release);
    return *current_run.load(std::memory_order_relaxed);
}

void install(std::unique_ptr<machine> brought, fault_list faults, std::span<std::byte> shared) {
    shut_down();
    current_run.store(std::make_unique<run>(std::move(brought), std::move(faults), shared).release(),
                      std::memory_order_release);
}

void shut_down() { delete current_run.exchange(nullptr, std::memory_order_acq_rel); }

void observe(observer *watching) {
    run &now = this_run();
    now.watching = watching;
    now.watched = watching != nullptr || !now.faults.empty() || now.log.is_open();
}

// ---- the ends -------------------------------------------------------------------------------------------------------

int finish(int status) {
    run *const ending = current_run.load(std::memory_order_acquire);
    if (ending == nullptr) return status;
    std::string message;
    bool saved = true;
    int log_error = 0;
    {
        std::unique_lock<std::mutex> lock;
        if (ending->kernel) lock = std::unique_lock(ending->kernel->mutex());  // other threads may still be calling
        if (ending->finished) return status;
        ending->finished = true;
        if (ending->kernel) saved = ending->kernel->machine().save(message);
        log_error = ending->log.error();
    }
    if (!saved) std::fprintf(stderr, "%s: %s\n", program_name, message.c_str());
    if (log_error != 0) std::fprintf(stderr, "%s: call log: %s\n", program_name, std::strerror(log_error));
    const bool failed = ending->failed || !saved || log_error != 0;
    return status == 0 && failed ? 1 : status;
}

void end_unreadable(const char *why) { refuse("%s", why); }

[[gnu::cold]] void end_in_call(run &ending, std::unique_lock<std::mutex> &lock, const caller &who, call which,
                               std::span<const argument> arguments) {
    if (ending.log.is_open()) ending.log.write(which, arguments, false, std::nullopt);
    if (lock.owns_lock()) lock.unlock();
    if (who.fate == fate::self_deleted) {
        static_cast<void>(finish(0));
        kill(getpid(), SIGKILL);
        _exit(128 + SIGKILL);  // the first process of a system cannot be killed
    }
    const int status = check_output(STATUS_NEVER_ENDS);
    if (who.fate == fate::endless) {
        std::fprintf(stderr, "%s: endless: %s\n", program_name, call_name(which).data());
    } else {
        const char *object = which == call::wait_semaphore ? "semaphore" : "port";
        std::fprintf(stderr, "%s: deadlock: %s on %s 0x%llx\n", program_name, call_name(which).data(), object,
                     static_cast<unsigned long long>(arguments.empty() ? 0 : arguments[0].value));
    }
    _exit(finish(status));
}

}  // namespace hosted
