// machine/call_line.cpp - scanning a line of the call log.
#include "machine/call_line.h"

#include <algorithm>

#include "hosted/described/text.h"

namespace verbs {
namespace {

using hosted::described::parse_number;

struct declaration {
    std::string_view call;
    std::string_view parameters;  // with their types
};

// CMakeLists.txt makes the list from platform/kernel.h.
constexpr declaration declarations[] = {
#define CALL(name, parameters) {name, parameters},
#include "machine/calls.inc"
#undef CALL
};

using parameter_table = std::array<std::vector<std::string_view>, hosted::CALL_COUNT>;

// "uint64_t port, uint64_t *word1" -> port, word1
parameter_table name_parameters() {
    parameter_table names;
    for (auto [call, rest] : declarations) {
        auto &listed = names[static_cast<size_t>(hosted::call_by_name(call).value())];
        while (!rest.empty()) {
            const auto one = rest.substr(0, rest.find(", "));
            listed.push_back(one.substr(one.find_last_of(" *") + 1));
            rest.remove_prefix(std::min(rest.size(), one.size() + 2));
        }
    }
    return names;
}

// Takes a text off the front of a line. False: the line begins otherwise.
bool take(std::string_view &line, std::string_view text) {
    if (!line.starts_with(text)) return false;
    line.remove_prefix(text.size());
    return true;
}

std::optional<uint64_t> take_number(std::string_view &line) {
    const auto text = line.substr(0, line.find_first_not_of("-0123456789abcdefx"));
    line.remove_prefix(text.size());
    return parse_number(text);
}

bool take_argument(std::string_view &line, logged_argument &into) {
    into.is_output = take(line, "{");
    into.is_count = !into.is_output && !line.starts_with("0x");
    while (!(into.is_output && take(line, "}"))) {
        if (into.count == into.words.size() || (into.count > 0 && !take(line, ", "))) return false;
        const auto word = take_number(line);
        if (!word) return false;
        into.words[into.count++] = *word;
        if (!into.is_output) break;
    }
    return true;
}

}  // namespace

std::span<const std::string_view> parameters_of(hosted::call which) {
    static const parameter_table names = name_parameters();
    return names[static_cast<size_t>(which)];
}

bool logged_call::succeeded() const { return result && hosted::has_succeeded(which, *result); }

uint64_t logged_call::operator[](std::string_view parameter) const {
    const auto names = parameters_of(which);
    const auto found = std::ranges::find(names, parameter);
    return found == names.end() ? 0 : arguments[static_cast<size_t>(found - names.begin())].words[0];
}

std::optional<kernel_message> logged_call::received() const {
    if (!succeeded()) return std::nullopt;
    if (which == hosted::call::recv_msg) return kernel_message{(*this)["word1"], (*this)["code"], (*this)["word2"]};
    if (which != hosted::call::recv_msg_ptr) return std::nullopt;
    const auto &record = arguments[1].words;
    return kernel_message{record[0], record[1], record[2]};
}

std::optional<logged_call> parse_call(std::string_view line) {
    const size_t bracket = line.find('(');
    if (bracket == line.npos) return std::nullopt;
    const auto which = hosted::call_by_name(line.substr(0, bracket));
    if (!which) return std::nullopt;
    logged_call read{*which, {}, {}};
    line.remove_prefix(bracket + 1);
    read.arguments.resize(parameters_of(*which).size());
    for (auto &argument : read.arguments) {
        if (&argument != read.arguments.data() && !take(line, ", ")) return std::nullopt;
        if (!take_argument(line, argument)) return std::nullopt;
    }
    if (!take(line, ")")) return std::nullopt;
    if (take(line, " = ")) read.result = take_number(line);
    return line.empty() ? std::optional(std::move(read)) : std::nullopt;
}

}  // namespace verbs
