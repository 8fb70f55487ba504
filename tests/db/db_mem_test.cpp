#include "db/db_mem.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <vector>

using namespace findwright;

namespace {

struct db_mem_fixture : testing::Test {
    db_mem_t mem;
    size_t arena_used;
    void SetUp() override {
        arena_used = mem_arena_used();
        db_mem_init(&mem);
    }
    void TearDown() override {
        db_mem_kill(&mem);
        EXPECT_EQ(db_mem_used(&mem), 0u);
        EXPECT_EQ(mem_arena_used(), arena_used);
    }
    char *alloc(size_t size) { return static_cast<char *>(db_mem_alloc(&mem, size)); }
};

TEST_F(db_mem_fixture, records_are_packed_and_reused_by_exact_size) {
    for (size_t size : {5, 8, 17, 100, 252, 253, 255}) {
        char *a = alloc(size);
        char *b = alloc(size);
        EXPECT_EQ(b - a, static_cast<std::ptrdiff_t>((size + 3) / 4 * 4)) << "nothing lies between records";
        EXPECT_EQ(mem_ptr<char>(mem_ref(a)), a);
        db_mem_free(&mem, a, size);
        EXPECT_NE(alloc(size + 4), a);
        db_mem_free(&mem, b, size);
        EXPECT_EQ(alloc(size), b) << "the record freed last";
        EXPECT_EQ(alloc((size + 3) / 4 * 4 - 3), a) << "any size of the same four";
    }
}

TEST_F(db_mem_fixture, rest_of_a_block_becomes_a_free_record) {
    // 65,532 bytes in a block behind its link: 260 records of 252, and 12 bytes over.
    char *last = nullptr;
    for (int i = 0; i < 260; i++)
        last = alloc(252);
    EXPECT_EQ(mem_arena_used() - arena_used, 65536u);
    alloc(252);
    EXPECT_EQ(mem_arena_used() - arena_used, 2 * 65536u);
    EXPECT_EQ(alloc(12), last + 252);
    EXPECT_NE(alloc(12), last + 252);
}

TEST_F(db_mem_fixture, random_records_keep_their_content) {
    struct record_t {
        char *bytes;
        size_t size;
        u8 pattern;
    };
    std::mt19937 random(9);
    std::vector<record_t> records;
    size_t used = 0;
    auto take = [&](size_t at) {
        std::swap(records[at], records.back());
        record_t record = records.back();
        records.pop_back();
        auto whole = [&](char c) { return static_cast<u8>(c) == record.pattern; };
        ASSERT_TRUE(std::all_of(record.bytes, record.bytes + record.size, whole));
        db_mem_free(&mem, record.bytes, record.size);
        used -= (record.size + 3) / 4 * 4;
    };
    for (u32 i = 0; i < 60000; i++) {
        if (records.empty() || random() % 8 < (i / 6000 % 2 ? 3u : 6u)) {
            size_t size = random() % (random() % 20 ? 120 : 900) + 5;
            record_t record = {alloc(size), size, static_cast<u8>(random())};
            ASSERT_EQ(static_cast<size_t>(record.bytes - mem_arena_base) % 4, 0u);
            memset(record.bytes, record.pattern, size);
            records.push_back(record);
            used += (size + 3) / 4 * 4;
        } else {
            take(random() % records.size());
        }
        ASSERT_EQ(db_mem_used(&mem), used);
    }
    while (!records.empty())
        take(records.size() - 1);
    EXPECT_EQ(db_mem_used(&mem), 0u);
}

TEST_F(db_mem_fixture, large_records_unlink_anywhere_and_go_as_a_whole) {
    size_t sizes[] = {256, 257, 1000, 4096, 70000};
    for (u32 freed = 0; freed < 5; freed++) {
        char *records[5];
        for (u32 i = 0; i < 5; i++) {
            records[i] = alloc(sizes[i]);
            memset(records[i], static_cast<int>(i), sizes[i]);
        }
        db_mem_free(&mem, records[freed], sizes[freed]);
        for (u32 i = 0; i < 5; i++) {
            if (i != freed) {
                EXPECT_TRUE(records[i][0] == static_cast<char>(i) &&
                            records[i][sizes[i] - 1] == static_cast<char>(i));
            }
        }
        char *small = alloc(20);
        memset(small, 1, 20);
        db_mem_free_large(&mem);
        EXPECT_EQ(db_mem_used(&mem), 20u);
        EXPECT_EQ(small[19], 1);
        alloc(300);
        db_mem_free_small(&mem);
        EXPECT_EQ(db_mem_used(&mem), 300u);
        db_mem_free_large(&mem);
        EXPECT_EQ(mem_arena_used(), arena_used);
    }
}

#ifdef FINDWRIGHT_ASAN
TEST_F(db_mem_fixture, what_is_free_is_poisoned) {
    char *a = alloc(24);
    EXPECT_TRUE(__asan_address_is_poisoned(a + 32));
    db_mem_free(&mem, a, 24);
    EXPECT_TRUE(__asan_address_is_poisoned(a + 8));
    a = alloc(24);
    EXPECT_FALSE(__asan_region_is_poisoned(a, 24));
}
#endif

} // namespace
