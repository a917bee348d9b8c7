// machine/device_capture.cpp - asks a device for its classes, counters, services, log, clock and drivers.
#include "machine/device_capture.h"

#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <optional>

#include "common/counter_records.h"
#include "platform/device.h"
#include "platform/protocol/counters.h"
#include "platform/protocol/log.h"
#include "platform/protocol/service.h"
#include "platform/registry.h"
#include "platform/sysvc.h"

namespace verbs {
namespace {

using namespace hosted::described;

constexpr uint64_t ROOM = uint64_t{1} << 17;  // bytes in a request: more than any list of counters or services has
constexpr uint64_t MOST_CLASSES = 1024;       // of a device
constexpr uint32_t MOST_UNITS = 1U << 16;     // with counters
constexpr uint32_t HIGHEST_MAJOR = 1U << 16;  // that is asked for
constexpr uint64_t LONGEST_RESULT = 4096;     // bytes of a service's text
constexpr uint64_t LONGEST_LOG = uint64_t{1} << 28;

// One open device, and a request on it that is used again for every command.
class client {
public:
    explicit client(const std::string &name)
        : port_(CreateSharedMsgPort(0, 0, 0, RIGHTS_REPLY)), device_(OpenDevice(name.c_str())),
          request_(device_ == nullptr ? nullptr
                                      : CreateIOreq(device_, 0, IOREQ_FLAGS_DEFAULT, IOREQ_INLINE + ROOM, port_)) {}
    ~client() {
        CloseDevice(device_);  // with its request
        if (port_ != NO_OBJECT) DeleteMsgPort(port_);
    }
    client(const client &) = delete;
    client &operator=(const client &) = delete;

    device_record *device() const { return device_; }
    IOreq &request() const { return *request_; }
    explicit operator bool() const { return request_ != nullptr; }

    // The argument block of the next command.
    template <class Block> Block &block() const {
        auto *const at = reinterpret_cast<Block *>(reinterpret_cast<char *>(request_) + IOREQ_INLINE);
        request_->payload = reinterpret_cast<uint64_t>(at);
        return *at;
    }

    // Performs a command on the block. Returns 0 or the server's error word.
    uint32_t perform(uint32_t command, uint32_t unit = 0) const {
        request_->command = command;
        request_->unit = unit;
        return SyncIO(request_) == IO_SUCCESS ? 0 : std::max(request_->error, uint32_t{IOERROR_LOCAL});
    }

private:
    uint64_t port_;
    device_record *device_;
    IOreq *request_;
};

// Describes a command that fails, unless the device does not have it at all. Returns whether it succeeded.
bool succeeds(uint32_t error, uint32_t command, device &into) {
    if (error != 0 && error != IOERROR_BAD_COMMAND) into.requests[command].error = error;
    return error == 0;
}

template <size_t Size> std::string field_text(const char (&field)[Size]) { return {field, strnlen(field, Size)}; }

// ---- counters -------------------------------------------------------------------------------------------------------

// Units are processors of which some may be off, or simply follow one another.
void capture_counters(const client &from, device &into) {
    const long processors = sysconf(_SC_NPROCESSORS_CONF);
    for (uint32_t unit = 0; unit < MOST_UNITS; ++unit) {
        const unsigned char *const records = &from.block<unsigned char>();
        from.request().transfer.buffer_size = ROOM;
        const uint32_t error = from.perform(CNTCMD_GET, unit);
        const bool is_missing = error == IOERROR_NOT_FOUND;
        if (!is_missing && !succeeds(error, CNTCMD_GET, into)) return;
        if (!into.counters) into.counters.emplace();
        if (is_missing && unit + 1 >= processors) return;
        if (is_missing) continue;
        unit_counters &made = into.counters->emplace_back();
        made.number = unit;
        const uint64_t size = std::min(from.request().transfer.returned_size, ROOM);
        sb_counter next;
        for (uint64_t at = 0; sb_counters_next(records, size, &at, &next);)
            made.list.push_back({std::string(next.name), next.value});
    }
}

// ---- services -------------------------------------------------------------------------------------------------------

// A number with a fraction, such as a load, is a figure and no name.
bool is_figure(std::string_view text) {
    const size_t whole = std::min(text.find_first_not_of("0123456789"), text.size());
    if (whole == 0 || whole == text.size()) return whole != 0;
    const auto fraction = text.substr(whole + 1);
    return text[whole] == '.' && !fraction.empty() && fraction.find_first_not_of("0123456789") == fraction.npos;
}

// The text of a result. Nothing where a machine file has no form for its type.
std::optional<std::string> result_text(uint64_t type, uint64_t word, redaction &hide) {
    if (word == 0) return std::nullopt;  // the server had no memory for it
    if (type == SVCTYPE_STRING) {
        const auto *const begin = reinterpret_cast<const char *>(word);
        const std::string text(begin, strnlen(begin, LONGEST_RESULT));
        return is_figure(text) ? hide.known(text) : hide.text("text", text);
    }
    if (type != SVCTYPE_SOCKADDR) return std::nullopt;
    svc_sockaddr found{};
    std::memcpy(&found, reinterpret_cast<const void *>(word), sizeof found);
    const auto *const parts = reinterpret_cast<const uint8_t *>(&found.address);
    const auto *const port = reinterpret_cast<const uint8_t *>(&found.port);
    std::string text;
    for (size_t i = 0; i < sizeof found.address; ++i) text += (i == 0 ? "" : ".") + std::to_string(parts[i]);
    return hide.is_on() ? "0.0.0.0" : text + ":" + std::to_string(port[0] << 8 | port[1]);
}

// Calls a service without arguments and keeps its results. Any other fails on the snapshot as a service does that finds
// nothing: what it would answer depends on its arguments.
void capture_results(const client &from, service &into, redaction &hide) {
    const auto &[name, args, results] = into.description;
    into.values.resize(results.size());
    into.error = IOERROR_NOT_FOUND;
    if (!args.empty() || results.size() > SVC_MAX_RESULTS || name.size() >= SVC_NAME_SIZE) return;
    auto &block = from.block<svc_call_block>();
    block = {};
    name.copy(block.name, name.size());
    block.result_count = results.size();
    for (size_t i = 0; i < results.size(); ++i) block.results[i].type = results[i].type;
    if (const uint32_t error = from.perform(SVCCMD_CALL)) {
        into.error = error;
        return;
    }
    for (size_t i = 0; i < results.size(); ++i) {
        service_result &made = into.values[i];
        made.word = block.results[i].value;
        if (results[i].type == SVCTYPE_INTEGER) continue;
        auto text = result_text(results[i].type, std::exchange(made.word, 0), hide);
        if (!text) return;
        made.what = service_result::kind::text;
        made.text = std::move(*text);
    }
    into.error.reset();
}

std::vector<hosted::service_description::item> items_of(const svc_descriptor *listed, uint64_t count) {
    std::vector<hosted::service_description::item> items;
    for (uint64_t i = 0; i < count; ++i) items.push_back({field_text(listed[i].name), listed[i].type});
    return items;
}

struct service_answer {
    svc_info_block info;
    std::array<svc_descriptor, SVC_MAX_RESULTS> results;
};

void capture_services(const client &from, device &into, redaction &hide) {
    auto &list = from.block<svc_list_block>();
    list.capacity = SVC_LIST_SLOTS;
    if (!succeeds(from.perform(SVCCMD_LIST), SVCCMD_LIST, into)) return;
    const uint64_t total = list.total;
    std::vector<std::string> names;
    for (uint64_t i = 0; i < std::min<uint64_t>(list.returned, SVC_LIST_SLOTS); ++i)
        names.push_back(field_text(list.names[i]));
    into.services.emplace();
    if (total != names.size()) into.services_total = total;
    for (std::string &name : names) {
        auto &about = from.block<service_answer>();
        about = {};
        name.copy(about.info.name, sizeof about.info.name - 1);
        service &made = into.services->emplace_back();
        made.description.name = std::move(name);
        if (from.perform(SVCCMD_INFO) != 0) continue;
        made.description.args = items_of(about.info.args, std::min<uint64_t>(about.info.arg_count, SVC_MAX_ARGS));
        made.description.results =
            items_of(about.results.data(), std::min<uint64_t>(about.info.result_count, SVC_MAX_RESULTS));
        capture_results(from, made, hide);
    }
}

// ---- the log, the clock and the system service ----------------------------------------------------------------------

void capture_log(const client &from, device &into, redaction &hide) {
    auto &request = reinterpret_cast<log_read_request &>(from.request());
    constexpr uint64_t room = ROOM + IOREQ_INLINE - sizeof request;
    from.block<char>();
    if (!succeeds(from.perform(LOGCMD_LENGTH), LOGCMD_LENGTH, into)) {
        if (into.requests.contains(LOGCMD_LENGTH)) into.requests[LOGCMD_READ] = into.requests[LOGCMD_LENGTH];
        return;
    }
    std::string text;
    for (const uint64_t length = std::min<uint64_t>(request.offset, LONGEST_LOG); text.size() < length;) {
        const auto *const part = reinterpret_cast<const char *>(&request + 1);
        request.offset = static_cast<uint32_t>(text.size());
        request.count = static_cast<uint32_t>(std::min(room, length - text.size()));
        request.buffer = reinterpret_cast<uint64_t>(part);
        if (!succeeds(from.perform(LOGCMD_READ), LOGCMD_READ, into) || request.count == 0) break;
        text.append(part, std::min<uint64_t>(request.count, room));
    }
    into.log.emplace().text = hide.lines("log", text);
}

void capture_clock(const client &from, device &into) {
    auto &time = from.block<rtc_time>();
    if (succeeds(from.perform(RTCCMD_READ), RTCCMD_READ, into)) into.rtc = time;
}

void capture_drivers(const client &from, device &into, redaction &hide) {
    uint32_t highest = 0;
    uint64_t id = 0;
    const bool numbered = SysvcGetMaxMajor(from.device(), &highest);
    if (!numbered && SysvcGetPid(from.device(), _SL_GetState(KSTATE_CURRENT_TASK), &id) != 0) return;
    system_service &made = into.system_service.emplace();
    if (!numbered) {
        into.requests[SYSVCCMD_GET_MAX_MAJOR].error = IOERROR_NOT_FOUND;
        return;
    }
    for (uint32_t major = 0; major <= std::min(highest, HIGHEST_MAJOR); ++major) {
        char name[256];
        uint32_t number = 0;
        if (SysvcDecomposeDevice(from.device(), makedev(major, 0), name, sizeof name, &number))
            made.majors.emplace_back(major, hide.text("driver", field_text(name)));
    }
    if (made.majors.empty() || made.majors.back().first != highest) made.max_major = highest;
}

}  // namespace

device capture_device(const std::string &name, const std::string &shown, redaction &hide) {
    device made;
    made.name = shown;
    uint64_t code = 0;
    while (made.classes.size() < MOST_CLASSES &&
           DeviceQuery(GetRegDev(), 0, name.c_str(), DEVQUERY_GET_CLASS, made.classes.size(), &code) == QUERY_SUCCESS)
        made.classes.push_back(code);
    const client from(name);
    if (!from) {
        made.open = device::opening::refuse;
        return made;
    }
    capture_counters(from, made);
    capture_services(from, made, hide);
    capture_log(from, made, hide);
    capture_clock(from, made);
    capture_drivers(from, made, hide);
    return made;
}

}  // namespace verbs
