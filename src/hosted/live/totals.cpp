// totals.cpp - the state items that are totals of the system.
#include <algorithm>
#include <array>
#include <limits>

#include "hosted/live/system.h"
#include "platform/kernel.h"

namespace hosted::live {

memory_account parse_memory_account(std::string_view text) {
    constexpr uint64_t kilobyte = 1024;
    memory_account account;
    uint64_t active = 0, dirty = 0;
    const struct {
        std::string_view key;
        uint64_t &sum;
    } figures[] = {
        {"MemTotal:", account.total},
        {"MemFree:", account.free},
        {"Buffers:", account.reclaimable},
        {"Cached:", account.reclaimable},
        {"SReclaimable:", account.reclaimable},
        {"Active(file):", active},
        {"Dirty:", dirty},
        {"VmallocTotal:", account.virtual_total},
        {"VmallocUsed:", account.virtual_used},
    };
    while (!text.empty()) {
        std::string_view line = next_line(text);
        const std::string_view key = next_field(line);
        for (const auto &[wanted, sum] : figures) {
            if (key != wanted) continue;
            const uint64_t amount = next_number(line).value_or(0);
            if (amount <= std::numeric_limits<uint64_t>::max() / kilobyte) sum += amount * kilobyte;
        }
    }
    account.free = std::min(account.free, account.total);
    account.reclaim_used = std::min(active + dirty, account.reclaimable);
    account.virtual_used = std::min(account.virtual_used, account.virtual_total);
    return account;
}

const memory_account &totals::account() {
    if (!account_) {
        std::array<char, 8192> buffer;  // several times what the file holds
        account_ = parse_memory_account(read_file(roots_.proc + "/meminfo", buffer).value_or(""));
    }
    return *account_;
}

bool totals::state(uint64_t item, uint64_t &value) {
    switch (item) {
    case KSTATE_PAGE_SIZE: value = page_size(); return true;
    case KSTATE_FREE_PAGES: value = account().free / page_size(); return true;
    case KSTATE_TOTAL_PAGES: value = account().total / page_size(); return true;
    case KSTATE_RECLAIM_PAGES: value = account().reclaimable / page_size(); return true;
    case KSTATE_RECLAIM_USED_PAGES: value = account().reclaim_used / page_size(); return true;
    case KSTATE_VIRT_TOTAL_PAGES: value = account().virtual_total / page_size(); return true;
    case KSTATE_VIRT_FREE_PAGES: value = (account().virtual_total - account().virtual_used) / page_size(); return true;
    case KSTATE_HANDLE_MANAGER: value = 0; return true;
    case KSTATE_ISR_NUMBER_LIMIT: value = interrupts_.limit(); return true;

    // Where the zones are not told, all memory is one.
    case KSTATE_MAIN_CHUNK_PAGES: {
        const memory_zone *zone = memory_.main_zone();
        value = zone ? zone->managed : account().total / page_size();
        return true;
    }
    case KSTATE_MAIN_CHUNK_FREE_PAGES: {
        const memory_zone *zone = memory_.main_zone();
        value = zone ? zone->free : account().free / page_size();
        return true;
    }

    case KSTATE_HANDLE_COUNT: {
        if (!handles_) {
            std::array<char, 128> buffer;
            std::string_view text = read_file(roots_.proc + "/sys/fs/file-nr", buffer).value_or("");
            handles_ = next_number(text).value_or(0);
        }
        value = *handles_;
        return true;
    }
    default: return false;
    }
}

}  // namespace hosted::live
