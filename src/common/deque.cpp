// common/deque.cpp - the linked blocks of the queue.
#include "common/deque.h"

#include <cstdint>
#include <cstring>

namespace {
void *slot_of(const deque *d, deque_block *block, size_t slot) {
    return reinterpret_cast<unsigned char *>(block) + sizeof(deque_block) + slot * d->elem_size;
}

// Moves n elements from slot `from` of one block to slot `to` of the same or another.
void move_slots(const deque *d, deque_block *target, size_t to, deque_block *source, size_t from, size_t n) {
    std::memmove(slot_of(d, target, to), slot_of(d, source, from), n * d->elem_size);
}

// Links a new block, with the given slots in use, between prev and next, of which either may be null.
deque_block *link_block(deque *d, deque_block *prev, deque_block *next, size_t start, size_t used) {
    auto *block = static_cast<deque_block *>(d->alloc(d->alloc_ctx, d->block_bytes));
    if (block == nullptr) return nullptr;
    *block = {next, prev, start, used};
    (prev != nullptr ? prev->next : d->first) = block;
    (next != nullptr ? next->prev : d->last) = block;
    return block;
}

void drop_block(deque *d, deque_block *block) {
    (block->prev != nullptr ? block->prev->next : d->first) = block->next;
    (block->next != nullptr ? block->next->prev : d->last) = block->prev;
    d->release(d->alloc_ctx, block);
}

void *store(deque *d, deque_block *block, size_t slot, const void *element) {
    ++d->count;
    return std::memmove(slot_of(d, block, slot), element, d->elem_size);
}

void *element_at(const deque_iterator *it) {
    return it->block != nullptr ? slot_of(it->owner, it->block, it->slot) : nullptr;
}

// Moves n elements on, or to the end.
void step(deque_iterator *it, size_t n) {
    while (it->block != nullptr) {
        const size_t left = it->block->start + it->block->used - it->slot;
        if (n < left) {
            it->slot += n;
            return;
        }
        n -= left;
        it->block = it->block->next;
        it->slot = it->block != nullptr ? it->block->start : 0;
    }
}
}  // namespace

deque *deque_new(size_t elem_size) { return deque_new_ex(elem_size, nullptr, lextras_wrap_malloc, lextras_wrap_free); }

deque *deque_new_ex(size_t elem_size, void *alloc_ctx, lextras_alloc alloc, lextras_release release) {
    if (elem_size == 0 || alloc == nullptr || release == nullptr) return nullptr;
    const size_t per_block = std::max(DEQUE_BLOCK_ROOM / elem_size, DEQUE_LEAST_SLOTS);
    if (elem_size > (SIZE_MAX - sizeof(deque_block)) / per_block) return nullptr;
    auto *d = static_cast<deque *>(alloc(alloc_ctx, sizeof(deque)));
    if (d == nullptr) return nullptr;
    const size_t block_bytes = elem_size * per_block + sizeof(deque_block);
    *d = {0, elem_size, block_bytes, per_block, nullptr, nullptr, alloc_ctx, alloc, release};
    return d;
}

void deque_clear(deque *d) {
    if (d == nullptr) return;
    while (d->first != nullptr) drop_block(d, d->first);
    d->count = 0;
}

void deque_release(deque *d) {
    if (d == nullptr) return;
    deque_clear(d);
    d->release(d->alloc_ctx, d);
}

void *deque_push_back(deque *d, const void *element) {
    if (d == nullptr || element == nullptr) return nullptr;
    deque_block *block = d->last;
    if (block != nullptr && block->start + block->used < d->per_block) {
        ++block->used;
    } else {
        block = link_block(d, d->last, nullptr, 0, 1);
        if (block == nullptr) return nullptr;
    }
    return store(d, block, block->start + block->used - 1, element);
}

void *deque_push_front(deque *d, const void *element) {
    if (d == nullptr || element == nullptr) return nullptr;
    deque_block *block = d->first;
    if (block != nullptr && block->start > 0) {
        --block->start;
        ++block->used;
    } else {
        block = link_block(d, nullptr, d->first, d->per_block - 1, 1);
        if (block == nullptr) return nullptr;
    }
    return store(d, block, block->start, element);
}

int deque_pop_back(deque *d) {
    if (d == nullptr || d->last == nullptr) return -1;
    if (--d->last->used == 0) drop_block(d, d->last);
    --d->count;
    return 0;
}

int deque_pop_front(deque *d) {
    if (d == nullptr || d->first == nullptr) return -1;
    ++d->first->start;
    if (--d->first->used == 0) drop_block(d, d->first);
    --d->count;
    return 0;
}

void *deque_front(const deque *d) {
    return d != nullptr && d->first != nullptr ? slot_of(d, d->first, d->first->start) : nullptr;
}

void *deque_back(const deque *d) {
    return d != nullptr && d->last != nullptr ? slot_of(d, d->last, d->last->start + d->last->used - 1) : nullptr;
}

void *deque_at(const deque *d, size_t i) {
    if (d == nullptr || i >= d->count) return nullptr;
    deque_block *block = nullptr;
    if (i < d->count / 2) {
        for (block = d->first; i >= block->used; block = block->next) i -= block->used;
        return slot_of(d, block, block->start + i);
    }
    size_t after = d->count - 1 - i;  // elements after the one sought
    for (block = d->last; after >= block->used; block = block->prev) after -= block->used;
    return slot_of(d, block, block->start + block->used - 1 - after);
}

void *deque_begin(deque *d, deque_iterator *it) {
    *it = {d, d != nullptr ? d->first : nullptr, d != nullptr && d->first != nullptr ? d->first->start : 0};
    return element_at(it);
}

void *deque_next(deque_iterator *it) { return deque_advance(it, 1); }

void *deque_advance(deque_iterator *it, size_t n) {
    if (it == nullptr) return nullptr;
    step(it, n);
    return element_at(it);
}

void *deque_insertit(deque_iterator *it, const void *element) {
    if (it == nullptr || it->owner == nullptr || element == nullptr) return nullptr;
    deque *d = it->owner;
    deque_block *block = it->block;
    size_t slot = it->slot;
    if (block == nullptr) {
        if (!deque_push_back(d, element)) return nullptr;
        it->block = d->last;
        it->slot = d->last->start + d->last->used - 1;
        return element_at(it);
    }
    if (block->start > 0) {  // room before: the elements before the position move up
        --block->start;
        --slot;
        move_slots(d, block, block->start, block, block->start + 1, slot - block->start);
    } else if (block->used < d->per_block) {  // room after
        move_slots(d, block, slot + 1, block, slot, block->used - slot);
    } else if (slot == 0) {  // full, before its first: a block of its own
        block = link_block(d, block->prev, block, d->per_block - 1, 0);
        if (block == nullptr) return nullptr;
        slot = block->start;
    } else {  // full: what follows the position moves to a block of its own
        const size_t after = d->per_block - slot;
        deque_block *tail = link_block(d, block, block->next, 0, after);
        if (tail == nullptr) return nullptr;
        move_slots(d, tail, 0, block, slot, after);
        block->used = slot;
    }
    ++block->used;
    it->block = block;
    it->slot = slot;
    return store(d, block, slot, element);
}

void *deque_insert(deque *d, size_t i, const void *element) {
    if (d == nullptr || i > d->count) return nullptr;
    deque_iterator it;
    deque_begin(d, &it);
    step(&it, i);
    return deque_insertit(&it, element);
}

int deque_removeit(deque_iterator *it) {
    if (it == nullptr || it->block == nullptr) return -1;
    deque *d = it->owner;
    deque_block *block = it->block;
    const size_t after = block->start + block->used - it->slot - 1;
    move_slots(d, block, it->slot, block, it->slot + 1, after);
    --block->used;
    --d->count;
    if (after == 0) {
        it->block = block->next;
        it->slot = block->next != nullptr ? block->next->start : 0;
    }
    if (block->used == 0) drop_block(d, block);
    return 0;
}

void deque_sort(deque *d, lextras_compare compare) {
    if (d == nullptr || compare == nullptr) return;
    for (size_t n = d->count; n-- > 1;) {
        deque_iterator it;
        void *greatest = deque_begin(d, &it);
        for (size_t k = 1; k < n; ++k) {
            void *element = deque_next(&it);
            if (compare(greatest, element) < 0) greatest = element;
        }
        memswap(greatest, deque_next(&it), d->elem_size);
    }
}
