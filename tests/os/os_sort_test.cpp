#include "os/os_internal.h"
#include "os_test_support.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

using namespace findwright;

namespace {

std::atomic<u64> comparisons;

int compare(u32 a, u32 b) {
    comparisons.fetch_add(1, std::memory_order_relaxed);
    return a < b ? -1 : a > b;
}

// By the upper bits alone: many values are equal, and nothing else than the multiset can be told.
int compare_keys(u32 a, u32 b, void *shift) {
    return compare(a >> *static_cast<u32 *>(shift), b >> *static_cast<u32 *>(shift));
}

std::vector<u32> pattern(const std::string &name, u32 count) {
    std::mt19937 random(count);
    std::vector<u32> values(count);
    for (u32 i = 0; i < count; i++)
        values[i] = name == "random"       ? static_cast<u32>(random())
                    : name == "sorted"     ? i
                    : name == "reversed"   ? count - i
                    : name == "organ pipe" ? std::min(i, count - i)
                    : name == "saw"        ? i % 64
                    : name == "equal"      ? 7
                                      : i + (i % 100 == 0 ? static_cast<u32>(random() % count) : 0); // nearly
    return values;
}

class os_sort_test : public testing::Test {
  protected:
    void SetUp() override { processors = os_processor_count; }
    void TearDown() override {
        os_processor_count = processors;
        max_threads = 0;
    }
    u32 processors;
};

TEST_F(os_sort_test, patterns) {
    os_processor_count = 5; // more slices than two, on any machine
    for (const char *name : {"random", "sorted", "reversed", "organ pipe", "saw", "equal", "nearly sorted"}) {
        for (u32 count : {0u, 1u, 2u, 3u, 12u, 13u, 100u, 65536u, 65537u, 300000u}) {
            std::vector<u32> values = pattern(name, count);
            std::vector<u32> expected = values;
            std::sort(expected.begin(), expected.end());
            comparisons = 0;
            os_qsort(values.data(), count, compare);
            EXPECT_EQ(values, expected) << name << " " << count;
            EXPECT_LE(static_cast<double>(comparisons), 60 + 1.6 * count * std::log2(count + 2))
                << name << " " << count;
        }
    }
}

TEST_F(os_sort_test, equal_keys_keep_all_values) {
    os_processor_count = 4;
    for (u32 shift : {20u, 31u}) {
        std::vector<u32> values = pattern("random", 200000);
        std::vector<u32> before = values;
        os_qsort_with_param(values.data(), 200000, compare_keys, &shift);
        EXPECT_TRUE(std::is_sorted(values.begin(), values.end(),
                                   [shift](u32 a, u32 b) { return a >> shift < b >> shift; }));
        std::sort(before.begin(), before.end());
        std::sort(values.begin(), values.end());
        EXPECT_EQ(values, before);
    }
}

TEST_F(os_sort_test, threads_by_count_setting_and_processors) {
    struct {
        u32 count, max, processors;
        const char *log;
    } cases[] = {
        {65536, 0, 8, ""},
        {65537, 0, 8, "multithreaded sort: items 65537, ideal threads 2, actual threads 2\n"},
        {65537, 1, 8, ""},
        {65537, 0, 1, ""},
        {200000, 3, 8, "multithreaded sort: items 200000, ideal threads 4, actual threads 3\n"},
        {200000, 3, 2, "multithreaded sort: items 200000, ideal threads 4, actual threads 2\n"},
    };
    log_capture_t log;
    for (const auto &entry : cases) {
        os_processor_count = entry.processors;
        max_threads = entry.max;
        std::vector<u32> values = pattern("random", entry.count);
        log.take();
        os_qsort(values.data(), entry.count, compare);
        std::string text = log.take();
        size_t line = text.find("multithreaded"); // threads of the pool log themselves
        EXPECT_EQ(line == std::string::npos ? "" : text.substr(line, text.find('\n', line) + 1 - line),
                  entry.log);
        EXPECT_TRUE(std::is_sorted(values.begin(), values.end()));
    }
}

// Decides what the values are while they are compared, so that each pivot turns out to be among the smallest:
// what makes a plain quicksort quadratic, whatever way it chooses its pivots.
struct adversary_t {
    std::vector<u32> rank;
    u32 undecided;
    u32 decided = 0;
    u32 candidate = 0;
};

int adversary_compare(u32 a, u32 b, void *param) {
    auto *adversary = static_cast<adversary_t *>(param);
    comparisons++;
    auto &rank = adversary->rank;
    if (rank[a] == adversary->undecided && rank[b] == adversary->undecided)
        rank[a == adversary->candidate ? a : b] = adversary->decided++;
    if (rank[a] == adversary->undecided)
        adversary->candidate = a;
    else if (rank[b] == adversary->undecided)
        adversary->candidate = b;
    return rank[a] < rank[b] ? -1 : rank[a] > rank[b];
}

TEST_F(os_sort_test, no_input_is_quadratic) {
    constexpr u32 COUNT = 50000;
    adversary_t adversary{std::vector<u32>(COUNT, COUNT), COUNT};
    std::vector<u32> values(COUNT);
    for (u32 i = 0; i < COUNT; i++)
        values[i] = i;
    comparisons = 0;
    os_qsort_with_param(values.data(), COUNT, adversary_compare, &adversary);
    EXPECT_LE(static_cast<double>(comparisons), 5 * COUNT * std::log2(COUNT));
    EXPECT_TRUE(std::is_sorted(values.begin(), values.end(),
                               [&](u32 a, u32 b) { return adversary.rank[a] < adversary.rank[b]; }));
}

// Keys that change under the sort: no order is right, but no value may be lost and nothing else touched.
TEST_F(os_sort_test, contradicting_comparison_loses_nothing) {
    os_processor_count = 3;
    int (*answers[])(u32, u32) = {
        [](u32, u32) { return -1; },
        [](u32, u32) { return 1; },
        [](u32 a, u32 b) {
            static thread_local u32 state = 1;
            state = state * 1664525 + 1013904223 + a - b;
            return static_cast<int>(state >> 30) - 1;
        },
    };
    for (auto *answer : answers) {
        for (u32 count : {13u, 1000u, 150000u}) {
            std::vector<u32> values = pattern("random", count + 2);
            std::vector<u32> before = values;
            os_qsort(values.data() + 1, count, answer);
            EXPECT_EQ(values.front(), before.front());
            EXPECT_EQ(values.back(), before.back());
            std::sort(values.begin(), values.end());
            std::sort(before.begin(), before.end());
            EXPECT_EQ(values, before);
        }
    }
}

} // namespace
