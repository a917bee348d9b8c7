// readlog.cpp - the display of log slices: any text, cut anywhere, read no further than its NUL.
#include <string>

#include "commands/commands.h"
#include "input.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    fuzz_input input(bytes, size);
    const int mode = input.byte() & 1;
    const size_t cut = input.byte();  // bytes that the slice is said to be shorter
    const std::string text(input.text(size));
    sb_readlog_display(text.c_str(), static_cast<uint32_t>(text.size() - std::min(text.size(), cut)), mode);
    return 0;
}
