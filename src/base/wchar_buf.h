// Growable UTF-16 text for system calls; the rules are those of utf8_buf_t. Lengths are in 16-bit units.
#pragma once

#include "base/utf8_buf.h"

namespace findwright {

struct wchar_buf_t {
    i32 length;   // units, without the terminator
    i32 capacity; // units that `data` can hold, terminator included
    char16_t *data;
    char16_t inline_data[TEXT_BUF_INLINE];

    wchar_buf_t() = default;
    wchar_buf_t(const wchar_buf_t &) = delete;
    wchar_buf_t &operator=(const wchar_buf_t &) = delete;
};

void wchar_buf_init(wchar_buf_t *buf);
void wchar_buf_kill(wchar_buf_t *buf);
void wchar_buf_empty(wchar_buf_t *buf);
void wchar_buf_grow_empty(wchar_buf_t *buf, u32 size);
void wchar_buf_grow_cat(wchar_buf_t *buf, u32 added);
void wchar_buf_set_length(wchar_buf_t *buf, u32 length);

void wchar_buf_copy_wchar(wchar_buf_t *buf, const char16_t *text, u32 length);
void wchar_buf_cat_wchar(wchar_buf_t *buf, const char16_t *text, u32 length);
void wchar_buf_cat_unit(wchar_buf_t *buf, char16_t unit);
void wchar_buf_copy_utf8(wchar_buf_t *buf, const char *text, u32 length);
void wchar_buf_cat_utf8(wchar_buf_t *buf, const char *text, u32 length);
// From the system's 8-bit code page.
void wchar_buf_copy_ansi(wchar_buf_t *buf, const char *text, u32 length);

} // namespace findwright
