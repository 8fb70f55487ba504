#include "os/debug.h"

#include "base/mem.h"
#include "base/utf8_buf.h"
#include "base/utf8_format.h"
#include "base/version.h"
#include "os/os_internal.h"

#include <atomic>
#include <cstring>
#include <mutex>

namespace findwright {

bool debug_verbose;
bool debug_is_app_data;
bool debug_is_service;

static constexpr u32 DEBUG_LINE = 1024; // lines up to here are formatted on the stack
static constexpr u32 DEBUG_FILENAME = 4096;

static std::mutex _debug_lock;
static char
    _debug_filename[DEBUG_FILENAME];     // under the lock; not on the heap, whose last report is a log line
static std::atomic<bool> _debug_file_on; // for the test in front of any formatting
static std::atomic<bool> _debug_console_on;

static void _debug_write(debug_color_t color, const char *text, u32 length) {
    std::lock_guard lock(_debug_lock);
    if (_debug_file_on)
        os_append(_debug_filename, text, length);
    if (_debug_console_on)
        os_console_print(color, text, length);
}

// Logging never changes the error number, so that a failure can be logged on its way to the caller.
static void _debug_vprintf(debug_color_t color, const char *format, va_list arguments) {
    u32 error = os_get_last_error();
    va_list copy;
    va_copy(copy, arguments);
    u32 length = utf8_format(nullptr, format, copy);
    va_end(copy);
    char line[DEBUG_LINE];
    char *text = length < DEBUG_LINE ? line : static_cast<char *>(mem_alloc(length + 1));
    va_copy(copy, arguments);
    utf8_format(text, format, copy);
    va_end(copy);
    _debug_write(color, text, length);
    if (text != line)
        mem_free(text);
    os_set_last_error(error);
}

void debug_log_open(const char *filename) {
    size_t length = filename ? std::strlen(filename) : 0;
    std::lock_guard lock(_debug_lock);
    _debug_file_on = length && length < DEBUG_FILENAME;
    os_copy_text(_debug_filename, DEBUG_FILENAME, filename ? filename : "",
                 _debug_file_on ? static_cast<u32>(length) : 0);
}

static void _debug_print_head() {
    utf8_buf_t command_line;
    utf8_buf_init(&command_line);
    os_get_command_line(&command_line);
    debug_printf("Version %s\n", FINDWRIGHT_VERSION);
    debug_printf("%s %d.%d\n", os_get_system_name(), os_version_major, os_version_minor);
    debug_printf("Processors %d\n", os_get_processor_count());
    debug_printf("IsAdmin %d\n", os_is_admin());
    debug_printf("AppData %d\n", debug_is_app_data);
    debug_printf("Service %d\n", debug_is_service);
    debug_printf("cmdline %s\n", command_line.data);
    utf8_buf_kill(&command_line);
}

void debug_console(bool on) {
    {
        std::lock_guard lock(_debug_lock);
        if (_debug_console_on == on)
            return;
        if (on)
            os_console_open();
        else
            os_console_close();
        _debug_console_on = on;
    }
    if (on)
        _debug_print_head();
}

bool debug_is_on() {
    return _debug_file_on || _debug_console_on;
}

void debug_vprintf(const char *format, va_list arguments) {
    if (debug_is_on())
        _debug_vprintf(DEBUG_COLOR_NORMAL, format, arguments);
}

void debug_printf(const char *format, ...) {
    if (!debug_is_on())
        return;
    va_list arguments;
    va_start(arguments, format);
    _debug_vprintf(DEBUG_COLOR_NORMAL, format, arguments);
    va_end(arguments);
}

void debug_color_printf(debug_color_t color, const char *format, ...) {
    if (!debug_is_on())
        return;
    va_list arguments;
    va_start(arguments, format);
    _debug_vprintf(color, format, arguments);
    va_end(arguments);
}

void debug_verbose_printf(const char *format, ...) {
    if (!debug_verbose || !debug_is_on())
        return;
    va_list arguments;
    va_start(arguments, format);
    _debug_vprintf(DEBUG_COLOR_NORMAL, format, arguments);
    va_end(arguments);
}

// Appends as much of a formatted text as fits; a text that does not is replaced by its format.
static u32 _debug_fatal_cat(char *text, u32 length, u32 capacity, const char *format, va_list arguments) {
    va_list copy;
    va_copy(copy, arguments);
    u32 needed = utf8_format(nullptr, format, copy);
    va_end(copy);
    if (needed >= capacity - length)
        return length +
               os_copy_text(text + length, capacity - length, format, static_cast<u32>(std::strlen(format)));
    va_copy(copy, arguments);
    utf8_format(text + length, format, copy);
    va_end(copy);
    return length + needed;
}

static u32 _debug_fatal_cat_printf(char *text, u32 length, u32 capacity, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    length = _debug_fatal_cat(text, length, capacity, format, arguments);
    va_end(arguments);
    return length;
}

// The heap may be what failed, so nothing here allocates.
void debug_fatal_at(const char *file, int line, const char *function, const char *format, ...) {
    char text[4096];
    constexpr u32 CAPACITY = sizeof(text) - 1; // room for the line end
    u32 length =
        _debug_fatal_cat_printf(text, 0, CAPACITY, "%s(%d): %s(): Fatal error: ", file, line, function);
    va_list arguments;
    va_start(arguments, format);
    length = _debug_fatal_cat(text, length, CAPACITY, format, arguments);
    va_end(arguments);
    text[length++] = '\n';
    text[length] = 0;
    {
        std::lock_guard lock(_debug_lock);
        if (_debug_file_on)
            os_append(_debug_filename, text, length);
    }
    os_fatal_end(text, length);
}

} // namespace findwright
