#include "common/helpers.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "colp/colp.h"
#include "platform/device.h"
#include "platform/protocol/service.h"
#include "platform/protocol/task.h"
#include "platform/registry.h"

namespace {
constexpr std::string_view process_directory = PROCESS_DIRECTORY;

// The key of a running task: the directory, written once, and a key name of at most an iterator record's room.
class process_key {
public:
    process_key() { process_directory.copy(path_.data(), process_directory.size()); }
    const char *with(std::string_view name) {
        const size_t length = name.copy(path_.data() + process_directory.size(), REG_NAME_ROOM);
        path_[process_directory.size() + length] = '\0';
        return path_.data();
    }

private:
    std::array<char, process_directory.size() + REG_NAME_ROOM + 1> path_;
};

}  // namespace

// ---- tasks ----------------------------------------------------------------------------------------------------------

uint64_t sb_gettaskhandle(const char *name) {
    device_record *registry = GetRegDev();
    uint32_t max_binary = 0;
    if (!name || !RegCaps(registry, nullptr, &max_binary, nullptr)) return NO_OBJECT;
    // A longest value that the registry's request cannot hold makes every read below fail.
    const uint64_t room = std::min<uint64_t>(max_binary, RegBinaryRoom(registry, PROCESS_DIRECTORY));
    const sb_text content(static_cast<char *>(std::malloc(room + 1)));
    RegIterator record;
    if (!content || !RegItBegin(registry, &record, PROCESS_DIRECTORY)) return NO_OBJECT;

    uint64_t handle = NO_OBJECT;
    process_key key;
    while (record.on_entry) {
        uint32_t length = max_binary;
        if (RegGetKeyBin(registry, key.with(sb_entryname(record)), content.get(), &length)) {
            content.get()[length] = '\0';
            if (std::strcmp(content.get(), name) == 0) {
                handle = parse_task_key(sb_entryname(record));
                break;
            }
        }
        if (!RegItNext(registry, &record)) break;
    }
    RegItEnd(registry, &record);
    return handle;
}

bool sb_gettaskname(uint64_t handle, char *buffer, size_t size) {
    if (size == 0) return false;
    std::array<char, TASK_KEY_SIZE> digits;
    write_task_key(digits.data(), handle);
    const std::string_view key_name(digits.data(), digits.size());
    auto length = static_cast<uint32_t>(std::min<size_t>(size - 1, UINT32_MAX));
    const bool known = RegGetKeyBin(GetRegDev(), process_key().with(key_name), buffer, &length);
    buffer[known ? length : key_name.copy(buffer, size - 1)] = '\0';
    return known;
}

bool sb_resolvetask(const char *operand, sb_taskoperand how, uint64_t *handle) {
    switch (how) {
    case sb_taskoperand::hex: *handle = parse_task_key(operand); return true;
    case sb_taskoperand::number: *handle = std::strtoul(operand, nullptr, 0); return true;
    case sb_taskoperand::name: break;
    }
    *handle = sb_gettaskhandle(operand);
    return *handle != NO_OBJECT;
}

uint64_t sb_get_master(uint64_t handle) {
    uint64_t master = 0;
    return _SL_GetObjectInfo(handle, OBJINFO_HANDLE, &master) == RESULT_SUCCESS ? master : handle;
}

// ---- iterators ------------------------------------------------------------------------------------------------------

uint64_t sb_GetIteratorInfo64(uint64_t iterator, uint64_t *value, uint64_t low_item, uint64_t high_item) {
    uint64_t low = 0, high = 0;
    if (const uint64_t code = _SL_GetIteratorInfo(iterator, low_item, &low)) return code;
    if (const uint64_t code = _SL_GetIteratorInfo(iterator, high_item, &high)) return code;
    *value = high << 32 | low;
    return RESULT_SUCCESS;
}

uint64_t sb_iteratorcounter(uint64_t iterator, uint64_t low_item, uint64_t high_item) {
    uint64_t value = 0;
    static_cast<void>(sb_GetIteratorInfo64(iterator, &value, low_item, high_item));  // stays 0 then
    return value;
}

uint64_t sb_iteratoritem(uint64_t iterator, uint64_t item, uint64_t fallback) {
    uint64_t value = 0;
    return _SL_GetIteratorInfo(iterator, item, &value) == RESULT_SUCCESS ? value : fallback;
}

// ---- registry and devices -------------------------------------------------------------------------------------------

std::string_view sb_entryname(const RegIterator &entry) { return {entry.name, strnlen(entry.name, REG_NAME_ROOM)}; }

deque_ptr sb_readreg_content(const char *directory) {
    deque_ptr entries(deque_new(sizeof(RegIterator)));
    device_record *registry = GetRegDev();
    RegIterator record;
    if (!entries || !RegItBegin(registry, &record, directory)) return entries;
    while (record.on_entry) {
        if (!deque_push_back(entries.get(), &record)) {
            entries.reset();
            break;
        }
        if (!RegItNext(registry, &record)) break;
    }
    RegItEnd(registry, &record);
    return entries;
}

sb_text sb_joinpath(std::string_view path, std::string_view name) {
    const bool separate = !path.empty() && path.back() != '/' && path.back() != '\\';
    sb_text joined(static_cast<char *>(std::malloc(path.size() + separate + name.size() + 1)));
    if (!joined) return joined;
    char *end = joined.get() + path.copy(joined.get(), path.size());
    if (separate) *end++ = '/';
    end[name.copy(end, name.size())] = '\0';
    return joined;
}

int sb_check_class(const char *device, uint64_t device_class, uint64_t port) {
    return CheckDeviceClass(GetRegDev(), port, device, device_class);
}

const char *sb_svcls_type(uint64_t code) {
    switch (code) {
    case SVCTYPE_INTEGER: return "integer";
    case SVCTYPE_STRING: return "string";
    case SVCTYPE_WIDE_STRING: return "wide string";
    case SVCTYPE_SOCKADDR: return "sockaddr";
    default: return "??";
    }
}

// ---- tables ---------------------------------------------------------------------------------------------------------

void sb_tabledeleter::operator()(colp_table *table) const noexcept { colp_delete(table); }

int sb_addcolumn(colp_table *table, const sb_column &column) {
    const auto title_length = static_cast<int>(std::strlen(column.title));
    int err = colp_begincolumn(table, column.type);
    if (!err) err = colp_setcolumn_minwidth(table, std::max(title_length, column.min_width));
    if (!err) err = colp_setcolumn_title(table, column.title);
    if (!err) err = colp_setcolumn_titlejust(table, column.title_just);
    if (!err) err = colp_setcolumn_celljust(table, column.cell_just);
    if (!err && column.extras & SB_COLUMN_UPPER) err = colp_setcolumn_hexcase(table, COLP_HEX_UPPER);
    if (!err && column.extras & SB_COLUMN_ZEROS) err = colp_setcolumn_leadingzero(table, 1);
    if (!err && column.extras & SB_COLUMN_SUMMED) err = colp_setcolumn_summarize(table, 1);
    if (!err && column.suffix) err = colp_setcolumn_suffix(table, column.suffix);
    if (!err) err = colp_endcolumn(table);
    return err;
}

sb_table sb_newtable(const char *command, const char *style, std::span<const sb_column> columns) {
    sb_table table(colp_new());
    if (!table) {
        std::fprintf(stderr, "%s: could not allocate colprint\n", command);
        return table;
    }
    int err = style ? colp_setstylestr(table.get(), style) : 0;
    for (const sb_column &column : columns) {
        if (!err) err = sb_addcolumn(table.get(), column);
    }
    if (!err) err = colp_endheader(table.get());
    if (err) {
        table.reset();
        std::fprintf(stderr, "%s: colprint error: %s\n", command, colp_strerror(err));
    }
    return table;
}

void sb_print_summed(colp_table *table, FILE *stream) {
    constexpr int summary = COLP_PRINT_SUM_RULE | COLP_PRINT_SUM;
    colp_print_except(table, summary, stream);
    if (!colp_isfancy(table)) std::fputc('\n', stream);
    colp_print(table, summary, stream);
}

void sb_print_colp_styles(FILE *stream) {
    std::fputs("Available table styles:\n", stream);
    for (const char *const *name = colp_getstylelist(); *name; ++name) std::fprintf(stream, "  %s\n", *name);
}

void sb_print_colp_sort(FILE *stream, const char *option_name) {
    std::fprintf(stream,
                 "The format of %s is: COLUMN_INDEX [\",\" MODE]\n"
                 "The COLUMN_INDEX is the zero-based index of the subject column.\n"
                 "The optional MODE is any of the following sort modes:\n",
                 option_name);
    for (const char *const *name = colp_getsortorderlist(); *name; ++name) std::fprintf(stream, "  %s\n", *name);
}

int sb_parse_colp_sort(colp_table *table, const char *spec) {
    if (!spec) return 0;
    char *end = nullptr;
    const unsigned long index = std::strtoul(spec, &end, 0);
    if (*end != '\0' && *end != ',') {
        std::fputs("ERROR: syntax error in sort specification\n", stderr);
        return 1;
    }
    uint32_t mode = COLP_SORT_ASC;
    uint32_t column = 0;
    int err = *end == ',' ? colp_parse_sortorder(&mode, end + 1) : 0;
    if (!err) err = colp_getcolumnid(table, index, &column);
    if (!err) err = colp_sort(table, mode, column);
    if (!err) return 0;
    std::fprintf(stderr, "ERROR: %s\n", colp_strerror(err));
    return 1;
}
