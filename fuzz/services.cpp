// services.cpp - the clients of service devices and of the system service, with descriptions, results, names and
// numbers that the input tells: more arguments and results than there is room for, addresses that lead elsewhere, a
// moved pool.
#include <cstdlib>

#include "hostile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    static constexpr std::string_view commands[] = {"svccall", "svcinfo", "lsmaj", "task"};
    setenv("LC_ALL", "C.UTF-8", 1);  // for wide texts
    fuzz_input input(bytes, size);
    run_hostile(input, {.commands = commands, .obliging = true});
    return 0;
}
