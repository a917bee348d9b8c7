// tests/platform/device_test.cpp - message sequences of the device library, against servers that follow a script.
#include "platform/device.h"

#include <gtest/gtest.h>

#include <cstring>

#include "hosted/test_machine.h"

namespace {

using hosted::call;
using hosted::device_behaviour;

struct step {
    int64_t delay;  // milliseconds
    uint32_t code;
};
using script = std::vector<step>;

// Answers every begin and every abort with the messages of a script.
class scripted_server : public hosted::device_server {
public:
    scripted_server(hosted::kernel &owner, script begun, script aborted)
        : device_server(owner, {}), begun_(std::move(begun)), aborted_(std::move(aborted)) {}

protected:
    void begin(uint64_t reply_port, uint64_t id) override { play(begun_, reply_port, id); }
    void abort(uint64_t reply_port, uint64_t id) override { play(aborted_, reply_port, id); }

private:
    void play(const script &steps, uint64_t reply_port, uint64_t id) {
        for (const step &one : steps) {
            host_.after(one.delay, [this, reply_port, code = one.code, id] { host_.post(reply_port, code, id); });
        }
    }
    script begun_, aborted_;
};

test_machine::maker scripted(script begun, script aborted = {}) {
    return [=](hosted::kernel &owner) { return std::make_unique<scripted_server>(owner, begun, aborted); };
}

test_machine::maker behaving(device_behaviour behaviour) {
    return [=](hosted::kernel &owner) { return std::make_unique<hosted::device_server>(owner, behaviour); };
}

// An opened device "dev" with one request on it.
struct opened {
    uint64_t port = CreateSharedMsgPort(0, 0, 0, RIGHTS_REPLY);
    device_record *device = OpenDeviceFromMsgPort(hosted::running().device_port("dev"));
    IOreq *request = device != nullptr ? CreateIOreq(device, 7, IOREQ_FLAGS_DEFAULT, 200, port) : nullptr;
};
constexpr uint64_t FIRST = 3;  // receive of the request; opening and creating took one each

constexpr uint32_t DONE = IOMSG_DONE, FAILED = IOMSG_FAILED, ABORTED = IOMSG_ABORTED, ACK = IOMSG_ABORT_ACKNOWLEDGED;
constexpr uint64_t INTERRUPTED = RESULT_INTERRUPTED, BROKEN = RESULT_BAD_ARGUMENT;

hosted::fault_list receive(uint64_t result, uint64_t nth, uint64_t times = 1) {
    return fault(call::recv_msg_ptr, result, nth, times);
}

TEST(Device, RequestsEndAsTheirMessagesSay) {
    using run = int (*)(IOreq *);
    const run sync = [](IOreq *io) { return SyncIO(io); };
    const run wait = [](IOreq *io) { return BeginIO(io), WaitIO(io, 100); };
    const run plain = [](IOreq *io) { return SyncIOEx(io, 50, false, false); };
    const run restarts = [](IOreq *io) { return SyncIOEx(io, 50, false, true); };
    const run aborts = [](IOreq *io) { return SyncIOEx(io, 50, true, false); };
    const run both = [](IOreq *io) { return SyncIOEx(io, 50, true, true); };
    const auto begin = [](uint64_t result) { return send_fault(IOMSG_BEGIN, result, 1, 4); };
    const auto abort = [](uint64_t result) { return send_fault(IOMSG_ABORT, result, 1, 4); };
    constexpr uint32_t LOCAL = IOERROR_LOCAL;
    const struct {
        const char *title;
        run call;
        script begun, aborted;
        int result;
        hosted::fault_list faults = {};
        uint32_t error = 0;
    } cases[] = {
        {"sync: done", sync, {{10, DONE}}, {}, IO_SUCCESS},
        {"sync: error", sync, {{10, FAILED}}, {}, IO_FAILED},
        {"sync: aborted", sync, {{10, ABORTED}}, {}, IO_CANCELED},
        {"sync: stray acknowledgement", sync, {{0, ACK}, {10, DONE}}, {}, IO_SUCCESS},
        {"sync: wait cut", sync, {{10, DONE}}, {}, IO_SUCCESS, receive(INTERRUPTED, FIRST, 4)},
        {"sync: wait broken", sync, {}, {}, IO_NO_REPLY, receive(BROKEN, FIRST), LOCAL},
        {"sync: begin broken", sync, {}, {}, IO_UNAVAILABLE, begin(BROKEN), LOCAL},
        {"wait: done", wait, {{100, DONE}}, {}, IO_SUCCESS},
        {"wait: error", wait, {{10, FAILED}}, {}, IO_FAILED},
        {"wait: aborted", wait, {{10, ABORTED}}, {}, IO_CANCELED},
        {"wait: stray acknowledgement", wait, {{0, ACK}}, {}, IO_NO_REPLY},
        {"wait: time-out", wait, {}, {}, IO_TIME_EXPIRED},
        {"wait: cut", wait, {{10, DONE}}, {}, IO_SUCCESS, receive(INTERRUPTED, FIRST, 4)},
        {"wait: broken", wait, {}, {}, IO_UNAVAILABLE, receive(BROKEN, FIRST)},

        {"done at the very deadline", aborts, {{50, DONE}}, {}, IO_SUCCESS},
        {"error", aborts, {{0, FAILED}}, {}, IO_FAILED},
        {"aborted", aborts, {{0, ABORTED}}, {}, IO_CANCELED},
        {"stray reply", aborts, {{0, ACK}}, {}, IO_NO_REPLY},
        {"time-out without abort", plain, {}, {}, IO_UNAVAILABLE, {}, LOCAL},
        {"aborted in time", aborts, {}, {{0, ABORTED}, {0, ACK}}, IO_TIME_EXPIRED, {}, LOCAL},
        {"done, then acknowledged", aborts, {{60, DONE}}, {{20, ACK}}, IO_SUCCESS},
        {"acknowledged, then done", aborts, {{80, DONE}}, {{10, ACK}}, IO_SUCCESS},
        {"acknowledged twice, then done", aborts, {{80, DONE}}, {{10, ACK}, {11, ACK}}, IO_SUCCESS},
        {"done twice, then aborted", aborts, {{60, DONE}, {61, DONE}}, {{30, ABORTED}}, IO_TIME_EXPIRED, {}, LOCAL},
        {"other codes on the way", aborts, {{60, 0x99}, {61, FAILED}, {80, DONE}}, {{5, ACK}}, IO_SUCCESS},
        {"late messages are drained", aborts, {}, {{0, ABORTED}, {1, DONE}, {2, ACK}}, IO_TIME_EXPIRED, {}, LOCAL},
        {"wait cut", aborts, {}, {{0, ABORTED}, {0, ACK}}, IO_INTERRUPTED, receive(INTERRUPTED, FIRST), LOCAL},
        {"wait cut, no abort", plain, {}, {}, IO_UNAVAILABLE, receive(INTERRUPTED, FIRST), LOCAL},
        {"wait cut, restarted", restarts, {{50, DONE}}, {}, IO_SUCCESS, receive(INTERRUPTED, FIRST, 3)},
        {"handshake cut", aborts, {{60, DONE}}, {{20, ACK}}, IO_SUCCESS, receive(INTERRUPTED, FIRST + 1, 5)},
        {"wait broken", aborts, {}, {}, IO_UNAVAILABLE, receive(BROKEN, FIRST), LOCAL},
        {"handshake broken", aborts, {}, {{0, DONE}, {0, ACK}}, IO_TIME_EXPIRED, receive(BROKEN, FIRST + 1), LOCAL},
        {"begin cut", aborts, {{0, DONE}}, {}, IO_INTERRUPTED, begin(INTERRUPTED), LOCAL},
        {"begin cut, restarted", both, {{0, DONE}}, {}, IO_SUCCESS, begin(INTERRUPTED)},
        {"begin broken", both, {}, {}, IO_UNAVAILABLE, begin(BROKEN), LOCAL},
        {"abort cut", aborts, {}, {{0, ABORTED}}, IO_TIME_EXPIRED, abort(INTERRUPTED), LOCAL},
        {"abort broken", aborts, {}, {}, IO_UNAVAILABLE, abort(BROKEN), LOCAL},
    };
    for (const auto &one : cases) {
        SCOPED_TRACE(one.title);
        test_kernel running([&](test_machine &m) { m.makers["dev"] = scripted(one.begun, one.aborted); }, one.faults);
        opened dev;
        EXPECT_EQ(one.call(dev.request), one.result);
        EXPECT_EQ(dev.request->error, one.error);
        kernel_message message{};
        EXPECT_EQ(_SL_RecvMsgPtr(dev.port, &message, 500), RESULT_TIMEOUT) << "nothing is left on the port";
    }
}

// What a server writes over a request, or over its device record after the open, leads the library nowhere else.
TEST(Device, RereadsNothingThatAServerCanChange) {
    for (const uint64_t word : {uint64_t{0}, uint64_t{1}, ~uint64_t{0}, uint64_t{0x7EB000000000}}) {
        test_kernel running([](test_machine &m) { m.makers["dev"] = scripted({{0, DONE}}, {{0, ABORTED}}); });
        opened dev;
        dev.request->device = word;
        std::memset(dev.device, static_cast<int>(word & 0xFF), sizeof *dev.device);
        EXPECT_EQ(SyncIO(dev.request), IO_SUCCESS);
        EXPECT_EQ(SyncIOEx(dev.request, 10, true, true), IO_SUCCESS);
        EXPECT_EQ(DeleteIOreq(dev.request), IO_SUCCESS);
        EXPECT_NE(CreateIOreq(dev.device, 0, 0, 200, dev.port), nullptr);
    }
}

// The waits that never end: an acknowledgement alone is not enough, and a failure is no completion.
TEST(DeviceDeathTest, SyncIOExWaitsForeverOnAnAcknowledgementAlone) {
    for (const script &begun : {script{}, script{{60, FAILED}}}) {
        EXPECT_EXIT(
            {
                test_kernel running([&](test_machine &m) { m.makers["dev"] = scripted(begun, {{20, ACK}}); });
                opened dev;
                SyncIOEx(dev.request, 50, true, true);
            },
            testing::ExitedWithCode(124), "deadlock: _SL_RecvMsgPtr");
    }
}

// Interrupted calls are repeated: the results stay the same, whichever call is interrupted.
TEST(Device, RepeatsInterruptedCalls) {
    const auto work = [](test_kernel &running) {
        device_record *device = OpenDevice("dev");
        if (device == nullptr) return false;
        const uint64_t port = CreateSharedMsgPort(0, 0, 0, RIGHTS_REPLY);
        IOreq *request = CreateIOreq(device, 0, 0, IOREQ_INLINE, port);
        uint64_t value = 0;
        const bool worked = request != nullptr && SyncIO(request) == IO_SUCCESS && DeleteIOreq(request) == 0 &&
                            DeviceQuery(GetRegDev(), 0, "dev", DEVQUERY_PING, 0, &value) == QUERY_SUCCESS &&
                            RegGetKeyInt(GetRegDev(), "number", &value) && value == 5 && CloseDevice(device) == 0;
        return worked && DeleteMsgPort(port) == 0 && running->destroyed.empty();
    };
    for (const call which : {call::send_msg, call::recv_msg_ptr, call::wait_semaphore, call::signal_semaphore}) {
        for (uint64_t nth = 1; nth <= 20; ++nth) {
            SCOPED_TRACE(std::string(hosted::call_name(which)) + " " + std::to_string(nth));
            test_kernel running(
                [](test_machine &m) {
                    m.makers["dev"] = scripted({{5, DONE}});
                    m.store.keys["number"] = 5;
                },
                fault(which, RESULT_INTERRUPTED, nth, 1 + nth % 3));
            EXPECT_TRUE(work(running));
        }
    }
}

// A query without a reply port of the caller creates its own.
TEST(Device, SearchOfClassesEndsWithTheList) {
    test_kernel running([](test_machine &m) {
        device_behaviour two, endless;
        two.classes = {0xA, SERVICE_CLASS};
        endless.answers[DEVQUERY_GET_CLASS] = {.code = {}, .value = 1};
        m.makers["two"] = behaving(two);
        m.makers["endless"] = behaving(endless);
    });
    device_record *registry = GetRegDev();
    EXPECT_EQ(CheckDeviceClass(registry, 0, "endless", 1), 0);  // its server is made when it is first asked for
    EXPECT_EQ(CheckDeviceClass(registry, 0, "two", SERVICE_CLASS), 0);
    const auto before = running.handles();
    EXPECT_EQ(CheckDeviceClass(registry, 0, "two", 0xB), -1);
    EXPECT_EQ(CheckDeviceClass(registry, 0, "endless", 2), -1);
    EXPECT_EQ(DeviceQuery(registry, 0, "two", DEVQUERY_PING, 0, nullptr), QUERY_SUCCESS);
    EXPECT_EQ(DeviceQuery(registry, 0, "two", DEVQUERY_DEBUG_COMMAND, 0, nullptr), QUERY_UNKNOWN);
    EXPECT_EQ(DeviceQuery(nullptr, 0, "two", DEVQUERY_PING, 0, nullptr), QUERY_MISSING);
    EXPECT_EQ(running.handles(), before);
}

TEST(Device, QueriesNeedAPort) {
    test_kernel running([](test_machine &m) { m.makers["dev"] = behaving({}); },
                        fault(call::create_msg_port, RESULT_NO_MEMORY, 2, 2));
    EXPECT_EQ(DeviceQuery(GetRegDev(), 0, "dev", DEVQUERY_PING, 0, nullptr), QUERY_NO_PORT);
    EXPECT_EQ(CheckDeviceClass(GetRegDev(), 0, "dev", SERVICE_CLASS), 1);
}

TEST(Device, OpensWithoutAHandleToTheTask) {
    test_kernel running(
        [](test_machine &m) {
            m.makers["dev"] = behaving({});
            m.states[KSTATE_HANDLE_MANAGER] = 1;
        },
        fault(call::create_handle, RESULT_NO_MEMORY, 2));
    EXPECT_NE(OpenDeviceFromMsgPort(hosted::running().device_port("dev")), nullptr);
}

TEST(Device, SmallCalls) {
    test_kernel running(
        [](test_machine &m) {
            m.makers["dev"] = scripted({}, {{0, ABORTED}});
        },
        send_fault(IOMSG_ABORT, RESULT_TIMEOUT, 3));
    EXPECT_EQ(TickSleep(25), RESULT_SUCCESS);
    EXPECT_EQ(TickGetCount(), 1025u);
    EXPECT_EQ(GetDeviceMsgPort("Registry"), _SL_GetState(KSTATE_REGISTRY_PORT));
    EXPECT_EQ(GetDeviceMsgPort("none"), NO_OBJECT);
    opened dev;
    EXPECT_EQ(AbortIO(dev.request), IO_SUCCESS);
    EXPECT_EQ(AbortIOEx(dev.request, -1), IO_SUCCESS);
    EXPECT_EQ(AbortIOEx(dev.request, int64_t{1} << 40), IO_UNAVAILABLE);
}

}  // namespace
