// hosted/live/registry_tree.cpp - a read-only registry whose directories are made when a client enters them.
#include "hosted/live/registry_tree.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <new>

#include "platform/kernel.h"
#include "platform/protocol/device.h"
#include "platform/protocol/task.h"

namespace hosted::live {

namespace {

bool is_name(std::string_view name) { return can_be_key(name) && name != "." && name != ".."; }

// Cleans a text and cuts it to what a value may hold.
void make_value(std::string &text, line_feeds feeds) {
    clean(text, feeds);
    text.resize(std::min<size_t>(text.size(), registry_limits{}.binary));
}

void write_number(number_names form, uint64_t number, std::string &name) {
    char digits[20];
    const char *end = form == number_names::decimal ? std::to_chars(digits, digits + sizeof digits, number).ptr
                                                    : write_task_key(digits, number);
    name.assign(digits, static_cast<size_t>(end - digits));
}

// The number of a name; nothing where a listing would write the number in another way.
std::optional<uint64_t> read_number(number_names form, std::string_view name) {
    const auto number = form == number_names::decimal ? whole_number(name) : std::optional(parse_task_key(name));
    if (!number) return std::nullopt;
    std::string listed;
    write_number(form, *number, listed);
    return listed == name ? number : std::nullopt;
}

}  // namespace

// ---- keys -----------------------------------------------------------------------------------------------------------

uint32_t registry_node::length() const {
    return type == REGTYPE_INT ? uint32_t{sizeof integer} : static_cast<uint32_t>(bytes.size());
}

uint32_t registry_node::read_int(uint64_t &value) {
    if (type != REGTYPE_INT) return IOERROR_NOT_FOUND;
    value = integer;
    return 0;
}

registry_cursor registry_node::walk() {
    return [this, count = list(), next = size_t{0}](registry_entry &entry) mutable {
        while (next < count) {
            const registry_node *node = at(next, entry.name);  // may throw: the next step tries it again
            ++next;
            if (node == nullptr) continue;
            entry.type = node->type;
            entry.length = node->length();
            return true;
        }
        return false;
    };
}

void registry_node::set_number(uint64_t value) {
    type = REGTYPE_INT;
    failure = 0;
    integer = value;
}

void registry_node::set_text(std::string_view text, line_feeds feeds) {
    type = REGTYPE_BIN;
    failure = 0;
    bytes = text;
    make_value(bytes, feeds);
}

void registry_node::set_hidden() {
    type = REGTYPE_BIN;
    failure = static_cast<uint32_t>(RESULT_NOT_PERMITTED);
    bytes.clear();
}

node_pointer number_key(uint64_t value) {
    auto made = std::make_unique<registry_node>();
    made->set_number(value);
    return made;
}

node_pointer text_key(std::string_view text, line_feeds feeds) {
    auto made = std::make_unique<registry_node>();
    made->set_text(text, feeds);
    return made;
}

node_pointer hidden_key() {
    auto made = std::make_unique<registry_node>();
    made->set_hidden();
    return made;
}

// ---- directories ----------------------------------------------------------------------------------------------------

size_t named_directory::list() {
    if (!listed_) {
        std::vector<std::string> found = names();
        std::erase_if(found, [](const std::string &name) { return !is_name(name); });
        std::sort(found.begin(), found.end());
        found.erase(std::unique(found.begin(), found.end()), found.end());
        listed_ = std::move(found);
    }
    return listed_->size();
}

registry_node *named_directory::at(size_t index, std::string &name) {
    name = (*listed_)[index];
    return entry(name);
}

registry_node *named_directory::entry(std::string_view name) {
    if (const auto known = entries_.find(name); known != entries_.end()) return known->second.get();
    if (!is_name(name)) return nullptr;
    if (only_names()) {
        list();
        if (!std::binary_search(listed_->begin(), listed_->end(), name)) return nullptr;
    }
    std::string key(name);
    node_pointer made = make(key);
    return entries_.emplace(std::move(key), std::move(made)).first->second.get();
}

registry_node *whole_directory::at(size_t index, std::string &name) {
    if (index >= entries_.size()) return rest_->at(index - entries_.size(), name);
    name = entries_[index].first;
    return entries_[index].second.get();
}

// A client that reads what it has listed asks for one name after the other.
registry_node *whole_directory::entry(std::string_view name) {
    for (size_t i = 0; i < entries_.size(); ++i) {
        const size_t index = (next_ + i) % entries_.size();
        if (entries_[index].first != name) continue;
        next_ = index + 1;
        return entries_[index].second.get();
    }
    return rest_ ? rest_->entry(name) : nullptr;
}

size_t numbered_directories::list() {
    if (!listed_) {
        std::vector<uint64_t> found = numbers();
        std::sort(found.begin(), found.end());
        found.erase(std::unique(found.begin(), found.end()), found.end());
        listed_ = std::move(found);
    }
    return listed_->size();
}

registry_node *numbered_directories::at(size_t index, std::string &name) {
    write_number(form_, (*listed_)[index], name);
    return &unentered_;
}

registry_node *numbered_directories::entry(std::string_view name) {
    const auto number = read_number(form_, name);
    if (!number) return nullptr;
    if (const auto known = entries_.find(*number); known != entries_.end()) return known->second.get();
    const bool listed = listed_ && std::binary_search(listed_->begin(), listed_->end(), *number);
    return entries_.emplace(*number, make(*number, listed)).first->second.get();
}

// Of slots with one number the first remains: the one that was looked up by its name before.
size_t numbered_texts::list() {
    if (!listed_) {
        found_ = slots_;
        find_all();
        const auto before = [](const slot &a, const slot &b) { return a.number < b.number; };
        const auto same = [](const slot &a, const slot &b) { return a.number == b.number; };
        std::stable_sort(found_.begin(), found_.end(), before);
        found_.erase(std::unique(found_.begin(), found_.end(), same), found_.end());
        slots_ = std::move(found_);
        listed_ = true;
    }
    return slots_.size();
}

void numbered_texts::add(uint64_t number, std::string_view text) {
    add(number);
    store(found_.back(), std::string(text));
}

// Neighbours that have one text share it.
void numbered_texts::store(slot &into, std::string text) {
    make_value(text, line_feeds::replaced);
    if (!texts_.ends_with(text)) texts_ += text;
    if (texts_.size() > std::numeric_limits<uint32_t>::max()) throw std::bad_alloc();
    into.begin = static_cast<uint32_t>(texts_.size() - text.size());
    into.size = static_cast<uint16_t>(text.size());
    into.what = content::text;
}

registry_node *numbered_texts::show(slot &asked) {
    if (asked.what == content::unread) {
        std::string text;
        switch (read(asked.number, text)) {
        case 0: store(asked, std::move(text)); break;
        case IOERROR_NOT_FOUND: asked.what = content::none; break;
        default: asked.what = content::hidden; break;
        }
    }
    if (asked.what == content::none) return nullptr;
    shown_.set_hidden();
    if (asked.what == content::text) {
        shown_.failure = 0;
        shown_.bytes.assign(texts_, asked.begin, asked.size);
    }
    return &shown_;
}

registry_node *numbered_texts::at(size_t index, std::string &name) {
    write_number(form_, slots_[index].number, name);
    return show(slots_[index]);
}

registry_node *numbered_texts::entry(std::string_view name) {
    const auto number = read_number(form_, name);
    if (!number) return nullptr;
    const auto before = [](const slot &a, uint64_t b) { return a.number < b; };
    auto found = std::lower_bound(slots_.begin(), slots_.end(), *number, before);
    if (found == slots_.end() || found->number != *number) {
        if (listed_) return nullptr;
        found = slots_.insert(found, {.number = *number});
    }
    return show(*found);
}

// ---- the store ------------------------------------------------------------------------------------------------------

registry_node *registry_tree::find(std::string_view path) {
    registry_node *at = root_.get();
    for (auto name = next_component(path); at && !name.empty(); name = next_component(path)) at = at->entry(name);
    return at;
}

registry_cursor registry_tree::list(std::string_view path) {
    registry_node *found = find(path);
    return found != nullptr && found->type == REGTYPE_DIR ? found->walk() : nullptr;
}

uint32_t registry_tree::describe(std::string_view path, uint16_t &type, uint32_t &length) {
    const registry_node *found = find(path);
    if (found == nullptr) return IOERROR_NOT_FOUND;
    if (found->type == 0) return found->failure;
    type = found->type;
    length = found->length();
    return 0;
}

uint32_t registry_tree::read_int(std::string_view path, uint64_t &value) {
    registry_node *found = find(path);
    return found != nullptr ? found->read_int(value) : uint32_t{IOERROR_NOT_FOUND};
}

uint32_t registry_tree::read_binary(std::string_view path, std::string &value) {
    const registry_node *found = find(path);
    if (found == nullptr) return IOERROR_NOT_FOUND;
    if (found->failure != 0) return found->failure;
    if (found->type != REGTYPE_BIN) return IOERROR_NOT_FOUND;
    value = found->bytes;
    return 0;
}

}  // namespace hosted::live
