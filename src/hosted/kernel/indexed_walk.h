// hosted/kernel/indexed_walk.h - a walk over objects that are numbered from 0.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "hosted/kernel/machine.h"
#include "platform/kernel.h"

namespace hosted {

template <class Read, class Exists> class indexed_walk : public walk {
public:
    indexed_walk(size_t count, Read read, Exists exists)
        : count_(count), read_(std::move(read)), exists_(std::move(exists)) {}

    uint64_t step() override {
        do at_ = std::min(at_ + 1, count_);
        while (at_ < count_ && !exists_(at_));
        return at_ < count_ ? RESULT_SUCCESS : RESULT_NO_ITEM;
    }
    uint64_t info(uint64_t item, uint64_t &value) override {
        return at_ < count_ ? read_(at_, item, value) : uint64_t{RESULT_NO_ITEM};
    }

private:
    size_t count_;
    Read read_;
    Exists exists_;
    size_t at_ = SIZE_MAX;  // before the first object
};

// Makes a walk over count objects.
//   read    uint64_t (size_t index, uint64_t item, uint64_t &value): reads an item of one; RESULT_ codes
//   exists  bool (size_t index): whether a step stops at that one
template <class Read, class Exists> std::unique_ptr<walk> walk_indexed(size_t count, Read read, Exists exists) {
    return std::make_unique<indexed_walk<Read, Exists>>(count, std::move(read), std::move(exists));
}

// The same where all objects exist.
template <class Read> std::unique_ptr<walk> walk_indexed(size_t count, Read read) {
    return walk_indexed(count, std::move(read), [](size_t) { return true; });
}

}  // namespace hosted
