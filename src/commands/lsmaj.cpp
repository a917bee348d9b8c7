// commands/lsmaj.cpp - the device major numbers that have a driver.
#include <strings.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "commands/commands.h"
#include "common/commandline.h"
#include "platform/sysvc.h"

namespace {
constexpr char usage[] = R"(Usage: lsmaj [OPTION]...
List device major numbers.

    -n    organize by name (case sensitive)
    -N    organize by name (case insensitive)
    -m    organize by major (default)
)";

constexpr uint64_t MAX_RECORDS = uint64_t{1} << 24;  // of majors that a service may name

struct record {
    uint32_t major;
    char name[32];
};

bool _sb_lsmaj_cmp_maj(const record &a, const record &b) { return a.major < b.major; }

bool _sb_lsmaj_cmp_name(const record &a, const record &b) {
    const int order = std::strcmp(a.name, b.name);
    return order != 0 ? order < 0 : _sb_lsmaj_cmp_maj(a, b);
}

bool _sb_lsmaj_cmp_iname(const record &a, const record &b) {
    const int order = strcasecmp(a.name, b.name);
    return order != 0 ? order < 0 : _sb_lsmaj_cmp_name(a, b);
}

struct options {
    bool (*before)(const record &, const record &) = _sb_lsmaj_cmp_maj;
};

constexpr sb_option<options> option_table[] = {
    sets<&options::before, _sb_lsmaj_cmp_maj>('m'),
    sets<&options::before, _sb_lsmaj_cmp_name>('n'),
    sets<&options::before, _sb_lsmaj_cmp_iname>('N'),
};
constexpr sb_commandline command_line = {.command = "lsmaj", .usage = usage, .operands = SB_NO_OPERANDS};
}  // namespace

constexpr sb_description sb_lsmaj_line = sb_describe(command_line, option_table);

int sb_lsmaj(int argc, char **argv) {
    options opts;
    if (const auto status = sb_parse(command_line, option_table, argc, argv, opts)) return *status;

    device_record *service = GetSystemService();
    uint32_t max_major = 0;
    if (!SysvcGetMaxMajor(service, &max_major))
        return sb_fail(command_line, SB_FAILED, "failed to get maximal major number");
    const uint64_t majors = uint64_t{max_major} + 1;
    const std::unique_ptr<record[]> records(majors <= MAX_RECORDS ? new (std::nothrow) record[majors] : nullptr);
    if (!records) return sb_fail(command_line, SB_FAILED, "%s", std::strerror(EINVAL));

    // Majors without a driver, or with a nameless one, are not shown: the next one overwrites them.
    record *end = records.get();
    for (uint64_t major = 0; major < majors; ++major) {
        uint32_t number = 0;
        end->major = static_cast<uint32_t>(major);
        if (SysvcDecomposeDevice(service, makedev(end->major, 0), end->name, sizeof end->name, &number) &&
            end->name[0] != '\0')
            ++end;
    }
    std::sort(records.get(), end, opts.before);
    for (const record *row = records.get(); row != end; ++row)
        std::printf(" %4" PRIu32 "    %s\n", row->major, row->name);
    return SB_DONE;
}
