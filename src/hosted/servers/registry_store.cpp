// registry_store.cpp - how paths and tasks' keys are written.
#include "hosted/servers/registry_store.h"

#include <algorithm>

namespace hosted {

std::string_view next_component(std::string_view &path) {
    path.remove_prefix(std::min(path.find_first_not_of('/'), path.size()));
    const std::string_view component = path.substr(0, path.find('/'));
    path.remove_prefix(component.size());
    return component;
}

void write_task_key(std::string &key, uint64_t handle) {
    key.resize(TASK_KEY_SIZE);
    for (size_t i = key.size(); i-- > 0; handle >>= 4) key[i] = "0123456789ABCDEF"[handle & 0xF];
}

}  // namespace hosted
