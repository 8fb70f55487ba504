#include "os_test_support.h"

#include <vector>

using namespace findwright;

namespace {

constexpr u64 SECOND = 10000000;

TEST(os_time, calendar_of_local_times) {
    struct {
        u64 local;
        std::vector<u16> fields;
    } cases[] = {
        // About noon, which no clock leaves out or shows twice.
        {51408000000000, {1601, 3, 1, 12, 0, 0, 0}},
        {31291920000000000, {1700, 2, 28, 12, 0, 0, 0}},
        {94669776000000000, {1900, 12, 31, 12, 0, 0, 0}},
        {116445168000000000, {1970, 1, 1, 12, 0, 0, 0}},
        {125962992000000000, {2000, 2, 29, 12, 0, 0, 0}},
        {133536842967890000, {2024, 2, 29, 12, 44, 56, 789}},
        {133537679999999999, {2024, 3, 1, 11, 59, 59, 999}},
        {157520592000000000, {2100, 3, 1, 12, 0, 0, 0}},
        {2650467323990000000, {9999, 12, 31, 12, 19, 59, 0}},
    };
    for (const auto &entry : cases) {
        u16 fields[7];
        ASSERT_TRUE(platform.local_fields(os_local_time_to_file_time(entry.local), fields)) << entry.local;
        EXPECT_EQ(std::vector<u16>(fields, fields + 7), entry.fields) << entry.local;
    }
}

TEST(os_time, dates_and_ticks) {
    os_date_t date;
    u64 ticks;
    for (u64 day = 0; day < 10674900; day += 13) { // into 30827
        u64 there = day * 86400 * SECOND + 45296789 * (SECOND / 1000);
        os_ticks_to_date(there, &date);
        ASSERT_TRUE(os_date_to_ticks(&date, &ticks)) << day;
        ASSERT_EQ(ticks, there);
    }
    const os_date_t none[] = {
        {1600, 12, 31, 0, 0, 0, 0}, {30828, 1, 1, 0, 0, 0, 0},   {2024, 0, 1, 0, 0, 0, 0},
        {2024, 13, 1, 0, 0, 0, 0},  {2024, 4, 31, 0, 0, 0, 0},   {2024, 4, 0, 0, 0, 0, 0},
        {2100, 2, 29, 0, 0, 0, 0},  {2024, 1, 1, 24, 0, 0, 0},   {2024, 1, 1, 0, 60, 0, 0},
        {2024, 1, 1, 0, 0, 60, 0},  {2024, 1, 1, 0, 0, 0, 1000},
    };
    for (const os_date_t &entry : none)
        EXPECT_FALSE(os_date_to_ticks(&entry, &ticks))
            << entry.year << " " << entry.month << " " << entry.day;
}

TEST(os_time, any_value_survives) {
    const u64 values[] = {0,
                          1,
                          SECOND,
                          863999999999,
                          864000000000,
                          116444736000000000,
                          133536834967891234,
                          2650467743999999999,
                          2650467744000000000,
                          0x7FFFFFFFFFFFFFFE,
                          0x7FFFFFFFFFFFFFFF,
                          0x8000000000000000,
                          VALUE_UNKNOWN - 1,
                          VALUE_UNKNOWN};
    for (u64 value : values) {
        u64 local = os_file_time_to_local(value);
        u64 distance = local > value ? local - value : value - local;
        EXPECT_LE(distance, 15 * 3600 * SECOND) << value;
        EXPECT_EQ(distance % SECOND, 0u) << value;
        os_local_time_to_file_time(value);
        u16 fields[7];
        EXPECT_EQ(platform.local_fields(value, fields), value < 0x8000000000000000) << value;
        char text[64];
        u32 length = platform.format_short_date_time(text, sizeof(text), value);
        EXPECT_EQ(length, std::strlen(text)) << value;
        if (value >= 0x8000000000000000) {
            EXPECT_EQ(local, value);
            EXPECT_EQ(length, 0u);
        }
    }
    char text[64];
    EXPECT_GT(platform.format_short_date_time(text, sizeof(text), 133536834967891234), 8u);
    EXPECT_EQ(platform.format_short_date_time(text, 5, 133536834967891234), 4u);
}

TEST(os_time, round_trip_through_years) {
    // Every 13 hours and some of twelve years: both changes of the clocks lie in between. Two file times can
    // have the same local time, so the way is from there.
    for (u64 time = 130000000000000000; time < 134000000000000000; time += 468123456789) {
        u64 local = os_file_time_to_local(time);
        EXPECT_EQ(os_file_time_to_local(os_local_time_to_file_time(local)), local) << time;
    }
}

TEST(os_time, clocks_run) {
    u32 ticks = os_get_tick_count();
    u64 time = os_get_file_time();
    os_event_t *event = os_event_create();
    os_event_wait(event, 50);
    os_event_destroy(event);
    u32 passed = os_get_tick_count() - ticks;
    EXPECT_GE(passed, 45000u);
    EXPECT_LT(passed, 30000000u);
    EXPECT_GE(os_get_file_time(), time);
    EXPECT_GT(time, 133000000000000000u); // 2022
    EXPECT_LE(os_file_time_to_local(time), os_get_local_file_time());
}

} // namespace
