// hosted/live/thread.cpp - the items of threads.
#include "hosted/live/thread.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <span>
#include <string>

#include "hosted/live/handles.h"
#include "hosted/live/scanner.h"
#include "platform/kernel.h"

namespace hosted::live {

namespace {

// The system calls whose first argument is the address that the thread waits on: a futex, the list of a poll, the
// signal set of a sigtimedwait. Later calls have one number on every processor.
constexpr uint64_t FUTEX_WAIT_VECTOR = 449, FUTEX_WAIT = 455;
constexpr uint64_t NATIVE_WAITS[] = {SYS_futex,
#ifdef SYS_poll
                                     SYS_poll,
#endif
                                     SYS_ppoll, SYS_rt_sigtimedwait, FUTEX_WAIT_VECTOR, FUTEX_WAIT};

// The same of the 32-bit interface, which has numbers of its own: futex, poll, ppoll and sigtimedwait, those with times
// of 64 bits last.
#if defined(__aarch64__)
constexpr uint64_t PPOLL_32 = 336;
#else
constexpr uint64_t PPOLL_32 = 309;
#endif
constexpr uint64_t WAITS_32[] = {240, 168, PPOLL_32, 177, 422, 414, 421, FUTEX_WAIT_VECTOR, FUTEX_WAIT};

// The waits of the interface that an instruction calls, by its last two bytes. The system returns after such an
// instruction from every call, also from one that was made in another way (sysenter).
std::span<const uint64_t> waits_of(unsigned char last_but_one, unsigned char last) {
#if defined(__x86_64__)
    if (last_but_one == 0x0F && last == 0x05) return NATIVE_WAITS;  // syscall
    if (last_but_one == 0xCD && last == 0x80) return WAITS_32;      // int 0x80
#elif defined(__aarch64__)
    if (last == 0xD4) return NATIVE_WAITS;              // svc
    if (last == 0xEF || last == 0xDF) return WAITS_32;  // svc of A32 and of T32
#endif
    static_cast<void>(last_but_one);
    return {};
}

bool is_one_of(uint64_t number, std::span<const uint64_t> calls) {
    return std::find(calls.begin(), calls.end(), number) != calls.end();
}

}  // namespace

// "running", or "NUMBER ARGUMENT ... STACK-POINTER PROGRAM-COUNTER"; without arguments outside a call.
blocked_call parse_blocked_call(std::string_view text) {
    blocked_call call;
    scanner scan(text);
    if (!scan.integer(call.number)) return call;
    uint64_t words[8] = {};
    size_t count = 0;
    for (; count < std::size(words); ++count) {
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

bool thread::open(int tasks, int id, int owner) {
    owner_ = owner;
    owner_read_ = outcome::done;
    call_read_ = switches_read_ = outcome::unread;
    return id > 0 && proc_object::open(tasks, numbered_path(id).c_str(), id);
}

bool thread::open_only(int process, int id) {
    owner_ = id;
    owner_read_ = outcome::done;
    call_read_ = switches_read_ = outcome::unread;
    return proc_object::open(process, ("task/" + std::to_string(id)).c_str(), id);
}

bool thread::open(int id) {
    owner_read_ = call_read_ = switches_read_ = outcome::unread;
    const std::string own = "/task/" + std::to_string(id);
    return id > 0 && proc_object::open(root_.directory(), numbered_path(id, own).c_str(), id);
}

int thread::owner() {
    if (owner_read_ == outcome::unread) {
        std::string_view text;
        owner_read_ = read("status", text);
        owner_ = static_cast<int>(value_of(text, "\nTgid:"));
    }
    return owner_;
}

uint64_t thread::state() {
    if (has_gone()) return THREADSTATE_NOWHERE;
    if (number() == gettid()) return THREADSTATE_RUNNING;
    switch (stat_or_zeros().state) {
    case 'R': return THREADSTATE_READY;
    case 'D':
    case 'T':
    case 't': return THREADSTATE_BLOCKED;
    case 'Z': return THREADSTATE_NOWHERE;
    default: return THREADSTATE_WAIT;
    }
}

const blocked_call &thread::call() {
    if (call_read_ == outcome::unread) {
        std::string_view text;
        call_read_ = read("syscall", text);
        call_ = parse_blocked_call(text);
    }
    return call_;
}

// What a call's number means depends on the interface that made the call. A program may use both.
uint64_t thread::waited_address() {
    const blocked_call &now = call();
    if (!now.blocked || !(is_one_of(now.number, NATIVE_WAITS) || is_one_of(now.number, WAITS_32))) return 0;
    const descriptor memory = open_file(directory(), "mem");
    note(memory ? 0 : errno);
    unsigned char instruction[2] = {};
    if (!memory || now.program_counter < sizeof instruction) return 0;
    const auto at = static_cast<off_t>(now.program_counter - sizeof instruction);
    if (pread(memory.get(), instruction, sizeof instruction, at) != sizeof instruction) return 0;
    return is_one_of(now.number, waits_of(instruction[0], instruction[1])) ? now.arguments[0] : 0;
}

const switch_counts &thread::switches() {
    if (switches_read_ == outcome::unread) {
        std::string_view text;
        switches_read_ = read("status", text);
        switches_ = parse_switches(text);
    }
    return switches_;
}

uint64_t thread::item(uint64_t item, uint64_t &value) {
    uint64_t read = 0;
    failure_ = RESULT_SUCCESS;
    switch (item) {
    case OBJINFO_HANDLE: read = THREAD_HANDLES.first + static_cast<uint64_t>(number()); break;
    case OBJINFO_OWNER: read = static_cast<uint64_t>(owner()); break;
    case OBJINFO_STATE: read = state(); break;
    case THREADINFO_PRIORITY: read = stat_or_zeros().task_priority(); break;
    case THREADINFO_EXETIME:
        read = root_.milliseconds(stat_or_zeros().user_ticks + stat_or_zeros().system_ticks);
        break;
    case THREADINFO_ERROR:
    case THREADINFO_DEPTH: break;
    case THREADINFO_PC: read = call().program_counter; break;
    case THREADINFO_STACKPTR: read = call().stack_pointer; break;
    case THREADINFO_WAITON:
    case THREADINFO_WAITON_MASTER: read = waited_address(); break;
    case THREADINFO_VOLCTXSW_HI: read = high_half(switches().voluntary); break;
    case THREADINFO_VOLCTXSW_LO: read = low_half(switches().voluntary); break;
    case THREADINFO_INVCTXSW_HI: read = high_half(switches().involuntary); break;
    case THREADINFO_INVCTXSW_LO: read = low_half(switches().involuntary); break;
    default: return RESULT_NO_ITEM;
    }
    if (failure_ == RESULT_SUCCESS) value = read;
    return failure_;
}

}  // namespace hosted::live
