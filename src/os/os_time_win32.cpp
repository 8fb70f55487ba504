#include "os/os_internal.h"
#include "os/os_win32.h"

namespace findwright {

u32 os_get_tick_count() {
    LARGE_INTEGER frequency;
    LARGE_INTEGER counter;
    if (!QueryPerformanceFrequency(&frequency) || frequency.QuadPart <= 0)
        return 1;
    QueryPerformanceCounter(&counter);
    // In two parts: the counter times a million overflows after days.
    auto ticks = static_cast<u64>(counter.QuadPart);
    auto second = static_cast<u64>(frequency.QuadPart);
    return static_cast<u32>(ticks / second * 1000000 + ticks % second * 1000000 / second);
}

static u64 _os_from_filetime(FILETIME time) {
    return static_cast<u64>(time.dwHighDateTime) << 32 | time.dwLowDateTime;
}

static FILETIME _os_to_filetime(u64 time) {
    return {static_cast<DWORD>(time), static_cast<DWORD>(time >> 32)};
}

u64 os_get_file_time() {
    FILETIME time;
    GetSystemTimeAsFileTime(&time);
    return _os_from_filetime(time);
}

u64 os_file_time_to_local(u64 file_time) {
    if (file_time >= OS_FILE_TIME_LIMIT)
        return file_time;
    // A system time ends at milliseconds; what is below them is the same on any clock.
    u64 below = file_time % OS_TICKS_PER_MILLISECOND;
    FILETIME time = _os_to_filetime(file_time - below);
    SYSTEMTIME utc;
    SYSTEMTIME local;
    if (!FileTimeToSystemTime(&time, &utc) || !SystemTimeToTzSpecificLocalTime(nullptr, &utc, &local) ||
        !SystemTimeToFileTime(&local, &time))
        return file_time;
    return _os_from_filetime(time) + below;
}

} // namespace findwright
