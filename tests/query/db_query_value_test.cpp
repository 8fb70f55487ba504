// Counts, sizes and dates of a search: the grammar of their texts. Zones with summer time are in
// db_query_date_posix_test.cpp.
#include "query/db_query_value.h"

#include "os/os.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>

namespace findwright {

static void PrintTo(const db_range_t &range, std::ostream *out) {
    *out << range.low << " to " << range.high;
}
static bool operator==(const db_range_t &a, const db_range_t &b) {
    return a.low == b.low && a.high == b.high;
}

namespace {

constexpr db_range_t ALL = {0, DB_RANGE_MAX};
constexpr db_range_t NOTHING = {1, 0};
constexpr db_range_t ZERO = {0, 0};
constexpr db_range_t UNKNOWN = {VALUE_UNKNOWN, VALUE_UNKNOWN};

TEST(DbQueryValue, Comparison) {
    const struct {
        const char *text;
        db_comparison_t comparison;
        const char *rest;
    } cases[] = {
        {">=1", DB_COMPARE_AT_LEAST, "1"}, {">1", DB_COMPARE_MORE, "1"},  {"<=1", DB_COMPARE_AT_MOST, "1"},
        {"<1", DB_COMPARE_LESS, "1"},      {"=1", DB_COMPARE_EQUAL, "1"}, {"==1", DB_COMPARE_EQUAL, "1"},
        {"1>", DB_COMPARE_NONE, "1>"},     {"", DB_COMPARE_NONE, ""},     {"=>1", DB_COMPARE_EQUAL, ">1"},
        {"<", DB_COMPARE_LESS, ""},
    };
    for (const auto &entry : cases) {
        db_comparison_t comparison;
        EXPECT_STREQ(db_query_term_parse_comparison(entry.text, &comparison), entry.rest) << entry.text;
        EXPECT_EQ(comparison, entry.comparison) << entry.text;
    }
}

TEST(DbQueryValue, Counts) {
    constexpr i32 MAX = 0x7FFFFFFF;
    const struct {
        const char *text;
        i32 low, high;
    } cases[] = {
        {"", 1, MAX},
        {"5", 5, 5},
        {"=5", 5, 5},
        {"==5", 5, 5},
        {"0", 0, 0},
        {"1,234,", 1234, 1234},
        {"12abc", 12, 12},
        {"abc", 0, 0},
        {"3..7", 3, 7},
        {"3-7", 3, 7},
        {"=3..7", 3, 7},
        {"-7", 0, 7},
        {"7..", 7, 0},
        {"3.7", 3, 3},
        {">=3", 3, MAX},
        {">=3..7", 3, MAX},
        {">3", 4, MAX},
        {">3..7", 8, MAX},
        {">", 1, MAX},
        {">2147483646", MAX, MAX},
        {">2147483647", 1, 0},
        {">3..2147483647", 1, 0},
        {"<=3", 0, 3},
        {"<=3..7", 0, 7},
        {"<3", 0, 2},
        {"<3..7", 0, 2},
        {"<0", 1, 0},
        {"<", 1, 0},
        {"4294967301", 5, 5},
        {"2147483648", -MAX - 1, -MAX - 1},
        {"<2147483648", 0, MAX},
    };
    for (const auto &entry : cases) {
        db_count_range_t range = db_query_parse_count_argument(entry.text);
        EXPECT_EQ(range.low, entry.low) << entry.text;
        EXPECT_EQ(range.high, entry.high) << entry.text;
    }
}

TEST(DbQueryValue, Sizes) {
    constexpr u64 LAST_BLOCK = DB_RANGE_MAX - 1021; // of the sizes that 64 bits hold
    constexpr u64 EB = u64{1} << 60;
    const struct {
        const char *text;
        db_range_t range;
    } cases[] = {
        {"", ALL},
        {"0", ZERO},
        {"empty", ZERO},
        {"tiny", {1, 10240}},
        {"SMALL", {10241, 102400}},
        {"Medium", {102401, 1048576}},
        {"large", {1048577, 16777216}},
        {"huge", {16777217, 134217728}},
        {"gigantic", {134217729, DB_RANGE_MAX}},
        {"unknown", UNKNOWN},
        {"tiny..small", {1, 102400}},
        {"tiny-5kb", {1, 5120}},
        {"1,234", {1234, 1234}},
        {"17b", {17, 17}},
        {"17.9", {17, 17}},
        {"17.9B", {17, 17}},
        {"0kb", ZERO},
        {"1kb", {1, 1024}},
        {"5KB", {4097, 5120}},
        {"1.5mb", {1571841, 1572864}},
        {".5kb", {1, 1024}},
        {"1.001kb", {1025, 2048}},
        {"0.0009765625mb", {1, 1024}},
        {"0.00097656251mb", {1, 1024}}, // 1024 bytes and less than one more
        {"0.000978mb", {1025, 2048}},
        {"1.kb", {1, 1024}},
        {"1.,5kb", {1, 1}}, // the point ends the number
        {"1gb", {1073740801, 1073741824}},
        {"1tb", {(u64{1} << 40) - 1023, u64{1} << 40}},
        {"1pb", {(u64{1} << 50) - 1023, u64{1} << 50}},
        {"1.5eb", {EB / 2 * 3 - 1023, EB / 2 * 3}},
        {"1.25eb", {EB / 4 * 5 - 1023, EB / 4 * 5}},
        {"15.999999999999999999eb", {LAST_BLOCK, DB_RANGE_MAX}},
        {"16eb", {LAST_BLOCK, DB_RANGE_MAX}},
        {"99999999999999999999999kb", {LAST_BLOCK, DB_RANGE_MAX}},
        {"18446744073709551613", {DB_RANGE_MAX - 1, DB_RANGE_MAX - 1}},
        {"18446744073709551615", {DB_RANGE_MAX, DB_RANGE_MAX}},
        {"99999999999999999999999", {DB_RANGE_MAX, DB_RANGE_MAX}},
        {"1mb..2mb", {1047553, 2097152}},
        {"1mb-2mb", {1047553, 2097152}},
        {"1..2kb", {1, 2048}},
        {"1.5kb..2.5kb", {1025, 3072}},
        {"..5", {0, 5}},
        {"5..", {5, DB_RANGE_MAX}},
        {"2mb..1mb", {2096129, 1048576}},
        {"1..2..3", {1, 2}},
        {"1/2", {1, 1}},
        {"large pictures", {1048577, 16777216}},
        {"nonsense", ZERO},
        {">1mb", {1048577, DB_RANGE_MAX}},
        {">=1mb", {1047553, DB_RANGE_MAX}},
        {"<1mb", {0, 1047552}},
        {"<=1mb", {0, 1048576}},
        {"=1kb", {1, 1024}},
        {">tiny..small", {102401, DB_RANGE_MAX}},
        {"<small..large", {0, 10240}},
        {"<0", NOTHING},
        {"<empty", NOTHING},
        {">gigantic", NOTHING},
        {">unknown", NOTHING},
        {">", NOTHING},
        {">=", ALL},
        {"<unknown", ALL},
    };
    for (const auto &entry : cases)
        EXPECT_EQ(db_query_parse_size_argument(entry.text), entry.range) << entry.text;
    EXPECT_EQ(db_query_parse_size("1mb..2mb", false), (db_range_t{1047553, 1048576}));
}

TEST(DbQueryValue, NamedSizesAreSettings) {
    const i32 tiny = size_tiny, small = size_small, huge = size_huge;
    size_tiny = -1;
    size_small = 0x7FFFFFFF;
    EXPECT_EQ(db_query_parse_size("tiny", true), (db_range_t{1, 0}));
    EXPECT_EQ(db_query_parse_size("small", true), (db_range_t{1, 0x7FFFFFFF}));
    EXPECT_EQ(db_query_parse_size("medium", true), (db_range_t{0x80000000, 1048576}));
    size_huge = 5;
    EXPECT_EQ(db_query_parse_size("gigantic", true), (db_range_t{6, DB_RANGE_MAX}));
    size_tiny = tiny;
    size_small = small;
    size_huge = huge;
}

// --- Dates -------------------------------------------------------------------------------------------------

// "2021-03-04 05:06:07.008" of this machine's zone, as far as it is given.
u64 at(const char *text) {
    os_date_t date = {0, 1, 1, 0, 0, 0, 0};
    sscanf(text, "%u-%u-%u %u:%u:%u.%u", &date.year, &date.month, &date.day, &date.hour, &date.minute,
           &date.second, &date.millisecond);
    u64 ticks;
    EXPECT_TRUE(os_date_to_ticks(&date, &ticks)) << text;
    return os_local_time_to_file_time(ticks);
}

class DbQueryDate : public testing::Test {
  protected:
    void TearDown() override {
        db_query_set_now(0);
        db_query_set_calendar(nullptr);
    }
    static void set(os_date_order_t order, u32 first_weekday = 0, u32 two_digit_year_max = 2049) {
        os_calendar_t calendar = {first_weekday, order, two_digit_year_max};
        db_query_set_calendar(&calendar);
    }
};

// From one date to just before another; an empty text is the widest end, "0" the range that holds nothing.
struct date_case_t {
    const char *text, *from, *before;
};

void expect_dates(const date_case_t *cases, size_t count) {
    for (size_t i = 0; i < count; i++) {
        const date_case_t &entry = cases[i];
        u64 low = std::strcmp(entry.from, "0") && *entry.from ? at(entry.from) : 0;
        u64 high = !*entry.before ? DB_RANGE_MAX : std::strcmp(entry.before, "0") ? at(entry.before) - 1 : 0;
        EXPECT_EQ(db_query_parse_date_argument(entry.text), (db_range_t{low, high})) << entry.text;
    }
}
template<size_t count>
void expect_dates(const date_case_t (&cases)[count]) {
    expect_dates(cases, count);
}

// A Wednesday.
constexpr const char *NOW = "2024-03-13 15:20:30.456";

TEST_F(DbQueryDate, Words) {
    db_query_set_now(at(NOW) + 1234);
    set(OS_ORDER_DAY_MONTH_YEAR);
    expect_dates({
        {"", "", ""},
        {"today", "2024-03-13", "2024-03-14"},
        {"YesterDay", "2024-03-12", "2024-03-13"},
        {"tomorrow", "2024-03-14", "2024-03-15"},
        {"thisweek", "2024-03-10", "2024-03-17"},
        {"lastweek", "2024-03-03", "2024-03-10"},
        {"comingweek", "2024-03-17", "2024-03-24"},
        {"prevmonth", "2024-02-01", "2024-03-01"},
        {"currentmonth", "2024-03-01", "2024-04-01"},
        {"nextmonth", "2024-04-01", "2024-05-01"},
        {"pastyear", "2023", "2024"},
        {"thisyear", "2024", "2025"},
        {"NEXTYEAR", "2025", "2026"},
        {"january", "2024-01", "2024-02"},
        {"may", "2024-05", "2024-06"},
        {"dec", "2024-12", "2025-01"},
        {"lastfebruary", "2023-02", "2023-03"},
        {"nextfeb", "2025-02", "2025-03"},
        {"sunday", "2024-03-10", "2024-03-11"},
        {"mon", "2024-03-11", "2024-03-12"},
        {"Saturday", "2024-03-16", "2024-03-17"}, // ahead, and taken as it stands
        {"lastwednesday", "2024-03-06", "2024-03-07"},
        {"nextsun", "2024-03-17", "2024-03-18"},
        {"yesterday..tomorrow", "2024-03-12", "2024-03-15"},
        {"mon-fri", "2024-03-11", "2024-03-16"},
        {"today-", "2024-03-13", ""},
        {"lastmonth..today", "2024-02-01", "2024-03-14"},
        {">lastweek", "2024-03-10", ""},
        {"<=thisweek", "", "2024-03-17"},
        {"<today", "", "2024-03-13"},
        {">=today", "2024-03-13", ""},
        {"last", "0", "0"},
        {"last2week", "0", "0"},
        {"last 2 weeks", "0", "0"},
        {"thistoday", "0", "0"},
        {"this2024", "0", "0"},
        {"week", "0", "0"},
        {"foo", "0", "0"},
        {"..today", "", "2024-03-14"},
    });
    EXPECT_EQ(db_query_parse_date_argument("unknown"), UNKNOWN);
    EXPECT_EQ(db_query_parse_date_argument(">unknown"), NOTHING);
    EXPECT_EQ(db_query_parse_date_argument("<foo"), NOTHING);
    EXPECT_EQ(db_query_parse_date_argument("today..unknown").high, VALUE_UNKNOWN);
    EXPECT_EQ(db_query_parse_date("mon-fri", false), db_query_parse_date("mon", false));
}

TEST_F(DbQueryDate, FirstDayOfTheWeek) {
    const struct {
        const char *now;
        u32 first_weekday;
        const char *from, *before;
    } cases[] = {
        {"2024-03-17 00:00", 0, "2024-03-17", "2024-03-24"},    // a Sunday
        {"2024-03-17 23:59:59", 1, "2024-03-11", "2024-03-18"}, // whose week began on Monday
        {"2024-03-18 00:00", 1, "2024-03-18", "2024-03-25"},
        {"2024-03-15 12:00", 6, "2024-03-09", "2024-03-16"},
        {"2024-12-31 12:00", 1, "2024-12-30", "2025-01-06"},
        {"1999-12-31 12:00", 0, "1999-12-26", "2000-01-02"},
    };
    for (const auto &entry : cases) {
        db_query_set_now(at(entry.now));
        set(OS_ORDER_DAY_MONTH_YEAR, entry.first_weekday);
        expect_dates({{"thisweek", entry.from, entry.before}});
    }
}

TEST_F(DbQueryDate, EndsOfYears) {
    db_query_set_now(at("2024-12-31 23:59:59.999"));
    expect_dates({
        {"today", "2024-12-31", "2025-01-01"},
        {"tomorrow", "2025-01-01", "2025-01-02"},
        {"nextmonth", "2025-01-01", "2025-02-01"},
        {"thismonth", "2024-12-01", "2025-01-01"},
    });
    db_query_set_now(at("2025-01-01"));
    expect_dates({{"yesterday", "2024-12-31", "2025-01-01"}, {"lastmonth", "2024-12-01", "2025-01-01"}});
}

TEST_F(DbQueryDate, SpansFromNow) {
    constexpr u64 SECOND = 10000000, DAY = 86400 * SECOND;
    u64 now = at(NOW);
    db_query_set_now(now + 9999); // the span is to the millisecond
    const struct {
        const char *text;
        db_range_t range;
    } cases[] = {
        {"last1weeks", {now - 7 * DAY, now}},
        {"this3days", {now - 3 * DAY, now}},
        {"next10hours", {now, now + 36000 * SECOND}},
        {"past90minutes", {now - 5400 * SECOND, now}},
        {"prev5mins", {now - 300 * SECOND, now}},
        {"coming7SECS", {now, now + 7 * SECOND}},
        {"last0seconds", {now, now}},
        {"last3months", {at("2023-12-13 15:20:30.456"), now}},
        {"next10months", {now, at("2025-01-13 15:20:30.456")}},
        {"last2years", {at("2022-03-13 15:20:30.456"), now}},
        {"last5years..last1years", {at("2019-03-13 15:20:30.456"), now}},
        {"last9999months", {0, now}},
        {"last99999999999999999999days", {0, now}},
        {"next99999999999999999999secs", {now, DB_RANGE_MAX}},
        {"next18446744073709551615years", {now, DB_RANGE_MAX}},
        {"next1537228672809129302years", {now, DB_RANGE_MAX}}, // times 12 is 8 in 64 bits
        {"next400000months", {now, DB_RANGE_MAX}},
        {">last1weeks", {now + 1, DB_RANGE_MAX}},
    };
    for (const auto &entry : cases)
        EXPECT_EQ(db_query_parse_date_argument(entry.text), entry.range) << entry.text;

    const struct {
        const char *now, *text, *moved;
    } clamped[] = {
        {"2024-03-31 12:00", "last1months", "2024-02-29 12:00"},
        {"2023-03-31 12:00", "last1months", "2023-02-28 12:00"},
        {"2024-02-29 12:00", "last1years", "2023-02-28 12:00"},
        {"2024-02-29 12:00", "last4years", "2020-02-29 12:00"},
        {"2000-02-29 12:00", "last100years", "1900-02-28 12:00"},
        {"2024-01-31 12:00", "last2months", "2023-11-30 12:00"},
    };
    for (const auto &entry : clamped) {
        db_query_set_now(at(entry.now));
        EXPECT_EQ(db_query_parse_date_argument(entry.text), (db_range_t{at(entry.moved), at(entry.now)}))
            << entry.text << entry.now;
    }
}

TEST_F(DbQueryDate, YearFirst) {
    db_query_set_now(at(NOW));
    set(OS_ORDER_DAY_MONTH_YEAR);
    expect_dates({
        {"2021-", "2021", "2022"},
        {"2021-03", "2021-03", "2021-04"},
        {"2021-3-", "2021-03", "2021-04"},
        {"2021-12", "2021-12", "2022-01"},
        {"2024-02-29", "2024-02-29", "2024-03-01"},
        {"2023-02-28", "2023-02-28", "2023-03-01"},
        {"2021-12-31", "2021-12-31", "2022-01-01"},
        {"2021-1-2t3", "2021-01-02 03:00", "2021-01-02 04:00"},
        {"2021-01-02T03:04", "2021-01-02 03:04", "2021-01-02 03:05"},
        {"2021-01-02T23:59:59", "2021-01-02 23:59:59", "2021-01-03"},
        {"2021-01-02T03:04:05.", "2021-01-02 03:04:05", "2021-01-02 03:04:06"},
        {"2021-01-02T03:04:05.6", "2021-01-02 03:04:05.006", "2021-01-02 03:04:05.007"},
        {"2021-01-02T03:04:05.9998887", "2021-01-02 03:04:05.999", "2021-01-02 03:04:06"},
        {"2021-01-02T03:04:05..2021-01-02T03:04:06", "2021-01-02 03:04:05", "2021-01-02 03:04:07"},
        {"2021-01-02T", "2021-01-02", "2021-01-03"},
        {"2021-03-01..2021-03-05", "2021-03-01", "2021-03-06"},
        {"2021-03-01-2021-03-05", "2021-03-01", "2021-03-06"},
        {"2021-03-01/2021-03-05", "2021-03-01", "2021-03-06"},
        {"2021-03-2021-05", "2021-03", "2021-06"},
        {"2021-03..2021-05", "2021-03", "2021-06"},
        {"2021-2022", "2021", "2023"},
        {"2019-2021-05-06", "2019", "2021-05-07"},
        {"2021-..today", "2021", "2024-03-14"},
        {"2021-02-29", "0", "0"},
        {"1900-02-29", "0", "0"},
        {"2021-00", "0", "0"},
        {"2021-01-00", "0", "0"},
        {"2021-01-02T24", "0", "0"},
        {"2021-01-02T03:60", "0", "0"},
        {"2021-01-02T03:04:60", "0", "0"},
        {"2021-01-4294967298", "2021-01", "0"},
        {"1600-12-31", "0", "0"},
        {"30828-01-01", "0", "0"},
        {"99999-", "0", "0"},
        // The compact form.
        {"202103", "2021-03", "2021-04"},
        {"20210315", "2021-03-15", "2021-03-16"},
        {"2021031", "2021-03", "2021-04"},
        {"20210315T10", "2021-03-15 10:00", "2021-03-15 11:00"},
        {"202103151030", "2021-03-15 10:30", "2021-03-15 10:31"},
        {"20210315t10:30:45", "2021-03-15 10:30:45", "2021-03-15 10:30:46"},
        {"20210315T103045.123456", "2021-03-15 10:30:45.123", "2021-03-15 10:30:45.124"},
        {"20210315103045123", "2021-03-15 10:30:45.123", "2021-03-15 10:30:45.124"},
        {"20210315T103045..20210316", "2021-03-15 10:30:45", "2021-03-17"},
        {"20210315-20210316", "2021-03-15", "2021-03-17"},
        {"20210315-3.4.2021", "2021-03-15", "2021-04-04"},
        {"20210315-", "2021-03-15", ""},
        {"20211301", "0", "0"},
        {"20210229", "0", "0"},
    });
}

TEST_F(DbQueryDate, LocalOrders) {
    db_query_set_now(at(NOW));
    set(OS_ORDER_DAY_MONTH_YEAR);
    expect_dates({
        {"2021", "2021", "2022"},
        {"0", "2000", "2001"},
        {"49", "2049", "2050"},
        {"50", "1950", "1951"},
        {"99", "1999", "2000"},
        {"30827", "30827", ""}, // the next year has no beginning
        {"30828", "0", "0"},
        {"100", "0", "0"},
        {"3/2021", "2021-03", "2021-04"},
        {"12.98", "1998-12", "1999-01"},
        {"1/2/2021", "2021-02-01", "2021-02-02"},
        {"31.12.21", "2021-12-31", "2022-01-01"},
        {"1-2-2021", "2021-02-01", "2021-02-02"},
        {"1-2", "2001", "2003"},
        {"1-2-2021-3-4-2021", "2021-02-01", "2021-04-04"},
        {"1-2-2021..3-4-2021", "2021-02-01", "2021-04-04"},
        {"1/2/2021-3/4/2021", "2021-02-01", "2021-04-04"},
        {"1.2.2021-3.4.2021", "2021-02-01", "2021-04-04"},
        {"1.2.2021/3.4.2021", "2021-02-01", "2021-04-04"},
        {"1.2.2021..3.4.2021", "2021-02-01", "2021-04-04"},
        {"1.2021/3.2021", "2021-01", "2021-04"},
        {"1/2/2021/3", "2021-02-01", "2021-02-02"}, // the slash was used
        {"2020..2021", "2020", "2022"},
        {"2020/", "2020", "2021"},
        {"1.2.2021T10", "2021-02-01 10:00", "2021-02-01 11:00"},
        {"1/2/2021t10:20:30.40", "2021-02-01 10:20:30.040", "2021-02-01 10:20:30.041"},
        {"1.2.2021T10:20..1.2.2021T11", "2021-02-01 10:20", "2021-02-01 12:00"},
        {"2/31/2021", "0", "0"},
        {"29.2.2023", "0", "0"},
        {"2021/3/4", "0", "0"},
        {"1601", "1601", "1602"},
        {"1/4294967298/2021", "0", "0"},
    });
    set(OS_ORDER_MONTH_DAY_YEAR);
    expect_dates({
        {"3/2021", "2021-03", "2021-04"},
        {"1/2/2021", "2021-01-02", "2021-01-03"},
        {"12/31/99", "1999-12-31", "2000-01-01"},
        {"31/12/99", "0", "0"},
    });
    set(OS_ORDER_YEAR_MONTH_DAY, 0, 2029);
    expect_dates({
        {"30", "1930", "1931"},
        {"21/3", "2021-03", "2021-04"},
        {"2021.3.4", "2021-03-04", "2021-03-05"},
        {"24/2/29T23:59", "2024-02-29 23:59", "2024-03-01"},
    });
    db_query_set_now(at("1999-06-01"));
    expect_dates({{"30", "1930", "1931"}, {"00", "1900", "1901"}});
}

// Whatever is read of a text, it ends, and in time.
TEST_F(DbQueryDate, AnyText) {
    for (const char *piece :
         {"1", "-", ".", "..", "/", ",", ":", "T", "last", "2021-", "1.", "9kb", "\xFF", ">"}) {
        std::string text;
        while (text.size() < 100000)
            text += piece;
        for (const char *head : {"", "2021-01-02T03:04:05.", "1.", "last", "20210101"}) {
            std::string whole = head + text;
            db_query_parse_date_argument(whole.c_str());
            db_query_parse_size_argument(whole.c_str());
            db_query_parse_count_argument(whole.c_str());
        }
    }
    // Ranges of any two values are read, and their ends are those of their parts.
    const char *parts[] = {"today", "2021", "2021-01", "20210101", "1.2.2021", "jan", "last3days"};
    db_query_set_now(at(NOW));
    for (const char *first : parts)
        for (const char *second : parts) {
            std::string text = std::string(first) + ".." + second;
            db_range_t range = db_query_parse_date(text.c_str(), true);
            EXPECT_EQ(range.low, db_query_parse_date(first, true).low) << text;
            EXPECT_EQ(range.high, db_query_parse_date(second, true).high) << text;
        }
}

TEST(DbQueryNow, ClockAndLocale) {
    u64 before = os_get_file_time();
    db_range_t range = db_query_parse_date("last1hours", true);
    EXPECT_GE(range.high + 10000, before);
    EXPECT_LE(range.high, os_get_file_time());
    os_calendar_t calendar;
    os_get_calendar(&calendar);
    EXPECT_LT(calendar.first_weekday, 7u);
    EXPECT_LE(calendar.date_order, 2u);
    EXPECT_GE(calendar.two_digit_year_max, 1999u);
}

} // namespace
} // namespace findwright
