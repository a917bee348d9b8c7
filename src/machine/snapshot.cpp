// machine/snapshot.cpp - snapshot: the live machine as a machine file.
//
// Objects and state are read from the machine itself, every item that has a name; what its registry and its devices
// hold is read as any client reads it. The text grows in memory, one task's records at a time, and replaces the file at
// the end, so that a run that is ended early leaves nothing.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <string>

#include "common/registers.h"
#include "common/registry_entries.h"
#include "hosted/clocks.h"
#include "hosted/described/format.h"
#include "hosted/described/names.h"
#include "hosted/descriptors.h"
#include "hosted/kernel/run.h"
#include "hosted/live/devices.h"
#include "hosted/utf8.h"
#include "machine/device_capture.h"
#include "machine/redaction.h"
#include "machine/verbs.h"
#include "platform/protocol/rtc.h"
#include "platform/protocol/sysvc.h"
#include "platform/protocol/task.h"
#include "platform/registry.h"
#include "platform/sysvc.h"

namespace verbs {
namespace {

using namespace hosted::described;

constexpr size_t MOST_TEXT = size_t{1} << 30;  // bytes of a machine file
constexpr std::string_view NAMES_OF_HOST[] = {"/kernel/kernel/hostname", "/kernel/kernel/domainname"};
constexpr std::string_view RUN_DIRECTORY = reg_component(PROCESS_DIRECTORY, 0);

// ---- progress -------------------------------------------------------------------------------------------------------

// How many tasks have been read, shown to a person who has been waiting.
class progress {
public:
    ~progress() {
        if (shown_) std::fputs("\r\033[K", stderr);
    }

    void add_task() {
        ++tasks_;
        const uint64_t now = hosted::milliseconds_of(CLOCK_MONOTONIC);
        if (!visible_ || now < due_) return;
        shown_ = true;
        due_ = now + INTERVAL;
        std::fprintf(stderr, "\r%llu tasks", static_cast<unsigned long long>(tasks_));
        std::fflush(stderr);
    }

private:
    static constexpr uint64_t QUIET = 1000, INTERVAL = 200;  // milliseconds

    const bool visible_ = isatty(STDERR_FILENO) != 0;
    uint64_t due_ = hosted::milliseconds_of(CLOCK_MONOTONIC) + QUIET;
    uint64_t tasks_ = 0;
    bool shown_ = false;
};

// ---- objects --------------------------------------------------------------------------------------------------------

// Reads every item that has a name and that the object has.
//   info     reads one item of it, as walk::info() does
//   owner    of whose item the record needs no copy; 0: none
//   returns  false where the object has no handle: it is gone
template <class Info> bool read_object(Info info, const redaction &hide, uint64_t owner, object &into) {
    static const auto items = named_items(naming::object);
    into.info.clear();
    if (info(OBJINFO_HANDLE, into.handle) != RESULT_SUCCESS) return false;
    for (const named_item &known : items) {
        item read{.number = known.item};
        const uint64_t result = info(known.item, read.value);
        read.error = result != RESULT_SUCCESS;
        if (result == RESULT_NO_ITEM || known.item == OBJINFO_HANDLE) continue;
        if (read.error) {
            read.value = result;
        } else if (known.value == form::address && hide.is_on()) {
            read.value = 0;
        }
        if (known.item != OBJINFO_OWNER || read.error || read.value != owner) into.info.push_back(read);
    }
    return true;
}

// A walk whose objects are written as they are read.
template <class Record> class walked : public record_source<Record> {
public:
    walked(hosted::machine &from, const redaction &hide) : from_(from), hide_(hide) {}

    // Begins over the objects of a kind. Results of machine::begin().
    //   owner  of whose item the records need no copy; 0: none
    uint64_t begin(uint64_t parent, uint64_t kind, uint64_t owner) {
        owner_ = owner;
        on_first_ = false;
        const uint64_t result = from_.begin(parent, kind, walk_);
        on_first_ = result == RESULT_SUCCESS && walk_->step() == RESULT_SUCCESS;
        return result;
    }

    // Itself, if there is anything to write.
    record_source<Record> *if_any() { return on_first_ ? this : nullptr; }

    const Record *next() override {
        while (std::exchange(on_first_, false) || walk_->step() == RESULT_SUCCESS) {
            const auto info = [&](uint64_t item, uint64_t &value) { return walk_->info(item, value); };
            if (read_object(info, hide_, owner_, record_) && complete(record_)) return &record_;
        }
        return nullptr;
    }
    bool holds() override { return walk_->exists(); }

protected:
    // Reads what a record has beside its items. False: the object is gone.
    virtual bool complete(Record &) { return true; }
    ~walked() = default;

    hosted::machine &from_;
    const redaction &hide_;

private:
    std::unique_ptr<hosted::walk> walk_;
    Record record_;
    uint64_t owner_ = 0;
    bool on_first_ = false;  // of its objects
};

template <class Record> class owned final : public walked<Record> { using walked<Record>::walked; };

class all_tasks final : public walked<task> {
public:
    //   self  the calling task as it was before it took memory for the snapshot
    all_tasks(hosted::machine &from, redaction &hide, bool maps, const object &self)
        : walked(from, hide), names_(hide), maps_(maps), self_(self), service_(OpenDevice(SYSVC_DEVICE)),
          threads_(from, hide), isrs_(from, hide), memos_(from, hide), views_(from, hide) {}
    ~all_tasks() { CloseDevice(service_); }
    all_tasks(const all_tasks &) = delete;
    all_tasks &operator=(const all_tasks &) = delete;

private:
    bool complete(task &into) override {
        progress_.add_task();
        if (into.handle == self_.handle) into.info = self_.info;
        read_name(into);
        const auto id = [&](auto get, uint64_t key) -> std::optional<uint64_t> {
            uint64_t value = 0;
            return get(service_, key, &value) == 0 ? std::optional(value) : std::nullopt;
        };
        into.pid = id(SysvcGetPid, into.handle);
        const uint64_t key = into.pid.value_or(into.handle);
        into.ppid = id(SysvcGetPPid, key);
        into.pgid = id(SysvcGetPgid, key);
        into.sid = id(SysvcGetSid, key);
        begin_owned(into, threads_, ITERSEL_THREADS, 0, into.threads, into.refuse.own().threads);
        begin_owned(into, isrs_, ITERSEL_ISRS, 0, into.isrs, into.refuse.own().isrs);
        if (!maps_) return true;
        begin_owned(into, memos_, ITERSEL_MEMOS, into.handle, into.memos, into.refuse.own().memos);
        begin_owned(into, views_, ITERSEL_VIEWS, 0, into.views, into.refuse.own().views);
        return true;
    }

    void read_name(task &into) {
        std::array<char, sizeof PROCESS_DIRECTORY + TASK_KEY_SIZE> key{};
        *write_task_key(std::ranges::copy(std::string_view(PROCESS_DIRECTORY), key.data()).out, into.handle) = '\0';
        std::array<char, 4096> name;
        auto length = static_cast<uint32_t>(std::min(name.size(), RegBinaryRoom(GetRegDev(), key.data())));
        into.name.reset();
        if (RegGetKeyBin(GetRegDev(), key.data(), name.data(), &length))
            into.name = names_.text("task", {name.data(), length});
    }

    template <class Record>
    void begin_owned(const task &of, owned<Record> &walk, uint64_t kind, uint64_t owner, record_list<Record> &list,
                     std::optional<uint64_t> &refusal) {
        const uint64_t result = walk.begin(of.handle, kind, owner);
        refusal = result == RESULT_SUCCESS ? std::nullopt : std::optional(result);
        list.source = walk.if_any();
    }

    redaction &names_;
    const bool maps_;
    const object &self_;
    device_record *const service_;  // null: every id is missing
    owned<thread> threads_;
    owned<object> isrs_, memos_, views_;
    progress progress_;
};

std::vector<object> system_objects(hosted::machine &from, const redaction &hide, uint64_t kind) {
    std::vector<object> list;
    owned<object> walk(from, hide);
    if (walk.begin(SYSTEM_WIDE, kind, 0) != RESULT_SUCCESS || walk.if_any() == nullptr) return list;
    while (const object *const made = walk.next()) list.push_back(*made);
    return list;
}

// ---- state and system data ------------------------------------------------------------------------------------------

std::vector<item> state_of(hosted::machine &from) {
    std::vector<item> state;
    for (const named_item &known : named_items(naming::state)) {
        uint64_t value = 0;
        if (from.state(known.item, value)) state.push_back({known.item, value, false});
    }
    return state;
}

std::optional<std::vector<cpu_register>> register_table() {
    sb_registerinfo info;
    if (sb_getregisterinfo(&info).step != sb_registerstep::done) return std::nullopt;
    const sb_text name = sb_newregistername(info);
    std::vector<cpu_register> table;
    for (uint64_t i = 0; name && i < info.count; ++i) {
        sb_register known;
        if (sb_getregister(info, i, &known, name.get()).step != sb_registerstep::done) break;
        table.push_back({name.get(), known.id, known.type});
    }
    return table;
}

// ---- the registry ---------------------------------------------------------------------------------------------------

// Visits the entries of a directory. Returns false where it cannot be listed; throws where a listing breaks off.
template <class Visit> bool each_entry(const std::string &path, Visit visit) {
    RegIterator record;
    if (!RegItBegin(GetRegDev(), &record, path.c_str())) return false;
    while (record.on_entry != 0) {
        visit(record, std::string(sb_entryname(record)));
        if (!RegItNext(GetRegDev(), &record)) throw hosted::system_failure("registry: " + path, EIO);
    }
    RegItEnd(GetRegDev(), &record);
    return true;
}

// The names of devices in their order, each with its name in the file. Devices of every live machine keep theirs.
using device_names = std::vector<std::pair<std::string, std::string>>;

device_names names_of_devices(redaction &hide) {
    device_names names;
    each_entry(DEVICE_DIRECTORY, [&](const RegIterator &, const std::string &name) {
        if (!hosted::is_utf8(name)) return;
        const bool stays = name == SYSVC_DEVICE || hosted::live::find_fixed_device(name) != nullptr;
        names.emplace_back(name, stays ? name : hide.text("device", name));
    });
    return names;
}

class registry_capture {
public:
    registry_capture(registry &into, const device_names &devices, redaction &hide)
        : into_(into), devices_(devices.begin(), devices.end()), hide_(hide) {}

    // All of it but run/, which the machine that loads the file publishes anew.
    void read() { read_directory("", registry::ROOT); }

private:
    // Returns false where the directory cannot be listed.
    bool read_directory(const std::string &path, uint32_t directory) {
        return each_entry(path, [&](const RegIterator &listed, const std::string &name) {
            if ((path.empty() && name == RUN_DIRECTORY) || !reg_is_name(name) || !hosted::is_utf8(name)) return;
            if (++count_ > SB_MAX_ENTRIES) throw hosted::system_failure("registry", EFBIG);
            const std::string inner = path + "/" + name;
            registry::entry made;
            const auto device = devices_.find(name);
            made.name = device == devices_.end() ? name : device->second;
            if (listed.type == REGTYPE_DIR || listed.type == REGTYPE_TMP) {
                made.holds = registry::entry::kind::directory;
                made.temporary = listed.type == REGTYPE_TMP;
                const size_t at = into_.entries(directory).size();
                const uint32_t number = into_.add(directory, std::move(made)).directory;
                if (!read_directory(inner, number)) into_.entry_at(directory, at).unreadable = true;
                return;
            }
            if (!read_value(inner, listed, made)) {
                made.type = listed.type;
                made.length = listed.length;
            }
            into_.add(directory, std::move(made));
        });
    }

    bool read_value(const std::string &path, const RegIterator &listed, registry::entry &into) {
        if (listed.type == REGTYPE_INT) {
            if (!RegGetKeyInt(GetRegDev(), path.c_str(), &into.number)) return false;
            into.holds = registry::entry::kind::integer;
            if (hide_.is_on() && std::ranges::find(NAMES_OF_HOST, path) != std::end(NAMES_OF_HOST)) {
                into.holds = registry::entry::kind::bytes;
                into.bytes = hide_.text("text", std::to_string(into.number));
            }
            return true;
        }
        if (listed.type != REGTYPE_BIN || listed.length > RegBinaryRoom(GetRegDev(), path.c_str())) return false;
        uint32_t length = listed.length;
        std::string value(length, '\0');
        if (!RegGetKeyBin(GetRegDev(), path.c_str(), value.data(), &length)) return false;
        value.resize(length);
        into.holds = registry::entry::kind::bytes;
        const bool names_device = path == std::string("/").append(RTC_DIRECTORY).append(RTC_DEVICE_KEY);
        into.bytes = names_device ? value : hide_.text("text", value);
        return true;
    }

    registry &into_;
    const std::map<std::string, std::string> devices_;
    redaction &hide_;
    size_t count_ = 0;
};

given_limits limits_of_registry() {
    given_limits limits;
    const hosted::registry_limits usual;
    uint32_t name = 0, binary = 0, depth = 0;
    if (!RegCaps(GetRegDev(), &name, &binary, &depth)) return limits;
    if (name != usual.name) limits.name = name;
    if (binary != usual.binary) limits.binary = binary;
    if (depth != usual.depth) limits.depth = depth;
    return limits;
}

// ---- the machine ----------------------------------------------------------------------------------------------------

std::string take_snapshot(bool maps, bool redact) {
    hosted::kernel &kernel = hosted::running();
    hosted::machine &from = kernel.machine();
    from.withhold_secrets();
    redaction hide(redact);
    const uint64_t task = kernel.start().task;
    object self;
    read_object([&](uint64_t item, uint64_t &value) { return from.object_info(task, item, value); }, hide, 0, self);
    machine_records made;
    made.tick = kernel.now();
    made.state = state_of(from);
    made.self.task = task;
    made.self.thread = _SL_GetState(KSTATE_CURRENT_THREAD);
    made.registers = register_table();
    made.trace.emplace();  // the live ring is that of each run
    made.memory_chunks = system_objects(from, hide, ITERSEL_MEMCHUNKS);
    made.virtual_spaces = system_objects(from, hide, ITERSEL_VSPACES);
    made.registry_limits = limits_of_registry();

    const device_names devices = names_of_devices(hide);
    registry_capture(made.registry, devices, hide).read();
    for (const auto &[name, shown] : devices) made.devices.push_back(capture_device(name, shown, hide));

    all_tasks tasks(from, hide, maps, self);
    if (tasks.begin(SYSTEM_WIDE, ITERSEL_TASKS, 0) != RESULT_SUCCESS) throw hosted::system_failure("tasks", EIO);
    made.tasks.source = tasks.if_any();
    return machine_text(made, MOST_TEXT);
}

}  // namespace

int snapshot(int argc, char **argv) {
    const char *path = nullptr;
    bool maps = false, redact = false;
    if (!parse(argc, argv, {{"-o", &path}, {"--maps", nullptr, &maps}, {"--redact", nullptr, &redact}}, 0, 0))
        return WRONG_USE;
    const char *const chosen = secure_getenv(hosted::MACHINE_VARIABLE);
    if (chosen != nullptr && std::strcmp(chosen, hosted::LIVE_MACHINE) != 0)
        return fail(WRONG_USE, "%s: captures the live machine, and %s names another", argv[0],
                    hosted::MACHINE_VARIABLE);
    try {
        return write_result(path, take_snapshot(maps, redact), file_access::owner_only);
    } catch (const hosted::system_failure &failed) {
        return fail(FAILED, "%s: %s", argv[0], failed.what());
    } catch (const std::bad_alloc &) {
        return fail(FAILED, "%s: out of memory", argv[0]);
    }
}

}  // namespace verbs
