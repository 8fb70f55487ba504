// Growable text in the system's 8-bit code page, for interfaces that demand it; the rules are those of
// utf8_buf_t. Conversion goes through UTF-16 and the platform's code page.
#pragma once

#include "base/utf8_buf.h"

namespace findwright {

struct ansi_buf_t {
    i32 length;   // bytes, without the terminator
    i32 capacity; // bytes that `data` can hold, terminator included
    char *data;
    char inline_data[TEXT_BUF_INLINE];

    ansi_buf_t() = default;
    ansi_buf_t(const ansi_buf_t &) = delete;
    ansi_buf_t &operator=(const ansi_buf_t &) = delete;
};

void ansi_buf_init(ansi_buf_t *buf);
void ansi_buf_kill(ansi_buf_t *buf);
void ansi_buf_empty(ansi_buf_t *buf);
void ansi_buf_grow_empty(ansi_buf_t *buf, u32 size);
void ansi_buf_set_length(ansi_buf_t *buf, u32 length);

void ansi_buf_copy_ansi(ansi_buf_t *buf, const char *text, u32 length);
void ansi_buf_cat_ansi(ansi_buf_t *buf, const char *text, u32 length);
void ansi_buf_copy_utf8(ansi_buf_t *buf, const char *text, u32 length);
void ansi_buf_copy_wchar(ansi_buf_t *buf, const char16_t *text, u32 length);

} // namespace findwright
