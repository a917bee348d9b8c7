// hosted/live/counters.cpp - statistics of interfaces, block devices, processors and virtual memory as counters.
#include "hosted/live/counters.h"

#include <algorithm>
#include <optional>
#include <span>

#include "hosted/live/texts.h"
#include "platform/protocol/device.h"

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

// One line of a table: whose it is, and the rest with the figures. The name is empty for a line without an owner.
struct row {
    std::string name;
    scanner figures;
};

row interface_row(std::string_view line) {
    const size_t colon = line.rfind(':');  // the last: the figures have none
    if (colon == line.npos) return {{}, scanner({})};
    return {std::string(trimmed(line.substr(0, colon))), scanner(line.substr(colon + 1))};
}

row plain_row(std::string_view line) {
    scanner scan(line);
    std::string name(scan.word());
    return {std::move(name), scan};
}

row block_device_row(std::string_view line) {
    scanner numbers(line);
    numbers.word();  // major and minor
    numbers.word();
    row found = plain_row(numbers.rest());
    std::replace(found.name.begin(), found.name.end(), '/', '!');
    return found;
}

// Where the statistics of a kind are.
struct table {
    file_counters::kind kind;
    std::string_view file;
    row (*parse)(std::string_view line);
    std::span<const std::string_view> counters;  // the names of the figures in a row, in their order
};
constexpr table TABLES[] = {{file_counters::kind::interface, "/net/dev", interface_row, INTERFACE_COUNTERS},
                            {file_counters::kind::block_device, "/diskstats", block_device_row, BLOCK_COUNTERS},
                            {file_counters::kind::processors, "/stat", plain_row, PROCESSOR_COUNTERS},
                            {file_counters::kind::virtual_memory, "/vmstat", plain_row, {}}};

const table &table_of(file_counters::kind kind) { return *std::ranges::find(TABLES, kind, &table::kind); }

std::vector<std::string> names_in(const file_roots &roots, file_counters::kind kind) {
    const table &from = table_of(kind);
    const std::string text = read_table(roots.proc + std::string(from.file));
    std::vector<std::string> names;
    for (scanner scan(text); !scan.done();) {
        row found = from.parse(scan.line());
        if (can_be_key(found.name)) names.push_back(std::move(found.name));
    }
    return names;
}

// The figures of the row of a name; nothing where there is none.
std::optional<scanner> figures_of(std::string_view text, row (*parse)(std::string_view), std::string_view name) {
    for (scanner scan(text); !scan.done();) {
        const row found = parse(scan.line());
        if (found.name == name) return found.figures;
    }
    return std::nullopt;
}

// The virtual memory has one counter in a row. A unit is UNIT_COUNTERS rows that have one.
uint32_t read_unit(std::string_view text, uint32_t unit, uint64_t room, std::string &bytes) {
    size_t skipped = size_t{unit} * file_counters::UNIT_COUNTERS, read = 0;
    bool any = unit == 0;
    for (scanner scan(text); !scan.done() && read < file_counters::UNIT_COUNTERS;) {
        row found = plain_row(scan.line());
        const auto value = found.figures.decimal();
        if (!value) continue;
        if (skipped != 0) {
            --skipped;
            continue;
        }
        any = true;
        clean(found.name);
        if (!append_counter(bytes, room, found.name, *value)) break;
        ++read;
    }
    return any ? 0 : uint32_t{IOERROR_NOT_FOUND};
}

}  // namespace

std::vector<std::string> interface_names(const file_roots &roots) {
    return names_in(roots, file_counters::kind::interface);
}

std::vector<std::string> block_device_names(const file_roots &roots) {
    return names_in(roots, file_counters::kind::block_device);
}

int file_counters::load() { return read_file(roots_.proc + std::string(table_of(kind_).file), text_); }

bool file_counters::exists() {
    if (kind_ == kind::processors || kind_ == kind::virtual_memory) return true;
    fresh_ = load() == 0;
    return can_be_key(name_) && figures_of(text_, table_of(kind_).parse, name_).has_value();
}

uint32_t file_counters::read(uint32_t unit, uint64_t room, std::string &bytes, uint64_t &returned) {
    const bool by_processor = kind_ == kind::processors, by_row = kind_ == kind::virtual_memory;
    if (unit != 0 && !by_processor && !by_row) return IOERROR_NOT_FOUND;
    if (const int error = fresh_ ? 0 : load()) return error_word(error);
    fresh_ = false;

    bytes.clear();
    uint32_t result = 0;
    if (by_row) {
        result = read_unit(text_, unit, room, bytes);
    } else {
        const table &from = table_of(kind_);
        auto figures = figures_of(text_, from.parse, by_processor ? name_ + std::to_string(unit) : name_);
        if (!figures) return IOERROR_NOT_FOUND;
        for (const std::string_view name : from.counters) {
            const auto value = figures->decimal();
            if (!value || !append_counter(bytes, room, name, *value)) break;
        }
    }
    returned = bytes.size();
    return result;
}

}  // namespace hosted::live
