#include "base/ansi_buf.h"

#include "base/utf8_buf_storage.h"
#include "base/wchar_buf.h"

namespace findwright {

void ansi_buf_init(ansi_buf_t *buf) {
    text_buf_init(buf);
}

void ansi_buf_kill(ansi_buf_t *buf) {
    text_buf_kill(buf);
}

void ansi_buf_empty(ansi_buf_t *buf) {
    text_buf_empty(buf);
}

void ansi_buf_grow_empty(ansi_buf_t *buf, u32 size) {
    text_buf_grow_empty(buf, size);
}

void ansi_buf_set_length(ansi_buf_t *buf, u32 length) {
    text_buf_set_length(buf, length);
}

void ansi_buf_copy_ansi(ansi_buf_t *buf, const char *text, u32 length) {
    text_buf_copy(buf, text, length);
}

void ansi_buf_cat_ansi(ansi_buf_t *buf, const char *text, u32 length) {
    text_buf_cat(buf, text, length);
}

void ansi_buf_copy_utf8(ansi_buf_t *buf, const char *text, u32 length) {
    wchar_buf_t wide;
    wchar_buf_init(&wide);
    wchar_buf_copy_utf8(&wide, text, length);
    ansi_buf_copy_wchar(buf, wide.data, static_cast<u32>(wide.length));
    wchar_buf_kill(&wide);
}

void ansi_buf_copy_wchar(ansi_buf_t *buf, const char16_t *text, u32 length) {
    text_buf_reserve(buf, platform.ansi_from_wchar(0, 0, text, length));
    const u32 size = platform.ansi_from_wchar(buf->data, static_cast<u32>(buf->capacity) - 1, text, length);
    text_buf_set_length(buf, size);
}

} // namespace findwright
