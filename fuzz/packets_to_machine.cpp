// fuzz/packets_to_machine.cpp - any requests and packets of a process, and any bytes in the memory that it shares with
// the machine's servers, also while they work: its connection ends, and the machine holds nothing of it afterwards.
//
// The input is a list of steps: a request, a word read from shared memory (handles and addresses become known by these
// two), a word written there, or a packet of any bytes.
#include <cstdlib>
#include <thread>

#include "hosted/wire/host.h"
#include "hosted/wire/peer.h"
#include "input.h"
#include "platform/protocol/device.h"

namespace {

constexpr char MACHINE[] = VENTIX_SOURCE_DIR "/machines/demo.json";
constexpr uint64_t REACH = 1 << 16;  // bytes of shared memory that steps read and write
constexpr size_t MOST_STEPS = 64;
constexpr uint64_t numbers[] = {
    DEVMSG_OPEN,   DEVMSG_CLOSE,        DEVMSG_CREATE_REQUEST, DEVMSG_DELETE_REQUEST, IOMSG_BEGIN, IOMSG_ABORT,
    DEVQUERY_PING, wire::ARENA_ADDRESS, KSTATE_REGISTRY_PORT,  KSTATE_CURRENT_TASK,   0xC0000000,  0xC0020021};

wire::host &machine() {
    static wire::host made;
    static const bool opened = [] {
        std::string message;
        if (!made.open(MACHINE, "", "", message)) std::abort();
        std::thread([] {
            int status = 0;
            std::string ignored;
            made.serve(0, status, ignored);
        }).detach();
        return true;
    }();
    static_cast<void>(opened);
    return made;
}

// The place in shared memory that an address comes nearest to.
uint64_t *place(uint64_t address) {
    return reinterpret_cast<uint64_t *>(wire::ARENA_ADDRESS + address % REACH / 8 * 8);
}

class process {
public:
    explicit process(fuzz_input &input) : input_(input) {}

    void step() {
        const uint8_t choice = input_.byte();
        if (choice < 0xA0) return request(choice % (CALL_COUNT + 8));
        if (choice < 0xC0) return known_.push_back(*place(word()));
        if (choice < 0xF8) return static_cast<void>(*place(word()) = word());
        const auto bytes = input_.text(choice == 0xFF ? input_.byte() : sizeof(wire::request));
        connection_.put(bytes.data(), bytes.size());
    }

    void wait_for_ever() {
        const wire::request asked{.what = static_cast<uint32_t>(call::recv_msg),
                                  .words = {own_.empty() ? 0 : own_[0], 0, 0, 0, static_cast<uint64_t>(WAIT_FOREVER)}};
        connection_.put(&asked, sizeof asked);
    }

private:
    static constexpr size_t CALL_COUNT = hosted::CALL_COUNT;

    uint64_t word() {
        const uint8_t choice = input_.byte();
        if (choice < 0x40) return choice;
        if (choice < 0xC0 && !known_.empty()) return known_[choice % known_.size()];
        return choice < 0xFF ? numbers[choice % std::size(numbers)] : input_.word();
    }

    // Of what it may delete, the machine's own servers stay for the inputs to come. No wait is longer than the test's.
    void request(uint32_t what) {
        uint64_t words[wire::REQUEST_WORDS];
        for (uint64_t &one : words) one = word();
        switch (static_cast<call>(what)) {
        case call::delete_object: words[0] = own_.empty() ? 0 : own_[words[0] % own_.size()]; break;
        case call::recv_msg: words[4] = 0; break;
        case call::recv_msg_ptr:
        case call::wait_semaphore: words[2] = 0; break;
        case call::delay: words[0] = 0; break;
        default: break;
        }
        if (what >= CALL_COUNT) what += static_cast<uint32_t>(wire::service::first) - CALL_COUNT;
        const wire::answer given = connection_.ask(what, {words[0], words[1], words[2], words[3], words[4], words[5]});
        for (const uint64_t output : {given.result, given.words[0], given.words[2]}) {
            if (output != 0) known_.push_back(output);
        }
        if (what == static_cast<uint32_t>(call::create_msg_port)) own_.push_back(given.result);
    }

    fuzz_input &input_;
    peer connection_{machine().path()};
    const wire::verdict greeted_ = connection_.greet();
    std::vector<uint64_t> known_, own_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *bytes, size_t size) {
    fuzz_input input(bytes, size);
    {
        process attached(input);
        std::atomic<bool> over = false;
        const bool writes = (input.byte() & 1) != 0;
        std::thread writer([&over, writes, value = input.word()]() mutable {
            for (; writes && !over; value = value * 6364136223846793005 + 1) *place(value >> 40) = value >> 24;
        });
        for (size_t steps = 0; steps < MOST_STEPS && input.size() != 0; ++steps) attached.step();
        attached.wait_for_ever();
        over = true;
        writer.join();
    }
    while (machine().counts().connections != 0) usleep(20);
    const wire::machine_counts left = machine().counts();
    if (left.tasks != 0 || left.blocks != 0) std::abort();
    return 0;
}
