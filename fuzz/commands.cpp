// commands.cpp - every command with any arguments, on the demonstration machine.
//
// The machine differs in what would end the process, and with it the fuzzer: a task that deletes itself, and requests
// that nobody ever answers. What would go on for ever ends when its kernel calls begin to fail. Reading the machine is
// the slowest step by far: it is made anew behind a command that may have changed it, and now and then.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include "hosted/boot.h"
#include "hosted/kernel/entry.h"
#include "input.h"
#include "platform/registry.h"
#include "platform/sysvc.h"

namespace {

constexpr uint64_t CALLS = 10000;  // of one kind, on one machine
constexpr unsigned RUNS = 50;      // on one machine
constexpr size_t LONGEST = 512;    // bytes of a command line
constexpr std::string_view CHANGING[] = {"date",    "kblayout", "raiseexc", "readlog", "readreg",
                                         "sendlog", "svccall",  "taskkill", "tprop"};

void replace(std::string &text, std::string_view from, std::string_view to) {
    const size_t at = text.find(from);
    if (at == std::string::npos) std::abort();
    text.replace(at, from.size(), to);
}

// The path of the machine's file, which only this process has.
std::string make_file() {
    std::ifstream stream(VENTIX_SOURCE_DIR "/machines/demo.json");
    std::string text{std::istreambuf_iterator<char>(stream), {}};
    replace(text, R"({"handle": "0x1030",)", R"({"handle": "0x1030", "refuse": {"delete": 5, "control": 5},)");
    replace(text, R"("0xc0510003": {"silent": true})", R"("0xc0510003": {"error": 5})");
    replace(text, R"("0x2ad60": "silent")", R"("0x2ad60": {"delay": 7000, "value": 1})");
    const int descriptor = memfd_create("machine", MFD_CLOEXEC);
    if (write(descriptor, text.data(), text.size()) != static_cast<ssize_t>(text.size())) std::abort();
    return "/proc/self/fd/" + std::to_string(descriptor);
}

void start() {
    static const std::string path = make_file();
    hosted::fault_list faults;
    std::string message;
    auto machine = hosted::make_described_machine(path, "", faults, message);
    if (!machine) std::abort();
    for (const auto which : {hosted::call::recv_msg, hosted::call::recv_msg_ptr, hosted::call::delay,
                             hosted::call::step_iterator, hosted::call::send_msg}) {
        faults.add({.which = which, .code = {}, .nth = CALLS, .times = ~uint64_t{0}, .result = RESULT_NO_OBJECT});
    }
    hosted::install(std::move(machine), std::move(faults));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    fuzz_input input(bytes, std::min(size, LONGEST));
    fuzz_command_line line(input);
    static unsigned runs = 0;
    if (runs++ % RUNS == 0) start();
    line.run();
    g_registry_device = g_sysvc_device = nullptr;
    if (std::find(std::begin(CHANGING), std::end(CHANGING), line.command()) != std::end(CHANGING)) runs = 0;
    return 0;
}
