// The escapes of what the server writes. Each appends; any thread.
//
// Names are bytes that need not be UTF-8. In HTML and JSON each byte that is no part of a whole character
// becomes U+FFFD, and so does a zero byte in HTML: what a browser would show, and nothing that it could read
// as something else. In addresses all bytes stay exact, as %XX.
#pragma once

#include "base/types.h"
#include "base/utf8_buf.h"

namespace findwright {

// `&`, `<`, `>` and `"` as entities.
void http_cat_html(utf8_buf_t *out, const char *text, u32 length);
// Letters, digits, bytes from 128 up and ! ' ( ) * - . _ ~ stay; others become %XX. Bytes that are no UTF-8
// become %XX too.
void http_cat_url(utf8_buf_t *out, const char *text, u32 length);
// The same, with a blank as `+`: behind `search=`.
void http_cat_url_search(utf8_buf_t *out, const char *text, u32 length);
// A path in inside form: `\` as `/`; `/` stays. Leading ones of both are dropped, since `//name` would be
// another server. The root of a POSIX system, `\` alone, is `%2F`: nothing would be left of it.
void http_cat_url_path(utf8_buf_t *out, const char *path, u32 length);
// The same in ASCII alone, all bytes from 128 up as %XX.
void http_cat_url_path_ascii(utf8_buf_t *out, const char *path, u32 length);
// The scheme in front of a path that a link may lead to: http, https, ftp or file and "://"; 0 for any other,
// and for none.
bool http_path_has_link_scheme(const char *path, u32 length);
// Whether a path begins with any scheme at all ("abc://").
bool http_path_has_scheme(const char *path, u32 length);
// The address of an item for an href, not yet escaped for HTML: "/" and the escaped path; or the path itself,
// escaped, where it has one of those schemes; nothing where it has another one.
void http_cat_item_url(utf8_buf_t *out, const char *path, u32 length, bool ascii);
// Inside the quotes of a JSON string: `\` and `"` take a backslash; characters below 32, 127, `<`, `>`, `&`,
// U+2028 and U+2029 are \u00XX and the like.
void http_cat_json(utf8_buf_t *out, const char *text, u32 length);

// Takes %XX back: a `%` with bad digits gives 0 for each bad digit, one at the very end stays. With
// `plus_is_blank` a `+` is a blank, as forms send it.
void http_cat_url_decoded(utf8_buf_t *out, const char *text, u32 length, bool plus_is_blank);

// The length of the character at `text`, in front of `end`; 0 where a browser would see no whole one: a
// stray, cut or overlong sequence, a surrogate, or a value above U+10FFFF.
u32 http_utf8_char_length(const char *text, const char *end);

// "Sun, 22 Nov 2026 10:15:00 GMT"; the file time is UTC. Nothing for an unknown one.
void http_cat_date(utf8_buf_t *out, u64 file_time);

} // namespace findwright
