// The values that functions of a search take: counts, sizes and dates, each of which stands for a range.
// `size:5kb` means the files that a list shows as 5 KB, `dm:2021-03` the whole month.
//
// No text is an error: what is no number is 0, and a date that cannot be read is the range 0 to 0, which no
// real item is in. What follows a whole value is skipped. Sizes and dates that are too large stand at the
// largest value, counts wrap in 32 bits; fraction digits past the 18th are skipped. Words are read in any
// case. Main thread.
#pragma once

#include "base/types.h"

namespace findwright {

struct os_calendar_t;

// A closed range; all ones in both is the special value of what is not known. Impossible ranges are 1 to 0.
struct db_range_t {
    u64 low;
    u64 high;
};
struct db_count_range_t {
    i32 low;
    i32 high;
};
inline constexpr u64 DB_RANGE_MAX = VALUE_UNKNOWN - 1; // the largest ordinary value

enum db_comparison_t : u32 {
    DB_COMPARE_NONE = 0,
    DB_COMPARE_AT_LEAST = 1, // `>=`
    DB_COMPARE_MORE = 2,     // `>`
    DB_COMPARE_AT_MOST = 3,  // `<=`
    DB_COMPARE_LESS = 4,     // `<`
    DB_COMPARE_EQUAL = 5,    // `=` or `==`
};

// Upper ends of the named sizes, in bytes.
extern i32 size_tiny;
extern i32 size_small;
extern i32 size_medium;
extern i32 size_large;
extern i32 size_huge;

// Reads a comparison; returns what follows it.
const char *db_query_term_parse_comparison(const char *text, db_comparison_t *comparison);

// A whole argument, comparison and all: `>5`, `3..7`, empty for 1 and more.
db_count_range_t db_query_parse_count_argument(const char *text);
// `>1mb`, `tiny..small`, `unknown`; bytes.
db_range_t db_query_parse_size_argument(const char *text);
// `today`, `2021-03-01..2021-03-05`, `last2weeks`; file times.
db_range_t db_query_parse_date_argument(const char *text);

// A value without a comparison; with `allow_range` a second one may follow behind `..` or `-`.
db_range_t db_query_parse_size(const char *text, bool allow_range);
db_range_t db_query_parse_date(const char *text, bool allow_range);

// What dates are read by, for tests: the time now as a file time, 0 for that of the clock; and how the user
// writes dates, 0 for the locale's way. The calendar is copied.
void db_query_set_now(u64 file_time);
void db_query_set_calendar(const os_calendar_t *calendar);

} // namespace findwright
