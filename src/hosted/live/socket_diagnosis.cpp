// hosted/live/socket_diagnosis.cpp - asks the system for its sockets over a netlink socket, and parses the answers.
#include "hosted/live/socket_diagnosis.h"

#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <linux/unix_diag.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "hosted/descriptors.h"

namespace hosted::live {

namespace {

// Newer than some headers.
constexpr uint32_t SHOW_USER = 0x40;
constexpr uint16_t USER_ATTRIBUTE = 7;

// A record of a fixed layout at the front of a message, taken off it; nothing where the message is too short.
template <class Record> std::optional<Record> take_record(std::string_view &message) {
    Record record;
    if (message.size() < sizeof record) return std::nullopt;
    std::memcpy(&record, message.data(), sizeof record);
    message.remove_prefix(sizeof record);
    return record;
}

// The bytes that follow the header of a message or attribute, taken off the front with the padding after them.
//   length  as the header says, its own bytes included
std::string_view take_content(std::string_view &from, size_t length, size_t header) {
    constexpr size_t alignment = 4;
    const std::string_view content = from.substr(0, length - std::min(length, header));
    from.remove_prefix(std::min((content.size() + alignment - 1) & ~(alignment - 1), from.size()));
    return content;
}

struct attribute {
    uint16_t type;
    std::string_view value;

    // The value as a number of its own size; nothing where it has another.
    template <class Number> std::optional<Number> number() const {
        std::string_view bytes = value;
        return bytes.size() == sizeof(Number) ? take_record<Number>(bytes) : std::nullopt;
    }
};

std::optional<attribute> take_attribute(std::string_view &message) {
    const auto header = take_record<nlattr>(message);
    if (!header) return std::nullopt;
    return attribute{header->nla_type, take_content(message, header->nla_len, sizeof *header)};
}

// Sends the question for all sockets that a request describes, and passes each answer to take(). Returns 0 or the error
// number. Answers are there as soon as they are asked for, so nothing here waits.
template <class Request, class Take> int for_each_answer(const Request &wanted, Take take) {
    struct {
        nlmsghdr header;
        Request wanted;
    } request{};
    request.header.nlmsg_len = sizeof request;
    request.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request.wanted = wanted;
    const descriptor diagnosis(socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_SOCK_DIAG));
    if (!diagnosis) return errno;
    if (const int error = write_all(diagnosis.get(), {reinterpret_cast<const char *>(&request), sizeof request}))
        return error;

    std::array<char, 32768> buffer;  // the most that the system puts into a packet of answers
    while (true) {
        sockaddr_nl sender{};
        socklen_t sender_size = sizeof sender;
        const ssize_t got = retry_interrupted([&] {
            return recvfrom(diagnosis.get(), buffer.data(), buffer.size(), MSG_DONTWAIT | MSG_TRUNC,
                            reinterpret_cast<sockaddr *>(&sender), &sender_size);
        });
        if (got < 0) return errno;
        if (sender.nl_pid != 0) continue;  // another process's
        if (got == 0 || static_cast<size_t>(got) > buffer.size()) return EPROTO;
        std::string_view messages(buffer.data(), static_cast<size_t>(got));
        while (const auto header = take_record<nlmsghdr>(messages)) {
            std::string_view content = take_content(messages, header->nlmsg_len, sizeof *header);
            if (header->nlmsg_type == NLMSG_DONE || header->nlmsg_type == NLMSG_ERROR) {
                const int error = take_record<int>(content).value_or(-EPROTO);
                return error == 0 && header->nlmsg_type == NLMSG_ERROR ? EPROTO : -error;
            }
            if (header->nlmsg_type == SOCK_DIAG_BY_FAMILY) take(content);
        }
    }
}

// Whether an answer is a socket at the unspecified address and this port, and for IPv6 alone.
bool is_v6_only(std::string_view message, uint16_t port) {
    constexpr in6_addr unspecified{};
    const auto found = take_record<inet_diag_msg>(message);
    if (!found || found->id.idiag_sport != port ||
        std::memcmp(found->id.idiag_src, &unspecified, sizeof unspecified) != 0)
        return false;
    while (const auto attribute = take_attribute(message)) {
        if (attribute->type == INET_DIAG_SKV6ONLY) return attribute->number<uint8_t>().value_or(0) != 0;
    }
    return false;
}

}  // namespace

std::optional<local_socket> parse_local_socket(std::string_view message) {
    const auto found = take_record<unix_diag_msg>(message);
    if (!found || found->udiag_family != AF_UNIX) return std::nullopt;
    local_socket parsed{.state = found->udiag_state, .inode = found->udiag_ino, .address = {}, .peer = {}, .user = {}};
    while (const auto attribute = take_attribute(message)) {
        switch (attribute->type) {
        case UNIX_DIAG_NAME: parsed.address = attribute->value; break;
        case UNIX_DIAG_PEER: parsed.peer = attribute->number<uint32_t>(); break;
        case USER_ATTRIBUTE: parsed.user = attribute->number<uint32_t>(); break;
        default: break;
        }
    }
    return parsed;
}

int for_each_local_socket(const std::function<void(const local_socket &)> &take) {
    unix_diag_req wanted{};
    wanted.sdiag_family = AF_UNIX;
    wanted.udiag_states = ~0U;
    wanted.udiag_show = UDIAG_SHOW_NAME | UDIAG_SHOW_PEER | SHOW_USER;
    return for_each_answer(wanted, [&take](std::string_view message) {
        if (const auto found = parse_local_socket(message)) take(*found);
    });
}

uint64_t count_v6_only(uint16_t port) {
    inet_diag_req_v2 wanted{};
    wanted.sdiag_family = AF_INET6;
    wanted.sdiag_protocol = IPPROTO_TCP;
    wanted.idiag_states = 1U << SOCKET_LISTENS;
    uint64_t sockets = 0;
    for_each_answer(wanted, [&](std::string_view message) { sockets += is_v6_only(message, port) ? 1U : 0U; });
    return sockets;  // as far as the answers came
}

}  // namespace hosted::live
