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
static void _os_civil_from_days(u32 days, u16 fields[7]) {
    constexpr u32 DAYS_FROM_MARCH_1600 = 306; // 1600-03-01 to 1601-01-01
    constexpr u32 DAYS_PER_ERA = 146097;
    u32 shifted = days + DAYS_FROM_MARCH_1600;
    u32 era = shifted / DAYS_PER_ERA;
    u32 day_of_era = shifted % DAYS_PER_ERA;
    u32 year_of_era = (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
    u32 day_of_year = day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
    u32 month_from_march = (5 * day_of_year + 2) / 153;
    u32 month = month_from_march < 10 ? month_from_march + 3 : month_from_march - 9;
    fields[0] = static_cast<u16>(1600 + era * 400 + year_of_era + (month <= 2 ? 1 : 0));
    fields[1] = static_cast<u16>(month);
    fields[2] = static_cast<u16>(day_of_year - (153 * month_from_march + 2) / 5 + 1);
}

bool os_local_fields(u64 file_time, u16 fields[7]) {
    if (file_time >= OS_FILE_TIME_LIMIT)
        return false;
    u64 local = os_file_time_to_local(file_time);
    _os_civil_from_days(static_cast<u32>(local / TICKS_PER_DAY), fields);
    u32 milliseconds = static_cast<u32>(local % TICKS_PER_DAY / OS_TICKS_PER_MILLISECOND);
    fields[3] = static_cast<u16>(milliseconds / 3600000);
    fields[4] = static_cast<u16>(milliseconds / 60000 % 60);
    fields[5] = static_cast<u16>(milliseconds / 1000 % 60);
    fields[6] = static_cast<u16>(milliseconds % 1000);
    return true;
}

} // namespace findwright
