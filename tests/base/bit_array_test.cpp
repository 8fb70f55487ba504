#include "base/bit_array.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

namespace findwright {
namespace {

void check(bit_array_t *bits, const std::vector<bool> &expected, u32 round) {
    u32 count = 0, place = 0;
    ASSERT_EQ(expected.size(), bits->size) << round;
    for (u32 i = 0; i < bits->size; i++) {
        ASSERT_EQ(expected[i], bit_array_get(bits, i)) << round << " " << i;
        if (!expected[i])
            continue;
        ASSERT_EQ(i, bit_array_find(bits, count++)) << round;
        ASSERT_EQ(i, bit_array_next(bits, place)) << round;
        place = i + 1;
    }
    ASSERT_EQ(count, bits->count) << round;
    ASSERT_EQ(bits->size, bit_array_next(bits, place)) << round;
}

// Against a plain list of truth values, for sizes on both sides of the borders of words and ranks.
TEST(BitArray, EqualsAPlainList) {
    std::mt19937 random(7);
    for (u32 size : {0u, 1u, 63u, 64u, 65u, 200u, 4095u, 4096u, 4097u, 9000u}) {
        bit_array_t bits;
        bit_array_init(&bits);
        bit_array_reset(&bits, size);
        std::vector<bool> expected(size);
        for (u32 round = 0; round < 60; round++) {
            size = static_cast<u32>(expected.size());
            u32 a = size != 0 ? static_cast<u32>(random() % (size + 1)) : 0;
            u32 b = size != 0 ? static_cast<u32>(random() % (size + 1)) : 0;
            switch (random() % 6) {
            case 0:
                bit_array_set_range(&bits, std::min(a, b), std::max(a, b));
                std::fill(expected.begin() + std::min(a, b), expected.begin() + std::max(a, b), true);
                break;
            case 1:
                bit_array_invert(&bits);
                expected.flip();
                break;
            case 2:
                bit_array_reverse(&bits);
                std::reverse(expected.begin(), expected.end());
                break;
            case 3: // also past the room that there is, and down to nothing
                for (u32 i = 0; i < 150; i++) {
                    u32 place = static_cast<u32>(random() % (expected.size() + 1));
                    bool value = random() % 2 == 0;
                    bit_array_insert(&bits, place, value);
                    expected.insert(expected.begin() + place, value);
                }
                break;
            case 4:
                for (u32 i = 0; i < 140 && !expected.empty(); i++) {
                    u32 place = static_cast<u32>(random() % expected.size());
                    EXPECT_EQ(expected[place], bit_array_remove(&bits, place));
                    expected.erase(expected.begin() + place);
                }
                break;
            default:
                for (u32 i = 0; i < 20 && size != 0; i++) {
                    u32 place = static_cast<u32>(random() % size);
                    bool value = random() % 3 == 0;
                    EXPECT_EQ(expected[place] != value, bit_array_set(&bits, place, value));
                    expected[place] = value;
                }
            }
            check(&bits, expected, round);
        }
        bit_array_kill(&bits);
    }
}

// Rows that come and go at the end and at the front, with a few of them or none set.
TEST(BitArray, GrowsAndShrinksAtItsEnds) {
    for (bool value : {false, true}) {
        bit_array_t bits;
        bit_array_init(&bits);
        std::vector<bool> expected;
        for (u32 i = 0; i < 300; i++) {
            bool is_set = value && i % 7 == 0;
            bit_array_insert(&bits, i % 2 ? bits.size : 0, is_set);
            expected.insert(i % 2 ? expected.end() : expected.begin(), is_set);
        }
        check(&bits, expected, 0);
        EXPECT_EQ(value, bits.words != nullptr);
        bit_array_reset(&bits, 300);
        bit_array_set_range(&bits, 0, 10);
        bit_array_truncate(&bits, 10);
        expected.assign(10, true);
        check(&bits, expected, 1);
        while (bits.size != 0) {
            EXPECT_TRUE(bit_array_remove(&bits, bits.size % 2 ? bits.size - 1 : 0));
            expected.pop_back();
            check(&bits, expected, 2);
        }
        bit_array_kill(&bits);
    }
}

} // namespace
} // namespace findwright
