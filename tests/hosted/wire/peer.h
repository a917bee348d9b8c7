// tests/hosted/wire/peer.h - a process that attaches to a running machine, packet by packet.
#pragma once

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <initializer_list>
#include <string>

#include "hosted/wire/wire.h"
#include "platform/kernel.h"

namespace wire = hosted::wire;
using hosted::call;

// A connection, packet by packet.
class peer {
public:
    explicit peer(const std::string &path) : socket_(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0)) {
        sockaddr_un address{AF_UNIX, {}};
        std::strcpy(address.sun_path, path.c_str());
        for (int i = 0; i < 1000 && connect(socket_, reinterpret_cast<sockaddr *>(&address), sizeof address) != 0; ++i)
            usleep(10000);
        const timeval limit{10, 0};  // nothing here takes as long
        setsockopt(socket_, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    }
    ~peer() { close(socket_); }

    bool put(const void *bytes, size_t size) { return send(socket_, bytes, size, MSG_NOSIGNAL) >= 0; }
    template <class Packet> bool get(Packet &packet) {
        return recv(socket_, &packet, sizeof packet, 0) == sizeof packet;
    }
    bool has_ended() {
        char byte = 0;
        return recv(socket_, &byte, 1, 0) <= 0 && errno != EAGAIN;
    }
    // A machine that is full closes without reading: that is reported before its answer.
    wire::verdict greet(wire::hello said = {}) {
        wire::hello answered{.answer = wire::verdict::refused};
        put(&said, sizeof said);
        return get(answered) || get(answered) ? answered.answer : wire::verdict::refused;
    }
    wire::answer ask(uint32_t what, std::initializer_list<uint64_t> words) {
        wire::request asked{.sequence = 7, .what = what};
        std::copy(words.begin(), words.end(), asked.words);
        wire::answer answered{.result = 999};
        put(&asked, sizeof asked);
        get(answered);
        return answered;
    }
    wire::answer ask(call what, std::initializer_list<uint64_t> words = {}) {
        return ask(static_cast<uint32_t>(what), words);
    }
    uint64_t make_port() { return ask(call::create_msg_port).result; }
    wire::answer receive(uint64_t port) {
        return ask(call::recv_msg, {port, 1, 1, 1, static_cast<uint64_t>(WAIT_FOREVER)});
    }

private:
    int socket_;
};
