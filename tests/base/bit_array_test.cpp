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
        for (u32 round = 0; round < 40; round++) {
            u32 a = size != 0 ? static_cast<u32>(random() % (size + 1)) : 0;
            u32 b = size != 0 ? static_cast<u32>(random() % (size + 1)) : 0;
            switch (random() % 4) {
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

} // namespace
} // namespace findwright
