// The pages: of a search and of a folder.
#include "remote/http_page_internal.h"

#include "base/utf8.h"
#include "os/os.h"

namespace findwright {

// --- Texts -------------------------------------------------------------------------------------------------

static void _http_cat(utf8_buf_t *out, const char *text) {
    utf8_buf_cat_string(out, text);
}
static void _http_cat_text(utf8_buf_t *out, const char *text) {
    http_cat_html(out, text, utf8_length(text));
}
static void _http_cat_buf(utf8_buf_t *out, const utf8_buf_t *text) {
    http_cat_html(out, text->data, static_cast<u32>(text->length));
}
static const char *_http_get_search(const http_page_t *page) {
    return page->query->search ? page->query->search : "";
}

// --- Rows' names and addresses -----------------------------------------------------------------------------

static constexpr char HTTP_ROOT[] = "\\"; // of a POSIX system

static void _http_row_get_full_path(const http_row_t *row, utf8_buf_t *out) {
    utf8_buf_copy_utf8(out, row->path, row->path_length);
    if (row->path_length == 0 && row->name_length == 0)
        utf8_buf_cat_string(out, HTTP_ROOT);
    else if (row->path_length != 0 && !utf8_has_trailing_separator(row->path, row->path_length))
        utf8_buf_cat_byte(out, '\\');
    utf8_buf_cat_utf8(out, row->name, row->name_length);
}

// A name may hold what stands for a backslash of the system's own names, so it is converted if its path is
// the system's.
void _http_row_get_shown_name(const http_row_t *row, utf8_buf_t *out) {
    if (row->path_length == 0 && row->name_length == 0)
        os_path_to_user(HTTP_ROOT, 1, out);
    else if (os_path_is_own(row->path, row->path_length) || os_path_is_own(row->name, row->name_length))
        os_path_to_system(row->name, row->name_length, out);
    else
        utf8_buf_copy_utf8(out, row->name, row->name_length);
}

void _http_row_get_shown_path(const http_row_t *row, utf8_buf_t *out) {
    os_path_to_user(row->path, row->path_length, out);
}

void _http_row_get_url(const http_page_t *page, const http_row_t *row, bool ascii, utf8_buf_t *out) {
    utf8_buf_empty(out);
    if (!row->is_folder && !page->allow_file_download)
        return;
    utf8_buf_t path;
    utf8_buf_init(&path);
    _http_row_get_full_path(row, &path);
    http_cat_item_url(out, path.data, static_cast<u32>(path.length), ascii);
    utf8_buf_kill(&path);
}

void _http_row_get_path_url(const http_row_t *row, bool ascii, utf8_buf_t *out) {
    utf8_buf_empty(out);
    http_cat_item_url(out, row->path, row->path_length, ascii);
}

// --- What addresses and the form carry along ---------------------------------------------------------------

struct _http_option_t {
    const char *name;
    bool http_query_t::*flag;
};
static constexpr _http_option_t http_options[] = {
    {"case", &http_query_t::match_case},
    {"wholeword", &http_query_t::match_whole_word},
    {"path", &http_query_t::match_path},
    {"regex", &http_query_t::regex},
    {"diacritics", &http_query_t::match_diacritics},
};

static bool _http_is_default_sort(const http_query_t *query) {
    return query->sort_key == HTTP_SORT_NAME && query->ascending;
}

static void _http_cat_sort(utf8_buf_t *out, http_sort_t key, bool ascending) {
    utf8_buf_cat_printf(out, "sort=%s&amp;ascending=%d", http_sort_names[key], ascending);
}

// Without them a further page, or another order, would be that of another search.
static void _http_cat_options(utf8_buf_t *out, const http_query_t *query) {
    for (const _http_option_t &option : http_options) {
        if (query->*option.flag)
            utf8_buf_cat_printf(out, "&amp;%s=1", option.name);
    }
}

static void _http_cat_search_address(utf8_buf_t *out, const http_page_t *page) {
    const char *search = _http_get_search(page);
    _http_cat(out, "?search=");
    http_cat_url_search(out, search, utf8_length(search));
}

// --- Head and form -----------------------------------------------------------------------------------------

static void _http_page_cat_head(utf8_buf_t *out, const http_page_t *page) {
    _http_cat(out, "<!DOCTYPE HTML PUBLIC \"-//W3C//DTD HTML 4.01 Transitional//EN\" "
                   "\"http://www.w3.org/TR/html4/loose.dtd\">\r\n"
                   "<head>\r\n<meta http-equiv=\"Content-Type\" content=\"text/html; charset=utf-8\">"
                   "<meta name=\"viewport\" content=\"width=512\"><title>");
    _http_cat_text(out, page->title);
    _http_cat(out, "</title>\r\n"
                   "<link rel=\"stylesheet\" href=\"/main.css\" type=\"text/css\">\r\n"
                   "<link rel=\"shortcut icon\" href=\"/favicon.ico\" type=\"image/x-icon\">\r\n"
                   "<script src=\"/live.js\" defer></script>\r\n"
                   "</head>\r\n<body>\r\n");
}

static void _http_page_cat_hidden(utf8_buf_t *out, const http_page_t *page) {
    const http_query_t *query = page->query;
    if (!_http_is_default_sort(query) && page->is_fast_sort)
        utf8_buf_cat_printf(out,
                            "<input type=\"hidden\" name=\"sort\" value=\"%s\" />"
                            "<input type=\"hidden\" name=\"ascending\" value=\"%d\" />",
                            http_sort_names[query->sort_key], query->ascending);
    for (const _http_option_t &option : http_options) {
        if (query->*option.flag)
            utf8_buf_cat_printf(out, "<input type=\"hidden\" name=\"%s\" value=\"1\" />", option.name);
    }
}

static void _http_page_cat_form(utf8_buf_t *out, const http_page_t *page) {
    _http_cat(out, "<center>\r\n<br>\r\n<br>\r\n"
                   "<a href=\"/\"><img class=\"logo\" src=\"/Findwright.gif\" alt=\"");
    _http_cat_text(out, page->texts->program_name);
    _http_cat(out, "\"></a>\r\n<br>\r\n<br>\r\n"
                   "<form id=\"searchform\" action=\"/\" method=\"get\"><input class=\"searchbox\" "
                   "style=\"width:480px\" id=\"search\" name=\"search\" type=\"text\" title=\"");
    _http_cat_text(out, page->texts->search_label);
    _http_cat(out, "\" value=\"");
    _http_cat_text(out, _http_get_search(page));
    _http_cat(out, "\" >");
    _http_page_cat_hidden(out, page);
    _http_cat(out, "</form>\r\n<table cellspacing=\"0\" width=\"480px\">\r\n");
}

// --- What stands above the rows ----------------------------------------------------------------------------

static void _http_get_count_text(utf8_buf_t *text, const http_page_t *page) {
    const http_texts_t *texts = page->texts;
    utf8_buf_t first, last, total;
    utf8_buf_init(&first);
    utf8_buf_init(&last);
    utf8_buf_init(&total);
    i64 start = page->query->offset;
    utf8_buf_format_number(&first, start + 1);
    utf8_buf_format_number(&last, start + page->shown);
    utf8_buf_format_number(&total, page->total);
    if (page->total == 1)
        utf8_buf_copy_string(text, texts->one_result);
    else if (page->shown == 0 || page->shown == page->total)
        utf8_buf_printf(text, texts->results, total.data);
    else
        utf8_buf_printf(text, texts->results_range, first.data, last.data, total.data);
    utf8_buf_kill(&total);
    utf8_buf_kill(&last);
    utf8_buf_kill(&first);
}

static void _http_page_cat_count(utf8_buf_t *out, const http_page_t *page) {
    utf8_buf_t text;
    utf8_buf_init(&text);
    _http_get_count_text(&text, page);
    _http_cat(out, "<tr><td colspan=\"3\"><p class=\"numresults\">");
    _http_cat_buf(out, &text);
    _http_cat(out, "</p></td></tr>\r\n");
    utf8_buf_kill(&text);
}

static void _http_page_cat_index_of(utf8_buf_t *out, const http_page_t *page) {
    utf8_buf_t path, text;
    utf8_buf_init(&path);
    utf8_buf_init(&text);
    os_path_to_user(page->folder, page->folder_length, &path);
    utf8_buf_printf(&text, page->texts->index_of, path.data);
    _http_cat(out, "<tr><td colspan=\"3\"><p class=\"indexof\">");
    _http_cat_buf(out, &text);
    _http_cat(out, "</p></td></tr>\r\n");
    utf8_buf_kill(&text);
    utf8_buf_kill(&path);
    if (page->folder_length == 0)
        return;
    _http_cat(out, "<tr><td class=\"updir\" colspan=\"3\"><a href=\"/");
    http_cat_url_path(out, page->parent, page->parent_length);
    _http_cat(out, "\"><img class=\"icon\" src=\"/updir.gif\" alt=\"\">");
    _http_cat_text(out, page->texts->up);
    _http_cat(out, "</a></td></tr>\r\n");
}

// --- The head row ------------------------------------------------------------------------------------------

static void _http_page_cat_column(utf8_buf_t *out, const http_page_t *page, http_sort_t key,
                                  const char *class_name, const char *title) {
    const http_query_t *query = page->query;
    bool is_current = query->sort_key == key;
    utf8_buf_cat_printf(out, "<td class=\"%s\"><a href=\"/", class_name);
    if (page->is_folder_page) {
        http_cat_url_path(out, page->folder, page->folder_length);
        _http_cat(out, "?");
    } else {
        _http_cat_search_address(out, page);
        _http_cat(out, "&amp;");
    }
    _http_cat_sort(out, key, !is_current || !query->ascending);
    if (!page->is_folder_page)
        _http_cat_options(out, query);
    _http_cat(out, "\"><span class=\"nobr\"><nobr>");
    _http_cat_text(out, title);
    if (is_current)
        utf8_buf_cat_printf(out, "<img class=\"updown\" src=\"/%s.gif\" alt=\"\">",
                            query->ascending ? "up" : "down");
    _http_cat(out, "</nobr></span></a></td>");
}

static void _http_page_cat_columns(utf8_buf_t *out, const http_page_t *page) {
    const http_texts_t *texts = page->texts;
    _http_cat(out, "<tr>");
    _http_page_cat_column(out, page, HTTP_SORT_NAME, "nameheader", texts->name);
    if (!page->is_folder_page)
        _http_page_cat_column(out, page, HTTP_SORT_PATH, "pathheader", texts->path);
    _http_page_cat_column(out, page, HTTP_SORT_SIZE, "sizeheader", texts->size);
    _http_page_cat_column(out, page, HTTP_SORT_DATE_MODIFIED, "modifiedheader", texts->date_modified);
    utf8_buf_cat_printf(out,
                        "</tr>\r\n<tr><td colspan=\"%d\" class=\"lineshadow\" height=\"1\"></td></tr>\r\n",
                        page->is_folder_page ? 3 : 4);
}

void http_page_cat_begin(utf8_buf_t *out, const http_page_t *page) {
    _http_page_cat_head(out, page);
    _http_page_cat_form(out, page);
    if (page->is_folder_page)
        _http_page_cat_index_of(out, page);
    else
        _http_page_cat_count(out, page);
    _http_page_cat_columns(out, page);
}

// --- Rows --------------------------------------------------------------------------------------------------

static void _http_page_cat_name_cell(utf8_buf_t *out, const http_page_t *page, const http_row_t *row) {
    const char *type = row->is_folder ? "folder" : "file";
    utf8_buf_t text;
    utf8_buf_init(&text);
    _http_row_get_url(page, row, false, &text);
    bool has_link = text.length != 0;
    _http_cat(out, "<td class=\"");
    _http_cat(out, type);
    _http_cat(out, "\"><span class=\"nobr\"><nobr>");
    if (has_link) {
        _http_cat(out, "<a href=\"");
        _http_cat_buf(out, &text);
        _http_cat(out, "\">");
    }
    _http_cat(out, "<img class=\"icon\" src=\"/");
    _http_cat(out, type);
    _http_cat(out, ".gif\" alt=\"\">");
    _http_row_get_shown_name(row, &text);
    _http_cat_buf(out, &text);
    _http_cat(out, has_link ? "</a></nobr></span></td>" : "</nobr></span></td>");
    utf8_buf_kill(&text);
}

// A row at the top has no folder, and no link that shows nothing.
static void _http_page_cat_path_cell(utf8_buf_t *out, const http_row_t *row) {
    utf8_buf_t text;
    utf8_buf_init(&text);
    if (row->path_length != 0)
        _http_row_get_path_url(row, false, &text);
    bool has_link = text.length != 0;
    _http_cat(out, "<td class=\"pathdata\">");
    if (has_link) {
        _http_cat(out, "<a href=\"");
        _http_cat_buf(out, &text);
        _http_cat(out, "\">");
    }
    _http_cat(out, "<span class=\"nobr\"><nobr>");
    _http_row_get_shown_path(row, &text);
    _http_cat_buf(out, &text);
    _http_cat(out, has_link ? "</span></nobr></a></td>" : "</span></nobr></td>");
    utf8_buf_kill(&text);
}

static void _http_page_cat_value_cell(utf8_buf_t *out, const char *class_name, const utf8_buf_t *value) {
    _http_cat(out, "<td class=\"");
    _http_cat(out, class_name);
    _http_cat(out, "\"><span class=\"nobr\"><nobr>");
    _http_cat_buf(out, value);
    _http_cat(out, "</span></nobr></td>");
}

void http_page_cat_row(utf8_buf_t *out, const http_page_t *page, u32 row_index, const http_row_t *row) {
    _http_cat(out, row_index % 2 == 0 ? "<tr class=\"trdata1\">" : "<tr class=\"trdata2\">");
    _http_page_cat_name_cell(out, page, row);
    if (!page->is_folder_page)
        _http_page_cat_path_cell(out, row);
    utf8_buf_t value;
    utf8_buf_init(&value);
    utf8_buf_format_size(&value, UTF8_SIZE_AUTO, row->is_folder ? VALUE_UNKNOWN : row->size);
    _http_page_cat_value_cell(out, "sizedata", &value);
    utf8_buf_format_date(&value, row->date_modified);
    _http_page_cat_value_cell(out, "modifieddata", &value);
    utf8_buf_kill(&value);
    _http_cat(out, "</tr>\r\n");
}

// --- Links to other pages ----------------------------------------------------------------------------------

static constexpr u32 HTTP_PAGES_ALL = 10;   // up to so many have all their links
static constexpr u32 HTTP_PAGES_BESIDE = 2; // else so many on each side of the current one

static void _http_page_cat_address(utf8_buf_t *out, const http_page_t *page, u64 offset) {
    const http_query_t *query = page->query;
    _http_cat_search_address(out, page);
    if (!_http_is_default_sort(query)) {
        _http_cat(out, "&amp;");
        _http_cat_sort(out, query->sort_key, query->ascending);
    }
    _http_cat_options(out, query);
    if (offset != 0)
        utf8_buf_cat_printf(out, "&amp;offset=%I64u", offset);
    if (query->count != page->items_per_page)
        utf8_buf_cat_printf(out, "&amp;count=%u", query->count);
}

static void _http_page_cat_step(utf8_buf_t *out, const http_page_t *page, u64 offset, const char *word) {
    _http_cat(out, "<span class=\"prevnext\"><a href=\"/");
    _http_page_cat_address(out, page, offset);
    _http_cat(out, "\">");
    _http_cat_text(out, word);
    _http_cat(out, "</a></span>");
}

// Behind the last result no page is the current one, and what is listed is what stands beside the last one.
static void _http_page_cat_numbers(utf8_buf_t *out, const http_page_t *page, u64 pages) {
    u64 count = page->query->count;
    u64 current = page->query->offset / count;
    u64 middle = current < pages ? current : pages - 1;
    bool is_gap = false;
    for (u64 i = 0; i < pages; i++) {
        bool is_listed = pages <= HTTP_PAGES_ALL || i == 0 || i == pages - 1 ||
                         (i + HTTP_PAGES_BESIDE >= middle && i <= middle + HTTP_PAGES_BESIDE);
        if (!is_listed) {
            // On to the next one that is: there may be millions between them.
            i = (i < middle ? middle - HTTP_PAGES_BESIDE : pages - 1) - 1;
            is_gap = true;
            continue;
        }
        if (is_gap)
            _http_cat(out, "<span class=\"nav\">...</span>");
        is_gap = false;
        if (i == current) {
            utf8_buf_cat_printf(out, "<span class=\"nav\"><b>%I64u</b></span>", i + 1);
            continue;
        }
        _http_cat(out, "<span class=\"nav\"><a class=num href=\"/");
        _http_page_cat_address(out, page, i * count);
        utf8_buf_cat_printf(out, "\">%I64u</a></span>", i + 1);
    }
}

static void _http_page_cat_pages(utf8_buf_t *out, const http_page_t *page) {
    u64 count = page->query->count, offset = page->query->offset, total = page->total;
    if (count == 0 || total <= count)
        return;
    u64 pages = (total + count - 1) / count;
    u64 last = (pages - 1) * count;
    _http_cat(out, "<center><br><br>");
    if (offset != 0) {
        u64 previous = offset >= total ? last : offset > count ? offset - count : 0;
        _http_page_cat_step(out, page, previous, page->texts->previous);
    }
    _http_page_cat_numbers(out, page, pages);
    if (offset + count < total)
        _http_page_cat_step(out, page, offset + count, page->texts->next);
    _http_cat(out, "</center>");
}

void http_page_cat_end(utf8_buf_t *out, const http_page_t *page) {
    _http_cat(out, "</table>\r\n</center>\r\n");
    if (!page->is_folder_page)
        _http_page_cat_pages(out, page);
    _http_cat(out, "</body>\r\n");
}

} // namespace findwright
