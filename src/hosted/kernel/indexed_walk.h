// hosted/live/indexed_walk.h - a walk over objects that are numbered from 0.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

#include "hosted/kernel/machine.h"
#include "platform/kernel.h"

namespace hosted::live {

template <class Read> class indexed_walk : public walk {
public:
    indexed_walk(size_t count, Read read) : count_(count), read_(std::move(read)) {}

    uint64_t step() override {
        at_ = std::min(at_ + 1, count_);
        return at_ < count_ ? RESULT_SUCCESS : RESULT_NO_ITEM;
    }
    uint64_t info(uint64_t item, uint64_t &value) override {
        return at_ < count_ ? read_(at_, item, value) : uint64_t{RESULT_NO_ITEM};
    }

private:
    size_t count_;
    Read read_;
    size_t at_ = SIZE_MAX;  // before the first object
};

// Makes a walk over count objects.
//   read  uint64_t (size_t index, uint64_t item, uint64_t &value): reads an item of one; RESULT_ codes
template <class Read> std::unique_ptr<walk> walk_indexed(size_t count, Read read) {
    return std::make_unique<indexed_walk<Read>>(count, std::move(read));
}

}  // namespace hosted::live
