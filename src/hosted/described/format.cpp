// hosted/described/format.cpp - the tables of a machine file's records, inner ones first.
#include "hosted/described/format.h"

#include <algorithm>
#include <array>
#include <tuple>

#include "hosted/described/fields.h"
#include "hosted/described/registry_content.h"
#include "hosted/described/text.h"
#include "platform/kernel.h"
#include "platform/protocol/counters.h"
#include "platform/protocol/terminal.h"

namespace hosted::described {
namespace {

constexpr uint64_t FORMAT = 1;         // of the file
constexpr uint32_t MOST_TIMES = 1000;  // that one answer comes

// ---- values ---------------------------------------------------------------------------------------------------------

struct object_handle : hexadecimal {
    static void read(json_value from, uint64_t &into) {
        const uint64_t handle = from.number();
        if (handle == 0 || handle == NO_OBJECT) from.wrong("no handle of an object");
        into = handle;
    }
};

// How often an answer comes.
struct repetitions : unless<1U, plain> {
    static void read(json_value from, uint32_t &into) {
        into = from.number_as<uint32_t>();
        if (into > MOST_TIMES) from.wrong("number out of range");
    }
};

struct error_code {
    uint64_t code = 0;
};

}  // namespace

template <> struct table<error_code> : of<error_code> {
    static constexpr field fields[] = {required(key<&error_code::code>("error"))};
};

namespace {

// The value of an item: a number, or {"error": code}.
template <naming Kind> struct item_value : codec {
    static void read(json_value from, item &into) {
        into.error = from.is_object();
        if (!into.error) {
            into.value = from.number();
            return;
        }
        error_code code;
        record_of<error_code>::read(from, code);
        into.value = code.code;
    }
    static void write(json_writer &out, const item &value) {
        if (value.error) return record_of<error_code>::write(out, {value.value});
        write_number(out, item_form(Kind, value.number), value.value);
    }
    static std::string describe() { return describe_reference("item"); }
};

// The kernel answers some of the state items itself.
struct state_value : item_value<naming::state> {
    static void read(json_value from, item &into) {
        const uint64_t number = into.number;
        if (number == KSTATE_CURRENT_THREAD || number == KSTATE_CURRENT_TASK || number == KSTATE_TICK)
            from.wrong("the kernel provides this item");
        into.value = from.number();
    }
    static std::string describe() { return describe_reference("number"); }
};

// A group of system data: its items by number, or a list of them from number 0.
struct group_items : codec {
    static void read(json_value from, data_group &into) {
        into.is_list = from.is_list();
        if (into.is_list) {
            list_of<item_value<naming::none>, false>::read(from, into.items);
            for (size_t i = 0; i < into.items.size(); ++i) into.items[i].number = i;
            return;
        }
        into.items.reserve(from.count());
        number_keys keys;
        for (const json_value member : from.members()) {
            member.attempt([&] {
                item made;
                made.number = keys.take(member, index_naming(into.number), UINT64_MAX);
                item_value<naming::none>::read(member, made);
                into.index.emplace(made.number, into.items.size());
                into.items.push_back(made);
            });
        }
    }
    static void write(json_writer &out, const data_group &value) {
        if (value.is_list) return list_of<item_value<naming::none>, false>::write(out, value.items);
        out.begin_object(true);
        for (const item &each : value.items) {
            out.key(item_key(index_naming(value.number), each.number));
            item_value<naming::none>::write(out, each);
        }
        out.end();
    }
    static std::string describe() {
        return describe_any({list_of<item_value<naming::none>, false>::describe(),
                             R"({"type": "object", "additionalProperties": {"$ref": "#/$defs/item"}})"});
    }
};

}  // namespace

// ---- objects and tasks ----------------------------------------------------------------------------------------------

template <class Object>
constexpr field HANDLE = required(of<Object>::template key<&Object::handle, object_handle>("handle"));
template <class Object>
constexpr field
    INFO = of<Object>::template key<&Object::info, keyed<naming::object, item_value<naming::object>>>("info");

template <> struct table<object> { static constexpr field fields[] = {HANDLE<object>, INFO<object>}; };

template <> struct table<thread> : of<thread> {
    using values = thread::register_values;
    static constexpr field fields[] = {
        HANDLE<thread>,
        INFO<thread>,
        key<&thread::registers, keyed<naming::none, member_as<&values::nodes, list_of<hexadecimal, false>>>>(
            "registers"),
    };
};

template <> struct table<refusals> : of<refusals> {
    static constexpr field fields[] = {
        key<&refusals::deletion>("delete"), key<&refusals::control>("control"), key<&refusals::exception>("exception"),
        key<&refusals::threads>("threads"), key<&refusals::memos>("memos"),     key<&refusals::views>("views"),
        key<&refusals::isrs>("isrs"),
    };
};

template <> struct table<raised_exception> : of<raised_exception> {
    static constexpr std::string_view expected = "expected a list of 2 numbers";
    static constexpr field fields[] = {key<&raised_exception::id>("id"),
                                       key<&raised_exception::parameter>("parameter")};
};

template <> struct table<task> : of<task> {
    static constexpr field fields[] = {
        HANDLE<task>,
        key<&task::name>("name"),
        key<&task::pid>("pid"),
        key<&task::ppid>("ppid"),
        key<&task::pgid>("pgid"),
        key<&task::sid>("sid"),
        INFO<task>,
        key<&task::refuse>("refuse"),
        key<&task::exceptions, list_of<row_of<raised_exception>, false>>("exceptions"),
        key<&task::threads>("threads"),
        key<&task::memos>("memos"),
        key<&task::views>("views"),
        key<&task::isrs>("isrs"),
    };
    static void check(json_value, task &read) {
        for (auto &memo : read.memos) memo.owner = read.handle;
    }
};

// ---- the calling task and system data -------------------------------------------------------------------------------

template <> struct table<calling_task> : of<calling_task> {
    using handle = optional_of<object_handle>;
    static constexpr field fields[] = {
        key<&calling_task::task, handle>("task"),
        key<&calling_task::thread, handle>("thread"),
        key<&calling_task::super>("super"),
    };
};

template <> struct table<cpu_register> : of<cpu_register> {
    static constexpr field fields[] = {
        required(key<&cpu_register::name>("name")),
        key<&cpu_register::id>("id"),
        key<&cpu_register::type, hexadecimal>("type"),
    };
};

template <> struct table<kernel_trace> : of<kernel_trace> {
    static constexpr field fields[] = {
        key<&kernel_trace::words_per_buffer>("words_per_buffer"),
        key<&kernel_trace::largest_entry>("largest_entry"),
        key<&kernel_trace::words>("words"),
    };
};

template <> struct table<given_limits> : of<given_limits> {
    static constexpr field fields[] = {
        key<&given_limits::name>("name"),
        key<&given_limits::binary>("binary"),
        key<&given_limits::depth>("depth"),
        key<&given_limits::buffer>("buffer"),
    };
};

// ---- how devices behave ---------------------------------------------------------------------------------------------

using outcome = device_behaviour::outcome;
using answer = device_behaviour::answer;

template <> struct table<outcome> : of<outcome> {
    using flag = unless<false, truth>;
    using written = keyed<naming::none, plain_text, false, uint32_t>;
    static constexpr field fields[] = {
        key<&outcome::error>("error"),
        key<&outcome::abort, flag>("abort"),
        key<&outcome::silent, flag>("silent"),
        key<&outcome::delay, unless<0, plain>>("delay"),
        key<&outcome::code>("code"),
        key<&outcome::times, repetitions>("times"),
        key<&outcome::request_bytes, written>("request_bytes"),
        key<&outcome::payload_bytes, written>("payload_bytes"),
    };
    static void check(json_value from, const outcome &read) {
        if (read.error.has_value() + read.abort + read.silent > 1) from.wrong("more than one outcome");
    }
};

template <> struct table<answer> : of<answer> {
    static constexpr field fields[] = {
        key<&answer::code>("code"),
        key<&answer::value>("value"),
        key<&answer::delay, unless<0, plain>>("delay"),
        key<&answer::times, repetitions>("times"),
    };
};

namespace {

// {command: outcome}, or "null" for a device that makes no requests.
struct request_outcomes : codec {
    using outcomes = keyed<naming::none, record_of<outcome>, true, uint32_t>;
    static constexpr bool on_line = true;
    static void read(json_value from, device_behaviour &into) {
        into.null_requests = from.is_word("null");
        if (!into.null_requests) outcomes::read(from, into.requests);
    }
    static void write(json_writer &out, const device_behaviour &value) {
        if (value.null_requests) return out.text("null");
        outcomes::write(out, value.requests);
    }
    static bool absent(const device_behaviour &value) { return !value.null_requests && value.requests.empty(); }
    static std::string describe() { return describe_any({R"({"const": "null"})", outcomes::describe()}); }
};

struct query_answer : codec {
    static void read(json_value from, answer &into) {
        into.silent = from.is_word("silent");
        if (!into.silent) record_of<answer>::read(from, into);
    }
    static void write(json_writer &out, const answer &value) {
        if (value.silent) return out.text("silent");
        record_of<answer>::write(out, value);
    }
    static std::string describe() { return describe_any({R"({"const": "silent"})", record_of<answer>::describe()}); }
};

struct opening_word : codec {
    using opening = device_behaviour::opening;
    static constexpr std::string_view words[] = {"refuse", "null", "silent"};
    static constexpr opening meanings[] = {opening::refuse, opening::null, opening::silent};

    static void read(json_value from, opening &into) {
        for (size_t i = 0; i < std::size(words); ++i) {
            if (!from.is_word(words[i])) continue;
            into = meanings[i];
            return;
        }
        from.wrong(R"(expected "refuse", "null" or "silent")");
    }
    static void write(json_writer &out, opening value) {
        out.text(words[std::find(std::begin(meanings), std::end(meanings), value) - std::begin(meanings)]);
    }
    static bool absent(opening value) { return value == opening::accept; }
    static std::string describe() { return describe_words(words); }
};

struct counter_name : plain_text {
    static void read(json_value from, std::string &into) {
        into = from.text();
        if (into.size() > COUNTER_MAX_NAME) from.wrong("longer than " + std::to_string(COUNTER_MAX_NAME) + " bytes");
    }
};

}  // namespace

// ---- what devices serve ---------------------------------------------------------------------------------------------

template <> struct table<counter> : of<counter> {
    static constexpr std::string_view expected = "expected a name and a number";
    static constexpr field fields[] = {key<&counter::name, counter_name>("name"), key<&counter::value>("value")};
};

namespace {

// The raw bytes of a unit's counters; without "returned" they are like any text that is not UTF-8.
struct raw_bytes : codec {
    static void read(json_value from, std::optional<std::string> &into) {
        into = parse_hex(from.text());
        if (!into) from.wrong("expected pairs of hexadecimal digits");
    }
    static void write(json_writer &out, const std::optional<std::string> &value) { out.text(hex_text(*value)); }
    static std::string describe() { return describe_reference("hex"); }
};

}  // namespace

template <> struct table<unit_counters> : of<unit_counters> {
    static constexpr field fields[] = {
        required(key<&unit_counters::raw, raw_bytes>("hex")),
        key<&unit_counters::returned>("returned"),
    };
};

namespace {

// A list of counters, or raw bytes.
struct counters_of_unit : codec {
    using counters = list_of<row_of<counter>, true>;
    using raw = record_of<unit_counters>;
    static void read(json_value from, unit_counters &into) {
        if (from.is_object()) return raw::read(from, into);
        counters::read(from, into.list);
    }
    static void write(json_writer &out, const unit_counters &value) {
        if (value.raw) return raw::write(out, value);
        counters::write(out, value.list);
    }
    static std::string describe() { return describe_any({counters::describe(), raw::describe()}); }
};

struct service_type : codec {
    static void read(json_value from, uint64_t &into) {
        const auto type = from.is_text() ? item_by_name(naming::service_type, from.text()) : std::nullopt;
        if (!type && !from.is_number()) {
            constexpr std::string_view what = "expected a number or the name of a type";
            if (from.is_text()) from.unknown(what, from.text(), item_names(naming::service_type));
            from.wrong(what);
        }
        into = type ? *type : from.number();
    }
    static void write(json_writer &out, uint64_t value) {
        const auto name = item_name(naming::service_type, value);
        if (name.empty()) return out.number(value);
        out.text(name);
    }
    static std::string describe() { return describe_reference(key_definition(naming::service_type)); }
};

struct argument_index {
    uint64_t index = 0;
};

// A service's result as the file lists it.
struct listed_result {
    service_description::item about;
    service_result value;
};

}  // namespace

template <> struct table<argument_index> : of<argument_index> {
    static constexpr field fields[] = {required(key<&argument_index::index>("arg"))};
};

template <> struct table<service_description::item> : of<service_description::item> {
    static constexpr std::string_view expected = "expected a key and a type";
    static constexpr field fields[] = {key<&service_description::item::key>("key"),
                                       key<&service_description::item::type, service_type>("type")};
};

namespace {

struct result_value : codec {
    using kind = service_result::kind;
    static void read(json_value from, listed_result &into) {
        service_result &made = into.value;
        if (from.is_integer() || (into.about.type == SVCTYPE_INTEGER && from.is_text())) {
            made.word = from.number();
        } else if (from.is_text()) {
            made.what = kind::text;
            made.text = from.text();
            if (into.about.type == SVCTYPE_SOCKADDR && !parse_address(made.text)) from.wrong("expected an address");
        } else if (from.is_object()) {
            argument_index given;
            record_of<argument_index>::read(from, given);
            made.what = kind::argument;
            made.word = given.index;
        } else {
            from.wrong("expected a number, a text or an argument");
        }
    }
    static void write(json_writer &out, const listed_result &from) {
        switch (from.value.what) {
        case kind::word: return out.number(from.value.word);
        case kind::text: return out.text(from.value.text);
        case kind::argument: return record_of<argument_index>::write(out, {from.value.word});
        }
    }
    static std::string describe() {
        return describe_any({plain::describe(), plain_text::describe(), record_of<argument_index>::describe()});
    }
};

}  // namespace

template <> struct table<listed_result> : of<listed_result> {
    using about = service_description::item;
    static constexpr std::string_view expected = "expected a key, a type and a value";
    static constexpr field fields[] = {
        key<&listed_result::about, member_as<&about::key, plain_text>>("key"),
        key<&listed_result::about, member_as<&about::type, service_type>>("type"),
        whole<result_value>("value"),
    };
};

namespace {

// A service's results, stored apart as descriptions and values.
struct service_results : codec {
    using results = list_of<row_of<listed_result>, false>;
    static void read(json_value from, service &into) {
        std::vector<listed_result> listed;
        results::read(from, listed);
        for (auto &[about, value] : listed) {
            into.description.results.push_back(std::move(about));
            into.values.push_back(std::move(value));
        }
    }
    static void write(json_writer &out, const service &from) {
        std::vector<listed_result> listed;
        for (size_t i = 0; i < from.values.size(); ++i) listed.push_back({from.description.results[i], from.values[i]});
        results::write(out, listed);
    }
    static bool absent(const service &from) { return from.values.empty(); }
    static std::string describe() { return results::describe(); }
};

// A text, or a list of texts that are joined. Written as the lines and what follows the last of them, so that a line
// that a run adds changes no other.
struct log_text : codec {
    using lines = list_of<plain_text, true>;
    static constexpr bool on_line = true;
    static void read(json_value from, std::string &into) {
        if (!from.is_list()) return plain_text::read(from, into);
        std::vector<std::string> parts;
        lines::read(from, parts);
        for (const auto &part : parts) into += part;
    }
    static void write(json_writer &out, const std::string &value) {
        out.begin_list(true);
        std::string_view rest = value;
        for (size_t end = rest.find('\n'); end != rest.npos; end = rest.find('\n')) {
            out.text(rest.substr(0, end + 1));
            rest.remove_prefix(end + 1);
        }
        out.text(rest);
        out.end();
    }
    static std::string describe() { return describe_any({plain_text::describe(), lines::describe()}); }
};

using emergency = log_record::emergency;

}  // namespace

template <> struct table<service> : of<service> {
    using about = service_description;
    static constexpr field fields[] = {
        key<&service::description, member_as<&about::name, plain_text>>("name"),
        key<&service::description, member_as<&about::args, list_of<row_of<about::item>, false>>>("args"),
        whole<service_results>("results"),
        key<&service::error>("error"),
    };
};

template <> struct table<emergency> : of<emergency> {
    static constexpr std::string_view expected = "expected a list of 3 numbers";
    static constexpr field fields[] = {key<&emergency::word1>("first word"), key<&emergency::code>("code"),
                                       key<&emergency::word2>("second word")};
};

template <> struct table<log_record> : of<log_record> {
    static constexpr field fields[] = {
        key<&log_record::emergencies, list_of<row_of<emergency>, false>>("emergencies"),
        key<&log_record::text, log_text>("text"),
    };
};

template <> struct table<rtc_time> : of<rtc_time> {
    static constexpr std::string_view expected = "expected a list of 7 numbers";
    static constexpr field fields[] = {
        key<&rtc_time::year>("year"),
        key<&rtc_time::month>("month"),
        key<&rtc_time::day>("day"),
        key<&rtc_time::hour>("hour"),
        key<&rtc_time::minute>("minute"),
        key<&rtc_time::second>("second"),
        key<&rtc_time::millisecond>("millisecond"),
    };
};

template <> struct table<system_service> : of<system_service> {
    static constexpr field fields[] = {
        key<&system_service::max_major>("max_major"),
        key<&system_service::majors, keyed<naming::none, plain_text, true, uint32_t>>("majors"),
    };
};

namespace {

struct device_name : plain_text {
    static void read(json_value from, std::string &into) {
        into = from.text();
        check_registry_name(from, into);
    }
};

}  // namespace

template <> struct table<device> : of<device> {
    using queries = keyed<naming::none, plain, true, uint32_t>;
    using answers = keyed<naming::none, query_answer, true, uint32_t>;
    using counters = keyed<naming::none, counters_of_unit, true, uint32_t>;
    static constexpr field fields[] = {
        required(key<&device::name, device_name>("name")),
        key<&device::open, opening_word>("open"),
        key<&device::classes>("classes"),
        key<&device::services_total>("services_total"),
        key<&device::rtc, optional_of<row_of<rtc_time>>>("rtc"),
        key<&device::queries, queries>("queries"),
        key<&device::answers, answers>("answers"),
        whole<request_outcomes>("requests"),
        key<&device::counters, optional_of<counters>>("counters"),
        key<&device::services>("services"),
        key<&device::log>("log"),
        key<&device::system_service>("system_service"),
    };
};

// ---- faults and terminals -------------------------------------------------------------------------------------------

namespace {

struct call_code : codec {
    static void read(json_value from, call &into) {
        const auto which = call_by_name(from.text());
        if (!which) from.unknown("no kernel call", from.text(), call_names());
        into = *which;
    }
    static void write(json_writer &out, call value) { out.text(call_name(value)); }
    static std::string describe() { return describe_words(call_names()); }
    static std::array<std::string_view, CALL_COUNT> call_names() {
        std::array<std::string_view, CALL_COUNT> names;
        for (size_t i = 0; i < names.size(); ++i) names[i] = call_name(static_cast<call>(i));
        return names;
    }
};

struct first_call : plain {
    static void read(json_value from, uint64_t &into) {
        into = from.number();
        if (into == 0) from.wrong("calls are counted from 1");
    }
};

struct keyboard_layouts : codec {
    static constexpr bool on_line = true;
    static void read(json_value from, std::vector<terminal> &into) {
        for (const json_value member : from.members()) {
            member.attempt([&] {
                into.push_back({std::string(member.key()), member.text()});
                if (into.back().layout.size() >= TERM_LAYOUT_SIZE)
                    member.wrong("longer than " + std::to_string(TERM_LAYOUT_SIZE - 1) + " bytes");
            });
        }
    }
    static void write(json_writer &out, const std::vector<terminal> &value) {
        out.begin_object(true);
        for (const auto &[path, layout] : value) {
            out.key(path);
            out.text(layout);
        }
        out.end();
    }
    static bool absent(const std::vector<terminal> &value) { return value.empty(); }
    static std::string describe() {
        return R"({"type": "object", "additionalProperties": )" + plain_text::describe() + "}";
    }
};

}  // namespace

template <> struct table<fault> : of<fault> {
    static constexpr field fields[] = {
        required(key<&fault::which, call_code>("call")),
        key<&fault::code>("code"),
        key<&fault::nth, first_call>("nth"),
        required(key<&fault::result>("result")),
        key<&fault::times>("times"),
    };
    static void check(json_value from, const fault &read) {
        if (read.code && read.which != call::send_msg) from.at("code").wrong("only _SL_SendMsg has a code");
    }
};

template <> struct table<exit_notice> : of<exit_notice> {
    static constexpr std::string_view expected = "expected a list of 2 numbers";
    static constexpr field fields[] = {key<&exit_notice::master, hexadecimal>("master handle"),
                                       key<&exit_notice::word>("second word")};
};

// ---- the machine ----------------------------------------------------------------------------------------------------

namespace {

struct format_number : codec {
    static void read(json_value from, machine_records &) {
        if (const uint64_t format = from.number(); format != FORMAT)
            from.wrong("format " + std::to_string(format) + " is unknown");
    }
    static void write(json_writer &out, const machine_records &) { out.number(FORMAT); }
    static std::string describe() { return R"({"const": )" + std::to_string(FORMAT) + "}"; }
};

// Read last, after the tasks and devices whose entries the kernel publishes.
struct registry_root : codec {
    static constexpr bool on_line = true;
    static void read(json_value, registry &) {}
    static void write(json_writer &out, const registry &value) { write_registry(out, value); }
    static bool absent(const registry &value) { return !is_registry_given(value); }
    static std::string describe() { return describe_reference("directory"); }
};

}  // namespace

template <> struct table<machine_records> : of<machine_records> {
    using records = machine_records;
    using state = keyed<naming::state, state_value, true>;
    using system_data = keyed<naming::data_group, group_items, true>;
    static constexpr field fields[] = {
        whole<format_number>("format"),
        key<&records::call_budget>("call_budget"),
        key<&records::tick>("tick"),
        key<&records::exit_notices, list_of<row_of<exit_notice>, false>>("exit_notices"),
        key<&records::self>("self"),
        key<&records::state, state>("state"),
        key<&records::system_data, system_data>("system_data"),
        key<&records::registers>("registers"),
        key<&records::trace>("trace"),
        key<&records::tasks>("tasks"),
        key<&records::memory_chunks>("memory_chunks"),
        key<&records::virtual_spaces>("virtual_spaces"),
        key<&records::registry, registry_root>("registry"),
        key<&records::registry_limits>("registry_limits"),
        key<&records::registry_behaviour, request_outcomes>("registry_requests"),
        key<&records::devices>("devices"),
        key<&records::terminals, keyboard_layouts>("terminals"),
        key<&records::faults>("faults"),
    };
};

namespace {

// Indexes the objects by their handles, and refuses a handle that another object has.
void index_objects(const document &file, machine_records &all) {
    using kind = object_index::kind;
    size_t count = all.tasks.size() + all.memory_chunks.size() + all.virtual_spaces.size();
    for (const auto &made : all.tasks)
        count += made.threads.size() + made.memos.size() + made.views.size() + made.isrs.size();
    all.objects.reserve(count);
    for (auto &made : all.tasks) {
        all.objects.add(kind::task, made);
        for (auto &inner : made.threads) all.objects.add(kind::thread, inner);
        for (auto *const list : {&made.memos, &made.views, &made.isrs}) {
            for (auto &inner : *list) all.objects.add(kind::other, inner);
        }
    }
    for (auto *const list : {&all.memory_chunks, &all.virtual_spaces}) {
        for (auto &made : *list) all.objects.add(kind::other, made);
    }
    for (const object *const repeated : all.objects.sort()) {
        if (repeated->handle == 0) continue;  // it had no proper one, which has been found already
        const json_value handle = json_value(file, repeated->node).at("handle");
        handle.attempt([&] { handle.wrong("another object has this handle"); });
    }
}

// A calling task or thread may be listed as such, and as nothing else.
void check_self(json_value from, const machine_records &all) {
    using kind = object_index::kind;
    for (const auto &[key, handle, expected] :
         {std::tuple("task", all.self.task, kind::task), {"thread", all.self.thread, kind::thread}}) {
        const auto *const listed = handle ? all.objects.find(*handle) : nullptr;
        if (listed == nullptr || listed->what == expected) continue;
        const json_value given = from.at(key);
        given.attempt([&] { given.wrong("an object of another kind has this handle"); });
    }
    if (all.self.task && all.self.task == all.self.thread) from.at("thread").wrong("the task has this handle");
}

void check_device_names(json_value from) {
    std::unordered_set<std::string> names;
    for (const json_value listed : from.items()) {
        listed.attempt([&] {
            if (!names.insert(listed.at("name").text()).second) listed.at("name").wrong("another device has this name");
        });
    }
}

void publish(machine_records &into) {
    auto &registry = into.registry;
    registry.reserve(registry::PROC, into.tasks.size());
    for (const auto &listed : into.tasks) {
        if (listed.name) registry.publish_task(listed.handle, *listed.name);
    }
    registry.reserve(registry::DEV, into.devices.size());
    for (const auto &listed : into.devices) registry.publish_device(listed.name);
    auto &allowed = registry.allowed;
    allowed.name = into.registry_limits.name.value_or(allowed.name);
    allowed.binary = into.registry_limits.binary.value_or(allowed.binary);
    allowed.depth = into.registry_limits.depth.value_or(allowed.depth);
    allowed.buffer = into.registry_limits.buffer.value_or(allowed.buffer);
}

}  // namespace

void read_machine(const document &file, machine_records &into) {
    const json_value root = file.root();
    root.attempt([&] {
        record_of<machine_records>::read(root, into);
        index_objects(file, into);
        if (root.has("self")) root.attempt([&] { check_self(root.at("self"), into); });
        if (root.has("devices")) root.attempt([&] { check_device_names(root.at("devices")); });
        publish(into);
        if (root.has("registry")) root.attempt([&] { read_registry(root.at("registry"), into.registry); });
    });
}

bool load(std::string_view text, machine_records &into, std::string &message) {
    document file;
    try {
        if (!file.parse(text, message)) return false;
        read_machine(file, into);
        return true;
    } catch (const bad_value &bad) {
        message = locator(file).path(bad.node);
        if (!message.empty()) message += ": ";
        message += bad.what;
    }
    return false;
}

const value_format &machine_format() { return format_of<record_of<machine_records>, machine_records>; }

std::string machine_text(const machine_records &from, size_t room) {
    json_writer out;
    out.reserve(room);
    write_fields(out, &from, table<machine_records>::fields, true);
    return out.take() + '\n';
}

}  // namespace hosted::described
