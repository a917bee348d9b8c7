// hosted/described/names.cpp - one table of all named items, each with the form of its value.
#include "hosted/described/names.h"

#include <algorithm>
#include <array>
#include <tuple>

#include "hosted/described/text.h"
#include "platform/kernel.h"
#include "platform/protocol/service.h"

namespace hosted::described {
namespace {

// The items that hold a handle, ids or flags.
constexpr uint64_t hexadecimal_states[] = {KSTATE_CURRENT_THREAD, KSTATE_CURRENT_TASK, KSTATE_REGISTRY_PORT,
                                           KSTATE_EXIT_NOTICE_PORT};
constexpr uint64_t hexadecimal_items[] = {
    OBJINFO_OWNER,
    OBJINFO_HANDLE,
    TASKINFO_FLAGS,
    TASKINFO_GROUP,
    TASKINFO_IDS,
    TASKINFO_PARENT,
    THREADINFO_FETCHED_REGISTER,
    MEMINFO_FLAGS,
    MEMOINFO_TYPE,
    MEMOINFO_RECLAIM,
    VIEWINFO_MEMO,
    VIEWINFO_FLAGS,
};

// The items that hold an address. What a thread waits on is one where an address names it.
constexpr uint64_t address_items[] = {
    THREADINFO_PC, THREADINFO_STACKPTR, THREADINFO_WAITON, THREADINFO_WAITON_MASTER, MEMINFO_BEGIN,  MEMINFO_END,
    MEMINFO_BASE,  VSINFO_BEGIN,        MEMOINFO_HWADDR,   MEMOINFO_FIXADDR,         VIEWINFO_BEGIN,
};

constexpr uint64_t LARGEST_INDEX = 0xFFFF;  // within a group of system data; the groups are above

constexpr naming kind_of(std::string_view name, uint64_t item) {
    if (name.starts_with("KSTATE_")) return naming::state;
    if (!name.starts_with("KSYSIDX_")) return naming::object;
    if (item > LARGEST_INDEX) return naming::data_group;
    return name.starts_with("KSYSIDX_TRACE_") ? naming::trace : naming::register_info;
}

constexpr named_item item_of(std::string_view name, uint64_t item) {
    const naming kind = kind_of(name, item);
    const auto among = [item](const auto &items) {
        return std::find(std::begin(items), std::end(items), item) != std::end(items);
    };
    const bool hexadecimal =
        (kind == naming::state && among(hexadecimal_states)) || (kind == naming::object && among(hexadecimal_items));
    const bool address = kind == naming::object && among(address_items);
    return {kind, address ? form::address : hexadecimal ? form::hexadecimal : form::plain, name, item};
}

#define ITEM(name) item_of(#name, name)

constexpr std::array listed{
#include "hosted/items.inc"  // an ITEM for each item of platform/kernel.h; CMakeLists.txt makes it
    named_item{naming::service_type, form::plain, "integer", SVCTYPE_INTEGER},
    named_item{naming::service_type, form::plain, "string", SVCTYPE_STRING},
    named_item{naming::service_type, form::plain, "wide string", SVCTYPE_WIDE_STRING},
    named_item{naming::service_type, form::plain, "sockaddr", SVCTYPE_SOCKADDR},
};

#undef ITEM

constexpr bool name_order(const named_item &a, const named_item &b) {
    return std::tie(a.kind, a.name) < std::tie(b.kind, b.name);
}
constexpr bool number_order(const named_item &a, const named_item &b) {
    return std::tie(a.kind, a.item) < std::tie(b.kind, b.item);
}

template <class Order> constexpr auto sorted(Order order) {
    auto items = listed;
    std::sort(items.begin(), items.end(), order);
    return items;
}

constexpr auto by_name = sorted(name_order);
constexpr auto by_number = sorted(number_order);

// Where the items of each kind begin, and the last of them end.
constexpr auto first_of_kind = [] {
    std::array<size_t, static_cast<size_t>(naming::none) + 2> first{};
    for (const auto &item : by_number) {
        for (auto kind = static_cast<size_t>(item.kind) + 1; kind < first.size(); ++kind) ++first[kind];
    }
    return first;
}();

const named_item *find(naming kind, uint64_t item) {
    const auto items = named_items(kind);
    const auto found = std::ranges::lower_bound(items, item, {}, &named_item::item);
    return found == items.end() || found->item != item ? nullptr : &*found;
}

}  // namespace

std::span<const named_item> named_items(naming kind) {
    const auto number = static_cast<size_t>(kind);
    return std::span(by_number).subspan(first_of_kind[number], first_of_kind[number + 1] - first_of_kind[number]);
}

std::vector<std::string_view> item_names(naming kind) {
    std::vector<std::string_view> names;
    for (const auto &item : named_items(kind)) names.push_back(item.name);
    return names;
}

std::optional<uint64_t> item_by_name(naming kind, std::string_view name) {
    const named_item wanted{kind, form::plain, name, 0};
    const auto found = std::lower_bound(by_name.begin(), by_name.end(), wanted, name_order);
    if (found == by_name.end() || name_order(wanted, *found)) return std::nullopt;
    return found->item;
}

std::string_view item_name(naming kind, uint64_t item) {
    const named_item *const known = find(kind, item);
    return known != nullptr ? known->name : std::string_view();
}

form item_form(naming kind, uint64_t item) {
    const named_item *const known = find(kind, item);
    return known != nullptr ? known->value : form::plain;
}

std::string item_key(naming kind, uint64_t item) {
    constexpr uint64_t first_code = 0x1000;  // from here on people know numbers in hexadecimal
    const auto name = item_name(kind, item);
    return !name.empty() ? std::string(name) : number_text(item, item >= first_code);
}

naming index_naming(uint64_t group) {
    switch (group) {
    case KSYSIDX_REGISTERINFO: return naming::register_info;
    case KSYSIDX_TRACE: return naming::trace;
    default: return naming::none;
    }
}

}  // namespace hosted::described
