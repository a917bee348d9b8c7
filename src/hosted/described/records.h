// hosted/described/records.h - what a machine file describes, in the order of the file.
//
// An absent value is distinct from a default that the file states, so that a saved machine states no more than its
// file. Records that are keyed by a number in the file hold it in a member of that name.
#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "hosted/described/registry.h"
#include "hosted/kernel/faults.h"
#include "hosted/servers/device_server.h"
#include "hosted/servers/sources.h"
#include "platform/protocol/rtc.h"

namespace hosted::described {

// ---- lists ----------------------------------------------------------------------------------------------------------

// Records that are made while they are written, so that a file may list more than memory holds.
template <class Record> class record_source {
public:
    // The next record, valid until the next call; null at the end.
    virtual const Record *next() = 0;

    // Asked after the record has been written, with all that its own sources add. False: the record is no longer true,
    // and is removed from the text.
    virtual bool holds() = 0;

protected:
    ~record_source() = default;
};

// A list of a machine file, and where more of its records come from when it is written.
template <class Record> struct record_list : std::vector<Record> {
    record_source<Record> *source = nullptr;  // has at least one; null: there are no more
};

// The record of a number in a list; null where it has none.
template <class List> auto find_numbered(List &list, uint64_t number) -> decltype(list.data()) {
    const auto found = std::ranges::find(list, number, &List::value_type::number);
    return found == list.end() ? nullptr : &*found;
}

// A record that few objects have. All others hold a null pointer.
template <class Record> class rare {
public:
    const Record &operator*() const {
        static const Record none{};
        return made_ ? *made_ : none;
    }
    const Record *operator->() const { return &**this; }

    // The record to change, made if there is none.
    Record &own() {
        if (!made_) made_ = std::make_unique<Record>();
        return *made_;
    }

private:
    std::unique_ptr<Record> made_;
};

// ---- objects --------------------------------------------------------------------------------------------------------

// A numbered value, or the result code that reading it fails with.
struct item {
    uint64_t number = 0;
    uint64_t value = 0;
    bool error = false;
};

struct object {
    uint64_t handle = 0;
    uint64_t owner = 0;  // OBJINFO_OWNER unless info has it; 0: no such item
    std::vector<item> info;
    uint32_t node = 0;  // of the document, for messages while it is loaded
    bool gone = false;  // ended during the run
};

struct thread : object {
    struct register_values {
        uint64_t number = 0;
        std::vector<uint64_t> nodes;  // value at each exception node
    };
    std::vector<register_values> registers;
};

// Result codes of what the kernel refuses to do with a task: operations on it, and walks of what it owns.
struct refusals {
    std::optional<uint64_t> deletion, control, exception;
    std::optional<uint64_t> threads, memos, views, isrs;
};

struct raised_exception {
    uint64_t id = 0;
    uint64_t parameter = 0;
};

struct task : object {
    std::optional<std::string> name;
    std::optional<uint64_t> pid, ppid, pgid, sid;
    record_list<thread> threads;
    record_list<object> memos;
    record_list<object> views;
    record_list<object> isrs;
    rare<refusals> refuse;
    std::vector<raised_exception> exceptions;
};

// Every object of the file by its handle. The records do not move after they are read.
class object_index {
public:
    enum class kind : uint8_t { task, thread, other };
    struct entry {
        uint64_t handle = 0;
        described::object *object = nullptr;
        kind what = kind::other;
    };

    void reserve(size_t count) { entries_.reserve(count); }
    void add(kind what, described::object &listed) { entries_.push_back({listed.handle, &listed, what}); }

    // Makes find() work. Returns the objects whose handle an earlier one has.
    std::vector<described::object *> sort();

    const entry *find(uint64_t handle) const;  // null: no such object
    const std::vector<entry> &all() const { return entries_; }

private:
    std::vector<entry> entries_;
};

// ---- system data ----------------------------------------------------------------------------------------------------

struct data_group {
    uint64_t number = 0;
    bool is_list = false;  // the items are numbered from 0
    std::vector<item> items;
    std::unordered_map<uint64_t, size_t> index;  // of the items by number, unless it is a list
};

struct cpu_register {
    std::string name;
    uint64_t id = 0;
    uint64_t type = 0;
};

struct kernel_trace {
    uint64_t words_per_buffer = 0;
    uint64_t largest_entry = 0;
    std::vector<uint64_t> words;
};

// ---- devices --------------------------------------------------------------------------------------------------------

struct counter {
    std::string name;
    uint64_t value = 0;
};

struct unit_counters {
    uint32_t number = 0;  // of the unit
    std::vector<counter> list;
    std::optional<std::string> raw;    // in place of the list
    std::optional<uint64_t> returned;  // the byte count to report, with raw bytes
};

struct service_result {
    enum class kind : uint8_t { word, text, argument };
    kind what = kind::word;
    uint64_t word = 0;  // the slot word, or which argument's
    std::string text;
};

struct service {
    service_description description;
    std::vector<service_result> values;  // of its results, in their order
    std::optional<uint32_t> error;       // that every call fails with
};

struct log_record {
    struct emergency {
        uint64_t word1 = 0;
        uint64_t code = 0;
        uint64_t word2 = 0;
    };
    std::string text;
    std::vector<emergency> emergencies;
};

struct system_service {
    std::vector<std::pair<uint32_t, std::string>> majors;
    std::optional<uint32_t> max_major;
};

struct device : device_behaviour {
    std::string name;
    std::optional<std::vector<unit_counters>> counters;
    std::optional<std::vector<described::service>> services;
    std::optional<uint64_t> services_total;
    std::optional<log_record> log;
    std::optional<rtc_time> rtc;
    std::optional<described::system_service> system_service;
};

// ---- the machine ----------------------------------------------------------------------------------------------------

struct calling_task {
    std::optional<uint64_t> task;
    std::optional<uint64_t> thread;
    std::optional<bool> super;
};

struct given_limits {
    std::optional<uint32_t> name, binary, depth, buffer;
};

struct terminal {
    std::string path;
    std::string layout;
};

struct exit_notice {
    uint64_t master = 0;  // handle
    uint64_t word = 0;    // second word of the message
};

struct machine_records {
    std::optional<uint64_t> call_budget;
    uint64_t tick = 0;
    calling_task self;
    std::vector<item> state;
    std::vector<data_group> system_data;
    std::optional<std::vector<cpu_register>> registers;
    std::optional<kernel_trace> trace;
    record_list<task> tasks;
    std::vector<object> memory_chunks;
    std::vector<object> virtual_spaces;
    described::registry registry;
    given_limits registry_limits;
    device_behaviour registry_behaviour;  // null_requests and requests only
    std::vector<device> devices;
    std::vector<terminal> terminals;
    std::vector<fault> faults;
    std::vector<exit_notice> exit_notices;

    object_index objects;
};

}  // namespace hosted::described
