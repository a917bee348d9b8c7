// bench/kernel_bench.cpp - calls of the hosted kernel and what is built from them, beside a futex round trip between
// two threads, the floor of any request to another thread.
#include <benchmark/benchmark.h>
#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <thread>

#include "platform/kernel.h"
#include "platform/registry.h"
#include "platform/sysvc.h"

namespace {

void kernel_call(benchmark::State &state) {
    for (auto _ : state) benchmark::DoNotOptimize(_SL_GetState(KSTATE_CURRENT_TASK));
}

void kernel_iterator_item(benchmark::State &state) {
    const uint64_t iterator = _SL_CreateIterator(0, 0);
    _SL_BeginIterator(iterator, SYSTEM_WIDE, ITERSEL_TASKS);
    uint64_t value = 0;
    if (_SL_StepIterator(iterator) != RESULT_SUCCESS) state.SkipWithError("no tasks");
    for (auto _ : state) benchmark::DoNotOptimize(_SL_GetIteratorInfo(iterator, TASKINFO_PRIORITY, &value));
    _SL_DeleteObject(iterator, DELETE_HANDLE);
}

void kernel_registry_read(benchmark::State &state) {
    device_record *registry = GetRegDev();
    char value[256];
    for (auto _ : state) {
        uint32_t length = sizeof value;
        if (!RegGetKeyBin(registry, "kernel/release", value, &length)) state.SkipWithError("no such key");
    }
}

void kernel_service_question(benchmark::State &state) {
    device_record *service = GetSystemService();
    const auto own = static_cast<uint64_t>(getpid());
    uint64_t value = 0;
    for (auto _ : state) {
        if (SysvcGetPPid(service, own, &value) != 0) state.SkipWithError("no answer");
    }
}

void wait_while(std::atomic<uint32_t> &word, uint32_t value) {
    while (word.load(std::memory_order_acquire) == value)
        syscall(SYS_futex, &word, FUTEX_WAIT_PRIVATE, value, nullptr, nullptr, 0);
}

void set(std::atomic<uint32_t> &word, uint32_t value) {
    word.store(value, std::memory_order_release);
    syscall(SYS_futex, &word, FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

void kernel_floor_futex_round_trip(benchmark::State &state) {
    enum : uint32_t { IDLE, ASKED, STOP };
    std::atomic<uint32_t> word = IDLE;
    std::thread server([&] {
        while (true) {
            wait_while(word, IDLE);
            if (word.load() == STOP) return;
            set(word, IDLE);
        }
    });
    for (auto _ : state) {
        set(word, ASKED);
        wait_while(word, ASKED);
    }
    set(word, STOP);
    server.join();
}

BENCHMARK(kernel_call)->UseRealTime();
BENCHMARK(kernel_iterator_item)->UseRealTime();
BENCHMARK(kernel_registry_read)->UseRealTime();
BENCHMARK(kernel_service_question)->UseRealTime();
BENCHMARK(kernel_floor_futex_round_trip)->UseRealTime();
}  // namespace
