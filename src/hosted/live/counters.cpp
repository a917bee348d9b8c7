// counters.cpp - statistics of interfaces, block devices, processors and virtual memory as counters.
#include <algorithm>
#include <cerrno>
#include <optional>
#include <span>

#include "hosted/live/devices.h"
#include "platform/protocol/device.h"
#include "platform/protocol/registry.h"

namespace hosted::live {

namespace {

constexpr std::string_view INTERFACE_COUNTERS[] = {
    "rx_bytes", "rx_packets", "rx_errors", "rx_dropped", "rx_fifo", "rx_frame",      "rx_compressed", "rx_multicast",
    "tx_bytes", "tx_packets", "tx_errors", "tx_dropped", "tx_fifo", "tx_collisions", "tx_carrier",    "tx_compressed"};
constexpr std::string_view BLOCK_COUNTERS[] = {
    "reads",           "reads_merged",      "sectors_read", "read_ms", "writes",         "writes_merged",
    "sectors_written", "write_ms",          "in_flight",    "io_ms",   "weighted_io_ms", "discards",
    "discards_merged", "sectors_discarded", "discard_ms",   "flushes", "flush_ms"};
// In ticks of the system's clock.
constexpr std::string_view PROCESSOR_COUNTERS[] = {"user", "nice",    "system", "idle",  "iowait",
                                                   "irq",  "softirq", "steal",  "guest", "guest_nice"};

// One line of a table: whose it is, and the rest with the figures. An empty name for a line that is no one's.
struct row {
    std::string name;
    std::string_view figures;
};

row interface_row(std::string_view line) {
    const size_t colon = line.rfind(':');  // the last: the figures have none
    if (colon == line.npos) return {};
    return {std::string(trimmed(line.substr(0, colon))), line.substr(colon + 1)};
}

row block_device_row(std::string_view line) {
    next_field(line);  // major and minor number
    next_field(line);
    std::string name(next_field(line));
    std::replace(name.begin(), name.end(), '/', '!');
    return {std::move(name), line};
}

row plain_row(std::string_view line) {
    const std::string_view name = next_field(line);
    return {std::string(name), line};
}

// Where the statistics of a kind stand.
struct table {
    std::string_view file;
    row (*parse)(std::string_view line);
    std::span<const std::string_view> counters;  // the names of the figures in a row, in their order
};
constexpr table TABLES[] = {  // by file_counters::kind
    {"/net/dev", interface_row, INTERFACE_COUNTERS},
    {"/diskstats", block_device_row, BLOCK_COUNTERS},
    {"/stat", plain_row, PROCESSOR_COUNTERS},
    {"/vmstat", plain_row, {}}};

std::vector<std::string> names_in(const file_roots &roots, file_counters::kind kind) {
    const table &from = TABLES[static_cast<size_t>(kind)];
    std::string text;
    read_file(roots.proc + std::string(from.file), text);
    std::vector<std::string> names;
    for (std::string_view rest = text; !rest.empty();) {
        row found = from.parse(next_line(rest));
        if (can_be_key(found.name)) names.push_back(std::move(found.name));
    }
    return names;
}

// The figures of the row of a name; nothing where there is none.
std::optional<std::string_view> figures_of(std::string_view text, row (*parse)(std::string_view),
                                           std::string_view name) {
    while (!text.empty()) {
        const row found = parse(next_line(text));
        if (found.name == name) return found.figures;
    }
    return std::nullopt;
}

}  // namespace

bool can_be_key(std::string_view name) {
    const auto fits = [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte >= ' ' && byte != 0x7F;
    };
    return reg_is_name(name) && std::all_of(name.begin(), name.end(), fits);
}

std::vector<std::string> interface_names(const file_roots &roots) {
    return names_in(roots, file_counters::kind::interface);
}

std::vector<std::string> block_device_names(const file_roots &roots) {
    return names_in(roots, file_counters::kind::block_device);
}

bool file_counters::load() {
    return read_file(roots_.proc + std::string(TABLES[static_cast<size_t>(kind_)].file), text_);
}

bool file_counters::exists() {
    if (kind_ == kind::processors || kind_ == kind::virtual_memory) return true;
    fresh_ = load();
    return can_be_key(name_) && figures_of(text_, TABLES[static_cast<size_t>(kind_)].parse, name_).has_value();
}

uint32_t file_counters::read(uint32_t unit, uint64_t room, std::string &bytes, uint64_t &returned) {
    const bool by_processor = kind_ == kind::processors;
    if (unit != 0 && !by_processor) return IOERROR_NOT_FOUND;
    if (!fresh_ && !load()) return error_word(errno);
    fresh_ = false;

    const table &from = TABLES[static_cast<size_t>(kind_)];
    bytes.clear();
    if (kind_ == kind::virtual_memory) {  // a counter in each row
        for (std::string_view rest = text_; !rest.empty();) {
            row found = from.parse(next_line(rest));
            const auto value = next_number(found.figures);
            if (value && !append_counter(bytes, room, found.name, *value)) break;
        }
    } else {
        const auto figures = figures_of(text_, from.parse, by_processor ? name_ + std::to_string(unit) : name_);
        if (!figures) return IOERROR_NOT_FOUND;
        std::string_view rest = *figures;
        for (const std::string_view name : from.counters) {
            const auto value = next_number(rest);
            if (!value || !append_counter(bytes, room, name, *value)) break;
        }
    }
    returned = bytes.size();
    return 0;
}

}  // namespace hosted::live
