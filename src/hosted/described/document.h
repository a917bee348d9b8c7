// hosted/described/document.h - the values of a machine file in the order of the file.
//
// A document holds 8 bytes for each value and reads everything else from the file's text on demand. The values are one
// array, each followed by its contents, so that neither reading nor releasing a file recurses, however deep it nests.
#pragma once

#include <concepts>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace hosted::described {

class document;

// What is wrong with a value. Thrown while a document is read. A document that collects records it and continues with
// the next value; with any other it ends the load.
struct bad_value {
    uint32_t node;
    std::string what;
};

// One value of a document, which must outlive it.
class json_value {
public:
    class iterator;
    struct range;

    json_value(const document &owner, uint32_t node) : document_(&owner), node_(node) {}

    std::string_view key() const;  // of a member of an object; else empty
    uint32_t node() const { return node_; }

    bool is_number() const;   // a 64-bit integer, or a text that holds one
    bool is_integer() const;  // an integer, and no text that holds one
    bool is_text() const;     // a text, or {"hex": "00 ff"}
    bool is_list() const;
    bool is_object() const;
    bool is_word(std::string_view text) const;  // exactly this text

    // The value as the required type. Each throws bad_value for any other.
    uint64_t number() const;
    bool flag() const;
    std::string text() const;
    std::string hex() const;  // the bytes of {"hex": "00 ff"}, whatever its other members
    range items() const;      // of a list
    range members() const;    // of an object
    uint32_t count() const;   // of the values directly inside

    template <std::integral Number> Number number_as() const {
        const uint64_t value = number();
        if (value > static_cast<uint64_t>(std::numeric_limits<Number>::max())) wrong("number out of range");
        return static_cast<Number>(value);
    }

    bool has(std::string_view key) const;
    json_value at(std::string_view key) const;  // throws bad_value if there is no such member

    // Throws a bad_value of this node.
    [[noreturn]] void wrong(std::string_view what) const;

    // The same for a word that is none of those known. A document that collects also suggests the nearest of them.
    [[noreturn]] void unknown(std::string_view what, std::string_view word,
                              std::span<const std::string_view> known) const;

    // Runs a step that reads a part of the document. If the document collects, a bad value ends the step and no more.
    template <class Step> void attempt(Step step) const;

private:
    char first() const;  // character of the value
    std::optional<uint64_t> integer() const;
    std::string_view plain_text() const;  // of a value that is a text in the file

    const document *document_;
    uint32_t node_;
};

class document {
public:
    // collects  whether bad values are recorded instead of thrown
    explicit document(bool collects = false) : collects_(collects) {}

    // Reads a file's text, which must outlive this object.
    //   message  out, on failure: "LINE:COLUMN: what is wrong"
    //   throws   bad_value for a key that is given twice
    bool parse(std::string_view text, std::string &message);

    json_value root() const { return {*this, 0}; }

    // Where a parse failed: the offset of the last character read, and what that character should have begun or been
    // in.
    enum class syntax : uint8_t { other, text, key, value };
    size_t failed_at() const { return failed_at_; }
    syntax failed_in() const { return failed_in_; }

    bool record(const bad_value &bad) const;  // false: this document does not collect

    // Returns what was recorded, in the order of the file, each once, and forgets it.
    std::vector<bad_value> take_findings();

private:
    friend class json_value;
    friend class locator;
    class scanner;

    struct node {
        uint64_t at : 30;       // offset in the text
        uint64_t end : 29;      // index after the last node inside
        uint64_t key_back : 5;  // bytes from here back to the opening quote of its key; 0: none; FAR: see far_keys_
    };
    static constexpr uint32_t MOST_TEXT = (1U << 30) - 1;  // bytes
    static constexpr uint32_t MOST_NODES = (1U << 29) - 1;
    static constexpr uint32_t FAR = (1U << 5) - 1;
    static_assert(sizeof(node) == 8);

    // The key of a value that is FAR from it.
    struct far_key {
        uint32_t value;  // its node
        uint32_t at;     // offset of its opening quote
    };

    // A text with escapes, and its content.
    struct decoded {
        uint32_t at;
        std::string text;
    };

    char first_of(const node &from) const { return source_[from.at]; }  // shows what the value is
    bool suggests() const;  // whether an unknown word comes with the nearest known one
    std::string_view text_at(uint32_t opening_quote) const;
    std::string_view text_of(const node &from) const { return text_at(static_cast<uint32_t>(from.at)); }
    uint32_t key_at(uint32_t value) const;  // offset of its opening quote; 0: none
    std::string_view key_of(uint32_t value) const;
    uint32_t end_of(uint32_t value) const { return static_cast<uint32_t>(nodes_[value].end); }
    void refuse_repeated_keys() const;

    std::string_view source_;
    std::vector<node> nodes_;
    std::vector<far_key> far_keys_;  // in the order of the nodes
    std::vector<decoded> decoded_;   // in the order of the source
    size_t failed_at_ = 0;
    syntax failed_in_ = syntax::other;
    const bool collects_;
    mutable std::vector<bad_value> findings_;
};

class json_value::iterator {
public:
    iterator(const document &owner, uint32_t node) : document_(&owner), node_(node) {}
    json_value operator*() const { return {*document_, node_}; }
    iterator &operator++();
    bool operator==(const iterator &other) const { return node_ == other.node_; }

private:
    const document *document_;
    uint32_t node_;
};

struct json_value::range {
    iterator first;
    iterator last;
    iterator begin() const { return first; }
    iterator end() const { return last; }
};

// Finds the places of values, to be asked for in the order of the file: each search continues where the last one ended,
// so that those of a whole file take one pass.
class locator {
public:
    explicit locator(const document &of) : document_(of) {}

    // The path as a person writes it: tasks[2].info.TASKINFO_PRIORITY. The middle of a long path is left out.
    std::string path(uint32_t node);

    // "LINE:COLUMN" of a value; of its key where it has one.
    std::string position(uint32_t node);

private:
    struct step {
        uint32_t node;
        uint32_t index;  // among its neighbours
    };

    const document &document_;
    std::vector<step> steps_;  // from the root's member to the value found last
    size_t line_ = 1;
    size_t line_begin_ = 0;  // offset
    size_t counted_to_ = 0;  // offset up to which lines have been counted
};

template <class Step> void json_value::attempt(Step step) const {
    try {
        step();
    } catch (const bad_value &bad) {
        if (!document_->record(bad)) throw;
    }
}

}  // namespace hosted::described
