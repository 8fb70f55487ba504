#include "base/array.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <numeric>
#include <random>
#include <set>
#include <vector>

using namespace findwright;

namespace {

using values_t = std::vector<u32>;

int compare_number(u32 value, const void *key) {
    u32 number = *static_cast<const u32 *>(key);
    return value < number ? -1 : value > number;
}

struct random_t {
    std::mt19937 engine;
    explicit random_t(u32 seed) : engine(seed) {}
    u32 operator()() { return static_cast<u32>(engine()); }
};

values_t numbers(u32 count, u32 step = 1, u32 first = 1) {
    values_t values(count);
    for (u32 i = 0; i < count; i++)
        values[i] = first + i * step;
    return values;
}

// An array that is freed behind the test.
struct owned_t : array_t {
    owned_t() { array_init(this); }
    ~owned_t() { array_kill(this); }
    owned_t(const owned_t &) = delete;
};

u32 item_count(const array_t &array, u32 page) {
    return array.pages[page]->item_count;
}
u32 data_offset(const array_t &array, u32 page) {
    return array.pages[page]->data_offset;
}

values_t contents(const array_t &array) {
    values_t values;
    for (u32 i = 0; i < array.page_count; i++) {
        const u32 *first = array_page_values(array.pages[i]);
        values.insert(values.end(), first, first + item_count(array, i));
    }
    return values;
}

// All that must hold of any array, and its content.
void check(const array_t &array, const values_t &expected) {
    u32 index = 0;
    std::set<const array_page_t *> pages;
    for (u32 i = 0; i < array.page_count; i++) {
        const array_page_t *page = array.pages[i];
        ASSERT_TRUE(pages.insert(page).second) << "a page stands in the table twice";
        ASSERT_GT(page->item_count, 0u);
        ASSERT_GE(page->data_offset, ARRAY_PAGE_HEADER);
        ASSERT_LE(page->data_offset + page->item_count * 4, ARRAY_PAGE_SIZE);
        ASSERT_EQ(array.first_index[i], index);
        index += page->item_count;
    }
    for (mem_ref_t ref = array.free_pages; ref; ref = mem_ptr<array_page_t>(ref)->next)
        ASSERT_FALSE(pages.count(mem_ptr<array_page_t>(ref))) << "a free page is in use";
    ASSERT_LE(array.page_count, array.capacity);
    ASSERT_EQ(array.count, index);
    ASSERT_EQ(contents(array), expected);
}

// Looks everything up that `steps` random keys and indexes lead to.
void check_lookups(const array_t &array, const values_t &expected, random_t &random, int steps) {
    u32 page;
    i32 position;
    for (int i = 0; i < steps; i++) {
        u32 key = random() % (expected.empty() ? 10 : expected.back() + 5);
        auto at = std::lower_bound(expected.begin(), expected.end(), key);
        bool exists = at != expected.end() && *at == key;
        ASSERT_EQ(array_exists(&array, compare_number, &key), exists);
        ASSERT_EQ(array_find(&array, compare_number, &key), exists ? key : 0);

        bool found;
        array_find_position(&array, compare_number, &key, &page, &position, &found);
        ASSERT_EQ(found, exists);
        if (expected.empty()) {
            ASSERT_TRUE(page == 0 && position == 0);
        } else {
            // Present: its place. Absent: the place of the last value below it, or -1 in front of all.
            i64 place = static_cast<i64>(array.first_index[page]) + position;
            ASSERT_EQ(place, at - expected.begin() - (exists ? 0 : 1));
            ASSERT_LT(position, static_cast<i32>(item_count(array, page)));
        }

        u32 index = random() % static_cast<u32>(expected.size() + 2);
        u32 value = 0;
        bool in_range = index < expected.size();
        ASSERT_EQ(array_get_to(&array, index, &page, &position, &value), in_range);
        ASSERT_EQ(array_get(&array, index, &page, &position), in_range ? expected[index] : 0);
        if (in_range) {
            ASSERT_EQ(value, expected[index]);
            ASSERT_EQ(array_page_values(array.pages[page])[position], expected[index]);
            u32 following = index + 1 < expected.size() ? expected[index + 1] : 0;
            ASSERT_EQ(array_next(&array, &page, &position), following);
        }
    }
}

u64 word_of_number(u32 value) {
    return value * 0x9E3779B97F4A7C15;
}

void check_words(const array_t &array) {
    for (u32 i = 0; i < array.page_count; i++) {
        for (u32 slot = 0; slot < item_count(array, i); slot++)
            ASSERT_EQ(word_of_number(array_page_values(array.pages[i])[slot]),
                      array_page_words(array.pages[i])[slot]);
    }
}

void check_random_changes(bool has_words, int rounds) {
    random_t random(11);
    owned_t array;
    values_t model;
    if (has_words)
        array_words_create(&array, word_of_number);
    // From nothing to many pages and back to nothing, in each four rounds; keys close together at times, so
    // that pages fill up and split.
    for (int round = 0; round < rounds; round++) {
        u32 range = round % 3 == 0 ? 3000 : 60000;
        u32 base = round % 4 == 1 ? 30000 : 1;
        int steps = round % 4 == 3 ? 30000 : 12000;
        int growth = round % 4 == 3 ? 2 : 7; // of 8
        for (int i = 0; i < steps; i++) {
            u32 key = base + random() % range;
            auto at = std::lower_bound(model.begin(), model.end(), key);
            bool exists = at != model.end() && *at == key;
            if (static_cast<int>(random() % 8) < growth) {
                ASSERT_EQ(array_insert(&array, compare_number, &key, key), !exists);
                if (!exists)
                    model.insert(at, key);
            } else if (i % 2) {
                ASSERT_EQ(array_remove(&array, compare_number, &key), exists ? key : 0);
                if (exists)
                    model.erase(at);
            } else if (!model.empty()) {
                u32 page;
                i32 position;
                u32 index = random() % static_cast<u32>(model.size());
                array_get(&array, index, &page, &position);
                array_remove_at(&array, page, position);
                model.erase(model.begin() + index);
            }
        }
        check(array, model);
        if (has_words)
            check_words(array);
        check_lookups(array, model, random, 300);

        owned_t copy, reversed;
        array_copy(&copy, &array);
        check(copy, model);
        array_set_reversed(&reversed, &array);
        values_t backwards(model.rbegin(), model.rend());
        check(reversed, backwards);
        array_reverse(&reversed);
        check(reversed, model);
        array_renumber(&copy);
        check(copy, model);
    }
}

TEST(array, random_changes_match_a_plain_vector) {
    check_random_changes(false, 8);
}

TEST(array, words_go_with_their_values) {
    check_random_changes(true, 4);
}

TEST(array, empties_and_fills_again_from_its_own_pages) {
    owned_t array;
    values_t all = numbers(5000);
    for (u32 value : all)
        ASSERT_TRUE(array_insert(&array, compare_number, &value, value));
    size_t memory = array_memory_size(&array);
    size_t used = mem_arena_used();
    for (u32 value : all)
        ASSERT_TRUE(array_remove_exists(&array, compare_number, &value));
    check(array, {});
    EXPECT_EQ(array_memory_size(&array), memory) << "pages are kept until the array is killed";
    for (u32 value : all)
        ASSERT_TRUE(array_insert(&array, compare_number, &value, value));
    check(array, all);
    EXPECT_EQ(mem_arena_used(), used);

    // The page that was freed last is the next to be used.
    all = numbers(3 * 1020);
    array_set_from_memory(&array, all.data(), 3 * 1020);
    array_page_t *page = array.pages[2];
    while (array.page_count == 3)
        array_remove_at(&array, 2, 0);
    array_insert_at(&array, 0, 700, 1);
    EXPECT_EQ(array.pages[1], page);
    array_clear(&array);
    check(array, {});
    EXPECT_EQ(array_memory_size(&array), 0u);
}

// Pages of given sizes: full ones lie at the page's start, others at the offset told.
void make_pages(array_t *array, const std::vector<std::pair<u32, u32>> &pages) {
    u32 count = 0;
    for (size_t i = 0; i < pages.size(); i++)
        count += ARRAY_PAGE_VALUES;
    values_t all = numbers(count, 10, 10);
    array_set_from_memory(array, all.data(), count);
    u32 value = 10;
    for (u32 i = 0; i < pages.size(); i++) {
        array_page_t *page = array->pages[i];
        page->item_count = pages[i].first;
        page->data_offset = pages[i].second;
        for (u32 slot = 0; slot < page->item_count; slot++, value += 10)
            array_page_values(page)[slot] = value;
        array->count += page->item_count - ARRAY_PAGE_VALUES;
    }
    array_renumber(array);
}

TEST(array, full_page_lets_a_value_over) {
    using pages_t = std::vector<std::pair<u32, u32>>;
    constexpr u32 FULL = 1020;
    struct case_t {
        const char *name;
        pages_t before; // item_count and data_offset
        u32 page;
        i32 position;
        pages_t after;
    } cases[] = {
        {"alone, in front of the middle", {{FULL, 16}}, 0, 509, {{1, 2060}, {FULL, 16}}},
        {"alone, from the middle on", {{FULL, 16}}, 0, 510, {{FULL, 16}, {1, 2060}}},
        {"alone, in front of all", {{FULL, 16}}, 0, -1, {{1, 2060}, {FULL, 16}}},
        {"alone, behind all", {{FULL, 16}}, 0, 1019, {{FULL, 16}, {1, 2060}}},
        {"all full, in front",
         {{FULL, 16}, {FULL, 16}, {FULL, 16}},
         1,
         3,
         {{FULL, 16}, {1, 2060}, {FULL, 16}, {FULL, 16}}},
        {"all full, behind",
         {{FULL, 16}, {FULL, 16}, {FULL, 16}},
         1,
         600,
         {{FULL, 16}, {FULL, 16}, {1, 2060}, {FULL, 16}}},
        {"front only", {{100, 1000}, {FULL, 16}, {FULL, 16}}, 1, 900, {{101, 1000}, {FULL, 16}, {FULL, 16}}},
        {"front, new value itself",
         {{100, 1000}, {FULL, 16}, {FULL, 16}},
         1,
         -1,
         {{101, 1000}, {FULL, 16}, {FULL, 16}}},
        {"behind only", {{FULL, 16}, {FULL, 16}, {100, 1000}}, 1, 5, {{FULL, 16}, {FULL, 16}, {101, 996}}},
        {"behind, new value itself",
         {{FULL, 16}, {FULL, 16}, {100, 1000}},
         1,
         1019,
         {{FULL, 16}, {FULL, 16}, {101, 996}}},
        {"front is cheaper", {{9, 1000}, {FULL, 16}, {9, 1000}}, 1, 508, {{10, 1000}, {FULL, 16}, {9, 1000}}},
        {"behind when it costs the same",
         {{99, 3700}, {FULL, 16}, {100, 20}},
         1,
         559,
         {{99, 3700}, {FULL, 16}, {101, 16}}},
        {"behind is cheaper", {{9, 1000}, {FULL, 16}, {9, 1000}}, 1, 509, {{9, 1000}, {FULL, 16}, {10, 996}}},
        {"front has no room at its end",
         {{600, 1696}, {FULL, 16}, {9, 1000}},
         1,
         100,
         {{601, 1692}, {FULL, 16}, {9, 1000}}},
        {"front would have to shift more",
         {{900, 496}, {FULL, 16}, {9, 1000}},
         1,
         100,
         {{900, 496}, {FULL, 16}, {10, 996}}},
        {"behind has no room at its front",
         {{9, 1000}, {FULL, 16}, {900, 16}},
         1,
         900,
         {{10, 1000}, {FULL, 16}, {900, 16}}},
        {"behind shifts", {{FULL, 16}, {FULL, 16}, {900, 16}}, 1, 900, {{FULL, 16}, {FULL, 16}, {901, 16}}},
    };
    for (const case_t &c : cases) {
        SCOPED_TRACE(c.name);
        owned_t array;
        make_pages(&array, c.before);
        values_t expected = contents(array);
        u32 index = static_cast<u32>(static_cast<i32>(array.first_index[c.page]) + c.position + 1);
        u32 value = index ? expected[index - 1] + 5 : 5;
        expected.insert(expected.begin() + index, value);
        array_insert_at(&array, c.page, c.position, value);

        check(array, expected);
        pages_t after;
        for (u32 i = 0; i < array.page_count; i++)
            after.push_back({item_count(array, i), data_offset(array, i)});
        EXPECT_EQ(after, c.after);
    }
}

TEST(array, shorter_side_moves_unless_it_has_no_room) {
    struct case_t {
        u32 count, offset;
        i32 position; // behind which a value is inserted, or that is removed
        u32 offset_after_insert, offset_after_remove;
    } cases[] = {
        {100, 400, -1, 396, 0},   {100, 400, 49, 396, 404}, {100, 400, 50, 400, 400},
        {100, 400, 99, 400, 400}, {100, 16, 3, 16, 20},     {100, 3696, 90, 3692, 3696},
        {101, 400, 49, 396, 404}, {101, 400, 50, 400, 400},
    };
    for (const case_t &c : cases) {
        SCOPED_TRACE(c.position);
        owned_t array;
        make_pages(&array, {{c.count, c.offset}});
        values_t expected = contents(array);
        if (c.position >= 0) {
            array_remove_at(&array, 0, c.position);
            expected.erase(expected.begin() + c.position);
            check(array, expected);
            EXPECT_EQ(data_offset(array, 0), c.offset_after_remove);
        }
        make_pages(&array, {{c.count, c.offset}});
        expected = contents(array);
        array_insert_at(&array, 0, c.position, 1);
        expected.insert(expected.begin() + c.position + 1, 1);
        check(array, expected);
        EXPECT_EQ(data_offset(array, 0), c.offset_after_insert);
    }
}

TEST(array, made_as_a_whole) {
    struct case_t {
        u32 count;
        u32 bulk_pages, bulk_last, bulk_offset;       // the last page's values, and where they start
        u32 memory_pages, memory_last, memory_offset; // the same for an array from memory
    } cases[] = {
        {0, 0, 0, 0, 0, 0, 0},
        {1, 1, 1, 2056, 1, 1, 2052},
        {2, 1, 2, 2052, 1, 2, 2052},
        {1004, 1, 1004, 48, 1, 1004, 48},
        {1005, 2, 1, 2056, 1, 1005, 44},
        {1020, 2, 16, 2024, 1, 1020, 16},
        {1021, 2, 17, 2024, 2, 1, 2052},
        {15 * 1020, 16, 240, 1576, 15, 1020, 16},
        {16 * 1020 + 3, 17, 259, 1540, 17, 3, 2048},
        {70000, 70, 724, 608, 69, 640, 776},
    };
    for (const case_t &c : cases) {
        SCOPED_TRACE(c.count);
        owned_t bulk, memory;
        values_t expected = numbers(c.count);
        array_bulk_create(&bulk, c.count);
        ASSERT_EQ(bulk.page_count, c.bulk_pages);
        u32 value = 1;
        for (u32 i = 0; i < bulk.page_count; i++) {
            for (u32 slot = 0; slot < item_count(bulk, i); slot++)
                array_page_values(bulk.pages[i])[slot] = value++;
        }
        check(bulk, expected);

        size_t used = mem_arena_used();
        array_set_from_memory(&memory, expected.data(), c.count);
        check(memory, expected);
        ASSERT_EQ(memory.page_count, c.memory_pages);
        if (c.memory_pages < 16) {
            EXPECT_EQ(mem_arena_used() - used, c.memory_pages * 4096u) << "small arrays take no whole block";
        }
        if (!c.count)
            continue;
        EXPECT_EQ(item_count(bulk, bulk.page_count - 1), c.bulk_last);
        EXPECT_EQ(data_offset(bulk, bulk.page_count - 1), c.bulk_offset);
        EXPECT_EQ(item_count(memory, memory.page_count - 1), c.memory_last);
        EXPECT_EQ(data_offset(memory, memory.page_count - 1), c.memory_offset);
        for (u32 i = 0; i + 1 < bulk.page_count; i++)
            ASSERT_TRUE(item_count(bulk, i) == 1004 && data_offset(bulk, i) == 48);

        // Made anew over what it held, and it takes changes like any other.
        array_copy(&memory, &bulk);
        check(memory, expected);
        u32 key = 0xFFFFFFFF;
        array_insert(&memory, compare_number, &key, key);
        expected.push_back(key);
        check(memory, expected);
    }
}

void append(array_t *array, const values_t &values, u32 **cursor, u32 **end) {
    for (u32 value : values) {
        if (*cursor == *end)
            *cursor = array_builder_new_page(array, end);
        *(*cursor)++ = value;
    }
}

TEST(array, builder) {
    for (u32 count : {0u, 1u, 1019u, 1020u, 1021u, 16320u, 16321u, 50000u}) {
        SCOPED_TRACE(count);
        owned_t array;
        u32 *cursor = nullptr, *end = nullptr;
        values_t values = numbers(count);
        append(&array, values, &cursor, &end);
        array_builder_finish(&array, cursor, end);
        check(array, values);

        // Whole arrays with gaps in their pages onto a builder that stands in the middle of a page.
        owned_t joined;
        cursor = end = nullptr;
        append(&joined, {7, 8, 9}, &cursor, &end);
        owned_t loose;
        array_bulk_create(&loose, count);
        u32 value = 1;
        for (u32 i = 0; i < loose.page_count; i++) {
            for (u32 slot = 0; slot < item_count(loose, i); slot++)
                array_page_values(loose.pages[i])[slot] = value++;
        }
        array_builder_append(&joined, &loose, &cursor, &end);
        array_builder_append(&joined, &array, &cursor, &end);
        append(&joined, {7}, &cursor, &end);
        array_builder_finish(&joined, cursor, end);
        values_t expected = {7, 8, 9};
        expected.insert(expected.end(), values.begin(), values.end());
        expected.insert(expected.end(), values.begin(), values.end());
        expected.push_back(7);
        check(joined, expected);
        EXPECT_EQ(joined.page_count, (joined.count + 1019) / 1020);
    }
}

TEST(array, builder_that_is_given_up_or_ends_with_an_unwritten_page) {
    owned_t array;
    u32 *cursor = nullptr, *end = nullptr;
    append(&array, numbers(3000), &cursor, &end);
    array_kill(&array); // nothing may leak

    cursor = end = nullptr;
    append(&array, numbers(1020), &cursor, &end);
    cursor = array_builder_new_page(&array, &end);
    array_builder_finish(&array, cursor, end);
    check(array, numbers(1020));
    array_kill(&array);

    cursor = array_builder_new_page(&array, &end);
    array_builder_finish(&array, cursor, end);
    check(array, {});
    u32 key = 5;
    EXPECT_TRUE(array_insert(&array, compare_number, &key, key));
    EXPECT_EQ(data_offset(array, 0), 2056u);
    check(array, {5});
}

TEST(array, taking_pages_joins_arrays_of_any_kind) {
    random_t random(5);
    size_t used = mem_arena_used();
    owned_t result;
    values_t expected;
    for (u32 part = 0; part < 12; part++) {
        owned_t local;
        values_t values =
            numbers(part % 4 == 2 ? 0 : random() % 20000 + 1, 1, static_cast<u32>(expected.size()) + 1);
        if (part % 2) {
            u32 *cursor = nullptr, *end = nullptr;
            append(&local, values, &cursor, &end);
            array_builder_finish(&local, cursor, end);
        } else {
            array_set_from_memory(&local, values.data(), static_cast<u32>(values.size()));
        }
        array_page_t *first = local.page_count ? local.pages[0] : nullptr;
        u32 place = result.page_count;
        array_take_pages(&result, &local);
        check(local, {});
        EXPECT_EQ(array_memory_size(&local), 0u);
        if (first) {
            EXPECT_EQ(result.pages[place], first) << "pages are moved, not copied";
        }
        expected.insert(expected.end(), values.begin(), values.end());
        check(result, expected);
    }
    // The free pages came along: no page of any block is lost.
    size_t table_size = result.capacity * (sizeof(array_page_t *) + sizeof(u32));
    EXPECT_EQ(array_memory_size(&result) - table_size, mem_arena_used() - used);
    // And everything is still one ordinary array.
    for (int i = 0; i < 3000; i++) {
        u32 key = static_cast<u32>(expected.size()) + 1;
        array_insert(&result, compare_number, &key, key);
        expected.push_back(key);
    }
    check(result, expected);
    check_lookups(result, expected, random, 500);
}

TEST(array, holds_zero) {
    owned_t array;
    u32 key = 0;
    EXPECT_TRUE(array_insert(&array, compare_number, &key, 0));
    EXPECT_FALSE(array_insert(&array, compare_number, &key, 0));
    EXPECT_TRUE(array_exists(&array, compare_number, &key));
    u32 page = 0, value = 1;
    i32 position = -1;
    EXPECT_TRUE(array_next_to(&array, &page, &position, &value));
    EXPECT_EQ(value, 0u);
    EXPECT_FALSE(array_next_to(&array, &page, &position, &value));
    EXPECT_TRUE(array_get_to(&array, 0, &page, &position, &value));
    EXPECT_TRUE(array_remove_exists(&array, compare_number, &key));
    EXPECT_FALSE(array_remove_exists(&array, compare_number, &key));
}

} // namespace

// Passes over many values: what is picked goes, in pieces and evenly spread, and what stays can be worked
// with.
TEST(array, passes_over_many_values) {
    for (bool has_words : {false, true}) {
        for (u32 share : {2u, 3u, 40u, 1000u}) {
            SCOPED_TRACE(share);
            random_t random(share);
            owned_t array;
            if (has_words)
                array_words_create(&array, word_of_number);
            values_t model = numbers(20000, 3);
            for (u32 value : model)
                array_insert(&array, compare_number, &value, value);
            auto goes = [share](u32 value) { return value % share != 0 && (value / 9000) % 2 == 0; };
            auto seldom = [share](u32 value) { return value % share == 1; };
            for (u32 round = 0; round < 2; round++) {
                auto picks = [&](u32 value) { return round == 0 ? goes(value) : seldom(value); };
                u32 removed = 0;
                for (u32 i = 0; i < array.page_count; i++)
                    removed += array_page_remove_if(&array, array.pages[i], picks);
                array_close(&array);
                u32 before = static_cast<u32>(model.size());
                model.erase(std::remove_if(model.begin(), model.end(), picks), model.end());
                ASSERT_EQ(removed, before - model.size());
                check(array, model);
                if (has_words)
                    check_words(array);
                for (u32 i = 0; i < 3000; i++) {
                    u32 value = random() % 60000 + 1;
                    auto place = std::lower_bound(model.begin(), model.end(), value);
                    if (array_insert(&array, compare_number, &value, value))
                        model.insert(place, value);
                }
            }
            values_t all(model.size());
            array_get_all(&array, all.data());
            ASSERT_EQ(all, model);
            std::reverse(model.begin() + 100, model.end() - 100);
            array_set_all(&array, model.data());
            check(array, model);
            if (has_words)
                check_words(array);
            for (u32 k = 0; k < array.page_count; k++)
                array_page_remove_if(&array, array.pages[k], [](u32) { return true; });
            array_close(&array);
            check(array, {});
            EXPECT_EQ(array_memory_size(&array), 0u); // an array that is empty gives all back
            u32 one = 7;
            array_insert(&array, compare_number, &one, one);
            check(array, {7});
            if (has_words)
                check_words(array);
        }
    }
}
