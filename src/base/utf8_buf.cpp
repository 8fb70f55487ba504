#include "base/utf8_buf.h"

#include "base/utf8.h"
#include "base/utf8_buf_storage.h"
#include "base/utf8_format.h"
#include "base/wchar_buf.h"

namespace findwright {

void utf8_buf_init(utf8_buf_t *buf) {
    text_buf_init(buf);
}

void utf8_buf_kill(utf8_buf_t *buf) {
    text_buf_kill(buf);
}

void utf8_buf_empty(utf8_buf_t *buf) {
    text_buf_empty(buf);
}

void utf8_buf_grow_empty(utf8_buf_t *buf, u32 size) {
    text_buf_grow_empty(buf, size);
}

void utf8_buf_grow_cat(utf8_buf_t *buf, u32 added) {
    text_buf_grow_cat(buf, added);
}

void utf8_buf_set_length(utf8_buf_t *buf, u32 length) {
    text_buf_set_length(buf, length);
}

void utf8_buf_copy_utf8(utf8_buf_t *buf, const char *text, u32 length) {
    text_buf_copy(buf, text, length);
}

void utf8_buf_cat_utf8(utf8_buf_t *buf, const char *text, u32 length) {
    text_buf_cat(buf, text, length);
}

void utf8_buf_copy_string(utf8_buf_t *buf, const char *text) {
    text_buf_copy(buf, text, text ? utf8_length(text) : 0);
}

void utf8_buf_cat_string(utf8_buf_t *buf, const char *text) {
    text_buf_cat(buf, text, text ? utf8_length(text) : 0);
}

void utf8_buf_cat_byte(utf8_buf_t *buf, char byte) {
    text_buf_cat(buf, &byte, 1);
}

void utf8_buf_copy_wchar(utf8_buf_t *buf, const char16_t *text, u32 length) {
    const u32 size = utf8_wchar_get_length(text, length);
    text_buf_reserve(buf, size);
    utf8_from_wchar_length(buf->data, text, length);
    text_buf_set_length(buf, size);
}

void utf8_buf_cat_wchar(utf8_buf_t *buf, const char16_t *text, u32 length) {
    const u32 size = utf8_wchar_get_length(text, length);
    text_buf_grow_cat(buf, size);
    utf8_from_wchar_length(buf->data + buf->length, text, length);
    text_buf_set_length(buf, static_cast<size_t>(buf->length) + size);
}

void utf8_buf_copy_ansi(utf8_buf_t *buf, const char *text, u32 length) {
    wchar_buf_t wide;
    wchar_buf_init(&wide);
    wchar_buf_copy_ansi(&wide, text, length);
    utf8_buf_copy_wchar(buf, wide.data, static_cast<u32>(wide.length));
    wchar_buf_kill(&wide);
}

void utf8_buf_lower(utf8_buf_t *buf) {
    const u32 length = static_cast<u32>(buf->length);
    utf8_buf_t copy;
    utf8_buf_init(&copy);
    utf8_buf_copy_utf8(&copy, buf->data, length);
    const u32 size = utf8_lower_get_length(copy.data, length);
    text_buf_reserve(buf, size);
    utf8_lower_copy(buf->data, copy.data, length);
    text_buf_set_length(buf, size);
    utf8_buf_kill(&copy);
}

void utf8_buf_vprintf(utf8_buf_t *buf, const char *format, va_list args) {
    utf8_buf_empty(buf);
    utf8_buf_cat_vprintf(buf, format, args);
}

void utf8_buf_cat_vprintf(utf8_buf_t *buf, const char *format, va_list args) {
    const u32 size = utf8_format(0, format, args);
    text_buf_grow_cat(buf, size);
    utf8_format(buf->data + buf->length, format, args);
    buf->length += static_cast<i32>(size);
}

void utf8_buf_printf(utf8_buf_t *buf, const char *format, ...) {
    va_list args;
    va_start(args, format);
    utf8_buf_vprintf(buf, format, args);
    va_end(args);
}

void utf8_buf_cat_printf(utf8_buf_t *buf, const char *format, ...) {
    va_list args;
    va_start(args, format);
    utf8_buf_cat_vprintf(buf, format, args);
    va_end(args);
}

static bool _utf8_buf_read_all(utf8_buf_t *buf, platform_file_t file) {
    constexpr u32 READ_SIZE = 65536;
    for (;;) {
        if (static_cast<size_t>(buf->length) + READ_SIZE + 1 > TEXT_BUF_MAX) {
            return false;
        }
        text_buf_grow_cat(buf, READ_SIZE);
        const i64 got = platform.file_read(file, buf->data + buf->length, READ_SIZE);
        if (got <= 0) {
            return got == 0;
        }
        text_buf_set_length(buf, static_cast<size_t>(buf->length) + static_cast<size_t>(got));
    }
}

bool utf8_buf_read_file(utf8_buf_t *buf, const char *filename) {
    utf8_buf_empty(buf);
    const platform_file_t file = platform.file_open_read(filename, true);
    if (file == PLATFORM_FILE_NONE) {
        return false;
    }
    const bool ok = _utf8_buf_read_all(buf, file);
    platform.file_close(file);
    if (!ok) {
        utf8_buf_empty(buf);
    }
    return ok;
}

} // namespace findwright
