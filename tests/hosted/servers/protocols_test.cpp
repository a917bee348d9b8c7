// tests/hosted/servers/protocols_test.cpp - hostile argument blocks: the protocols read and write inside the request
// only.
#include "hosted/servers/protocols.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "hosted/test_machine.h"

namespace {

// A device that speaks one protocol, with one request on it.
class spoken {
public:
    spoken(std::function<std::unique_ptr<hosted::device_protocol>(test_machine &)> make, uint64_t size)
        : running_([&](test_machine &m) {
              m.makers["dev"] = [&m, make](hosted::kernel &owner) { return make_server(owner, make(m)); };
          }),
          device(OpenDeviceFromMsgPort(running_.kernel().device_port("dev"))),
          request(CreateIOreq(device, 1, 0, size, CreateSharedMsgPort(0, 0, 0, RIGHTS_REPLY))) {
        request->payload = at(IOREQ_INLINE);
    }
    uint64_t at(uint64_t offset) const { return reinterpret_cast<uint64_t>(request) + offset; }
    template <class T> T &in_line(uint64_t offset = IOREQ_INLINE) { return *reinterpret_cast<T *>(at(offset)); }
    std::string text(uint64_t offset, uint64_t length) { return {&in_line<char>(offset), length}; }
    bool contains(uint64_t address) { return running_.kernel().memory().contains(address); }

    // The error word of a command; 0 when it is done.
    uint32_t error(uint32_t command) {
        request->command = command;
        request->error = 0;
        return SyncIO(request) == IO_SUCCESS ? 0 : request->error;
    }

private:
    test_kernel running_;

public:
    device_record *device;
    IOreq *request;
};

TEST(RegistryProtocol, ReachesNoFurtherThanTheRequest) {
    spoken to([](test_machine &m) { return hosted::make_registry_protocol(m.store); }, 256);
    IOreq *other = CreateIOreq(to.device, 0, 0, 256, 0);
    auto &block = to.in_line<reg_bin_block>();
    const auto set = [&](uint64_t path, uint64_t data, uint64_t length) { block = {path, data, length}; };
    constexpr uint32_t BAD = IOERROR_BAD_COMMAND;
    std::memset(&to.in_line<char>(160), 'k', 96);  // a path without an end
    to.in_line<char>(159) = '\0';
    const struct {
        uint64_t path, data, length;
        uint32_t error;
    } cases[] = {
        {to.at(159), to.at(200), 56, 0},
        {to.at(159), to.at(200), 57, BAD},
        {to.at(159), to.at(200), ~0ull, BAD},
        {to.at(159), 0, 0, 0},
        {to.at(159), 0, 1, BAD},
        {to.at(160), to.at(200), 1, BAD},
        {to.at(256), to.at(200), 1, BAD},
        {to.at(0) - 1, to.at(200), 1, BAD},
        {reinterpret_cast<uint64_t>(other), to.at(200), 1, BAD},
    };
    for (const auto &[path, data, length, error] : cases) {
        set(path, data, length);
        EXPECT_EQ(to.error(REGCMD_SET_BIN), error) << std::hex << path - to.at(0) << " " << length;
    }
    for (const auto &[room, text] : {std::pair(0u, "kkkkkkk"), {3u, "valkkkk"}, {5u, "valuekk"}, {99u, "valuekk"}}) {
        std::memset(&to.in_line<char>(200), 'k', 56);
        set(to.at(159), to.at(200), room);
        EXPECT_EQ(to.error(REGCMD_GET_BIN), 0u);
        EXPECT_EQ(std::pair(to.text(200, 7), block.length),
                  std::pair(std::string(text), std::min(uint64_t{5}, uint64_t{room})));
    }
    set(to.at(159), to.at(252), 5);
    EXPECT_EQ(to.error(REGCMD_GET_BIN), BAD);
    for (const uint64_t payload : {to.at(121), to.at(250), uint64_t{0}, ~uint64_t{7}}) {
        to.request->payload = payload;
        for (const uint32_t command : {REGCMD_CAPS, REGCMD_GET_INT, REGCMD_ITERATOR_BEGIN, REGCMD_ITERATOR_END}) {
            EXPECT_EQ(to.error(command), BAD);
        }
    }
    to.request->payload = to.at(IOREQ_INLINE);
    to.in_line<reg_step_block>() = {to.at(200), {}};
    EXPECT_EQ(to.error(REGCMD_ITERATOR_NEXT), BAD) << "a record past the end";
    to.in_line<reg_step_block>().record = to.at(128);
    EXPECT_EQ(to.error(REGCMD_ITERATOR_NEXT), uint32_t{IOERROR_NOT_FOUND}) << "never begun";
}

struct one_service : hosted::service_source {
    hosted::service_description described;
    size_t count() const override { return 1; }
    const hosted::service_description &describe(size_t) const override { return described; }
    uint32_t call(size_t, hosted::service_call &call) override {
        call.set_text(0, call.text(0).value_or("none"));
        call.set_wide(1, U"wide");
        call.set_word(2, call.word(0) + call.word(8));
        if (const auto address = call.address(1)) call.set_address(3, *address);
        call.set_word(4, 1);
        return 0;
    }
};

TEST(ServiceProtocol, KeepsResultsAsLongAsTheRequest) {
    one_service source;
    source.described.name = "echo";
    spoken to([&](auto &) { return hosted::make_service_protocol(source); },
              IOREQ_INLINE + sizeof(svc_call_block) + 16);
    auto &call = to.in_line<svc_call_block>();
    std::strcpy(call.name, "echo");
    std::strcpy(&to.in_line<char>(376), "text");
    call.args[0].value = to.at(376);
    call.args[1].value = to.at(377);  // its 16 bytes run past the end
    call.results[3].value = 7;
    EXPECT_EQ(to.error(SVCCMD_CALL), 0u);
    EXPECT_STREQ(reinterpret_cast<const char *>(call.results[0].value), "text");
    EXPECT_EQ(std::u32string_view(reinterpret_cast<const char32_t *>(call.results[1].value)), U"wide");
    EXPECT_EQ(call.results[2].value, to.at(376));
    EXPECT_EQ(std::pair(call.results[3].value, call.pool_cursor), std::pair(uint64_t{7}, uint64_t{0}));
    const uint64_t text = call.results[0].value;
    call.args[0].value = text;  // not the request's own
    EXPECT_EQ(to.error(SVCCMD_CALL), 0u);
    EXPECT_STREQ(reinterpret_cast<const char *>(call.results[0].value), "none");
    std::fill_n(call.name, sizeof call.name, 'e');  // without an end
    EXPECT_EQ(to.error(SVCCMD_CALL), uint32_t{IOERROR_BAD_COMMAND});
    DeleteIOreq(to.request);
    EXPECT_FALSE(to.contains(text));
}

}  // namespace
