// failing_new.h - lets allocations by non-throwing new fail, which is how the libraries allocate.
#pragma once

#include <cstdint>

// While it lives, one allocation fails: the one after `spared` others. One at a time.
class failing_new {
public:
    explicit failing_new(uint64_t spared);
    ~failing_new();
    failing_new(const failing_new &) = delete;
    failing_new &operator=(const failing_new &) = delete;

    static bool happened();  // the allocation that fails has been asked for
};
