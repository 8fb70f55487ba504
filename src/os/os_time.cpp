#include "os/os_internal.h"

namespace findwright {

static constexpr u64 TICKS_PER_DAY = OS_TICKS_PER_SECOND * 86400;

u64 os_get_local_file_time() {
    return os_file_time_to_local(os_get_file_time());
}

// The clock's distance from UTC at a time, in ticks.
static i64 _os_local_offset(u64 file_time) {
    return static_cast<i64>(os_file_time_to_local(file_time) - file_time);
}

// Tries the distance from UTC that holds a day earlier, then the one a day later: a change of the clocks lies
// at most between the two. The first that tells its own result correctly is right. When neither does, the
// clocks were put forward over that time, and the earlier distance holds.
u64 os_local_time_to_file_time(u64 local) {
    if (local < 2 * TICKS_PER_DAY || local >= OS_FILE_TIME_LIMIT - 2 * TICKS_PER_DAY)
        return local;
    i64 before = _os_local_offset(local - TICKS_PER_DAY);
    u64 by_before = local - static_cast<u64>(before);
    if (_os_local_offset(by_before) == before)
        return by_before;
    i64 after = _os_local_offset(local + TICKS_PER_DAY);
    u64 by_after = local - static_cast<u64>(after);
    return _os_local_offset(by_after) == after ? by_after : by_before;
}

// Days since 1601-01-01 to the calendar, without tables: years are counted from March, so that the leap day
// is the last of its year, and in eras of 400 years, which all have the same days.
static void _os_civil_from_days(u32 days, os_date_t *date) {
    constexpr u32 DAYS_FROM_MARCH_1600 = 306; // 1600-03-01 to 1601-01-01
    constexpr u32 DAYS_PER_ERA = 146097;
    u32 shifted = days + DAYS_FROM_MARCH_1600;
    u32 era = shifted / DAYS_PER_ERA;
    u32 day_of_era = shifted % DAYS_PER_ERA;
    u32 year_of_era = (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
    u32 day_of_year = day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
    u32 month_from_march = (5 * day_of_year + 2) / 153;
    u32 month = month_from_march < 10 ? month_from_march + 3 : month_from_march - 9;
    date->year = 1600 + era * 400 + year_of_era + (month <= 2 ? 1 : 0);
    date->month = month;
    date->day = day_of_year - (153 * month_from_march + 2) / 5 + 1;
}

void os_ticks_to_date(u64 ticks, os_date_t *date) {
    _os_civil_from_days(static_cast<u32>(ticks / TICKS_PER_DAY), date);
    auto milliseconds = static_cast<u32>(ticks % TICKS_PER_DAY / OS_TICKS_PER_MILLISECOND);
    date->hour = milliseconds / 3600000;
    date->minute = milliseconds / 60000 % 60;
    date->second = milliseconds / 1000 % 60;
    date->millisecond = milliseconds % 1000;
}

static bool _os_is_leap_year(u32 year) {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

u32 os_days_in_month(u32 year, u32 month) {
    static constexpr u8 days[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return days[month - 1] + (month == 2 && _os_is_leap_year(year) ? 1u : 0u);
}

bool os_date_to_ticks(const os_date_t *date, u64 *ticks) {
    *ticks = 0;
    if (date->year < OS_YEAR_FIRST || date->year > OS_YEAR_LAST || date->month < 1 || date->month > 12 ||
        date->day < 1 || date->day > os_days_in_month(date->year, date->month))
        return false;
    if (date->hour > 23 || date->minute > 59 || date->second > 59 || date->millisecond > 999)
        return false;
    u32 years = date->year - OS_YEAR_FIRST; // 1601 is the first year of a cycle of 400
    u64 days = u64{years} * 365 + years / 4 - years / 100 + years / 400 + date->day - 1;
    for (u32 month = 1; month < date->month; month++)
        days += os_days_in_month(date->year, month);
    u64 seconds = (days * 24 + date->hour) * 3600 + date->minute * 60 + date->second;
    *ticks = seconds * OS_TICKS_PER_SECOND + date->millisecond * OS_TICKS_PER_MILLISECOND;
    return true;
}

bool os_local_fields(u64 file_time, u16 fields[7]) {
    if (file_time >= OS_FILE_TIME_LIMIT)
        return false;
    os_date_t date;
    os_ticks_to_date(os_file_time_to_local(file_time), &date);
    const u32 values[7] = {date.year,   date.month,  date.day,        date.hour,
                           date.minute, date.second, date.millisecond};
    for (u32 i = 0; i < 7; i++)
        fields[i] = static_cast<u16>(values[i]);
    return true;
}

} // namespace findwright
