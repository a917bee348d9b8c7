// commands/date.cpp - print the system's time or the real-time clock's, or set the real-time clock.
#include <sys/time.h>

#include <algorithm>
#include <cinttypes>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <optional>

#include "commands/commands.h"
#include "common/commandline.h"
#include "common/text.h"
#include "platform/device.h"
#include "platform/protocol/rtc.h"
#include "platform/registry.h"

namespace {

constexpr char SEPARATORS[] = "-,.:";
constexpr size_t SHORTEST_PATH = 2;
constexpr int FIRST_YEAR = 1900;  // of the calendar record

// Deliberate: names the registry path option -P, which is -p.
constexpr char usage[] = R"(Usage: date [OPTION]... [-D NAME] [-P PATH]
  or:  date -S [OPTION]... [-D NAME] [-P PATH] DATE TIME
Print or set date/time.
Date format: yyyy*mm*dd where asterisk ('*') is any of: '%s'.
Time format: hh*mm*ss[*mmm] where asterisk ('*') is any of: '%s'.

    -c    display values in compact mode
    -d    skip date from display and modification
    -D    explicitly set RTC device name, overrides -P
    -e    print/set epoch time (since 1970)
    -P    set RTC registry path (default: "%s")
    -R    read date from the RTC device (only for UTC query)
    -S    set date/time
    -t    skip time from display and modification
    -u    print/set UTC time
    -v    verbose mode
)";

struct options {
    bool compact = false;
    bool show_date = true;
    bool show_time = true;
    bool epoch = false;
    bool from_rtc = false;
    bool set = false;
    bool utc = false;
    bool verbose = false;
    const char *device = nullptr;
    const char *path = RTC_DIRECTORY;
};

// The real-time clock, once it is open.
struct rtc {
    device_record *device = nullptr;
    rtc_request *request = nullptr;
};

constexpr sb_option<options> option_table[] = {
    sets<&options::compact>('c'),
    sets<&options::show_date, false>('d'),
    takes_text<&options::device, SB_NOT_EMPTY>('D', sb_word::device),
    sets<&options::epoch>('e'),
    takes_text<&options::path, SB_NOT_EMPTY>('p', sb_word::registry_path),
    sets<&options::from_rtc>('R'),
    sets<&options::set>('S'),
    sets<&options::show_time, false>('t'),
    sets<&options::utc>('u'),
    sets<&options::verbose>('v'),
};
constexpr sb_commandline command_line = {
    .command = "date",
    .print_usage = [] { std::printf(usage, SEPARATORS, SEPARATORS, RTC_DIRECTORY); },
    .operands = {.words = {sb_word::date, sb_word::time}},
    .bad_argument = SB_SHOW_USAGE,
    .speech = sb_speech::on_stdout,
};

int fail_setup(const char *what) {
    sb_say(command_line, "%s", what);
    return SB_SETUP;
}

// ---- operands -------------------------------------------------------------------------------------------------------

// A number of decimal digits within bounds; the text moves past it.
bool parse_number(const char *&text, unsigned min, unsigned max, int &value) {
    const char *start = text;
    uint64_t number = 0;
    for (; *text >= '0' && *text <= '9'; ++text) {
        if (number > max) return false;
        number = number * 10 + static_cast<unsigned>(*text - '0');
    }
    if (text == start || number < min || number > max) return false;
    value = static_cast<int>(number);
    return true;
}

bool parse_separator(const char *&text) {
    if (*text == '\0' || std::strchr(SEPARATORS, *text) == nullptr) return false;
    ++text;
    return true;
}

// yyyy*mm*dd; the day is not checked against the month's length.
bool sb_date_parse_date(const char *text, std::tm *tm) {
    int year = 0, month = 0, day = 0;
    if (!parse_number(text, FIRST_YEAR, INT_MAX, year) || !parse_separator(text) || !parse_number(text, 1, 12, month) ||
        !parse_separator(text) || !parse_number(text, 1, 31, day) || *text != '\0')
        return false;
    tm->tm_year = year - FIRST_YEAR;
    tm->tm_mon = month - 1;
    tm->tm_mday = day;
    return true;
}

// hh*mm*ss[*mmm]; the last is a plain number of milliseconds.
bool sb_date_parse_time(const char *text, std::tm *tm, unsigned *milliseconds) {
    int hour = 0, minute = 0, second = 0, millisecond = static_cast<int>(*milliseconds);
    if (!parse_number(text, 0, 23, hour) || !parse_separator(text) || !parse_number(text, 0, 59, minute) ||
        !parse_separator(text) || !parse_number(text, 0, 59, second))
        return false;
    if (*text != '\0' && (!parse_separator(text) || !parse_number(text, 0, 999, millisecond) || *text != '\0'))
        return false;
    tm->tm_hour = hour;
    tm->tm_min = minute;
    tm->tm_sec = second;
    *milliseconds = static_cast<unsigned>(millisecond);
    return true;
}

// Deliberate: on the other stream.
int fail_format(const char *what) {
    std::fprintf(stderr, "date: bad %s format\n", what);
    return SB_FAILED;
}

// Overwrites the fields that the operands name.
//   returns  the status that ends the run, or nothing
std::optional<int> take_operands(int argc, char **argv, const options &opts, std::tm &tm, unsigned &milliseconds) {
    const bool both = !opts.epoch && opts.show_date && opts.show_time;
    if (argc != (both ? 2 : 1)) return sb_showusage(command_line);
    if (opts.epoch) {
        const auto count = std::strtoull(argv[0], nullptr, 10);
        if (opts.verbose) sb_say(command_line, "parse epoch time: %llu", count);
        const auto seconds = static_cast<std::time_t>(count);
        if ((opts.utc ? gmtime_r(&seconds, &tm) : localtime_r(&seconds, &tm)) == nullptr) return fail_format("date");
        return std::nullopt;
    }
    if (opts.show_date && !sb_date_parse_date(argv[0], &tm)) return fail_format("date");
    if (opts.show_time && !sb_date_parse_time(argv[argc - 1], &tm, &milliseconds)) return fail_format("time");
    return std::nullopt;
}

// ---- the clocks -----------------------------------------------------------------------------------------------------

void sb_date_get_time(std::tm *tm, unsigned *milliseconds, bool utc) {
    timeval now{};
    gettimeofday(&now, nullptr);
    *milliseconds = static_cast<unsigned>(now.tv_usec / 1000);
    utc ? gmtime_r(&now.tv_sec, tm) : localtime_r(&now.tv_sec, tm);
}

// Reads the clock's device name and unit from the registry.
//   name    out: NUL-terminated
//   returns SB_DONE, or SB_SETUP after a message
int read_registry(const options &opts, sb_text &name, int32_t &unit) {
    if (opts.verbose) sb_say(command_line, "reading RTC device name from \"%s\"", opts.path);
    const size_t length = std::strlen(opts.path);
    const size_t key_size = length + 1 + sizeof RTC_DEVICE_KEY;  // the longer of the two, with a '/' between
    const sb_text key(static_cast<char *>(std::malloc(key_size)));
    if (!key || length < SHORTEST_PATH) return fail_setup("out of memory");  // Deliberate: a short path too
    const char *separator = opts.path[length - 1] == '/' ? "" : "/";

    if (opts.verbose) sb_say(command_line, "get maximal binary length");
    uint32_t name_room = 0;
    if (!RegCaps(GetRegDev(), nullptr, &name_room, nullptr)) return fail_setup("failed to read maximal binary length");
    // A longest value that the registry's request cannot hold makes the read below fail.
    const uint64_t room = std::min<uint64_t>(name_room, RegBinaryRoom(GetRegDev(), opts.path));
    name.reset(static_cast<char *>(std::malloc(room + 1)));
    if (!name) return fail_setup("out of memory");

    std::snprintf(key.get(), key_size, "%s%s%s", opts.path, separator, RTC_DEVICE_KEY);
    if (opts.verbose) sb_say(command_line, "read \"%s\" registry binary key", key.get());
    if (!RegGetKeyBin(GetRegDev(), key.get(), name.get(), &name_room)) return fail_setup("failed to read registry key");
    name.get()[name_room] = '\0';

    std::snprintf(key.get(), key_size, "%s%s%s", opts.path, separator, RTC_UNIT_KEY);
    if (opts.verbose) sb_say(command_line, "read \"%s\" registry binary key", key.get());
    uint64_t value = 0;
    if (!RegGetKeyInt(GetRegDev(), key.get(), &value)) return fail_setup("failed to read registry key");
    unit = static_cast<int32_t>(value);
    if (static_cast<int64_t>(value) != unit) return fail_setup("unit value is out of range");
    return SB_DONE;
}

// Opens the real-time clock, once.
//   returns SB_DONE, or SB_SETUP after a message
int sb_date_open_rtc(rtc &clock, const options &opts) {
    if (clock.device != nullptr) return SB_DONE;
    if (opts.verbose) sb_say(command_line, "create MsgPort");
    const uint64_t port = _SL_CreateMsgPort(0, 0);
    if (port == NO_OBJECT) return fail_setup("failed to create MsgPort");
    if (opts.verbose) sb_say(command_line, "create MsgPort handle");
    const uint64_t reply_port = _SL_CreateHandle(0, port, RIGHTS_QUERY_REPLY);
    if (reply_port == NO_OBJECT) return fail_setup("failed to create MsgPort handle");

    sb_text registered;
    int32_t unit = 0;
    if (opts.device == nullptr) {
        if (const int status = read_registry(opts, registered, unit)) return status;
    }
    const char *name = opts.device != nullptr ? opts.device : registered.get();
    if (opts.verbose) sb_say(command_line, "open RTC device: \"%s\"", name);
    clock.device = OpenDevice(name);
    if (clock.device == nullptr) return fail_setup("failed to open device");
    if (opts.verbose) sb_say(command_line, "create IOreq");
    IOreq *request =
        CreateIOreq(clock.device, static_cast<uint32_t>(unit), IOREQ_FLAGS_DEFAULT, sizeof(rtc_request), reply_port);
    if (request == nullptr) return fail_setup("failed to create IOreq");
    clock.request = reinterpret_cast<rtc_request *>(request);
    request->payload = reinterpret_cast<uint64_t>(&clock.request->time);
    if (opts.verbose) sb_say(command_line, "device opened successfully");
    return SB_DONE;
}

// Deliberate: a failed read prints the message of a failed set, and the record is used as it is.
void read_rtc(const rtc &clock, const options &opts, std::tm &tm, unsigned &milliseconds) {
    clock.request->header.command = RTCCMD_READ;
    if (SyncIO(&clock.request->header) != IO_SUCCESS) {
        sb_say(command_line, "failed to set date/time");
    } else if (opts.verbose) {
        sb_say(command_line, "read date was successful");
    }
    const rtc_time &time = clock.request->time;
    tm.tm_year = static_cast<int>(time.year - FIRST_YEAR);
    tm.tm_mon = time.month - 1;
    tm.tm_mday = time.day;
    tm.tm_hour = time.hour;
    tm.tm_min = time.minute;
    tm.tm_sec = time.second;
    milliseconds = time.millisecond;
}

// Sets the clock to the fields of the chosen zone, unconverted.
void set_rtc(const rtc &clock, const options &opts, const std::tm &tm, unsigned milliseconds) {
    rtc_time &time = clock.request->time;
    time.year = static_cast<uint32_t>(tm.tm_year) + FIRST_YEAR;
    time.month = static_cast<uint16_t>(tm.tm_mon + 1);
    time.day = static_cast<uint16_t>(tm.tm_mday);
    time.hour = static_cast<uint16_t>(tm.tm_hour);
    time.minute = static_cast<uint16_t>(tm.tm_min);
    time.second = static_cast<uint16_t>(tm.tm_sec);
    time.millisecond = static_cast<uint16_t>(milliseconds);
    if (opts.verbose) {
        sb_say(command_line, "set %s date to %u-%02u-%02u %02u:%02u:%02u.%u", opts.utc ? "UTC" : "local", time.year,
               time.month, time.day, time.hour, time.minute, time.second, milliseconds);
    }
    clock.request->header.command = RTCCMD_SET;
    if (SyncIO(&clock.request->header) != IO_SUCCESS) {
        std::fputs("date: failed to set date/time\n", stderr);
    } else if (opts.verbose) {
        sb_say(command_line, "successful");
    }
}

void display(const options &opts, std::tm tm, unsigned milliseconds) {
    if (opts.epoch) {
        // Deliberate: reads the fields as UTC, also those of a local time.
        const auto seconds = static_cast<unsigned long long>(timegm(&tm));
        std::printf(opts.compact ? "%llu\n" : "Epoch time: %llu seconds\n", seconds);
        return;
    }
    if (opts.show_date) {
        std::printf("%u-%02u-%02u", static_cast<unsigned>(tm.tm_year) + FIRST_YEAR,
                    static_cast<unsigned>(tm.tm_mon) + 1, static_cast<unsigned>(tm.tm_mday));
    }
    if (opts.show_date && opts.show_time) std::putchar(' ');
    if (opts.show_time) {
        std::printf("%02u:%02u:%02u.%03u", static_cast<unsigned>(tm.tm_hour), static_cast<unsigned>(tm.tm_min),
                    static_cast<unsigned>(tm.tm_sec), milliseconds);
    }
    std::putchar('\n');
}

}  // namespace

constexpr sb_description sb_date_line = sb_describe(command_line, option_table);

int sb_date(int argc, char **argv) {
    options opts;
    if (const auto status = sb_parse(command_line, option_table, argc, argv, opts)) return *status;
    const bool shows_nothing = !opts.show_date && !opts.show_time && !opts.epoch;
    if ((opts.set && argc == 0) || shows_nothing) return sb_showusage(command_line);

    rtc clock;
    std::tm tm{};
    unsigned milliseconds = 0;
    if (opts.utc && opts.from_rtc) {
        if (const int status = sb_date_open_rtc(clock, opts)) return status;
        read_rtc(clock, opts, tm, milliseconds);
    } else {
        sb_date_get_time(&tm, &milliseconds, opts.utc);
    }
    if (opts.set) {
        if (const auto status = take_operands(argc, argv, opts, tm, milliseconds)) {
            CloseDevice(clock.device);
            return *status;
        }
        if (const int status = sb_date_open_rtc(clock, opts)) return status;
        set_rtc(clock, opts, tm, milliseconds);
    } else {
        display(opts, tm, milliseconds);
    }
    CloseDevice(clock.device);  // none was opened: ignored
    return SB_DONE;
}
