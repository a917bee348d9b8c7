// common/registry_entries.h - the entries of a registry directory, and the paths to them.
#pragma once

#include <cstddef>
#include <string_view>

#include "common/deque.h"
#include "common/text.h"
#include "platform/protocol/registry.h"

// No directory has more entries: a server that never leaves the last one fills no memory.
inline constexpr size_t SB_MAX_ENTRIES = size_t{1} << 21;

// The entries of a registry directory, in the registry's order.
//   returns  a deque of whole RegIterator records; empty when the directory cannot be read; null when out of memory,
//            or for more entries than SB_MAX_ENTRIES
deque_ptr sb_readreg_content(const char *directory);

// The name of an entry: up to its NUL, or the whole field where it has none.
std::string_view sb_entryname(const RegIterator &entry);

// path and name with one '/' between them where path is not empty and does not end in '/' or '\'. Null when out of
// memory.
sb_text sb_joinpath(std::string_view path, std::string_view name);
