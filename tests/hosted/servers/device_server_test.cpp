// tests/hosted/servers/device_server_test.cpp - what the device server answers to each message, healthy or misbehaving,
// and which answers it still owes.
#include "hosted/servers/device_server.h"

#include <gtest/gtest.h>

#include <optional>

#include "hosted/test_machine.h"

namespace {

using hosted::device_behaviour;
using answers = std::vector<std::pair<uint64_t, uint64_t>>;  // code and second word, in the order of arrival

constexpr uint32_t COMMAND = 0x77;

// Performs one command, with the result that the request's unit states, and records every call.
class one_command : public hosted::device_protocol {
public:
    explicit one_command(std::vector<uint64_t> &calls) : calls_(calls) {}
    std::optional<uint32_t> perform(uint32_t command, const hosted::request_view &request) override {
        if (command != COMMAND) return std::nullopt;
        calls_.push_back(request.address);
        return request.header.unit;
    }
    bool direct(const kernel_message &message) override { return message.code == 0xD0510001; }
    void forget(hosted::arena &, uint64_t request) override { calls_.push_back(~request); }

private:
    std::vector<uint64_t> &calls_;
};

class DeviceServer : public testing::Test {
protected:
    void start(const device_behaviour &behaviour = {}, uint64_t buffer = 0) {
        running_.emplace([&](test_machine &m) {
            m.makers["dev"] = [this, behaviour, buffer](hosted::kernel &owner) {
                return make_server(owner, std::make_unique<one_command>(calls_), buffer, behaviour);
            };
        });
        port_ = running_->kernel().device_port("dev");
        reply_ = _SL_CreateMsgPort(0, 0);
        device_ = OpenDeviceFromMsgPort(port_);
    }

    IOreq *request(uint32_t command = COMMAND) {
        IOreq *made = CreateIOreq(device_, 0, 0, sizeof(IOreq) + 8, reply_);
        made->command = command;
        return made;
    }

    // Everything that arrives on the reply port within so many milliseconds.
    answers arriving(int64_t timeout = 0) {
        answers found;
        const auto until = static_cast<int64_t>(TickGetCount()) + timeout;
        for (kernel_message message{};;) {
            const int64_t left = until - static_cast<int64_t>(TickGetCount());
            if (_SL_RecvMsgPtr(reply_, &message, left) != RESULT_SUCCESS) return found;
            found.emplace_back(message.code, message.word2);
        }
    }

    answers sent(uint32_t code, uint64_t word2, std::optional<uint64_t> port = {}, std::optional<uint64_t> word1 = {}) {
        EXPECT_EQ(_SL_SendMsg(port.value_or(port_), word1.value_or(reply_), code, word2, 0), RESULT_SUCCESS);
        return arriving();
    }

    std::vector<uint64_t> calls_;  // requests performed, and the complements of those forgotten
    std::optional<test_kernel> running_;
    uint64_t port_ = 0, reply_ = 0;
    device_record *device_ = nullptr;
};

TEST_F(DeviceServer, AnswersABegunRequestOnce) {
    device_behaviour behaviour;
    behaviour.requests[1].silent = true;
    behaviour.requests[2].abort = true;
    behaviour.requests[3].error = 9;
    behaviour.requests[3].delay = 30;
    behaviour.requests[COMMAND + 1].delay = 50;
    start(behaviour);
    IOreq *io = request();
    const uint64_t id = io->id;
    const auto begin = [&](uint32_t command) {
        io->command = command;
        io->error = 0x55;
        return sent(IOMSG_BEGIN, id);
    };

    EXPECT_EQ(begin(COMMAND), (answers{{IOMSG_DONE, id}}));
    EXPECT_EQ(io->error, 0x55u);
    io->unit = 6;
    EXPECT_EQ(begin(COMMAND), (answers{{IOMSG_FAILED, id}}));
    EXPECT_EQ(io->error, 6u);
    EXPECT_EQ(begin(0x99), (answers{{IOMSG_FAILED, id}}));
    EXPECT_EQ(io->error, uint32_t{IOERROR_BAD_COMMAND});
    EXPECT_EQ(begin(2), (answers{{IOMSG_ABORTED, id}}));
    EXPECT_EQ(io->error, 0x55u) << "an abort leaves it alone";
    EXPECT_EQ(sent(IOMSG_ABORT, id), (answers{{IOMSG_ABORT_ACKNOWLEDGED, id}})) << "finished";

    EXPECT_EQ(begin(3), answers{});
    EXPECT_EQ(begin(COMMAND), answers{}) << "begun twice: one answer is pending";
    EXPECT_EQ(arriving(30), (answers{{IOMSG_FAILED, id}}));
    EXPECT_EQ(io->error, 9u);

    const answers aborted = {{IOMSG_ABORTED, id}, {IOMSG_ABORT_ACKNOWLEDGED, id}};
    EXPECT_EQ(begin(1), answers{});
    EXPECT_EQ(sent(IOMSG_ABORT, id), aborted);
    EXPECT_EQ(begin(3), answers{});
    EXPECT_EQ(sent(IOMSG_ABORT, id), aborted);
    EXPECT_EQ(begin(COMMAND + 1), answers{}) << "the late answer of the aborted run is not this one's";
    EXPECT_EQ(arriving(100), (answers{{IOMSG_FAILED, id}}));
    EXPECT_EQ(io->error, uint32_t{IOERROR_BAD_COMMAND});
    EXPECT_EQ(calls_, (std::vector<uint64_t>(2, reinterpret_cast<uint64_t>(io))));
}

TEST_F(DeviceServer, AnswersUnknownMessagesAndChangesNothing) {
    device_behaviour behaviour;
    behaviour.requests[1].code = DEVMSG_DELETE_REQUEST_ASYNC;
    behaviour.requests[1].times = 2;
    start(behaviour);
    IOreq *io = request();
    EXPECT_EQ(sent(IOMSG_BEGIN, 999), (answers{{IOMSG_FAILED, 999}}));
    EXPECT_EQ(sent(IOMSG_ABORT, 999), (answers{{IOMSG_ABORT_ACKNOWLEDGED, 999}}));
    EXPECT_EQ(sent(DEVMSG_CLOSE, reply_, port_, 0), (answers{{DEVMSG_CLOSED, 0}})) << "the device's port, no record's";
    EXPECT_EQ(sent(DEVMSG_CREATE_REQUEST, 200, {}, 0x1000), answers{});
    EXPECT_EQ(sent(DEVMSG_DELETE_REQUEST, io->id, {}, 0x1000), answers{});
    IOreq unknown{};
    unknown.id = 999;
    unknown.device = reinterpret_cast<uint64_t>(device_);
    EXPECT_EQ(DeleteIOreq(&unknown), IO_SUCCESS);
    EXPECT_EQ(sent(0x12345, 5), (answers{{hosted::QUERY_UNKNOWN_ANSWER, 0}}));
    EXPECT_EQ(sent(0xD0510001, 5), answers{}) << "a protocol's own";
    EXPECT_EQ(sent(0x12345, 5, {}, port_), answers{}) << "an answer to the server itself goes nowhere";
    EXPECT_EQ(calls_, std::vector<uint64_t>{});
    EXPECT_EQ(SyncIO(io), IO_SUCCESS);
    const uint64_t id = io->id;
    EXPECT_EQ(DeleteIOreqAsync(io), IO_SUCCESS);
    EXPECT_EQ(sent(IOMSG_BEGIN, id), (answers{{IOMSG_FAILED, id}}));
    EXPECT_EQ(sent(IOMSG_BEGIN, request(1)->id, {}, port_), answers{}) << "deleted by the first of its answers";
}

TEST_F(DeviceServer, CreatesZeroedRequestsOfTheGivenSize) {
    start();
    for (const uint64_t size : {uint64_t{0}, sizeof(IOreq) - 1, uint64_t{1} << 60, ~uint64_t{0}}) {
        EXPECT_EQ(CreateIOreq(device_, 0, 0, size, reply_), nullptr) << size;
    }
    IOreq *io = CreateIOreq(device_, 3, 5, sizeof(IOreq) + 1000, reply_);
    ASSERT_NE(io, nullptr);
    EXPECT_EQ(std::tuple(io->unit, io->status, io->flags, io->command, io->reserved56[0]),
              std::tuple(3u, IOREQ_STATUS_NEW, 5, 0u, uint64_t{0}));
    const auto *bytes = reinterpret_cast<const char *>(io + 1);
    EXPECT_EQ(std::string(bytes, 1000), std::string(1000, '\0'));
}

// A close names its record by the port that it arrives on, and drops the answers owed to that record only.
TEST_F(DeviceServer, ClosesOneRecordAndDropsItsAnswers) {
    device_behaviour behaviour;
    behaviour.requests[COMMAND].delay = 10;
    start(behaviour, 64);
    const auto before = running_->handles();
    device_record *kept = device_;
    IOreq *io = request();
    const uint64_t id = io->id;
    device_ = OpenDeviceFromMsgPort(port_);
    const auto *context = reinterpret_cast<const client_context *>(device_->context);
    EXPECT_EQ(context->buffer_size, 64u);
    const uint64_t dropped = request()->id;
    EXPECT_EQ(sent(IOMSG_BEGIN, id), answers{});
    EXPECT_EQ(sent(IOMSG_BEGIN, dropped), answers{});
    EXPECT_EQ(sent(DEVMSG_DELETE_REQUEST, id, {}, reinterpret_cast<uint64_t>(device_)), answers{}) << "not its own";
    EXPECT_EQ(CloseDevice(device_), 0);
    EXPECT_EQ(arriving(50), (answers{{IOMSG_DONE, id}}));
    EXPECT_EQ(sent(IOMSG_BEGIN, dropped), (answers{{IOMSG_FAILED, dropped}})) << "gone";
    EXPECT_EQ(running_->handles(), before);
    EXPECT_TRUE(running_->kernel().memory().contains(kept->context));

    EXPECT_EQ(sent(IOMSG_BEGIN, id), answers{});
    EXPECT_EQ(DeleteIOreq(io), IO_SUCCESS);
    EXPECT_EQ(arriving(50), answers{}) << "a deleted request owes nothing";
}

}  // namespace
