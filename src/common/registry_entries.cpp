// common/registry_entries.cpp - reading a registry directory whole.
#include "common/registry_entries.h"

#include <cstdlib>
#include <cstring>

#include "platform/registry.h"

std::string_view sb_entryname(const RegIterator &entry) { return {entry.name, strnlen(entry.name, REG_NAME_ROOM)}; }

deque_ptr sb_readreg_content(const char *directory) {
    deque_ptr entries(deque_new(sizeof(RegIterator)));
    device_record *registry = GetRegDev();
    RegIterator record;
    if (!entries || !RegItBegin(registry, &record, directory)) return entries;
    while (record.on_entry) {
        if (entries->count == SB_MAX_ENTRIES || !deque_push_back(entries.get(), &record)) {
            entries.reset();
            break;
        }
        if (!RegItNext(registry, &record)) break;
    }
    RegItEnd(registry, &record);
    return entries;
}

sb_text sb_joinpath(std::string_view path, std::string_view name) {
    const bool separate = !path.empty() && path.back() != '/' && path.back() != '\\';
    sb_text joined(static_cast<char *>(std::malloc(path.size() + separate + name.size() + 1)));
    if (!joined) return joined;
    char *end = joined.get() + path.copy(joined.get(), path.size());
    if (separate) *end++ = '/';
    end[name.copy(end, name.size())] = '\0';
    return joined;
}
