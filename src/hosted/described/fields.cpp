// hosted/described/fields.cpp - walking the tables of a machine file's records.
#include "hosted/described/fields.h"

#include "hosted/described/text.h"

namespace hosted::described {
namespace {

std::string word_list(std::span<const std::string_view> words) {
    json_writer out;
    out.begin_list();
    for (const auto word : words) out.text(word);
    out.end();
    return out.take();
}

}  // namespace

void read_fields(json_value from, void *record, std::span<const field> fields) {
    const auto members = from.members();
    for (const field &listed : fields) {
        if (listed.required) from.attempt([&] { from.at(listed.key); });
    }
    for (const json_value member : members) {
        member.attempt([&] {
            const auto key = member.key();
            const auto known =
                std::find_if(fields.begin(), fields.end(), [&](const field &listed) { return listed.key == key; });
            if (known == fields.end()) {
                std::vector<std::string_view> keys;
                for (const field &listed : fields) keys.push_back(listed.key);
                member.unknown("unknown key", key, keys);
            }
            known->read(member, record);
        });
    }
}

void write_fields(json_writer &out, const void *record, std::span<const field> fields, bool on_lines) {
    out.begin_object(on_lines);
    for (const field &listed : fields) {
        if (listed.absent(record)) continue;
        if (listed.format->on_line) out.start_line();
        out.key(listed.key);
        listed.write(out, record);
    }
    out.end();
}

bool are_absent(const void *record, std::span<const field> fields) {
    return std::all_of(fields.begin(), fields.end(), [&](const field &listed) { return listed.absent(record); });
}

std::string describe_fields(std::span<const field> fields) {
    std::string properties;
    std::vector<std::string_view> required;
    for (const field &listed : fields) {
        if (!properties.empty()) properties += ",\n";
        properties += '"' + std::string(listed.key) + "\": " + listed.format->describe();
        if (listed.required) required.push_back(listed.key);
    }
    return R"({"type": "object", "properties": {)" + properties + R"(}, "required": )" + word_list(required) +
           R"(, "additionalProperties": false})";
}

void read_row(json_value from, void *record, std::span<const field> fields, std::string_view expected) {
    if (!from.is_list() || from.count() != fields.size()) from.wrong(expected);
    auto next = fields.begin();
    for (const json_value element : from.items()) {
        element.attempt([&] { next->read(element, record); });
        ++next;
    }
}

void write_row(json_writer &out, const void *record, std::span<const field> fields) {
    out.begin_list();
    for (const field &listed : fields) listed.write(out, record);
    out.end();
}

std::string describe_row(std::span<const field> fields) {
    const std::string count = std::to_string(fields.size());
    std::string items;
    for (const field &listed : fields) items += (items.empty() ? "" : ", ") + listed.format->describe();
    return R"({"type": "array", "minItems": )" + count + R"(, "maxItems": )" + count + R"(, "items": [)" + items + "]}";
}

std::string describe_reference(std::string_view name) { return R"({"$ref": "#/$defs/)" + std::string(name) + "\"}"; }

std::string describe_words(std::span<const std::string_view> words) { return R"({"enum": )" + word_list(words) + "}"; }

std::string describe_any(std::initializer_list<std::string> alternatives) {
    std::string any;
    for (const auto &each : alternatives) any += (any.empty() ? "" : ", ") + each;
    return R"({"anyOf": [)" + any + "]}";
}

uint64_t number_keys::take(json_value member, naming kind, uint64_t highest) {
    const auto key = member.key();
    auto number = parse_number(key);
    if (!number) number = item_by_name(kind, key);
    if (!number && kind == naming::none) member.wrong("expected a number as the key");
    if (!number) member.unknown("unknown item", key, item_names(kind));
    if (!add(*number)) member.wrong("given twice");
    if (*number > highest) member.wrong("number out of range");
    return *number;
}

bool number_keys::add(uint64_t number) {
    if (count_ < few_.size()) {
        const auto end = few_.begin() + static_cast<std::ptrdiff_t>(count_);
        if (std::find(few_.begin(), end, number) != end) return false;
        few_[count_++] = number;
        return true;
    }
    if (many_.empty()) many_.insert(few_.begin(), few_.end());
    return many_.insert(number).second;
}

}  // namespace hosted::described
