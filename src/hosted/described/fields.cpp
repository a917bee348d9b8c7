// hosted/described/fields.cpp - walking the tables of a machine file's records.
#include "hosted/described/fields.h"

#include "hosted/described/text.h"

namespace hosted::described {

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
