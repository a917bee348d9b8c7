// tests/hosted/live/system_devices_test.cpp - devices of the live machine: counters, host services, the log, the clock
// and terminals.
#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/utsname.h>
#include <termios.h>
#include <unistd.h>

#include <cstring>

#include "hosted/live/counters.h"
#include "hosted/live/devices.h"
#include "hosted/live/hardware_clock.h"
#include "hosted/live/host_services.h"
#include "hosted/live/system_log.h"
#include "hosted/live/system_tree.h"
#include "hosted/live/terminals.h"
#include "hosted/live/texts.h"
#include "platform/kernel.h"
#include "platform/protocol/device.h"
#include "platform/protocol/log.h"
#include "platform/protocol/sysvc.h"
#include "platform/protocol/terminal.h"

namespace hosted::live {
namespace {

using kind = file_counters::kind;

// Counters as text, "NAME=VALUE " each; the error word where reading failed.
std::string counters(const file_roots &roots, kind of, std::string_view name, uint32_t unit, uint64_t room = 3840) {
    file_counters source(roots, of, name);
    std::string bytes, text;
    uint64_t returned = 0;
    if (const uint32_t error = source.read(unit, room, bytes, returned)) return "error " + std::to_string(error);
    EXPECT_EQ(returned, bytes.size());
    EXPECT_LE(returned, room);
    for (size_t at = 0; at < bytes.size();) {
        const size_t length = static_cast<unsigned char>(bytes[at]);
        uint64_t value = 0;
        std::memcpy(&value, bytes.data() + at + 1 + length, sizeof value);
        text += bytes.c_str() + at + 1 + ('=' + std::to_string(value)) + ' ';
        at += 1 + length + sizeof value;
    }
    return text;
}

// A call of a host service with one argument.
class recorded_call : public service_call {
public:
    uint64_t number = 0;
    std::optional<std::string> path;
    svc_sockaddr at{};

    uint64_t word(size_t) const override { return number; }
    std::optional<std::string> text(size_t) const override { return path; }
    std::optional<svc_sockaddr> address(size_t) const override { return at; }
    void set_word(size_t, uint64_t value) override { results_ += std::to_string(value) + ' '; }
    void set_text(size_t, std::string_view value) override { results_ += std::string(value) + ' '; }
    void set_wide(size_t, std::u32string_view) override { results_ += "wide "; }
    void set_address(size_t, const svc_sockaddr &value) override {
        results_ += inet_ntoa({value.address}) + (':' + std::to_string(ntohs(value.port))) + ' ';
    }

    // The results as text, each followed by a blank; the error word where the call failed.
    std::string run(const file_roots &roots, std::string_view name) {
        host_services host(roots);
        results_.clear();
        size_t index = 0;
        while (host.describe(index).name != name) index++;
        const uint32_t error = host.call(index, *this);
        return error == 0 ? results_ : "error " + std::to_string(error);
    }

private:
    std::string results_;
};

const std::string NOT_FOUND = "error " + std::to_string(IOERROR_NOT_FOUND);

TEST(LiveCounters, OfTheSample) {
    const file_roots &roots = sample_system();
    const struct {
        kind of;
        const char *name;
        uint32_t unit;
        std::string text;
    } cases[] = {
        {kind::interface, "lo", 0,
         "rx_bytes=1 rx_packets=2 rx_errors=3 rx_dropped=4 rx_fifo=5 rx_frame=6 rx_compressed=7 rx_multicast=8 "
         "tx_bytes=9 tx_packets=10 tx_errors=11 tx_dropped=12 tx_fifo=13 tx_collisions=14 tx_carrier=15 "
         "tx_compressed=16 "},
        {kind::interface, "eth0", 0, "rx_bytes=18446744073709551615 "},
        {kind::interface, "lo", 1, NOT_FOUND},
        {kind::interface, "gone", 0, NOT_FOUND},
        {kind::block_device, "vda", 0, "reads=33468 reads_merged=8358 sectors_read=4427538 "},
        {kind::block_device, "cciss!c0d0", 0, "reads=1 reads_merged=2 "},
        {kind::processors, "cpu", 1, "user=3326 nice=0 system=645 "},
        {kind::processors, "cpu", 2, NOT_FOUND},
        {kind::virtual_memory, "vm", 0, "nr_free_pages=37 pgfault=4 "},
        {kind::virtual_memory, "vm", 1, NOT_FOUND},
    };
    for (const auto &[of, name, unit, text] : cases) EXPECT_EQ(counters(roots, of, name, unit), text) << name;
    EXPECT_EQ(counters(roots, kind::virtual_memory, "vm", 0, 39), "nr_free_pages=37 ");
    EXPECT_EQ(counters(roots, kind::virtual_memory, "vm", 0, 22), "");

    device_table devices(roots);
    const std::vector<std::string> expected = {"syslog", "cpu", "vm", "host", "lo", "eth0", "vda", "cciss!c0d0"};
    EXPECT_EQ(devices.names(), expected);
    for (const std::string &name : expected) EXPECT_TRUE(devices.has(name)) << name;
    for (const char *name : {"sysvc", "rtc0", "face", "", "lo ", "cciss/c0d0"}) EXPECT_FALSE(devices.has(name)) << name;
}

TEST(LiveHost, Services) {
    const file_roots &roots = sample_system();
    recorded_call call;
    utsname names{};
    uname(&names);
    EXPECT_EQ(call.run(roots, "hostname"), std::string(names.nodename) + ' ');
    EXPECT_EQ(call.run(roots, "uname"),
              std::string(names.sysname) + ' ' + names.release + ' ' + names.version + ' ' + names.machine + ' ');
    EXPECT_EQ(call.run(roots, "loadavg"), "0.25 1.50 12.75 ");
    for (const auto &[user, result] :
         {std::pair{1000, "ann 100 /home/ann /bin/ash "}, {7, "end 8   "}, {5, "error 3"}}) {
        call.number = static_cast<uint64_t>(user);
        EXPECT_EQ(call.run(roots, "user"), result) << user;
    }
    for (const char *interface : {"", "no_such_if", "a_name_that_is_far_too_long_for_it"}) {
        call.path = interface;
        EXPECT_EQ(call.run(roots, "address"), NOT_FOUND) << interface;
    }
    call.path = roots.proc + "/missing";
    EXPECT_EQ(call.run(roots, "statfs"), NOT_FOUND);
    call.path = std::nullopt;
    EXPECT_EQ(call.run(roots, "statfs"), "error " + std::to_string(SYSVCERR_SYSTEM + EINVAL));
    call.path = roots.proc;
    EXPECT_NE(call.run(roots, "statfs").find(' '), std::string::npos);
}

TEST(LiveHost, ListeningSockets) {
    for (const auto &[address, port, sockets] :
         {std::tuple("127.0.0.1", uint16_t{0x7E8}, "2 "), {"0.0.0.0", 0x7E8, "2 "}, {"127.0.0.1", 0x7E9, "0 "}}) {
        recorded_call call;
        call.at = {SVC_FAMILY_INET, htons(port), inet_addr(address), {}};
        EXPECT_EQ(call.run(sample_system(), "listening"), sockets) << address << ' ' << port;
    }
}

// At the unspecified IPv4 address a socket of IPv6 counts unless it is for IPv6 alone.
TEST(LiveHost, ListeningAtEveryAddress) {
    for (const int v6_only : {0, 1}) {
        const descriptor listening(socket(AF_INET6, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_in6 address{};
        address.sin6_family = AF_INET6;
        socklen_t size = sizeof address;
        setsockopt(listening.get(), IPPROTO_IPV6, IPV6_V6ONLY, &v6_only, sizeof v6_only);
        if (bind(listening.get(), reinterpret_cast<sockaddr *>(&address), size) != 0) GTEST_SKIP() << "no IPv6";
        ASSERT_EQ(listen(listening.get(), 1), 0);
        ASSERT_EQ(getsockname(listening.get(), reinterpret_cast<sockaddr *>(&address), &size), 0);
        recorded_call call;
        call.at = {SVC_FAMILY_INET, address.sin6_port, INADDR_ANY, {}};
        EXPECT_EQ(call.run(file_roots(), "listening"), v6_only != 0 ? "0 " : "1 ");
    }
}

TEST(LiveLog, Lines) {
    const struct {
        const char *record, *line;
    } cases[] = {
        {"6,1,0,-;Command line: quiet\n", "[    0.000000] Command line: quiet\n"},
        {"12,99,5123456,c,caller=T1;text; more\n SUBSYSTEM=x\n DEVICE=y\n", "[    5.123456] text; more\n"},
        {"4,1,99999999999999999,-;late\n", "[99999999999.999999] late\n"},
        {"4,1,1,-;caf\\xc3\\xa9 \\x5cx41 \\x0a \\x1b[2J \\x7f\n",
         "[    0.000001] caf\xc3\xa9 \\x41 \\x0a \\x1b[2J \\x7f\n"},
        {"4,1,1,-;\\xc2\\x9b2J \\xc2\\xb5s \\xzz \\x41\n", "[    0.000001] \\xc2\\x9b2J \xc2\xb5s \\xzz A\n"},
        {"4,1,1,-;\\x9b \\xe9t\\xe9 \\xe2\\x80\\xae\n", "[    0.000001] \\x9b \xe9t\xe9 \\xe2\\x80\\xae\n"},
        {"4,1,2,-;cut \\xe2\\x82\\xac\\xe2\\x  ", "[    0.000002] cut \xe2\x82\xac\xe2\x82\xac \\x0a end\n"},
        {"4,1,2,-;unknown \\xc3\\xa4 abc", "[    0.000002] unknown \xc3\xa4\n"},
        {"4,1,1,-;\n", "[    0.000001] \n"},
        {"no record at all\n", ""},
        {"4,1,x,-;text\n", ""},
        {"", ""},
    };
    const std::vector<log_record> at_2 = {
        {"", "cut"}, {"", "other"}, {"", "cut \xe2\x82\xac\xe2\x82\xac \n end"}, {"", "no"}};
    for (const auto &[record, line] : cases) {
        std::string log;
        append_log_line(log, record, [&](std::string_view time) {
            EXPECT_EQ(time, "[    0.000002]");
            return at_2;
        });
        EXPECT_EQ(log, line) << record;
    }
}

// Only the kernel knows which lines of one prefix are one record. A | is where a record ends.
TEST(LiveLog, RecordsByTheSystemCall) {
    const struct {
        std::string log, records;
    } cases[] = {
        {"<6>[    0.000001] a\n|<6>[    0.000001] \n<6>[    0.000001] c\n|<6>[    0.000001] d\n|<5>[    0.000001] e\n|",
         "[    0.000001] a|[    0.000001] \nc|[    0.000001] d|[    0.000001] e|"},
        {"<6>[    1.000000][    T1] a\n<6>[    1.000000][    T1] <6>[    1.000000] b\n|<6>[    1.000000] c\n|",
         "[    1.000000][    T1] a\n<6>[    1.000000] b|[    1.000000] c|"},
        {"<6>[drm] a\n<6>b\n|<6>[drm] c\n|<6>d\n|none\n|none\n|", "[drm] a\nb|[drm] c|d|none|none|"},
    };
    for (const auto &[log, wanted] : cases) {
        std::string lines, got;
        std::vector<size_t> begins = {0};
        for (const char c : log) {
            if (c == '|') begins.push_back(lines.size());
            if (c != '|') lines += c;
        }
        const auto newest = [&](size_t room) {
            return std::string_view(lines).substr(*std::find_if(
                begins.begin(), begins.end(), [&](size_t begin) { return lines.size() - begin <= room; }));
        };
        std::vector<log_record> records;
        EXPECT_TRUE(split_records(lines, "", newest, records)) << log;
        for (const auto &[prefix, text] : records) got += prefix + text + '|';
        EXPECT_EQ(got, wanted);
        const bool asks = split_records(
            lines, "", [](size_t) { return "more"; }, records);
        EXPECT_FALSE(asks || records.size() < begins.size()) << log;  // each line is a record then
        EXPECT_TRUE(split_records(lines, "[    1", newest, records));
        EXPECT_EQ(records.size(), log.find("[    1") == log.npos ? 0U : 2U);
    }
}

TEST(LiveLog, ReadsTheLengthThatItReported) {
    const file_roots roots;
    system_log log(roots);
    uint64_t length = 0;
    if (log.length(length) != 0) GTEST_SKIP() << "the log may not be read";
    std::string_view whole, part;
    ASSERT_EQ(log.read(0, length + 100, whole), 0U);
    EXPECT_EQ(whole.size(), length);
    EXPECT_TRUE(whole.empty() || whole.back() == '\n');
    ASSERT_EQ(log.read(length / 2, 10, part), 0U);
    EXPECT_EQ(part, whole.substr(length / 2, 10));
    ASSERT_EQ(log.read(length + 5, 10, part), 0U);
    EXPECT_TRUE(part.empty());
}

TEST(LiveLog, Writing) {
    const system_tree tree;
    system_log log(tree.roots);
    EXPECT_EQ(log.write("nowhere to go"), IOERROR_NOT_FOUND);

    // Without the kernel's log, the system logger gets it.
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    ASSERT_LT(tree.path("dev/log").copy(address.sun_path, sizeof address.sun_path), sizeof address.sun_path);
    const descriptor logger(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(bind(logger.get(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    std::string received(70000, '\0');
    for (const std::string &message : {std::string("<0>hello"), std::string(65535, 'x')}) {
        EXPECT_EQ(log.write(message), 0U);
        const ssize_t got = recv(logger.get(), received.data(), received.size(), MSG_DONTWAIT);
        ASSERT_GT(got, 0);
        EXPECT_EQ(received.substr(0, static_cast<size_t>(got)), "<13>ventix: " + message);
    }

    // The kernel's log comes first; pieces are cut between characters.
    tree.put("dev/kmsg", "");
    EXPECT_EQ(log.write("<0>hello\n"), 0U);
    EXPECT_EQ(log.write(std::string(898, 'a') + "\xe2\x82\xac" + std::string(900, 'b')), 0U);
    EXPECT_EQ(::read_file(tree.path("dev/kmsg")), "<13><0>hello\n<13>" + std::string(898, 'a') + "\n<13>\xe2\x82\xac" +
                                                      std::string(897, 'b') + "\n<13>bbb\n");
    EXPECT_LT(recv(logger.get(), received.data(), received.size(), MSG_DONTWAIT), 0);

    tree.put("dev/kmsg", "");
    std::string wide;
    for (int i = 0; i < 151; ++i) wide += "\xe2\x82\xac";
    EXPECT_EQ(log.write(wide), 0U);  // each of these is read as twelve characters
    EXPECT_EQ(::read_file(tree.path("dev/kmsg")), "<13>" + wide.substr(0, 450) + "\n<13>\xe2\x82\xac\n");

    tree.put("dev/kmsg", "");
    log.emergency(0x6162202020202020, LOGMSG_LABELLED, 0x68656C6C6F1B2020);
    log.emergency(0x3132333435363738, LOGMSG_PLAIN, 0x3920202020202020);
    log.emergency(0x2020202020202020, LOGMSG_PLAIN, 0x2020202020202020);
    EXPECT_EQ(::read_file(tree.path("dev/kmsg")), "<8>ab: hello?\n<8>123456789\n<8>\n");
}

TEST(LiveTexts, TerminalControlsAreReplaced) {
    const struct {
        std::string text, cleaned;
    } cases[] = {
        {"plain ~", "plain ~"},
        {"\x1b[2J\t\n\x7f", "?[2J???"},
        {"\x9b"
         "2J \xe9t\xe9",
         "?2J \xe9t\xe9"},
        {"\xc2\x9b \xc2\xa0", "?? \xc2\xa0"},
        {"\xe2\x80\xae\xe2\x80\x8f\xe2\x81\xa6\xd8\x9c\xe2\x80\xa8\xf3\xa0\x80\x81", std::string(18, '?')},
        {"\xe2\x82\xac \xf0\x9f\x98\x80 \xe2\x80\x90", "\xe2\x82\xac \xf0\x9f\x98\x80 \xe2\x80\x90"},
        {"\xe2\x80", "\xe2?"},
        {"\xe0\x82\x9b \xf4\x90\x80\x80", "\xe0?? \xf4???"},
    };
    for (const auto &[text, cleaned] : cases) {
        std::string shown = text;
        clean(shown);
        EXPECT_EQ(shown, cleaned) << text;
        EXPECT_EQ(can_be_key(text), text == cleaned) << text;
    }
}

TEST(LiveClock, AFileIsNoClock) {
    const system_tree tree;
    hardware_clock clock(tree.roots);
    rtc_time time{1899, 2, 31, 0, 0, 0, 0};
    EXPECT_EQ(clock.read(time), IOERROR_NOT_FOUND);
    EXPECT_EQ(clock.set(time), SYSVCERR_SYSTEM + EINVAL);
    tree.put("dev/rtc0", "");
    EXPECT_EQ(device_table(tree.roots).names()[1], "rtc0");
    EXPECT_EQ(clock.read(time), SYSVCERR_SYSTEM + ENOTTY);
}

// A terminal answers the layout requests with its own error and keeps its settings; nothing else gets them.
TEST(LiveTerminals, OpenControlClose) {
    const descriptor master(posix_openpt(O_RDWR | O_NOCTTY));
    ASSERT_TRUE(master && grantpt(master.get()) == 0 && unlockpt(master.get()) == 0);
    const int terminal = open_terminal(ptsname(master.get()), TERM_OPEN_FLAGS);
    ASSERT_GE(terminal, 0);
    char layout[TERM_LAYOUT_SIZE] = "us";
    termios before{}, after{};
    ASSERT_EQ(tcgetattr(terminal, &before), 0);
    for (const unsigned long request : {TERMCTL_GET_LAYOUT, TERMCTL_SET_LAYOUT}) {
        EXPECT_EQ(control_terminal(terminal, request, layout), -1);
        EXPECT_TRUE(errno == ENOTTY || errno == EINVAL) << errno;
    }
    ASSERT_EQ(tcgetattr(terminal, &after), 0);
    EXPECT_EQ(std::memcmp(&before, &after, sizeof before), 0);
    close_terminal(terminal);
    EXPECT_EQ(control_terminal(terminal, TERMCTL_GET_LAYOUT, layout), -1);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(open_terminal("/dev/null", O_RDWR), -1);
    EXPECT_EQ(errno, EINVAL);
}

}  // namespace
}  // namespace hosted::live
