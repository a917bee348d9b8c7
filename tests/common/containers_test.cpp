// tests/common/containers_test.cpp - random operations on the containers and on plain models, with an allocator that
// fails now and then.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <deque>
#include <random>
#include <string>
#include <vector>

#include "common/deque.h"
#include "common/vector.h"

namespace {

constexpr unsigned seed = 20240607;

// Counts live allocations, and fails each one while `refusing`.
struct allocator {
    bool refusing = false;
    size_t live = 0;

    static void *take(void *context, size_t size) {
        auto *self = static_cast<allocator *>(context);
        if (self->refusing) return nullptr;
        ++self->live;
        return std::malloc(size);
    }
    static void give(void *context, void *pointer) {
        --static_cast<allocator *>(context)->live;
        std::free(pointer);
    }
};

class Containers : public testing::TestWithParam<size_t> {  // the size of an element
protected:
    size_t below(size_t limit) { return std::uniform_int_distribution<size_t>(0, limit - 1)(random_); }
    std::string any() { return std::string(GetParam(), static_cast<char>(below(256))); }
    std::string read(const void *element) const { return {static_cast<const char *>(element), GetParam()}; }

    allocator memory_;
    std::mt19937 random_{seed};
};

TEST_P(Containers, DequeAgreesWithAModel) {
    SCOPED_TRACE(seed);
    deque *d = deque_new_ex(GetParam(), &memory_, allocator::take, allocator::give);
    ASSERT_NE(d, nullptr);
    std::deque<std::string> model;
    for (int round = 0; round < 2000; ++round) {
        memory_.refusing = below(4) == 0;
        const std::string e = any();
        const size_t at = below(model.size() + 1);
        const auto place = model.begin() + static_cast<std::ptrdiff_t>(at);
        deque_iterator it;
        const void *stored = &e;
        switch (round % 1000 < 700 ? below(5) : 3 + below(3)) {  // first growing, then shrinking to nothing
        case 0:
            if ((stored = deque_push_back(d, e.data()))) model.push_back(e);
            break;
        case 1:
            if ((stored = deque_push_front(d, e.data()))) model.push_front(e);
            break;
        case 2:
            if ((stored = deque_insert(d, at, e.data()))) model.insert(place, e);
            break;
        case 3:
            deque_begin(d, &it);
            if (at > 0) deque_advance(&it, at);
            EXPECT_EQ(deque_removeit(&it), at < model.size() ? 0 : -1);
            if (at < model.size()) model.erase(place);
            EXPECT_EQ(deque_advance(&it, 0), deque_at(d, at));
            break;
        case 4:
            EXPECT_EQ(deque_pop_front(d), model.empty() ? -1 : 0);
            if (!model.empty()) model.pop_front();
            break;
        default:
            EXPECT_EQ(deque_pop_back(d), model.empty() ? -1 : 0);
            if (!model.empty()) model.pop_back();
            break;
        }
        EXPECT_TRUE(stored || memory_.refusing);

        ASSERT_EQ(d->count, model.size());
        size_t i = 0;
        for (const void *element = deque_begin(d, &it); element; element = deque_next(&it), ++i) {
            ASSERT_EQ(read(element), model[i]) << "round " << round;
            ASSERT_EQ(deque_at(d, i), element) << "round " << round;
        }
        ASSERT_EQ(i, model.size());
        EXPECT_EQ(deque_back(d), deque_at(d, i - 1));
        if (i == 0) {
            EXPECT_EQ(memory_.live, 1u) << "a block is left";
        }
    }
    memory_.refusing = false;
    EXPECT_NE(deque_push_back(d, any().data()), nullptr);
    deque_clear(d);
    EXPECT_EQ(d->count, 0u);
    deque_release(d);
    EXPECT_EQ(memory_.live, 0u);
}

TEST_P(Containers, VectorAgreesWithAModel) {
    SCOPED_TRACE(seed);
    vector *v = vector_new_ex(GetParam(), 0, &memory_, allocator::take, allocator::give);
    ASSERT_NE(v, nullptr);
    std::vector<std::string> model;
    for (int round = 0; round < 1000; ++round) {
        memory_.refusing = below(4) == 0;
        const std::string e = any();
        const size_t at = below(model.size() + 1);
        const bool exists = at < model.size();
        const auto place = model.begin() + static_cast<std::ptrdiff_t>(at);
        int result = 0;
        switch (below(8)) {
        case 0:
        case 1:
            result = vector_pushback(v, e.data());
            if (result == 0) model.push_back(e);
            break;
        case 2:  // growth must not move what is still to be read
            result = vector_concat(v, v);
            for (size_t i = 0, n = model.size(); result == 0 && i < n; ++i) model.push_back(std::string(model[i]));
            break;
        case 3:
            EXPECT_EQ(vector_remove(v, at), exists ? 0 : VECTOR_FAILED);
            if (exists) model.erase(place);
            break;
        case 4:
            EXPECT_EQ(vector_set(v, at, e.data()), exists ? 0 : VECTOR_FAILED);
            if (exists) *place = e;
            break;
        case 5:
            vector_reverse(v);
            std::reverse(model.begin(), model.end());
            if (round % 2 == 0) {
                EXPECT_EQ(vector_sort(v, nullptr), v->count < 2 ? VECTOR_DONE : VECTOR_NULL);
                vector_sort(v, [](const void *a, const void *b) { return std::memcmp(a, b, 1); });
                std::sort(model.begin(), model.end());
            }
            break;
        case 6:
            EXPECT_EQ(vector_find(v, e.data(), nullptr),
                      vector_at(v, static_cast<size_t>(std::find(model.begin(), model.end(), e) - model.begin())));
            break;
        default:
            EXPECT_EQ(vector_resize(v, at), 0);  // down, so that no element is left unset
            model.resize(at);
            break;
        }
        EXPECT_TRUE(result == 0 || memory_.refusing);
        ASSERT_EQ(v->count, model.size());
        for (size_t i = 0; i < model.size(); ++i) ASSERT_EQ(read(vector_at(v, i)), model[i]) << "round " << round;
    }
    vector_release(v);
    EXPECT_EQ(memory_.live, 0u);
}

INSTANTIATE_TEST_SUITE_P(ElementSizes, Containers, testing::Values(1, 64, 700));

TEST(Deque, AcceptsNulls) {
    const deque_ptr made(deque_new(1));
    deque *const d = made.get();
    const char e = 'e';
    deque_iterator at;
    for (deque *none : {d, static_cast<deque *>(nullptr)}) {
        EXPECT_FALSE(deque_front(none) || deque_back(none) || deque_at(none, 0) || deque_begin(none, &at));
        EXPECT_FALSE(deque_push_back(none, nullptr) || deque_push_front(none, nullptr) || deque_insert(none, 1, &e));
        EXPECT_FALSE(deque_insertit(&at, nullptr) || deque_next(&at));
        EXPECT_TRUE(deque_pop_back(none) == -1 && deque_pop_front(none) == -1 && deque_removeit(&at) == -1);
        deque_sort(none, nullptr);
    }
    deque_release(nullptr);
    deque_clear(nullptr);
    EXPECT_FALSE(deque_push_back(nullptr, &e) || deque_push_front(nullptr, &e) || deque_insertit(nullptr, &e) ||
                 deque_new(0) || deque_next(nullptr) || d->count != 0);
}

TEST(Vector, RefusesSizesThatCannotBeCounted) {
    for (const size_t capacity : {SIZE_MAX, SIZE_MAX / 8 + 1}) EXPECT_EQ(vector_new(8, capacity), nullptr);
    const uint64_t number = 7;
    const vector_ptr v(vector_new(8, 1));
    ASSERT_EQ(vector_pushback(v.get(), &number), 0);
    EXPECT_EQ(vector_resize(v.get(), SIZE_MAX / 4), VECTOR_FAILED);
    EXPECT_EQ(vector_pushmulti(v.get(), &number, SIZE_MAX), VECTOR_FAILED);
    EXPECT_EQ(v->count, 1u);
    EXPECT_EQ(deque_new(SIZE_MAX / 4), nullptr);
}

TEST(Deque, SortsBySelectionWithoutTheLast) {
    const auto compare = [](const void *a, const void *b) { return std::memcmp(a, b, 1); };
    std::mt19937 random(seed);
    for (size_t count = 0; count < 50; ++count) {
        const deque_ptr d(deque_new(100));
        std::string model(count, '\0'), sorted(count, '\0');
        for (char &value : model) {
            value = static_cast<char>('A' + random() % 26);
            deque_push_back(d.get(), std::string(100, value).data());
        }
        for (size_t n = count; n-- > 1;) {
            size_t b = 0;
            for (size_t k = 1; k < n; ++k) {
                if (model[b] < model[k]) b = k;
            }
            std::swap(model[b], model[n]);
        }
        deque_sort(d.get(), compare);
        for (size_t i = 0; i < count; ++i) sorted[i] = *static_cast<const char *>(deque_at(d.get(), i));
        EXPECT_EQ(sorted, model);
    }
}

}  // namespace
