#include "track/db_schedule.h"

#include <gtest/gtest.h>

namespace findwright {
namespace {

constexpr u64 HOUR = 36000000000, MINUTE = HOUR / 60, DAY = 24 * HOUR;
constexpr u64 SUNDAY = 6 * DAY; // 1601-01-07

TEST(DbSchedule, IsMadeOfWhatMakesSense) {
    const struct {
        db_schedule_settings_t settings;
        u32 type, value;
    } cases[] = {
        {{1, 90, 0, 0, 0}, 1, 90},  {{1, 6, 1, 9, 99}, 1, 360}, {{1, 0, 0, 0, 0}, 0, 0},
        {{1, 5, 2, 0, 0}, 0, 0},    {{1, -5, 0, 0, 0}, 0, 0},   {{2, 0, 0, 0, 3}, 2, 3},
        {{2, 0, 0, 7, 23}, 2, 191}, {{2, 0, 0, 8, 3}, 0, 0},    {{2, 0, 0, 0, 24}, 0, 0},
        {{2, 0, 0, -1, 3}, 0, 0},   {{0, 6, 1, 0, 3}, 0, 0},    {{3, 6, 1, 0, 3}, 0, 0},
    };
    for (const auto &test : cases) {
        db_schedule_t schedule = db_schedule_make(&test.settings);
        EXPECT_EQ(test.type, schedule.type);
        EXPECT_EQ(test.value, schedule.value);
    }
}

TEST(DbSchedule, NextTime) {
    const struct {
        db_schedule_t schedule;
        u64 now, next;
    } cases[] = {
        {{2, 3}, 2 * HOUR, 3 * HOUR},
        {{2, 3}, 4 * HOUR, DAY + 3 * HOUR},
        {{2, 3}, 3 * HOUR, 3 * HOUR},
        {{2, 24 + 3}, SUNDAY + 2 * HOUR, SUNDAY + 3 * HOUR},
        {{2, 24 + 3}, SUNDAY + 4 * HOUR, SUNDAY + 7 * DAY + 3 * HOUR},
        {{2, 2 * 24 + 3}, SUNDAY + 4 * HOUR, SUNDAY + DAY + 3 * HOUR},
        {{2, 7 * 24}, SUNDAY + 4 * HOUR, SUNDAY + 6 * DAY},
        {{1, 90}, 5, 5 + 90 * MINUTE},
        {{0, 0}, 77, 77},
    };
    for (const auto &test : cases)
        EXPECT_EQ(test.next, db_schedule_next_local(&test.schedule, test.now)) << test.schedule.value;
}

} // namespace
} // namespace findwright
