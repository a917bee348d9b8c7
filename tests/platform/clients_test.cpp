// tests/platform/clients_test.cpp - the registry and system-service clients: requests sent, errors mapped, answers
// refused.
#include <gtest/gtest.h>

#include <cstring>

#include "hosted/test_machine.h"

namespace {

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
        test_kernel running([&](test_machine &m) { m.registry_maker = performing_server(count, size); });
        device_record *dev = GetRegDev();
        EXPECT_FALSE(call(dev, std::string(size - taken, 'x').c_str()));
        EXPECT_EQ(performed, 0);
        EXPECT_TRUE(call(dev, std::string(size - taken - 1, 'x').c_str()));
        EXPECT_EQ(performed, 1);
    }

    // Blocks without a path are bounded too, and a size that cannot be is no room.
    for (const uint64_t tiny : {uint64_t{4}, uint64_t{11}}) {
        test_kernel running([&](test_machine &m) { m.registry_maker = performing_server(nullptr, tiny); });
        EXPECT_FALSE(RegCaps(GetRegDev(), nullptr, nullptr, nullptr));
        EXPECT_FALSE(RegItEnd(GetRegDev(), &record));
        for (const bool begins : {true, false}) {
            record.on_entry = 1;
            EXPECT_FALSE(begins ? RegItBegin(GetRegDev(), &record, "") : RegItNext(GetRegDev(), &record));
            EXPECT_EQ(record.on_entry, 0);
        }
        EXPECT_FALSE(RegGetKeyInt(GetRegDev(), "", &value));
    }
}

TEST(SystemServiceClient, MapsErrors) {
    const std::pair<uint32_t, int> cases[] = {
        {0, 0},           {0xBE00000B, 11}, {0xBEFFFFFF, 0xFFFFFF}, {0xBF000000, 54},
        {0xE0030001, 22}, {0xE0030002, 11}, {0xE0030003, 31},       {0xE0030004, 11},
        {0xE0030005, 11}, {0xE0030006, 45}, {0xE0030007, 19},       {0xE0030008, 54},
        {1, 54},          {0xBE000000, 0},
    };
    uint32_t error = 0;
    test_kernel running([&](test_machine &m) {
        m.infos[{0x1F, OBJINFO_HANDLE}] = 0x99;  // the request carries the handle itself instead
        m.makers["sysvc"] = performing_server([&](uint32_t command, const hosted::request_view &request) {
            auto *block = request.block<sysvc_id_block>();
            block->id = uint64_t{command} << 32 | block->task;
            return error;
        });
    });
    device_record *dev = GetSystemService();
    for (const auto &[code, number] : cases) {
        error = code;
        uint64_t ids[4] = {7, 7, 7, 7};
        EXPECT_EQ(SysvcGetPid(dev, 0x1F, &ids[0]), number) << std::hex << code;
        EXPECT_EQ(SysvcGetPPid(dev, 0x1F, &ids[1]), number);
        EXPECT_EQ(SysvcGetPgid(dev, 0x1F, &ids[2]), number);
        EXPECT_EQ(SysvcGetSid(dev, 0x1F, &ids[3]), number);
        EXPECT_EQ(SysvcGetSid(dev, 0x1F, nullptr), number);
        const uint64_t commands[] = {SYSVCCMD_GET_PID, SYSVCCMD_GET_PPID, SYSVCCMD_GET_PGID, SYSVCCMD_GET_SID};
        for (int i = 0; i < 4; ++i) EXPECT_EQ(ids[i], error == 0 ? commands[i] << 32 | 0x1F : 7);
    }
}

TEST(SystemServiceClient, DriverNamesEndInTheBuffer) {
    test_kernel running([](test_machine &m) {
        const auto fill = [](uint32_t, const hosted::request_view &request) {
            std::memset(request.rest(request.payload).data() + sizeof(sysvc_device_block), 'x', 16);
            return 0u;
        };
        m.makers["sysvc"] = performing_server(fill, sizeof(sysvc_device_block) + 16);
    });
    char name[64];
    uint32_t number = 7;
    EXPECT_FALSE(SysvcDecomposeDevice(GetSystemService(), 1, name, sizeof name, &number));
    EXPECT_EQ(number, 7u);
}

}  // namespace
