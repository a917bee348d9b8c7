// hosted/live/registry_tree.h - a read-only registry whose directories are made when a client enters them.
//
// A directory is read when a client first lists it; a key's value when a listing reaches it, or when it is first
// described or read. Both stay for the run, so that a length and the content that follows it agree. A key that is named
// without a listing costs no more than the files on its own path.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "hosted/live/texts.h"
#include "hosted/servers/registry_store.h"
#include "platform/protocol/registry.h"

namespace hosted::live {

// A key, or a directory without entries.
struct registry_node {
    virtual ~registry_node() = default;

    uint16_t type = REGTYPE_DIR;  // 0: not known, because of the failure
    uint32_t failure = 0;         // why a key that is listed cannot be read
    uint64_t integer = 0;         // of an integer key
    std::string bytes;            // of a binary key

    uint32_t length() const;

    // The value of an integer key. Returns 0 or the error word.
    virtual uint32_t read_int(uint64_t &value);

    // Each makes a key of this.
    void set_number(uint64_t value);
    void set_text(std::string_view text, line_feeds feeds = line_feeds::replaced);  // see text_key()
    void set_hidden();

    // A new walk over the entries, which must outlive it: by default that of list() and at().
    virtual registry_cursor walk();

    // Prepares a listing. Returns how many names it has.
    virtual size_t list() { return 0; }

    // The name at an index of the listing and its entry; null where there turns out to be none.
    virtual registry_node *at(size_t, std::string &) { return nullptr; }

    // The entry of a name; null where there is none. Valid until the next question to this directory.
    virtual registry_node *entry(std::string_view) { return nullptr; }
};

using node_pointer = std::unique_ptr<registry_node>;

node_pointer number_key(uint64_t value);

// A binary key that holds a text of the system: cleaned, and cut where it is longer than a value may be.
node_pointer text_key(std::string_view text, line_feeds feeds = line_feeds::replaced);

// A key that the caller may not read: it is listed, and reading it fails.
node_pointer hidden_key();

// A directory whose entries are made one by one, by their names.
class named_directory : public registry_node {
public:
    size_t list() override;
    registry_node *at(size_t index, std::string &name) override;
    registry_node *entry(std::string_view name) override;

protected:
    // The names, in any order. What cannot be a key's name is left out.
    virtual std::vector<std::string> names() = 0;

    // The entry of a name; null where there is none.
    virtual node_pointer make(const std::string &name) = 0;

    // Whether make() may only be called with what names() returned.
    virtual bool only_names() const { return false; }

private:
    std::optional<std::vector<std::string>> listed_;
    std::map<std::string, node_pointer, std::less<>> entries_;  // those asked for so far; null: there is none
};

// An entry of a directory whose names are known beforehand.
template <class Context> struct table_entry {
    std::string_view name;
    node_pointer (*make)(Context &context);  // null where this machine does not have it
};

template <class Context> class table_directory : public named_directory {
public:
    // Both must outlive this object.
    table_directory(Context &context, std::span<const table_entry<Context>> table) : context_(context), table_(table) {}

protected:
    std::vector<std::string> names() override {
        std::vector<std::string> names;
        for (const auto &entry : table_) names.emplace_back(entry.name);
        return names;
    }

    node_pointer make(const std::string &name) override {
        for (const auto &entry : table_) {
            if (name == entry.name) return entry.make(context_);
        }
        return nullptr;
    }

private:
    Context &context_;
    std::span<const table_entry<Context>> table_;
};

// A small directory that is made with all its entries, in the order in which they were added.
class whole_directory : public registry_node {
public:
    // rest: a directory whose entries follow these; null: none
    explicit whole_directory(node_pointer rest = nullptr) : rest_(std::move(rest)) {}

    void add(std::string_view name, node_pointer node) { entries_.emplace_back(name, std::move(node)); }

    size_t list() override { return entries_.size() + (rest_ ? rest_->list() : 0); }
    registry_node *at(size_t index, std::string &name) override;
    registry_node *entry(std::string_view name) override;

protected:
    void clear() { entries_.clear(); }

private:
    std::vector<std::pair<std::string, node_pointer>> entries_;
    node_pointer rest_;
    size_t next_ = 0;  // where the search for a name begins: after the last one found
};

// How numbers are written as names.
enum class number_names : uint8_t {
    decimal,
    hexadecimal,  // 16 upper-case digits
};

// A directory of directories that have numbers for names. Each is made when a client enters it.
class numbered_directories : public registry_node {
public:
    explicit numbered_directories(number_names form = number_names::decimal) : form_(form) {}

    size_t list() override;
    registry_node *at(size_t index, std::string &name) override;
    registry_node *entry(std::string_view name) override;

protected:
    virtual std::vector<uint64_t> numbers() = 0;  // in any order

    // The directory of a number; null where there is none.
    //   listed  whether a listing has shown the number
    virtual node_pointer make(uint64_t number, bool listed) = 0;

private:
    number_names form_;
    std::optional<std::vector<uint64_t>> listed_;
    std::map<uint64_t, node_pointer> entries_;
    registry_node unentered_;  // what a listing shows of any of them
};

// A directory of texts that have numbers for names. There may be very many: each takes the bytes of its text and a few
// more.
class numbered_texts : public registry_node {
public:
    explicit numbered_texts(number_names form = number_names::decimal) : form_(form) {}

    size_t list() override;
    registry_node *at(size_t index, std::string &name) override;
    registry_node *entry(std::string_view name) override;

protected:
    // Adds all numbers, in any order, and those texts that it comes across.
    virtual void find_all() = 0;

    // Reads the text of a number. Returns 0, IOERROR_NOT_FOUND or why it cannot be read.
    virtual uint32_t read(uint64_t number, std::string &text) = 0;

    void add(uint64_t number) { found_.push_back({.number = number}); }
    void add(uint64_t number, std::string_view text);

private:
    enum class content : uint8_t { unread, text, none, hidden };
    struct slot {
        uint64_t number;
        uint32_t begin = 0;  // of the text, in texts_
        uint16_t size = 0;
        content what = content::unread;
    };
    registry_node *show(slot &asked);
    void store(slot &into, std::string text);

    number_names form_;
    bool listed_ = false;
    std::vector<slot> slots_;  // in the order of their numbers
    std::vector<slot> found_;  // while a listing is made
    std::string texts_;
    registry_node shown_;  // the key asked for last
};

// The store over a tree of nodes. Writing is refused with RESULT_NOT_PERMITTED.
class registry_tree : public registry_store {
public:
    explicit registry_tree(node_pointer root) : root_(std::move(root)) {}

    registry_cursor list(std::string_view path) override;
    uint32_t describe(std::string_view path, uint16_t &type, uint32_t &length) override;
    uint32_t read_int(std::string_view path, uint64_t &value) override;
    uint32_t read_binary(std::string_view path, std::string &value) override;

private:
    registry_node *find(std::string_view path);

    node_pointer root_;
};

}  // namespace hosted::live
