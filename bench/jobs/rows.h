// bench/jobs/rows.h - the rows of the measured tables: random, and the same in every program. C as well as C++.
#pragma once

#include <stdint.h>
#include <string.h>

static const char *const titles[] = {"Handle", "Name", "Size", "Balance", "State", "Number"};

struct row {
    uint64_t handle;
    char name[16];
    uint64_t size;
    int64_t balance;
    const char *state;
    uint64_t number;
};

typedef struct {
    uint64_t random;
    uint64_t made;
} row_source;

static const row_source first_row = {88172645463325252, 0};

static inline void next_row(row_source *source, struct row *out) {
    uint64_t random = source->random;
    random ^= random << 13;
    random ^= random >> 7;
    random ^= random << 17;
    source->random = random;
    out->handle = random;
    // "task-" and five digits, written by hand so that making a row costs next to nothing
    uint64_t digits = random % 100000;
    memcpy(out->name, "task-00000", 11);
    for (int i = 9; i >= 5; i--, digits /= 10) out->name[i] = "0123456789"[digits % 10];
    out->size = random >> 44;
    memcpy(&out->balance, &random, sizeof random);
    out->balance >>= 50;
    out->state = "running";
    out->number = source->made++;
}
