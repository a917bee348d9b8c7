// bench/colp_bench.cpp - the column printer: filling, sorting and printing tables of six columns, beside a loop that
// only turns the cells of the same table into characters.
#include <benchmark/benchmark.h>

#include <charconv>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "colp/colp.h"

namespace {

constexpr uint32_t types[] = {COLP_HEX, COLP_STRING, COLP_UINT, COLP_INT, COLP_STRING, COLP_UINT};

struct row {
    uint64_t handle;
    char name[16];
    uint64_t size;
    int64_t balance;
    const char *state;
    uint64_t number;
};

// Rows with random values, the same ones in every run.
const std::vector<row> &rows(size_t count) {
    static std::vector<row> all;
    uint64_t random = 88172645463325252;
    for (size_t i = all.size(); all.size() < count; ++i) {
        random ^= random << 13;
        random ^= random >> 7;
        random ^= random << 17;
        row &added = all.emplace_back(row{random, {}, random >> 44, static_cast<int64_t>(random) >> 50, "running", i});
        std::snprintf(added.name, sizeof added.name, "task-%u", static_cast<unsigned>(random % 100000));
    }
    return all;
}

using table_owner = std::unique_ptr<colp_table, decltype(&colp_delete)>;
using stream_owner = std::unique_ptr<FILE, decltype(&std::fclose)>;

table_owner new_table(uint32_t style) {
    table_owner table(colp_new(), colp_delete);
    colp_setstyle(table.get(), style);
    for (const uint32_t type : types) {
        colp_begincolumn(table.get(), type);
        colp_setcolumn_title(table.get(), "Title");
        colp_setcolumn_minwidth(table.get(), 5);
        colp_setcolumn_celljust(table.get(), type == COLP_STRING ? COLP_JUST_LEFT : COLP_JUST_RIGHT);
        colp_setcolumn_leadingzero(table.get(), 1);
        colp_endcolumn(table.get());
    }
    colp_endheader(table.get());
    return table;
}

void fill(colp_table *table, size_t count) {
    const std::vector<row> &source = rows(count);
    for (size_t i = 0; i < count; ++i) {
        colp_beginrow(table);
        colp_addcell_hex(table, source[i].handle);
        colp_addcell_string(table, source[i].name);
        colp_addcell_uint(table, source[i].size);
        colp_addcell_int(table, source[i].balance);
        colp_addcell_string(table, source[i].state);
        colp_addcell_uint(table, source[i].number);
        colp_endrow(table);
    }
}

void sort(colp_table *table, int64_t position) {
    uint32_t id = 0;
    colp_getcolumnid(table, static_cast<uint64_t>(position), &id);
    colp_sort(table, COLP_SORT_ASC, id);
}

void count_rows(benchmark::State &state) { state.SetItemsProcessed(state.iterations() * state.range(0)); }

void colp_fill(benchmark::State &state) {
    rows(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        const table_owner table = new_table(COLP_STYLE_SIMPLE);
        fill(table.get(), static_cast<size_t>(state.range(0)));
    }
    count_rows(state);
}

void colp_fill_sort(benchmark::State &state) {
    rows(static_cast<size_t>(state.range(0)));
    for (auto _ : state) {
        const table_owner table = new_table(COLP_STYLE_SIMPLE);
        fill(table.get(), static_cast<size_t>(state.range(0)));
        sort(table.get(), state.range(1));
    }
    count_rows(state);
}

void colp_fill_sort_print(benchmark::State &state) {
    rows(static_cast<size_t>(state.range(0)));
    const stream_owner stream(std::fopen("/dev/null", "w"), std::fclose);
    for (auto _ : state) {
        const table_owner table = new_table(COLP_STYLE_SIMPLE);
        fill(table.get(), static_cast<size_t>(state.range(0)));
        sort(table.get(), state.range(1));
        colp_print_all(table.get(), stream.get());
    }
    count_rows(state);
}

void colp_print(benchmark::State &state) {
    const table_owner table = new_table(static_cast<uint32_t>(state.range(1)));
    const stream_owner stream(std::fopen("/dev/null", "w"), std::fclose);
    fill(table.get(), static_cast<size_t>(state.range(0)));
    for (auto _ : state) colp_print_all(table.get(), stream.get());
    count_rows(state);
}

// What physics demands of colp_print: the same cells in raw style, without a table.
void floor_print(benchmark::State &state) {
    const std::vector<row> &source = rows(static_cast<size_t>(state.range(0)));
    const stream_owner stream(std::fopen("/dev/null", "w"), std::fclose);
    const auto put_text = [](char *to, const char *text) { return stpcpy(to, text); };
    for (auto _ : state) {
        char buffer[32 << 10];
        char *const end = buffer + sizeof buffer;
        char *to = buffer;
        for (int64_t i = 0; i < state.range(0); ++i) {
            const row &cells = source[static_cast<size_t>(i)];
            if (end - to < 128) {
                std::fwrite(buffer, 1, static_cast<size_t>(to - buffer), stream.get());
                to = buffer;
            }
            to = std::to_chars(put_text(to, "0x"), end, cells.handle, 16).ptr;
            to = put_text(put_text(put_text(to, " "), cells.name), " ");
            to = std::to_chars(to, end, cells.size).ptr;
            to = std::to_chars(put_text(to, " "), end, cells.balance).ptr;
            to = put_text(put_text(put_text(to, " "), cells.state), " ");
            to = put_text(std::to_chars(to, end, cells.number).ptr, "\n");
        }
        std::fwrite(buffer, 1, static_cast<size_t>(to - buffer), stream.get());
        std::fflush(stream.get());
    }
    count_rows(state);
}

constexpr int64_t few = 1000, many = 1'000'000;

BENCHMARK(colp_fill)->Arg(few)->Arg(many)->Unit(benchmark::kMillisecond);
BENCHMARK(colp_fill_sort)->ArgsProduct({{few, many / 10, many}, {1, 2}})->Unit(benchmark::kMillisecond);
BENCHMARK(colp_fill_sort_print)->Args({many, 1})->Args({many, 2})->Unit(benchmark::kMillisecond);
BENCHMARK(colp_print)
    ->ArgsProduct({{few, many}, {COLP_STYLE_SIMPLE, COLP_STYLE_RAW, COLP_STYLE_FANCYW}})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(floor_print)->Arg(few)->Arg(many)->Unit(benchmark::kMillisecond);
}  // namespace
