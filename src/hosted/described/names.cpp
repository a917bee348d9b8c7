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

// What a thread waits on is an address where an address names it.
constexpr item_meaning meanings[] = {
    {naming::state, KSTATE_CURRENT_THREAD, form::hexadecimal, meaning::handle, "thread"},
    {naming::state, KSTATE_CURRENT_TASK, form::hexadecimal, meaning::handle, "task"},
    {naming::state, KSTATE_REGISTRY_PORT, form::hexadecimal, meaning::handle, "port"},
    {naming::state, KSTATE_EXIT_NOTICE_PORT, form::hexadecimal, meaning::handle, "port"},
    {naming::object, OBJINFO_OWNER, form::hexadecimal, meaning::handle, "task"},
    {naming::object, OBJINFO_HANDLE, form::hexadecimal, meaning::handle},
    {naming::object, TASKINFO_FLAGS, form::hexadecimal, meaning::bits, "TASKFLAG_"},
    {naming::object, TASKINFO_GROUP, form::hexadecimal, meaning::handle, "task"},
    {naming::object, TASKINFO_IDS, form::hexadecimal},
    {naming::object, TASKINFO_PARENT, form::hexadecimal, meaning::handle, "task"},
    {naming::object, THREADINFO_ERROR, form::plain, meaning::name, "RESULT_"},
    {naming::object, THREADINFO_FETCHED_REGISTER, form::hexadecimal},
    {naming::object, THREADINFO_PC, form::address},
    {naming::object, THREADINFO_STACKPTR, form::address},
    {naming::object, THREADINFO_WAITON, form::address, meaning::handle},
    {naming::object, THREADINFO_WAITON_MASTER, form::address, meaning::handle},
    {naming::object, MEMINFO_FLAGS, form::hexadecimal, meaning::bits, "MEMFLAG_"},
    {naming::object, MEMINFO_BEGIN, form::address},
    {naming::object, MEMINFO_END, form::address},
    {naming::object, MEMINFO_BASE, form::address},
    {naming::object, VSINFO_BEGIN, form::address},
    {naming::object, MEMOINFO_TYPE, form::hexadecimal, meaning::bits, "MEMO_"},
    {naming::object, MEMOINFO_RECLAIM, form::hexadecimal, meaning::bits, "MEMORECLAIM_"},
    {naming::object, MEMOINFO_HWADDR, form::address},
    {naming::object, MEMOINFO_FIXADDR, form::address},
    {naming::object, VIEWINFO_MEMO, form::hexadecimal, meaning::handle, "memo"},
    {naming::object, VIEWINFO_FLAGS, form::hexadecimal, meaning::bits, "VIEWFLAG_"},
    {naming::object, VIEWINFO_BEGIN, form::address},
};

constexpr const item_meaning *meaning_of(naming kind, uint64_t item) {
    const auto *const found = std::find_if(std::begin(meanings), std::end(meanings),
                                           [&](const auto &row) { return row.kind == kind && row.item == item; });
    return found == std::end(meanings) ? nullptr : found;
}

constexpr uint64_t LARGEST_INDEX = 0xFFFF;  // within a group of system data; the groups are above

constexpr naming kind_of(std::string_view name, uint64_t item) {
    if (name.starts_with("KSTATE_")) return naming::state;
    if (!name.starts_with("KSYSIDX_")) return naming::object;
    if (item > LARGEST_INDEX) return naming::data_group;
    return name.starts_with("KSYSIDX_TRACE_") ? naming::trace : naming::register_info;
}

constexpr named_item item_of(std::string_view name, uint64_t item) {
    const naming kind = kind_of(name, item);
    const item_meaning *const known = meaning_of(kind, item);
    return {kind, known != nullptr ? known->written : form::plain, name, item};
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

const item_meaning *find_meaning(naming kind, uint64_t item) { return meaning_of(kind, item); }

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
