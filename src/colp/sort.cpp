// colp/sort.cpp - sorting the rows of a table by one column.
#include <algorithm>
#include <cstring>
#include <utility>

#include "colp/records.h"

namespace {

int cell_cmp_uint(const colp_cell *a, const colp_cell *b) { return (a->number > b->number) - (a->number < b->number); }

int cell_cmp_int(const colp_cell *a, const colp_cell *b) {
    const auto x = static_cast<int64_t>(a->number);
    const auto y = static_cast<int64_t>(b->number);
    return (x > y) - (x < y);
}

int cell_cmp_str(const colp_cell *a, const colp_cell *b) { return cell_text(a).compare(cell_text(b)); }

int cell_cmp_str_len(const colp_cell *a, const colp_cell *b) {
    const uint64_t x = cell_text(a).size();
    const uint64_t y = cell_text(b).size();
    if (x != y) return x < y ? -1 : 1;
    return cell_cmp_str(a, b);
}

using wrapper = int (*)(const colp_cell *, const colp_cell *, colp_cell_cmp);

int cmp_wrap_asc(const colp_cell *a, const colp_cell *b, colp_cell_cmp compare) {
    if (a != nullptr && b != nullptr) return compare(a, b);
    return (a != nullptr) - (b != nullptr);
}

int cmp_wrap_desc(const colp_cell *a, const colp_cell *b, colp_cell_cmp compare) { return cmp_wrap_asc(b, a, compare); }

int cmp_wrap_unord(const colp_cell *, const colp_cell *, colp_cell_cmp) { return 0; }

constexpr const char *sortorder_list[] = {"asc", "desc", "unord", nullptr};
constexpr struct {
    wrapper wrap;
    uint32_t order;
} sortorder_ents[] = {
    {cmp_wrap_asc, COLP_SORT_ASC}, {cmp_wrap_desc, COLP_SORT_DESC}, {cmp_wrap_unord, COLP_SORT_UNORD}};

// The order of rows. Wrapper and comparison decide; keys make most of their calls unnecessary.
struct row_order {
    const colp_column *column;
    uint64_t position;
    uint64_t column_count;
    bool descending;
    wrapper wrap;
    colp_cell_cmp compare;
    uint64_t shared_length;  // leading bytes that all texts of the column have in common

    // A number that orders two rows, unless it is equal for both.
    uint64_t key(const colp_row *row) const {
        const colp_cell *cell = cell_at(row, position);
        const uint64_t key = cell != nullptr ? cell_key(cell) : 0;
        return descending ? ~key : key;
    }

    // Whether rows with this key are equal. A key does not distinguish a missing cell, nor what follows its eight
    // bytes.
    bool decides(uint64_t key) const {
        if (descending) key = ~key;
        const bool is_text = column->type == COLP_STRING;
        return key != 0 && (!is_text || (!(column->sort_mode & COLP_SORTMODE_LENGTH) && (key & 0xFF) == 0));
    }

    int compare_rows(const colp_row *a, const colp_row *b) const {
        return wrap(cell_at(a, position), cell_at(b, position), compare);
    }

private:
    uint64_t cell_key(const colp_cell *cell) const {
        if (column->type == COLP_INT) return cell->number ^ (uint64_t{1} << 63);
        if (column->type != COLP_STRING) return cell->number;
        const std::string_view text = cell_text(cell);
        if (column->sort_mode & COLP_SORTMODE_LENGTH) return text.size();
        unsigned char bytes[8] = {};
        std::memcpy(bytes, text.data() + shared_length, std::min(text.size() - shared_length, sizeof bytes));
        uint64_t key = 0;
        for (const unsigned char byte : bytes) key = key << 8 | byte;
        return key;
    }
};

// The number of leading bytes that all texts of a column share. Names often begin alike, and a key holds eight bytes.
uint64_t count_shared_bytes(const colp_row *rows, uint64_t position) {
    const char *first = nullptr;
    uint64_t shared = 0;
    for (const colp_row *row = rows; row != nullptr && (first == nullptr || shared > 0); row = row->next) {
        const colp_cell *cell = cell_at(row, position);
        if (cell == nullptr) continue;
        const std::string_view text = cell_text(cell);
        if (first == nullptr) shared = text.size();
        first = first != nullptr ? first : text.data();
        shared = std::min<uint64_t>(shared, text.size());
        shared = static_cast<uint64_t>(std::mismatch(first, first + shared, text.data()).first - first);
    }
    return shared;
}

// Merges up to FAN_IN sorted lists of rows. Of equal rows, those of the earlier list come first.
//
// A loser tree: the children of node n are the nodes 2n and 2n + 1, the leaf FAN_IN + i is list i, and every inner node
// holds the list that lost there. After the winner's first row is taken, its next row is compared on the path from that
// list to the root only. A wide merge with keys in the tree and rows prefetched keeps cache misses few, which dominate
// a large table.
class merger {
public:
    static constexpr uint64_t FAN_IN = 32;

    explicit merger(const row_order &order) : order_(order) {}

    colp_row *merge(colp_row *const *lists, uint64_t count) {
        for (uint64_t i = 0; i < FAN_IN; ++i) set_head(i, i < count ? lists[i] : nullptr);
        uint64_t winner = play(1);
        colp_row *merged = nullptr;
        colp_row **link = &merged;
        while (colp_row *row = heads_[winner].row) {
            *link = row;
            link = &row->next;
            set_head(winner, row->next);
            for (uint64_t node = (winner + FAN_IN) / 2; node > 0; node /= 2) {
                const uint64_t rival = losers_[node];
                const bool beaten = before(rival, winner);
                losers_[node] = beaten ? winner : rival;
                winner = beaten ? rival : winner;
            }
        }
        return merged;  // the row taken last ended its list, so its link is null
    }

private:
    struct head {
        uint64_t key;
        colp_row *row;  // null: the list is empty
    };

    void set_head(uint64_t list, colp_row *row) {
        heads_[list] = {row != nullptr ? order_.key(row) : ~uint64_t{0}, row};
        if (row != nullptr) fetch_ahead(row->next, order_.column_count);
    }

    // Fills the tree below a node; returns the list that wins there.
    uint64_t play(uint64_t node) {
        if (node >= FAN_IN) return node - FAN_IN;
        uint64_t winner = play(2 * node);
        losers_[node] = play(2 * node + 1);
        if (before(losers_[node], winner)) std::swap(losers_[node], winner);
        return winner;
    }

    bool before(uint64_t a, uint64_t b) const {
        if (heads_[a].key == heads_[b].key) [[unlikely]]
            return before_by_comparison(a, b);
        return heads_[a].key < heads_[b].key;
    }

    bool before_by_comparison(uint64_t a, uint64_t b) const {
        if (heads_[a].row == nullptr || heads_[b].row == nullptr) return heads_[a].row != nullptr;
        const int result = order_.decides(heads_[a].key) ? 0 : order_.compare_rows(heads_[a].row, heads_[b].row);
        return result != 0 ? result < 0 : a < b;
    }

    const row_order &order_;
    head heads_[FAN_IN];
    uint64_t losers_[FAN_IN];
};

// Sorts a list stably and without memory.
colp_row *sort_rows(colp_row *rows, const row_order &order) {
    constexpr uint64_t fan_in = merger::FAN_IN;
    constexpr uint64_t levels = 64 / 5 + 1;  // 32 ^ 13 rows exceed any memory
    colp_row *sorted[levels][fan_in];        // lists of fan_in ^ level rows, earlier rows first
    uint64_t count[levels] = {};
    merger merger(order);
    while (rows != nullptr) {
        colp_row *list = std::exchange(rows, rows->next);
        list->next = nullptr;
        uint64_t level = 0;
        for (;; ++level) {
            sorted[level][count[level]++] = list;
            if (count[level] < fan_in) break;
            list = merger.merge(sorted[level], std::exchange(count[level], 0));
        }
    }
    // The rest is merged from the shortest lists up.
    colp_row *all = nullptr;
    for (uint64_t level = 0; level < levels; ++level) {
        if (count[level] == 0) continue;
        if (all != nullptr) sorted[level][count[level]++] = all;
        all = merger.merge(sorted[level], count[level]);
    }
    return all;
}
}  // namespace

colp_cell_cmp colp_get_cell_cmp__(const colp_column *column) {
    switch (column->type) {
    case COLP_STRING: return column->sort_mode & COLP_SORTMODE_LENGTH ? cell_cmp_str_len : cell_cmp_str;
    case COLP_INT: return cell_cmp_int;
    case COLP_UINT:
    case COLP_HEX: return cell_cmp_uint;
    default: return nullptr;
    }
}

int colp_sort(colp_table *table, uint32_t order, uint32_t column_id) {
    if (!table->header_ended) return COLP_NO_HEADER;
    if (table->open_row != nullptr) return COLP_ROW_OPEN;
    uint64_t position = 0;
    const colp_column *column = table->first_column;
    for (; column != nullptr && column->id != column_id; column = column->next) ++position;
    if (column == nullptr) return COLP_NO_SUCH_COLUMN;
    const colp_cell_cmp compare = colp_get_cell_cmp__(column);
    if (compare == nullptr) return COLP_NOT_COMPARABLE;
    if (order == COLP_SORT_UNORD) return COLP_SUCCESS;
    wrapper wrap = nullptr;
    for (const auto &entry : sortorder_ents)
        if (entry.order == order) wrap = entry.wrap;
    if (wrap == nullptr) return COLP_BAD_ORDER;
    if (table->first_row == nullptr || table->first_row->next == nullptr) return COLP_SUCCESS;

    // Deliberate: the reference to the last row is not updated. Rows are added before a table is sorted, never after.
    table->last_row = table->first_row;
    const uint64_t shared = column->type == COLP_STRING ? count_shared_bytes(table->first_row, position) : 0;
    table->first_row = sort_rows(
        table->first_row, {column, position, table->column_count, order == COLP_SORT_DESC, wrap, compare, shared});
    return COLP_SUCCESS;
}

int colp_parse_sortorder(uint32_t *order, const char *name) {
    if (order == nullptr || name == nullptr) return COLP_BAD_ARGUMENT;
    for (uint64_t i = 0; sortorder_list[i] != nullptr; ++i) {
        if (std::strcmp(sortorder_list[i], name) != 0) continue;
        *order = sortorder_ents[i].order;
        return COLP_SUCCESS;
    }
    return COLP_PARSE_ERROR;
}

const char *const *colp_getsortorderlist() { return sortorder_list; }
