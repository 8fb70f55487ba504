// The map of references, beside one of the standard library.
#include "base/ref_map.h"

#include <gtest/gtest.h>
#include <random>
#include <unordered_map>

using namespace findwright;

namespace {

void expect_equal(const ref_map_t<u64> &map, const std::unordered_map<u32, u64> &expected) {
    ASSERT_EQ(map.count, expected.size());
    for (const auto &[key, value] : expected) {
        const u64 *found = ref_map_find(&map, key);
        ASSERT_TRUE(found) << key;
        EXPECT_EQ(*found, value);
    }
    u32 used = 0;
    for (u32 i = 0; i < ref_map_capacity(&map); i++)
        used += map.slots[i].key != 0;
    EXPECT_EQ(used, map.count);
}

// Keys as records have them, one behind the other, and others that share their low or their high bits.
TEST(RefMap, HoldsWhatWasPutIn) {
    std::mt19937 random(5);
    for (u32 step : {1u, 12u, 1024u, 65536u, 0x01000000u}) {
        ref_map_t<u64> map;
        ref_map_init(&map);
        EXPECT_FALSE(ref_map_find(&map, step));
        EXPECT_FALSE(ref_map_remove(&map, step));
        std::unordered_map<u32, u64> expected;
        for (u32 i = 0; i < 20000; i++) {
            u32 key = static_cast<u32>(random() % 3000 + 1) * step;
            if (key == 0)
                continue;
            if (random() % 5 < 3 || i < 3000) {
                u64 *value = ref_map_make(&map, key);
                EXPECT_EQ(*value, expected[key]); // zero at first
                *value = expected[key] = random();
            } else {
                EXPECT_EQ(ref_map_remove(&map, key), expected.erase(key) == 1);
            }
        }
        expect_equal(map, expected);
        while (!expected.empty()) {
            EXPECT_TRUE(ref_map_remove(&map, expected.begin()->first));
            expected.erase(expected.begin());
        }
        expect_equal(map, expected);
        ref_map_kill(&map);
        EXPECT_EQ(ref_map_capacity(&map), 0u);
    }
}

} // namespace
