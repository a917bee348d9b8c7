// hosted/described/machine.cpp - the machine that a file describes.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>

#include "hosted/boot.h"
#include "hosted/described/devices.h"
#include "hosted/described/file.h"
#include "hosted/described/format.h"
#include "hosted/described/records.h"
#include "hosted/kernel/indexed_walk.h"
#include "hosted/kernel/kernel.h"
#include "hosted/kernel/register_info.h"
#include "hosted/servers/protocols.h"
#include "platform/kernel.h"
#include "platform/protocol/terminal.h"

namespace hosted {
namespace {

using namespace described;

constexpr uint64_t LOWEST_OWN_HANDLE = 0x100000;         // of the kernel: far from what files and operands name
constexpr uint64_t HIGHEST_COUNTED = uint64_t{1} << 62;  // handles from here on do not push the kernel's own up
constexpr uint64_t BASE_BUDGET = 1'000'000;              // kernel calls, unless the file gives a number ...
constexpr uint64_t BUDGET_PER_OBJECT = 10'000;           // ... and these for each object and registry entry
constexpr int FIRST_TERMINAL = 3;                        // descriptor
constexpr std::string_view STANDARD_INPUT = "stdin";

uint64_t read_value(const item &from, uint64_t &value) {
    if (from.error) return from.value;
    value = from.value;
    return RESULT_SUCCESS;
}

uint64_t read_item(const object &from, uint64_t number, uint64_t &value) {
    if (from.gone) return RESULT_NO_OBJECT;
    if (const item *const given = find_numbered(from.info, number)) return read_value(*given, value);
    if (number == OBJINFO_HANDLE) {
        value = from.handle;
    } else if (number == OBJINFO_OWNER && from.owner != 0) {
        value = from.owner;
    } else {
        return RESULT_NO_ITEM;
    }
    return RESULT_SUCCESS;
}

void set_item(object &of, uint64_t number, uint64_t value) {
    item *const given = find_numbered(of.info, number);
    (given != nullptr ? *given : of.info.emplace_back()) = {number, value, false};
}

// A walk over the objects of a list that exist. The list must outlive it.
template <class Record> std::unique_ptr<walk> walk_over(const std::vector<Record> &list) {
    return walk_indexed(
        list.size(),
        [&list](size_t index, uint64_t number, uint64_t &value) { return read_item(list[index], number, value); },
        [&list](size_t index) { return !list[index].gone; });
}

class described_machine : public machine, private server_source, private terminal_source {
public:
    // Reads the file and determines the calling task and thread.
    bool load(const std::string &path, const std::string &save_path, std::string &message);

    const std::vector<fault> &faults() const { return records_.faults; }

    void attach(kernel &owner) override {
        kernel_ = &owner;
        records_.registry.attach(owner);
    }

    machine_start start() override {
        return {.task = self_task_.handle,
                .first_handle = first_handle_,
                .virtual_tick = records_.tick,
                .call_budget = call_budget(),
                .budget_given = records_.call_budget.has_value(),
                .traces_calls = false};
    }
    uint64_t thread(bool first) override { return first ? self_thread_.handle : 0; }
    bool knows(uint64_t handle) override { return find(handle) != nullptr; }
    bool reserves(uint64_t handle) override {
        return handle == self_task_.handle || handle == self_thread_.handle || records_.objects.find(handle) != nullptr;
    }

    bool state(uint64_t number, uint64_t &value) override;
    uint64_t system_data(uint64_t group, uint64_t index, uint64_t &value) override;

    uint64_t object_info(uint64_t handle, uint64_t number, uint64_t &value) override;
    uint64_t begin(uint64_t parent, uint64_t kind, std::unique_ptr<walk> &out) override;
    uint64_t set_property(uint64_t handle, uint64_t property, uint64_t value) override;
    uint64_t fetch_register(uint64_t handle, uint64_t id, uint64_t node, uint64_t &value) override;
    uint64_t raise(uint64_t handle, uint64_t exception, uint64_t parameter) override;
    uint64_t destroy(uint64_t handle) override;
    void exit_notice(uint64_t master, uint64_t word) override { records_.exit_notices.push_back({master, word}); }

    server_source &servers() override { return *this; }
    std::unique_ptr<server> make_registry(kernel &owner) override;
    std::unique_ptr<server> make_device(kernel &owner, std::string_view name) override {
        return devices_.make(owner, name);
    }

    terminal_source &terminals() override { return *this; }
    int open_terminal(const char *path, int flags) override;
    int control_terminal(int descriptor, unsigned long request, char *buffer) override;
    void close_terminal(int descriptor) override;

    void publish_task(uint64_t handle, std::string_view name) override { records_.registry.publish_task(handle, name); }
    void withdraw_task(uint64_t handle) override { records_.registry.withdraw_task(handle); }

    bool save(std::string &message) override;

private:
    void settle_callers();
    uint64_t call_budget() const;
    object *find(uint64_t handle);  // null: gone or never there
    described::task *find_task(uint64_t handle);
    terminal *find_terminal(std::string_view path);
    uint64_t register_info(uint64_t group, uint64_t index, uint64_t &value) const;
    uint64_t trace(uint64_t group, uint64_t index, uint64_t &value) const;

    machine_file file_;
    machine_records records_;
    device_maker devices_{records_};
    kernel *kernel_ = nullptr;

    described::task self_task_;  // used where the file lists no task of the caller's handle
    object self_thread_;
    uint64_t first_handle_ = 0;
    uint64_t longest_register_ = 0;           // name, bytes
    std::vector<terminal *> open_terminals_;  // by descriptor; null: closed
};

// ---- loading and saving ---------------------------------------------------------------------------------------------

bool described_machine::load(const std::string &path, const std::string &save_path, std::string &message) {
    std::string text;
    if (!file_.read(path, save_path, text, message)) return false;
    if (!described::load(text, records_, message)) {
        message = path + ": " + message;
        return false;
    }
    settle_callers();
    if (records_.registers) {
        for (const auto &known : *records_.registers)
            longest_register_ = std::max(longest_register_, known.name.size());
    }
    return true;
}

// Assigns the calling task and thread handles that nothing else has. The kernel's own handles begin after them.
void described_machine::settle_callers() {
    const auto &self = records_.self;
    uint64_t highest = LOWEST_OWN_HANDLE - 1;
    const auto count = [&](uint64_t handle) {
        if (handle < HIGHEST_COUNTED) highest = std::max(highest, handle);
    };
    for (const auto &listed : records_.objects.all()) count(listed.handle);
    count(self.task.value_or(0));
    count(self.thread.value_or(0));

    first_handle_ = highest + 1;
    self_task_.handle = self.task.value_or(0);
    self_thread_.handle = self.thread.value_or(0);
    for (uint64_t *const handle : {&self_task_.handle, &self_thread_.handle}) {
        if (*handle != 0) continue;
        while (reserves(first_handle_)) ++first_handle_;
        *handle = first_handle_++;
    }
    const uint64_t flags = self.super.value_or(true) ? uint64_t{TASKFLAG_SUPER} : 0;
    for (object *const caller : {static_cast<object *>(&self_task_), &self_thread_}) {
        caller->info = {{OBJINFO_HANDLE, caller->handle, false}, {TASKINFO_FLAGS, flags, false}};
    }
}

bool described_machine::save(std::string &message) {
    if (!file_.is_saved()) return true;
    try {
        if (kernel_ != nullptr) records_.tick = kernel_->now();
        return file_.save(machine_text(records_), message);
    } catch (const std::exception &) {
        message = file_.save_path() + ": " + std::strerror(ENOMEM);  // the only exceptions here
        return false;
    }
}

uint64_t described_machine::call_budget() const {
    if (records_.call_budget) return *records_.call_budget;
    return BASE_BUDGET + BUDGET_PER_OBJECT * (records_.objects.all().size() + records_.registry.given_count());
}

// ---- state and system data ------------------------------------------------------------------------------------------

bool described_machine::state(uint64_t number, uint64_t &value) {
    const item *const given = find_numbered(records_.state, number);
    if (given != nullptr) value = given->value;
    return given != nullptr;
}

uint64_t described_machine::register_info(uint64_t group, uint64_t index, uint64_t &value) const {
    if (!records_.registers) return RESULT_NO_ITEM;
    const auto at = [&known = *records_.registers](size_t row) {
        return hosted::register_info{known[row].name, known[row].id, known[row].type};
    };
    return read_register_info(records_.registers->size(), longest_register_, at, group, index, value);
}

uint64_t described_machine::trace(uint64_t group, uint64_t index, uint64_t &value) const {
    if (!records_.trace) return RESULT_NO_ITEM;
    const auto &trace = *records_.trace;
    if (group != KSYSIDX_TRACE) {
        if (index >= trace.words.size()) return RESULT_NO_ITEM;
        value = trace.words[index];
        return RESULT_SUCCESS;
    }
    switch (index) {
    case KSYSIDX_TRACE_WORDS: value = trace.words.size(); break;
    case KSYSIDX_TRACE_BUFFERS:
        value = trace.words_per_buffer == 0 ? 0 : trace.words.size() / trace.words_per_buffer;
        break;
    case KSYSIDX_TRACE_WORDS_PER_BUFFER: value = trace.words_per_buffer; break;
    case KSYSIDX_TRACE_LARGEST_ENTRY: value = trace.largest_entry; break;
    default: return RESULT_NO_ITEM;
    }
    return RESULT_SUCCESS;
}

uint64_t described_machine::system_data(uint64_t group, uint64_t index, uint64_t &value) {
    if (const data_group *const given = find_numbered(records_.system_data, group)) {
        if (given->is_list) {
            if (index < given->items.size()) return read_value(given->items[index], value);
        } else if (const auto found = given->index.find(index); found != given->index.end()) {
            return read_value(given->items[found->second], value);
        }
    }
    switch (group) {
    case KSYSIDX_REGISTERINFO:
    case KSYSIDX_REGISTERINFO_TABLE: return register_info(group, index, value);
    case KSYSIDX_TRACE:
    case KSYSIDX_TRACE_RAW_WORDS:
    case KSYSIDX_TRACE_ENTRY_WORDS: return trace(group, index, value);
    default: return RESULT_NO_ITEM;
    }
}

// ---- objects --------------------------------------------------------------------------------------------------------

object *described_machine::find(uint64_t handle) {
    object *found = nullptr;
    if (const auto *const listed = records_.objects.find(handle)) {
        found = listed->object;
    } else if (handle == self_task_.handle) {
        found = &self_task_;
    } else if (handle == self_thread_.handle) {
        found = &self_thread_;
    }
    return found == nullptr || found->gone ? nullptr : found;
}

described::task *described_machine::find_task(uint64_t handle) {
    object *const found = find(handle);
    const auto *const listed = records_.objects.find(handle);
    const bool is_task = listed != nullptr ? listed->what == object_index::kind::task : found == &self_task_;
    return found != nullptr && is_task ? static_cast<described::task *>(found) : nullptr;
}

uint64_t described_machine::object_info(uint64_t handle, uint64_t number, uint64_t &value) {
    const object *const found = find(handle);
    return found == nullptr ? RESULT_NO_OBJECT : read_item(*found, number, value);
}

uint64_t described_machine::begin(uint64_t parent, uint64_t kind, std::unique_ptr<walk> &out) {
    using described::task;
    const auto listed = [&](const auto &list) -> uint64_t {
        if (parent != SYSTEM_WIDE) return RESULT_NO_OBJECT;
        out = walk_over(list);
        return RESULT_SUCCESS;
    };
    const auto owned = [&](auto list, auto refusal) -> uint64_t {
        const task *const owner = find_task(parent);
        if (owner == nullptr) return RESULT_NO_OBJECT;
        if (const auto refused = (*owner->refuse).*refusal) return *refused;
        out = walk_over(owner->*list);
        return RESULT_SUCCESS;
    };
    switch (kind) {
    case ITERSEL_TASKS: return listed(records_.tasks);
    case ITERSEL_MEMCHUNKS: return listed(records_.memory_chunks);
    case ITERSEL_VSPACES: return listed(records_.virtual_spaces);
    case ITERSEL_THREADS: return owned(&task::threads, &refusals::threads);
    case ITERSEL_MEMOS: return owned(&task::memos, &refusals::memos);
    case ITERSEL_VIEWS: return owned(&task::views, &refusals::views);
    case ITERSEL_ISRS: return owned(&task::isrs, &refusals::isrs);
    default: return RESULT_BAD_ARGUMENT;
    }
}

uint64_t described_machine::set_property(uint64_t handle, uint64_t property, uint64_t value) {
    described::task *const of = find_task(handle);
    if (of == nullptr) return RESULT_NO_OBJECT;
    if (property != TASKPROP_PRIORITY) return RESULT_BAD_ARGUMENT;
    if (of->refuse->control) return *of->refuse->control;
    set_item(*of, TASKINFO_PRIORITY, value);
    return RESULT_SUCCESS;
}

uint64_t described_machine::fetch_register(uint64_t handle, uint64_t id, uint64_t node, uint64_t &value) {
    const object *const found = find(handle);
    const auto *const listed = records_.objects.find(handle);
    if (found == nullptr) return RESULT_NO_OBJECT;
    if (listed == nullptr) return found == &self_thread_ ? RESULT_NO_ITEM : RESULT_NO_OBJECT;
    if (listed->what != object_index::kind::thread) return RESULT_NO_OBJECT;
    const auto *const values = find_numbered(static_cast<const described::thread *>(found)->registers, id);
    if (values == nullptr || node >= values->nodes.size()) return RESULT_NO_ITEM;
    value = values->nodes[node];
    return RESULT_SUCCESS;
}

uint64_t described_machine::raise(uint64_t handle, uint64_t exception, uint64_t parameter) {
    described::task *const in = find_task(handle);
    if (in == nullptr) return RESULT_NO_OBJECT;
    if (exception >= EXC_LIMIT) return RESULT_BAD_ARGUMENT;
    if (in->refuse->exception) return *in->refuse->exception;
    in->exceptions.push_back({exception, parameter});
    return RESULT_SUCCESS;
}

uint64_t described_machine::destroy(uint64_t handle) {
    object *const ended = find(handle);
    if (ended == nullptr) return RESULT_NO_OBJECT;
    if (described::task *const of = find_task(handle)) {
        if (of->refuse->deletion) return *of->refuse->deletion;
        for (auto &inner : of->threads) inner.gone = true;
        for (auto *const list : {&of->memos, &of->views, &of->isrs}) {
            for (auto &inner : *list) inner.gone = true;
        }
        records_.registry.withdraw_task(handle);
    }
    ended->gone = true;
    return RESULT_SUCCESS;
}

// ---- servers --------------------------------------------------------------------------------------------------------

std::unique_ptr<server> described_machine::make_registry(kernel &owner) {
    auto made = std::make_unique<device_server>(owner, records_.registry_behaviour);
    made->add(make_registry_protocol(records_.registry));
    made->make_context(records_.registry.limits().buffer);
    return made;
}

// ---- terminals ------------------------------------------------------------------------------------------------------

terminal *described_machine::find_terminal(std::string_view path) {
    const auto found = std::ranges::find(records_.terminals, path, &terminal::path);
    return found == records_.terminals.end() ? nullptr : &*found;
}

int described_machine::open_terminal(const char *path, int) {
    terminal *const found = path == STANDARD_INPUT ? nullptr : find_terminal(path);
    if (found == nullptr) {
        errno = ENOENT;
        return -1;
    }
    const auto free = std::find(open_terminals_.begin(), open_terminals_.end(), nullptr);
    const auto descriptor = static_cast<int>(free - open_terminals_.begin()) + FIRST_TERMINAL;
    if (free == open_terminals_.end()) {
        open_terminals_.push_back(found);
    } else {
        *free = found;
    }
    return descriptor;
}

int described_machine::control_terminal(int descriptor, unsigned long request, char *buffer) {
    const auto failed = [](int error) {
        errno = error;
        return -1;
    };
    terminal *on = descriptor == 0 ? find_terminal(STANDARD_INPUT) : nullptr;
    const auto opened = static_cast<size_t>(descriptor) - FIRST_TERMINAL;
    if (descriptor >= FIRST_TERMINAL && opened < open_terminals_.size()) on = open_terminals_[opened];
    if (on == nullptr) return failed(ENOTTY);
    switch (request) {
    case TERMCTL_GET_LAYOUT:
        std::fill_n(buffer, TERM_LAYOUT_SIZE, '\0');
        std::copy(on->layout.begin(), on->layout.end(), buffer);
        return 0;
    case TERMCTL_SET_LAYOUT: {
        const size_t length = strnlen(buffer, TERM_LAYOUT_SIZE);
        if (length == TERM_LAYOUT_SIZE) return failed(EINVAL);
        on->layout.assign(buffer, length);
        return 0;
    }
    default: return failed(ENOTTY);
    }
}

void described_machine::close_terminal(int descriptor) {
    const auto opened = static_cast<size_t>(descriptor) - FIRST_TERMINAL;
    if (descriptor >= FIRST_TERMINAL && opened < open_terminals_.size()) open_terminals_[opened] = nullptr;
}

}  // namespace

std::unique_ptr<machine> make_described_machine(const std::string &path, const std::string &save_path,
                                                fault_list &faults, std::string &message) {
    try {
        auto made = std::make_unique<described_machine>();
        if (!made->load(path, save_path, message)) return nullptr;
        for (const fault &listed : made->faults()) faults.add(listed);
        return made;
    } catch (const std::exception &) {
        message = path + ": " + std::strerror(ENOMEM);  // the only exceptions here
        return nullptr;
    }
}

}  // namespace hosted
