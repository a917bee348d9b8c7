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

#define PLAIN(kind, item)                                                                                              \
    named_item { naming::kind, form::plain, #item, item }
#define HEX(kind, item)                                                                                                \
    named_item { naming::kind, form::hexadecimal, #item, item }

constexpr std::array listed{
    HEX(state, KSTATE_CURRENT_THREAD),
    HEX(state, KSTATE_CURRENT_TASK),
    PLAIN(state, KSTATE_PAGE_SIZE),
    HEX(state, KSTATE_REGISTRY_PORT),
    HEX(state, KSTATE_EXIT_NOTICE_PORT),
    PLAIN(state, KSTATE_FREE_PAGES),
    PLAIN(state, KSTATE_TOTAL_PAGES),
    PLAIN(state, KSTATE_VIRT_FREE_PAGES),
    PLAIN(state, KSTATE_VIRT_TOTAL_PAGES),
    PLAIN(state, KSTATE_HANDLE_MANAGER),
    PLAIN(state, KSTATE_HANDLE_COUNT),
    PLAIN(state, KSTATE_MAIN_CHUNK_PAGES),
    PLAIN(state, KSTATE_MAIN_CHUNK_FREE_PAGES),
    PLAIN(state, KSTATE_ISR_NUMBER_LIMIT),
    PLAIN(state, KSTATE_RECLAIM_PAGES),
    PLAIN(state, KSTATE_RECLAIM_USED_PAGES),
    PLAIN(state, KSTATE_TICK),

    PLAIN(object, OBJINFO_STATE),
    HEX(object, OBJINFO_OWNER),
    HEX(object, OBJINFO_HANDLE),

    PLAIN(object, TASKINFO_PRIORITY),
    PLAIN(object, TASKINFO_RESERVED_PAGES),
    PLAIN(object, TASKINFO_ALLOC_PAGES),
    PLAIN(object, TASKINFO_VIRT_PAGES),
    PLAIN(object, TASKINFO_EXETIME_HI),
    PLAIN(object, TASKINFO_EXETIME_LO),
    HEX(object, TASKINFO_FLAGS),
    PLAIN(object, TASKINFO_HWID),
    PLAIN(object, TASKINFO_THREADS),
    PLAIN(object, TASKINFO_MEMOS),
    PLAIN(object, TASKINFO_ISRTIME_HI),
    PLAIN(object, TASKINFO_ISRTIME_LO),
    PLAIN(object, TASKINFO_SLAB_U),
    PLAIN(object, TASKINFO_SLAB_P),
    PLAIN(object, TASKINFO_PAGEFAULTS_HI),
    PLAIN(object, TASKINFO_PAGEFAULTS_LO),
    PLAIN(object, TASKINFO_SYSTIME_LO),
    PLAIN(object, TASKINFO_SYSTIME_HI),
    PLAIN(object, TASKINFO_SYSCALLS_LO),
    PLAIN(object, TASKINFO_SYSCALLS_HI),
    PLAIN(object, TASKINFO_CRTICK_LO),
    PLAIN(object, TASKINFO_CRTICK_HI),
    PLAIN(object, TASKINFO_VOLCTXSW_LO),
    PLAIN(object, TASKINFO_VOLCTXSW_HI),
    PLAIN(object, TASKINFO_INVCTXSW_LO),
    PLAIN(object, TASKINFO_INVCTXSW_HI),
    HEX(object, TASKINFO_GROUP),
    HEX(object, TASKINFO_IDS),
    HEX(object, TASKINFO_PARENT),

    PLAIN(object, THREADINFO_PRIORITY),
    PLAIN(object, THREADINFO_ERROR),
    HEX(object, THREADINFO_PC),
    PLAIN(object, THREADINFO_EXETIME),
    PLAIN(object, THREADINFO_DEPTH),
    HEX(object, THREADINFO_FETCHED_REGISTER),
    HEX(object, THREADINFO_STACKPTR),
    HEX(object, THREADINFO_WAITON),
    HEX(object, THREADINFO_WAITON_MASTER),
    PLAIN(object, THREADINFO_VOLCTXSW_LO),
    PLAIN(object, THREADINFO_VOLCTXSW_HI),
    PLAIN(object, THREADINFO_INVCTXSW_LO),
    PLAIN(object, THREADINFO_INVCTXSW_HI),

    PLAIN(object, ISRINFO_NUMBER),
    PLAIN(object, ISRINFO_PRIORITY),
    PLAIN(object, ISRINFO_SCHEDULED_HI),
    PLAIN(object, ISRINFO_SCHEDULED_LO),
    PLAIN(object, ISRINFO_SYSCALLS_HI),
    PLAIN(object, ISRINFO_SYSCALLS_LO),
    PLAIN(object, ISRINFO_PAGEFAULTS_HI),
    PLAIN(object, ISRINFO_PAGEFAULTS_LO),
    PLAIN(object, ISRINFO_ISRTIME_HI),
    PLAIN(object, ISRINFO_ISRTIME_LO),

    HEX(object, MEMINFO_BEGIN),
    HEX(object, MEMINFO_END),
    HEX(object, MEMINFO_BASE),
    PLAIN(object, MEMINFO_PAGES),
    HEX(object, MEMINFO_FLAGS),
    PLAIN(object, MEMINFO_FREE_PAGES),

    HEX(object, VSINFO_BEGIN),
    PLAIN(object, VSINFO_PAGES),
    PLAIN(object, VSINFO_TYPE),
    PLAIN(object, VSINFO_GLOBAL),

    PLAIN(object, MEMOINFO_SIZE),
    PLAIN(object, MEMOINFO_ALLOC),
    PLAIN(object, MEMOINFO_VIEWS),
    PLAIN(object, MEMOINFO_COPIES),
    PLAIN(object, MEMOINFO_DELETED),
    HEX(object, MEMOINFO_HWADDR),
    HEX(object, MEMOINFO_FIXADDR),
    HEX(object, MEMOINFO_TYPE),
    HEX(object, MEMOINFO_RECLAIM),

    PLAIN(object, VIEWINFO_PAGES),
    HEX(object, VIEWINFO_BEGIN),
    PLAIN(object, VIEWINFO_OFFSET),
    HEX(object, VIEWINFO_MEMO),
    HEX(object, VIEWINFO_FLAGS),

    PLAIN(data_group, KSYSIDX_REGISTERINFO),
    PLAIN(data_group, KSYSIDX_REGISTERINFO_TABLE),
    PLAIN(data_group, KSYSIDX_TRACE),
    PLAIN(data_group, KSYSIDX_TRACE_RAW_WORDS),
    PLAIN(data_group, KSYSIDX_TRACE_ENTRY_WORDS),

    PLAIN(register_info, KSYSIDX_REGISTERINFO_COUNT),
    PLAIN(register_info, KSYSIDX_REGISTERINFO_STRIDE),
    PLAIN(register_info, KSYSIDX_REGISTERINFO_MAXNAMELEN),

    PLAIN(trace, KSYSIDX_TRACE_WORDS),
    PLAIN(trace, KSYSIDX_TRACE_BUFFERS),
    PLAIN(trace, KSYSIDX_TRACE_WORDS_PER_BUFFER),
    PLAIN(trace, KSYSIDX_TRACE_LARGEST_ENTRY),

    named_item{naming::service_type, form::plain, "integer", SVCTYPE_INTEGER},
    named_item{naming::service_type, form::plain, "string", SVCTYPE_STRING},
    named_item{naming::service_type, form::plain, "wide string", SVCTYPE_WIDE_STRING},
    named_item{naming::service_type, form::plain, "sockaddr", SVCTYPE_SOCKADDR},
};

#undef PLAIN
#undef HEX

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

const named_item *find(naming kind, uint64_t item) {
    const named_item wanted{kind, form::plain, {}, item};
    const auto found = std::lower_bound(by_number.begin(), by_number.end(), wanted, number_order);
    return found == by_number.end() || number_order(wanted, *found) ? nullptr : &*found;
}

}  // namespace

std::span<const named_item> named_items() { return by_number; }

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
