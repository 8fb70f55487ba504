// Dates of a search in zones whose clocks change. Rules written out in TZ need no time zone files.
#include "query/db_query_value.h"

#include "os/os.h"

#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <string>

namespace findwright {
namespace {

constexpr u64 SECOND = 10000000;

u64 utc(int year, int month, int day, int hour, int minute = 0) {
    tm broken = {};
    broken.tm_year = year - 1900;
    broken.tm_mon = month - 1;
    broken.tm_mday = day;
    broken.tm_hour = hour;
    broken.tm_min = minute;
    return static_cast<u64>(timegm(&broken) + 11644473600) * SECOND;
}

class DbQueryZone : public testing::Test {
  protected:
    void SetUp() override {
        const char *old = getenv("TZ");
        had = old != nullptr;
        saved = old ? old : "";
        os_calendar_t calendar = {1, OS_ORDER_DAY_MONTH_YEAR, 2049};
        db_query_set_calendar(&calendar);
    }
    void TearDown() override {
        db_query_set_now(0);
        db_query_set_calendar(nullptr);
        if (had)
            set(saved.c_str());
        else
            unsetenv("TZ");
        tzset();
    }
    static void set(const char *zone) {
        setenv("TZ", zone, 1);
        tzset();
    }
    bool had;
    std::string saved;
};

TEST_F(DbQueryZone, SummerTime) {
    constexpr const char *NEW_YORK = "EST5EDT,M3.2.0,M11.1.0";
    constexpr const char *BERLIN = "CET-1CEST,M3.5.0,M10.5.0/3";
    constexpr const char *LORD_HOWE = "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0";
    constexpr const char *HAVANA = "CST5CDT,M3.2.0/0,M11.1.0/1"; // midnight is left out, and shown twice
    const struct {
        const char *zone, *text;
        u64 from, before;
    } cases[] = {
        // Days of 23, 25, 23.5 and 24.5 hours.
        {BERLIN, "2024-03-31", utc(2024, 3, 30, 23), utc(2024, 3, 31, 22)},
        {BERLIN, "27.10.2024", utc(2024, 10, 26, 22), utc(2024, 10, 27, 23)},
        {NEW_YORK, "20240310", utc(2024, 3, 10, 5), utc(2024, 3, 11, 4)},
        {NEW_YORK, "2024-11-03", utc(2024, 11, 3, 4), utc(2024, 11, 4, 5)},
        {LORD_HOWE, "2024-10-06", utc(2024, 10, 5, 13, 30), utc(2024, 10, 6, 13)},
        {LORD_HOWE, "2024-04-07", utc(2024, 4, 6, 13), utc(2024, 4, 7, 13, 30)},
        {HAVANA, "2024-03-10", utc(2024, 3, 10, 5), utc(2024, 3, 11, 4)},
        {HAVANA, "2024-03-09", utc(2024, 3, 9, 5), utc(2024, 3, 10, 5)},
        {HAVANA, "2024-11-03", utc(2024, 11, 3, 4), utc(2024, 11, 4, 5)},
        // The hour that is shown twice, the one that is left out, and what is within them.
        {BERLIN, "2024-10-27T02", utc(2024, 10, 27, 0), utc(2024, 10, 27, 2)},
        {BERLIN, "2024-10-27T02:59", utc(2024, 10, 27, 0, 59), utc(2024, 10, 27, 1)},
        {BERLIN, "2024-03-31T02", utc(2024, 3, 31, 1), utc(2024, 3, 31, 1)},
        {BERLIN, "2024-03-31T03", utc(2024, 3, 31, 1), utc(2024, 3, 31, 2)},
        // The rules of the date hold, not those of today.
        {BERLIN, "2024", utc(2023, 12, 31, 23), utc(2024, 12, 31, 23)},
        {BERLIN, "7/2024", utc(2024, 6, 30, 22), utc(2024, 7, 31, 22)},
        {BERLIN, "2024-03", utc(2024, 2, 29, 23), utc(2024, 3, 31, 22)},
        {BERLIN, "1.1.2024T12-1.7.2024T12", utc(2024, 1, 1, 11), utc(2024, 7, 1, 11)},
        {"<+0530>-5:30", "2024-02-29", utc(2024, 2, 28, 18, 30), utc(2024, 2, 29, 18, 30)},
        {"<+14>-14", "2025", utc(2024, 12, 31, 10), utc(2025, 12, 31, 10)},
        {"<-12>12", "2025", utc(2025, 1, 1, 12), utc(2026, 1, 1, 12)},
        {"UTC0", "2024-03-31", utc(2024, 3, 31, 0), utc(2024, 4, 1, 0)},
    };
    for (const auto &entry : cases) {
        set(entry.zone);
        db_range_t range = db_query_parse_date_argument(entry.text);
        EXPECT_EQ(range.low, entry.from) << entry.zone << " " << entry.text;
        EXPECT_EQ(range.high, entry.before - 1) << entry.zone << " " << entry.text;
    }
}

TEST_F(DbQueryZone, NowIsLocal) {
    set("CET-1CEST,M3.5.0,M10.5.0/3");
    // In Berlin it is the Monday behind the change already: 00:30.
    u64 now = utc(2024, 3, 31, 22, 30);
    db_query_set_now(now);
    const struct {
        const char *text;
        u64 from, to;
    } cases[] = {
        {"today", utc(2024, 3, 31, 22), utc(2024, 4, 1, 22) - 1},
        {"yesterday", utc(2024, 3, 30, 23), utc(2024, 3, 31, 22) - 1},
        {"thisweek", utc(2024, 3, 31, 22), utc(2024, 4, 7, 22) - 1},
        {"lastweek", utc(2024, 3, 24, 23), utc(2024, 3, 31, 22) - 1}, // an hour less
        {"lastmonth", utc(2024, 2, 29, 23), utc(2024, 3, 31, 22) - 1},
        {"apr", utc(2024, 3, 31, 22), utc(2024, 4, 30, 22) - 1},
        // Months keep the time of the day, days are 24 hours.
        {"last2months", utc(2024, 1, 31, 23, 30), now},
        {"last2days", utc(2024, 3, 29, 22, 30), now},
    };
    for (const auto &entry : cases) {
        db_range_t range = db_query_parse_date_argument(entry.text);
        EXPECT_EQ(range.low, entry.from) << entry.text;
        EXPECT_EQ(range.high, entry.to) << entry.text;
    }
}

} // namespace
} // namespace findwright
