// commands/svcinfo.cpp - list the services of service devices with their arguments and results, or describe some of one
// device.
#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <limits>
#include <optional>

#include "commands/commands.h"
#include "common/commandline.h"
#include "common/service.h"

namespace {

constexpr char usage[] = R"(Usage: svcinfo DEVNAME...
  or:  svcinfo -s DEVNAME SVCNAME...
Print information about a service.

    -s    print information about the specified service calls of a device
)";

// The request holds the description of one service, then the list of them.
constexpr uint64_t INFO_OFFSET = IOREQ_INLINE;
constexpr uint64_t LIST_OFFSET = 488;
constexpr uint64_t REQUEST_SIZE = LIST_OFFSET + sizeof(svc_list_block);
static_assert(REQUEST_SIZE == 8704);
constexpr uint64_t ANY_NUMBER = std::numeric_limits<uint64_t>::max();
constexpr uint64_t RESULT_ROOM = (REQUEST_SIZE - INFO_OFFSET - sizeof(svc_info_block)) / sizeof(svc_descriptor);

struct options {
    bool by_service = false;
};

constexpr sb_option<options> option_table[] = {sets<&options::by_service>('s')};
constexpr sb_commandline command_line = {
    .command = "svcinfo", .usage = usage, .operands = {.min = 1, .words = {sb_word::device, sb_word::service}}};

const char *plural(uint64_t count) { return count == 1 ? "" : "s"; }

void print_items(const char *kind, const svc_descriptor *items, uint64_t count) {
    for (uint64_t i = 0; i < count; ++i) {
        std::printf("        %s #%" PRIu64 ": \"%.*s\", %s\n", kind, i,
                    sb_service_namelen(items[i].name, sizeof items[i].name), items[i].name,
                    sb_svcls_type(items[i].type));
    }
}

// The counts are printed as the device gave them, the items as far as the request holds them.
bool describe(const sb_service &service, const char *called, std::optional<size_t> index) {
    svc_info_block info;
    if (!sb_service_describe(service, called, INFO_OFFSET, sizeof info.name, ANY_NUMBER, &info)) return false;
    std::fputs("    service ", stdout);
    if (index) std::printf("#%zu, ", *index);
    const uint64_t args = info.arg_count, results = info.result_count;
    std::printf("\"%s\": %" PRIu64 " arg%s, %" PRIu64 " ret%s\n", called, args, plural(args), results, plural(results));
    print_items("arg", info.args, std::min<uint64_t>(args, SVC_MAX_ARGS));
    print_items("ret", sb_service_results(service, INFO_OFFSET), std::min(results, RESULT_ROOM));
    return true;
}

bool describe_named(const sb_service &service, char **names, int count) {
    bool good = true;
    for (int i = 0; i < count; ++i) {
        if (std::strlen(names[i]) >= SVC_NAME_SIZE) {
            sb_say(command_line, "%s: %s: service name too long", service.name, names[i]);
            good = false;
        } else if (!describe(service, names[i], std::nullopt)) {
            good = false;
        }
    }
    return good;
}

// The names are copied out of the request first: a description with many results reaches into the list.
bool list_services(const sb_service &service) {
    std::printf("Services in \"%s\":\n", service.name);
    auto *block = sb_service_block<svc_list_block>(service, LIST_OFFSET);
    block->capacity = SVC_LIST_SLOTS;
    if (sb_service_perform(service, SVCCMD_LIST, LIST_OFFSET) != IO_SUCCESS) {
        sb_say(command_line, "%s: failed to retrieve service list", service.name);
        return false;
    }
    svc_list_block list;
    std::memcpy(&list, block, sizeof list);
    const uint64_t returned = std::min<uint64_t>(list.returned, SVC_LIST_SLOTS);
    bool good = true;
    for (size_t i = 0; good && i < returned; ++i) {
        char called[SVC_NAME_SIZE + 1] = {};
        std::memcpy(called, list.names[i], SVC_NAME_SIZE);
        good = describe(service, called, i);
    }
    if (list.total > returned) {
        sb_say(command_line, "%s: not all services has been listed", service.name);
    } else if (returned == SVC_LIST_SLOTS) {
        sb_say(command_line, "%s: maybe not all services has been listed", service.name);
    }
    return good;
}

}  // namespace

constexpr sb_description sb_svcinfo_line = sb_describe(command_line, option_table);

int sb_svcinfo(int argc, char **argv) {
    options opts;
    if (const auto status = sb_parse(command_line, option_table, argc, argv, opts)) return *status;
    if (opts.by_service && argc < 2) return sb_fail(command_line, SB_FAILED, "missing operand");

    uint64_t reply_port = NO_OBJECT;
    int status = SB_DONE;
    const int devices = opts.by_service ? 1 : argc;
    for (int i = 0; i < devices; ++i) {
        if (reply_port == NO_OBJECT) reply_port = CreateSharedMsgPort(0, 0, 0, RIGHTS_REPLY);
        if (reply_port == NO_OBJECT) return sb_fail(command_line, SB_SETUP, "failed to create MsgPort.");
        sb_service service{command_line, argv[i], reply_port, REQUEST_SIZE};
        bool good = sb_service_open(service);
        if (good && !opts.by_service && i > 0) std::putchar('\n');
        if (good) good = opts.by_service ? describe_named(service, argv + 1, argc - 1) : list_services(service);
        CloseDevice(service.device);  // none was opened: ignored
        if (good) continue;
        status = SB_FAILED;
        DeleteMsgPort(reply_port);  // what this device still sends must not reach the next one's port
        reply_port = NO_OBJECT;
    }
    if (reply_port != NO_OBJECT) DeleteMsgPort(reply_port);
    return status;
}
