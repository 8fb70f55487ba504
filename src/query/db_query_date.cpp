// Dates of searches: words, days of the calendar, and spans that end or begin now. All are read in local time
// and become file times by the rules that the zone has on that date, so a day may have 23 or 25 hours.
#include "os/os.h"
#include "query/db_query_value_internal.h"

#include <cstring>

namespace findwright {

static constexpr u64 TICKS_PER_MILLISECOND = 10000;
static constexpr u64 TICKS_PER_SECOND = 10000000;
static constexpr u64 TICKS_PER_MINUTE = 60 * TICKS_PER_SECOND;
static constexpr u64 TICKS_PER_HOUR = 60 * TICKS_PER_MINUTE;
static constexpr u64 TICKS_PER_DAY = 24 * TICKS_PER_HOUR;
static constexpr u32 NO_NUMBER = 0xFFFFFFFF;

static u64 _test_now;
static bool _has_test_calendar;
static os_calendar_t _test_calendar;

void db_query_set_now(u64 file_time) {
    _test_now = file_time;
}

void db_query_set_calendar(const os_calendar_t *calendar) {
    _has_test_calendar = calendar != nullptr;
    if (calendar)
        _test_calendar = *calendar;
}

// The element that a date ends with; the range of the date is as long.
enum db_precision_t : u32 {
    PRECISION_YEAR,
    PRECISION_MONTH,
    PRECISION_DAY,
    PRECISION_HOUR,
    PRECISION_MINUTE,
    PRECISION_SECOND,
    PRECISION_MILLISECOND,
};

struct db_date_reader_t {
    const char *at;
    bool allow_range;
    bool slash_is_used; // in the date itself, so it separates no second one
    os_calendar_t calendar;
    u64 now;         // to the millisecond
    os_date_t today; // the local date and time of now
    i64 day;         // the local day, counted from 1601-01-01
    db_range_t range;
};

static void _db_date_reader_init(db_date_reader_t *reader, const char *text, bool allow_range) {
    *reader = {};
    reader->at = text;
    reader->allow_range = allow_range;
    if (_has_test_calendar)
        reader->calendar = _test_calendar;
    else
        os_get_calendar(&reader->calendar);
    u64 now = _test_now ? _test_now : os_get_file_time();
    reader->now = now - now % TICKS_PER_MILLISECOND;
    u64 local = os_file_time_to_local(reader->now);
    os_ticks_to_date(local, &reader->today);
    reader->day = static_cast<i64>(local / TICKS_PER_DAY);
}

// --- Ranges of the calendar --------------------------------------------------------------------------------

// From one time to just before another. A time that the clocks left out can lie behind the one that follows
// it: such a range holds nothing.
static db_range_t _db_date_span(u64 from, u64 to) {
    return {from, to ? to - 1 : 0};
}

static u64 _db_date_midnight(i64 day) {
    return day > 0 ? os_local_time_to_file_time(static_cast<u64>(day) * TICKS_PER_DAY) : 0;
}

static db_range_t _db_date_days(i64 first, u32 count) {
    return _db_date_span(_db_date_midnight(first), _db_date_midnight(first + count));
}

// The end of the last year has no date behind it: VALUE_UNKNOWN, one more than any time.
static u64 _db_date_first_of_month(i64 month) {
    os_date_t date = {static_cast<u32>(month / 12), static_cast<u32>(month % 12) + 1, 1, 0, 0, 0, 0};
    u64 ticks;
    if (month < 0 || !os_date_to_ticks(&date, &ticks))
        return VALUE_UNKNOWN;
    return os_local_time_to_file_time(ticks);
}

// Months are counted from January of the year 0.
static db_range_t _db_date_months(i64 first, u32 count) {
    u64 from = _db_date_first_of_month(first);
    if (from == VALUE_UNKNOWN)
        return {0, 0};
    return _db_date_span(from, _db_date_first_of_month(first + count));
}

// A date down to one of its elements; those below it are not looked at.
static db_range_t _db_date_element(const os_date_t *whole, db_precision_t precision) {
    os_date_t date = *whole;
    u32 *const elements[] = {&date.year,   &date.month,  &date.day,        &date.hour,
                             &date.minute, &date.second, &date.millisecond};
    for (u32 i = precision + 1; i <= PRECISION_MILLISECOND; i++)
        *elements[i] = i <= PRECISION_DAY ? 1 : 0;
    u64 local;
    if (!os_date_to_ticks(&date, &local))
        return {0, 0};
    u64 from = os_local_time_to_file_time(local);
    switch (precision) {
    case PRECISION_YEAR: return _db_date_months(i64{date.year} * 12, 12);
    case PRECISION_MONTH: return _db_date_months(i64{date.year} * 12 + date.month - 1, 1);
    // By the clock: where it is put back, the hour that it shows twice is one of two hours.
    case PRECISION_DAY: return _db_date_span(from, os_local_time_to_file_time(local + TICKS_PER_DAY));
    case PRECISION_HOUR: return _db_date_span(from, os_local_time_to_file_time(local + TICKS_PER_HOUR));
    case PRECISION_MINUTE: return _db_date_span(from, from + TICKS_PER_MINUTE);
    case PRECISION_SECOND: return _db_date_span(from, from + TICKS_PER_SECOND);
    default: return _db_date_span(from, from + TICKS_PER_MILLISECOND);
    }
}

// --- Words -------------------------------------------------------------------------------------------------

static bool _db_date_read_day_word(db_date_reader_t *reader) {
    if (db_value_skip_word(&reader->at, "today"))
        reader->range = _db_date_days(reader->day, 1);
    else if (db_value_skip_word(&reader->at, "yesterday"))
        reader->range = _db_date_days(reader->day - 1, 1);
    else if (db_value_skip_word(&reader->at, "tomorrow"))
        reader->range = _db_date_days(reader->day + 1, 1);
    else if (db_value_skip_word(&reader->at, "unknown"))
        reader->range = {VALUE_UNKNOWN, VALUE_UNKNOWN};
    else
        return false;
    return true;
}

static bool _db_date_read_direction(db_date_reader_t *reader, i32 *direction) {
    static constexpr struct {
        const char *word;
        i32 direction;
    } words[] = {{"prev", -1},  {"last", -1}, {"past", -1},  {"next", 1},
                 {"coming", 1}, {"this", 0},  {"current", 0}};
    *direction = 0;
    for (const auto &entry : words)
        if (db_value_skip_word(&reader->at, entry.word)) {
            *direction = entry.direction;
            return true;
        }
    return false;
}

// The time now, moved by a number of months: at the same time of the day, on the same day or, in a month that
// is too short for it, on the last.
static u64 _db_date_move_months(const db_date_reader_t *reader, u64 count, bool forward) {
    constexpr u64 COUNT_MAX = (OS_YEAR_LAST + 1) * 12; // from any month to where there are none
    auto months = static_cast<i64>(count < COUNT_MAX ? count : COUNT_MAX);
    i64 month = i64{reader->today.year} * 12 + reader->today.month - 1 + (forward ? months : -months);
    if (month < i64{OS_YEAR_FIRST} * 12)
        return 0;
    os_date_t date = reader->today;
    date.year = static_cast<u32>(month / 12);
    date.month = static_cast<u32>(month % 12) + 1;
    u32 last_day = os_days_in_month(date.year, date.month);
    date.day = date.day < last_day ? date.day : last_day;
    u64 ticks;
    return os_date_to_ticks(&date, &ticks) ? os_local_time_to_file_time(ticks) : DB_RANGE_MAX;
}

static u64 _db_date_move_ticks(const db_date_reader_t *reader, u64 count, u64 unit, bool forward) {
    u64 distance = count > DB_RANGE_MAX / unit ? DB_RANGE_MAX : count * unit;
    if (forward)
        return distance > DB_RANGE_MAX - reader->now ? DB_RANGE_MAX : reader->now + distance;
    return distance > reader->now ? 0 : reader->now - distance;
}

// `2weeks`: up to this moment, or from it on.
static bool _db_date_read_span(db_date_reader_t *reader, i32 direction) {
    static constexpr struct {
        const char *word;
        u64 ticks;
        u32 months;
    } units[] = {
        {"seconds", TICKS_PER_SECOND, 0},
        {"secs", TICKS_PER_SECOND, 0},
        {"minutes", TICKS_PER_MINUTE, 0},
        {"mins", TICKS_PER_MINUTE, 0},
        {"hours", TICKS_PER_HOUR, 0},
        {"days", TICKS_PER_DAY, 0},
        {"weeks", 7 * TICKS_PER_DAY, 0},
        {"months", 0, 1},
        {"years", 0, 12},
    };
    const char *at = reader->at;
    if (!db_value_is_digit(*at))
        return false;
    u64 count = db_value_read_number(&at);
    bool forward = direction > 0;
    for (const auto &unit : units) {
        if (!db_value_skip_word(&at, unit.word))
            continue;
        u64 moved;
        if (unit.ticks)
            moved = _db_date_move_ticks(reader, count, unit.ticks, forward);
        else
            moved = _db_date_move_months(reader, count > OS_YEAR_LAST * 12 ? count : count * unit.months,
                                         forward);
        reader->range = forward ? db_range_t{reader->now, moved} : db_range_t{moved, reader->now};
        reader->at = at;
        return true;
    }
    return false;
}

static u32 _db_date_weekday(i64 day) {
    return static_cast<u32>((day + 1) % 7); // 1601 began with a Monday
}

static bool _db_date_read_period(db_date_reader_t *reader, i32 direction) {
    if (db_value_skip_word(&reader->at, "week")) {
        u32 passed = (_db_date_weekday(reader->day) + 7 - reader->calendar.first_weekday % 7) % 7;
        reader->range = _db_date_days(reader->day - passed + direction * 7, 7);
    } else if (db_value_skip_word(&reader->at, "month")) {
        i64 month = i64{reader->today.year} * 12 + reader->today.month - 1;
        reader->range = _db_date_months(month + direction, 1);
    } else if (db_value_skip_word(&reader->at, "year")) {
        reader->range = _db_date_months((i64{reader->today.year} + direction) * 12, 12);
    } else {
        return false;
    }
    return true;
}

// One of a list of names, in full or by its first three letters; its place in the list, or `count`.
static u32 _db_date_skip_name(const char **at, const char *const *names, u32 count) {
    for (u32 i = 0; i < count; i++) {
        char head[4] = {names[i][0], names[i][1], names[i][2], 0};
        if (db_value_skip_word(at, names[i]) || db_value_skip_word(at, head))
            return i;
    }
    return count;
}

// A month of the year, or a day of the week that begins with Sunday.
static bool _db_date_read_name(db_date_reader_t *reader, i32 direction) {
    static constexpr const char *months[12] = {"january",   "february", "march",    "april",
                                               "may",       "june",     "july",     "august",
                                               "september", "october",  "november", "december"};
    static constexpr const char *weekdays[7] = {"sunday",   "monday", "tuesday", "wednesday",
                                                "thursday", "friday", "saturday"};
    u32 month = _db_date_skip_name(&reader->at, months, 12);
    if (month < 12) {
        reader->range = _db_date_months((i64{reader->today.year} + direction) * 12 + month, 1);
        return true;
    }
    u32 weekday = _db_date_skip_name(&reader->at, weekdays, 7);
    if (weekday == 7)
        return false;
    i64 sunday = reader->day - _db_date_weekday(reader->day);
    reader->range = _db_date_days(sunday + weekday + direction * 7, 1);
    return true;
}

static bool _db_date_read_words(db_date_reader_t *reader) {
    if (_db_date_read_day_word(reader))
        return true;
    i32 direction;
    bool has_direction = _db_date_read_direction(reader, &direction);
    if (has_direction && (_db_date_read_span(reader, direction) || _db_date_read_period(reader, direction)))
        return true;
    return _db_date_read_name(reader, direction) || has_direction;
}

// --- Numbers -----------------------------------------------------------------------------------------------

// NO_NUMBER when there is none; what is too large for any element of a date stays too large.
static u32 _db_date_read_number(const char **at) {
    constexpr u64 TOO_LARGE = 1000000;
    if (!db_value_is_digit(**at))
        return NO_NUMBER;
    u64 value = db_value_read_number(at);
    return static_cast<u32>(value < TOO_LARGE ? value : TOO_LARGE);
}

// Exactly so many digits, or NO_NUMBER.
static u32 _db_date_read_digits(const char **at, u32 count) {
    u32 value = 0;
    for (u32 i = 0; i < count; i++) {
        if (!db_value_is_digit((*at)[i]))
            return NO_NUMBER;
        value = value * 10 + static_cast<u32>((*at)[i] - '0');
    }
    *at += count;
    return value;
}

// Up to three digits count, as a number of milliseconds; clocks of files that tell more are read so far.
static u32 _db_date_read_milliseconds(const char **at) {
    if (!db_value_is_digit(**at))
        return NO_NUMBER;
    u32 value = 0;
    for (u32 i = 0; db_value_is_digit(**at); i++, ++*at)
        if (i < 3)
            value = value * 10 + static_cast<u32>(**at - '0');
    return value;
}

// The point in front of milliseconds, not that of a range.
static bool _db_date_skip_point(const char **at) {
    return !db_value_is_range_dots(*at) && db_value_skip_word(at, ".");
}

// `T10:30:15.250` behind a day, as far as it goes.
static db_precision_t _db_date_read_time(const char **at, os_date_t *date) {
    static constexpr const char *signs[] = {"t", ":", ":"};
    u32 *const elements[] = {&date->hour, &date->minute, &date->second};
    u32 precision = PRECISION_DAY;
    for (u32 i = 0; i < 3; i++) {
        u32 number = db_value_skip_word(at, signs[i]) ? _db_date_read_number(at) : NO_NUMBER;
        if (number == NO_NUMBER)
            return static_cast<db_precision_t>(precision);
        *elements[i] = number;
        precision++;
    }
    u32 number = _db_date_skip_point(at) ? _db_date_read_milliseconds(at) : NO_NUMBER;
    if (number == NO_NUMBER)
        return PRECISION_SECOND;
    date->millisecond = number;
    return PRECISION_MILLISECOND;
}

// Of `2021-05-06` what stands behind the year. A third number that is no day is that of a second date.
static db_precision_t _db_date_read_iso_rest(db_date_reader_t *reader, const char *at, os_date_t *date) {
    reader->at = at;
    u32 month = _db_date_read_number(&reader->at);
    if (month == NO_NUMBER)
        return PRECISION_YEAR;
    date->month = month;
    at = reader->at;
    if (!db_value_skip_word(&at, "-"))
        return PRECISION_MONTH;
    u32 day = _db_date_read_number(&at);
    if (day != NO_NUMBER && day > 31 && reader->allow_range)
        return PRECISION_MONTH;
    reader->at = at;
    if (day == NO_NUMBER)
        return PRECISION_MONTH;
    date->day = day;
    return _db_date_read_time(&reader->at, date);
}

static bool _db_date_read_iso(db_date_reader_t *reader) {
    const char *at = reader->at;
    os_date_t date = {};
    date.year = _db_date_read_number(&at);
    if (date.year == NO_NUMBER || date.year < 100 || !db_value_skip_word(&at, "-"))
        return false;
    const char *ahead = at;
    u32 month = _db_date_read_number(&ahead);
    if (month != NO_NUMBER && month > 12) // `2021-2022`: two years
        return false;
    db_precision_t precision = _db_date_read_iso_rest(reader, at, &date);
    reader->range = _db_date_element(&date, precision);
    return true;
}

// `20210506T103015.250`: two digits for each element below the year.
static db_precision_t _db_date_read_compact_rest(const char **at, os_date_t *date) {
    static constexpr const char *signs[] = {"", "t", ":", ":"};
    u32 *const elements[] = {&date->day, &date->hour, &date->minute, &date->second};
    u32 precision = PRECISION_MONTH;
    for (u32 i = 0; i < 4; i++) {
        db_value_skip_word(at, signs[i]);
        u32 number = _db_date_read_digits(at, 2);
        if (number == NO_NUMBER)
            return static_cast<db_precision_t>(precision);
        *elements[i] = number;
        precision++;
    }
    _db_date_skip_point(at);
    u32 number = _db_date_read_milliseconds(at);
    if (number == NO_NUMBER)
        return PRECISION_SECOND;
    date->millisecond = number;
    return PRECISION_MILLISECOND;
}

static bool _db_date_read_compact(db_date_reader_t *reader) {
    const char *at = reader->at;
    if (_db_date_read_digits(&at, 6) == NO_NUMBER)
        return false;
    os_date_t date = {};
    date.year = _db_date_read_digits(&reader->at, 4);
    date.month = _db_date_read_digits(&reader->at, 2);
    db_precision_t precision = _db_date_read_compact_rest(&reader->at, &date);
    reader->range = _db_date_element(&date, precision);
    return true;
}

// Two digits are a year of this century, or of the last one if it lies too far ahead.
static u32 _db_date_expand_year(const db_date_reader_t *reader, u32 year) {
    if (year >= 100)
        return year;
    year += reader->today.year / 100 * 100;
    return year > reader->calendar.two_digit_year_max ? year - 100 : year;
}

// A single `-` separates two dates, so `1-2` are two years; two of them are within one date, and five make
// two such dates. Where `..` separates, and in a second date, there is nothing else that a `-` could do.
static bool _db_date_dash_is_inside(const db_date_reader_t *reader) {
    if (!reader->allow_range || std::strstr(reader->at, ".."))
        return true;
    u32 count = 0;
    for (const char *at = reader->at; *at; at++)
        count += *at == '-';
    return count == 2 || count == 5;
}

// Up to three numbers with one sign between them; how many.
static u32 _db_date_read_local_numbers(db_date_reader_t *reader, u32 numbers[3]) {
    bool has_dashes = _db_date_dash_is_inside(reader);
    char sign = 0;
    u32 count = 0;
    while (count < 3) {
        u32 number = _db_date_read_number(&reader->at);
        if (number == NO_NUMBER)
            break;
        numbers[count++] = number;
        char c = *reader->at;
        bool separates =
            c == '/' || (c == '.' && !db_value_is_range_dots(reader->at)) || (c == '-' && has_dashes);
        if (count == 3 || !separates || (sign && c != sign))
            break;
        sign = c;
        reader->at++;
    }
    reader->slash_is_used = sign == '/';
    return count;
}

static void _db_date_read_local(db_date_reader_t *reader) {
    u32 numbers[3];
    u32 count = _db_date_read_local_numbers(reader, numbers);
    db_precision_t precision = PRECISION_YEAR;
    os_date_t date = {};
    os_date_order_t order = reader->calendar.date_order;
    switch (count) {
    case 0: reader->range = {0, 0}; return;
    case 1: date.year = numbers[0]; break;
    case 2:
        date.year = numbers[order == OS_ORDER_YEAR_MONTH_DAY ? 0 : 1];
        date.month = numbers[order == OS_ORDER_YEAR_MONTH_DAY ? 1 : 0];
        precision = PRECISION_MONTH;
        break;
    default:
        date.year = numbers[order == OS_ORDER_YEAR_MONTH_DAY ? 0 : 2];
        date.month = numbers[order == OS_ORDER_MONTH_DAY_YEAR ? 0 : 1];
        date.day = numbers[order == OS_ORDER_MONTH_DAY_YEAR ? 1 : order == OS_ORDER_DAY_MONTH_YEAR ? 0 : 2];
        precision = _db_date_read_time(&reader->at, &date);
        break;
    }
    date.year = _db_date_expand_year(reader, date.year);
    reader->range = _db_date_element(&date, precision);
}

db_range_t db_query_parse_date(const char *text, bool allow_range) {
    if (!*text)
        return {0, DB_RANGE_MAX};
    db_date_reader_t reader;
    _db_date_reader_init(&reader, text, allow_range);
    // Six digits and more are no year, so the compact form can go first: `20210506-3.6.2021` are two dates.
    if (!_db_date_read_words(&reader) && !_db_date_read_compact(&reader) && !_db_date_read_iso(&reader))
        _db_date_read_local(&reader);
    if (!allow_range)
        return reader.range;
    if (db_value_skip_range_sign(&reader.at) ||
        (!reader.slash_is_used && db_value_skip_word(&reader.at, "/")))
        reader.range.high = db_query_parse_date(reader.at, false).high;
    return reader.range;
}

} // namespace findwright
