// common/vector.cpp - the growing array.
#include "common/vector.h"

#include <bit>
#include <cstdint>
#include <cstring>

namespace {
void *slot(const vector *v, size_t i) { return static_cast<unsigned char *>(v->data) + i * v->elem_size; }

// The capacity that holds n elements, or 0 where their bytes cannot be counted.
size_t capacity_for(size_t n, size_t elem_size) {
    constexpr size_t largest = SIZE_MAX / 2 + 1;
    if (n > largest) return 0;
    const size_t capacity = std::bit_ceil(n);
    return capacity <= SIZE_MAX / elem_size ? capacity : 0;
}

// Makes room for n elements. The old array is left to the caller, who may still have to copy from it; null where the
// array stayed.
bool reserve(vector *v, size_t n, void **old) {
    *old = nullptr;
    if (n <= v->capacity) return true;
    const size_t capacity = capacity_for(n, v->elem_size);
    void *data = capacity ? v->alloc(v->alloc_ctx, capacity * v->elem_size) : nullptr;
    if (data == nullptr) return false;
    std::memcpy(data, v->data, v->count * v->elem_size);
    *old = v->data;
    v->data = data;
    v->capacity = capacity;
    return true;
}

bool append(vector *v, const void *elements, size_t n) {
    void *old = nullptr;
    if (n > SIZE_MAX - v->count || !reserve(v, v->count + n, &old)) return false;
    std::memmove(slot(v, v->count), elements, n * v->elem_size);
    v->count += n;
    if (old != nullptr) v->release(v->alloc_ctx, old);
    return true;
}
}  // namespace

vector *vector_new(size_t elem_size, size_t initial_capacity) {
    return vector_new_ex(elem_size, initial_capacity, nullptr, lextras_wrap_malloc, lextras_wrap_free);
}

vector *vector_new_ex(size_t elem_size, size_t initial_capacity, void *alloc_ctx, lextras_alloc alloc,
                      lextras_release release) {
    if (elem_size == 0 || alloc == nullptr || release == nullptr) return nullptr;
    const size_t capacity = capacity_for(initial_capacity, elem_size);
    if (capacity == 0) return nullptr;
    auto *v = static_cast<vector *>(alloc(alloc_ctx, sizeof(vector)));
    if (v == nullptr) return nullptr;
    void *data = alloc(alloc_ctx, capacity * elem_size);
    if (data == nullptr) {
        release(alloc_ctx, v);
        return nullptr;
    }
    *v = {elem_size, capacity, 0, data, alloc_ctx, alloc, release};
    return v;
}

void vector_release(vector *v) {
    if (v == nullptr) return;
    v->release(v->alloc_ctx, v->data);
    v->release(v->alloc_ctx, v);
}

int vector_pushback(vector *v, const void *element) {
    if (v == nullptr || element == nullptr) return VECTOR_NULL;
    if (v->count > v->capacity) return VECTOR_FAILED;
    return append(v, element, 1) ? VECTOR_DONE : VECTOR_NO_MEMORY;
}

int vector_popback(vector *v) {
    if (v == nullptr) return VECTOR_NULL;
    if (v->count > 0) --v->count;
    return VECTOR_DONE;
}

void *vector_at(const vector *v, size_t i) { return v != nullptr && i < v->count ? slot(v, i) : nullptr; }

void *vector_back(const vector *v) { return v != nullptr && v->count > 0 ? slot(v, v->count - 1) : nullptr; }

int vector_resize(vector *v, size_t n) {
    if (v == nullptr) return VECTOR_NULL;
    void *old = nullptr;
    if (!reserve(v, n, &old)) return VECTOR_FAILED;
    if (old != nullptr) v->release(v->alloc_ctx, old);
    v->count = n;
    return VECTOR_DONE;
}

int vector_pushmulti(vector *v, const void *elements, size_t n) {
    if (n == 0) return VECTOR_DONE;
    if (v == nullptr || elements == nullptr) return VECTOR_NULL;
    return append(v, elements, n) ? VECTOR_DONE : VECTOR_FAILED;
}

int vector_concat(vector *v, const vector *other) {
    if (v == nullptr || other == nullptr) return VECTOR_NULL;
    if (v->elem_size != other->elem_size) return VECTOR_FAILED;
    return append(v, other->data, other->count) ? VECTOR_DONE : VECTOR_FAILED;
}

int vector_sort(vector *v, lextras_compare compare) {
    if (v == nullptr) return VECTOR_NULL;
    if (v->count < 2) return VECTOR_DONE;
    if (compare == nullptr) return VECTOR_NULL;
    std::qsort(v->data, v->count, v->elem_size, compare);
    return VECTOR_DONE;
}

int vector_reverse(vector *v) {
    if (v == nullptr) return VECTOR_NULL;
    for (size_t i = 0; i < v->count / 2; ++i) memswap(slot(v, i), slot(v, v->count - 1 - i), v->elem_size);
    return VECTOR_DONE;
}

int vector_set(vector *v, size_t i, const void *element) {
    if (v == nullptr || element == nullptr) return VECTOR_NULL;
    if (i >= v->count) return VECTOR_FAILED;
    std::memmove(slot(v, i), element, v->elem_size);
    return VECTOR_DONE;
}

int vector_remove(vector *v, size_t i) {
    if (v == nullptr) return VECTOR_NULL;
    if (i >= v->count) return VECTOR_FAILED;
    --v->count;
    std::memmove(slot(v, i), slot(v, i + 1), (v->count - i) * v->elem_size);
    return VECTOR_DONE;
}

int vector_clear(vector *v) {
    if (v == nullptr) return VECTOR_NULL;
    v->count = 0;
    return VECTOR_DONE;
}

void *vector_find(const vector *v, const void *key, lextras_compare compare) {
    if (v == nullptr || key == nullptr) return nullptr;
    for (size_t i = 0; i < v->count; ++i) {
        void *element = slot(v, i);
        if (compare != nullptr ? compare(element, key) == 0 : std::memcmp(element, key, v->elem_size) == 0)
            return element;
    }
    return nullptr;
}
