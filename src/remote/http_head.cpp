// Heads of answers, and the answers that are nothing but an error.
#include "base/utf8.h"
#include "remote/http_page.h"

namespace findwright {

// A header's text from a language pack: a line break in it would begin another header.
static void _http_cat_header_text(utf8_buf_t *out, const char *text) {
    utf8_buf_t line;
    utf8_buf_init(&line);
    for (; *text; text++) {
        if (*text >= ' ' && *text != 127)
            utf8_buf_cat_byte(&line, *text);
    }
    http_cat_html(out, line.data, static_cast<u32>(line.length));
    utf8_buf_kill(&line);
}

static void _http_cat_date_header(utf8_buf_t *out, const char *name, u64 file_time) {
    if (file_time == VALUE_UNKNOWN)
        return;
    utf8_buf_cat_string(out, name);
    utf8_buf_cat_string(out, ": ");
    http_cat_date(out, file_time);
    utf8_buf_cat_string(out, "\r\n");
}

void http_cat_file_head(utf8_buf_t *out, const http_file_head_t *head, u64 now) {
    utf8_buf_cat_string(out, head->has_range ? "HTTP/1.0 206 OK\r\n" : "HTTP/1.0 200 OK\r\n");
    utf8_buf_cat_string(out, "Server: Findwright HTTP Server\r\n");
    utf8_buf_cat_printf(out, "Content-Type: %s\r\n", head->type);
    utf8_buf_cat_printf(out, "Content-Length: %I64u\r\n", head->has_range ? head->range_size : head->size);
    if (!head->is_embedded)
        utf8_buf_cat_string(out, "Accept-Ranges: bytes\r\n");
    if (head->has_range)
        utf8_buf_cat_printf(out, "Content-Range: bytes %I64u-%I64u/%I64u\r\n", head->range_start,
                            head->range_start + head->range_size - 1, head->size);
    _http_cat_date_header(out, "Date", now);
    _http_cat_date_header(out, "Last-Modified", head->date);
    if (head->is_embedded)
        utf8_buf_cat_string(out, "Cache-Control: private, max-age=3600\r\n");
    // Its scripts do not run, and it is no page of this server for any other.
    if (head->is_sandboxed)
        utf8_buf_cat_string(out, "Content-Security-Policy: sandbox\r\n");
    utf8_buf_cat_string(out, "Connection: Close\r\n\r\n");
}

void http_cat_page_head(utf8_buf_t *out, u64 now) {
    utf8_buf_cat_string(out, "HTTP/1.0 200 OK\r\n"
                             "Server: Findwright HTTP Server\r\n"
                             "Content-Type: text/html; charset=UTF-8\r\n");
    _http_cat_date_header(out, "Date", now);
    utf8_buf_cat_string(out, "Cache-Control: no-cache\r\n"
                             "Connection: Close\r\n\r\n");
}

const char *http_status_reason(u32 status) {
    switch (status) {
    case 400: return "Bad Request";
    case 401: return "Unauthorized";
    case 403: return "Forbidden";
    case 404: return "Not Found";
    case 405: return "Method Not Allowed";
    case 408: return "Request Timeout";
    case 416: return "Range Not Satisfiable";
    case 421: return "Misdirected Request";
    case 431: return "Request Header Fields Too Large";
    case 503: return "Service Unavailable";
    default: return "Internal Server Error";
    }
}

void http_cat_error(utf8_buf_t *out, const http_texts_t *texts, u32 status) {
    const char *reason = http_status_reason(status);
    utf8_buf_cat_printf(out, "HTTP/1.0 %d %s\r\n", status, reason);
    if (status == 401) {
        utf8_buf_cat_string(out, "WWW-Authenticate: Basic realm=\"");
        _http_cat_header_text(out, texts->server_name);
        utf8_buf_cat_string(out, "\"\r\n");
    }
    utf8_buf_cat_string(out, "Content-Type: text/html; charset=UTF-8\r\n\r\n");
    utf8_buf_cat_printf(out,
                        "<html><meta http-equiv=\"Content-Type\" content=\"text/html; charset=utf-8\">"
                        "<meta name=\"viewport\" content=\"width=512\"><head><title>%d ",
                        status);
    http_cat_html(out, reason, utf8_length(reason));
    utf8_buf_cat_printf(out, "</title></head><body>%d ", status);
    http_cat_html(out, reason, utf8_length(reason));
    utf8_buf_cat_string(out, "</body></html>");
}

} // namespace findwright
