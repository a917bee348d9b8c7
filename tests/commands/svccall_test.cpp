// tests/commands/svccall_test.cpp - the request of a service call as its device receives it.
#include <gtest/gtest.h>

#include <cstring>

#include "commands/commands.h"
#include "hosted/test_machine.h"
#include "platform/protocol/service.h"

namespace {

TEST(Svccall, SendsTheWholeCallToItsServer) {
    svc_call_block seen;
    uint64_t request_address = 0;
    const auto perform = [&](uint32_t command, const hosted::request_view &request) {
        if (command == SVCCMD_CALL) {
            seen = *request.block<svc_call_block>();
            request_address = request.address;
            return 0u;
        }
        auto *info = request.block<svc_info_block>();
        info->arg_count = 2;
        info->args[0] = {"text", SVCTYPE_STRING};
        info->args[1] = {"number", SVCTYPE_INTEGER};
        info->result_count = 1;
        const svc_descriptor result = {"at", SVCTYPE_INTEGER};
        std::memcpy(info + 1, &result, sizeof result);
        return 0u;
    };
    test_kernel running([&](test_machine &m) {
        hosted::device_behaviour service;
        service.classes = {SERVICE_CLASS};
        m.makers["d"] = performing_server(perform, 0, service);
    });
    std::string words[] = {"-s", "200", "d", "called", "number=7", "text=abc"};
    char *argv[std::size(words) + 1] = {};
    for (size_t i = 0; i < std::size(words); ++i) argv[i] = words[i].data();
    testing::internal::CaptureStdout();
    EXPECT_EQ(sb_svccall(std::size(words), argv), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "at: 0\n");

    constexpr uint64_t pool = 744;  // where it begins in the request
    EXPECT_STREQ(seen.name, "called");
    EXPECT_TRUE(seen.arg_count == 2 && seen.result_count == 1);
    EXPECT_TRUE(seen.args[0].type == SVCTYPE_STRING && seen.args[1].type == SVCTYPE_INTEGER);
    EXPECT_EQ(seen.args[0].value - request_address, pool);
    EXPECT_EQ(seen.args[1].value, 7u);
    EXPECT_EQ(seen.results[0].type, SVCTYPE_INTEGER);
    EXPECT_EQ(seen.pool_cursor - request_address, pool + sizeof "abc");
    EXPECT_EQ(seen.pool_left, 200 - sizeof "abc");
}

}  // namespace
