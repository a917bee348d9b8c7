// hosted/wire/wire.cpp - sending and receiving packets.
#include "hosted/wire/wire.h"

#include <sched.h>
#include <sys/socket.h>

#include <cerrno>

#include "hosted/clocks.h"
#include "hosted/descriptors.h"

namespace hosted::wire {

namespace {

constexpr uint64_t QUICK = 80'000;  // nanoseconds: after a wait this short, the next one polls
constexpr uint64_t SPIN = 50'000;   // nanoseconds: longer than a peer takes to wake up
constexpr uint32_t PAUSE = 256;     // waits without polling after one that polled in vain: the processors are busy

uint64_t nanoseconds() { return nanoseconds_of(CLOCK_MONOTONIC); }

// With one processor the peer cannot answer while this side spins.
bool has_processors() {
    static const bool several = [] {
        cpu_set_t allowed;
        return sched_getaffinity(0, sizeof allowed, &allowed) == 0 && CPU_COUNT(&allowed) > 1;
    }();
    return several;
}

}  // namespace

void limit_waits(int socket, time_t seconds) {
    const timeval longest{seconds, 0};
    setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &longest, sizeof longest);
    setsockopt(socket, SOL_SOCKET, SO_SNDTIMEO, &longest, sizeof longest);
}

int send_packet(int socket, const void *packet, size_t size) {
    const auto sent = retry_interrupted([=] { return send(socket, packet, size, MSG_NOSIGNAL); });
    return sent < 0 ? errno : 0;
}

int receiver::receive(int socket, void *packet, size_t size) {
    const auto ask = [=](int flags) {
        return retry_interrupted([=] { return recv(socket, packet, size, flags | MSG_TRUNC); });
    };
    ssize_t received = -1;
    const uint64_t begin = has_processors() ? nanoseconds() : 0;
    const bool spins = quick_ && (pause_ == 0 || --pause_ == 0);
    if (spins) {
        do {
            received = ask(MSG_DONTWAIT);
        } while (received < 0 && errno == EAGAIN && nanoseconds() - begin < SPIN);
    }
    if (!spins || (received < 0 && errno == EAGAIN)) {
        if (spins) pause_ = PAUSE;
        received = ask(0);
        quick_ = begin != 0 && nanoseconds() - begin < QUICK;
    }
    if (received == 0) return ECONNRESET;
    if (received < 0) return errno;
    return static_cast<size_t>(received) == size ? 0 : EPROTO;
}

}  // namespace hosted::wire
