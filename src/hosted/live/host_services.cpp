// hosted/live/host_services.cpp - the service device "host": calls that are of use on any machine, from files and
// system calls alone.
#include "hosted/live/host_services.h"

#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/utsname.h>
#include <sys/vfs.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

#include "hosted/live/socket_diagnosis.h"
#include "hosted/live/sockets.h"
#include "hosted/live/texts.h"
#include "platform/protocol/device.h"

namespace hosted::live {

namespace {

void answer(service_call &call, size_t result, std::string_view text) {
    std::string shown(text);
    clean(shown);
    call.set_text(result, shown);
}

uint32_t call_hostname(const file_roots &, service_call &call) {
    call.set_text(0, system_names().host);
    return 0;
}

uint32_t call_uname(const file_roots &, service_call &call) {
    const system_names names;
    call.set_text(0, names.system);
    call.set_text(1, names.release);
    call.set_text(2, names.version);
    call.set_text(3, names.machine);
    return 0;
}

uint32_t call_loadavg(const file_roots &roots, service_call &call) {
    std::array<char, 256> buffer;
    std::string_view text;
    if (const int error = read_file(roots.proc + "/loadavg", buffer, text)) return error_word(error);
    scanner scan(text);
    for (size_t i = 0; i < 3; ++i) answer(call, i, scan.word());
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
    if (const int error = read_file(roots.etc + "/passwd", text)) return error_word(error);
    for (scanner scan(text); !scan.done();) {
        scanner line(scan.line());
        std::array<std::string_view, 7> fields;
        for (std::string_view &field : fields) field = line.until(':');
        const auto user = whole_number(fields[2]);
        if (!user || *user != call.word(0)) continue;
        answer(call, 0, fields[0]);
        call.set_word(1, whole_number(fields[3]).value_or(0));
        answer(call, 2, fields[5]);
        answer(call, 3, fields[6]);
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

// Whether a socket is bound to exactly this IPv4 address (in network byte order). An address in IPv6 form counts; the
// unspecified IPv6 address receives IPv4 at every address.
bool is_bound_to(const internet_socket &bound, uint32_t address) {
    const auto &[first, second, third, last] = bound.local.address;
    if (last != address || !bound.is_v6) return last == address;
    return first == 0 && second == 0 && (third == htonl(0xFFFF) || (third == 0 && last == 0));
}

// How many sockets of a text like /proc/net/tcp or tcp6 listen at an address and port, both in network byte order.
uint64_t count_listening(std::string_view text, uint32_t address, uint16_t port) {
    uint64_t sockets = 0;
    internet_socket found;
    for (scanner scan(text); !scan.done();) {
        scanner line(scan.line());
        if (!parse_socket_ends(line, found) || found.state != SOCKET_LISTENS) continue;
        if (is_bound_to(found, address) && found.local.port == ntohs(port)) ++sockets;
    }
    return sockets;
}

uint32_t call_listening(const file_roots &roots, service_call &call) {
    const auto at = call.address(0);
    if (!at || at->family != SVC_FAMILY_INET) return error_word(EINVAL);
    uint64_t sockets = 0;
    int failures = 0;
    std::string text;
    for (const char *file : {"/net/tcp", "/net/tcp6"}) {
        if (read_file(roots.proc + file, text) != 0) ++failures;
        sockets += count_listening(text, at->address, at->port);
    }
    if (failures == 2) return IOERROR_NOT_FOUND;
    if (sockets != 0 && at->address == INADDR_ANY) sockets -= std::min(sockets, count_v6_only(at->port));
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

}  // namespace

system_names::system_names() {
    utsname names{};
    uname(&names);
    const auto set = [](std::string &name, const char *text) { clean(name = text); };
    set(system, names.sysname);
    set(host, names.nodename);
    set(release, names.release);
    set(version, names.version);
    set(machine, names.machine);
}

size_t host_services::count() const { return services().size(); }

const service_description &host_services::describe(size_t index) const { return services()[index].description; }

uint32_t host_services::call(size_t index, service_call &call) { return services()[index].call(roots_, call); }

}  // namespace hosted::live
