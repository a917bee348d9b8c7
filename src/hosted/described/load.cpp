// hosted/described/load.cpp - the records of a machine file's text.
#include "hosted/described/load.h"

#include <algorithm>
#include <array>
#include <limits>
#include <unordered_set>

#include "hosted/described/document.h"
#include "hosted/described/names.h"
#include "hosted/described/text.h"
#include "platform/kernel.h"
#include "platform/protocol/counters.h"
#include "platform/protocol/registry.h"
#include "platform/protocol/terminal.h"

namespace hosted::described {
namespace {

constexpr uint64_t FORMAT = 1;  // of the file

// ---- the shapes that stand everywhere -------------------------------------------------------------------------------

// A key of an object, and what its value is read into.
template <class Record> struct field {
    std::string_view key;
    void (*read)(place from, Record &into);
};

template <class Record, size_t N> void read_fields(place from, Record &into, const field<Record> (&fields)[N]) {
    for (const place member : from.members()) {
        const auto *const known =
            std::find_if(std::begin(fields), std::end(fields), [&](const auto &f) { return f.key == member.key(); });
        if (known == std::end(fields)) member.wrong("unknown key");
        known->read(member, into);
    }
}

void check_name(std::string_view name, place at) {
    if (!reg_is_name(name)) at.wrong("a name has 1 to " + std::to_string(REG_MAX_NAME) + " bytes, none of them '/'");
}

template <class Record, class Read> void read_list(place from, std::vector<Record> &into, Read read) {
    const auto elements = from.items();
    into.resize(from.count());
    auto next = into.begin();
    for (const place element : elements) read(element, *next++);
}

void read_number(place from, uint64_t &into) { into = from.number(); }

void read_pair(place from, std::pair<uint64_t, uint64_t> &into) {
    if (!from.is_list() || from.count() != 2) from.wrong("expected a list of 2 numbers");
    auto element = from.items().begin();
    into.first = (*element).number();
    into.second = (*++element).number();
}

// The numbers that one object's keys stand for: the same number written in two ways is one key given twice.
class number_keys {
public:
    // The number of a member's key, by its name where its kind has names.
    uint64_t take(place member, naming kind = naming::none) {
        auto number = parse_number(member.key());
        if (!number) number = item_by_name(kind, member.key());
        if (!number) member.wrong(kind == naming::none ? "expected a number as the key" : "unknown item");
        if (!add(*number)) member.wrong("given twice");
        return *number;
    }

    uint32_t take32(place member) {
        const uint64_t number = take(member);
        if (number > std::numeric_limits<uint32_t>::max()) member.wrong("number out of range");
        return static_cast<uint32_t>(number);
    }

private:
    bool add(uint64_t number) {
        if (count_ < few_.size()) {
            const auto end = few_.begin() + static_cast<std::ptrdiff_t>(count_);
            if (std::find(few_.begin(), end, number) != end) return false;
            few_[count_++] = number;
            return true;
        }
        if (many_.empty()) many_.insert(few_.begin(), few_.end());
        return many_.insert(number).second;
    }

    std::array<uint64_t, 32> few_{};
    size_t count_ = 0;
    std::unordered_set<uint64_t> many_;
};

// A number, or {"error": code}.
item read_item(uint64_t number, place from) {
    item made{number, 0, from.is_object()};
    if (made.error) {
        constexpr field<item> fields[] = {{"error", [](place p, item &i) { i.value = p.number(); }}};
        from.at("error");
        read_fields(from, made, fields);
    } else {
        made.value = from.number();
    }
    return made;
}

// ---- objects --------------------------------------------------------------------------------------------------------

uint64_t read_handle(place from) {
    const uint64_t handle = from.number();
    if (handle == 0 || handle == NO_OBJECT) from.wrong("no handle of an object");
    return handle;
}

void read_info(place from, object &into) {
    number_keys keys;
    into.info.reserve(from.count());
    for (const place member : from.members()) {
        into.info.push_back(read_item(keys.take(member, naming::object), member));
    }
}

template <class Record>
constexpr field<Record> HANDLE = {"handle", [](place p, Record &r) { r.handle = read_handle(p); }};
template <class Record> constexpr field<Record> INFO = {"info", [](place p, Record &r) { read_info(p, r); }};

template <class Record, size_t N> void read_object_fields(place from, Record &into, const field<Record> (&fields)[N]) {
    into.node = from.node();
    from.at("handle");
    read_fields(from, into, fields);
}

void read_object(place from, object &into) {
    constexpr field<object> fields[] = {HANDLE<object>, INFO<object>};
    read_object_fields(from, into, fields);
}

void read_registers(place from, thread &into) {
    number_keys keys;
    for (const place member : from.members()) {
        auto &values = into.registers.emplace_back();
        values.id = keys.take(member);
        read_list(member, values.nodes, read_number);
    }
}

void read_thread(place from, thread &into) {
    constexpr field<thread> fields[] = {HANDLE<thread>, INFO<thread>, {"registers", read_registers}};
    read_object_fields(from, into, fields);
}

void read_refuse(place from, task &into) {
    constexpr field<refusals> fields[] = {
        {"delete", [](place p, refusals &r) { r.deletion = p.number(); }},
        {"control", [](place p, refusals &r) { r.control = p.number(); }},
        {"exception", [](place p, refusals &r) { r.exception = p.number(); }},
        {"threads", [](place p, refusals &r) { r.threads = p.number(); }},
        {"memos", [](place p, refusals &r) { r.memos = p.number(); }},
        {"views", [](place p, refusals &r) { r.views = p.number(); }},
        {"isrs", [](place p, refusals &r) { r.isrs = p.number(); }},
    };
    read_fields(from, into.refuse, fields);
}

void read_task(place from, task &into) {
    constexpr field<task> fields[] = {
        HANDLE<task>,
        INFO<task>,
        {"name", [](place p, task &t) { t.name = p.text(); }},
        {"pid", [](place p, task &t) { t.pid = p.number(); }},
        {"ppid", [](place p, task &t) { t.ppid = p.number(); }},
        {"pgid", [](place p, task &t) { t.pgid = p.number(); }},
        {"sid", [](place p, task &t) { t.sid = p.number(); }},
        {"threads", [](place p, task &t) { read_list(p, t.threads, read_thread); }},
        {"memos", [](place p, task &t) { read_list(p, t.memos, read_object); }},
        {"views", [](place p, task &t) { read_list(p, t.views, read_object); }},
        {"isrs", [](place p, task &t) { read_list(p, t.isrs, read_object); }},
        {"refuse", read_refuse},
        {"exceptions", [](place p, task &t) { read_list(p, t.exceptions, read_pair); }},
    };
    read_object_fields(from, into, fields);
    for (auto &memo : into.memos) memo.owner = into.handle;
}

// Makes every object known by its handle, of which there is one each.
void index_objects(const document &file, machine_records &all) {
    using kind = reference::kind;
    const auto add = [&](kind what, object &made) {
        if (all.objects.try_emplace(made.handle, reference{what, &made}).second) return;
        place(file, made.node).at("handle").wrong("another object has this handle");
    };
    for (auto &made : all.tasks) {
        add(kind::task, made);
        for (auto &inner : made.threads) add(kind::thread, inner);
        for (auto *const list : {&made.memos, &made.views, &made.isrs}) {
            for (auto &inner : *list) add(kind::other, inner);
        }
    }
    for (auto *const list : {&all.memory_chunks, &all.virtual_spaces}) {
        for (auto &made : *list) add(kind::other, made);
    }
}

// ---- the calling task, state and system data ------------------------------------------------------------------------

void read_self(place from, calling_task &into) {
    constexpr field<calling_task> fields[] = {
        {"task", [](place p, calling_task &c) { c.task = read_handle(p); }},
        {"thread", [](place p, calling_task &c) { c.thread = read_handle(p); }},
        {"super", [](place p, calling_task &c) { c.super = p.flag(); }},
    };
    read_fields(from, into, fields);
}

// A calling task or thread may be listed as such, and as nothing else.
void check_self(place from, const machine_records &all) {
    const std::pair<const char *, reference::kind> kinds[] = {{"task", reference::kind::task},
                                                              {"thread", reference::kind::thread}};
    for (const auto &[key, kind] : kinds) {
        const auto handle = kind == reference::kind::task ? all.self.task : all.self.thread;
        if (!handle) continue;
        const auto listed = all.objects.find(*handle);
        if (listed != all.objects.end() && listed->second.what != kind) {
            from.at(key).wrong("an object of another kind has this handle");
        }
    }
    if (all.self.task && all.self.task == all.self.thread) from.at("thread").wrong("the task has this handle");
}

void read_state(place from, std::vector<item> &into) {
    number_keys keys;
    for (const place member : from.members()) {
        const uint64_t number = keys.take(member, naming::state);
        if (number == KSTATE_CURRENT_THREAD || number == KSTATE_CURRENT_TASK || number == KSTATE_TICK) {
            member.wrong("the kernel provides this item");
        }
        into.push_back({number, member.number(), false});
    }
}

void read_system_data(place from, std::vector<data_group> &into) {
    number_keys groups;
    for (const place member : from.members()) {
        auto &group = into.emplace_back();
        group.group = groups.take(member, naming::data_group);
        group.is_list = member.is_list();
        group.items.reserve(member.count());
        if (group.is_list) {
            for (const place element : member.items()) {
                group.items.push_back(read_item(group.items.size(), element));
            }
            continue;
        }
        number_keys keys;
        for (const place element : member.members()) {
            const uint64_t number = keys.take(element, index_naming(group.group));
            group.places.emplace(number, group.items.size());
            group.items.push_back(read_item(number, element));
        }
    }
}

void read_register(place from, cpu_register &into) {
    constexpr field<cpu_register> fields[] = {
        {"name", [](place p, cpu_register &r) { r.name = p.text(); }},
        {"id", [](place p, cpu_register &r) { r.id = p.number(); }},
        {"type", [](place p, cpu_register &r) { r.type = p.number(); }},
    };
    from.at("name");
    read_fields(from, into, fields);
}

void read_trace(place from, kernel_trace &into) {
    constexpr field<kernel_trace> fields[] = {
        {"words_per_buffer", [](place p, kernel_trace &t) { t.words_per_buffer = p.number(); }},
        {"largest_entry", [](place p, kernel_trace &t) { t.largest_entry = p.number(); }},
        {"words", [](place p, kernel_trace &t) { read_list(p, t.words, read_number); }},
    };
    read_fields(from, into, fields);
}

// ---- registry -------------------------------------------------------------------------------------------------------

// Reads the value of one key. What it holds as a directory, if it does, is given back, to be read by the caller: values
// may be nested deeper than a stack would bear.
std::optional<place> read_key(place from, registry::entry &into) {
    bool described = false;
    for (;;) {
        if (from.is_integer()) {
            into.holds = registry::entry::kind::integer;
            into.number = from.number();
            return std::nullopt;
        }
        if (from.is_text()) {
            into.holds = registry::entry::kind::bytes;
            into.bytes = from.text();
            return std::nullopt;
        }
        std::optional<place> inner;
        std::optional<place> content;
        if (!from.is_object() || from.count() == 0) from.wrong("expected the value of a key");
        for (const place member : from.members()) {
            const auto key = member.key();
            if ((key == "dir" || key == "tmp") && from.count() == 1) {
                into.holds = registry::entry::kind::directory;
                into.temporary = key == "tmp";
                content = member;
            } else if (key == "unreadable" && from.count() == 1) {
                into.unreadable = true;
                inner = member;
            } else if (key == "type" && !described) {
                into.type = member.number16();
            } else if (key == "length" && !described) {
                into.length = member.number32();
            } else if (key == "value" && !described) {
                inner = member;
            } else {
                member.wrong("unknown key");
            }
        }
        if (content || !inner) return content;
        described = described || (*inner).key() == "value";
        from = *inner;
    }
}

void read_registry(place from, registry &into) {
    struct level {
        place::iterator next;
        place::iterator end;
        uint32_t directory;
    };
    std::vector<level> open;
    const auto enter = [&](place content, uint32_t directory) {
        const auto members = content.members();
        into.reserve(directory, content.count());
        open.push_back({members.begin(), members.end(), directory});
    };
    enter(from, registry::ROOT);
    while (!open.empty()) {
        if (open.back().next == open.back().end) {
            open.pop_back();
            continue;
        }
        const place member = *open.back().next;
        const uint32_t directory = open.back().directory;
        ++open.back().next;
        check_name(member.key(), member);
        registry::entry made;
        made.name = member.key();
        const auto content = read_key(member, made);
        registry::entry *there = content ? into.published_directory(directory, made.name) : nullptr;
        if (there != nullptr) {
            there->temporary = made.temporary;
            there->unreadable = made.unreadable;
            there->type = made.type;
            there->length = made.length;
        } else {
            there = &into.add(directory, std::move(made));
        }
        if (content) enter(*content, there->directory);
    }
}

void read_limits(place from, given_limits &into) {
    constexpr field<given_limits> fields[] = {
        {"name", [](place p, given_limits &l) { l.name = p.number32(); }},
        {"binary", [](place p, given_limits &l) { l.binary = p.number32(); }},
        {"depth", [](place p, given_limits &l) { l.depth = p.number32(); }},
        {"buffer", [](place p, given_limits &l) { l.buffer = p.number32(); }},
    };
    read_fields(from, into, fields);
}

// ---- devices --------------------------------------------------------------------------------------------------------

int64_t read_delay(place from) {
    const uint64_t delay = from.number();
    if (delay > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) from.wrong("number out of range");
    return static_cast<int64_t>(delay);
}

// How often an answer comes.
uint32_t read_times(place from) {
    const uint64_t times = from.number();
    if (times > 1000) from.wrong("number out of range");
    return static_cast<uint32_t>(times);
}

void read_written(place from, std::map<uint64_t, std::string> &into) {
    number_keys keys;
    for (const place member : from.members()) into[keys.take32(member)] = member.text();
}

void read_requests(place from, device_behaviour &into) {
    using outcome = device_behaviour::outcome;
    constexpr field<outcome> fields[] = {
        {"error", [](place p, outcome &o) { o.error = p.number32(); }},
        {"abort", [](place p, outcome &o) { o.abort = p.flag(); }},
        {"silent", [](place p, outcome &o) { o.silent = p.flag(); }},
        {"delay", [](place p, outcome &o) { o.delay = read_delay(p); }},
        {"code", [](place p, outcome &o) { o.code = p.number32(); }},
        {"times", [](place p, outcome &o) { o.times = read_times(p); }},
        {"request_bytes", [](place p, outcome &o) { read_written(p, o.request_bytes); }},
        {"payload_bytes", [](place p, outcome &o) { read_written(p, o.payload_bytes); }},
    };
    if (from.is_word("null")) {
        into.null_requests = true;
        return;
    }
    number_keys keys;
    for (const place member : from.members()) {
        auto &made = into.requests[keys.take32(member)];
        read_fields(member, made, fields);
        if (made.error.has_value() + made.abort + made.silent > 1) member.wrong("more than one outcome");
    }
}

void read_answers(place from, device_behaviour &into) {
    using answer = device_behaviour::answer;
    constexpr field<answer> fields[] = {
        {"code", [](place p, answer &a) { a.code = p.number32(); }},
        {"value", [](place p, answer &a) { a.value = p.number(); }},
        {"delay", [](place p, answer &a) { a.delay = read_delay(p); }},
        {"times", [](place p, answer &a) { a.times = read_times(p); }},
    };
    number_keys keys;
    for (const place member : from.members()) {
        auto &made = into.answers[keys.take32(member)];
        made.silent = member.is_word("silent");
        if (!made.silent) read_fields(member, made, fields);
    }
}

void read_opening(place from, device_behaviour &into) {
    constexpr std::pair<std::string_view, device_behaviour::opening> words[] = {
        {"refuse", device_behaviour::opening::refuse},
        {"null", device_behaviour::opening::null},
        {"silent", device_behaviour::opening::silent},
    };
    for (const auto &[word, meaning] : words) {
        if (!from.is_word(word)) continue;
        into.open = meaning;
        return;
    }
    from.wrong(R"(expected "refuse", "null" or "silent")");
}

void read_counters(place from, std::vector<unit_counters> &into) {
    using counter = std::pair<std::string, uint64_t>;
    constexpr field<unit_counters> raw_fields[] = {
        {"hex", [](place, unit_counters &) {}},  // read with its object, as every text
        {"returned", [](place p, unit_counters &u) { u.returned = p.number(); }},
    };
    number_keys keys;
    for (const place member : from.members()) {
        auto &unit = into.emplace_back();
        unit.unit = keys.take32(member);
        if (member.is_object()) {
            unit.raw = member.hex();
            read_fields(member, unit, raw_fields);
            continue;
        }
        read_list(member, unit.list, [](place element, counter &made) {
            if (!element.is_list() || element.count() != 2) element.wrong("expected a name and a number");
            auto part = element.items().begin();
            made.first = (*part).text();
            if (made.first.size() > COUNTER_MAX_NAME) {
                (*part).wrong("longer than " + std::to_string(COUNTER_MAX_NAME) + " bytes");
            }
            made.second = (*++part).number();
        });
    }
}

uint64_t read_type(place from) {
    if (const auto type = from.is_text() ? item_by_name(naming::service_type, from.text()) : std::nullopt) return *type;
    if (!from.is_number()) from.wrong("expected a number or the name of a type");
    return from.number();
}

service_result read_result(place from, uint64_t type) {
    using kind = service_result::kind;
    service_result made;
    if (from.is_integer() || (type == SVCTYPE_INTEGER && from.is_text())) {
        made.word = from.number();
    } else if (from.is_text()) {
        made.what = kind::text;
        made.text = from.text();
        if (type == SVCTYPE_SOCKADDR && !parse_address(made.text)) from.wrong("expected an address");
    } else {
        constexpr field<service_result> fields[] = {
            {"arg", [](place p, service_result &r) { r.word = p.number(); }},
        };
        if (!from.is_object()) from.wrong("expected a number, a text or an argument");
        from.at("arg");
        read_fields(from, made, fields);
        made.what = kind::argument;
    }
    return made;
}

void read_service(place from, service &into) {
    constexpr field<service> fields[] = {
        {"name", [](place p, service &s) { s.description.name = p.text(); }},
        {"args",
         [](place p, service &s) {
             read_list(p, s.description.args, [](place element, service_description::item &made) {
                 if (!element.is_list() || element.count() != 2) element.wrong("expected a key and a type");
                 auto part = element.items().begin();
                 made.key = (*part).text();
                 made.type = read_type(*++part);
             });
         }},
        {"results",
         [](place p, service &s) {
             s.values.reserve(p.count());
             for (const place element : p.items()) {
                 if (!element.is_list() || element.count() != 3) element.wrong("expected a key, a type and a value");
                 auto part = element.items().begin();
                 auto &made = s.description.results.emplace_back();
                 made.key = (*part).text();
                 made.type = read_type(*++part);
                 s.values.push_back(read_result(*++part, made.type));
             }
         }},
        {"error", [](place p, service &s) { s.error = p.number32(); }},
    };
    read_fields(from, into, fields);
}

void read_log(place from, log_record &into) {
    constexpr field<log_record> fields[] = {
        {"text", [](place p, log_record &l) { l.text = p.text(); }},
        {"emergencies",
         [](place p, log_record &l) {
             read_list(p, l.emergencies, [](place element, log_record::emergency &made) {
                 if (!element.is_list() || element.count() != 3) element.wrong("expected a list of 3 numbers");
                 auto part = element.items().begin();
                 made.word1 = (*part).number();
                 made.code = (*++part).number();
                 made.word2 = (*++part).number();
             });
         }},
    };
    read_fields(from, into, fields);
}

rtc_time read_rtc(place from) {
    rtc_time made{};
    if (!from.is_list() || from.count() != 7) from.wrong("expected a list of 7 numbers");
    auto part = from.items().begin();
    made.year = (*part).number32();
    for (uint16_t *const field : {&made.month, &made.day, &made.hour, &made.minute, &made.second, &made.millisecond}) {
        *field = (*++part).number16();
    }
    return made;
}

void read_system_service(place from, system_service &into) {
    constexpr field<system_service> fields[] = {
        {"majors",
         [](place p, system_service &s) {
             number_keys keys;
             for (const place member : p.members()) {
                 const uint32_t major = keys.take32(member);
                 s.majors.emplace_back(major, member.text());
             }
         }},
        {"max_major", [](place p, system_service &s) { s.max_major = p.number32(); }},
    };
    read_fields(from, into, fields);
}

void read_device(place from, device &into) {
    constexpr field<device> fields[] = {
        {"name",
         [](place p, device &d) {
             d.name = p.text();
             check_name(d.name, p);
         }},
        {"classes", [](place p, device &d) { read_list(p, d.behaviour.classes, read_number); }},
        {"queries",
         [](place p, device &d) {
             number_keys keys;
             for (const place member : p.members()) d.behaviour.queries[keys.take32(member)] = member.number();
         }},
        {"answers", [](place p, device &d) { read_answers(p, d.behaviour); }},
        {"open", [](place p, device &d) { read_opening(p, d.behaviour); }},
        {"requests", [](place p, device &d) { read_requests(p, d.behaviour); }},
        {"counters", [](place p, device &d) { read_counters(p, d.counters.emplace()); }},
        {"services", [](place p, device &d) { read_list(p, d.services.emplace(), read_service); }},
        {"services_total", [](place p, device &d) { d.services_total = p.number(); }},
        {"log", [](place p, device &d) { read_log(p, d.log.emplace()); }},
        {"rtc", [](place p, device &d) { d.rtc = read_rtc(p); }},
        {"system_service", [](place p, device &d) { read_system_service(p, d.system_service.emplace()); }},
    };
    from.at("name");
    read_fields(from, into, fields);
}

void read_devices(place from, std::vector<device> &into) {
    std::unordered_set<std::string> names;
    read_list(from, into, [&](place element, device &made) {
        read_device(element, made);
        if (!names.insert(made.name).second) element.at("name").wrong("another device has this name");
    });
}

// ---- terminals and faults -------------------------------------------------------------------------------------------

void read_terminals(place from, std::vector<terminal> &into) {
    for (const place member : from.members()) {
        auto &made = into.emplace_back();
        made.path = member.key();
        made.layout = member.text();
        if (made.layout.size() >= TERM_LAYOUT_SIZE) member.wrong("longer than 31 bytes");
    }
}

void read_fault(place from, fault &into) {
    constexpr field<fault> fields[] = {
        {"call",
         [](place p, fault &f) {
             const auto which = call_by_name(p.text());
             if (!which) p.wrong("no kernel call");
             f.which = *which;
         }},
        {"nth",
         [](place p, fault &f) {
             f.nth = p.number();
             if (f.nth == 0) p.wrong("calls are counted from 1");
         }},
        {"result", [](place p, fault &f) { f.result = p.number(); }},
        {"times", [](place p, fault &f) { f.times = p.number(); }},
        {"code", [](place p, fault &f) { f.code = p.number32(); }},
    };
    from.at("call");
    from.at("result");
    read_fields(from, into, fields);
    if (into.code && into.which != call::send_msg) from.at("code").wrong("only _SL_SendMsg has a code");
}

// ---- the machine ----------------------------------------------------------------------------------------------------

void read_machine(const document &file, machine_records &into) {
    using records = machine_records;
    constexpr field<records> fields[] = {
        {"format",
         [](place p, records &) {
             if (p.number() != FORMAT) p.wrong("format " + std::to_string(p.number()) + " is unknown");
         }},
        {"call_budget", [](place p, records &r) { r.call_budget = p.number(); }},
        {"tick", [](place p, records &r) { r.tick = p.number(); }},
        {"self", [](place p, records &r) { read_self(p, r.self); }},
        {"state", [](place p, records &r) { read_state(p, r.state); }},
        {"system_data", [](place p, records &r) { read_system_data(p, r.system_data); }},
        {"registers", [](place p, records &r) { read_list(p, r.registers.emplace(), read_register); }},
        {"trace", [](place p, records &r) { read_trace(p, r.trace.emplace()); }},
        {"tasks", [](place p, records &r) { read_list(p, r.tasks, read_task); }},
        {"memory_chunks", [](place p, records &r) { read_list(p, r.memory_chunks, read_object); }},
        {"virtual_spaces", [](place p, records &r) { read_list(p, r.virtual_spaces, read_object); }},
        {"registry", [](place, records &) {}},  // behind what the kernel publishes of tasks and devices
        {"registry_limits", [](place p, records &r) { read_limits(p, r.registry_limits); }},
        {"registry_requests", [](place p, records &r) { read_requests(p, r.registry_behaviour); }},
        {"devices", [](place p, records &r) { read_devices(p, r.devices); }},
        {"terminals", [](place p, records &r) { read_terminals(p, r.terminals); }},
        {"faults", [](place p, records &r) { read_list(p, r.faults, read_fault); }},
        {"exit_notices", [](place p, records &r) { read_list(p, r.exit_notices, read_pair); }},
    };
    const place root = file.root();
    read_fields(root, into, fields);
    index_objects(file, into);
    if (root.has("self")) check_self(root.at("self"), into);

    into.registry.reserve(registry::PROC, into.tasks.size());
    for (const auto &published : into.tasks) {
        if (published.name) into.registry.publish_task(published.handle, *published.name);
    }
    into.registry.reserve(registry::DEV, into.devices.size());
    for (const auto &published : into.devices) into.registry.publish_device(published.name);
    if (root.has("registry")) read_registry(root.at("registry"), into.registry);
    auto &allowed = into.registry.allowed;
    allowed.name = into.registry_limits.name.value_or(allowed.name);
    allowed.binary = into.registry_limits.binary.value_or(allowed.binary);
    allowed.depth = into.registry_limits.depth.value_or(allowed.depth);
    allowed.buffer = into.registry_limits.buffer.value_or(allowed.buffer);
}

}  // namespace

bool load(std::string_view text, machine_records &into, std::string &message) {
    document file;
    try {
        if (!file.parse(text, message)) return false;
        read_machine(file, into);
        return true;
    } catch (const bad_value &bad) {
        message = file.path(bad.node);
        if (!message.empty()) message += ": ";
        message += bad.what;
    }
    return false;
}

}  // namespace hosted::described
