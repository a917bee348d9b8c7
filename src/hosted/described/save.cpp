// hosted/described/save.cpp - the text of a machine file.
#include "hosted/described/save.h"

#include <algorithm>
#include <charconv>

#include "hosted/described/names.h"
#include "hosted/described/text.h"
#include "hosted/utf8.h"

namespace hosted::described {
namespace {

constexpr size_t INDENT = 2;           // blanks per level
constexpr size_t DEEPEST_INDENT = 16;  // levels: a deeply nested registry does not drown in blanks

constexpr uint64_t FIRST_CODE = 0x1000;  // keys from here on are codes, which everyone knows in hexadecimal

// How the values inside a list or an object stand.
enum class layout : uint8_t {
    lines,    // on lines of their own
    in_line,  // beside one another, with all that is inside them
    hugged,   // beside its brackets, what is inside as it likes
};

// Writes one JSON value after another.
class json_writer {
public:
    void begin_object(layout inside = layout::lines) { begin('{', '}', inside); }
    void begin_list(layout inside = layout::lines) { begin('[', ']', inside); }

    void end() {
        const level closed = open_.back();
        open_.pop_back();
        if (closed.inside == layout::lines) {
            --indent_;
            if (!closed.empty) line();
        }
        out_.push_back(closed.bracket);
        if (open_.empty()) out_.push_back('\n');
    }

    void key(std::string_view name) {
        next();
        quote(name);
        out_ += ": ";
        keyed_ = true;
    }

    // A member of an object whose keys are numbers: by its name, or as the digits that its kind is known by.
    void key(naming kind, uint64_t item) {
        const auto name = item_name(kind, item);
        if (!name.empty()) return key(name);
        char digits[2 + 20] = {'0', 'x'};
        const bool code = item >= FIRST_CODE;
        const auto end = std::to_chars(digits + (code ? 2 : 0), std::end(digits), item, code ? 16 : 10).ptr;
        key({digits, end});
    }

    void number(uint64_t value) {
        next();
        char digits[20];
        out_.append(digits, std::to_chars(digits, std::end(digits), value).ptr);
    }

    void flag(bool value) {
        next();
        out_ += value ? "true" : "false";
    }

    // A text; what is not UTF-8 as its bytes.
    void text(std::string_view value) {
        if (!is_utf8(value)) return hex(value);
        next();
        quote(value);
    }

    void hex(std::string_view bytes) {
        next();
        out_ += "{\"hex\": \"";
        out_ += hex_text(bytes);
        out_ += "\"}";
    }

    // One member of an object.
    void member(std::string_view name, uint64_t value) {
        key(name);
        number(value);
    }
    template <class Number> void member(std::string_view name, const std::optional<Number> &value) {
        if (value) member(name, *value);
    }

    std::string take() { return std::move(out_); }

private:
    struct level {
        char bracket;
        layout inside;
        bool empty = true;
    };

    void begin(char opening, char closing, layout inside) {
        next();
        out_.push_back(opening);
        if (!open_.empty() && open_.back().inside == layout::in_line) inside = layout::in_line;
        if (inside == layout::lines) ++indent_;
        open_.push_back({closing, inside});
    }

    // Goes to where the next value or key stands.
    void next() {
        if (std::exchange(keyed_, false) || open_.empty()) return;
        level &here = open_.back();
        if (!here.empty) out_ += here.inside == layout::lines ? "," : ", ";
        if (here.inside == layout::lines) line();
        here.empty = false;
    }

    void line() {
        out_.push_back('\n');
        out_.append(std::min(indent_, DEEPEST_INDENT) * INDENT, ' ');
    }

    void quote(std::string_view value) {
        out_.push_back('"');
        for (const char c : value) {
            switch (c) {
            case '"': out_ += "\\\""; break;
            case '\\': out_ += "\\\\"; break;
            case '\n': out_ += "\\n"; break;
            case '\r': out_ += "\\r"; break;
            case '\t': out_ += "\\t"; break;
            default:
                if (static_cast<uint8_t>(c) >= ' ' && c != 0x7F) {
                    out_.push_back(c);
                } else {
                    constexpr char digits[] = "0123456789abcdef";
                    out_ += "\\u00";
                    out_.push_back(digits[static_cast<uint8_t>(c) >> 4]);
                    out_.push_back(digits[c & 15]);
                }
            }
        }
        out_.push_back('"');
    }

    std::string out_;
    std::vector<level> open_;
    size_t indent_ = 0;   // levels
    bool keyed_ = false;  // a key stands there, its value comes next
};

// ---- objects --------------------------------------------------------------------------------------------------------

void write_item(json_writer &out, const item &from) {
    if (!from.error) return out.number(from.value);
    out.begin_object(layout::in_line);
    out.member("error", from.value);
    out.end();
}

void write_numbers(json_writer &out, const std::vector<uint64_t> &numbers) {
    out.begin_list(layout::in_line);
    for (const uint64_t number : numbers) out.number(number);
    out.end();
}

void write_pairs(json_writer &out, std::string_view key, const std::vector<std::pair<uint64_t, uint64_t>> &pairs) {
    if (pairs.empty()) return;
    out.key(key);
    out.begin_list(layout::in_line);
    for (const auto &[first, second] : pairs) write_numbers(out, {first, second});
    out.end();
}

void begin_object(json_writer &out, const object &from) {
    out.begin_object();
    out.member("handle", from.handle);
}

void write_info(json_writer &out, const object &from) {
    if (from.info.empty()) return;
    out.key("info");
    out.begin_object();
    for (const item &given : from.info) {
        out.key(naming::object, given.number);
        write_item(out, given);
    }
    out.end();
}

void write_object(json_writer &out, const object &from) {
    begin_object(out, from);
    write_info(out, from);
    out.end();
}

void write_thread(json_writer &out, const thread &from) {
    begin_object(out, from);
    write_info(out, from);
    if (!from.registers.empty()) {
        out.key("registers");
        out.begin_object();
        for (const auto &values : from.registers) {
            out.key(naming::none, values.id);
            write_numbers(out, values.nodes);
        }
        out.end();
    }
    out.end();
}

template <class Record, class Write>
void write_list(json_writer &out, std::string_view key, const std::vector<Record> &list, Write write) {
    const auto is_gone = [](const Record &record) {
        if constexpr (std::is_base_of_v<object, Record>) return record.gone;
        return false;
    };
    if (std::all_of(list.begin(), list.end(), is_gone)) return;
    out.key(key);
    out.begin_list();
    for (const Record &record : list) {
        if (!is_gone(record)) write(out, record);
    }
    out.end();
}

void write_task(json_writer &out, const task &from) {
    begin_object(out, from);
    if (from.name) {
        out.key("name");
        out.text(*from.name);
    }
    out.member("pid", from.pid);
    out.member("ppid", from.ppid);
    out.member("pgid", from.pgid);
    out.member("sid", from.sid);
    write_info(out, from);
    write_list(out, "threads", from.threads, write_thread);
    write_list(out, "memos", from.memos, write_object);
    write_list(out, "views", from.views, write_object);
    write_list(out, "isrs", from.isrs, write_object);
    const auto &refuse = from.refuse;
    const std::pair<const char *, std::optional<uint64_t>> refused[] = {
        {"delete", refuse.deletion}, {"control", refuse.control}, {"exception", refuse.exception},
        {"threads", refuse.threads}, {"memos", refuse.memos},     {"views", refuse.views},
        {"isrs", refuse.isrs},
    };
    if (std::any_of(std::begin(refused), std::end(refused), [](const auto &each) { return each.second; })) {
        out.key("refuse");
        out.begin_object(layout::in_line);
        for (const auto &[key, code] : refused) out.member(key, code);
        out.end();
    }
    write_pairs(out, "exceptions", from.exceptions);
    out.end();
}

// ---- state and system data ------------------------------------------------------------------------------------------

void write_self(json_writer &out, const calling_task &from) {
    if (!from.task && !from.thread && !from.super) return;
    out.key("self");
    out.begin_object(layout::in_line);
    out.member("task", from.task);
    out.member("thread", from.thread);
    if (from.super) {
        out.key("super");
        out.flag(*from.super);
    }
    out.end();
}

void write_system_data(json_writer &out, const std::vector<data_group> &from) {
    if (from.empty()) return;
    out.key("system_data");
    out.begin_object();
    for (const auto &group : from) {
        out.key(naming::data_group, group.group);
        if (group.is_list) {
            out.begin_list(layout::in_line);
        } else {
            out.begin_object();
        }
        for (const item &given : group.items) {
            if (!group.is_list) out.key(index_naming(group.group), given.number);
            write_item(out, given);
        }
        out.end();
    }
    out.end();
}

void write_registers(json_writer &out, const std::vector<cpu_register> &from) {
    out.key("registers");
    out.begin_list();
    for (const auto &known : from) {
        out.begin_object(layout::in_line);
        out.key("name");
        out.text(known.name);
        out.member("id", known.id);
        out.member("type", known.type);
        out.end();
    }
    out.end();
}

void write_trace(json_writer &out, const kernel_trace &from) {
    out.key("trace");
    out.begin_object();
    out.member("words_per_buffer", from.words_per_buffer);
    out.member("largest_entry", from.largest_entry);
    out.key("words");
    write_numbers(out, from.words);
    out.end();
}

// ---- registry -------------------------------------------------------------------------------------------------------

// The kernel's own entries are made anew by every load; of its directories what the file gave for them is written.
bool is_given(const registry &from, const registry::entry &there) {
    if (!there.published) return true;
    if (there.holds != registry::entry::kind::directory) return false;
    if (there.temporary || there.unreadable || there.type || there.length) return true;
    const auto entries = from.entries(there.directory);
    return std::any_of(entries.begin(), entries.end(), [&](const auto &inner) { return is_given(from, inner); });
}

void write_registry(json_writer &out, const registry &from) {
    struct level {
        uint32_t directory;
        size_t next;
        size_t brackets;  // to close behind it
    };
    const auto root = from.entries(registry::ROOT);
    if (std::none_of(root.begin(), root.end(), [&](const auto &there) { return is_given(from, there); })) return;
    out.key("registry");
    out.begin_object();
    std::vector<level> open{{registry::ROOT, 0, 1}};
    while (!open.empty()) {
        const auto entries = from.entries(open.back().directory);
        if (open.back().next == entries.size()) {
            for (size_t i = 0; i < open.back().brackets; ++i) out.end();
            open.pop_back();
            continue;
        }
        const auto &there = entries[open.back().next++];
        if (!is_given(from, there)) continue;
        out.key(there.name);
        size_t brackets = 0;
        const auto begin = [&](std::string_view key) {
            out.begin_object(layout::hugged);
            out.key(key);
            ++brackets;
        };
        if (there.unreadable) begin("unreadable");
        if (there.type || there.length) {
            out.begin_object(layout::hugged);
            ++brackets;
            out.member("type", there.type);
            out.member("length", there.length);
            if (there.holds != registry::entry::kind::nothing) out.key("value");
        }
        switch (there.holds) {
        case registry::entry::kind::integer: out.number(there.number); break;
        case registry::entry::kind::bytes: out.text(there.bytes); break;
        case registry::entry::kind::directory:
            begin(there.temporary ? "tmp" : "dir");
            out.begin_object();
            open.push_back({there.directory, 0, brackets + 1});
            continue;
        case registry::entry::kind::nothing:
        case registry::entry::kind::port: break;
        }
        while (brackets-- > 0) out.end();
    }
}

void write_limits(json_writer &out, const given_limits &from) {
    if (!from.name && !from.binary && !from.depth && !from.buffer) return;
    out.key("registry_limits");
    out.begin_object(layout::in_line);
    out.member("name", from.name);
    out.member("binary", from.binary);
    out.member("depth", from.depth);
    out.member("buffer", from.buffer);
    out.end();
}

// ---- devices --------------------------------------------------------------------------------------------------------

void write_written(json_writer &out, std::string_view key, const std::map<uint64_t, std::string> &from) {
    if (from.empty()) return;
    out.key(key);
    out.begin_object(layout::in_line);
    for (const auto &[offset, bytes] : from) {
        out.key(naming::none, offset);
        out.text(bytes);
    }
    out.end();
}

void write_requests(json_writer &out, std::string_view key, const device_behaviour &from) {
    if (from.null_requests) {
        out.key(key);
        return out.text("null");
    }
    if (from.requests.empty()) return;
    out.key(key);
    out.begin_object();
    for (const auto &[command, outcome] : from.requests) {
        out.key(naming::none, command);
        out.begin_object(layout::in_line);
        out.member("error", outcome.error);
        for (const auto &[name, set] : {std::pair("abort", outcome.abort), std::pair("silent", outcome.silent)}) {
            if (!set) continue;
            out.key(name);
            out.flag(true);
        }
        if (outcome.delay != 0) out.member("delay", static_cast<uint64_t>(outcome.delay));
        out.member("code", outcome.code);
        if (outcome.times != 1) out.member("times", outcome.times);
        write_written(out, "request_bytes", outcome.request_bytes);
        write_written(out, "payload_bytes", outcome.payload_bytes);
        out.end();
    }
    out.end();
}

void write_behaviour(json_writer &out, const device_behaviour &from) {
    if (!from.classes.empty()) {
        out.key("classes");
        write_numbers(out, from.classes);
    }
    if (!from.queries.empty()) {
        out.key("queries");
        out.begin_object();
        for (const auto &[code, value] : from.queries) {
            out.key(naming::none, code);
            out.number(value);
        }
        out.end();
    }
    if (!from.answers.empty()) {
        out.key("answers");
        out.begin_object();
        for (const auto &[code, answer] : from.answers) {
            out.key(naming::none, code);
            if (answer.silent) {
                out.text("silent");
                continue;
            }
            out.begin_object(layout::in_line);
            out.member("code", answer.code);
            out.member("value", answer.value);
            if (answer.delay != 0) out.member("delay", static_cast<uint64_t>(answer.delay));
            if (answer.times != 1) out.member("times", answer.times);
            out.end();
        }
        out.end();
    }
    constexpr std::string_view openings[] = {"", "refuse", "null", "silent"};
    if (const auto word = openings[static_cast<size_t>(from.open)]; !word.empty()) {
        out.key("open");
        out.text(word);
    }
    write_requests(out, "requests", from);
}

void write_counters(json_writer &out, const std::vector<unit_counters> &from) {
    out.key("counters");
    out.begin_object();
    for (const auto &unit : from) {
        out.key(naming::none, unit.unit);
        if (unit.raw && !unit.returned) {
            out.hex(*unit.raw);
        } else if (unit.raw) {
            out.begin_object(layout::in_line);
            out.key("hex");
            out.text(hex_text(*unit.raw));
            out.member("returned", unit.returned);
            out.end();
        } else {
            out.begin_list();
            for (const auto &[name, value] : unit.list) {
                out.begin_list(layout::in_line);
                out.text(name);
                out.number(value);
                out.end();
            }
            out.end();
        }
    }
    out.end();
}

void write_type(json_writer &out, uint64_t type) {
    const auto name = item_name(naming::service_type, type);
    if (name.empty()) return out.number(type);
    out.text(name);
}

void write_service(json_writer &out, const service &from) {
    const auto &about = from.description;
    out.begin_object();
    out.key("name");
    out.text(about.name);
    write_list(out, "args", about.args, [](json_writer &to, const service_description::item &argument) {
        to.begin_list(layout::in_line);
        to.text(argument.key);
        write_type(to, argument.type);
        to.end();
    });
    if (!about.results.empty()) {
        out.key("results");
        out.begin_list();
        for (size_t i = 0; i < about.results.size(); ++i) {
            out.begin_list(layout::in_line);
            out.text(about.results[i].key);
            write_type(out, about.results[i].type);
            const auto &value = from.values[i];
            switch (value.what) {
            case service_result::kind::word: out.number(value.word); break;
            case service_result::kind::text: out.text(value.text); break;
            case service_result::kind::argument:
                out.begin_object(layout::in_line);
                out.member("arg", value.word);
                out.end();
            }
            out.end();
        }
        out.end();
    }
    out.member("error", from.error);
    out.end();
}

void write_log(json_writer &out, const log_record &from) {
    out.key("log");
    out.begin_object();
    out.key("text");
    out.text(from.text);
    if (!from.emergencies.empty()) {
        out.key("emergencies");
        out.begin_list(layout::in_line);
        for (const auto &sent : from.emergencies) write_numbers(out, {sent.word1, sent.code, sent.word2});
        out.end();
    }
    out.end();
}

void write_system_service(json_writer &out, const system_service &from) {
    out.key("system_service");
    out.begin_object();
    if (!from.majors.empty()) {
        out.key("majors");
        out.begin_object();
        for (const auto &[major, name] : from.majors) {
            out.key(naming::none, major);
            out.text(name);
        }
        out.end();
    }
    out.member("max_major", from.max_major);
    out.end();
}

void write_device(json_writer &out, const device &from) {
    out.begin_object();
    out.key("name");
    out.text(from.name);
    write_behaviour(out, from.behaviour);
    if (from.counters) write_counters(out, *from.counters);
    if (from.services) {
        out.key("services");
        out.begin_list();
        for (const auto &offered : *from.services) write_service(out, offered);
        out.end();
    }
    out.member("services_total", from.services_total);
    if (from.log) write_log(out, *from.log);
    if (from.rtc) {
        const auto &time = *from.rtc;
        out.key("rtc");
        write_numbers(out, {time.year, time.month, time.day, time.hour, time.minute, time.second, time.millisecond});
    }
    if (from.system_service) write_system_service(out, *from.system_service);
    out.end();
}

// ---- the machine ----------------------------------------------------------------------------------------------------

void write_fault(json_writer &out, const fault &from) {
    out.begin_object(layout::in_line);
    out.key("call");
    out.text(call_name(from.which));
    out.member("code", from.code);
    out.member("nth", from.nth);
    out.member("result", from.result);
    out.member("times", from.times);
    out.end();
}

}  // namespace

std::string machine_text(const machine_records &from) {
    json_writer out;
    out.begin_object();
    out.member("format", uint64_t{1});
    out.member("call_budget", from.call_budget);
    out.member("tick", from.tick);
    write_self(out, from.self);
    if (!from.state.empty()) {
        out.key("state");
        out.begin_object();
        for (const item &given : from.state) {
            out.key(naming::state, given.number);
            out.number(given.value);
        }
        out.end();
    }
    write_system_data(out, from.system_data);
    if (from.registers) write_registers(out, *from.registers);
    if (from.trace) write_trace(out, *from.trace);
    write_list(out, "tasks", from.tasks, write_task);
    write_list(out, "memory_chunks", from.memory_chunks, write_object);
    write_list(out, "virtual_spaces", from.virtual_spaces, write_object);
    write_registry(out, from.registry);
    write_limits(out, from.registry_limits);
    write_requests(out, "registry_requests", from.registry_behaviour);
    write_list(out, "devices", from.devices, write_device);
    if (!from.terminals.empty()) {
        out.key("terminals");
        out.begin_object();
        for (const auto &[path, layout] : from.terminals) {
            out.key(path);
            out.text(layout);
        }
        out.end();
    }
    write_list(out, "faults", from.faults, write_fault);
    write_pairs(out, "exit_notices", from.exit_notices);
    out.end();
    return out.take();
}

}  // namespace hosted::described
