// tests/hosted/live/process_details_test.cpp - the registry's run/info/, run/mount/, run/socket/ and
// hardware/interrupt/: over trees of files, and over children of the test.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <ctime>

#include "hosted/live/interrupt_registry.h"
#include "hosted/live/mounts.h"
#include "hosted/live/own_child.h"
#include "hosted/live/process_details.h"
#include "hosted/live/registry_reader.h"
#include "hosted/live/socket_diagnosis.h"
#include "hosted/live/sockets.h"
#include "hosted/live/system_tree.h"
#include "platform/kernel.h"

namespace hosted::live {
namespace {

using namespace std::string_literals;

std::string handle_name(int id) {
    char name[17];
    std::snprintf(name, sizeof name, "%016X", static_cast<unsigned>(id));
    return name;
}

// run/info/ and run/socket/ over the processes below a path.
struct details {
    using local_source = socket_table::local_source;
    details() : root("/proc"), sockets(root, local_source::diagnosis) {}
    explicit details(const std::string &proc) : root(proc), sockets(root, local_source::table) {}

    proc_root root;
    socket_table sockets;
    registry_tree info{make_process_directory(root, sockets)};
    registry_tree socket{make_socket_directory(sockets)};
};

TEST(LiveDetails, OfATreeOfFiles) {
    const system_tree tree;
    const auto put = [&](const std::string &id, const std::string &file, const std::string &text) {
        tree.put("proc/" + id + "/" + file, text);
    };
    const auto link = [&](const std::string &id, const std::string &file, const std::string &target) {
        std::filesystem::create_directories(std::filesystem::path(tree.path("proc/" + id + "/" + file)).parent_path());
        ASSERT_EQ(::symlink(target.c_str(), tree.path("proc/" + id + "/" + file).c_str()), 0);
    };
    for (const char *net : {"tcp", "tcp6", "udp", "unix"})
        tree.put(std::string("proc/net/") + net, ::read_file(sample_system().proc + "/net/" + net));
    const std::string figures = " 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0";
    put("7", "stat", "7 (x) S" + figures);
    put("7", "status", "Name:\tx\nTgid:\t7\n");
    put("7", "cmdline", "/bin/x\0two words\0\x1b\xe2\x80\xae\n\0\0\0"s);
    put("7", "cgroup", "0::/a b.slice\n");
    put("7", "limits",
        "Limit                     Soft Limit           Hard Limit           Units     \n"
        "Max cpu time              unlimited            unlimited            seconds   \n"
        "Max nice priority         0                    -1                   \n"
        "Max bad/name              1                    1                    \nMax\n");
    put("7", "task/7/comm", "x\n");
    put("7", "task/12/comm", "wo\trker\n");
    put("7", "maps",
        "00400000-00401000 r-xp 00000000 fe:00 9   /bin/x y\n"
        "7ffff7fbb000-7ffff7fbd000 rw-p 00000000 00:00 0 \n"
        "ffffffffff600000-ffffffffff601000 --xp 00000000 00:00 0   [vsyscall]\nbad\n");
    link("7", "exe", "/bin/x\n(deleted)");
    link("7", "cwd", "/" + std::string(2000, 'd'));
    link("7", "root", "/jail");
    for (const auto &[number, target] : {std::pair("0", "/dev/null"),
                                         {"3", "pipe:[9]"},
                                         {"10", "socket:[501]"},
                                         {"11", "socket:[502]"},
                                         {"12", "socket:[503]"},
                                         {"13", "socket:[504]"},
                                         {"14", "socket:[599]"},
                                         {"15", "socket:[507]"},
                                         {"16", "socket:[x]"}})
        link("7", std::string("fd/") + number, target);
    put("9", "stat", "9 (zombie) Z" + figures);
    put("9", "cmdline", "");
    put("9", "status", "Name:\tzombie\nTgid:\t9\n");
    put("12", "stat", "12 (x) S" + figures);
    put("12", "status", "Name:\tx\nTgid:\t7\n");
    put("13", "stat", "13 (later) S 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 99999999999 0 0");

    details registry(tree.roots.proc);
    const std::string path = handle_name(7) + '/';
    const struct {
        const char *name;
        std::string value;
    } cases[] = {
        {"command", "bin /bin/x two words ?????"},
        {"cgroup", "bin /a b.slice"},
        {"executable", "bin /bin/x?(deleted)"},
        {"directory", "bin /" + std::string(1023, 'd')},
        {"root", "bin /jail"},
        {"user", "int " + std::to_string(geteuid())},
        {"limit/cpu_time", "bin unlimited unlimited seconds"},
        {"limit/nice_priority", "bin 0 -1"},
        {"limit/bad", "(none)"},
        {"thread/12", "bin wo?rker"},
        {"thread/012", "(none)"},
        {"map/0000000000400000", "bin /bin/x y"},
        {"map/00007FFFF7FBB000", "bin "},
        {"map/00007ffff7fbb000", "(none)"},
        {"map/0000000000000000", "(none)"},
        {"open/0", "bin /dev/null"},
        {"open/3", "bin pipe:[9]"},
        {"open/4", "(none)"},
        {"open/10", "bin socket:[501] tcp 127.0.0.1:22 -> 10.0.0.2:8080 established"},
        {"open/11", "bin socket:[502] tcp [::1]:80 listen"},
        {"open/12", "bin socket:[503] udp 0.0.0.0:68 unconnected"},
        {"open/13", "bin socket:[504] unix /run/a socket listen"},
        {"open/14", "bin socket:[599]"},
        {"open/15", "bin socket:[507] unix unconnected"},
        {"environ", "(none)"},
        {"open/../command", "(none)"},
    };
    for (const auto &[name, value] : cases) EXPECT_EQ(key(registry.info, path + name), value) << name;
    tree.put("proc/7/task/12/comm", "other\n");  // read once a run
    EXPECT_EQ(key(registry.info, path + "thread/12"), "bin wo?rker");
    EXPECT_EQ(names_in(registry.info, ""),
              handle_name(7) + ' ' + handle_name(9) + ' ' + handle_name(12) + ' ' + handle_name(13) + ' ');
    EXPECT_EQ(names_in(registry.info, handle_name(13)), "");  // began after the listing: another has the number
    EXPECT_EQ(names_in(registry.info, path),
              "cgroup command directory executable group limit map open root started thread user ");
    EXPECT_EQ(names_in(registry.info, path + "limit"), "cpu_time nice_priority ");
    EXPECT_EQ(names_in(registry.info, path + "open"), "0 3 10 11 12 13 14 15 16 ");
    EXPECT_EQ(names_in(registry.info, path + "map"), "0000000000400000 00007FFFF7FBB000 FFFFFFFFFF600000 ");
    EXPECT_EQ(names_in(registry.info, handle_name(9)), "group limit started thread user ");
    details unlisted(tree.roots.proc);
    EXPECT_EQ(key(unlisted.info, handle_name(12)), "(none)");  // a further thread's number
    EXPECT_EQ(key(unlisted.info, handle_name(9)), "dir");
    for (const char *none : {"7", "000000000000000700", "FFFFFFFF00000007"})
        EXPECT_EQ(key(unlisted.info, none), "(none)");

    EXPECT_EQ(names_in(registry.socket, ""), "tcp udp unix ");
    EXPECT_EQ(names_in(registry.socket, "tcp"), "501 502 4294967296 ");
    EXPECT_EQ(names_in(registry.socket, "unix"), "504 505 506 507 ");
    const struct {
        const char *name, *value;
    } sockets[] = {
        {"tcp/501/local", "bin 127.0.0.1:22"},
        {"tcp/501/remote", "bin 10.0.0.2:8080"},
        {"tcp/501/state", "bin established"},
        {"tcp/501/user", "int 1000"},
        {"tcp/501/task", "int 7"},
        {"tcp/4294967296/state", "bin time_wait"},
        {"tcp/4294967296/task", "(none)"},
        {"udp/503/state", "bin unconnected"},
        {"unix/504/local", "bin /run/a socket"},
        {"unix/504/state", "bin listen"},
        {"unix/504/remote", "(none)"},
        {"unix/504/user", "error 5"},
        {"unix/505/local", "(none)"},
        {"unix/505/task", "error 5"},  // process 1 is not listed: others may be hidden too
        {"unix/505/state", "bin connected"},
        {"unix/505/remote", "error 5"},
        {"unix/506/local", "bin @abstract"},
        {"unix/507/local", "(none)"},
        {"udp/501/local", "(none)"},
    };
    for (const auto &[name, value] : sockets) EXPECT_EQ(key(registry.socket, name), value) << name;
}

TEST(LiveDetails, MountsAndInterruptsOfTheSample) {
    registry_tree mounts(make_mount_directory(sample_system()));
    EXPECT_EQ(names_in(mounts, ""), "7 22 30 ");
    EXPECT_EQ(names_in(mounts, "22"), "source target type options ");
    EXPECT_EQ(key(mounts, "30/source"), "bin /dev/vda");
    EXPECT_EQ(key(mounts, "30/target"), "bin /mnt/with blank\\n");
    EXPECT_EQ(key(mounts, "30/options"), "bin ro,noatime,errors=remount-ro");
    EXPECT_EQ(key(mounts, "7/target"), "bin /odd??[c");
    EXPECT_EQ(key(mounts, "7/options"), "bin ro,size=1k");
    registry_tree interrupts(make_interrupt_directory(sample_system()));
    EXPECT_EQ(names_in(interrupts, ""), "0 26 27 30 31 32 33 ");
    EXPECT_EQ(names_in(interrupts, "26"), "name chip cpu0 cpu1 ");
    EXPECT_EQ(names_in(interrupts, "33"), "cpu0 ");
    const struct {
        const char *name, *value;
    } cases[] = {{"0/name", "bin timer"},  {"26/name", "bin ttyS0, other one"},
                 {"26/cpu1", "int 16"},    {"27/name", "bin arch_timer"},
                 {"27/chip", "bin GICv3"}, {"32/chip", "bin dummy"},
                 {"32/name", "(none)"}};
    for (const auto &[name, value] : cases) EXPECT_EQ(key(interrupts, name), value) << name;
}

TEST(LiveDetails, OfAChild) {
    own_child child([](own_child &self) {
        const int listening = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in at{};
        at.sin_family = AF_INET;
        at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof at;
        if (bind(listening, reinterpret_cast<sockaddr *>(&at), size) == 0 && listen(listening, 1) == 0)
            getsockname(listening, reinterpret_cast<sockaddr *>(&at), &size);
        dup2(listening, 200);
        // A connection at a name of the child's own, and one that it does not accept.
        sockaddr_un name{AF_UNIX, {}};
        std::snprintf(name.sun_path + 1, sizeof name.sun_path - 1, "/x\n%06d", getpid() % 1000000);
        const auto *local = reinterpret_cast<const sockaddr *>(&name);
        int ends[3];
        for (int &end : ends) end = socket(AF_UNIX, SOCK_STREAM, 0);
        static_cast<void>(bind(ends[0], local, 12) | listen(ends[0], 2));
        for (const int end : {1, 2}) static_cast<void>(connect(ends[end], local, 12));
        dup2(ends[0], 201);
        dup2(ends[1], 202);
        dup2(ends[2], 203);
        dup2(accept(ends[0], nullptr, nullptr), 204);
        static_cast<void>(!chdir("/usr"));
        prctl(PR_SET_NAME, "deta\tiled");
        self.say(ntohs(at.sin_port));
    });
    const std::string address = "127.0.0.1:" + std::to_string(child.heard());
    details registry, later, unlisted;
    const std::string path = handle_name(child.id());
    EXPECT_EQ(key(registry.info, path + "/directory"), "bin /usr");
    EXPECT_EQ(key(registry.info, path + "/thread/" + std::to_string(child.id())), "bin deta?iled");
    EXPECT_EQ(key(registry.info, path + "/root"), "(none)");
    const std::string open = key(registry.info, path + "/open/200");
    EXPECT_TRUE(open.starts_with("bin socket:[") && open.ends_with("] tcp " + address + " listen")) << open;
    const std::string inode = open.substr(12, open.find(']') - 12);
    EXPECT_EQ(key(registry.socket, "tcp/" + inode + "/local"), "bin " + address);
    EXPECT_EQ(key(registry.socket, "tcp/" + inode + "/task"), "int " + std::to_string(child.id()));
    const auto local = [&](int number) {
        const std::string text = key(registry.info, path + "/open/" + std::to_string(number));
        return std::pair(text.substr(12, text.find(']') - 12), text.substr(text.find("] ") + 2));
    };
    char name[16];
    std::snprintf(name, sizeof name, "@/x?%06d", child.id() % 1000000);
    const auto listener = local(201), client = local(202), waiting = local(203), accepted = local(204);
    EXPECT_EQ(listener.second, "unix "s + name + " listen");
    EXPECT_EQ(client.second, "unix -> " + accepted.first + ' ' + name + " connected");
    EXPECT_EQ(waiting.second, "unix connected");
    EXPECT_EQ(accepted.second, "unix "s + name + " -> " + client.first + " connected");
    EXPECT_EQ(key(registry.socket, "unix/" + waiting.first + "/remote"), "error 5");
    EXPECT_EQ(key(registry.socket, "unix/" + listener.first + "/remote"), "(none)");
    EXPECT_EQ(key(registry.socket, "unix/" + client.first + "/user"), "int " + std::to_string(geteuid()));
    const int64_t started = std::stoll(key(registry.info, path + "/started").substr(4));
    EXPECT_LE(std::abs(started - time(nullptr)), 60);

    // A process that ends meanwhile has an empty directory if it was listed before, and none otherwise.
    const std::string listed = names_in(later.info, "");
    EXPECT_NE(listed.find(path), std::string::npos);
    const auto cursor = registry.info.list(path);
    kill(child.id(), SIGKILL);
    child.reap();
    for (registry_entry entry; cursor(entry);) EXPECT_NE(entry.name, "executable");
    EXPECT_EQ(names_in(later.info, path), "");
    EXPECT_EQ(names_in(unlisted.info, path), "(none)");
}

// Answers cut anywhere: nothing beyond them is read.
TEST(LiveDetails, HostileAnswers) {
    const std::string whole("\1\1\1\0\7\0\0\0........"  // family, type, state, inode, cookie
                            "\6\0\0\0/x\0\0\10\0\2\0\10\0\0\0\10\0\7\0\350\3\0\0\377\377\0\0/",
                            45);
    for (size_t size = 0; size <= whole.size(); ++size) {
        const std::vector<char> cut(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size));
        const auto found = parse_local_socket({cut.data(), cut.size()});
        EXPECT_EQ(found.has_value(), size >= 16);
        if (!found) continue;
        EXPECT_EQ(found->peer.value_or(0), size >= 32 ? 8U : 0U) << size;
        EXPECT_EQ(found->user.value_or(0), size >= 40 ? 1000U : 0U) << size;
        const size_t address = size < 20 ? size : size < 44 ? 20 : 44;
        EXPECT_EQ(found->address, whole.substr(address, std::min<size_t>(size - address, 2))) << size;
    }
}

// Keys that another user may not read are listed.
TEST(LiveDetails, OfAnotherUser) {
    if (geteuid() != 0) GTEST_SKIP() << "needs files of two users";
    const int parent = getpid();
    own_child child([parent](own_child &self) {
        if (setresgid(65534, 65534, 65534) != 0 || setresuid(65534, 65534, 65534) != 0) self.say(-1);
        details registry;
        const std::string path = handle_name(parent);
        bool good = names_in(registry.info, path) ==
                    "cgroup command directory executable group limit map open root started thread user ";
        for (const char *name : {"/directory", "/executable", "/map", "/open", "/root"})
            good = good && key(registry.info, path + name) == "error " + std::to_string(RESULT_NOT_PERMITTED);
        good = good && key(registry.info, path + "/user") == "int 0" && names_in(registry.info, path + "/limit") != "";
        self.say(good);
    });
    EXPECT_EQ(child.heard(), 1);
}

}  // namespace
}  // namespace hosted::live
