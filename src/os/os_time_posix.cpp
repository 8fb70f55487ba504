#include "os/os_internal.h"
#include "os/os_posix.h"

#include <ctime>

namespace findwright {

static constexpr i64 SECONDS_1601_TO_1970 = 11644473600;

u32 os_get_tick_count() {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<u32>(static_cast<u64>(now.tv_sec) * 1000000 + static_cast<u64>(now.tv_nsec) / 1000);
}

u64 os_get_file_time() {
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    return os_file_time_from_timespec(&now);
}

u64 os_file_time_from_timespec(const timespec *time) {
    // A file system can hold any 64-bit date; what file times have no room for becomes their first or last.
    constexpr i64 LAST_SECOND = static_cast<i64>((OS_FILE_TIME_LIMIT - 1) / OS_TICKS_PER_SECOND) - 1;
    i64 seconds = time->tv_sec;
    if (seconds < -SECONDS_1601_TO_1970)
        return 0;
    if (seconds > LAST_SECOND - SECONDS_1601_TO_1970)
        return OS_FILE_TIME_LIMIT - 1;
    return static_cast<u64>(seconds + SECONDS_1601_TO_1970) * OS_TICKS_PER_SECOND +
           static_cast<u64>(time->tv_nsec) / 100;
}

u64 os_file_time_to_local(u64 file_time) {
    if (file_time >= OS_FILE_TIME_LIMIT)
        return file_time;
    time_t seconds = static_cast<i64>(file_time / OS_TICKS_PER_SECOND) - SECONDS_1601_TO_1970;
    tm local;
    if (!localtime_r(&seconds, &local))
        return file_time;
    i64 offset = local.tm_gmtoff * static_cast<i64>(OS_TICKS_PER_SECOND);
    if (offset < 0 && file_time < static_cast<u64>(-offset))
        return file_time;
    return file_time + static_cast<u64>(offset);
}

} // namespace findwright
