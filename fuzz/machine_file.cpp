// fuzz/machine_file.cpp - any text loads as a machine or is refused with a message; a collecting document reports
// errors exactly for refused ones; a saved machine loads again and is saved as the same text.
#include <cstdlib>

#include "hosted/described/format.h"
#include "input.h"

using namespace hosted::described;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    const std::string_view text(reinterpret_cast<const char *>(bytes), size);
    machine_records loaded, again, checked;
    std::string message, error;
    const bool loads = load(text, loaded, message);
    document file(true);
    const bool parsed = file.parse(text, error);
    if (parsed) read_machine(file, checked);
    if (loads != (parsed && file.take_findings().empty())) std::abort();
    if (!loads) {
        if (message.empty()) std::abort();
        return 0;
    }
    const std::string saved = machine_text(loaded);
    if (!load(saved, again, message) || machine_text(again) != saved) std::abort();
    return 0;
}
