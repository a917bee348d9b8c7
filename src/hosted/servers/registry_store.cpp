// hosted/servers/registry_store.cpp - how paths are taken apart.
#include "hosted/servers/registry_store.h"

#include <algorithm>

namespace hosted {

std::string_view next_component(std::string_view &path) {
    path.remove_prefix(std::min(path.find_first_not_of('/'), path.size()));
    const std::string_view component = path.substr(0, path.find('/'));
    path.remove_prefix(component.size());
    return component;
}

}  // namespace hosted
