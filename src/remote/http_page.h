// The pages and the JSON that the server generates: pure functions from rows to text. Who calls them has the
// rows; here is every byte of the form.
//
//     head  [count row | index row]  head row  row...  foot  [page links]  end
//
// All texts that come from names, paths and searches are escaped here. Main thread.
#pragma once

#include "db/db.h"
#include "query/db_highlight.h"
#include "remote/http_request.h"
#include "remote/http_text.h"

namespace findwright {

// The localized texts, not escaped.
struct http_texts_t {
    const char *program_name;                       // "Findwright"
    const char *server_name;                        // "Findwright HTTP Server"; the realm of the login
    const char *search_label;                       // of the search box
    const char *one_result;                         // "1 result"
    const char *results;                            // "%s results"
    const char *results_range;                      // "%s - %s of %s results"
    const char *name, *path, *size, *date_modified; // heads of the columns
    const char *previous, *next;
    const char *index_of; // "Index of %s"
    const char *up;       // "Up to the parent folder"
};

// What one page is about. Nothing in it is owned.
struct http_page_t {
    const http_texts_t *texts;
    const http_query_t *query; // what was asked; `search` 0 for a folder page
    const char *title;         // expanded, not escaped
    const char *folder;        // of a folder page: the folder's full path, inside form; empty: the tops
    u32 folder_length;
    const char *parent; // of a folder page with a folder: where "up" leads, inside form; empty: to the tops
    u32 parent_length;
    bool is_folder_page;
    bool allow_file_download;
    bool is_fast_sort; // of this order; a slow one is not carried along by the form
    u32 items_per_page;
    u32 total; // results of a search
    u32 shown; // rows that follow: of count, from offset
};

// Rows as the index has them.
struct http_row_t {
    bool is_folder;
    const char *name; // of a top of a folder source: its whole path
    u32 name_length;
    // Of the folder that holds it, full, inside form; empty at the top, and `\` for what lies in the root of
    // a POSIX system, whose own row is a top with an empty name or `\`.
    const char *path;
    u32 path_length;
    u64 size;                                      // bytes; VALUE_UNKNOWN
    u64 date_modified;                             // file time; likewise
    const db_highlight_t *name_marks, *path_marks; // 0: none are asked for
};

// --- Heads of answers --------------------------------------------------------------------------------------

struct http_file_head_t {
    bool has_range;              // 206
    u64 size;                    // of the whole file
    u64 range_start, range_size; // of what is sent; the whole without a range
    u64 date;                    // file time of the file
    const char *type;
    bool is_embedded;  // Cache-Control; else Accept-Ranges
    bool is_sandboxed; // of a type that browsers run, and from somewhere: it gets no rights of this server's
};
// `now`: the current file time, for all heads.
void http_cat_file_head(utf8_buf_t *out, const http_file_head_t *head, u64 now);
void http_cat_page_head(utf8_buf_t *out, u64 now);
// The whole answer: head and body. "Bad Request" and the like by the number; the login's realm with 401.
void http_cat_error(utf8_buf_t *out, const http_texts_t *texts, u32 status);
const char *http_status_reason(u32 status); // 400 401 403 404 405 408 416 421 431 500 503

// --- Pages -------------------------------------------------------------------------------------------------

void http_page_cat_begin(utf8_buf_t *out, const http_page_t *page); // up to and with the head row
// `row_index` counts from 0 on the page.
void http_page_cat_row(utf8_buf_t *out, const http_page_t *page, u32 row_index, const http_row_t *row);
void http_page_cat_end(utf8_buf_t *out, const http_page_t *page); // foot, page links, end

// --- JSON --------------------------------------------------------------------------------------------------

void http_json_cat_begin(utf8_buf_t *out, const http_page_t *page);
// `is_first`: the first one of the answer; the others bring the comma of the one before.
// A folder's form always has the size, and never the path.
void http_json_cat_row(utf8_buf_t *out, const http_page_t *page, bool is_first, const http_row_t *row);
void http_json_cat_end(utf8_buf_t *out, const http_page_t *page, bool is_empty);

} // namespace findwright
