// The registry and the system-service client: what they send, what they make of answers, and what they refuse to
// believe.
#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include "hosted/test_machine.h"

namespace {

using performer = std::function<std::optional<uint32_t>(uint32_t command, const hosted::request_view &request)>;

// A protocol that does what the test says.
class told_protocol : public hosted::device_protocol {
public:
    explicit told_protocol(performer told) : told_(std::move(told)) {}
    std::optional<uint32_t> perform(uint32_t command, const hosted::request_view &request) override {
        return told_(command, request);
    }

private:
    performer told_;
};

test_machine::maker server(performer told, uint64_t buffer = 256, bool null_requests = false) {
    return [=](hosted::kernel &owner) {
        hosted::device_behaviour behaviour;
        behaviour.null_requests = null_requests;
        auto made = std::make_unique<hosted::device_server>(owner, behaviour);
        made->make_context(buffer);
        made->add(std::make_unique<told_protocol>(told));
        return made;
    };
}

TEST(RegistryClient, KeysAndDirectories) {
    test_kernel running([](test_machine &m) { m.store.limit = {40, 100, 3, 300}; });
    device_record *dev = GetRegDev();
    EXPECT_EQ(GetRegDev(), dev);
    uint32_t name = 0, binary = 0, depth = 0, length = 0;
    EXPECT_TRUE(RegCaps(dev, &name, &binary, &depth) && RegCaps(dev, nullptr, nullptr, nullptr));
    EXPECT_EQ(std::tuple(name, binary, depth), std::tuple(40u, 100u, 3u));

    uint64_t value = 0;
    EXPECT_TRUE(RegCreateGuard(dev, "a/guard", ~uint64_t{0}) && RegGetKeyInt(dev, "a/guard", &value));
    EXPECT_EQ(value, ~uint64_t{0});
    EXPECT_FALSE(RegGetKeyInt(dev, "a/none", &value));
    EXPECT_TRUE(RegSetKeyBin(dev, "a/text", "hello\0!", 7) && RegCreateTmp(dev, "a/tmp"));
    uint16_t type = 0;
    EXPECT_TRUE(RegKeyInfo(dev, "a/text", &type, &length) && !RegKeyInfo(dev, "none", &type, &length));
    EXPECT_EQ(std::pair(type, length), std::pair(uint16_t{REGTYPE_BIN}, 7u));

    char text[8] = "#######";
    for (const uint32_t room : {7u, 5u, 0u}) {
        length = room;
        EXPECT_TRUE(RegGetKeyBin(dev, "a/text", text, &length));
        EXPECT_EQ(length, room);
    }
    EXPECT_EQ(std::string(text, sizeof text), std::string("hello\0!", 8));  // the 8th byte is as it was: no NUL

    RegIterator record{};
    std::string listed;
    bool more = RegItBegin(dev, &record, "a/");
    for (; more && record.on_entry != 0; more = RegItNext(dev, &record)) {
        listed +=
            std::string(record.name) + ":" + std::to_string(record.type) + ":" + std::to_string(record.length) + " ";
    }
    EXPECT_EQ(listed, "guard:16:8 text:176:7 tmp:215:0 ");
    EXPECT_TRUE(more && RegItEnd(dev, &record) && !RegItNext(dev, &record));
    uint64_t marker = 0;
    std::memcpy(&marker, &record, sizeof marker);
    EXPECT_EQ(marker, REG_ITERATOR_FAILED);
    record.on_entry = 1;
    EXPECT_FALSE(RegItBegin(dev, &record, "none"));
    EXPECT_EQ(record.on_entry, 0);
}

// A path that just fits the buffer is sent, a longer one is not.
TEST(RegistryClient, SendsOnlyWhatFitsItsBuffer) {
    constexpr uint64_t size = 256;
    char data[16] = {};
    RegIterator record{};
    uint16_t type = 0;
    uint32_t length = 0;
    uint64_t value = 0;
    const struct {
        const char *title;
        size_t taken;  // bytes beside the path and its NUL
        std::function<bool(device_record *, const char *)> call;
    } cases[] = {
        {"tmp", 8, [&](auto *dev, auto *path) { return RegCreateTmp(dev, path); }},
        {"int", 16, [&](auto *dev, auto *path) { return RegGetKeyInt(dev, path, &value); }},
        {"guard", 16, [&](auto *dev, auto *path) { return RegCreateGuard(dev, path, 1); }},
        {"info", 16, [&](auto *dev, auto *path) { return RegKeyInfo(dev, path, &type, &length); }},
        {"set", 24 + 16, [&](auto *dev, auto *path) { return RegSetKeyBin(dev, path, data, 16); }},
        {"set, low half", 24 + 5, [&](auto *dev, auto *path) { return RegSetKeyBin(dev, path, data, 0x100000005); }},
        {"get", 24 + 9, [&](auto *dev, auto *path) { return RegGetKeyBin(dev, path, data, &(length = 9)); }},
        {"begin", 16 + 64, [&](auto *dev, auto *path) { return RegItBegin(dev, &record, path); }},
    };
    for (const auto &[title, taken, call] : cases) {
        SCOPED_TRACE(title);
        int performed = 0;
        const auto count = [&](uint32_t, const hosted::request_view &) { return ++performed, 0u; };
        test_kernel running([&](test_machine &m) { m.registry_maker = server(count, size); });
        device_record *dev = GetRegDev();
        EXPECT_FALSE(call(dev, std::string(size - taken, 'x').c_str()));
        EXPECT_EQ(performed, 0);
        EXPECT_TRUE(call(dev, std::string(size - taken - 1, 'x').c_str()));
        EXPECT_EQ(performed, 1);
    }

    // Blocks without a path are bounded too, and a size that cannot be is no room.
    for (const uint64_t tiny : {uint64_t{4}, uint64_t{11}}) {
        test_kernel running([&](test_machine &m) { m.registry_maker = server(nullptr, tiny); });
        EXPECT_FALSE(RegCaps(GetRegDev(), nullptr, nullptr, nullptr));
        EXPECT_FALSE(RegItEnd(GetRegDev(), &record));
        EXPECT_FALSE(RegGetKeyInt(GetRegDev(), "", &value));
    }
}

TEST(RegistryClient, DoesNotBelieveALengthAboveTheRoom) {
    test_kernel running([](test_machine &m) {
        m.registry_maker = server([](uint32_t, const hosted::request_view &request) {
            request.block<reg_bin_block>()->length = 5;
            return 0u;
        });
    });
    char text[4] = "abc";
    uint32_t length = 4;
    EXPECT_FALSE(RegGetKeyBin(GetRegDev(), "key", text, &length));
    EXPECT_EQ(length, 4u);
    EXPECT_STREQ(text, "abc");
    length = 5;
    char room[5];
    EXPECT_TRUE(RegGetKeyBin(GetRegDev(), "key", room, &length));
}

TEST(Clients, NothingIsSentWithoutADeviceOrItsRequest) {
    test_kernel running([](test_machine &m) {
        m.registry_maker = server(nullptr, 256, true);
        m.makers["plain"] = server(nullptr, 0);
    });
    for (device_record *dev : {GetRegDev(), OpenDeviceFromMsgPort(running.kernel().device_port("plain")),
                               static_cast<device_record *>(nullptr)}) {
        uint64_t value = 7;
        uint32_t number = 7;
        RegIterator record{};
        EXPECT_FALSE(RegGetKeyInt(dev, "key", &value) || RegItBegin(dev, &record, "") ||
                     SysvcGetMaxMajor(dev, &number));
        EXPECT_EQ(SysvcGetPid(dev, 1, &value), SYSERR_NO_ADDRESS);
        EXPECT_EQ(std::pair(value, number), std::pair(uint64_t{7}, 7u));
    }
    EXPECT_EQ(GetSystemService(), nullptr);
}

TEST(Clients, ALockThatFailsEndsTheTask) {
    for (const auto which : {hosted::call::wait_semaphore, hosted::call::signal_semaphore}) {
        test_kernel running(
            [](test_machine &m) {
                m.store.keys["key"] = {REGTYPE_INT, 5};
            },
            fault(which, RESULT_NO_OBJECT));
        uint64_t value = 0;
        const bool locked = which == hosted::call::signal_semaphore;
        EXPECT_EQ(RegGetKeyInt(GetRegDev(), "key", &value), locked) << "should the task outlive it";
        EXPECT_EQ(running->destroyed, std::vector<uint64_t>{test_machine::TASK});
    }
}

TEST(SystemServiceClient, MapsErrors) {
    const std::pair<uint32_t, int> cases[] = {
        {0, 0},           {0xBE00000B, 11}, {0xBEFFFFFF, 0xFFFFFF}, {0xBF000000, 54},
        {0xE0030001, 22}, {0xE0030002, 11}, {0xE0030003, 31},       {0xE0030004, 11},
        {0xE0030005, 11}, {0xE0030006, 45}, {0xE0030007, 19},       {0xE0030008, 54},
        {1, 54},          {0xBE000000, 54},
    };
    for (const auto &[code, number] : cases) {
        test_kernel running([&, error = code](test_machine &m) {
            m.infos[{0x1F, OBJINFO_HANDLE}] = 0x99;  // asked for, and not what is sent
            m.makers["sysvc"] = server([error](uint32_t command, const hosted::request_view &request) {
                auto *block = request.block<sysvc_id_block>();
                block->id = uint64_t{command} << 32 | block->task;
                return error;
            });
        });
        device_record *dev = GetSystemService();
        const uint64_t task = 0x1F;
        constexpr struct {
            int (*call)(device_record *, uint64_t, uint64_t *);
            uint64_t command;
        } calls[] = {{SysvcGetPid, SYSVCCMD_GET_PID},
                     {SysvcGetPPid, SYSVCCMD_GET_PPID},
                     {SysvcGetPgid, SYSVCCMD_GET_PGID},
                     {SysvcGetSid, SYSVCCMD_GET_SID}};
        for (const auto &[call, command] : calls) {
            uint64_t id = 7;
            EXPECT_EQ(call(dev, task, &id), number) << std::hex << code;
            EXPECT_EQ(id, number == 0 ? command << 32 | task : 7);
            EXPECT_EQ(call(dev, task, nullptr), number);
        }
    }
}

TEST(SystemServiceClient, DriverNamesEndInTheBufferAndFitTheCallers) {
    constexpr uint64_t size = 24;  // leaves 16 bytes for the name
    const struct {
        size_t length;
        size_t room;
        bool known;
    } cases[] = {{5, 6, true}, {5, 5, false}, {0, 1, true}, {0, 0, false}, {15, 16, true}, {16, 64, false}};
    for (const auto &[length, room, known] : cases) {
        SCOPED_TRACE(std::to_string(length) + " in " + std::to_string(room));
        test_kernel running([&, n = length](test_machine &m) {
            const auto answer = [n](uint32_t, const hosted::request_view &request) {
                auto *block = request.block<sysvc_device_block>();
                EXPECT_EQ(std::pair(block->device_low, block->number), std::pair(0x55667788u, 0x11223344u));
                block->number = 99;
                std::memset(request.rest(request.payload).data() + sizeof *block, 'x', n);
                return 0u;
            };
            m.makers["other"] = server(answer, size);
        });
        setenv("SYSVC_DEVICE_NAME", "other", 1);
        device_record *dev = GetSystemService();
        setenv("SYSVC_DEVICE_NAME", "none", 1);
        EXPECT_EQ(GetSystemService(), dev) << "chosen once";
        unsetenv("SYSVC_DEVICE_NAME");
        std::string name(64, '#');
        uint32_t number = 7;
        EXPECT_EQ(SysvcDecomposeDevice(dev, 0x1122334455667788, name.data(), room, &number), known);
        EXPECT_EQ(number, known ? 99u : 7u);
        EXPECT_EQ(name.substr(0, known ? length + 1 : 1), known ? std::string(length, 'x') + '\0' : "#");
        EXPECT_EQ(name.find_first_not_of('#', known ? length + 1 : 0), std::string::npos);
    }
}

TEST(Clients, ServeSeveralThreadsAtOnce) {
    test_kernel running([](test_machine &m) {
        for (int key = 0; key < 4; key++) m.store.keys[std::to_string(key)] = {REGTYPE_INT, static_cast<uint64_t>(key)};
    });
    std::vector<std::thread> threads;
    for (uint64_t key = 0; key < 4; key++) {
        threads.emplace_back([key] {
            for (int round = 0; round < 100; round++) {
                uint64_t value = 99;
                EXPECT_TRUE(RegGetKeyInt(GetRegDev(), std::to_string(key).c_str(), &value));
                EXPECT_EQ(value, key);
                EXPECT_EQ(GetDeviceMsgPort("none"), NO_OBJECT);  // opens and closes a record of its own
            }
        });
    }
    for (auto &one : threads) one.join();
}

}  // namespace
