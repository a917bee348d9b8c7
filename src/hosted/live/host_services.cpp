// host_services.cpp - the service device "host": calls that are of use on any machine, from files and system calls
// alone.
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/vfs.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>

#include "hosted/live/devices.h"
#include "platform/protocol/device.h"

namespace hosted::live {

namespace {

uint32_t call_hostname(const file_roots &, service_call &call) {
    call.set_text(0, system_names().nodename);
    return 0;
}

uint32_t call_uname(const file_roots &, service_call &call) {
    const utsname names = system_names();
    call.set_text(0, names.sysname);
    call.set_text(1, names.release);
    call.set_text(2, names.version);
    call.set_text(3, names.machine);
    return 0;
}

uint32_t call_loadavg(const file_roots &roots, service_call &call) {
    std::array<char, 256> buffer;
    auto text = read_file(roots.proc + "/loadavg", buffer);
    if (!text) return error_word(errno);
    for (size_t i = 0; i < 3; i++) call.set_text(i, next_field(*text));
    return 0;
}

uint32_t call_statfs(const file_roots &, service_call &call) {
    const auto path = call.text(0);
    if (!path) return error_word(EINVAL);
    struct statfs found {};
    if (statfs(path->c_str(), &found) != 0) return error_word(errno);
    const auto unit = static_cast<uint64_t>(found.f_frsize != 0 ? found.f_frsize : found.f_bsize);
    call.set_word(0, found.f_blocks * unit);
    call.set_word(1, found.f_bfree * unit);
    call.set_word(2, found.f_bavail * unit);
    call.set_word(3, unit);
    return 0;
}

// A line of the table has seven fields: name, password, user id, group id, remark, home, shell.
uint32_t call_user(const file_roots &roots, service_call &call) {
    std::string text;
    if (!read_file(roots.etc + "/passwd", text)) return error_word(errno);
    for (std::string_view rest = text; !rest.empty();) {
        std::string_view line = next_line(rest);
        std::array<std::string_view, 7> fields;
        for (std::string_view &field : fields) {
            field = line.substr(0, line.find(':'));
            line.remove_prefix(std::min(field.size() + 1, line.size()));
        }
        const auto user = whole_number(fields[2]);
        if (!user || *user != call.word(0)) continue;
        call.set_text(0, fields[0]);
        call.set_word(1, whole_number(fields[3]).value_or(0));
        call.set_text(2, fields[5]);
        call.set_text(3, fields[6]);
        return 0;
    }
    return IOERROR_NOT_FOUND;
}

uint32_t call_address(const file_roots &, service_call &call) {
    const auto name = call.text(0);
    ifreq request{};
    if (!name || name->empty() || name->size() >= sizeof request.ifr_name) return IOERROR_NOT_FOUND;
    name->copy(request.ifr_name, name->size());
    const descriptor any(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!any || ioctl(any.get(), SIOCGIFADDR, &request) != 0) return error_word(errno);
    sockaddr_in found{};
    std::memcpy(&found, &request.ifr_addr, sizeof found);
    svc_sockaddr address{};
    address.family = SVC_FAMILY_INET;
    address.address = found.sin_addr.s_addr;
    call.set_address(0, address);
    return 0;
}

uint32_t call_listening(const file_roots &roots, service_call &call) {
    const auto at = call.address(0);
    if (!at || at->family != SVC_FAMILY_INET) return error_word(EINVAL);
    uint64_t sockets = 0;
    bool known = false;
    std::string text;
    for (const char *file : {"/net/tcp", "/net/tcp6"}) {
        if (!read_file(roots.proc + file, text)) continue;
        known = true;
        sockets += count_listening(text, at->address, at->port);
    }
    if (!known) return IOERROR_NOT_FOUND;
    call.set_word(0, sockets);
    return 0;
}

struct service {
    service_description description;
    uint32_t (*call)(const file_roots &roots, service_call &call);
};

const std::array<service, 7> &services() {
    static const std::array<service, 7> all = {{
        {{"hostname", {}, {{"name", SVCTYPE_STRING}}}, call_hostname},
        {{"uname",
          {},
          {{"system", SVCTYPE_STRING},
           {"release", SVCTYPE_STRING},
           {"version", SVCTYPE_STRING},
           {"machine", SVCTYPE_STRING}}},
         call_uname},
        {{"loadavg", {}, {{"load1", SVCTYPE_STRING}, {"load5", SVCTYPE_STRING}, {"load15", SVCTYPE_STRING}}},
         call_loadavg},
        {{"statfs",
          {{"path", SVCTYPE_STRING}},
          {{"total", SVCTYPE_INTEGER},
           {"free", SVCTYPE_INTEGER},
           {"available", SVCTYPE_INTEGER},
           {"block", SVCTYPE_INTEGER}}},
         call_statfs},
        {{"user",
          {{"uid", SVCTYPE_INTEGER}},
          {{"name", SVCTYPE_STRING}, {"gid", SVCTYPE_INTEGER}, {"home", SVCTYPE_STRING}, {"shell", SVCTYPE_STRING}}},
         call_user},
        {{"address", {{"interface", SVCTYPE_STRING}}, {{"address", SVCTYPE_SOCKADDR}}}, call_address},
        {{"listening", {{"at", SVCTYPE_SOCKADDR}}, {{"sockets", SVCTYPE_INTEGER}}}, call_listening},
    }};
    return all;
}

// A number of exactly so many hexadecimal digits, as the kernel prints them, taken off the front of text.
std::optional<uint32_t> take_hexadecimal(std::string_view &text, size_t digits) {
    uint32_t value = 0;
    const std::string_view number = text.substr(0, digits);
    const auto [behind, error] = std::from_chars(number.data(), number.data() + number.size(), value, 16);
    if (error != std::errc{} || behind != number.data() + digits) return std::nullopt;
    text.remove_prefix(digits);
    return value;
}

// The IPv4 address in "ADDRESS:PORT", in network byte order: 8 digits, or 32 of an IPv6 address that stands for one.
// The kernel prints each 32-bit word as it lies in memory, and the port as a number.
bool parse_endpoint(std::string_view text, uint32_t &address, uint16_t &port) {
    const size_t digits = text.find(':');
    if (digits == 32) {
        const uint32_t mapped[] = {0, 0, htonl(0xFFFF)};
        for (const uint32_t wanted : mapped) {
            if (take_hexadecimal(text, 8) != wanted) return false;
        }
    } else if (digits != 8) {
        return false;
    }
    const auto word = take_hexadecimal(text, 8);
    if (!word || !text.starts_with(':')) return false;
    text.remove_prefix(1);
    const auto number = take_hexadecimal(text, 4);
    if (!number || !text.empty()) return false;
    address = *word;
    port = htons(static_cast<uint16_t>(*number));
    return true;
}

}  // namespace

utsname system_names() {
    utsname names{};
    uname(&names);
    return names;
}

uint64_t count_listening(std::string_view text, uint32_t address, uint16_t port) {
    constexpr std::string_view listening = "0A";
    uint64_t sockets = 0;
    while (!text.empty()) {
        std::string_view line = next_line(text);
        next_field(line);  // slot
        const std::string_view local = next_field(line);
        next_field(line);  // remote
        uint32_t at_address = 0;
        uint16_t at_port = 0;
        if (next_field(line) != listening || !parse_endpoint(local, at_address, at_port)) continue;
        if (at_address == address && at_port == port) sockets++;
    }
    return sockets;
}

size_t host_services::count() const { return services().size(); }

const service_description &host_services::describe(size_t index) const { return services()[index].description; }

uint32_t host_services::call(size_t index, service_call &call) { return services()[index].call(roots_, call); }

}  // namespace hosted::live
