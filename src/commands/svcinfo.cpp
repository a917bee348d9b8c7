// svcinfo - list the services of service devices with their arguments and results, or describe some of one device.
#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <limits>
#include <optional>

#include "commands/commands.h"
#include "common/helpers.h"
#include "common/options.h"
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

std::optional<int> parse(int &argc, char **&argv, bool &by_service) {
    e_optstate state;
    e_initoption(&state, &argc, &argv, true);
    for (int c; (c = e_getoption(&state)) != E_END;) {
        switch (c) {
        case 's': by_service = true; break;
        case E_HELP: std::fputs(usage, stdout); return SB_DONE;
        default: std::fprintf(stderr, "svcinfo: unknown switch: -%c\n", c); return SB_BAD_SWITCH;
        }
    }
    if (argc < (by_service ? 2 : 1)) {
        std::fputs("svcinfo: missing operand\n", stderr);
        return SB_FAILED;
    }
    return std::nullopt;
}

const char *plural(uint64_t count) { return count == 1 ? "" : "s"; }

void print_items(const char *kind, const svc_descriptor *items, uint64_t count) {
    for (uint64_t i = 0; i < count; i++) {
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
    for (int i = 0; i < count; i++) {
        if (std::strlen(names[i]) >= SVC_NAME_SIZE) {
            std::fprintf(stderr, "svcinfo: %s: %s: service name too long\n", service.name, names[i]);
            good = false;
        } else if (!describe(service, names[i], std::nullopt)) {
            good = false;
        }
    }
    return good;
}

// The names are taken out of the request first: a description with many results reaches into the list.
bool list_services(const sb_service &service) {
    std::printf("Services in \"%s\":\n", service.name);
    auto *block = sb_service_block<svc_list_block>(service, LIST_OFFSET);
    block->capacity = SVC_LIST_SLOTS;
    if (sb_service_perform(service, SVCCMD_LIST, LIST_OFFSET) != IO_SUCCESS) {
        std::fprintf(stderr, "svcinfo: %s: failed to retrieve service list\n", service.name);
        return false;
    }
    svc_list_block list;
    std::memcpy(&list, block, sizeof list);
    const uint64_t returned = std::min<uint64_t>(list.returned, SVC_LIST_SLOTS);
    bool good = true;
    for (size_t i = 0; good && i < returned; i++) {
        char called[SVC_NAME_SIZE + 1] = {};
        std::memcpy(called, list.names[i], SVC_NAME_SIZE);
        good = describe(service, called, i);
    }
    if (list.total > returned) {
        std::fprintf(stderr, "svcinfo: %s: not all services has been listed\n", service.name);
    } else if (returned == SVC_LIST_SLOTS) {
        std::fprintf(stderr, "svcinfo: %s: maybe not all services has been listed\n", service.name);
    }
    return good;
}

}  // namespace

int sb_svcinfo(int argc, char **argv) {
    bool by_service = false;
    if (const auto status = parse(argc, argv, by_service)) return *status;

    uint64_t reply_port = NO_OBJECT;
    int status = SB_DONE;
    const int devices = by_service ? 1 : argc;
    for (int i = 0; i < devices; i++) {
        if (reply_port == NO_OBJECT) reply_port = CreateSharedMsgPort(0, 0, 0, RIGHTS_REPLY);
        if (reply_port == NO_OBJECT) {
            std::fputs("svcinfo: failed to create MsgPort.\n", stderr);
            return SB_SETUP;
        }
        sb_service service{"svcinfo", argv[i], reply_port, REQUEST_SIZE};
        bool good = sb_service_open(service);
        if (good && !by_service && i > 0) std::putchar('\n');
        if (good) good = by_service ? describe_named(service, argv + 1, argc - 1) : list_services(service);
        CloseDevice(service.device);  // none was opened: ignored
        if (good) continue;
        status = SB_FAILED;
        DeleteMsgPort(reply_port);  // what this device still sends must not reach the next one's port
        reply_port = NO_OBJECT;
    }
    if (reply_port != NO_OBJECT) DeleteMsgPort(reply_port);
    return status;
}
