#include "remote/server_log.h"

#include "base/mem.h"
#include "base/utf8.h"
#include "base/utf8_format.h"
#include "os/debug.h"
#include "os/event.h"
#include "os/os.h"

#include <cstring>

namespace findwright {

static constexpr u32 LOG_DELAY = 200; // milliseconds
static constexpr i32 LOG_FULL = 65536;
static constexpr u32 LOG_COPY = 65536;

// --- File -------------------------------------------------------------------------------------------------

// The first start of a line at `offset` or behind; the end of the file when there is none.
static u64 _server_log_find_line(platform_file_t file, u64 offset, char *bytes) {
    u64 at = offset - 1; // the LF in front of a line that starts just there
    if (!os_seek(file, at))
        return VALUE_UNKNOWN;
    for (i64 taken; (taken = os_read(file, bytes, LOG_COPY)) > 0; at += static_cast<u64>(taken)) {
        if (auto *end = static_cast<char *>(std::memchr(bytes, '\n', static_cast<size_t>(taken))))
            return at + static_cast<u64>(end - bytes) + 1;
    }
    return at;
}

static bool _server_log_copy(platform_file_t from, platform_file_t to, u64 offset, char *bytes) {
    if (offset == VALUE_UNKNOWN || !os_seek(from, offset))
        return false;
    i64 taken;
    while ((taken = os_read(from, bytes, LOG_COPY)) > 0) {
        if (!os_write(to, bytes, static_cast<u32>(taken)))
            return false;
    }
    return taken == 0;
}

// Writes what is kept, `size` bytes less the first `cut` ones and the rest of their line, to another file.
static bool _server_log_write_kept(const char *filename, const char *temp, u64 cut) {
    platform_file_t from = os_open(filename, OS_OPEN_READ, OS_SHARE_READ | OS_SHARE_WRITE | OS_SHARE_DELETE,
                                   OS_OPEN_EXISTING, OS_OPEN_SEQUENTIAL);
    if (from == PLATFORM_FILE_NONE)
        return false;
    platform_file_t to = os_create(temp);
    bool is_written = false;
    if (to != PLATFORM_FILE_NONE) {
        os_make_private(temp);
        auto *bytes = static_cast<char *>(mem_alloc(LOG_COPY));
        is_written = _server_log_copy(from, to, _server_log_find_line(from, cut, bytes), bytes);
        mem_free(bytes);
        os_close(to);
    }
    os_close(from);
    return is_written;
}

// A log that is too long is cut; one that cannot be is left as it is, and goes on growing.
static void _server_log_trim(const server_log_t *log, u64 size) {
    if (!log->max_size || !log->delta_size || log->delta_size > log->max_size || size < log->max_size)
        return;
    utf8_buf_t temp;
    utf8_buf_init(&temp);
    os_get_temp_name(log->filename, &temp);
    if (!_server_log_write_kept(log->filename, temp.data, size - (log->max_size - log->delta_size)) ||
        !os_move_replace(temp.data, log->filename, true, false))
        os_delete_file(temp.data);
    utf8_buf_kill(&temp);
}

// It tells what was searched for, and by whom: a new file is kept from other users.
static bool _server_log_append(const server_log_t *log) {
    os_file_info_t info;
    bool is_there = os_get_file_info(log->filename, &info);
    if (is_there)
        _server_log_trim(log, info.size);
    else
        os_make_folders_for(log->filename);
    bool is_written = os_append(log->filename, log->text.data, static_cast<u32>(log->text.length));
    if (is_written && !is_there)
        os_make_private(log->filename);
    return is_written;
}

static void _server_log_write_proc(void *param) {
    auto *log = static_cast<server_log_t *>(param);
    log->is_posted = false;
    if (!log->text.length)
        return;
    if (!_server_log_append(log) && !log->is_failed) {
        log->is_failed = true;
        debug_printf("failed to write log %s %d\n", log->filename, os_get_last_error());
    }
    utf8_buf_empty(&log->text);
}

void server_log_init(server_log_t *log, const char *filename, i32 max_size, i32 delta_size) {
    log->filename = filename && *filename ? utf8_alloc_format("%s", filename) : nullptr;
    log->max_size = max_size > 0 ? static_cast<u64>(max_size) : 0;
    log->delta_size = delta_size > 0 ? static_cast<u64>(delta_size) : 0;
    utf8_buf_init(&log->text);
    log->is_posted = log->is_failed = false;
}

void server_log_kill(server_log_t *log) {
    event_remove(_server_log_write_proc, log);
    if (log->filename) {
        _server_log_write_proc(log);
        mem_free(log->filename);
    }
    log->filename = nullptr;
    utf8_buf_kill(&log->text);
}

// --- Records ----------------------------------------------------------------------------------------------

// What a terminal could take for an order: the control characters, those from U+0080 on too, and bytes that
// are no UTF-8 and that one of eight bits would take for such.
static bool _server_log_is_control(u32 value) {
    return value < 0x20 || (value >= 0x7F && value < 0xA0);
}

// The length of the character at `text`; 0 when it is one that is not written.
static u32 _server_log_get_clean(const char *text, const char *end) {
    u32 value;
    u32 length = utf8_decode(text, end, &value);
    for (u32 i = 1; i < length; i++) {
        if ((text[i] & 0xC0) != 0x80)
            return 0;
    }
    return _server_log_is_control(value) ? 0 : length;
}

static void _server_log_cat_clean(utf8_buf_t *out, const char *text, const char *end) {
    while (text < end) {
        u32 length = _server_log_get_clean(text, end);
        if (length)
            utf8_buf_cat_utf8(out, text, length);
        else
            utf8_buf_cat_byte(out, '?');
        text += length ? length : 1;
    }
}

static void _server_log_cat_record(utf8_buf_t *out, network_socket_t *socket, const char *peer,
                                   const utf8_buf_t *text) {
    utf8_buf_t date;
    utf8_buf_init(&date);
    utf8_buf_format_iso_date(&date, os_get_file_time());
    utf8_buf_cat_printf(out, "%s: ", date.data);
    utf8_buf_kill(&date);
    if (socket)
        utf8_buf_cat_printf(out, "%d: %s: ", network_get_number(socket), peer);
    const char *end = text->data + text->length;
    if (end > text->data && end[-1] == '\n')
        end--;
    if (end > text->data && end[-1] == '\r')
        end--;
    _server_log_cat_clean(out, text->data, end);
    utf8_buf_cat_string(out, "\r\n");
}

void server_log_printf(server_log_t *log, network_socket_t *socket, const char *peer, const char *format,
                       ...) {
    if (!log->filename && !debug_is_on())
        return;
    utf8_buf_t text;
    utf8_buf_init(&text);
    va_list arguments;
    va_start(arguments, format);
    utf8_buf_vprintf(&text, format, arguments);
    va_end(arguments);
    i32 start = log->text.length;
    _server_log_cat_record(&log->text, socket, peer, &text);
    utf8_buf_kill(&text);
    debug_printf("%t\n", log->text.data + start, static_cast<u32>(log->text.length - start - 2));
    if (!log->filename) {
        utf8_buf_empty(&log->text);
    } else if (log->text.length >= LOG_FULL) {
        event_remove(_server_log_write_proc, log);
        _server_log_write_proc(log);
    } else if (!log->is_posted) {
        log->is_posted = true;
        event_post_after(LOG_DELAY, _server_log_write_proc, log);
    }
}

} // namespace findwright
