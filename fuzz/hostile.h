// hostile.h - a kernel and servers that answer with whatever an input says, for one program to run on.
//
// The kernel calls below stand in the place of the hosted kernel's, so one file of a program includes this. Servers
// keep to the protocol as far as addresses of records go, which their clients have to trust; every other word, text,
// count, code and result may be anything. Each record and request is an allocation of its own, made to size and freed
// when the protocol says so. An obliging kernel and its servers do what is asked, and lie in what they tell alone: more
// of an input is left for that.
#pragma once

#include <cstdlib>
#include <deque>
#include <map>
#include <memory>
#include <unordered_map>

#include "input.h"
#include "platform/device.h"
#include "platform/kernel.h"
#include "platform/protocol/counters.h"
#include "platform/protocol/log.h"
#include "platform/protocol/registry.h"
#include "platform/protocol/rtc.h"
#include "platform/protocol/service.h"
#include "platform/protocol/sysvc.h"
#include "platform/protocol/terminal.h"
#include "platform/registry.h"
#include "platform/sysvc.h"
#include "platform/terminal.h"

// How a run's kernel behaves.
struct hostility {
    std::span<const std::string_view> commands = {};  // that may run; none: all
    bool obliging = false;

    // Answers _SL_GetSystemData; null: with any results and numbers.
    uint64_t (*system_data)(uint64_t group, uint64_t index, uint64_t *value) = nullptr;
};

namespace {

constexpr size_t CALLS = 400;  // that a run may make beyond one for each byte of the input; all others fail
constexpr uint64_t LARGEST_REQUEST = 1 << 20;
constexpr uint64_t UNKNOWN_CODE = 0x7777;
constexpr size_t PAGE = 4096;
constexpr size_t MOST_ENTRIES = 8;  // of a directory

struct block_deleter {
    void operator()(void *block) const { std::free(block); }
};
using block = std::unique_ptr<std::byte, block_deleter>;

block make_block(uint64_t size) { return block(static_cast<std::byte *>(std::calloc(1, size))); }

template <class T> T *in(const block &memory) { return reinterpret_cast<T *>(memory.get()); }

struct request {
    block memory;
    uint64_t size;
};

struct device {
    block record;
    block context;
    block buffer;
    uint64_t buffer_size;
    std::map<uint64_t, request> requests;  // by id
};

// Memory of other programs that clients may be led to: texts without an end, up to where the kernel knows nothing.
alignas(PAGE) std::byte elsewhere[PAGE];

// What one run's kernel holds.
struct world {
    fuzz_input &input;
    const hostility &manner;
    size_t calls_left;
    uint64_t next_handle = 0x1000;
    uint64_t last_error = 0;
    std::unordered_map<uint64_t, uint64_t> ports = {};                     // by handle
    std::unordered_map<uint64_t, std::deque<kernel_message>> queues = {};  // by port
    std::map<uint64_t, device> devices = {};                               // by server port
    uint64_t performed = 0;                                                // the request that was done last
    std::vector<RegIterator> entries = {};  // of an obliging registry: every directory has the last few of them
};

world *now;

bool call_left() { return now->calls_left != 0 && now->calls_left-- != 0; }

uint64_t failure(uint8_t choice) {
    constexpr uint64_t results[] = {RESULT_NO_OBJECT, RESULT_NO_ITEM, RESULT_BAD_ARGUMENT, RESULT_NOT_PERMITTED,
                                    RESULT_NO_MEMORY, RESULT_TIMEOUT, RESULT_INTERRUPTED,  999,
                                    ~uint64_t{0}};
    return now->last_error = results[choice % std::size(results)];
}

// The result of a call: mostly success.
uint64_t result() {
    if (!call_left()) return now->last_error = RESULT_NO_OBJECT;
    if (now->manner.obliging) return RESULT_SUCCESS;
    const uint8_t choice = now->input.byte();
    return choice < 0xE8 ? uint64_t{RESULT_SUCCESS} : failure(choice);
}

// Which way a server goes: 0, the way that the protocol describes, where it obliges.
uint8_t way() { return now->manner.obliging ? uint8_t{0} : now->input.byte(); }

// Any number, more often one at which something may change.
uint64_t number() {
    constexpr uint64_t edges[] = {0,          1,          8,          31,    32,         51,
                                  52,         255,        256,        4096,  0x7FFFFFFF, 0x80000000,
                                  0xFFFFFFFF, 1ULL << 32, 1ULL << 63, ~0ULL, ~0ULL - 1,  SERVICE_CLASS};
    const uint8_t choice = now->input.byte();
    if (choice == 0xFF) return now->input.word();
    return choice < 0xC0 ? choice / 2 : edges[choice % std::size(edges)];
}

uint64_t give(uint64_t *value) {
    const uint64_t status = result();
    if (status == RESULT_SUCCESS) *value = number();
    return status;
}

uint64_t handle() {
    if (result() != RESULT_SUCCESS) return NO_OBJECT;
    return now->next_handle++;
}

uint64_t port_of(uint64_t named) {
    const auto found = now->ports.find(named);
    return found == now->ports.end() ? named : found->second;
}

void post(uint64_t port, uint64_t code, uint64_t word2) { now->queues[port_of(port)].push_back({0, code, word2}); }

// ---- servers --------------------------------------------------------------------------------------------------------

void put(std::span<std::byte> area, size_t offset, const void *value, size_t size) {
    if (offset < area.size()) std::memcpy(area.data() + offset, value, std::min(size, area.size() - offset));
}

template <class T> void put(std::span<std::byte> area, size_t offset, const T &value) {
    put(area, offset, &value, sizeof value);
}

void put_text(std::span<std::byte> area, size_t offset) {
    const std::string_view text = now->input.text(now->input.byte());
    put(area, offset, text.data(), text.size());
}

uint16_t key_type(uint8_t choice) {
    constexpr uint16_t types[] = {REGTYPE_INT, REGTYPE_BIN, REGTYPE_DIR, REGTYPE_TMP, 3};
    return types[choice % std::size(types)];
}

RegIterator read_entry() {
    RegIterator entry{};
    const uint8_t choice = now->input.byte();
    entry.on_entry = choice != 0;
    entry.type = key_type(choice);
    entry.length = static_cast<uint32_t>(number());
    now->input.copy(entry.name, now->input.byte() % (sizeof entry.name + 1));
    return entry;
}

// The entry at a place, or the end. The server keeps the place of the next one in the record.
RegIterator entry_at(size_t place) {
    if (!now->manner.obliging) return read_entry();
    RegIterator entry{};
    if (place < now->entries.size()) entry = now->entries[place];
    entry.server_word = static_cast<uint32_t>(place + 1);
    return entry;
}

// A directory of a path: the longer that is, the fewer entries there are, until they begin anew.
size_t first_entry(std::span<const std::byte> area) {
    const auto *path = reinterpret_cast<const char *>(area.data()) + sizeof(reg_begin_block);
    const size_t length = strnlen(path, area.size() - sizeof(reg_begin_block));
    return length % (now->entries.size() + 1);
}

// What the command asks for, with numbers and texts of the input.
void fill(IOreq &asked, std::span<std::byte> area) {
    const auto address = reinterpret_cast<uint64_t>(area.data());
    switch (asked.command) {
    case REGCMD_CAPS: put(area, 0, reg_caps_block{52U + now->input.byte(), now->input.byte() * 16U, 16}); break;
    case REGCMD_ITERATOR_BEGIN: {
        const size_t place = area.size() < sizeof(reg_begin_block) ? 0 : first_entry(area);
        put(area, offsetof(reg_begin_block, iterator), entry_at(place));
        break;
    }
    case REGCMD_ITERATOR_NEXT: {
        RegIterator entry{};
        constexpr size_t at = offsetof(reg_step_block, iterator);
        if (area.size() >= at + sizeof entry) std::memcpy(&entry, area.data() + at, sizeof entry);
        put(area, at, entry_at(entry.server_word));
        break;
    }
    case REGCMD_KEY_INFO: {
        reg_info_block info{};
        info.type = key_type(now->input.byte());
        info.length = static_cast<uint32_t>(number());
        put(area, 8, reinterpret_cast<std::byte *>(&info) + 8, sizeof info - 8);
        break;
    }
    case REGCMD_GET_INT: put(area, offsetof(reg_int_block, value), now->next_handle + number()); break;
    case REGCMD_GET_BIN: {
        reg_bin_block binary{};
        if (area.size() >= sizeof binary) std::memcpy(&binary, area.data(), sizeof binary);
        put_text(area, binary.data - address);
        if (now->input.byte() != 0) put(area, offsetof(reg_bin_block, length), number());
        break;
    }
    case CNTCMD_GET:
    case LOGCMD_LENGTH:
    case LOGCMD_READ:
    case RTCCMD_READ: put_text(area, 0); break;
    case SVCCMD_LIST: {
        const size_t at = asked.payload - address;
        put(area, at + offsetof(svc_list_block, total), number());
        put(area, at + offsetof(svc_list_block, returned), number());
        put_text(area, at + offsetof(svc_list_block, names));
        break;
    }
    case SVCCMD_INFO: {
        const size_t at = asked.payload - address;
        put(area, at + offsetof(svc_info_block, arg_count), number());
        put(area, at + offsetof(svc_info_block, result_count), number());
        // First arguments, then results.
        const size_t given = now->input.byte() % (SVC_MAX_ARGS + SVC_MAX_RESULTS + 1);
        for (size_t item = 0; item < given; item++) {
            svc_descriptor told{};
            now->input.copy(told.name, now->input.byte() % (sizeof told.name + 1));
            told.type = number();
            const size_t results = item < SVC_MAX_ARGS ? 0 : sizeof(uint64_t);  // whose count lies between
            put(area, at + offsetof(svc_info_block, args) + item * sizeof told + results, told);
        }
        break;
    }
    case SVCCMD_CALL:
        for (size_t item = 0; item < SVC_MAX_RESULTS; item++) {
            const size_t at = asked.payload - address + offsetof(svc_call_block, results) + item * sizeof(svc_slot);
            const uint8_t where = now->input.byte();
            const uint64_t pages = reinterpret_cast<uint64_t>(elsewhere);
            put(area, at + 8, where < 0xF0 ? address + where * 4 : where < 0xF8 ? pages + PAGE - where % 8 : number());
        }
        break;
    case SYSVCCMD_GET_MAX_MAJOR: put(area, 0, static_cast<uint32_t>(number())); break;
    case SYSVCCMD_DECOMPOSE_DEVICE: put_text(area, sizeof(sysvc_device_block)); break;
    default: put(area, offsetof(sysvc_id_block, id), number()); break;
    }
}

// Writes over what a client shares with its server.
void scribble(IOreq &asked, std::span<std::byte> area) {
    const auto address = reinterpret_cast<uint64_t>(area.data());
    for (uint8_t strokes = now->input.byte() % 8; strokes != 0; strokes--) {
        const uint8_t kind = now->input.byte();
        const size_t far = now->input.byte() * size_t{256};
        const size_t offset = (far + now->input.byte()) % (area.size() + 1);
        switch (kind % 8) {
        case 0: put(area, offset, number()); break;
        case 1: put(area, offset & ~size_t{7}, address + number()); break;
        case 2: put(area, offset & ~size_t{7}, address + area.size() - number()); break;
        case 3: put_text(area, offset); break;
        case 4: std::memset(area.data() + offset, now->input.byte(), area.size() - offset); break;
        case 5: asked.transfer.returned_size = number(); break;
        case 6: asked.transfer.buffer_size = asked.payload = number(); break;
        default: asked.reply_port = asked.id = number(); break;
        }
    }
}

// Does a request that the client has begun.
void perform(device &served, request &begun, uint64_t reply_port) {
    IOreq &asked = *in<IOreq>(begun.memory);
    now->performed = reinterpret_cast<uint64_t>(&asked);
    std::span<std::byte> area(begun.memory.get() + IOREQ_INLINE, begun.size - IOREQ_INLINE);
    if (served.context && in<client_context>(served.context)->request == reinterpret_cast<uint64_t>(&asked)) {
        area = {served.buffer.get(), served.buffer_size};
    } else if (asked.command == CNTCMD_GET) {
        asked.transfer.returned_size = number();
    }
    fill(asked, area);
    scribble(asked, area);
    // A count of majors is believed up to millions, which are then asked for one by one: few are enough here.
    if (asked.command == SYSVCCMD_GET_MAX_MAJOR && area.size() >= sizeof(sysvc_max_major_block)) {
        reinterpret_cast<sysvc_max_major_block *>(area.data())->max_major &= 0x8000'00FF;
    }
    constexpr uint64_t ends[] = {IOMSG_FAILED, IOMSG_ABORTED, UNKNOWN_CODE, IOMSG_ABORT_ACKNOWLEDGED};
    const uint8_t choice = now->input.byte();
    if (choice == 0xFF) return;  // never
    const uint64_t end = choice < 0xE0 ? uint64_t{IOMSG_DONE} : ends[choice % std::size(ends)];
    if (end == IOMSG_FAILED) asked.error = static_cast<uint32_t>(number());
    post(reply_port, end, 0);
    if (choice == 0xFE) post(reply_port, IOMSG_DONE, 0);
}

uint64_t add_request(device &to, uint64_t size) {
    if (size < IOREQ_INLINE || size > LARGEST_REQUEST) return 0;
    const uint64_t id = now->next_handle++;
    request &made = to.requests[id] = {make_block(size), size};
    IOreq &header = *in<IOreq>(made.memory);
    header.id = id;
    header.device = reinterpret_cast<uint64_t>(to.record.get());
    return reinterpret_cast<uint64_t>(&header);
}

uint64_t add_device() {
    constexpr uint64_t sizes[] = {4096, 0, 8, 64, 80, 128, 300, 65536};
    const uint64_t port = now->next_handle++;
    device &made = now->devices[port];
    made.record = make_block(sizeof(device_record));
    auto *record = in<device_record>(made.record);
    const uint8_t choice = way();
    record->accepted = choice != 0xFF;
    record->semaphore = now->next_handle++;
    record->server_port = port;
    record->private_port = now->next_handle++;
    if (choice < 0xF0) {
        made.buffer_size = sizes[choice % std::size(sizes)];
        made.buffer = make_block(made.buffer_size);
        made.context = make_block(sizeof(client_context));
        auto *context = in<client_context>(made.context);
        record->context = reinterpret_cast<uint64_t>(context);
        context->lock = now->next_handle++;
        context->request = choice == 0xE8 ? 0 : add_request(made, IOREQ_INLINE);
        context->buffer = reinterpret_cast<uint64_t>(made.buffer.get());
        context->buffer_size = made.buffer_size;
        if (context->request != 0) {
            reinterpret_cast<IOreq *>(context->request)->reply_port = now->next_handle++;
        }
    }
    return choice == 0xFE ? 0 : reinterpret_cast<uint64_t>(record);
}

device *device_at(uint64_t address) {
    for (auto &[port, made] : now->devices) {
        if (reinterpret_cast<uint64_t>(made.record.get()) == address) return &made;
    }
    return nullptr;
}

void serve(uint64_t port, const kernel_message &message) {
    const uint8_t choice = way();
    if (choice == 0xFF) return;  // nobody answers
    if (choice == 0xFE) post(message.word1, UNKNOWN_CODE, number());
    const auto served = now->devices.find(port);
    device *const known = served == now->devices.end() ? nullptr : &served->second;
    const auto code = static_cast<uint32_t>(message.code);
    switch (code) {
    case DEVMSG_OPEN: post(message.word1, DEVMSG_OPENED, add_device()); return;
    case DEVMSG_CLOSE:
        if (known) now->devices.erase(served);
        post(message.word2, DEVMSG_CLOSED, 0);
        return;
    case DEVMSG_CREATE_REQUEST:
        if (device *owner = device_at(message.word1)) {
            const uint64_t made = choice == 0xFD ? 0 : add_request(*owner, message.word2);
            post(in<device_record>(owner->record)->private_port, DEVMSG_REQUEST_CREATED, made);
        }
        return;
    case DEVMSG_DELETE_REQUEST:
    case DEVMSG_DELETE_REQUEST_ASYNC:
        if (known == nullptr) return;
        known->requests.erase(message.word2);
        if (code == DEVMSG_DELETE_REQUEST)
            post(in<device_record>(known->record)->private_port, DEVMSG_REQUEST_DELETED, 0);
        return;
    case IOMSG_BEGIN:
        if (known == nullptr) return;
        if (const auto begun = known->requests.find(message.word2); begun != known->requests.end()) {
            perform(*known, begun->second, message.word1);
        }
        return;
    case IOMSG_ABORT:
        if (choice & 1) post(message.word1, IOMSG_DONE, 0);
        post(message.word1, (choice & 1) != 0 ? uint64_t{IOMSG_ABORT_ACKNOWLEDGED} : uint64_t{IOMSG_ABORTED}, 0);
        return;
    case DEVQUERY_GET_CLASS:
        if (now->manner.obliging) {
            post(message.word1, DEVQUERY_GET_CLASS + 1, SERVICE_CLASS);
            return;
        }
        [[fallthrough]];
    default: post(message.word1, choice == 0xFC ? UNKNOWN_CODE : uint64_t{code} + 1, number()); return;
    }
}

// Whether a client may read at an address: a record, the request that was done last, or what belongs to others.
bool is_known(uint64_t address) {
    if (address - reinterpret_cast<uint64_t>(elsewhere) < PAGE || device_at(address) != nullptr) return true;
    for (const auto &[port, served] : now->devices) {
        for (const auto &[id, made] : served.requests) {
            const auto begin = reinterpret_cast<uint64_t>(made.memory.get());
            if (begin == now->performed && address - begin < made.size) return true;
        }
    }
    return false;
}

uint64_t receive(uint64_t port, kernel_message &message, int64_t timeout) {
    const uint64_t status = result();
    auto &queue = now->queues[port_of(port)];
    if (status != RESULT_SUCCESS) {
        // The answer is lost as well: a client cannot tell one that comes too late from the next.
        if (!queue.empty() && status != RESULT_INTERRUPTED) queue.pop_front();
        return status;
    }
    if (queue.empty()) return now->last_error = timeout >= 0 ? RESULT_TIMEOUT : RESULT_NO_OBJECT;
    message = queue.front();
    queue.pop_front();
    return RESULT_SUCCESS;
}

}  // namespace

// ---- the calls ------------------------------------------------------------------------------------------------------

uint64_t _SL_CreateMsgPort(uint64_t, uint64_t) { return handle(); }

uint64_t _SL_CreateHandle(uint64_t, uint64_t object, uint64_t) {
    const uint64_t made = handle();
    if (made != NO_OBJECT) now->ports[made] = port_of(object);
    return made;
}

uint64_t _SL_DeleteObject(uint64_t named, uint64_t flags) {
    const uint64_t status = result();
    if (status == RESULT_SUCCESS && flags == DELETE_OBJECT) now->queues.erase(port_of(named));
    return status;
}

uint64_t _SL_SendMsg(uint64_t port, uint64_t word1, uint64_t code, uint64_t word2, int64_t) {
    const uint64_t status = result();
    if (status == RESULT_SUCCESS) serve(port, {word1, code, word2});
    return status;
}

uint64_t _SL_RecvMsg(uint64_t port, uint64_t *word1, uint64_t *code, uint64_t *word2, int64_t timeout) {
    kernel_message message{};
    const uint64_t status = receive(port, message, timeout);
    if (status == RESULT_SUCCESS) *word1 = message.word1, *code = message.code, *word2 = message.word2;
    return status;
}

uint64_t _SL_RecvMsgPtr(uint64_t port, kernel_message *record, int64_t timeout) {
    return receive(port, *record, timeout);
}

uint64_t _SL_WaitSemaphore(uint64_t, int64_t, int64_t) { return result(); }
uint64_t _SL_SignalSemaphore(uint64_t, int64_t) { return result(); }
uint64_t _SL_Delay(uint64_t) { return result(); }

uint64_t _SL_GetState(uint64_t item) {
    uint64_t value = 0;
    if (call_left()) value = now->manner.obliging ? 1 : number();
    return item == KSTATE_REGISTRY_PORT ? value + 1 : value;
}

uint64_t _SL_GetObjectInfo(uint64_t, uint64_t, uint64_t *value) { return give(value); }

// Tells the truth, since clients ask it what they may read.
uint64_t _SL_GetAddressMemo(uint64_t, uint64_t address, uint64_t) {
    const uint64_t memo = handle();
    return is_known(address) ? memo : NO_OBJECT;
}

uint64_t _SL_ControlObject(uint64_t, uint64_t, uint64_t, uint64_t, uint64_t, uint64_t) { return result(); }
uint64_t _SL_RaiseException(uint64_t, uint64_t, uint64_t, uint64_t, uint64_t) { return result(); }
uint64_t _SL_GetSystemData(uint64_t group, uint64_t index, uint64_t *value) {
    return now->manner.system_data != nullptr ? now->manner.system_data(group, index, value) : give(value);
}
uint64_t _SL_GetLastError() { return call_left() ? now->last_error : uint64_t{RESULT_NO_OBJECT}; }
uint64_t _SL_CreateIterator(uint64_t, uint64_t) { return handle(); }
uint64_t _SL_BeginIterator(uint64_t, uint64_t, uint64_t) { return result(); }
uint64_t _SL_StepIterator(uint64_t) { return result(); }
uint64_t _SL_GetIteratorInfo(uint64_t, uint64_t, uint64_t *value) { return give(value); }

int OpenTerminal(const char *, int) { return result() == RESULT_SUCCESS ? 1000 : -1; }

int ControlTerminal(int, unsigned long, char *buffer) {
    if (result() != RESULT_SUCCESS) return -1;
    now->input.copy(buffer, TERM_LAYOUT_SIZE);
    return 0;
}

void CloseTerminal(int) {}

// Runs a program on a kernel of its own, which answers from the input.
template <class Program> void run_hostile(fuzz_input &input, const hostility &manner, Program program) {
    world made{.input = input, .manner = manner, .calls_left = CALLS + input.size()};
    now = &made;
    program();
    g_registry_device = g_sysvc_device = nullptr;
}

// Runs the command line at the beginning of an input on the rest of it.
inline void run_hostile(fuzz_input &input, const hostility &manner) {
    run_hostile(input, manner, [&] {
        fuzz_command_line line(input, manner.commands);
        if (manner.obliging) {
            std::memset(elsewhere, 'x', sizeof elsewhere);
            for (size_t count = input.byte() % (MOST_ENTRIES + 1); count != 0; count--) {
                now->entries.push_back(read_entry());
            }
        }
        line.run();
    });
}
