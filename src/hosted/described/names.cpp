// hosted/described/names.cpp - one table of all named items.
#include "hosted/described/names.h"

#include <algorithm>
#include <array>
#include <tuple>

#include "platform/kernel.h"
#include "platform/protocol/service.h"

namespace hosted::described {
namespace {

struct named_item {
    naming kind;
    std::string_view name;
    uint64_t item;
};

#define STATE(name)                                                                                                    \
    named_item { naming::state, #name, name }
#define OBJECT(name)                                                                                                   \
    named_item { naming::object, #name, name }
#define GROUP(name)                                                                                                    \
    named_item { naming::data_group, #name, name }
#define REGISTER(name)                                                                                                 \
    named_item { naming::register_info, #name, name }
#define TRACE(name)                                                                                                    \
    named_item { naming::trace, #name, name }

constexpr std::array listed{
    STATE(KSTATE_CURRENT_THREAD),
    STATE(KSTATE_CURRENT_TASK),
    STATE(KSTATE_PAGE_SIZE),
    STATE(KSTATE_REGISTRY_PORT),
    STATE(KSTATE_EXIT_NOTICE_PORT),
    STATE(KSTATE_FREE_PAGES),
    STATE(KSTATE_TOTAL_PAGES),
    STATE(KSTATE_VIRT_FREE_PAGES),
    STATE(KSTATE_VIRT_TOTAL_PAGES),
    STATE(KSTATE_HANDLE_MANAGER),
    STATE(KSTATE_HANDLE_COUNT),
    STATE(KSTATE_MAIN_CHUNK_PAGES),
    STATE(KSTATE_MAIN_CHUNK_FREE_PAGES),
    STATE(KSTATE_ISR_NUMBER_LIMIT),
    STATE(KSTATE_RECLAIM_PAGES),
    STATE(KSTATE_RECLAIM_USED_PAGES),
    STATE(KSTATE_TICK),

    OBJECT(OBJINFO_STATE),
    OBJECT(OBJINFO_OWNER),
    OBJECT(OBJINFO_HANDLE),

    OBJECT(TASKINFO_PRIORITY),
    OBJECT(TASKINFO_RESERVED_PAGES),
    OBJECT(TASKINFO_ALLOC_PAGES),
    OBJECT(TASKINFO_VIRT_PAGES),
    OBJECT(TASKINFO_EXETIME_HI),
    OBJECT(TASKINFO_EXETIME_LO),
    OBJECT(TASKINFO_FLAGS),
    OBJECT(TASKINFO_HWID),
    OBJECT(TASKINFO_THREADS),
    OBJECT(TASKINFO_MEMOS),
    OBJECT(TASKINFO_ISRTIME_HI),
    OBJECT(TASKINFO_ISRTIME_LO),
    OBJECT(TASKINFO_SLAB_U),
    OBJECT(TASKINFO_SLAB_P),
    OBJECT(TASKINFO_PAGEFAULTS_HI),
    OBJECT(TASKINFO_PAGEFAULTS_LO),
    OBJECT(TASKINFO_SYSTIME_LO),
    OBJECT(TASKINFO_SYSTIME_HI),
    OBJECT(TASKINFO_SYSCALLS_LO),
    OBJECT(TASKINFO_SYSCALLS_HI),
    OBJECT(TASKINFO_CRTICK_LO),
    OBJECT(TASKINFO_CRTICK_HI),
    OBJECT(TASKINFO_VOLCTXSW_LO),
    OBJECT(TASKINFO_VOLCTXSW_HI),
    OBJECT(TASKINFO_INVCTXSW_LO),
    OBJECT(TASKINFO_INVCTXSW_HI),
    OBJECT(TASKINFO_GROUP),
    OBJECT(TASKINFO_IDS),
    OBJECT(TASKINFO_PARENT),

    OBJECT(THREADINFO_PRIORITY),
    OBJECT(THREADINFO_ERROR),
    OBJECT(THREADINFO_PC),
    OBJECT(THREADINFO_EXETIME),
    OBJECT(THREADINFO_DEPTH),
    OBJECT(THREADINFO_FETCHED_REGISTER),
    OBJECT(THREADINFO_STACKPTR),
    OBJECT(THREADINFO_WAITON),
    OBJECT(THREADINFO_WAITON_MASTER),
    OBJECT(THREADINFO_VOLCTXSW_LO),
    OBJECT(THREADINFO_VOLCTXSW_HI),
    OBJECT(THREADINFO_INVCTXSW_LO),
    OBJECT(THREADINFO_INVCTXSW_HI),

    OBJECT(ISRINFO_NUMBER),
    OBJECT(ISRINFO_PRIORITY),
    OBJECT(ISRINFO_SCHEDULED_HI),
    OBJECT(ISRINFO_SCHEDULED_LO),
    OBJECT(ISRINFO_SYSCALLS_HI),
    OBJECT(ISRINFO_SYSCALLS_LO),
    OBJECT(ISRINFO_PAGEFAULTS_HI),
    OBJECT(ISRINFO_PAGEFAULTS_LO),
    OBJECT(ISRINFO_ISRTIME_HI),
    OBJECT(ISRINFO_ISRTIME_LO),

    OBJECT(MEMINFO_BEGIN),
    OBJECT(MEMINFO_END),
    OBJECT(MEMINFO_BASE),
    OBJECT(MEMINFO_PAGES),
    OBJECT(MEMINFO_FLAGS),
    OBJECT(MEMINFO_FREE_PAGES),

    OBJECT(VSINFO_BEGIN),
    OBJECT(VSINFO_PAGES),
    OBJECT(VSINFO_TYPE),
    OBJECT(VSINFO_GLOBAL),

    OBJECT(MEMOINFO_SIZE),
    OBJECT(MEMOINFO_ALLOC),
    OBJECT(MEMOINFO_VIEWS),
    OBJECT(MEMOINFO_COPIES),
    OBJECT(MEMOINFO_DELETED),
    OBJECT(MEMOINFO_HWADDR),
    OBJECT(MEMOINFO_FIXADDR),
    OBJECT(MEMOINFO_TYPE),
    OBJECT(MEMOINFO_RECLAIM),

    OBJECT(VIEWINFO_PAGES),
    OBJECT(VIEWINFO_BEGIN),
    OBJECT(VIEWINFO_OFFSET),
    OBJECT(VIEWINFO_MEMO),
    OBJECT(VIEWINFO_FLAGS),

    GROUP(KSYSIDX_REGISTERINFO),
    GROUP(KSYSIDX_REGISTERINFO_TABLE),
    GROUP(KSYSIDX_TRACE),
    GROUP(KSYSIDX_TRACE_RAW_WORDS),
    GROUP(KSYSIDX_TRACE_ENTRY_WORDS),

    REGISTER(KSYSIDX_REGISTERINFO_COUNT),
    REGISTER(KSYSIDX_REGISTERINFO_STRIDE),
    REGISTER(KSYSIDX_REGISTERINFO_MAXNAMELEN),

    TRACE(KSYSIDX_TRACE_WORDS),
    TRACE(KSYSIDX_TRACE_BUFFERS),
    TRACE(KSYSIDX_TRACE_WORDS_PER_BUFFER),
    TRACE(KSYSIDX_TRACE_LARGEST_ENTRY),

    named_item{naming::service_type, "integer", SVCTYPE_INTEGER},
    named_item{naming::service_type, "string", SVCTYPE_STRING},
    named_item{naming::service_type, "wide string", SVCTYPE_WIDE_STRING},
    named_item{naming::service_type, "sockaddr", SVCTYPE_SOCKADDR},
};

#undef STATE
#undef OBJECT
#undef GROUP
#undef REGISTER
#undef TRACE

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

}  // namespace

std::optional<uint64_t> item_by_name(naming kind, std::string_view name) {
    const named_item wanted{kind, name, 0};
    const auto found = std::lower_bound(by_name.begin(), by_name.end(), wanted, name_order);
    if (found == by_name.end() || name_order(wanted, *found)) return std::nullopt;
    return found->item;
}

std::string_view item_name(naming kind, uint64_t item) {
    const named_item wanted{kind, {}, item};
    const auto found = std::lower_bound(by_number.begin(), by_number.end(), wanted, number_order);
    if (found == by_number.end() || number_order(wanted, *found)) return {};
    return found->name;
}

naming index_naming(uint64_t group) {
    switch (group) {
    case KSYSIDX_REGISTERINFO: return naming::register_info;
    case KSYSIDX_TRACE: return naming::trace;
    default: return naming::none;
    }
}

}  // namespace hosted::described
