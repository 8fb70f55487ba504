#include "track/db_schedule.h"

#include "base/platform.h"
#include "os/debug.h"
#include "os/os.h"

namespace findwright {

static constexpr u64 TICKS_PER_MINUTE = 600000000;
static constexpr u64 TICKS_PER_HOUR = 60 * TICKS_PER_MINUTE;
static constexpr u64 TICKS_PER_DAY = 24 * TICKS_PER_HOUR;
static constexpr u64 DAYS_PER_WEEK = 7;
static constexpr u64 FIRST_WEEKDAY = 1; // of 1601-01-01, counted from Sunday
static constexpr u32 MINUTES_PER_HOUR = 60;
static constexpr u32 HOURS_PER_DAY = 24;

db_schedule_t db_schedule_make(const db_schedule_settings_t *settings) {
    if (settings->update_type == DB_SCHEDULE_INTERVAL && settings->interval > 0 &&
        (settings->interval_type == 0 || settings->interval_type == 1)) {
        u32 minutes = settings->interval_type == 1 ? MINUTES_PER_HOUR : 1;
        return {DB_SCHEDULE_INTERVAL, static_cast<u32>(settings->interval) * minutes};
    }
    if (settings->update_type == DB_SCHEDULE_AT && settings->hour >= 0 && settings->hour < 24 &&
        settings->day >= 0 && settings->day <= 7)
        return {DB_SCHEDULE_AT, static_cast<u32>(settings->hour + settings->day * 24)};
    return {DB_SCHEDULE_NEVER, 0};
}

// The time of day, or of the week from Sunday on.
static u64 _db_schedule_next_at(u32 value, u64 local_now) {
    u64 day = value / HOURS_PER_DAY, hour = value % HOURS_PER_DAY;
    u64 now = local_now % TICKS_PER_DAY;
    u64 target = hour * TICKS_PER_HOUR;
    u64 period = TICKS_PER_DAY;
    if (day != 0) {
        now += (local_now / TICKS_PER_DAY + FIRST_WEEKDAY) % DAYS_PER_WEEK * TICKS_PER_DAY;
        target += (day - 1) * TICKS_PER_DAY;
        period *= DAYS_PER_WEEK;
    }
    if (now > target)
        target += period;
    return local_now + target - now;
}

u64 db_schedule_next_local(const db_schedule_t *schedule, u64 local_now) {
    switch (schedule->type) {
    case DB_SCHEDULE_INTERVAL: return local_now + schedule->value * TICKS_PER_MINUTE;
    case DB_SCHEDULE_AT: return _db_schedule_next_at(schedule->value, local_now);
    default: return local_now;
    }
}

u64 db_schedule_next(const db_schedule_t *schedule) {
    u64 next = os_local_time_to_file_time(db_schedule_next_local(schedule, os_get_local_file_time()));
    u16 fields[7];
    if (platform.local_fields(next, fields))
        debug_printf("next update at %d/%02d %d:%02d\n", fields[2], fields[1], fields[3], fields[4]);
    return next;
}

} // namespace findwright
