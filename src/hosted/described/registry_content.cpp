// hosted/described/registry_content.cpp - directory content of a machine file.
#include "hosted/described/registry_content.h"

#include <algorithm>
#include <optional>

#include "platform/protocol/registry.h"

namespace hosted::described {
namespace {

// Reads the value of one key. Returns the content of the directory that it holds, for the caller to read.
std::optional<json_value> read_entry(json_value from, registry::entry &into) {
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
        std::optional<json_value> inner;
        std::optional<json_value> content;
        if (!from.is_object() || from.count() == 0) from.wrong("expected the value of a key");
        for (const json_value member : from.members()) {
            const auto key = member.key();
            if ((key == "dir" || key == "tmp") && from.count() == 1) {
                into.holds = registry::entry::kind::directory;
                into.temporary = key == "tmp";
                content = member;
            } else if (key == "unreadable" && from.count() == 1) {
                into.unreadable = true;
                inner = member;
            } else if (key == "type" && !described) {
                into.type = member.number_as<uint16_t>();
            } else if (key == "length" && !described) {
                into.length = member.number_as<uint32_t>();
            } else if (key == "value" && !described) {
                inner = member;
            } else {
                constexpr std::string_view known[] = {"dir", "tmp", "unreadable", "type", "length", "value", "hex"};
                member.unknown("unknown key", key, known);
            }
        }
        if (content || !inner) return content;
        described = described || inner->key() == "value";
        from = *inner;
    }
}

// A published entry is given if the file says more about it.
bool is_given(const registry &from, const registry::entry &listed) {
    if (!listed.published) return true;
    if (listed.holds != registry::entry::kind::directory) return false;
    if (listed.temporary || listed.unreadable || listed.type || listed.length) return true;
    const auto entries = from.entries(listed.directory);
    return std::any_of(entries.begin(), entries.end(), [&](const auto &inner) { return is_given(from, inner); });
}

}  // namespace

void check_registry_name(json_value from, std::string_view name) {
    if (!reg_is_name(name)) from.wrong("a name has 1 to " + std::to_string(REG_MAX_NAME) + " bytes, none of them '/'");
}

bool is_registry_given(const registry &from) {
    const auto root = from.entries(registry::ROOT);
    return std::any_of(root.begin(), root.end(), [&](const auto &listed) { return is_given(from, listed); });
}

void read_registry(json_value from, registry &into) {
    struct level {
        json_value::iterator next;
        json_value::iterator end;
        uint32_t directory;
    };
    std::vector<level> open;
    const auto enter = [&](json_value content, uint32_t directory) {
        const auto members = content.members();
        into.reserve(directory, content.count());
        open.push_back({members.begin(), members.end(), directory});
    };
    const auto read = [&](json_value member, uint32_t directory) {
        member.attempt([&] { check_registry_name(member, member.key()); });
        registry::entry made;
        made.name = member.key();
        const auto content = read_entry(member, made);
        registry::entry *known = content ? into.published_directory(directory, made.name) : nullptr;
        if (known != nullptr) {
            known->temporary = made.temporary;
            known->unreadable = made.unreadable;
            known->type = made.type;
            known->length = made.length;
        } else {
            known = &into.add(directory, std::move(made));
        }
        if (content) enter(*content, known->directory);
    };
    enter(from, registry::ROOT);
    while (!open.empty()) {
        level &here = open.back();
        if (here.next == here.end) {
            open.pop_back();
            continue;
        }
        const json_value member = *here.next;
        const uint32_t directory = here.directory;
        ++here.next;
        member.attempt([&] { read(member, directory); });
    }
}

void write_registry(json_writer &out, const registry &from) {
    struct level {
        uint32_t directory;
        size_t next;
        size_t brackets;  // to close after it
    };
    out.begin_object(true);
    std::vector<level> open{{registry::ROOT, 0, 1}};
    while (!open.empty()) {
        const auto entries = from.entries(open.back().directory);
        if (open.back().next == entries.size()) {
            for (size_t i = 0; i < open.back().brackets; ++i) out.end();
            open.pop_back();
            continue;
        }
        const auto &listed = entries[open.back().next++];
        if (!is_given(from, listed)) continue;
        out.key(listed.name);
        size_t brackets = 0;
        const auto begin = [&](std::string_view key) {
            out.begin_object();
            out.key(key);
            ++brackets;
        };
        if (listed.unreadable) begin("unreadable");
        if (listed.type || listed.length) {
            out.begin_object();
            ++brackets;
            for (const auto &[key, value] :
                 {std::pair<const char *, std::optional<uint32_t>>("type", listed.type), {"length", listed.length}}) {
                if (!value) continue;
                out.key(key);
                out.number(*value);
            }
            if (listed.holds != registry::entry::kind::nothing) out.key("value");
        }
        switch (listed.holds) {
        case registry::entry::kind::integer: out.number(listed.number); break;
        case registry::entry::kind::bytes: out.text(listed.bytes); break;
        case registry::entry::kind::directory:
            begin(listed.temporary ? "tmp" : "dir");
            out.begin_object(true);
            open.push_back({listed.directory, 0, brackets + 1});
            continue;
        case registry::entry::kind::nothing:
        case registry::entry::kind::port: break;
        }
        while (brackets-- > 0) out.end();
    }
}

}  // namespace hosted::described
