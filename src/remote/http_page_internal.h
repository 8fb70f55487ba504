// What the pages and the JSON of the server's answers share.
#pragma once

#include "remote/http_page.h"

namespace findwright {

// A row's name, and the path of its folder, as its reader writes them. A top without a name is the root of a
// POSIX system. The buffer's old text goes.
void _http_row_get_shown_name(const http_row_t *row, utf8_buf_t *out);
void _http_row_get_shown_path(const http_row_t *row, utf8_buf_t *out);
// The address of a row's item, not escaped for HTML; empty where there is no link.
void _http_row_get_url(const http_page_t *page, const http_row_t *row, bool ascii, utf8_buf_t *out);
// The address of the folder that holds it.
void _http_row_get_path_url(const http_row_t *row, bool ascii, utf8_buf_t *out);

} // namespace findwright
