// The same rows for scripts.
#include "remote/http_page_internal.h"

#include "base/utf8.h"

namespace findwright {

void http_json_cat_begin(utf8_buf_t *out, const http_page_t *page) {
    utf8_buf_cat_string(out, "{\r\n");
    if (!page->is_folder_page)
        utf8_buf_cat_printf(out, "\t\"totalResults\":%u,\r\n", page->total);
    utf8_buf_cat_string(out, "\t\"results\":[\r\n");
}

// --- Fields ------------------------------------------------------------------------------------------------

// Answers may have millions of rows, so these are put together without a format.
static void _http_json_cat_key(utf8_buf_t *out, const char *key) {
    utf8_buf_cat_string(out, "\",\r\n\t\t\t\"");
    utf8_buf_cat_string(out, key);
    utf8_buf_cat_string(out, "\":\"");
}

static void _http_json_cat_text(utf8_buf_t *out, const char *key, const utf8_buf_t *text) {
    _http_json_cat_key(out, key);
    http_cat_json(out, text->data, static_cast<u32>(text->length));
}

static void _http_json_cat_number(utf8_buf_t *out, const char *key, u64 number) {
    char digits[20];
    u32 start = sizeof digits;
    _http_json_cat_key(out, key);
    if (number == VALUE_UNKNOWN)
        return;
    do {
        digits[--start] = static_cast<char>('0' + number % 10);
        number /= 10;
    } while (number != 0);
    utf8_buf_cat_utf8(out, digits + start, static_cast<u32>(sizeof digits) - start);
}

// Runs in bytes of a name are told in UTF-16 units of its text: one for each byte that is no UTF-8.
static void _http_json_cat_marks(utf8_buf_t *out, const char *key, const db_highlight_t *marks) {
    _http_json_cat_key(out, key);
    if (!marks)
        return;
    const char *text = marks->text.data;
    const char *end = text + marks->text.length;
    const char *p = text;
    u32 units = 0;
    const auto advance = [&](u32 to) {
        while (p < end && p < text + to) {
            u32 length = http_utf8_char_length(p, end);
            p += length != 0 ? length : 1;
            units += length == 4 ? 2 : 1;
        }
        return units;
    };
    for (u32 i = 0; i < marks->run_count; i++) {
        const db_highlight_run_t *run = &marks->runs[i];
        u32 start = advance(run->start);
        u32 length = advance(run->start + run->length) - start;
        utf8_buf_cat_printf(out, i == 0 ? "%u,%u" : ",%u,%u", start, length);
    }
}

// What the page's own script asks for.
static void _http_json_cat_live(utf8_buf_t *out, const http_page_t *page, const http_row_t *row,
                                utf8_buf_t *text) {
    bool has_path = page->query->path_column && !page->is_folder_page;
    _http_row_get_url(page, row, true, text);
    _http_json_cat_text(out, "url", text);
    if (has_path) {
        _http_row_get_path_url(row, true, text);
        _http_json_cat_text(out, "path_url", text);
    }
    if (page->is_folder_page)
        return;
    _http_json_cat_marks(out, "name_marks", row->name_marks);
    if (has_path)
        _http_json_cat_marks(out, "path_marks", row->path_marks);
}

// --- Rows --------------------------------------------------------------------------------------------------

// A field's closing quote is written by what follows it.
void http_json_cat_row(utf8_buf_t *out, const http_page_t *page, bool is_first, const http_row_t *row) {
    const http_query_t *query = page->query;
    utf8_buf_t text;
    utf8_buf_init(&text);
    if (!is_first)
        utf8_buf_cat_string(out, ",\r\n");
    utf8_buf_cat_string(out, row->is_folder ? "\t\t{\r\n\t\t\t\"type\":\"folder\",\r\n\t\t\t\"name\":\""
                                            : "\t\t{\r\n\t\t\t\"type\":\"file\",\r\n\t\t\t\"name\":\"");
    _http_row_get_shown_name(row, &text);
    http_cat_json(out, text.data, static_cast<u32>(text.length));
    if (query->path_column && !page->is_folder_page) {
        _http_row_get_shown_path(row, &text);
        _http_json_cat_text(out, "path", &text);
    }
    if (query->size_column || page->is_folder_page)
        _http_json_cat_number(out, "size", row->size);
    if (query->date_modified_column)
        _http_json_cat_number(out, "date_modified", row->date_modified);
    if (query->live)
        _http_json_cat_live(out, page, row, &text);
    utf8_buf_cat_string(out, "\"\r\n\t\t}");
    utf8_buf_kill(&text);
}

// The form of a folder has no line break behind its last row.
void http_json_cat_end(utf8_buf_t *out, const http_page_t *page, bool is_empty) {
    utf8_buf_cat_string(out, is_empty || page->is_folder_page ? "\t]\r\n}\r\n" : "\r\n\t]\r\n}\r\n");
}

} // namespace findwright
