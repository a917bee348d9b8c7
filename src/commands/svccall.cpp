// commands/svccall.cpp - call one service of a service device with typed arguments and print its typed results.
#include <algorithm>
#include <bit>
#include <cinttypes>
#include <climits>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <new>
#include <span>
#include <string>
#include <utility>

#include "commands/commands.h"
#include "common/commandline.h"
#include "common/service.h"
#include "common/text.h"

namespace {

constexpr long long DEFAULT_POOL = 2048;  // bytes
constexpr long long MIN_POOL = 128;
constexpr long long MAX_POOL = 65536;

// The request holds the call, the description of the service, and the arguments' data.
constexpr uint64_t CALL_OFFSET = IOREQ_INLINE;
constexpr uint64_t INFO_OFFSET = CALL_OFFSET + sizeof(svc_call_block);
constexpr uint64_t POOL_OFFSET = INFO_OFFSET + sizeof(svc_info_block) + SVC_MAX_RESULTS * sizeof(svc_descriptor);
static_assert(INFO_OFFSET == 376);
static_assert(POOL_OFFSET == 744);

constexpr uint64_t MEMO_STEP =
    4096;  // memory ends at multiples of it; up to the next one a text is read without asking the kernel

using wide_char = uint32_t;  // as services have it

constexpr char usage[] = R"(Usage: svccall DEVNAME SVCNAME [KEYVAL]...
Invoke a servicecall and print result to stdout.

A KEYVAL has the format of "key=value".

  -d         print integers in decimal form (default)
  -h         print integers in hexadecimal form
  -p         display port number in socket addresses%s
  -P         hide port number in socket addresses%s
  -s NUM     specify service call pool size (default: %lld)
             (min: %lld, max: %lld)
)";

struct options {
    bool hexadecimal = false;
    bool show_ports = true;
    uint64_t pool_size = DEFAULT_POOL;
};

constexpr sb_option<options> option_table[] = {
    sets<&options::hexadecimal, false>('d'),
    sets<&options::hexadecimal>('h'),
    sets<&options::show_ports>('p'),
    sets<&options::show_ports, false>('P'),
    takes_number<&options::pool_size, MIN_POOL, MAX_POOL>('s'),
};
constexpr sb_commandline command_line = {
    .command = "svccall",
    .print_usage = [] { std::printf(usage, " (default)", "", DEFAULT_POOL, MIN_POOL, MAX_POOL); },
    .operands = {.min = 2, .words = {sb_word::device, sb_word::service, sb_word::keyval}},
    .bad_argument = {"missing or invalid operand of -%", SB_SETUP},
};

void unknown_type(const svc_descriptor &item) {
    sb_say(command_line, "\"%.*s\" has an unknown argument type of 0x%x",
           sb_service_namelen(item.name, sizeof item.name), item.name, static_cast<unsigned>(item.type));
}

// Wide values go by the user's encoding where that is UTF-8. Nothing else depends on a locale, and most runs need none.
void use_encoding() {
    static bool done = false;
    if (std::exchange(done, true)) return;
    const char *named = nullptr;
    for (const char *variable : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        named = std::getenv(variable);
        if (named != nullptr && *named != '\0') break;
    }
    if (named == nullptr) return;
    const char *codeset = std::strchr(named, '.');
    if (codeset == nullptr) return;
    if (strncasecmp(codeset, ".UTF-8", 6) != 0 && strncasecmp(codeset, ".UTF8", 5) != 0) return;
    if (std::setlocale(LC_CTYPE, "") == nullptr) std::setlocale(LC_CTYPE, "C.UTF-8");  // named, but not installed
}

// ---- arguments ------------------------------------------------------------------------------------------------------

// The pool that arguments' data is taken from.
struct pool {
    uint64_t cursor;  // address of its next free byte
    uint64_t left;    // bytes
    uint64_t end;     // address after the request

    bool take(uint64_t bytes) {
        if (bytes > left) return false;
        cursor += bytes;
        left -= bytes;
        return true;
    }
};

uint64_t round_up(uint64_t address, uint64_t step) { return (address + step - 1) / step * step; }

// Copies into the request, as far as it reaches.
void store(const pool &from, uint64_t address, const void *bytes, uint64_t size) {
    const uint64_t room = address < from.end ? from.end - address : 0;
    std::memcpy(reinterpret_cast<void *>(address), bytes, std::min(size, room));
}

bool put_string(pool &taken, const char *text, uint64_t &word) {
    const size_t size = std::strlen(text) + 1;
    word = taken.cursor;
    if (!taken.take(size)) return false;
    store(taken, word, text, size);
    return true;
}

// The text lies at an even address. Deliberate: the pool is not charged for the padding, and for the terminator only
// one byte.
bool put_wide_string(pool &taken, const char *text, uint64_t &word) {
    use_encoding();
    const size_t count = std::mbstowcs(nullptr, text, 0);
    if (count == static_cast<size_t>(-1)) return false;
    const std::unique_ptr<wchar_t, sb_freer> wide(static_cast<wchar_t *>(std::calloc(count + 1, sizeof(wchar_t))));
    if (!wide) return false;
    static_assert(sizeof(wchar_t) == sizeof(wide_char));
    std::mbstowcs(wide.get(), text, count + 1);
    word = round_up(taken.cursor, 2);
    if (!taken.take(sizeof(wide_char) * count + 1)) return false;
    store(taken, word, wide.get(), sizeof(wide_char) * (count + 1));
    return true;
}

uint16_t network_order(uint16_t value) {
    return std::endian::native == std::endian::little ? static_cast<uint16_t>(value << 8 | value >> 8) : value;
}

uint32_t network_order(uint32_t value) {
    return std::endian::native == std::endian::little ? __builtin_bswap32(value) : value;
}

// a.b.c.d, and a port after ':'; any other text that follows is ignored.
bool put_address(pool &taken, const char *text, uint64_t &word) {
    word = round_up(taken.cursor, 4);
    if (!taken.take(SVC_SOCKADDR_ROOM)) return false;
    uint32_t address = 0;
    for (int part = 0; part < 4; ++part) {
        char *end = nullptr;
        address = address << 8 | static_cast<uint32_t>(std::strtoul(text, &end, 10));
        if (part < 3 && *end != '.') return false;
        text = part < 3 ? end + 1 : end;
    }
    svc_sockaddr record{};
    record.family = SVC_FAMILY_INET;
    record.address = network_order(address);
    if (*text == ':') record.port = network_order(static_cast<uint16_t>(std::strtol(text + 1, nullptr, 10)));
    store(taken, word, &record, sizeof record);
    return true;
}

bool put_argument(pool &taken, const svc_descriptor &item, const char *text, uint64_t &word) {
    switch (item.type) {
    case SVCTYPE_INTEGER: {
        char *end = nullptr;
        word = static_cast<uint64_t>(std::strtoll(text, &end, 0));
        return *end == '\0';
    }
    case SVCTYPE_STRING: return put_string(taken, text, word);
    case SVCTYPE_WIDE_STRING: return put_wide_string(taken, text, word);
    case SVCTYPE_SOCKADDR: return put_address(taken, text, word);
    default: unknown_type(item); return false;
    }
}

// The value of the first KEYVAL with an item's name as key, or null.
const char *find_value(const svc_descriptor &item, char **keyvals, int count) {
    const auto length = static_cast<size_t>(sb_service_namelen(item.name, sizeof item.name));
    for (int i = 0; i < count; ++i) {
        if (std::strncmp(keyvals[i], item.name, length) == 0 && keyvals[i][length] == '=')
            return keyvals[i] + length + 1;
    }
    return nullptr;
}

// A value that does not convert, or does not fit the pool, ends the command without a message.
bool fill_call(const sb_service &service, const svc_info_block &info, std::span<const svc_descriptor> results,
               const char *called, char **keyvals, int count, const options &opts) {
    auto *call = sb_service_block<svc_call_block>(service, CALL_OFFSET);
    std::memset(call, 0, sizeof *call);
    std::strcpy(call->name, called);  // a longer one fails at the description
    call->arg_count = info.arg_count;
    call->result_count = info.result_count;
    const auto base = reinterpret_cast<uint64_t>(service.request);
    pool taken{base + POOL_OFFSET, opts.pool_size, base + service.size};
    bool good = true;
    for (uint64_t i = 0; good && i < info.arg_count; ++i) {
        const svc_descriptor &item = info.args[i];
        call->args[i].type = item.type;
        const char *value = find_value(item, keyvals, count);
        if (value == nullptr) {
            sb_say(command_line, "key \"%.*s\" not found in KEYVALs", sb_service_namelen(item.name, sizeof item.name),
                   item.name);
            return false;
        }
        uint64_t word = 0;  // not in the request, where the server could turn it into another address
        good = put_argument(taken, item, value, word);
        call->args[i].value = word;
    }
    call->pool_cursor = taken.cursor;
    call->pool_left = taken.left;
    for (size_t i = 0; i < results.size(); ++i) call->results[i].type = results[i].type;
    return good;
}

// ---- results --------------------------------------------------------------------------------------------------------

// The bytes at a result's address: up to the end of the request where they lie in it, else as far as the kernel knows
// the memory.
class result_bytes {
public:
    result_bytes(const sb_service &service, uint64_t address) : address_(address) {
        const auto base = reinterpret_cast<uint64_t>(service.request);
        const bool own = address >= base && address - base < service.size;
        if (own) end_ = base + service.size;
        present_ = address != 0 && is_known(address);
    }

    bool present() const { return present_; }

    // Copies the next bytes; false where there are no more. Outside the request it may read what lies between a
    // server's blocks, since the kernel is asked once a page; a sanitizer that knows the blocks must not forbid that.
    [[gnu::no_sanitize_address]] bool next(void *bytes, uint64_t size) {
        auto *out = static_cast<unsigned char *>(bytes);
        for (uint64_t i = 0; i < size; ++i) {
            const uint64_t at = address_ + read_;
            if (at == end_ || (read_ != 0 && at % MEMO_STEP == 0 && !is_known(at))) return false;
            out[i] = *reinterpret_cast<const unsigned char *>(at);
            ++read_;
        }
        return true;
    }

private:
    static bool is_known(uint64_t address) { return _SL_GetAddressMemo(0, address, ADDRESS_MEMO_ANY) != NO_OBJECT; }

    uint64_t address_;
    uint64_t end_ = 0;  // address after the last byte; 0: unknown
    uint64_t read_ = 0;
    bool present_ = false;
};

void print_string(result_bytes text) {
    if (!text.present()) {
        std::puts("(null)");
        return;
    }
    for (char c = '\0'; text.next(&c, sizeof c) && c != '\0';) std::putchar(c);
    std::putchar('\n');
}

// What cannot be shown in the user's encoding is left out; the line ends all the same.
void print_wide_string(result_bytes text) {
    if (!text.present()) {
        std::puts("(null)");
        return;
    }
    use_encoding();
    std::string shown;
    std::mbstate_t state{};
    for (wide_char c = 0; text.next(&c, sizeof c) && c != 0;) {
        char bytes[16];
        static_assert(sizeof bytes >= MB_LEN_MAX);
        const size_t length = std::wcrtomb(bytes, static_cast<wchar_t>(c), &state);
        if (length == static_cast<size_t>(-1)) {
            shown.clear();
            break;
        }
        try {
            shown.append(bytes, length);
        } catch (const std::bad_alloc &) {
            sb_say(command_line, "out of memory");
            shown.clear();
            break;
        }
    }
    std::printf("%s\n", shown.c_str());
}

void print_address(result_bytes bytes, bool show_port) {
    svc_sockaddr record{};
    if (bytes.present() && !bytes.next(&record, sizeof record)) record = {};
    if (record.family != SVC_FAMILY_INET) {
        std::printf("[unknown family: 0x%X]\n", record.family);
        return;
    }
    const uint32_t address = network_order(record.address);
    std::printf("inet %u.%u.%u.%u", address >> 24, address >> 16 & 0xFF, address >> 8 & 0xFF, address & 0xFF);
    if (show_port) std::printf(":%u", network_order(record.port));
    std::putchar('\n');
}

void print_result(const sb_service &service, const svc_descriptor &item, uint64_t word, const options &opts) {
    if (item.type < SVCTYPE_INTEGER || item.type > SVCTYPE_SOCKADDR) {
        unknown_type(item);
        return;
    }
    std::printf("%.*s: ", sb_service_namelen(item.name, sizeof item.name), item.name);
    switch (item.type) {
    case SVCTYPE_INTEGER: std::printf(opts.hexadecimal ? "0x%" PRIx64 "\n" : "%" PRIi64 "\n", word); break;
    case SVCTYPE_STRING: print_string({service, word}); break;
    case SVCTYPE_WIDE_STRING: print_wide_string({service, word}); break;
    default: print_address({service, word}, opts.show_ports); break;
    }
}

// The description is read once, before the call: the server can write to the request at any time.
int call_service(const sb_service &service, const char *called, char **keyvals, int count, const options &opts) {
    svc_info_block info;
    if (!sb_service_describe(service, called, INFO_OFFSET, SVC_NAME_SIZE, SVC_MAX_ARGS, &info)) return SB_FAILED;
    const uint64_t result_count = std::min<uint64_t>(info.result_count, SVC_MAX_RESULTS);
    svc_descriptor results[SVC_MAX_RESULTS];
    std::copy_n(sb_service_results(service, INFO_OFFSET), result_count, results);

    if (!fill_call(service, info, {results, result_count}, called, keyvals, count, opts)) return SB_FAILED;
    if (sb_service_perform(service, SVCCMD_CALL, CALL_OFFSET) != IO_SUCCESS)
        return sb_fail(command_line, SB_FAILED, "%s: \"%s\": service call failed, error code: 0x%x", service.name,
                       called, service.request->error);
    const auto *call = sb_service_block<svc_call_block>(service, CALL_OFFSET);
    for (uint64_t i = 0; i < result_count; ++i) print_result(service, results[i], call->results[i].value, opts);
    return SB_DONE;
}

}  // namespace

constexpr sb_description sb_svccall_line = sb_describe(command_line, option_table);

// A run that fails leaves device and port to the system.
int sb_svccall(int argc, char **argv) {
    options opts;
    if (const auto status = sb_parse(command_line, option_table, argc, argv, opts)) return *status;

    const uint64_t reply_port = CreateSharedMsgPort(0, 0, 0, RIGHTS_REPLY);
    if (reply_port == NO_OBJECT) return sb_fail(command_line, SB_SETUP, "failed to create MsgPort.");
    sb_service service{command_line, argv[0], reply_port, POOL_OFFSET + opts.pool_size};
    if (!sb_service_open(service)) return SB_FAILED;
    if (const int status = call_service(service, argv[1], argv + 2, argc - 2, opts)) return status;
    CloseDevice(service.device);
    DeleteMsgPort(reply_port);
    return SB_DONE;
}
