// hosted/live/totals.cpp - the state items that are totals of the system.
#include "hosted/live/totals.h"

#include <array>

#include "hosted/live/texts.h"
#include "platform/kernel.h"

namespace hosted::live {

bool totals::state(uint64_t item, uint64_t &value) {
    switch (item) {
    case KSTATE_PAGE_SIZE: value = page_size(); return true;
    case KSTATE_FREE_PAGES: value = memory_.amounts().free / page_size(); return true;
    case KSTATE_TOTAL_PAGES: value = memory_.amounts().total / page_size(); return true;
    case KSTATE_RECLAIM_PAGES: value = memory_.account().reclaimable / page_size(); return true;
    case KSTATE_RECLAIM_USED_PAGES: value = memory_.account().reclaim_used / page_size(); return true;
    case KSTATE_VIRT_TOTAL_PAGES: value = memory_.account().virtual_total / page_size(); return true;
    case KSTATE_VIRT_FREE_PAGES:
        value = (memory_.account().virtual_total - memory_.account().virtual_used) / page_size();
        return true;
    case KSTATE_HANDLE_MANAGER: value = 0; return true;
    case KSTATE_ISR_NUMBER_LIMIT: value = interrupts_.limit(); return true;

    // Where no zone is known, all memory is one chunk.
    case KSTATE_MAIN_CHUNK_PAGES: {
        const memory_zone *zone = memory_.main_zone();
        value = zone ? zone->pages : memory_.amounts().total / page_size();
        return true;
    }
    case KSTATE_MAIN_CHUNK_FREE_PAGES: {
        const memory_zone *zone = memory_.main_zone();
        value = zone ? zone->free : memory_.amounts().free / page_size();
        return true;
    }

    case KSTATE_HANDLE_COUNT: {
        if (!handles_) {
            std::array<char, 128> buffer;
            handles_ = scanner(read_table(roots_.proc + "/sys/fs/file-nr", buffer)).decimal().value_or(0);
        }
        value = *handles_;
        return true;
    }
    default: return false;
    }
}

}  // namespace hosted::live
