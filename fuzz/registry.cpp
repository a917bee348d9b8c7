// registry.cpp - what reads the registry, on one whose entries are the input's: values of any length, names without an
// end, and directories that contain themselves.
#include "hostile.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    static constexpr std::string_view commands[] = {"treereg", "readreg", "tprop", "taskkill", "date"};
    fuzz_input input(bytes, size);
    run_hostile(input, {.commands = commands, .obliging = true});
    return 0;
}
