// The table's entries before the os layer has put in its own.
#include "base/platform.h"

#include "base/utf8.h"
#include "base/utf8_format.h"

#include <cstdlib>

namespace findwright {

static void _platform_log(const char *, va_list) {}

static void _platform_fatal(const char *, int, const char *, const char *) {
    std::abort();
}

static void _platform_out_of_memory() {}

static void *_platform_reserve(size_t) {
    return 0;
}

static bool _platform_commit(void *, size_t) {
    return false;
}

static void _platform_release(void *, size_t) {}

static platform_file_t _platform_file_open_read(const char *, bool) {
    return PLATFORM_FILE_NONE;
}

static platform_file_t _platform_file_create(const char *) {
    return PLATFORM_FILE_NONE;
}

static i64 _platform_file_read(platform_file_t, void *, u32) {
    return -1;
}

static bool _platform_file_write(platform_file_t, const void *, u32) {
    return false;
}

static void _platform_file_close(platform_file_t) {}

static u32 _platform_last_error() {
    return 0;
}

static bool _platform_folder(char *out, u32) {
    *out = 0;
    return false;
}

// Without a system the 8-bit code page is UTF-8. A character that does not fit whole is not written.
static u32 _platform_ansi_from_wchar(char *out, u32 capacity, const char16_t *text, u32 length) {
    const u32 size = utf8_wchar_get_length(text, length);
    while (length && utf8_wchar_get_length(text, length) > capacity) {
        length--;
    }
    if (length) {
        utf8_from_wchar_length(out, text, length);
    }
    return size;
}

static u32 _platform_wchar_from_ansi(char16_t *out, u32 capacity, const char *text, u32 length) {
    const u32 size = wchar_utf8_get_length(text, length);
    while (length && wchar_utf8_get_length(text, length) > capacity) {
        length--;
    }
    if (length) {
        wchar_from_utf8(out, text, length);
    }
    return size;
}

// Formats into a place of fixed size: nothing at all when the text does not fit.
static u32 _platform_format(char *out, u32 capacity, const char *format, ...) {
    va_list args;
    va_start(args, format);
    u32 length = utf8_format(0, format, args);
    if (length < capacity) {
        utf8_format(out, format, args);
    } else {
        length = 0;
        *out = 0;
    }
    va_end(args);
    return length;
}

// No digit grouping: that is a locale's.
static u32 _platform_format_number(char *out, u32 capacity, i64 value) {
    return _platform_format(out, capacity, "%I64d", value);
}

static u32 _platform_decimal_separator(char *out, u32 capacity) {
    return _platform_format(out, capacity, ".");
}

static bool _platform_local_fields(u64, u16 *) {
    return false;
}

static u32 _platform_format_short_date_time(char *out, u32, u64) {
    *out = 0;
    return 0;
}

platform_t platform = {
    .log = _platform_log,
    .fatal = _platform_fatal,
    .out_of_memory = _platform_out_of_memory,
    .reserve = _platform_reserve,
    .commit = _platform_commit,
    .decommit = _platform_release,
    .unreserve = _platform_release,
    .file_open_read = _platform_file_open_read,
    .file_create = _platform_file_create,
    .file_read = _platform_file_read,
    .file_write = _platform_file_write,
    .file_close = _platform_file_close,
    .last_error = _platform_last_error,
    .exe_path = _platform_folder,
    .app_data_path = _platform_folder,
    .local_app_data_path = _platform_folder,
    .current_directory = _platform_folder,
    .ansi_from_wchar = _platform_ansi_from_wchar,
    .wchar_from_ansi = _platform_wchar_from_ansi,
    .format_number = _platform_format_number,
    .decimal_separator = _platform_decimal_separator,
    .format_short_date_time = _platform_format_short_date_time,
    .local_fields = _platform_local_fields,
};

void base_log(const char *format, ...) {
    va_list args;
    va_start(args, format);
    platform.log(format, args);
    va_end(args);
}

} // namespace findwright
