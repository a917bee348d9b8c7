// hosted/described/document.h - a machine file as read: every value in the order of the file, keys given twice refused.
//
// The values lie in one row, each followed by what is inside it, so that neither reading nor releasing a file needs a
// stack, however deep its values are nested.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace hosted::described {

class document;

// A value that cannot be used. Thrown while a file is taken apart, and caught by whoever began to load it.
struct bad_value {
    uint32_t node;
    std::string what;
};

// One value of a document, which it must not outlive.
class place {
public:
    class iterator;
    struct range;

    place(const document &owner, uint32_t node) : document_(&owner), node_(node) {}

    std::string_view key() const;  // of a member of an object; else empty
    uint32_t node() const { return node_; }

    bool is_number() const;   // an integer of 64 bits, or a text that holds one
    bool is_integer() const;  // an integer that is no text
    bool is_text() const;     // a text, or {"hex": "00 ff"}
    bool is_list() const;
    bool is_object() const;
    bool is_word(std::string_view text) const;  // exactly this text

    // What the value holds; bad_value where it holds something else.
    uint64_t number() const;
    uint32_t number32() const;
    uint16_t number16() const;
    bool flag() const;
    std::string text() const;
    std::string hex() const;  // the bytes of {"hex": "00 ff"}, whatever stands beside
    range items() const;      // of a list
    range members() const;    // of an object
    uint32_t count() const;   // of what stands directly inside

    bool has(std::string_view key) const;
    place at(std::string_view key) const;  // a member that must be there

    [[noreturn]] void wrong(std::string_view what) const;

private:
    const document *document_;
    uint32_t node_;
};

class document {
public:
    // Reads a file's text.
    //   message  out, on failure: "LINE:COLUMN: what is wrong" or "PATH: what is wrong"
    bool parse(std::string_view text, std::string &message);

    place root() const { return {*this, 0}; }

    // Where a value stands, as a person writes it: tasks[2].info.TASKINFO_PRIORITY. The middle of a long one is left
    // out.
    std::string path(uint32_t wanted) const;

private:
    friend class place;
    class builder;

    enum class kind : uint8_t { null, boolean, number, fraction, text, list, object };

    struct node {
        uint64_t word = 0;    // a number; of a text where it begins in texts_
        uint64_t key = 0;     // where it begins in texts_
        uint32_t length = 0;  // of the text
        uint32_t key_length = 0;
        uint32_t end = 0;  // behind the last node inside
        kind what = kind::null;
    };

    std::string_view text_of(const node &from) const { return {texts_.data() + from.word, from.length}; }
    std::string_view key_of(const node &from) const { return {texts_.data() + from.key, from.key_length}; }

    std::vector<node> nodes_;
    std::string texts_;
};

class place::iterator {
public:
    iterator(const document &owner, uint32_t node) : document_(&owner), node_(node) {}
    place operator*() const { return {*document_, node_}; }
    iterator &operator++();
    bool operator==(const iterator &other) const { return node_ == other.node_; }

private:
    const document *document_;
    uint32_t node_;
};

struct place::range {
    iterator first;
    iterator last;
    iterator begin() const { return first; }
    iterator end() const { return last; }
};

}  // namespace hosted::described
