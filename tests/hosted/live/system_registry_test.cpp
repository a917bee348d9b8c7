// tests/hosted/live/system_registry_test.cpp - the registry's hardware/, kernel/ and run/: over a tree of files, and on
// this machine.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/utsname.h>
#include <unistd.h>

#include "hosted/boot.h"
#include "hosted/kernel/kernel.h"
#include "hosted/live/memory.h"
#include "hosted/live/own_child.h"
#include "hosted/live/registry_reader.h"
#include "hosted/live/run_registry.h"
#include "hosted/live/system_registry.h"
#include "hosted/live/system_tree.h"
#include "platform/kernel.h"
#include "platform/protocol/device.h"
#include "platform/protocol/registry.h"

namespace hosted::live {
namespace {

// Checks and counts every key of a directory and below: the length that is listed, described and read is one.
size_t check_tree(registry_store &registry, const std::string &path) {
    size_t keys = 0;
    const auto cursor = registry.list(path);
    for (registry_entry entry; cursor(entry); ++keys) {
        const std::string below = path + '/' + entry.name;
        uint16_t type = 0;
        uint32_t length = 0;
        EXPECT_NE(key(registry, below), "(none)") << below;
        EXPECT_EQ(registry.describe(below, type, length), 0U) << below;
        EXPECT_EQ(std::pair(type, length), std::pair(entry.type, entry.length)) << below;
        EXPECT_LE(length, registry.limits().binary) << below;
        if (type == REGTYPE_DIR) keys += check_tree(registry, below);
    }
    return keys;
}

TEST(LiveRegistry, ParametersAreKeys) {
    const system_tree tree;
    const std::string longest(51, 'n');
    const struct {
        std::string name, text, value;
    } files[] = {
        {"swappiness", "60\n", "int 60"},
        {"negative", "-1\n", "int -1"},
        {"large", "18446744073692774399\n", "bin 18446744073692774399"},
        {"zeroes", "0022\n", "bin 0022"},
        {"several", "4096\t131072\n", "bin 4096 131072"},
        {"odd", "a\x1b\x9b\xe2\x80\xaez\n", "bin a?????z"},
        {"stat_refresh", "1\n", "(none)"},
        {"empty", "", "bin "},
        {"lines", "one\ntwo\n\n", "bin one\ntwo\n"},
        {"long", std::string(5000, 'x'), "bin " + std::string(1024, 'x')},
        {"write_only", "1\n", "(none)"},
        {"es\x1b[c", "1\n", "(none)"},
        {longest, "1\n", "int 1"},
        {longest + 'n', "1\n", "(none)"},
    };
    for (const auto &file : files) tree.put("proc/sys/vm/" + file.name, file.text);
    chmod(tree.path("proc/sys/vm/write_only").c_str(), 0200);
    ASSERT_EQ(mkfifo(tree.path("proc/sys/vm/fifo").c_str(), 0600), 0);
    ASSERT_EQ(symlink("swappiness", tree.path("proc/sys/vm/link").c_str()), 0);
    tree.put("proc/cmdline", "root=/dev/vda quiet\n");
    tree.put("proc/sys/release", "not the release\n");
    tree.put("proc/secret", "7\n");

    registry_tree registry(make_system_directory(tree.roots));
    for (const auto &file : files) EXPECT_EQ(key(registry, "kernel/vm/" + file.name), file.value) << file.name;
    for (const char *path : {"run", "kernel/vm/fifo", "kernel/vm/link", "kernel/vm/../../secret",
                             "kernel/vm/./swappiness", "kernel/vm/swappiness/below"}) {
        EXPECT_EQ(key(registry, path), "(none)") << path;
    }
    EXPECT_EQ(key(registry, "//kernel//vm//swappiness/"), "int 60");
    EXPECT_EQ(key(registry, "kernel/cmdline"), "bin root=/dev/vda quiet");
    EXPECT_EQ(names_in(registry, ""), "hardware kernel ");
    EXPECT_EQ(names_in(registry, "kernel"), "cmdline hostname release version vm ");
    EXPECT_EQ(names_in(registry, "kernel/vm"),
              "empty large lines long negative " + longest + " odd several swappiness zeroes ");
    EXPECT_EQ(names_in(registry, "kernel/vm/swappiness"), "(none)");

    tree.put("proc/sys/vm/swappiness", "100000\n");  // read once a run
    EXPECT_EQ(key(registry, "kernel/vm/swappiness"), "int 60");
    EXPECT_EQ(registry.write_binary("kernel/vm/swappiness", "1"), RESULT_NOT_PERMITTED);
    EXPECT_EQ(registry.create_temporary("kernel/new"), RESULT_NOT_PERMITTED);
    EXPECT_EQ(registry.create_guard("kernel/new", 1, 0), RESULT_NOT_PERMITTED);
}

TEST(LiveRegistry, HardwareOfTheSample) {
    registry_tree registry(make_system_directory(sample_system()));
    const struct {
        const char *path;
        std::string value;
    } cases[] = {
        {"hardware/memory/total", "int " + std::to_string(uint64_t{24684096} * 1024)},
        {"hardware/memory/page_size", "int " + std::to_string(page_size())},
        {"hardware/processor/vendor", "bin Some Vendor"},
        {"hardware/processor/model", "bin Fast: 3 GHz"},
        {"hardware/processor/flags", "bin fpu vme"},
        {"hardware/processor/count", "int " + std::to_string(sysconf(_SC_NPROCESSORS_ONLN))},
        {"hardware/network/eth0/address", "bin 02:fc:00:00:00:01"},
        {"hardware/network/eth0/mtu", "int 1400"},
        {"hardware/network/eth0/speed", "(none)"},
        {"hardware/network/hidden/mtu", "(none)"},
        {"hardware/block/vda/size", "int 4096"},
        {"hardware/block/vda/model", "bin A DISK?[c"},
        {"hardware/block/cciss!c0d0", "dir"},
        {"hardware/block/cciss!c0d0/size", "(none)"},
        {"hardware/rtc/rtc0", "(none)"},
    };
    for (const auto &[path, value] : cases) EXPECT_EQ(key(registry, path), value) << path;
    EXPECT_EQ(names_in(registry, "hardware"), "block interrupt memory network processor rtc ");
    EXPECT_EQ(names_in(registry, "hardware/network"), "cpu eth0 lo sysvc vda ");
    EXPECT_EQ(names_in(registry, "hardware/network/eth0"), "address mtu ");
    EXPECT_EQ(names_in(registry, "hardware/rtc"), "");

    const system_tree tree;
    tree.put("dev/rtc0", "");
    registry_tree with_clock(make_system_directory(tree.roots));
    EXPECT_EQ(key(with_clock, "hardware/rtc/rtc0/device"), "bin rtc0");
    EXPECT_EQ(key(with_clock, "hardware/rtc/rtc0/unit"), "int 0");
}

TEST(LiveRegistry, OfThisMachine) {
    const file_roots roots;
    registry_tree registry(make_system_directory(roots));
    EXPECT_GT(check_tree(registry, "hardware"), 5U);
    EXPECT_GT(check_tree(registry, "kernel"), 50U);
    utsname system{};
    uname(&system);
    EXPECT_EQ(key(registry, "kernel/release"), std::string("bin ") + system.release);
}

TEST(LiveRegistry, RunningProcessesAndDevices) {
    own_child child([](own_child &self) {
        prctl(PR_SET_NAME, "regis\ttered");
        self.say(1);
    });
    child.heard();
    std::string message;
    kernel owner(make_live_machine(message));
    const file_roots roots;
    process_table processes;
    device_table devices(roots);
    auto root = std::make_unique<whole_directory>(make_system_directory(roots));
    root->add("run", make_run_directory(owner, processes, devices));
    registry_tree registry(std::move(root));
    EXPECT_EQ(names_in(registry, ""), "run hardware kernel ");
    EXPECT_EQ(names_in(registry, "//run"), "proc dev ");

    char name[17];
    std::snprintf(name, sizeof name, "%016X", static_cast<unsigned>(child.id()));
    const std::string path = std::string("/run//proc/") + name;
    EXPECT_EQ(key(registry, path), "bin regis?tered");
    uint32_t length = 0;
    const auto cursor = registry.list("run/proc/");
    for (registry_entry entry; cursor(entry);) {
        if (entry.name == name) length = entry.length;
    }
    EXPECT_EQ(length, 11U);
    EXPECT_EQ(processes.end(child.handle()), RESULT_SUCCESS);
    EXPECT_EQ(names_in(registry, "run/proc").find(name), std::string::npos);
    for (const std::string &none : {path, std::string("run/proc/1"), path + "/x", std::string(path).insert(10, "0"),
                                    std::string("run/proc/000000000000000g"), std::string("run/dev/none-such")}) {
        EXPECT_EQ(key(registry, none), "(none)") << none;
    }

    for (const char *device : {"sysvc", "host", "cpu", "vm", "syslog"}) {
        EXPECT_NE((' ' + names_in(registry, "run/dev")).find(std::string(" ") + device + ' '), std::string::npos);
        EXPECT_EQ(key(registry, std::string("run/dev/") + device), "int " + std::to_string(owner.device_port(device)));
    }
    EXPECT_EQ(key(registry, "run/dev"), "dir");
    EXPECT_EQ(names_in(registry, "run/proc/0000000000000001"), "(none)");
    EXPECT_EQ(registry.write_binary("run/proc/x", "y"), RESULT_NOT_PERMITTED);
}

}  // namespace
}  // namespace hosted::live
