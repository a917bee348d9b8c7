// hostile_kernel.cpp - every command on a kernel and servers that answer with whatever the input says.
#include "hostile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    fuzz_input input(bytes, size);
    run_hostile(input, {});
    return 0;
}
