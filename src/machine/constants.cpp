// machine/constants.cpp - one table of all named numbers, by name.
#include "machine/constants.h"

#include <algorithm>
#include <array>
#include <span>

#include "hosted/described/text.h"
#include "platform/kernel.h"
#include "platform/protocol/counters.h"
#include "platform/protocol/device.h"
#include "platform/protocol/log.h"
#include "platform/protocol/registry.h"
#include "platform/protocol/rtc.h"
#include "platform/protocol/service.h"
#include "platform/protocol/sysvc.h"
#include "platform/protocol/task.h"
#include "platform/protocol/terminal.h"

namespace verbs {
namespace {

struct constant {
    std::string_view name;
    uint64_t value;
};

// CMakeLists.txt makes the list from the headers above.
constexpr auto constants = [] {
    auto all = std::to_array<constant>({
#define CONSTANT(name) {#name, static_cast<uint64_t>(name)},
#include "machine/constants.inc"
#undef CONSTANT
    });
    std::ranges::sort(all, {}, &constant::name);
    return all;
}();

// Those of a prefix, next to one another.
std::span<const constant> with_prefix(std::string_view prefix) {
    const auto begins = [prefix](const constant &each) { return each.name.substr(0, prefix.size()); };
    const auto first = std::ranges::lower_bound(constants, prefix, {}, begins);
    return {first, std::ranges::upper_bound(first, constants.end(), prefix, {}, begins)};
}

}  // namespace

std::string_view constant_name(std::string_view prefix, uint64_t value) {
    const auto among = with_prefix(prefix);
    const auto found = std::ranges::find(among, value, &constant::value);
    return found == among.end() ? std::string_view() : found->name;
}

std::string flag_names(std::string_view prefix, uint64_t value) {
    std::string shown;
    const auto add = [&](std::string_view text) { shown.append(shown.empty() ? "" : " | ").append(text); };
    for (uint64_t bit = 1; bit != 0; bit <<= 1) {
        const auto name = (value & bit) != 0 ? constant_name(prefix, bit) : std::string_view();
        if (name.empty()) continue;
        add(name);
        value &= ~bit;
    }
    if (value != 0 || shown.empty()) add(number_text(value));
    return shown;
}

std::string number_text(uint64_t value) {
    constexpr uint64_t first_ambiguous = 10;  // smaller ones are the same in either base
    return hosted::described::number_text(value, value >= first_ambiguous);
}

}  // namespace verbs
