// The road to the operating system: threads, files, time, the sort. One header, one source per platform
// (os_posix.cpp, os_win32.cpp, and by topic os_file_*, os_time_*, os_console_*, os_volume_*) beside the
// shared ones (os.cpp, os_thread.cpp, os_sort.cpp, os_file.cpp, os_time.cpp). os_internal.h is what the two
// halves give each other.
//
// All names are UTF-8 and use `\` between components inside the program, on every platform. On POSIX the seam
// turns `\` to `/` on the way out and `/` to `\` on the way in; a `\` that is part of a name there is U+F05C
// inside; bytes that are no UTF-8 pass through unchanged.
//
// An error number is the system's own: errno on POSIX, GetLastError on Windows.
//
// What a platform must give is told per operation. Thread safety is that of the system call unless told.
#pragma once

#include "base/platform.h"
#include "base/types.h"

namespace findwright {

struct utf8_buf_t;

inline constexpr u32 OS_INFINITE = 0xFFFFFFFF;
inline constexpr u32 OS_WAIT_DONE = 0;
inline constexpr u32 OS_WAIT_TIMEOUT = 258;

// Settings of this layer.
extern u32 max_threads;   // threads for one search or sort; 0 is no limit but the processors
extern u32 reuse_threads; // keep ended threads for new work

// What system this is. os_is_nt tells apart the two families of Windows; it is true elsewhere.
extern u32 os_version_major;
extern u32 os_version_minor;
extern bool os_is_nt;

// Sets up the platform table, the arena, the thread pool and the event queue; main thread,
// first of all. os_kill undoes it, but for the platform table and the debug log, which stay usable for the
// reports at the very end: no thread of the pool may be in use but detached ones, nothing may be alive in the
// arena.
void os_init();
void os_kill();

u32 os_get_processor_count();
// Root on POSIX, a member of the administrators on Windows.
bool os_is_admin();

// --- Threads -----------------------------------------------------------------------------------------------

struct os_event_t; // a manual-reset event; on Windows the pointer is the HANDLE

struct os_thread_t; // an entry of the pool
using os_thread_proc_t = void(void *param);

// A running thread; one of the pool if one is free. The fatal error "failed to create thread %d: %p" on
// failure.
os_thread_t *os_thread_create(os_thread_proc_t *proc, void *param);
// Waits up to `timeout` milliseconds for the thread's proc to return: OS_WAIT_DONE or OS_WAIT_TIMEOUT.
u32 os_thread_wait(os_thread_t *thread, u32 timeout);
// Waits, and gives the thread back: to the pool with reuse_threads, else it ends. OS_WAIT_TIMEOUT: still the
// caller's.
u32 os_thread_release(os_thread_t *thread, u32 timeout);
// Gives the thread back at once, whatever it is at: it goes to the pool, or ends, by itself when its proc
// returns. Nobody can wait for it any more but os_kill, which does so for a moment: a thread that hangs then
// is left behind, with what it holds.
void os_thread_detach(os_thread_t *thread);
// Priorities are those of Windows: -15 idle, -1 below normal, 0 normal, 1 and 2 above. A system that reserves
// the upper ones for privileged processes, as POSIX does, runs such a thread at normal priority.
void os_thread_set_priority(os_thread_t *thread, i32 priority);
i32 os_thread_get_priority(os_thread_t *thread);

// Unset at first. The fatal error "failed to create event %d" on failure.
os_event_t *os_event_create();
void os_event_destroy(os_event_t *event);
void os_event_set(os_event_t *event);
void os_event_reset(os_event_t *event);
u32 os_event_wait(os_event_t *event, u32 timeout);
bool os_event_is_set(os_event_t *event);

// --- Files -------------------------------------------------------------------------------------------------

struct os_file_info_t {
    u64 size;          // bytes; VALUE_UNKNOWN when not known
    u64 date_modified; // file time; likewise
};

inline constexpr u32 OS_OPEN_READ = 1;
inline constexpr u32 OS_OPEN_WRITE = 2;

// What others may do with the file meanwhile. POSIX has no such rule and lets them do all.
inline constexpr u32 OS_SHARE_READ = 1;
inline constexpr u32 OS_SHARE_WRITE = 2;
inline constexpr u32 OS_SHARE_DELETE = 4;

enum os_disposition_t : u32 {
    OS_OPEN_EXISTING, // fails when the file is absent
    OS_OPEN_ALWAYS,   // makes the file when it is absent
    OS_CREATE_ALWAYS, // makes the file anew
    OS_CREATE_NEW,    // fails when the file is there
};

inline constexpr u32 OS_OPEN_SEQUENTIAL = 1; // a hint that the file is read once, from start to end

// Opens a file, never a folder. PLATFORM_FILE_NONE on failure, which is logged, "CreateFileW(): %d: Failed to
// open file %s\n", unless the file was not found.
platform_file_t os_open(const char *name, u32 access, u32 share, os_disposition_t disposition, u32 flags);
platform_file_t os_open_read(const char *name, bool sequential); // with read sharing
// Opens a file that is read for what is in it: a regular one, or a link to one, and none of a file system
// that the system makes up. What others do with it meanwhile does not matter. PLATFORM_FILE_NONE for all
// else; neither this nor a read of the file ever waits for a pipe or a device. Not logged. `size` is what the
// system says of the file now, in bytes.
platform_file_t os_open_content(const char *name, u64 *size);
platform_file_t os_create(const char *name);              // for writing, made anew, with read sharing
i64 os_read(platform_file_t file, void *bytes, u32 size); // bytes read, 0 at the end, -1 on failure
bool os_write(platform_file_t file, const void *bytes, u32 size);
// Where the next read or write begins, in bytes from the start. False where the file has no such places.
bool os_seek(platform_file_t file, u64 offset);
void os_close(platform_file_t file);
// Appends to a file, which is made if absent, and closes it: what several processes append stays whole.
// Neither logs nor allocates for names of ordinary length.
bool os_append(const char *name, const void *bytes, u32 size);
// Moves a file or folder. With `replace` a file in the target's place is replaced, in one step where the
// system can; without it an existing target is a failure. Never copies, so it fails between volumes. Failures
// are logged.
bool os_move_replace(const char *from, const char *to, bool replace, bool is_folder);
// Puts a finished file in the place of another: what `temp` holds is on the disk before it has the name
// `target`, so that a crash leaves the old file or the new one. On POSIX the target's permissions are kept,
// and a target that is a link to a file of the same file system stays one: the file that it leads to is
// replaced.
bool os_replace_file(const char *temp, const char *target);
// Keeps a file that was just made from other users: it may tell of their files, or hold passwords. On Windows
// the folder's rights do.
void os_make_private(const char *name);
// The name to write a file under before os_replace_file: "%s.tmp".
void os_get_temp_name(const char *name, utf8_buf_t *out);
// Makes all folders above a file name. True when they are there in the end.
bool os_make_folders_for(const char *name);
bool os_create_folder(const char *name); // false, too, when it exists
// Where a file or folder really lies: its path with all links followed, in the form used inside, without a
// separator at the end. False, and an empty text, when there is none or the system cannot tell. May wait for
// a file system that is slow.
bool os_get_real_path(const char *name, utf8_buf_t *out);
// The same for an open file, whatever has its name by now.
bool os_get_open_path(platform_file_t file, utf8_buf_t *out);
bool os_delete_file(const char *name);
bool os_delete_folder(const char *name); // an empty one
bool os_file_exists(const char *name);   // false for a folder
bool os_folder_exists(const char *name);
// All ones in both, and false, when there is no such file.
bool os_get_file_info(const char *name, os_file_info_t *info);

// What the system's own users write between the components of a path: `/` on POSIX, `\` on Windows.
extern const char os_path_separator;

// A path for the system's calls, and one of the system's for use inside. On Windows both are a plain copy.
void os_path_to_system(const char *name, u32 length, utf8_buf_t *out);
void os_path_from_system(const char *name, u32 length, utf8_buf_t *out);
// A path as a user reads and writes it: that of the system where it is one of its own, which on POSIX begins
// with a single `\`; a path of a volume or a list from elsewhere stays as it is.
void os_path_to_user(const char *name, u32 length, utf8_buf_t *out);
// Whether a path is an absolute one that this system may know, and not that of a volume or a list from
// elsewhere: on POSIX it begins with a single `\`, on Windows with a drive or a share.
bool os_path_is_own(const char *name, u32 length);

// How many bytes at the front of a text in the system's 8-bit code page, which begins with a whole character,
// are whole characters: all, or up to three less where a character goes on behind the text.
u32 os_ansi_get_whole_length(const char *text, u32 length);

u32 os_get_last_error();
void os_set_last_error(u32 error);
// Whether an error number says that a file, or a folder on the way to it, does not exist.
bool os_error_is_not_found(u32 error);
// The system's text for an error number, in `out` (`capacity` bytes with the terminator).
void os_error_text(u32 error, char *out, u32 capacity);

// --- Sort --------------------------------------------------------------------------------------------------

using os_compare_t = int(u32 a, u32 b);
using os_compare_param_t = int(u32 a, u32 b, void *param);

// Sorts a table of 32-bit values. From 65,537 values on, on several threads, as max_threads and the
// processors allow. The comparison may run on any of them. Not stable. At most some 2 * count * log2(count)
// comparisons, whatever the input; a comparison that contradicts itself gives some order of the same values.
void os_qsort(u32 *values, u32 count, os_compare_t *compare);
void os_qsort_with_param(u32 *values, u32 count, os_compare_param_t *compare, void *param);

// --- Time --------------------------------------------------------------------------------------------------

// A clock in microseconds that wraps; differences of it are what %f prints.
u32 os_get_tick_count();

// File times are 100-nanosecond ticks since 1601, UTC; local ones the same of the wall clock. A time that the
// system cannot convert (VALUE_UNKNOWN, or tens of thousands of years away) is returned as it is. A local
// time that the clocks show twice means the first; one that they leave out is taken as if they had not been
// put forward.
u64 os_get_file_time(); // now
u64 os_file_time_to_local(u64 file_time);
u64 os_local_time_to_file_time(u64 local);
u64 os_get_local_file_time();

// What a calendar and a clock show.
struct os_date_t {
    u32 year, month, day; // month and day from 1
    u32 hour, minute, second, millisecond;
};
inline constexpr u32 OS_YEAR_FIRST = 1601;
inline constexpr u32 OS_YEAR_LAST = 30827;

// A date as ticks since 1601 of the clock that shows it, and back, which drops what is below a millisecond;
// for a date of the user's, these are local times. False, and 0, for what is no date of the years above.
bool os_date_to_ticks(const os_date_t *date, u64 *ticks);
void os_ticks_to_date(u64 ticks, os_date_t *date);
u32 os_days_in_month(u32 year, u32 month);

// How the user's locale reads dates.
enum os_date_order_t : u32 {
    OS_ORDER_MONTH_DAY_YEAR = 0,
    OS_ORDER_DAY_MONTH_YEAR = 1,
    OS_ORDER_YEAR_MONTH_DAY = 2,
};
struct os_calendar_t {
    u32 first_weekday; // of a week: 0 Sunday to 6 Saturday
    os_date_order_t date_order;
    u32 two_digit_year_max; // the last year that two digits can mean
};
// Sunday, day first and 2049 where the locale has none of its own.
void os_get_calendar(os_calendar_t *calendar);

// --- Console and process -----------------------------------------------------------------------------------

// True when standard error (2) or standard output (1) is a terminal.
bool os_is_terminal(int descriptor);
// True when that is a terminal which takes escape sequences for colours. One that has to be told to do so is,
// and goes on doing so.
bool os_console_enable_colors(int descriptor);
// Writes to standard output or error in large pieces; false when it is closed. UTF-8 bytes as they are.
bool os_console_write(int descriptor, const void *bytes, u32 size);
// A line for the user, its end added: to standard error, or where there is none in a message box.
void os_show_message(const char *text);
// The file of the program that runs, full path. False, and empty, where the system does not say.
bool os_get_program_path(utf8_buf_t *out);
// The process's arguments in UTF-8, program name first; owned by the layer until os_kill. Their count.
u32 os_get_arguments(int argc, char **argv, const char *const **arguments);
// The names of the user and of the computer, as the system has them; empty when it does not say.
void os_get_user_name(utf8_buf_t *out);
void os_get_computer_name(utf8_buf_t *out);
// Replaces environment variables, `%NAME%` on Windows and `$NAME` and `${NAME}` on POSIX, by their values as
// the system has them; a name that has none stays. What would add more than `max` bytes in all stays too. The
// text must not lie in `out`.
void os_expand_environment(const char *text, u32 length, u32 max, utf8_buf_t *out);
// The whole command line as one text, for the log.
void os_get_command_line(utf8_buf_t *out);

} // namespace findwright
