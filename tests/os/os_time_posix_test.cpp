#include "os/os_posix.h"
#include "os_test_support.h"

#include <cstdlib>
#include <ctime>

using namespace findwright;

namespace {

constexpr u64 HOUR = 36000000000;

// Rules written out in TZ need no time zone files.
class os_time_zone : public testing::Test {
  protected:
    void SetUp() override {
        const char *old = getenv("TZ");
        had = old != nullptr;
        saved = old ? old : "";
    }
    void TearDown() override {
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

u64 at(int year, int month, int day, int hour, int minute) {
    tm broken = {};
    broken.tm_year = year - 1900;
    broken.tm_mon = month - 1;
    broken.tm_mday = day;
    broken.tm_hour = hour;
    broken.tm_min = minute;
    return static_cast<u64>(timegm(&broken) + 11644473600) * 10000000;
}

TEST_F(os_time_zone, daylight_saving) {
    constexpr const char *NEW_YORK = "EST5EDT,M3.2.0,M11.1.0";
    constexpr const char *BERLIN = "CET-1CEST,M3.5.0,M10.5.0/3";
    constexpr const char *SYDNEY = "AEST-10AEDT,M10.1.0,M4.1.0/3";
    struct {
        const char *zone;
        u64 utc, local;
    } cases[] = {
        {NEW_YORK, at(2024, 1, 15, 12, 0), at(2024, 1, 15, 7, 0)},
        {NEW_YORK, at(2024, 7, 15, 12, 0), at(2024, 7, 15, 8, 0)},
        {NEW_YORK, at(2024, 3, 10, 6, 59), at(2024, 3, 10, 1, 59)}, // the last minute before the change
        {NEW_YORK, at(2024, 3, 10, 7, 0), at(2024, 3, 10, 3, 0)},
        {NEW_YORK, at(2024, 11, 3, 5, 30), at(2024, 11, 3, 1, 30)}, // shown twice, this is the first
        {NEW_YORK, at(2024, 11, 3, 7, 0), at(2024, 11, 3, 2, 0)},
        {NEW_YORK, at(2025, 1, 1, 3, 0), at(2024, 12, 31, 22, 0)},
        {BERLIN, at(2024, 3, 31, 0, 59), at(2024, 3, 31, 1, 59)},
        {BERLIN, at(2024, 3, 31, 1, 0), at(2024, 3, 31, 3, 0)},
        {BERLIN, at(2024, 10, 27, 0, 30), at(2024, 10, 27, 2, 30)},
        {BERLIN, at(2024, 10, 27, 2, 0), at(2024, 10, 27, 3, 0)},
        {SYDNEY, at(2024, 4, 6, 15, 30), at(2024, 4, 7, 2, 30)},
        {SYDNEY, at(2024, 10, 5, 16, 0), at(2024, 10, 6, 3, 0)},
        {"<+0545>-5:45", at(2024, 5, 1, 0, 0), at(2024, 5, 1, 5, 45)},
        {"UTC0", at(2024, 5, 1, 0, 0), at(2024, 5, 1, 0, 0)},
    };
    for (const auto &entry : cases) {
        set(entry.zone);
        EXPECT_EQ(os_file_time_to_local(entry.utc + 1234567), entry.local + 1234567)
            << entry.zone << entry.utc;
        EXPECT_EQ(os_local_time_to_file_time(entry.local + 1234567), entry.utc + 1234567)
            << entry.zone << entry.utc;
    }
    set(NEW_YORK);
    EXPECT_EQ(os_file_time_to_local(at(2024, 11, 3, 6, 30)), at(2024, 11, 3, 1, 30)); // the second 1:30
    // 2:30 was left out.
    EXPECT_EQ(os_local_time_to_file_time(at(2024, 3, 10, 2, 30)), at(2024, 3, 10, 7, 30));
}

TEST_F(os_time_zone, ends_of_time) {
    set("EST5");
    EXPECT_EQ(os_file_time_to_local(4 * HOUR), 4 * HOUR); // would be 1600
    EXPECT_EQ(os_file_time_to_local(5 * HOUR), 0u);
    set("CET-1");
    EXPECT_EQ(os_file_time_to_local(0), HOUR);
    EXPECT_EQ(os_file_time_to_local(0x7FFFFFFFFFFFFFFF), 0x7FFFFFFFFFFFFFFF + HOUR);
    EXPECT_EQ(os_file_time_to_local(0x8000000000000000), 0x8000000000000000);
}

TEST(os_calendar, order_of_formats) {
    const struct {
        const char *format;
        os_date_order_t order;
    } cases[] = {
        {"%m/%d/%Y", OS_ORDER_MONTH_DAY_YEAR},
        {"%d.%m.%Y", OS_ORDER_DAY_MONTH_YEAR},
        {"%Y-%m-%d", OS_ORDER_YEAR_MONTH_DAY},
        {"%F", OS_ORDER_YEAR_MONTH_DAY},
        {"%D", OS_ORDER_MONTH_DAY_YEAR},
        {"%A %-d %b %y", OS_ORDER_DAY_MONTH_YEAR},
        {"%a, %B %e, %Y", OS_ORDER_MONTH_DAY_YEAR},
        {"%Ey\xE5\xB9\xB4%m%d", OS_ORDER_YEAR_MONTH_DAY},
        {"%Od.%Om.%Oy", OS_ORDER_DAY_MONTH_YEAR},
        {"m/%%y %d", OS_ORDER_DAY_MONTH_YEAR},
        {"", OS_ORDER_DAY_MONTH_YEAR},
        {"%", OS_ORDER_DAY_MONTH_YEAR},
    };
    for (const auto &entry : cases)
        EXPECT_EQ(os_date_order_of_format(entry.format), entry.order) << entry.format;
}

} // namespace
