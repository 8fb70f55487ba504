#include "base/mem_ref.h"
#include "base/platform.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <thread>
#include <vector>

using namespace findwright;

namespace {

constexpr size_t MIB = 1 << 20;

struct block_t {
    char *bytes;
    size_t size;
    u8 pattern;
};

block_t make_block(size_t size, u8 pattern) {
    char *bytes = static_cast<char *>(mem_arena_alloc(size));
    memset(bytes, pattern, size);
    return {bytes, size, pattern};
}

bool is_whole(const block_t &block) {
    for (size_t i = 0; i < block.size; i++) {
        if (static_cast<u8>(block.bytes[i]) != block.pattern)
            return false;
    }
    return true;
}

// Random requests, most of them small, each filled with a pattern that must still be there when it is freed:
// two blocks that overlap, or an allocator that writes into one, would have changed it.
void churn(u32 seed, int steps) {
    std::mt19937 random(seed);
    std::vector<block_t> blocks;
    auto random_size = [&] {
        static constexpr size_t LIMITS[] = {64, 300, 3600, 4200, 20000, 70000, 300000};
        return random() % LIMITS[std::min(random() % 16, random() % 7)] + 1;
    };
    for (int i = 0; i < steps; i++) {
        bool grow = i / 500 % 2 == 0;
        if (blocks.empty() || random() % 8 < (grow ? 6 : 2)) {
            block_t block = make_block(random_size(), static_cast<u8>(random()));
            size_t align = block.size >= MEM_ARENA_PAGE ? MEM_ARENA_PAGE : 16;
            ASSERT_EQ(static_cast<size_t>(block.bytes - mem_arena_base) % align, 0u) << block.size;
            ASSERT_GE(mem_ref(block.bytes), MEM_REF_FIRST);
            ASSERT_EQ(mem_ptr<char>(mem_ref(block.bytes)), block.bytes);
            blocks.push_back(block);
        } else {
            std::swap(blocks[random() % blocks.size()], blocks.back());
            ASSERT_TRUE(is_whole(blocks.back()));
            mem_arena_free(blocks.back().bytes, blocks.back().size);
            blocks.pop_back();
        }
    }
    for (block_t &block : blocks) {
        ASSERT_TRUE(is_whole(block));
        mem_arena_free(block.bytes, block.size);
    }
}

// Each test starts with an arena that was never used.
class mem_arena_test : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(mem_arena_used(), 0u);
        mem_arena_kill();
        mem_arena_init();
    }
    void TearDown() override { EXPECT_EQ(mem_arena_used(), 0u); }
};

TEST_F(mem_arena_test, random_blocks_never_overlap) {
    churn(1, 20000);
    // With everything freed, all is one run again: the next block is the very first.
    void *block = mem_arena_alloc(3 * MIB);
    EXPECT_EQ(mem_ref(block), MEM_REF_FIRST);
    mem_arena_free(block, 3 * MIB);
}

TEST_F(mem_arena_test, many_threads) {
    std::vector<std::thread> threads;
    for (u32 t = 0; t < 4; t++)
        threads.emplace_back([t] { churn(100 + t, 4000); });
    for (std::thread &thread : threads)
        thread.join();
}

TEST_F(mem_arena_test, freed_runs_join_with_both_neighbours) {
    std::vector<char *> blocks;
    for (int i = 0; i < 64; i++)
        blocks.push_back(static_cast<char *>(mem_arena_alloc(65536)));
    char *first = blocks[0];
    void *last = mem_arena_alloc(4096); // keeps the run away from the top
    std::shuffle(blocks.begin(), blocks.end(), std::mt19937(7));
    for (char *block : blocks)
        mem_arena_free(block, 65536);

    char *whole = static_cast<char *>(mem_arena_alloc(64 * 65536));
    EXPECT_EQ(whole, first);
    mem_arena_free(whole, 64 * 65536);
    // A part of the run leaves a rest that serves the next request.
    char *part = static_cast<char *>(mem_arena_alloc(40 * 65536 + 1));
    char *rest = static_cast<char *>(mem_arena_alloc(20 * 65536));
    EXPECT_EQ(part, first);
    EXPECT_EQ(rest, first + 40 * 65536 + 4096);
    mem_arena_free(part, 40 * 65536 + 1);
    mem_arena_free(rest, 20 * 65536);
    mem_arena_free(last, 4096);
}

TEST_F(mem_arena_test, large_free_runs_go_back_to_the_system) {
    constexpr size_t KEPT = 72 * MIB; // what may stay committed, with a margin
    char *in_front = static_cast<char *>(mem_arena_alloc(5000));
    char *large = static_cast<char *>(mem_arena_alloc(256 * MIB));
    char *behind = static_cast<char *>(mem_arena_alloc(5000));
    EXPECT_GE(mem_arena_committed(), 256 * MIB);
    mem_arena_free(large, 256 * MIB);
    EXPECT_LT(mem_arena_committed(), KEPT);

    // It is usable again in full, and so is what lies beside it.
    large = static_cast<char *>(mem_arena_alloc(256 * MIB));
    for (size_t i = 0; i < 256 * MIB; i += MIB / 2)
        large[i] = 1;
    large[256 * MIB - 1] = 1;
    memset(in_front, 1, 5000);
    memset(behind, 1, 5000);
    mem_arena_free(large, 256 * MIB);
    mem_arena_free(behind, 5000);
    mem_arena_free(in_front, 5000);
    EXPECT_LT(mem_arena_committed(), KEPT);

    // The same where the run comes together from many small blocks, in any order.
    std::vector<char *> blocks;
    for (size_t i = 0; i < 256 * MIB / 65536; i++)
        blocks.push_back(static_cast<char *>(mem_arena_alloc(65536)));
    EXPECT_GE(mem_arena_committed(), 256 * MIB);
    std::shuffle(blocks.begin(), blocks.end(), std::mt19937(7));
    for (char *block : blocks)
        mem_arena_free(block, 65536);
    EXPECT_LT(mem_arena_committed(), KEPT);
}

#if defined(__GNUC__)
__attribute__((no_sanitize_address))
#endif
u32 read_behind(const char *end) {
    u32 sum = 0;
    for (u32 i = 0; i < MEM_ARENA_SLACK; i++)
        sum += static_cast<const volatile u8 *>(reinterpret_cast<const u8 *>(end))[i];
    return sum;
}

TEST_F(mem_arena_test, trimming_gives_back_all_that_is_free) {
    size_t before = mem_arena_committed();
    void *in_front = mem_arena_alloc(MIB), *middle = mem_arena_alloc(20 * MIB),
         *behind = mem_arena_alloc(MIB);
    memset(in_front, 1, MIB);
    memset(behind, 2, MIB);
    mem_arena_free(middle, 20 * MIB);
    mem_arena_trim();
    EXPECT_LT(mem_arena_committed(), before + 8 * MIB);
    EXPECT_EQ(1, static_cast<char *>(in_front)[MIB - 1]);
    EXPECT_EQ(2, static_cast<char *>(behind)[0]);
    middle = mem_arena_alloc(20 * MIB); // and it can be had again
    memset(middle, 3, 20 * MIB);
    mem_arena_free(middle, 20 * MIB);
    mem_arena_free(in_front, MIB);
    mem_arena_free(behind, MIB);
}

TEST_F(mem_arena_test, slack_behind_every_block_can_be_read) {
    // Blocks that end where a commit unit ends, at the top and in front of a run that is given back.
    for (size_t size : {MIB / 16 - 4096, MIB - 4096, 2 * MIB - 4096}) {
        mem_arena_kill();
        mem_arena_init();
        char *block = static_cast<char *>(mem_arena_alloc(size));
        read_behind(block + size);
        char *large = static_cast<char *>(mem_arena_alloc(128 * MIB));
        char *behind = static_cast<char *>(mem_arena_alloc(4096));
        mem_arena_free(large, 128 * MIB);
        ASSERT_LT(mem_arena_committed(), 72 * MIB);
        read_behind(block + size);
        read_behind(behind + 4096);
        mem_arena_free(behind, 4096);
        mem_arena_free(block, size);
    }
}

#ifdef FINDWRIGHT_ASAN
TEST_F(mem_arena_test, what_is_not_handed_out_is_poisoned) {
    for (size_t size : {24, 1000, 4096, 65536, 100000}) {
        char *block = static_cast<char *>(mem_arena_alloc(size));
        EXPECT_FALSE(__asan_region_is_poisoned(block, size)) << size;
        EXPECT_TRUE(__asan_address_is_poisoned(block + size)) << size;
        mem_arena_free(block, size);
        EXPECT_TRUE(__asan_address_is_poisoned(block)) << size;
        EXPECT_TRUE(__asan_address_is_poisoned(block + size - 1)) << size;
    }
}
#endif

#if GTEST_HAS_DEATH_TEST
void print_fatal(const char *, int, const char *function, const char *message) {
    fprintf(stderr, "%s(): %s\n", function, message);
    fflush(stderr);
    std::_Exit(1);
}

TEST_F(mem_arena_test, full_arena_ends_the_process) {
    platform_t saved = platform;
    platform.fatal = print_fatal;
    constexpr size_t LIMIT = static_cast<size_t>(16) << 30;
    for (size_t size : {LIMIT - 4096, LIMIT, LIMIT + 1, SIZE_MAX})
        EXPECT_DEATH(mem_arena_alloc(size), "out of memory: .* limit of 16 GiB, about 130 million items");
    platform = saved;
}
#endif

} // namespace
