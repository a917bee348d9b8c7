// fuzz/commands.cpp - every command with any arguments, on a small machine with something of every kind.
//
// Waits and steps fail once a run has made its share of them, and a run that makes as many again does not end: that is
// a finding, but for taskkill -a, which tries again for as long as its name is found. Reading the machine takes longer
// than most runs: it is made anew after a command that may have changed it, and now and then.
#include <cstdlib>

#include "hosted/boot.h"
#include "hosted/kernel/run.h"
#include "input.h"
#include "platform/registry.h"
#include "platform/sysvc.h"

namespace {

constexpr char MACHINE[] = VENTIX_SOURCE_DIR "/tests/machines/lab.json";
constexpr unsigned CALLS = 400;  // of a run, which it waits and steps by
constexpr unsigned RUNS = 16;    // on one machine
constexpr size_t LONGEST = 160;  // bytes of a command line
constexpr std::string_view CHANGING[] = {"date",    "kblayout", "raiseexc", "readlog", "readreg",
                                         "sendlog", "svccall",  "taskkill", "tprop"};

// Lets waits and steps fail when a run has made its share of them.
class patience : public hosted::observer {
public:
    std::optional<uint64_t> begins(hosted::call which, std::span<const hosted::argument>) override {
        switch (which) {
        case hosted::call::recv_msg:
        case hosted::call::recv_msg_ptr:
        case hosted::call::delay:
        case hosted::call::step_iterator: break;
        default: return std::nullopt;
        }
        if (++made > 2 * CALLS && !may_repeat) std::abort();
        if (made > CALLS) return RESULT_NO_OBJECT;
        return std::nullopt;
    }

    void ended(hosted::call, std::span<const hosted::argument>, uint64_t, bool) override {}

    unsigned made = 0;
    bool may_repeat = false;
};

void start(patience &watching) {
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
    static patience watching;
    if (runs++ % RUNS == 0) start(watching);
    watching.made = 0;
    watching.may_repeat = line.command() == "taskkill";
    line.run();
    g_registry_device = g_sysvc_device = nullptr;
    if (std::find(std::begin(CHANGING), std::end(CHANGING), line.command()) != std::end(CHANGING)) runs = 0;
    return 0;
}
