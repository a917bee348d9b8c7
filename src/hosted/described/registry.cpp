// hosted/described/registry.cpp - the registry of a described machine.
#include "hosted/described/registry.h"

#include <algorithm>
#include <array>
#include <bit>
#include <functional>
#include <memory>
#include <utility>

#include "hosted/described/text.h"
#include "hosted/kernel/kernel.h"
#include "hosted/utf8.h"
#include "platform/kernel.h"
#include "platform/protocol/device.h"
#include "platform/protocol/registry.h"
#include "platform/protocol/task.h"

namespace hosted::described {
namespace {

constexpr size_t FEW_ENTRIES = 8;  // up to so many are compared one by one
constexpr uint32_t REFUSED = static_cast<uint32_t>(RESULT_NOT_PERMITTED);
constexpr uint32_t BAD_NAME = static_cast<uint32_t>(RESULT_BAD_ARGUMENT);
constexpr std::string_view RUN_NAME = reg_component(PROCESS_DIRECTORY, 0);
constexpr uint32_t INTEGER_LENGTH = 8;

// Splits the last component off a path.
std::string_view take_last(std::string_view &path) {
    while (path.ends_with('/')) path.remove_suffix(1);
    const size_t slash = path.rfind('/');
    const auto last = slash == path.npos ? path : path.substr(slash + 1);
    path.remove_suffix(last.size());
    return last;
}

}  // namespace

uint16_t registry::entry::shown_type() const {
    if (type) return *type;
    switch (holds) {
    case kind::nothing: return 0;
    case kind::integer:
    case kind::port: return REGTYPE_INT;
    case kind::bytes: return REGTYPE_BIN;
    case kind::directory: break;
    }
    return temporary ? REGTYPE_TMP : REGTYPE_DIR;
}

uint32_t registry::entry::shown_length() const {
    if (length) return *length;
    switch (holds) {
    case kind::integer:
    case kind::port: return INTEGER_LENGTH;
    case kind::bytes: return static_cast<uint32_t>(bytes.size());
    default: return 0;
    }
}

registry::registry() {
    new_directory();
    constexpr std::pair<uint32_t, std::string_view> published[] = {
        {ROOT, RUN_NAME}, {RUN, reg_component(PROCESS_DIRECTORY, 1)}, {RUN, reg_component(DEVICE_DIRECTORY, 1)}};
    for (const auto &[parent, name] : published)
        add(parent, {.name = std::string(name), .holds = entry::kind::directory, .published = true});
}

uint32_t registry::new_directory() {
    directories_.emplace_back();
    return static_cast<uint32_t>(directories_.size() - 1);
}

registry::entry &registry::add(uint32_t directory, entry added) {
    if (added.holds == entry::kind::directory) added.directory = new_directory();
    auto &entries = directories_[directory].entries;
    entries.push_back(std::move(added));
    return entries.back();
}

void registry::reserve(uint32_t directory, size_t count) {
    auto &entries = directories_[directory].entries;
    entries.reserve(entries.size() + count);
}

registry::entry *registry::published_directory(uint32_t directory, std::string_view name) {
    if (directory != ROOT && directory != RUN) return nullptr;
    for (auto &there : directories_[directory].entries) {
        if (!there.published) break;  // they come first
        if (there.name == name) return &there;
    }
    return nullptr;
}

void registry::publish_task(uint64_t handle, std::string_view name) {
    std::string key(TASK_KEY_SIZE, '0');
    write_task_key(key.data(), handle);
    add(PROC, {.name = std::move(key), .holds = entry::kind::bytes, .published = true, .bytes = std::string(name)});
}

void registry::publish_device(std::string_view name) {
    add(DEV, {.name = std::string(name), .holds = entry::kind::port, .published = true});
}

void registry::withdraw_task(uint64_t handle) {
    std::array<char, TASK_KEY_SIZE> key;
    write_task_key(key.data(), handle);
    entry *const there = find(PROC, {key.data(), key.size()});
    if (there == nullptr || !there->published) return;
    there->gone = true;
    trim(PROC);
}

bool registry::is_gone(const entry &there) const {
    return there.gone || (there.guarded && !kernel_->has_object(there.number));
}

// Removes published entries that are gone, so that tasks that come and go do not make a directory grow: from its end,
// where a walk has ended, and all of them when they are the most of it.
void registry::trim(uint32_t directory) {
    auto &[entries, index, indexed, walks] = directories_[directory];
    const auto is_left = [this](const entry &there) { return there.published && is_gone(there); };
    while (!entries.empty() && is_left(entries.back())) {
        entries.pop_back();
        index.clear();
    }
    if (walks.use_count() > 1) return;
    if (std::cmp_less_equal(2 * std::ranges::count_if(entries, is_left), entries.size())) return;
    std::erase_if(entries, is_left);
    index.clear();
}

size_t registry::given_count() const {
    size_t count = 0;
    for (const folder &each : directories_) {
        count += static_cast<size_t>(std::count_if(each.entries.begin(), each.entries.end(),
                                                   [](const entry &there) { return !there.published; }));
    }
    return count;
}

// ---- finding --------------------------------------------------------------------------------------------------------

void registry::bring_index_up(folder &where) {
    if (where.index.size() < where.entries.size() * 2) {
        where.index.assign(std::bit_ceil(where.entries.size() * 2), 0);
        where.indexed = 0;
    }
    for (; where.indexed < where.entries.size(); ++where.indexed) {
        uint32_t &slot = slot_of(where, where.entries[where.indexed].name);
        if (slot == 0) slot = static_cast<uint32_t>(where.indexed + 1);
    }
}

uint32_t &registry::slot_of(folder &where, std::string_view name) {
    const size_t mask = where.index.size() - 1;
    size_t slot = std::hash<std::string_view>()(name) & mask;
    while (where.index[slot] != 0 && where.entries[where.index[slot] - 1].name != name) slot = (slot + 1) & mask;
    return where.index[slot];
}

registry::entry *registry::find(uint32_t directory, std::string_view name) {
    auto &where = directories_[directory];
    size_t at = 0;
    if (where.entries.size() > FEW_ENTRIES) {
        bring_index_up(where);
        const uint32_t slot = slot_of(where, name);
        if (slot == 0) return nullptr;
        at = slot - 1;
    }
    for (; at < where.entries.size(); ++at) {  // another of its name may follow one that is gone
        if (where.entries[at].name == name && !is_gone(where.entries[at])) return &where.entries[at];
    }
    return nullptr;
}

registry::entry *registry::find(std::string_view path) {
    entry *found = nullptr;
    uint32_t directory = ROOT;
    for (auto name = next_component(path); !name.empty(); name = next_component(path)) {
        if (found != nullptr && found->holds != entry::kind::directory) return nullptr;
        found = find(directory, name);
        if (found == nullptr) return nullptr;
        directory = found->directory;
    }
    return found;
}

std::optional<uint32_t> registry::find_directory(std::string_view path) {
    if (path.find_first_not_of('/') == path.npos) return ROOT;
    const entry *const found = find(path);
    if (found == nullptr || found->holds != entry::kind::directory) return std::nullopt;
    return found->directory;
}

// ---- as the registry server asks ------------------------------------------------------------------------------------

// Walks by position: while there is a walk, entries are only appended, and one that is gone keeps its position.
registry_cursor registry::list(std::string_view path) {
    const entry *const found = find(path);
    if (found != nullptr && found->unreadable) return nullptr;
    const auto directory = find_directory(path);
    if (!directory) return nullptr;
    auto &walks = directories_[*directory].walks;
    if (!walks) walks = std::make_shared<char>();
    return [this, directory = *directory, next = size_t{0}, walk = walks](registry_entry &out) mutable {
        const auto listed = entries(directory);
        while (next < listed.size() && is_gone(listed[next])) ++next;
        if (next >= listed.size()) return false;
        const entry &here = listed[next++];
        out.name = here.name;
        out.type = here.shown_type();
        out.length = here.shown_length();
        return true;
    };
}

uint32_t registry::describe(std::string_view path, uint16_t &type, uint32_t &length) {
    const entry *const found = find(path);
    if (found == nullptr) {
        if (find_directory(path) != ROOT) return IOERROR_NOT_FOUND;
        type = REGTYPE_DIR;
        length = 0;
        return 0;
    }
    type = found->shown_type();
    length = found->shown_length();
    return 0;
}

uint32_t registry::read_int(std::string_view path, uint64_t &value) {
    const entry *const found = find(path);
    if (found == nullptr) return IOERROR_NOT_FOUND;
    if (found->unreadable) return REFUSED;
    if (found->holds == entry::kind::port) {
        value = kernel_->device_port(found->name);
        return 0;
    }
    if (found->holds != entry::kind::integer) return IOERROR_NOT_FOUND;
    value = found->number;
    return 0;
}

uint32_t registry::read_binary(std::string_view path, std::string &value) {
    const entry *const found = find(path);
    if (found == nullptr) return IOERROR_NOT_FOUND;
    if (found->unreadable) return REFUSED;
    if (found->holds != entry::kind::bytes) return IOERROR_NOT_FOUND;
    value = found->bytes;
    return 0;
}

// Creates a key, or replaces one of the same kind. Refuses a name that a machine file cannot hold.
uint32_t registry::make_key(std::string_view path, entry made) {
    std::string_view parent = path;
    const auto name = take_last(parent);
    std::string_view rest = path;
    if (next_component(rest) == RUN_NAME) return REFUSED;
    if (!reg_is_name(name) || !is_utf8(name)) return BAD_NAME;
    const auto directory = find_directory(parent);
    if (!directory) return IOERROR_NOT_FOUND;
    entry *const there = find(*directory, name);
    if (there == nullptr) {
        made.name = name;
        add(*directory, std::move(made));
        return 0;
    }
    const auto key = [](const entry &of) { return of.holds != entry::kind::directory; };
    if (key(*there) != key(made)) return REFUSED;
    if (!key(made)) return 0;  // a directory keeps its content
    made.name = name;
    *there = std::move(made);
    return 0;
}

uint32_t registry::write_binary(std::string_view path, std::string_view value) {
    return make_key(path, {.holds = entry::kind::bytes, .bytes = std::string(value)});
}

uint32_t registry::create_temporary(std::string_view path) {
    return make_key(path, {.holds = entry::kind::directory, .temporary = true});
}

// A task of another process may guard a device's name with a port of its own, and nothing else. A command in this
// process makes a plain key, outside of run/.
uint32_t registry::create_guard(std::string_view path, uint64_t value, uint64_t client) {
    entry made{.holds = entry::kind::integer, .number = value};
    std::string_view rest = path;
    if (next_component(rest) != RUN_NAME || next_component(rest) != reg_component(DEVICE_DIRECTORY, 1)) {
        return kernel_->is_attached(client) ? REFUSED : make_key(path, std::move(made));
    }
    made.name = next_component(rest);
    if (!next_component(rest).empty() || !reg_is_name(made.name) || !is_utf8(made.name)) return REFUSED;
    if (!kernel_->owns_port(client, value) || find(DEV, made.name) != nullptr) return REFUSED;
    made.published = made.guarded = true;
    trim(DEV);
    add(DEV, std::move(made));
    return 0;
}

}  // namespace hosted::described
