// The escapes of what the server writes. Each appends; any thread.
//
// Names are bytes that need not be UTF-8. In HTML and JSON what is no UTF-8 becomes U+FFFD, which is what a
// browser would show; in addresses it stays exact, as %XX.
#pragma once

#include "base/utf8_buf.h"

namespace findwright {

// `&`, `<`, `>` and `"` as entities.
void http_cat_html(utf8_buf_t *out, const char *text, u32 length);
// Letters, digits, bytes from 128 up and ! ' ( ) * - . _ ~ stay; others become %XX. Bytes that are no UTF-8
// become %XX too.
void http_cat_url(utf8_buf_t *out, const char *text, u32 length);
// The same, with a blank as `+`: behind `search=`.
void http_cat_url_search(utf8_buf_t *out, const char *text, u32 length);
// A path in inside form: `\` as `/`, leading ones dropped; `/` stays.
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

// "Sun, 22 Nov 2026 10:15:00 GMT"; the file time is UTC. Nothing for an unknown one.
void http_cat_date(utf8_buf_t *out, u64 file_time);

} // namespace findwright
