// hosted/described/document.cpp - reading a machine file's text.
#include "hosted/described/document.h"

#include <algorithm>
#include <unordered_set>

#define JSON_NO_IO  // texts come and go as strings, never through streams
#include <nlohmann/json.hpp>

#include "hosted/described/text.h"

namespace hosted::described {
namespace {

constexpr size_t LONGEST_PATH = 24;  // components of a path that are shown
constexpr size_t LONGEST_KEY = 64;   // bytes of a component
constexpr uint32_t FEW_KEYS = 8;     // up to so many are compared one by one

// What the parser says, without its own name and place, and without the text it read last: the place tells.
std::string plain_message(std::string_view said) {
    if (said.starts_with('[')) said.remove_prefix(std::min(said.find("] ") + 2, said.size()));
    if (const size_t column = said.find("column "); column != said.npos && said.starts_with("parse error")) {
        said.remove_prefix(std::min(said.find(": ", column) + 2, said.size()));
    }
    if (said.starts_with("syntax error")) said.remove_prefix(std::min(said.find(" - ") + 3, said.size()));
    std::string message(said);
    if (const size_t last = message.find("; last read: "); last != message.npos) {
        const size_t rest = message.find("; expected", last);
        message.erase(last, rest == message.npos ? rest : rest - last);
    }
    return message;
}

std::string line_and_column(std::string_view text, size_t characters_read) {
    const size_t at = std::min(characters_read == 0 ? 0 : characters_read - 1, text.size());
    const auto before = text.substr(0, at);
    const auto line = 1 + std::count(before.begin(), before.end(), '\n');
    const size_t column = at - (before.rfind('\n') + 1) + 1;  // npos + 1 is 0
    return std::to_string(line) + ":" + std::to_string(column);
}

// Part of a key that fits a message of one line.
std::string shown_key(std::string_view key) {
    std::string shown(key.substr(0, LONGEST_KEY));
    for (char &c : shown) {
        if (static_cast<uint8_t>(c) < ' ' || c == 0x7F) c = '?';
    }
    if (key.size() > LONGEST_KEY) shown += "...";
    return shown;
}

}  // namespace

// Takes the parser's events.
class document::builder {
public:
    builder(document &into, std::string_view text) : document_(into), text_(text) {}

    const std::string &message() const { return message_; }

    bool null() { return add(kind::null, 0); }
    bool boolean(bool value) { return add(kind::boolean, value); }
    bool number_integer(int64_t value) { return add(kind::number, static_cast<uint64_t>(value)); }
    bool number_unsigned(uint64_t value) { return add(kind::number, value); }
    bool number_float(double, const std::string &) { return add(kind::fraction, 0); }
    bool string(std::string &value) {
        const uint64_t begin = document_.texts_.size();
        document_.texts_ += value;
        add(kind::text, begin);
        document_.nodes_.back().length = static_cast<uint32_t>(value.size());
        return true;
    }
    bool binary(nlohmann::json::binary_t &) { return false; }  // not in this format

    bool key(std::string &value) {
        key_ = document_.texts_.size();
        key_length_ = static_cast<uint32_t>(value.size());
        document_.texts_ += value;
        return true;
    }

    bool start_object(size_t) { return open(kind::object); }
    bool end_object() { return close() && keys_differ(); }
    bool start_array(size_t) { return open(kind::list); }
    bool end_array() { return close(); }

    bool parse_error(size_t characters_read, const std::string &, const nlohmann::json::exception &error) {
        message_ = line_and_column(text_, characters_read) + ": " + plain_message(error.what());
        return false;
    }

private:
    bool add(kind what, uint64_t word) {
        node made;
        made.word = word;
        made.key = key_;
        made.key_length = std::exchange(key_length_, 0);
        made.end = static_cast<uint32_t>(document_.nodes_.size() + 1);
        made.what = what;
        document_.nodes_.push_back(made);
        return true;
    }

    bool open(kind what) {
        add(what, 0);
        open_.push_back(static_cast<uint32_t>(document_.nodes_.size() - 1));
        return true;
    }

    bool close() {
        closed_ = open_.back();
        open_.pop_back();
        document_.nodes_[closed_].end = static_cast<uint32_t>(document_.nodes_.size());
        return true;
    }

    // Whether the members of the object just closed go by different keys.
    bool keys_differ() {
        const auto &nodes = document_.nodes_;
        const uint32_t end = nodes[closed_].end;
        std::unordered_set<std::string_view> keys;
        uint32_t count = 0;
        for (uint32_t at = closed_ + 1; at < end; at = nodes[at].end, ++count) {
            const auto wanted = document_.key_of(nodes[at]);
            bool twice = false;
            if (count < FEW_KEYS) {
                for (uint32_t before = closed_ + 1; before < at && !twice; before = nodes[before].end) {
                    twice = document_.key_of(nodes[before]) == wanted;
                }
            } else {
                if (count == FEW_KEYS) {
                    for (uint32_t before = closed_ + 1; before < at; before = nodes[before].end) {
                        keys.insert(document_.key_of(nodes[before]));
                    }
                }
                twice = !keys.insert(wanted).second;
            }
            if (!twice) continue;
            for (const uint32_t outer : open_) document_.nodes_[outer].end = static_cast<uint32_t>(nodes.size());
            message_ = document_.path(at) + ": given twice";
            return false;
        }
        return true;
    }

    document &document_;
    std::string_view text_;
    std::string message_;
    std::vector<uint32_t> open_;  // lists and objects, outermost first
    uint32_t closed_ = 0;
    uint64_t key_ = 0;  // of the next value
    uint32_t key_length_ = 0;
};

bool document::parse(std::string_view text, std::string &message) {
    builder events(*this, text);
    constexpr bool strict = true;
    constexpr bool comments = true;
    if (!nlohmann::json::sax_parse(text.begin(), text.end(), &events, nlohmann::json::input_format_t::json, strict,
                                   comments)) {
        message = events.message();
        return false;
    }
    const size_t nul = text.find('\0');  // which the parser takes for the end of the text
    if (nul == text.npos) return true;
    message = line_and_column(text, nul + 1) + ": unexpected NUL; expected end of input";
    return false;
}

std::string document::path(uint32_t wanted) const {
    std::vector<std::pair<uint32_t, uint32_t>> steps;  // node, index among its neighbours
    for (uint32_t at = 0; at != wanted;) {
        uint32_t index = 0;
        for (++at; nodes_[at].end <= wanted; at = nodes_[at].end) ++index;
        steps.emplace_back(at, index);
    }
    std::string shown;
    uint32_t outer = 0;
    for (size_t i = 0; i < steps.size(); ++i) {
        const auto [at, index] = steps[i];
        if (steps.size() > LONGEST_PATH && i >= LONGEST_PATH / 2 && i < steps.size() - LONGEST_PATH / 2) {
            if (i == LONGEST_PATH / 2) shown += "...";
        } else if (nodes_[outer].what == kind::list) {
            shown += "[" + std::to_string(index) + "]";
        } else {
            if (!shown.empty()) shown += ".";
            shown += shown_key(key_of(nodes_[at]));
        }
        outer = at;
    }
    return shown;
}

// ---- place ----------------------------------------------------------------------------------------------------------

namespace {

template <class Number> Number narrow(const place &from) {
    const uint64_t value = from.number();
    const auto narrowed = static_cast<Number>(value);
    const auto widened = static_cast<int64_t>(static_cast<std::make_signed_t<Number>>(narrowed));
    if (value != narrowed && value != static_cast<uint64_t>(widened)) from.wrong("number out of range");
    return narrowed;
}

}  // namespace

std::string_view place::key() const { return document_->key_of(document_->nodes_[node_]); }

bool place::is_integer() const { return document_->nodes_[node_].what == document::kind::number; }

bool place::is_number() const {
    const auto &here = document_->nodes_[node_];
    return is_integer() || (here.what == document::kind::text && parse_number(document_->text_of(here)));
}

bool place::is_text() const {
    return document_->nodes_[node_].what == document::kind::text || (is_object() && has("hex") && count() == 1);
}

bool place::is_list() const { return document_->nodes_[node_].what == document::kind::list; }

bool place::is_object() const { return document_->nodes_[node_].what == document::kind::object; }

bool place::is_word(std::string_view text) const {
    const auto &here = document_->nodes_[node_];
    return here.what == document::kind::text && document_->text_of(here) == text;
}

uint64_t place::number() const {
    const auto &here = document_->nodes_[node_];
    if (here.what == document::kind::number) return here.word;
    const auto value = here.what == document::kind::text ? parse_number(document_->text_of(here)) : std::nullopt;
    if (!value) wrong("expected a number");
    return *value;
}

uint32_t place::number32() const { return narrow<uint32_t>(*this); }

uint16_t place::number16() const { return narrow<uint16_t>(*this); }

bool place::flag() const {
    if (document_->nodes_[node_].what != document::kind::boolean) wrong("expected true or false");
    return document_->nodes_[node_].word != 0;
}

std::string place::text() const {
    const auto &here = document_->nodes_[node_];
    if (here.what == document::kind::text) return std::string(document_->text_of(here));
    if (!is_text()) wrong("expected a text");
    return hex();
}

std::string place::hex() const {
    const place digits = at("hex");
    const auto &inside = document_->nodes_[digits.node_];
    auto bytes = inside.what == document::kind::text ? parse_hex(document_->text_of(inside)) : std::nullopt;
    if (!bytes) digits.wrong("expected pairs of hexadecimal digits");
    return std::move(*bytes);
}

place::range place::items() const {
    if (!is_list()) wrong("expected a list");
    return {{*document_, node_ + 1}, {*document_, document_->nodes_[node_].end}};
}

place::range place::members() const {
    if (!is_object()) wrong("expected an object");
    return {{*document_, node_ + 1}, {*document_, document_->nodes_[node_].end}};
}

uint32_t place::count() const {
    uint32_t count = 0;
    for (uint32_t at = node_ + 1; at < document_->nodes_[node_].end; at = document_->nodes_[at].end) ++count;
    return count;
}

bool place::has(std::string_view key) const {
    for (const place member : members()) {
        if (member.key() == key) return true;
    }
    return false;
}

place place::at(std::string_view key) const {
    for (const place member : members()) {
        if (member.key() == key) return member;
    }
    wrong("\"" + std::string(key) + "\" is missing");
}

void place::wrong(std::string_view what) const { throw bad_value{node_, std::string(what)}; }

place::iterator &place::iterator::operator++() {
    node_ = document_->nodes_[node_].end;
    return *this;
}

}  // namespace hosted::described
