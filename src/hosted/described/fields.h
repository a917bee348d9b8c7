// hosted/described/fields.h - one table per record of a machine file: its keys, and how each is read and written.
//
// Loading, saving and the schema walk the same table, so that a key is never read without being written. A table is
// table<Record>::fields, made of key<&Record::member>("key"), which its base of<Record> has. How a value looks in the
// file is its codec's: a type with read, write, absent (the key is left out) and describe (a JSON schema, for the
// program of schema.cpp).
#pragma once

#include <algorithm>
#include <array>
#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <unordered_set>
#include <utility>
#include <vector>

#include "hosted/described/document.h"
#include "hosted/described/names.h"
#include "hosted/described/records.h"
#include "hosted/described/writer.h"

namespace hosted::described {

// ---- tables ---------------------------------------------------------------------------------------------------------

// How values of one type are read, written and described.
struct value_format {
    bool on_line;  // such a value starts a line of its own
    void (*read)(json_value from, void *value);
    bool (*absent)(const void *value);
    void (*write)(json_writer &out, const void *value);
    std::string (*describe)();  // null where VENTIX_SCHEMA is not defined
};

// One key of a record. The record is of the type whose table this is in.
struct field {
    std::string_view key;
    const value_format *format;
    const void *(*value)(const void *record);  // where the record has it
    bool required = false;

    void read(json_value from, void *record) const { format->read(from, const_cast<void *>(value(record))); }
    bool absent(const void *record) const { return format->absent(value(record)); }
    void write(json_writer &out, const void *record) const { format->write(out, value(record)); }
};

constexpr field required(field listed) {
    listed.required = true;
    return listed;
}

template <class Record> struct table;  // specialised for every record: static constexpr field fields[]

// A record as an object. Reading finds keys that are unknown or missing and goes on where the document collects;
// writing leaves out what is absent. The record is of the type whose fields these are.
//   on_lines  each key starts a line
void read_fields(json_value from, void *record, std::span<const field> fields);
void write_fields(json_writer &out, const void *record, std::span<const field> fields, bool on_lines);
bool are_absent(const void *record, std::span<const field> fields);

// A record as a list, its keys in the order of the table: only their values are written.
//   expected  the message for a list of another length
void read_row(json_value from, void *record, std::span<const field> fields, std::string_view expected);
void write_row(json_writer &out, const void *record, std::span<const field> fields);

// Parts of a JSON schema.
std::string describe_fields(std::span<const field> fields);
std::string describe_row(std::span<const field> fields);
std::string describe_reference(std::string_view name);  // {"$ref": "#/$defs/NAME"}
std::string describe_words(std::span<const std::string_view> words);
std::string describe_any(std::initializer_list<std::string> alternatives);

// The schema's name for what the keys of a kind look like.
std::string_view key_definition(naming kind);

inline void write_number(json_writer &out, form shown, uint64_t value) {
    shown == form::plain ? out.number(value) : out.hexadecimal(value);
}

inline void write_item_key(json_writer &out, naming kind, uint64_t item) {
    const auto name = item_name(kind, item);
    out.key(name.empty() ? std::string_view(item_key(kind, item)) : name);
}

// The keys of one object, as numbers. A number that is written in two ways is one key, given twice.
class number_keys {
public:
    // The number of a member's key, by its name where its kind has names.
    uint64_t take(json_value member, naming kind, uint64_t highest);

private:
    bool add(uint64_t number);

    std::array<uint64_t, 32> few_{};
    size_t count_ = 0;
    std::unordered_set<uint64_t> many_;
};

// ---- codecs ---------------------------------------------------------------------------------------------------------

struct codec {
    static constexpr bool on_line = false;
    template <class Value> static bool absent(const Value &) { return false; }
};

template <form Form> struct number_in : codec {
    template <class Number> static void read(json_value from, Number &into) { into = from.number_as<Number>(); }
    template <class Number> static void write(json_writer &out, Number value) {
        write_number(out, Form, static_cast<uint64_t>(value));
    }
    static std::string describe() { return describe_reference("number"); }
};
using plain = number_in<form::plain>;
using hexadecimal = number_in<form::hexadecimal>;

struct truth : codec {
    static void read(json_value from, bool &into) { into = from.flag(); }
    static void write(json_writer &out, bool value) { out.flag(value); }
    static std::string describe() { return R"({"type": "boolean"})"; }
};

struct plain_text : codec {
    static void read(json_value from, std::string &into) { into = from.text(); }
    static void write(json_writer &out, const std::string &value) { out.text(value); }
    static std::string describe() { return describe_reference("text"); }
};

// A value that is left out where it is the default.
template <auto Default, class Codec> struct unless : Codec {
    template <class Value> static bool absent(const Value &value) { return value == Default; }
};

template <class Codec> struct optional_of : codec {
    static constexpr bool on_line = Codec::on_line;
    template <class Value> static void read(json_value from, std::optional<Value> &into) {
        Codec::read(from, into.emplace());
    }
    template <class Value> static void write(json_writer &out, const std::optional<Value> &value) {
        Codec::write(out, *value);
    }
    template <class Value> static bool absent(const std::optional<Value> &value) { return !value; }
    static std::string describe() { return Codec::describe(); }
};

// A record as an object.
template <class Record> struct record_of : codec {
    static constexpr std::span<const field> fields() { return table<Record>::fields; }
    static void read(json_value from, Record &into) {
        if constexpr (requires { into.node; }) into.node = from.node();
        read_fields(from, &into, fields());
        if constexpr (requires { table<Record>::check(from, into); }) table<Record>::check(from, into);
    }
    static void write(json_writer &out, const Record &value) { write_fields(out, &value, fields(), false); }
    static bool absent(const Record &value) { return are_absent(&value, fields()); }
    static std::string describe() { return describe_fields(fields()); }
};

template <class Record> struct rare_record : codec {
    static void read(json_value from, rare<Record> &into) { record_of<Record>::read(from, into.own()); }
    static void write(json_writer &out, const rare<Record> &value) { record_of<Record>::write(out, *value); }
    static bool absent(const rare<Record> &value) { return record_of<Record>::absent(*value); }
    static std::string describe() { return record_of<Record>::describe(); }
};

// A record as a list; its table also says what is expected of it.
template <class Record> struct row_of : codec {
    static void read(json_value from, Record &into) {
        read_row(from, &into, table<Record>::fields, table<Record>::expected);
    }
    static void write(json_writer &out, const Record &value) { write_row(out, &value, table<Record>::fields); }
    static std::string describe() { return describe_row(table<Record>::fields); }
};

// A record that appears as one of its members.
template <auto Member, class Codec> struct member_as : codec {
    static constexpr bool on_line = Codec::on_line;
    template <class Record> static void read(json_value from, Record &into) { Codec::read(from, into.*Member); }
    template <class Record> static void write(json_writer &out, const Record &value) {
        Codec::write(out, value.*Member);
    }
    template <class Record> static bool absent(const Record &value) { return Codec::absent(value.*Member); }
    static std::string describe() { return Codec::describe(); }
};

// What ended during the run is not written.
template <class Value> bool is_gone(const Value &value) {
    if constexpr (requires { value.gone; }) return value.gone;
    return false;
}

template <class Codec, bool OnLines> struct list_of : codec {
    static constexpr bool on_line = OnLines;
    template <class Value> static void read(json_value from, std::vector<Value> &into) {
        const auto elements = from.items();
        into.resize(from.count());
        auto next = into.begin();
        for (const json_value element : elements) {
            Value &made = *next++;
            element.attempt([&] { Codec::read(element, made); });
        }
    }
    template <class List> static void write(json_writer &out, const List &list) {
        out.begin_list(OnLines);
        for (const auto &value : list) {
            if (!is_gone(value)) Codec::write(out, value);
        }
        if constexpr (requires { list.source; }) {
            while (const auto *const made = list.source != nullptr ? list.source->next() : nullptr) {
                const auto before = out.mark();
                Codec::write(out, *made);
                if (!list.source->holds()) out.rewind(before);
            }
        }
        out.end();
    }
    template <class List> static bool absent(const List &list) {
        if constexpr (requires { list.source; }) {
            if (list.source != nullptr) return false;
        }
        return std::all_of(list.begin(), list.end(), [](const auto &value) { return is_gone(value); });
    }
    static std::string describe() { return R"({"type": "array", "items": )" + Codec::describe() + "}"; }
};

// An object whose keys are numbers, or names of items: a map, a list of pairs, or a list of records that each keep
// their number.
template <naming Kind, class Codec, bool OnLines = false, class Key = uint64_t> struct keyed : codec {
    static constexpr bool on_line = OnLines;

    template <class Number, class Value> static Value &add(std::map<Number, Value> &to, Key number) {
        return to[number];
    }
    template <class Value> static Value &add(std::vector<std::pair<Key, Value>> &to, Key number) {
        return to.emplace_back(number, Value()).second;
    }
    template <class Value> static Value &add(std::vector<Value> &to, Key number) {
        Value &made = to.emplace_back();
        made.number = number;
        return made;
    }

    template <class Values> static void read(json_value from, Values &into) {
        number_keys keys;
        const auto members = from.members();
        if constexpr (requires { into.reserve(1); }) into.reserve(from.count());
        for (const json_value member : members) {
            member.attempt([&] {
                const uint64_t number = keys.take(member, Kind, std::numeric_limits<Key>::max());
                Codec::read(member, add(into, static_cast<Key>(number)));
            });
        }
    }
    template <class Values> static void write(json_writer &out, const Values &values) {
        out.begin_object(OnLines);
        for (const auto &each : values) {
            if constexpr (requires { each.number; }) {
                write_item_key(out, Kind, each.number);
                Codec::write(out, each);
            } else {
                write_item_key(out, Kind, each.first);
                Codec::write(out, each.second);
            }
        }
        out.end();
    }
    template <class Values> static bool absent(const Values &values) { return values.empty(); }
    static std::string describe() {
        return R"({"type": "object", "propertyNames": )" + describe_reference(key_definition(Kind)) +
               R"(, "additionalProperties": )" + Codec::describe() + "}";
    }
};

// How a member of a record is written unless its table says otherwise.
template <class Value> struct usual_codec { using type = record_of<Value>; };
template <std::integral Number> struct usual_codec<Number> { using type = plain; };
template <> struct usual_codec<bool> { using type = truth; };
template <> struct usual_codec<std::string> { using type = plain_text; };
template <class Value> struct usual_codec<std::vector<Value>> {
    using inner = typename usual_codec<Value>::type;
    using type = list_of<inner, std::is_same_v<inner, record_of<Value>>>;
};
template <class Value> struct usual_codec<rare<Value>> { using type = rare_record<Value>; };
template <class Value> struct usual_codec<record_list<Value>> : usual_codec<std::vector<Value>> {};
template <class Value> struct usual_codec<std::optional<Value>> {
    using type = optional_of<typename usual_codec<Value>::type>;
};
template <class Value> using usual = typename usual_codec<Value>::type;

#ifdef VENTIX_SCHEMA
template <class Codec> inline constexpr auto description_of = Codec::describe;
#else
template <class Codec> inline constexpr std::string (*description_of)() = nullptr;
#endif

template <class Codec, class Value>
inline constexpr value_format format_of = {
    Codec::on_line, [](json_value from, void *value) { Codec::read(from, *static_cast<Value *>(value)); },
    [](const void *value) { return Codec::absent(*static_cast<const Value *>(value)); },
    [](json_writer &out, const void *value) { Codec::write(out, *static_cast<const Value *>(value)); },
    description_of<Codec>};

// Makes the fields of one record's table.
template <class Record> struct of {
    template <auto Member> using type = std::remove_cvref_t<decltype(std::declval<Record &>().*Member)>;

    template <auto Member, class Codec = usual<type<Member>>> static constexpr field key(std::string_view name) {
        return {name, &format_of<Codec, type<Member>>,
                [](const void *record) -> const void * { return &(static_cast<const Record *>(record)->*Member); }};
    }

    // A key whose codec takes the whole record.
    template <class Codec> static constexpr field whole(std::string_view name) {
        return {name, &format_of<Codec, Record>, [](const void *record) { return record; }};
    }
};

}  // namespace hosted::described
