// hosted/described/records.cpp - finding the objects of a machine by their handles.
#include "hosted/described/records.h"

#include <algorithm>

namespace hosted::described {

std::vector<object *> object_index::sort() {
    std::stable_sort(entries_.begin(), entries_.end(),
                     [](const entry &a, const entry &b) { return a.handle < b.handle; });
    std::vector<object *> repeated;
    for (size_t i = 1; i < entries_.size(); ++i) {
        if (entries_[i].handle == entries_[i - 1].handle) repeated.push_back(entries_[i].object);
    }
    std::sort(repeated.begin(), repeated.end(), [](const object *a, const object *b) { return a->node < b->node; });
    return repeated;
}

const object_index::entry *object_index::find(uint64_t handle) const {
    const auto found = std::lower_bound(entries_.begin(), entries_.end(), handle,
                                        [](const entry &each, uint64_t wanted) { return each.handle < wanted; });
    return found != entries_.end() && found->handle == handle ? &*found : nullptr;
}

}  // namespace hosted::described
