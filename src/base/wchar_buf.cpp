#include "base/wchar_buf.h"

#include "base/utf8.h"
#include "base/utf8_buf_storage.h"

namespace findwright {

void wchar_buf_init(wchar_buf_t *buf) {
    text_buf_init(buf);
}

void wchar_buf_kill(wchar_buf_t *buf) {
    text_buf_kill(buf);
}

void wchar_buf_empty(wchar_buf_t *buf) {
    text_buf_empty(buf);
}

void wchar_buf_grow_empty(wchar_buf_t *buf, u32 size) {
    text_buf_grow_empty(buf, size);
}

void wchar_buf_grow_cat(wchar_buf_t *buf, u32 added) {
    text_buf_grow_cat(buf, added);
}

void wchar_buf_set_length(wchar_buf_t *buf, u32 length) {
    text_buf_set_length(buf, length);
}

void wchar_buf_copy_wchar(wchar_buf_t *buf, const char16_t *text, u32 length) {
    text_buf_copy(buf, text, length);
}

void wchar_buf_cat_wchar(wchar_buf_t *buf, const char16_t *text, u32 length) {
    text_buf_cat(buf, text, length);
}

void wchar_buf_cat_unit(wchar_buf_t *buf, char16_t unit) {
    text_buf_cat(buf, &unit, 1);
}

void wchar_buf_copy_utf8(wchar_buf_t *buf, const char *text, u32 length) {
    const u32 size = wchar_utf8_get_length(text, length);
    text_buf_reserve(buf, size);
    wchar_from_utf8(buf->data, text, length);
    text_buf_set_length(buf, size);
}

void wchar_buf_cat_utf8(wchar_buf_t *buf, const char *text, u32 length) {
    const u32 size = wchar_utf8_get_length(text, length);
    text_buf_grow_cat(buf, size);
    wchar_from_utf8(buf->data + buf->length, text, length);
    text_buf_set_length(buf, static_cast<size_t>(buf->length) + size);
}

void wchar_buf_copy_ansi(wchar_buf_t *buf, const char *text, u32 length) {
    text_buf_reserve(buf, platform.wchar_from_ansi(0, 0, text, length));
    const u32 size = platform.wchar_from_ansi(buf->data, static_cast<u32>(buf->capacity) - 1, text, length);
    text_buf_set_length(buf, size);
}

} // namespace findwright
