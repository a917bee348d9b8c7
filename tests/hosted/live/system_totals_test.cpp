// tests/hosted/live/system_totals_test.cpp - totals, memory, interrupts, drivers and registers: of the sample, of
// hostile texts, and of this machine.
#include <elf.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <functional>
#include <random>
#include <sstream>
#include <tuple>

#include "hosted/live/devices.h"
#include "hosted/live/drivers.h"
#include "hosted/live/handles.h"
#include "hosted/live/isrs.h"
#include "hosted/live/process_table.h"
#include "hosted/live/register_table.h"
#include "hosted/live/sockets.h"
#include "hosted/live/system_registry.h"
#include "hosted/live/system_tree.h"
#include "hosted/live/totals.h"
#include "own_child.h"
#include "platform/kernel.h"
#include "platform/protocol/device.h"

namespace hosted::live {
namespace {

TEST(LiveTotals, StateItems) {
    const uint64_t per_page = page_size() / 1024;  // kilobytes
    const struct {
        uint64_t item, value;
    } cases[] = {
        {KSTATE_TOTAL_PAGES, 24684096 / per_page},
        {KSTATE_FREE_PAGES, 24300756 / per_page},
        {KSTATE_RECLAIM_PAGES, (840 + 235740 + 52288) / per_page},
        {KSTATE_RECLAIM_USED_PAGES, (105128 + 976) / per_page},
        {KSTATE_VIRT_TOTAL_PAGES, 34359738367 / per_page},
        {KSTATE_VIRT_FREE_PAGES, (34359738367 - 14316) / per_page},
        {KSTATE_MAIN_CHUNK_PAGES, 262144},
        {KSTATE_MAIN_CHUNK_FREE_PAGES, 166259},
        {KSTATE_HANDLE_MANAGER, 0},
        {KSTATE_HANDLE_COUNT, 592},
        {KSTATE_ISR_NUMBER_LIMIT, 34},
    };
    for (const auto &[roots, readable] : {std::pair(sample_system(), 1U), {file_roots{"none"}, 0U}}) {
        memory_map memory(roots);
        interrupt_table interrupts(roots);
        totals all(roots, memory, interrupts);
        uint64_t value = 0;
        EXPECT_FALSE(all.state(KSTATE_TICK, value));
        for (const auto &[item, expected] : cases) {
            EXPECT_TRUE(all.state(item, value)) << item;
            EXPECT_EQ(value, expected * readable) << item;
        }
    }
}

// The sample has two zones of one size, one without pages, one with more free pages than pages, and an absurd one.
TEST(LiveMemory, ChunksAreZones) {
    memory_map memory(sample_system());
    const uint64_t page = page_size();
    constexpr uint64_t items[] = {OBJINFO_HANDLE, MEMINFO_BEGIN,      MEMINFO_BASE, MEMINFO_END,
                                  MEMINFO_PAGES,  MEMINFO_FREE_PAGES, MEMINFO_FLAGS};
    const uint64_t expected[][std::size(items)] = {
        {CHUNK_HANDLES.first, page, page, 4096 * page - 1, 3841, 3840, 0x10000},
        {CHUNK_HANDLES.first + 1, 1048576 * page, 1048576 * page, 6553600 * page - 1, 262144, 166259, 0x40010000},
        {CHUNK_HANDLES.first + 2, 9999999 * page, 9999999 * page, 10262143 * page - 1, 262144, 262144, 0x10000},
    };
    const auto at = memory.walk_chunks();
    uint64_t value = 0;
    EXPECT_EQ(at->info(OBJINFO_HANDLE, value), RESULT_NO_ITEM);
    for (const auto &zone : expected) {
        ASSERT_EQ(at->step(), RESULT_SUCCESS);
        for (size_t i = 0; i < std::size(items); ++i) {
            EXPECT_EQ(at->info(items[i], value), RESULT_SUCCESS);
            EXPECT_EQ(value, zone[i]) << items[i];
        }
    }
    EXPECT_EQ(at->step(), RESULT_NO_ITEM);
    EXPECT_EQ(at->step(), RESULT_NO_ITEM);
    EXPECT_EQ(memory.info(CHUNK_HANDLES.first + 3, MEMINFO_BEGIN, value), RESULT_NO_OBJECT);
    EXPECT_EQ(memory.info(SPACE_HANDLES.first, MEMINFO_BEGIN, value), RESULT_NO_ITEM);
}

// Memory that the kernel counts but has not initialised belongs to the zones that miss pages, in order.
TEST(LiveMemory, ChunksAddUpWithTheTotals) {
    const auto zones = [](uint64_t total, uint64_t free) {
        std::vector<memory_zone> all = {{0, 50, 40, 40, 10}, {50, 900, 800, 100, 5}, {950, 100, 90, 70, 0}};
        add_uninitialised(all, total, free);
        std::string text;
        for (const memory_zone &zone : all) text += std::to_string(zone.pages) + '/' + std::to_string(zone.free) + ' ';
        return text;
    };
    EXPECT_EQ(zones(210, 99), "40/10 100/5 70/0 ");
    EXPECT_EQ(zones(200, 0), "40/10 100/5 70/0 ");
    EXPECT_EQ(zones(310, 75), "40/10 200/65 70/0 ");
    EXPECT_EQ(zones(915, 720), "40/10 800/705 75/5 ");
    EXPECT_EQ(zones(99999, 99999), "40/10 800/705 90/20 ");
}

TEST(LiveMemory, SegmentsOfAKernelImage) {
    Elf64_Ehdr header{};
    std::memcpy(header.e_ident, ELFMAG, SELFMAG);
    header.e_ident[EI_CLASS] = ELFCLASS64;
    header.e_phoff = sizeof header;
    header.e_phnum = 60000;  // most of them missing
    std::string image(reinterpret_cast<const char *>(&header), sizeof header);
    for (const auto &[type, address, size] : {std::tuple(PT_NOTE, uint64_t{0}, uint64_t{0}),
                                              {PT_LOAD, 0xFFFFFFFFC0000000, 0x3F000000},
                                              {PT_LOAD, 0xFFFFFFFFFFFFF000, 0x1001},
                                              {PT_LOAD, 0xFFFFFFFFFFFFF000, 0x1000}}) {
        Elf64_Phdr segment{};
        segment.p_type = static_cast<uint32_t>(type);
        segment.p_vaddr = address;
        segment.p_memsz = size;
        image.append(reinterpret_cast<const char *>(&segment), sizeof segment);
    }
    std::string found;
    for (const auto &[first, last] : parse_kernel_segments(image.substr(0, image.size() - 1))) {
        found += std::to_string(first) + '-' + std::to_string(last) + ' ';
    }
    EXPECT_EQ(found, "18446744072635809792-18446744073692774399 ");
    EXPECT_EQ(parse_kernel_segments(image).size(), 2U);
    EXPECT_TRUE(parse_kernel_segments(image.substr(1)).empty());
}

// The areas lie in the kernel's half, in order, without overlap, and that half ends at the last address.
TEST(LiveMemory, SpacesFillTheAddressSpace) {
    constexpr address_range modules = {0xFFFFFFFFC0000000, 0xFFFFFFFFFEFFFFFF};
    constexpr address_range arm_modules = {0xFFFF800000000000, 0xFFFF80007FFFFFFF};
    const struct {
        std::vector<address_space> spaces;
        uint64_t page, user_end, kernel_begin, mappings;
    } cases[] = {
        {x86_64_spaces(false, std::nullopt, 4096), 4096, 0x7FFFFFFFEFFF, 0xFFFF800000000000, 0xFFFFC90000000000},
        {x86_64_spaces(true, modules, 4096), 4096, 0xFFFFFFFFFFEFFF, 0xFF00000000000000, 0xFFA0000000000000},
        {aarch64_spaces(39, std::nullopt, 4096), 4096, 0x7FFFFFFFFF, 0xFFFFFF8000000000, 0xFFFFFFC000000000},
        {aarch64_spaces(48, std::nullopt, 4096), 4096, 0xFFFFFFFFFFFF, 0xFFFF000000000000, 0xFFFF800000000000},
        {aarch64_spaces(52, arm_modules, 65536), 65536, 0xFFFFFFFFFFFFF, 0xFFF0000000000000, 0xFFFF800000000000},
        {aarch64_spaces(52, std::nullopt, 16384), 16384, 0xFFFFFFFFFFFFF, 0xFFF0000000000000, 0xFFFFC00000000000},
    };
    for (const auto &[spaces, page, user_end, kernel_begin, mappings] : cases) {
        EXPECT_EQ(spaces[3].begin, mappings) << kernel_begin;
        EXPECT_EQ(spaces[0].pages * page - 1, user_end);
        EXPECT_EQ(spaces[1].begin, kernel_begin);
        EXPECT_EQ(spaces[1].begin + spaces[1].pages * page, 0U) << kernel_begin;
        uint64_t free_from = kernel_begin;
        for (size_t i = 2; i < spaces.size(); ++i) {
            EXPECT_GE(spaces[i].begin, free_from) << kernel_begin << ' ' << i;
            free_from = spaces[i].begin + spaces[i].pages * page;
            EXPECT_GT(free_from - 1, spaces[i].begin) << kernel_begin << ' ' << i;
        }
    }
}

TEST(LiveInterrupts, NumberedLines) {
    std::string found;
    interrupt_table table(sample_system());
    for (const interrupt_line &line : table.lines())
        found += std::to_string(line.number) + (line.is_handled() ? "=" : "-") + std::to_string(line.count) + ' ';
    EXPECT_EQ(found, "0=45 26=16 27=7 30-5 31-5 32-5 33-1 ");
}

TEST(LiveInterrupts, ServedByThreadsOfTheKernelAlone) {
    const system_tree tree;
    tree.put("proc/interrupts", ::read_file(sample_system().proc + "/interrupts"));
    const auto put = [&](const std::string &id, const std::string &name, const std::string &flags) {
        tree.put("proc/" + id + "/comm", name);
        tree.put("proc/" + id + "/stat",
                 id + " (" + name + ") S 0 0 0 0 0 " + flags + " 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0");
    };
    put("2", "kthreadd", "2097152");
    put("7", "irq/26-ttyS0", "2097152");
    put("8", "irq/27-mine", "4194304");
    proc_root root(tree.roots.proc);
    interrupt_table lines(tree.roots);
    isr_table table(root, lines);
    uint64_t result = RESULT_NO_ITEM;
    EXPECT_EQ(table.walk_owned(7, result)->step(), RESULT_SUCCESS);
    EXPECT_EQ(table.walk_owned(8, result)->step(), RESULT_NO_ITEM);
    EXPECT_EQ(result, RESULT_SUCCESS);
}

TEST(LiveDrivers, CharacterDriversFirst) {
    driver_table drivers(sample_system());
    std::string found;
    for (const auto &[major, name] : drivers.drivers()) found += std::to_string(major) + ' ' + name + ',';
    EXPECT_EQ(found, "1 mem,4 /dev/vc/0,7 loop,254 ndctl,259 blk?[ext,");
}

// Texts cut anywhere or with random bytes changed: every parsed figure stays in its bounds.
TEST(LiveSystem, HostileTexts) {
    std::mt19937 random(20240229);  // the same bytes at every run
    for (const char *file : {"/meminfo", "/zoneinfo", "/interrupts", "/devices", "/net/tcp6"}) {
        const std::string sample = ::read_file(sample_system().proc + file);
        for (size_t round = 0; round < 2 * sample.size(); ++round) {
            std::string text = sample.substr(0, round);
            for (int change = 0; round > sample.size() && change < 8; ++change) {
                text[random() % text.size()] = static_cast<char>(random());
            }
            const memory_account account = parse_memory_account(text);
            EXPECT_LE(account.free, account.total);
            EXPECT_LE(account.reclaim_used, account.reclaimable);
            EXPECT_LE(account.virtual_used, account.virtual_total);
            zone_parser zones;
            for (scanner scan(text); !scan.done();) zones.take(scan.line());
            for (const memory_zone &zone : zones.end()) {
                EXPECT_LE(zone.free, zone.pages);
                EXPECT_LE(zone.pages, zone.spanned);
                EXPECT_LE(zone.spanned, ~uint64_t{0} / page_size() - zone.first_page);
            }
            for (const interrupt_line &line : parse_interrupts(text).lines) EXPECT_LE(line.number, UINT32_MAX);
            internet_socket socket;
            for (scanner scan(text); !scan.done();) parse_internet_socket(scan.line(), socket);
            for (const auto &driver : parse_drivers(text)) EXPECT_LE(driver.first, 4095U);
        }
    }
}

// However few descriptors a run may have, it lists all or ends before its output.
TEST(LiveSystem, FewDescriptors) {
    const own_child child;
    char handle[24];
    std::snprintf(handle, sizeof handle, "%x", static_cast<unsigned>(child.id()));
    const auto run_with = [](const std::string &limit, const std::string &command) {
        return run_ventix({.arguments = {"-c", "ulimit -n " + limit + "; exec " + ventix_program() + ' ' + command},
                           .environment = {"ASAN_OPTIONS=detect_leaks=0"},  // the search for leaks opens files
                           .machine = "live",
                           .program = "/bin/sh"});
    };
    const auto lines = [](const std::string &text) { return std::count(text.begin(), text.end(), '\n'); };
    for (const std::string &command : {std::string("lsisr -s"), std::string("treereg hardware kernel/vm"),
                                       std::string("threads -P ") + handle, std::string("tmemo -P ") + handle}) {
        const ventix_result wanted = run_with("100", command);
        EXPECT_EQ(wanted.status, 0) << command << wanted.diagnostics;
        int refusals = 0;
        for (int limit = 5; limit <= 16; ++limit) {
            const ventix_result got = run_with(std::to_string(limit), command);
            const bool refused = got.status == 125 && got.output.empty() &&
                                 got.diagnostics.ends_with(": live: fewer than 7 file descriptors are left\n");
            EXPECT_TRUE(refused || (got.status == 0 && lines(got.output) == lines(wanted.output) &&
                                    got.diagnostics == wanted.diagnostics))
                << command << ' ' << limit << ' ' << got.diagnostics;
            refusals += refused;
        }
        EXPECT_TRUE(refusals >= 5 && refusals <= 8) << command << ' ' << refusals;  // some are the test's own files
    }
}

// Without free descriptors a read fails, and so does a list that breaks off. Neither reports an empty result.
TEST(LiveSystem, FailsWithoutDescriptors) {
    const file_roots roots;
    memory_map memory(roots);
    interrupt_table interrupts(roots);
    driver_table drivers(roots);
    device_table devices(roots);
    registry_tree registry(make_system_directory(roots));
    uint32_t number = 0;
    uint16_t type = 0;
    const std::function<void()> reads[] = {
        [&] { memory.zones(); },
        [&] { memory.account(); },
        [&] { interrupts.lines(); },
        [&] { drivers.drivers(); },
        [&] { devices.names(); },
        [&] { devices.has("no-such"); },
        [&] { registry.list("kernel/vm"); },
        [&] { registry.describe("kernel/vm/swappiness", type, number); },
        [&] { registry.describe("hardware/processor/model", type, number); },
    };
    const pid_t child = fork();
    if (child == 0) {
        const auto refuse = [](uint32_t system_call, uint32_t error) {
            sock_filter steps[] = {BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
                                   BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, system_call, 0, 1),
                                   BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | error),
                                   BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
            const sock_fprog filter = {std::size(steps), steps};
            prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
            return prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) == 0;
        };
        int missed = refuse(SYS_getdents64, EIO) ? 0 : 1;
        uint64_t result = RESULT_SUCCESS;
        process_table().walk_all(result);
        missed += result == RESULT_SUCCESS;
        const auto succeeds = [](const std::function<void()> &read) {
            try {
                read();
                return true;
            } catch (const system_failure &) {
                return false;
            }
        };
        missed += succeeds([&] { registry.list("kernel/vm"); });
        missed += refuse(SYS_openat, EMFILE) ? 0 : 1;
        for (const auto &read : reads) missed += succeeds(read);
        _exit(missed);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

TEST(LiveSystem, NeedsTheProcessFileSystem) {
    const pid_t child = fork();
    if (child == 0) {
        constexpr int unable = 77;
        if (unshare(CLONE_NEWNS) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) _exit(unable);
        if (mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) _exit(unable);
        if (mount("none", "/proc", "tmpfs", 0, nullptr) != 0) _exit(unable);
        const auto refused_for = [](const std::string &reason) {
            const ventix_result run = run_ventix({.arguments = {"free"}, .machine = "live"});
            return run.status == 125 && run.output.empty() && run.diagnostics.ends_with("/proc: " + reason + "\n");
        };
        bool refused = refused_for("not the process file system");
        if (mount("proc", "/proc", "proc", 0, "subset=pid") == 0)
            refused &= refused_for("mounted without the files about the system (subset=pid)");
        _exit(refused ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    if (WEXITSTATUS(status) == 77) GTEST_SKIP() << "no mounts of its own";
    EXPECT_EQ(status, 0);
}

TEST(LiveSystem, AgreesWithThisMachine) {
    const file_roots roots;
    memory_map memory(roots);
    interrupt_table interrupts(roots);
    totals all(roots, memory, interrupts);
    uint64_t value = 0;
    EXPECT_TRUE(all.state(KSTATE_TOTAL_PAGES, value));
    EXPECT_EQ(value, static_cast<uint64_t>(sysconf(_SC_PHYS_PAGES)));
    EXPECT_EQ(memory.amounts().total, memory.account().total);
    for (const address_space &space : memory.spaces()) {  // this stack lies in user space, and in no other
        EXPECT_EQ(reinterpret_cast<uint64_t>(&value) - space.begin < space.pages * page_size(), !space.global);
    }
}

TEST(LiveRegisters, AreListedAndReadByTheirWidths) {
    const std::vector<std::byte> set(1024, std::byte{0xA5});
    uint64_t value = 0, stride = 0;
    std::ostringstream listed;
    listed << "Name Flags Width Tag\n" << std::uppercase;
    for (const cpu_register &one : cpu_registers()) {
        listed << one.name << " r- " << std::dec << +one.width << " 0x" << std::hex << one.id << '\n';
        EXPECT_EQ(find_cpu_register(one.id), &one);
        EXPECT_TRUE(cpu_register_value(one, set, value));
        EXPECT_EQ(value, 0xA5A5A5A5A5A5A5A5 >> (64 - one.width)) << one.name;
        EXPECT_FALSE(cpu_register_value(one, std::span(set).first(one.offset + 7), value)) << one.name;
    }
    EXPECT_EQ(run_ventix({.arguments = {"lscpureg", "-S", "raw"}, .machine = "live"}).output, listed.str());
    EXPECT_EQ(cpu_register_data(KSYSIDX_REGISTERINFO, KSYSIDX_REGISTERINFO_STRIDE, stride), RESULT_SUCCESS);
    const uint64_t end = cpu_registers().size() * stride;
    EXPECT_EQ(cpu_register_data(KSYSIDX_REGISTERINFO_TABLE, end, value), RESULT_NO_ITEM);
    EXPECT_EQ(find_cpu_register(0), nullptr);
    EXPECT_EQ(find_cpu_register(cpu_registers().size() + 1), nullptr);
}

}  // namespace
}  // namespace hosted::live
