#include "base/mem.h"
#include "base/platform.h"
#include "base/utf8_format.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <vector>

using namespace findwright;

namespace {

std::string log_text;

void capture_log(const char *format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    std::string line(utf8_format(nullptr, format, arguments), ' ');
    utf8_format(line.data(), format, again);
    va_end(again);
    log_text += line;
}

void print_fatal(const char *, int, const char *function, const char *message) {
    fprintf(stderr, "%s(): %s\n", function, message);
    fflush(stderr);
    std::_Exit(1);
}

// Log and fatal messages come to the test; the table is put back behind it.
class mem_test : public testing::Test {
  protected:
    void SetUp() override {
        saved = platform;
        platform.log = capture_log;
        platform.fatal = print_fatal;
        log_text.clear();
    }
    void TearDown() override { platform = saved; }
    platform_t saved;
};

size_t count_of(const std::string &text, const std::string &part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        count++;
    return count;
}

TEST_F(mem_test, counts_and_alignment) {
    size_t count = mem_live_count();
    size_t size = mem_live_size();
    size_t sum = 0;
    std::vector<void *> blocks;
    for (size_t bytes : {0, 1, 7, 15, 16, 17, 4096, 100001}) {
        void *block = mem_alloc(bytes);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(block) % 16, 0u) << bytes;
        memset(block, 0xFF, bytes);
        blocks.push_back(block);
        sum += bytes;
        EXPECT_EQ(mem_live_count(), count + blocks.size());
        EXPECT_EQ(mem_live_size(), size + sum);
    }
    for (void *block : blocks)
        mem_free(block);
    EXPECT_EQ(mem_live_count(), count);
    EXPECT_EQ(mem_live_size(), size);
}

TEST_F(mem_test, logs_large_requests_only) {
    mem_free(mem_alloc_debug("some.cpp", 12, 65536));
    EXPECT_EQ(log_text, "");
    mem_free(mem_alloc_debug("some.cpp", 12, 65537));
    EXPECT_EQ(log_text, "some.cpp(12): alloc 65537\n");
}

TEST_F(mem_test, try_alloc_refuses_what_no_heap_has) {
    size_t count = mem_live_count();
    for (size_t size : {SIZE_MAX, SIZE_MAX - 100, SIZE_MAX / 2, SIZE_MAX / 3})
        EXPECT_EQ(mem_try_alloc(size), nullptr);
    EXPECT_EQ(mem_live_count(), count);
    void *block = mem_try_alloc(100);
    ASSERT_NE(block, nullptr);
    mem_free(block);
}

TEST_F(mem_test, report_tells_counts_and_leaks) {
    mem_report();
    std::string without = log_text;
    void *a = mem_alloc_debug("leak_a.cpp", 11, 100);
    void *b = mem_alloc_debug("leak_b.cpp", 22, 200);
    void *c = mem_alloc_debug("leak_c.cpp", 33, 300);
    mem_free(b);
    log_text.clear();
    mem_report();
    std::string with = log_text;
    mem_free(a);
    mem_free(c);

    EXPECT_EQ(count_of(with, "MEM_DEBUG_START (" + std::to_string(mem_live_count() + 2) + ")\n"), 1u);
    EXPECT_EQ(count_of(with, "Allocation count: " + std::to_string(mem_live_count() + 2) + "\n"), 1u);
    EXPECT_EQ(count_of(with, "Allocation size: " + std::to_string(mem_live_size() + 400) + "\n"), 1u);
    EXPECT_EQ(count_of(with, "MEM_DEBUG_END\n"), 1u);
#ifndef NDEBUG
    EXPECT_EQ(count_of(with, " bytes\n"), count_of(without, " bytes\n") + 2);
    EXPECT_EQ(count_of(with, "leak_a.cpp(11): "), 1u);
    EXPECT_EQ(count_of(with, "leak_b.cpp"), 0u);
    EXPECT_LT(with.find(": 100 bytes\n"), with.find(": 300 bytes\n"));
#endif
}

TEST_F(mem_test, many_threads) {
    size_t count = mem_live_count();
    size_t size = mem_live_size();
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; t++) {
        threads.emplace_back([t] {
            std::vector<char *> blocks;
            for (int i = 0; i < 2000; i++) {
                blocks.push_back(static_cast<char *>(mem_alloc(static_cast<size_t>(i % 97 + t))));
                if (i % 3 == 0) {
                    mem_free(blocks[blocks.size() / 2]);
                    blocks.erase(blocks.begin() + static_cast<std::ptrdiff_t>(blocks.size() / 2));
                }
            }
            for (char *block : blocks)
                mem_free(block);
        });
    }
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(mem_live_count(), count);
    EXPECT_EQ(mem_live_size(), size);
}

#if GTEST_HAS_DEATH_TEST
using mem_death_test = mem_test;

TEST_F(mem_death_test, damaged_guards_end_the_process) {
    constexpr std::ptrdiff_t WORD = sizeof(void *);
    struct case_t {
        std::ptrdiff_t offset; // the byte that is overwritten, from the payload
        const char *message;
    } cases[] = {
        {-1, "INVALID FREE from x.cpp\\(7\\): .* bad magic 1 .*: "},
        {100, "INVALID FREE from x.cpp\\(7\\): .* bad magic 2 0: "},
        {100 + WORD - 1, "INVALID FREE from x.cpp\\(7\\): .* bad magic 2 0: "},
#ifndef NDEBUG
        {-1, "bad magic 1 63: "},
        {-64 * WORD, "bad magic 1 0: "},
        {100 + 5 * WORD, "bad magic 2 5: "},
        {100 + 64 * WORD - 1, "bad magic 2 63: "},
#endif
    };
    for (const case_t &c : cases) {
        EXPECT_DEATH(
            {
                char *block = static_cast<char *>(mem_alloc(100));
                block[c.offset] = static_cast<char>(~block[c.offset]);
                mem_free_debug("x.cpp", 7, block);
            },
            c.message);
    }
}

TEST_F(mem_death_test, null_and_no_memory_end_the_process) {
    EXPECT_DEATH(mem_free_debug("x.cpp", 7, nullptr),
                 "mem_free_debug\\(\\): INVALID FREE from x.cpp\\(7\\): ");
    EXPECT_DEATH(mem_alloc(SIZE_MAX - 1000), "mem_alloc_debug\\(\\): out of memory");
}
#endif

} // namespace
