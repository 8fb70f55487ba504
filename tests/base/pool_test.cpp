// The three bulk allocators.
#include "base/obstack.h"
#include "base/pointer_pool.h"
#include "base/pool.h"

#include "base/mem.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <vector>

using namespace findwright;

namespace {

struct piece_t {
    char *bytes;
    size_t size;
};

// Takes pieces of random sizes, fills each with its own pattern, and then finds all patterns whole.
template<class alloc_t>
void check_pieces(alloc_t alloc, size_t align) {
    std::mt19937 random(3);
    std::vector<piece_t> pieces;
    for (u32 i = 0; i < 5000; i++) {
        size_t size = random() % (i % 10 == 0 ? 3000 : 260) + 1;
        if (i % 100 == 0)
            size = 256 + i / 100 % 2; // the largest small one, and the smallest of the others
        char *bytes = static_cast<char *>(alloc(size));
        ASSERT_EQ(reinterpret_cast<std::uintptr_t>(bytes) % align, 0u);
        memset(bytes, static_cast<int>(i % 251), size);
        pieces.push_back({bytes, size});
    }
    for (u32 i = 0; i < pieces.size(); i++) {
        auto is_pattern = [i](char c) { return static_cast<u32>(c) == i % 251; };
        ASSERT_TRUE(std::all_of(pieces[i].bytes, pieces[i].bytes + pieces[i].size, is_pattern)) << i;
    }
}

TEST(pool, pieces_keep_their_content) {
    size_t live = mem_live_count();
    pool_t pool;
    pool_init(&pool);
    check_pieces([&](size_t size) { return pool_alloc(&pool, size); }, sizeof(void *));
    pool_clear(&pool);
    EXPECT_EQ(mem_live_count(), live);
    EXPECT_NE(pool_alloc(&pool, 0), nullptr);
    pool_kill(&pool);
    EXPECT_EQ(mem_live_count(), live);
}

TEST(pool, chunk_sizes) {
    struct case_t {
        size_t request;
        size_t chunk;
    } cases[] = {
        {1, 65536},
        {256, 65536},
        {65536 - sizeof(void *), 65536},
        {65536 - sizeof(void *) + 1, 65537},
        {100000, 100000 + sizeof(void *)},
    };
    for (const case_t &c : cases) {
        pool_t pool;
        pool_init(&pool);
        size_t live = mem_live_size();
        pool_new_chunk(&pool, c.request);
        EXPECT_EQ(mem_live_size() - live, c.chunk);
        EXPECT_EQ(static_cast<size_t>(pool.end - pool.cursor), c.chunk - sizeof(void *));
        pool_kill(&pool);
    }
}

TEST(obstack, items_are_counted_and_listed_in_order) {
    for (u32 item_size : {4u, 10u, 24u, 5000u, 65536u}) {
        size_t used = mem_arena_used();
        obstack_t obstack;
        obstack_init(&obstack, item_size);
        EXPECT_EQ(obstack_count(&obstack), 0u);
        u32 per_chunk = 65536 / ((item_size + 3) / 4 * 4);
        std::vector<mem_ref_t> expected;
        for (u32 i = 0; i < per_chunk * 3 + 1; i++) {
            void *item = obstack_alloc(&obstack);
            memset(item, static_cast<int>(i % 251), item_size);
            expected.push_back(mem_ref(item));
            if (i % per_chunk < 2) {
                ASSERT_EQ(obstack_count(&obstack), i + 1);
            }
        }
        EXPECT_EQ(mem_arena_used() - used, 4 * 65536u);

        obstack_t other;
        obstack_init(&other, 8);
        obstack_swap(&obstack, &other);
        std::vector<mem_ref_t> items(obstack_count(&other));
        obstack_to_array(&other, items.data());
        EXPECT_EQ(items, expected);
        for (u32 i = 0; i < items.size(); i++)
            ASSERT_EQ(mem_ptr<u8>(items[i])[item_size - 1], i % 251);
        obstack_kill(&other);
        EXPECT_EQ(mem_arena_used(), used);
        // A killed one is as new.
        obstack_alloc(&other);
        EXPECT_EQ(obstack_count(&other), 1u);
        obstack_kill(&other);
        obstack_kill(&obstack);
    }
}

TEST(obstack_bytes, pieces_keep_their_content) {
    size_t used = mem_arena_used();
    obstack_bytes_t obstack;
    obstack_bytes_init(&obstack);
    check_pieces([&](size_t size) { return obstack_bytes_alloc(&obstack, size); }, 4);
    obstack_bytes_kill(&obstack);
    EXPECT_EQ(mem_arena_used(), used);
}

TEST(pointer_pool, entries_by_index_and_in_ranges) {
    for (u32 count : {0u, 1u, 16383u, 16384u, 16385u, 70000u}) {
        size_t live = mem_live_count();
        pointer_pool_t pool;
        pointer_pool_init(&pool);
        for (u32 i = 0; i < count; i++)
            pointer_pool_push(&pool, i * 3 + 1);
        ASSERT_EQ(pointer_pool_count(&pool), count);

        std::vector<mem_ref_t> copy(count + 1, 0xAAAAAAAA);
        pointer_pool_copy(&pool, copy.data());
        EXPECT_EQ(copy[count], 0xAAAAAAAA);
        for (u32 i = 0; i < count; i++) {
            ASSERT_EQ(copy[i], i * 3 + 1);
            ASSERT_EQ(pointer_pool_get(&pool, i), i * 3 + 1);
        }

        // From any index on, ranges lead through the rest, each to the end of its chunk.
        for (u32 index : {0u, 5u, 16383u, 16384u, 20000u, count}) {
            mem_ref_t *first, *end;
            u32 at = index;
            for (pointer_pool_get_range(&pool, at, &first, &end); first != end;
                 pointer_pool_get_range(&pool, at, &first, &end)) {
                EXPECT_EQ(*first, at * 3 + 1);
                at += static_cast<u32>(end - first);
                EXPECT_TRUE(at == count || at % 16384 == 0);
            }
            EXPECT_EQ(at, std::max(index, count));
        }
        pointer_pool_kill(&pool);
        EXPECT_EQ(mem_live_count(), live);
    }
}

#ifdef FINDWRIGHT_ASAN
TEST(pools, what_is_not_handed_out_is_poisoned) {
    pool_t pool;
    obstack_t obstack;
    obstack_bytes_t bytes;
    pool_init(&pool);
    obstack_init(&obstack, 24);
    obstack_bytes_init(&bytes);
    char *pieces[] = {static_cast<char *>(pool_alloc(&pool, 24)),
                      static_cast<char *>(obstack_alloc(&obstack)),
                      static_cast<char *>(obstack_bytes_alloc(&bytes, 20))};
    for (char *piece : pieces) {
        EXPECT_FALSE(__asan_region_is_poisoned(piece, 20));
        EXPECT_TRUE(__asan_address_is_poisoned(piece + 24));
    }
    pool_kill(&pool);
    obstack_kill(&obstack);
    obstack_bytes_kill(&bytes);
}
#endif

} // namespace
