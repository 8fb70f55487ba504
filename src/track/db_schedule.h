// When a folder source is scanned again: its schedule, and the next time by it.
//
// Any thread.
#pragma once

#include "base/types.h"

namespace findwright {

// Kinds of schedules, and what `value` is then.
enum db_schedule_type_t : u32 {
    DB_SCHEDULE_NEVER = 0,
    DB_SCHEDULE_INTERVAL = 1, // minutes
    DB_SCHEDULE_AT = 2,       // hour of the day, plus 24 for each day: 0 every day, 1 to 7 Sunday to Saturday
};

struct db_schedule_t {
    u32 type;
    u32 value;
};

// As a user sets it; what makes no sense is no schedule.
struct db_schedule_settings_t {
    i32 update_type;   // db_schedule_type_t
    i32 interval;      // so many ...
    i32 interval_type; // ... 0 minutes, 1 hours
    i32 day;           // 0 to 7
    i32 hour;          // 0 to 23
};
db_schedule_t db_schedule_make(const db_schedule_settings_t *settings);

// The file time of the next scan, seen from a local file time; local too.
u64 db_schedule_next_local(const db_schedule_t *schedule, u64 local_now);
// The same from now on, in UTC, with its line in the log.
u64 db_schedule_next(const db_schedule_t *schedule);

} // namespace findwright
