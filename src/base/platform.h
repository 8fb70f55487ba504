// What `base` needs of the operating system, as one table of functions.
//
// `base` includes nothing above it. `os_init` fills the table, once, before any other thread runs; until
// then, and in a program that never calls it, the table holds defaults: no log, a plain abort as the fatal
// end, and failing file operations. Callers never test an entry for 0.
#pragma once

#include "base/types.h"

#include <cstdarg>

namespace findwright {

// An open file as the platform knows it, in one word.
using platform_file_t = std::intptr_t;
inline constexpr platform_file_t PLATFORM_FILE_NONE = -1;

struct platform_t {
    // Writes one line to the debug log, in the program's own format codes (see utf8_format). Any thread.
    void (*log)(const char *format, va_list arguments);
    // Ends the process with the message "FILE(LINE): FUNCTION(): Fatal error: MESSAGE".
    void (*fatal)(const char *file, int line, const char *function, const char *message);
    // Shows "Out of Memory" where there is a window to show it in; the fatal end follows.
    void (*out_of_memory)();

    // Address space in whole multiples of 64 KiB. `reserve` returns 0 on failure, `commit` false.
    void *(*reserve)(size_t bytes);
    bool (*commit)(void *address, size_t bytes);
    // Gives the memory behind a committed range back to the system; its content is lost, and the range must
    // be committed again before use.
    void (*decommit)(void *address, size_t bytes);
    void (*unreserve)(void *address, size_t bytes);

    // Files, by UTF-8 name. `open_read` has read sharing; `create` makes the file anew. Both return
    // PLATFORM_FILE_NONE on failure.
    platform_file_t (*file_open_read)(const char *name, bool sequential);
    platform_file_t (*file_create)(const char *name);
    // Bytes read, 0 at the end of the file, -1 on failure.
    i64 (*file_read)(platform_file_t file, void *bytes, u32 size);
    // Writes all of it, or returns false.
    bool (*file_write)(platform_file_t file, const void *bytes, u32 size);
    void (*file_close)(platform_file_t file);
    // The error number of this thread's last failed call.
    u32 (*last_error)();

    // Folders of the program, as UTF-8, without a trailing separator; false, and an empty text, if unknown.
    // `out` holds `capacity` bytes, terminator included.
    bool (*exe_path)(char *out, u32 capacity);
    bool (*app_data_path)(char *out, u32 capacity);
    bool (*local_app_data_path)(char *out, u32 capacity);
    bool (*current_directory)(char *out, u32 capacity);

    // The system's 8-bit code page from and to UTF-16. Both return the length of the whole result in units of
    // the target, and write as much of it as `capacity` units allow.
    u32 (*ansi_from_wchar)(char *out, u32 capacity, const char16_t *text, u32 length);
    u32 (*wchar_from_ansi)(char16_t *out, u32 capacity, const char *text, u32 length);

    // Locale. Texts as UTF-8, at most `capacity` bytes with the terminator; the result is the length.
    u32 (*format_number)(char *out, u32 capacity, i64 value); // with digit grouping, no fraction
    u32 (*decimal_separator)(char *out, u32 capacity);
    u32 (*format_short_date_time)(char *out, u32 capacity, u64 file_time); // local short date and time
    // Local calendar fields of a file time (100-nanosecond ticks since 1601, UTC): year, month 1 to 12, day,
    // hour, minute, second, millisecond. False when the time cannot be told.
    bool (*local_fields)(u64 file_time, u16 fields[7]);
};

extern platform_t platform;

// Formats and logs one line through the table.
void base_log(const char *format, ...);

} // namespace findwright
