// What the shared sources of the platform layer need of each platform, and the other way round. Nothing above
// the layer includes this.
#pragma once

#include "os/debug.h"
#include "os/os.h"

namespace findwright {

// --- Start and end (os_posix.cpp, os_win32.cpp) -----------------------------------------------------------

// Fills what the platform knows: version, processor count, optional functions. Before anything else.
void os_platform_init();
// Fill the entries of the platform table that are the platform's own: memory and folders, and
// (os_locale_*.cpp) what depends on the user's locale and the code page.
void os_platform_fill_table(platform_t *table);
void os_locale_init();
void os_locale_fill_table(platform_t *table);

extern u32 os_processor_count;

// --- Threads ----------------------------------------------------------------------------------------------

using os_raw_thread_t = std::uintptr_t;

// Starts a thread of the system; false with the error number on failure.
bool os_raw_thread_start(os_raw_thread_t *thread, os_thread_proc_t *proc, void *param, u32 *error);
// Waits for it to end, and frees what it holds.
void os_raw_thread_join(os_raw_thread_t thread);
// False when the system does not allow it.
bool os_raw_thread_set_priority(os_raw_thread_t thread, i32 priority);
// What a pool thread does first and last: a single-threaded apartment on Windows, nothing on POSIX. The
// result of enter is given to leave.
bool os_apartment_enter();
void os_apartment_leave(bool entered);

// The pool (os_thread.cpp). os_pool_kill ends the threads that wait in it.
void os_pool_kill();

// --- Main loop --------------------------------------------------------------------------------------------

void os_loop_init();
void os_loop_kill();
// Makes the main thread call event_dispatch soon. Any thread.
void os_loop_wake();
// Waits up to `timeout` milliseconds and handles what came; false when nothing did.
bool os_loop_wait(u32 timeout);
// Has the main thread call event_dispatch_alarms at that time of os_get_milliseconds, in place of the time
// set before; OS_ALARM_NONE: not at all. Any thread. False where only the main thread can set it: then that
// has been woken (os_loop_wake), and is to try again.
bool os_loop_set_alarm(u64 due);
inline constexpr u64 OS_ALARM_NONE = ~static_cast<u64>(0);
// What the loop calls then (event.cpp).
void event_dispatch_alarms();
// A clock that nothing sets, in milliseconds since some time before the process.
u64 os_get_milliseconds();

// --- Files (os_file_*.cpp) --------------------------------------------------------------------------------

// os_open without the log line.
platform_file_t os_open_quiet(const char *name, u32 access, u32 share, os_disposition_t disposition,
                              u32 flags);
// Whether an error number says that a file does not exist in a folder that does.
bool os_error_is_file_not_found(u32 error);
// Has all that was written to a file stored. On POSIX, also gives it the permissions of the file it replaces.
bool os_flush_file(const char *temp, const char *target);
// The same for the folder's entry of a file that was renamed, where the system does not do it by itself.
void os_flush_folder_of(const char *name);
// The file that a name leads to through links; on Windows, and where it leads nowhere, the name itself.
void os_follow_links(const char *name, utf8_buf_t *out);

// --- Time (os_time.cpp) -----------------------------------------------------------------------------------

inline constexpr u64 OS_TICKS_PER_SECOND = 10000000;
inline constexpr u64 OS_TICKS_PER_MILLISECOND = 10000;
// The times that both platforms convert end here, in the year 30828.
inline constexpr u64 OS_FILE_TIME_LIMIT = 0x8000000000000000;

bool os_local_fields(u64 file_time, u16 fields[7]);

// Copies a text of a length with a terminator, as much as fits into `capacity` bytes; the length copied.
u32 os_copy_text(char *out, u32 capacity, const char *text, u32 length);

// --- Console (os_console_*.cpp) ---------------------------------------------------------------------------

void os_console_open();  // makes one if there is no standard error
void os_console_close(); // of one's own making
void os_console_print(debug_color_t color, const char *text, u32 length);
// The name of the system for "NAME %d.%d\n".
const char *os_get_system_name();
// Shows a fatal message and ends the process, with exit code 1 and no clean-up. Any thread.
[[noreturn]] void os_fatal_end(const char *text, u32 length);
// Shows "Out of Memory" where there is a window to show it in.
void os_show_out_of_memory();
void os_free_arguments();

} // namespace findwright
