// fuzz/commands.cpp - every command with any arguments, on a small machine with something of every kind.
//
// A run that makes more kernel calls than its command line can ask for does not end, which is a finding. Only of
// taskkill -a, which tries again for as long as its name is found, every call fails from there on. Reading the machine
// takes longer than most runs: it is made anew after a command that may have changed it, and now and then.
#include <cstdlib>

#include "hosted/boot.h"
#include "hosted/kernel/run.h"
#include "input.h"
#include "platform/registry.h"
#include "platform/sysvc.h"

namespace {

constexpr char MACHINE[] = VENTIX_SOURCE_DIR "/tests/machines/lab.json";
constexpr unsigned MOST_CALLS = 200'000;  // of a run
constexpr unsigned RUNS = 16;             // on one machine
constexpr size_t LONGEST = 160;           // bytes of a command line
constexpr std::string_view CHANGING[] = {"date",    "kblayout", "raiseexc", "readlog", "readreg",
                                         "sendlog", "svccall",  "taskkill", "tprop"};

// Counts the calls of a run.
class call_limit : public hosted::observer {
public:
    std::optional<uint64_t> begins(hosted::call, std::span<const hosted::argument>) override {
        if (++made <= MOST_CALLS) return std::nullopt;
        if (!may_repeat) std::abort();
        return RESULT_NO_OBJECT;
    }

    void ended(hosted::call, std::span<const hosted::argument>, uint64_t, bool) override {}

    unsigned made = 0;
    bool may_repeat = false;
};

void start(call_limit &watching) {
    hosted::fault_list none;
    std::string message;
    auto machine = hosted::make_described_machine(MACHINE, "", none, message);
    if (!machine) std::abort();
    hosted::install(std::move(machine));
    hosted::observe(&watching);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    fuzz_input input(bytes, std::min(size, LONGEST));
    fuzz_command_line line(input);
    static unsigned runs = 0;
    static call_limit watching;
    if (runs++ % RUNS == 0) start(watching);
    watching.made = 0;
    watching.may_repeat = line.command() == "taskkill" && line.has_option('a');
    line.run();
    g_registry_device = g_sysvc_device = nullptr;
    if (std::find(std::begin(CHANGING), std::end(CHANGING), line.command()) != std::end(CHANGING)) runs = 0;
    return 0;
}
