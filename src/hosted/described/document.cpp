// hosted/described/document.cpp - scanning a machine file's text.
#include "hosted/described/document.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "hosted/described/text.h"
#include "hosted/nearest.h"
#include "hosted/utf8.h"

namespace hosted::described {
namespace {

constexpr size_t LONGEST_PATH = 24;        // components of a path that are shown
constexpr size_t LONGEST_KEY = 64;         // bytes of a component
constexpr size_t DEEPEST = 1 << 20;        // lists and objects within one another
constexpr size_t MOST_SUGGESTED = 10'000;  // findings that come with a suggestion

// Line and column of the character at an offset.
std::string line_and_column(std::string_view text, size_t offset) {
    const auto before = text.substr(0, offset);
    const auto line = 1 + std::count(before.begin(), before.end(), '\n');
    const size_t column = before.size() - (before.rfind('\n') + 1) + 1;  // npos + 1 is 0
    return std::to_string(line) + ":" + std::to_string(column);
}

// Part of a key that fits a message of one line.
std::string shown_key(std::string_view key) {
    std::string shown;
    char32_t character = 0;
    for (size_t at = 0, begin = 0; at < key.size(); begin = at) {
        if (!next_character(key, at, character)) break;  // every text of a document is UTF-8
        if (at > LONGEST_KEY) return shown + "...";
        shown += steers_terminal(character) ? "?" : key.substr(begin, at - begin);
    }
    return shown;
}

void append_utf8(std::string &text, char32_t character) {
    if (character < 0x80) {
        text.push_back(static_cast<char>(character));
        return;
    }
    const int following = character < 0x800 ? 1 : character < 0x10000 ? 2 : 3;
    constexpr uint8_t first[] = {0, 0xC0, 0xE0, 0xF0};
    text.push_back(static_cast<char>(first[following] | character >> (6 * following)));
    for (int shift = 6 * (following - 1); shift >= 0; shift -= 6)
        text.push_back(static_cast<char>(0x80 | (character >> shift & 0x3F)));
}

constexpr bool is_digit(char c) { return c >= '0' && c <= '9'; }

}  // namespace

// Scans JSON with comments into nodes.
class document::scanner {
public:
    struct error {
        size_t offset;  // of the last character that was read
        std::string what;
        syntax wanted;
    };

    scanner(document &into, std::string_view text) : document_(into), text_(text) {}

    void run() {
        if (text_.size() > MOST_TEXT) fail("too long");
        if (text_.starts_with("\xEF\xBB\xBF")) at_ = 3;
        do {
            scan_value();
            while (!open_.empty() && !begins_another()) close();
        } while (!open_.empty());
        skip_blanks();
        if (at_ != text_.size()) unexpected("end of input");
    }

private:
    [[noreturn]] void fail(std::string what, syntax wanted = syntax::other) const {
        throw error{at_, std::move(what), wanted};
    }
    [[noreturn]] void fail_text(const std::string &what) const { fail("invalid string: " + what, syntax::text); }
    bool at_end() const { return at_ >= text_.size(); }
    char here() const { return at_end() ? '\0' : text_[at_]; }

    void skip_blanks() {
        for (; !at_end(); ++at_) {
            const char c = text_[at_];
            if (c == '/') {
                skip_comment();
            } else if (c != ' ' && c != '\n' && c != '\t' && c != '\r') {
                return;
            }
        }
    }

    // Leaves at_ on its last character.
    void skip_comment() {
        ++at_;
        const bool line = here() == '/';
        if (!line && here() != '*') fail("invalid comment; expecting '/' or '*' after '/'");
        const size_t end = line ? text_.find('\n', at_) : text_.find("*/", at_ + 1);
        at_ = std::min(end, line ? text_.size() - 1 : text_.size());
        if (!line && end == text_.npos) fail("invalid comment; missing closing '*/'");
        if (!line) ++at_;
    }

    // Fails at the current token, at the offset of its last character.
    [[noreturn]] void unexpected(std::string_view expected, syntax wanted = syntax::other) {
        const char c = here();
        std::string found = "'" + std::string(1, c) + "'";
        if (at_end()) {
            found = "end of input";
        } else if (c == '"') {
            scan_text();
            --at_;
            found = "string literal";
        } else if (c == '-' || is_digit(c)) {
            scan_number();
            --at_;
            found = "number literal";
        } else if (c == '\0') {
            found = "NUL";
        } else if (std::string_view("{}[]:,").find(c) == std::string_view::npos) {
            const char *const word = c == 't' ? "true" : c == 'f' ? "false" : "null";
            scan_word(word);
            --at_;
            found = std::string(word) + " literal";
        }
        fail("unexpected " + found + "; expected " + std::string(expected), wanted);
    }

    void scan_value() {
        skip_blanks();
        const auto number = static_cast<uint32_t>(document_.nodes_.size());
        if (number == MOST_NODES) fail("too many values");
        const size_t back = key_ == 0 ? 0 : std::min(at_ - key_, size_t{FAR});
        if (back == FAR) document_.far_keys_.push_back({number, key_});
        const node made{.at = at_ & MOST_TEXT, .end = (number + 1) & MOST_NODES, .key_back = back & FAR};
        key_ = 0;
        const char c = here();
        if (c == '"') {
            scan_text();
        } else if (c == '-' || is_digit(c)) {
            scan_number();
        } else if (c == '{' || c == '[') {
            if (open_.size() == DEEPEST) fail("nested too deep");
            open_.push_back(number);
            ++at_;
        } else if (c == 't' || c == 'f') {
            scan_word(c == 't' ? "true" : "false");
        } else if (c == 'n') {
            scan_word("null");
        } else {
            unexpected("'[', '{', or a literal", syntax::value);
        }
        document_.nodes_.push_back(made);
        empty_ = c == '{' || c == '[';
    }

    // Whether the innermost list or object has another value. If so, at_ is before that value and after its key.
    bool begins_another() {
        skip_blanks();
        const bool object = text_[document_.nodes_[open_.back()].at] == '{';
        const bool first = std::exchange(empty_, false);
        if (here() == (object ? '}' : ']')) return false;
        if (!first) {
            if (here() != ',') unexpected(object ? "',' or '}'" : "',' or ']'");
            ++at_;
            skip_blanks();
        }
        if (!object) return true;
        if (here() != '"') unexpected("string literal", syntax::key);
        key_ = static_cast<uint32_t>(at_);
        scan_text();
        skip_blanks();
        if (here() != ':') unexpected("':'");
        ++at_;
        return true;
    }

    void close() {
        ++at_;
        document_.nodes_[open_.back()].end = document_.nodes_.size() & MOST_NODES;
        open_.pop_back();
    }

    void scan_word(std::string_view word) {
        for (const char c : word) {
            if (here() != c) fail("invalid literal", syntax::value);
            ++at_;
        }
    }

    void scan_number() {
        if (here() == '-') ++at_;
        if (!is_digit(here())) fail("invalid number; expected digit after '-'");
        const auto skip_digits = [&] {
            while (is_digit(here())) ++at_;
        };
        if (here() == '0') {
            ++at_;
        } else {
            skip_digits();
        }
        if (here() == '.') {
            ++at_;
            if (!is_digit(here())) fail("invalid number; expected digit after '.'");
            skip_digits();
        }
        if (here() == 'e' || here() == 'E') {
            ++at_;
            if (here() == '+' || here() == '-') ++at_;
            if (!is_digit(here())) fail("invalid number; expected '+', '-', or digit after exponent");
            skip_digits();
        }
    }

    // Scans a text, both its quotes included.
    void scan_text() {
        const size_t begin = at_++;
        size_t plain = at_;  // where the part begins that is not decoded yet
        std::string content;
        while (true) {
            if (at_end()) fail_text("missing closing quote");
            const auto c = static_cast<uint8_t>(text_[at_]);
            if (c == '"') break;
            if (c == '\\') {
                content.append(text_, plain, at_ - plain);
                scan_escape(content);
                plain = at_;
            } else if (c < ' ') {
                fail_text("control character; write it as \\u00" + hex_text({&text_[at_], 1}));
            } else if (c < 0x80) {
                ++at_;
            } else {
                char32_t character = 0;
                if (!next_character(text_, at_, character)) fail_text("ill-formed UTF-8 byte");
            }
        }
        if (plain != begin + 1) {
            content.append(text_, plain, at_ - plain);
            document_.decoded_.push_back({static_cast<uint32_t>(begin), std::move(content)});
        }
        ++at_;
    }

    char32_t scan_four_digits() {
        const std::string_view digits = text_.substr(++at_, 4);
        uint16_t value = 0;
        const char *const end = std::from_chars(digits.data(), digits.data() + digits.size(), value, 16).ptr;
        at_ += static_cast<size_t>(end - digits.data());
        if (end != digits.data() + 4) fail_text("'\\u' must be followed by 4 hex digits");
        --at_;
        return value;
    }

    // Scans an escape, its backslash included.
    void scan_escape(std::string &content) {
        constexpr std::string_view letters = "\"\\/bfnrt";
        constexpr std::string_view meanings = "\"\\/\b\f\n\r\t";
        ++at_;
        if (const size_t known = letters.find(here()); known != letters.npos && !at_end()) {
            content.push_back(meanings[known]);
        } else if (here() == 'u') {
            char32_t character = scan_four_digits();
            constexpr const char *high = "surrogate U+D800..U+DBFF must be followed by U+DC00..U+DFFF";
            if (character >= 0xDC00 && character < 0xE000)
                fail_text("surrogate U+DC00..U+DFFF must follow U+D800..U+DBFF");
            if (character >= 0xD800 && character < 0xDC00) {
                for (const char c : {'\\', 'u'}) {
                    ++at_;
                    if (here() != c) fail_text(high);
                }
                const char32_t low = scan_four_digits();
                if (low < 0xDC00 || low >= 0xE000) fail_text(high);
                character = 0x10000 + ((character - 0xD800) << 10) + (low - 0xDC00);
            }
            append_utf8(content, character);
        } else {
            fail_text("forbidden character after backslash");
        }
        ++at_;
    }

    document &document_;
    std::string_view text_;
    size_t at_ = 0;
    std::vector<uint32_t> open_;  // lists and objects, outermost first
    uint32_t key_ = 0;            // of the next value: offset of its opening quote
    bool empty_ = false;          // nothing has been read of the innermost list or object
};

bool document::parse(std::string_view text, std::string &message) {
    source_ = text;
    try {
        nodes_.reserve(text.size() / 8);  // memory that is never touched costs nothing
        scanner(*this, text).run();
    } catch (const scanner::error &failed) {
        failed_at_ = failed.offset;
        failed_in_ = failed.wanted;
        message = line_and_column(text, failed.offset) + ": " + failed.what;
        return false;
    }
    refuse_repeated_keys();
    return true;
}

// One pass over all objects, each member seen once.
void document::refuse_repeated_keys() const {
    std::vector<uint32_t> members;
    std::vector<uint32_t> repeated;  // those with the key of an earlier one
    for (uint32_t object = 0; object < nodes_.size(); ++object) {
        if (first_of(nodes_[object]) != '{') continue;
        members.clear();
        repeated.clear();
        for (uint32_t at = object + 1; at < end_of(object); at = end_of(at)) members.push_back(at);
        const auto key = [&](uint32_t member) { return key_of(member); };
        std::sort(members.begin(), members.end(), [&](uint32_t a, uint32_t b) {
            const int order = key(a).compare(key(b));
            return order != 0 ? order < 0 : a < b;
        });
        for (size_t i = 1; i < members.size(); ++i) {
            if (key(members[i - 1]) == key(members[i])) repeated.push_back(members[i]);
        }
        std::sort(repeated.begin(), repeated.end());
        for (const uint32_t member : repeated) {
            const json_value again(*this, member);
            again.attempt([&] { again.wrong("given twice"); });
        }
    }
}

std::string_view document::text_at(uint32_t opening_quote) const {
    const auto known = std::lower_bound(decoded_.begin(), decoded_.end(), opening_quote,
                                        [](const decoded &each, uint32_t at) { return each.at < at; });
    if (known != decoded_.end() && known->at == opening_quote) return known->text;
    const auto rest = source_.substr(opening_quote + 1);
    return rest.substr(0, rest.find('"'));
}

uint32_t document::key_at(uint32_t value) const {
    const auto &[at, end, key_back] = nodes_[value];
    if (key_back == 0) return 0;
    if (key_back != FAR) return static_cast<uint32_t>(at - key_back);
    return std::ranges::lower_bound(far_keys_, value, {}, &far_key::value)->at;
}

std::string_view document::key_of(uint32_t value) const {
    const uint32_t at = key_at(value);
    return at == 0 ? std::string_view() : text_at(at);
}

bool document::suggests() const { return collects_ && findings_.size() < MOST_SUGGESTED; }

bool document::record(const bad_value &bad) const {
    if (collects_) findings_.push_back(bad);
    return collects_;
}

std::vector<bad_value> document::take_findings() {
    const auto order = [](const bad_value &a, const bad_value &b) { return a.node < b.node; };
    const auto same = [](const bad_value &a, const bad_value &b) { return a.node == b.node && a.what == b.what; };
    std::stable_sort(findings_.begin(), findings_.end(), order);
    findings_.erase(std::unique(findings_.begin(), findings_.end(), same), findings_.end());
    return std::move(findings_);
}

// ---- locator --------------------------------------------------------------------------------------------------------

std::string locator::path(uint32_t node) {
    const auto &nodes = document_.nodes_;
    // From the last path outwards and along until a value contains this one, then inwards.
    while (!steps_.empty() && document_.end_of(steps_.back().node) <= node) {
        const uint32_t outer = steps_.size() == 1 ? 0 : steps_[steps_.size() - 2].node;
        if (document_.end_of(outer) <= node) {
            steps_.pop_back();
        } else {
            steps_.back() = {document_.end_of(steps_.back().node), steps_.back().index + 1};
        }
    }
    for (uint32_t here = steps_.empty() ? 0 : steps_.back().node; here != node; here = steps_.back().node) {
        step inner{here + 1, 0};
        for (; document_.end_of(inner.node) <= node; ++inner.index) inner.node = document_.end_of(inner.node);
        steps_.push_back(inner);
    }

    std::string shown;
    for (size_t i = 0; i < steps_.size(); ++i) {
        if (steps_.size() > LONGEST_PATH && i == LONGEST_PATH / 2) {
            shown += "...";
            i = steps_.size() - LONGEST_PATH / 2;
        }
        const auto &outer = nodes[i == 0 ? 0 : steps_[i - 1].node];
        if (document_.first_of(outer) == '[') {
            shown += "[" + std::to_string(steps_[i].index) + "]";
        } else {
            if (!shown.empty()) shown += ".";
            shown += shown_key(document_.key_of(steps_[i].node));
        }
    }
    return shown;
}

std::string locator::position(uint32_t node) {
    const size_t key = document_.key_at(node);
    const size_t offset = key != 0 ? key : document_.nodes_[node].at;
    const auto text = document_.source_.substr(0, offset);
    for (size_t feed = text.find('\n', counted_to_); feed != text.npos; feed = text.find('\n', feed + 1)) {
        ++line_;
        line_begin_ = feed + 1;
    }
    counted_to_ = offset;
    return std::to_string(line_) + ":" + std::to_string(offset - line_begin_ + 1);
}

// ---- json_value -----------------------------------------------------------------------------------------------------

std::string_view json_value::key() const { return document_->key_of(node_); }

char json_value::first() const { return document_->first_of(document_->nodes_[node_]); }

std::optional<uint64_t> json_value::integer() const {
    if (first() != '-' && !is_digit(first())) return std::nullopt;
    const auto rest = document_->source_.substr(document_->nodes_[node_].at);
    const auto digits = rest.substr(0, rest.find_first_not_of("-0123456789"));
    const bool fraction = digits.size() < rest.size() && std::string_view(".eE").find(rest[digits.size()]) != rest.npos;
    return fraction ? std::nullopt : parse_number(digits);
}

std::string_view json_value::plain_text() const { return document_->text_of(document_->nodes_[node_]); }

bool json_value::is_integer() const { return integer().has_value(); }

bool json_value::is_number() const { return first() == '"' ? parse_number(plain_text()).has_value() : is_integer(); }

bool json_value::is_text() const { return first() == '"' || (is_object() && has("hex") && count() == 1); }

bool json_value::is_list() const { return first() == '['; }

bool json_value::is_object() const { return first() == '{'; }

bool json_value::is_word(std::string_view text) const { return first() == '"' && plain_text() == text; }

uint64_t json_value::number() const {
    const auto value = first() == '"' ? parse_number(plain_text()) : integer();
    if (!value) wrong("expected a number");
    return *value;
}

bool json_value::flag() const {
    if (first() != 't' && first() != 'f') wrong("expected true or false");
    return first() == 't';
}

std::string json_value::text() const {
    if (first() == '"') return std::string(plain_text());
    if (!is_text()) wrong("expected a text");
    return hex();
}

std::string json_value::hex() const {
    const json_value digits = at("hex");
    auto bytes = digits.first() == '"' ? parse_hex(digits.plain_text()) : std::nullopt;
    if (!bytes) digits.wrong("expected pairs of hexadecimal digits");
    return std::move(*bytes);
}

json_value::range json_value::items() const {
    if (!is_list()) wrong("expected a list");
    return {{*document_, node_ + 1}, {*document_, document_->end_of(node_)}};
}

json_value::range json_value::members() const {
    if (!is_object()) wrong("expected an object");
    return {{*document_, node_ + 1}, {*document_, document_->end_of(node_)}};
}

uint32_t json_value::count() const {
    uint32_t count = 0;
    for (uint32_t at = node_ + 1; at < document_->end_of(node_); at = document_->end_of(at)) ++count;
    return count;
}

bool json_value::has(std::string_view key) const {
    for (const json_value member : members()) {
        if (member.key() == key) return true;
    }
    return false;
}

json_value json_value::at(std::string_view key) const {
    for (const json_value member : members()) {
        if (member.key() == key) return member;
    }
    wrong("\"" + std::string(key) + "\" is missing");
}

void json_value::wrong(std::string_view what) const { throw bad_value{node_, std::string(what)}; }

void json_value::unknown(std::string_view what, std::string_view word, std::span<const std::string_view> known) const {
    std::string all(what);
    if (document_->suggests()) {
        // A known word may be unknown where it is.
        if (const auto meant = nearest_word(word, known); meant != word)
            all.append("; did you mean \"").append(meant).append("\"?");
    }
    wrong(all);
}

json_value::iterator &json_value::iterator::operator++() {
    node_ = document_->end_of(node_);
    return *this;
}

}  // namespace hosted::described
