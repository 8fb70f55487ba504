#include "remote/http_server_internal.h"

#include "base/mem.h"
#include "base/utf8.h"
#include "db/db_file.h"
#include "db/db_folder.h"
#include "os/debug.h"
#include "os/event.h"
#include "os/os.h"

#include <algorithm>
#include <cstring>

namespace findwright {

static constexpr u32 STATUS_NOT_FOUND = 404;
static constexpr u32 STATUS_UNAVAILABLE = 503;
static constexpr u32 SLICE_LOOK = 8; // rows between two looks at the clock
static constexpr u64 TURN = 5;       // milliseconds of answers before the main loop has its turn

// --- The queue ---------------------------------------------------------------------------------------------

// Has a client wait behind another one; 0: in front of all.
static void _http_server_link(http_server_client_t *client, http_server_client_t *prev) {
    http_server_t *server = _http_server;
    http_server_client_t *next = prev ? prev->next_pending : server->pending_first;
    client->state = HTTP_SERVER_QUEUED;
    client->prev_pending = prev;
    client->next_pending = next;
    (prev ? prev->next_pending : server->pending_first) = client;
    (next ? next->prev_pending : server->pending_last) = client;
}

void _http_server_enqueue(http_server_client_t *client) {
    _http_server_link(client, _http_server->pending_last);
    if (_http_server->pending_first == client)
        event_post(_http_server_run, nullptr);
}

void _http_server_dequeue(http_server_client_t *client) {
    http_server_t *server = _http_server;
    (client->prev_pending ? client->prev_pending->next_pending : server->pending_first) =
        client->next_pending;
    (client->next_pending ? client->next_pending->prev_pending : server->pending_last) = client->prev_pending;
    client->next_pending = client->prev_pending = nullptr;
}

// --- The query ---------------------------------------------------------------------------------------------

static void _http_server_write_slice(http_server_client_t *client);

static void _http_server_results_changed() {
    http_server_t *server = _http_server;
    http_server_client_t *client = server->current_client;
    debug_printf("results changed\n");
    server->current_client = nullptr;
    if (client)
        _http_server_write_slice(client);
    _http_server_run(nullptr);
}

// What was found is gone; who waits for a search has to wait for the new index.
static void _http_server_rebuilt() {
    http_server_t *server = _http_server;
    server->has_results = false;
    if (server->current_client)
        _http_server_link(server->current_client, nullptr);
    server->current_client = nullptr;
}

static void _http_server_query_proc(void *, u32 code) {
    switch (code) {
    case DB_QUERY_RESULTS_CHANGED: _http_server_results_changed(); break;
    case DB_QUERY_REBUILT: _http_server_rebuilt(); break;
    case DB_QUERY_READY: _http_server_run(nullptr); break;
    default: break;
    }
}

void _http_server_drop_query() {
    http_server_t *server = _http_server;
    if (server->query)
        db_destroy_query(server->query);
    if (server->search)
        mem_free(server->search);
    server->query = nullptr;
    server->search = nullptr;
    server->has_results = false;
    server->current_client = nullptr;
}

// The next search begins once the index is idle.
void _http_server_cancel_current() {
    http_server_t *server = _http_server;
    server->current_client = nullptr;
    server->has_results = false;
    db_abandon_query(server->query);
    event_post(_http_server_run, nullptr);
}

static bool _http_server_is_same_search(const http_query_t *query) {
    const http_server_t *server = _http_server;
    return server->has_results && std::strcmp(server->search, query->search) == 0 &&
           server->match_case == query->match_case && server->match_whole_word == query->match_whole_word &&
           server->match_path == query->match_path && server->match_diacritics == query->match_diacritics &&
           server->regex == query->regex;
}

static void _http_server_keep_search(const http_query_t *query) {
    http_server_t *server = _http_server;
    char *search = utf8_alloc_copy(query->search);
    if (server->search)
        mem_free(server->search);
    server->search = search;
    server->match_case = query->match_case;
    server->match_whole_word = query->match_whole_word;
    server->match_path = query->match_path;
    server->match_diacritics = query->match_diacritics;
    server->regex = query->regex;
    server->has_results = true;
}

// True when the results are those that the client asks for; else it waits for them.
static bool _http_server_search(http_server_client_t *client) {
    http_server_t *server = _http_server;
    const http_query_t *query = &client->query;
    server->searched = _http_server_now();
    if (!db_query_is_loaded(server->query))
        return true; // there is nothing to be found, and nothing on its way
    if (_http_server_is_same_search(query)) {
        if (server->sort == client->internal_sort) {
            debug_printf("same query\n");
            return true;
        }
        debug_printf("same query, different sort\n");
        server->sort = client->internal_sort;
        db_sort(server->query, server->sort);
    } else {
        _http_server_keep_search(query);
        server->sort = client->internal_sort;
        db_query_params_t params = {};
        params.match_case = query->match_case;
        params.match_whole_word = query->match_whole_word;
        params.match_path = query->match_path;
        params.match_diacritics = query->match_diacritics;
        params.match_regex = query->regex;
        params.clear_selection = true;
        params.search = server->search;
        params.filter_search = "";
        params.sort = server->sort;
        db_query_search(server->query, &params);
    }
    client->state = HTTP_SERVER_RUNNING;
    server->current_client = client;
    return false;
}

// --- Pages -------------------------------------------------------------------------------------------------

static u32 _http_server_get_sort(const http_query_t *query) {
    static constexpr u32 SORTS[] = {DB_SORT_NAME_ASCENDING, DB_SORT_PATH_ASCENDING, DB_SORT_SIZE_ASCENDING,
                                    DB_SORT_DATE_MODIFIED_ASCENDING};
    const u32 sort = SORTS[query->sort_key] + (query->ascending ? 0u : DB_SORT_DESCENDING);
    debug_printf("sort type %d\n", static_cast<i32>(sort));
    return sort;
}

static void _http_server_begin_page(http_server_client_t *client) {
    http_server_t *server = _http_server;
    http_page_t *page = &client->page;
    utf8_expand_t variables = server->params.title_variables;
    variables.text = client->query.search ? client->query.search : "";
    if (!utf8_buf_expand(&client->title, server->params.title_format, &variables))
        utf8_buf_copy_string(&client->title, server->params.title_variables.title);
    page->texts = &server->params.texts;
    page->query = &client->query;
    page->title = client->title.data;
    page->folder = client->path.data;
    page->folder_length = static_cast<u32>(client->path.length);
    page->parent = client->parent.data;
    page->parent_length = static_cast<u32>(client->parent.length);
    page->is_folder_page = client->job != HTTP_SERVER_JOB_SEARCH;
    page->allow_file_download = server->params.allow_file_download;
    page->is_fast_sort = db_is_fast_sort(server->query, client->internal_sort);
    page->items_per_page = server->params.items_per_page;
    client->has_begun = true;
    http_cat_page_head(&client->send.text, os_get_file_time());
    if (client->query.json)
        http_json_cat_begin(&client->send.text, page);
    else
        http_page_cat_begin(&client->send.text, page);
}

static void _http_server_cat_row(http_server_client_t *client, const http_row_t *row) {
    utf8_buf_t *out = &client->send.text;
    if (client->query.json)
        http_json_cat_row(out, &client->page, client->written == 0, row);
    else
        http_page_cat_row(out, &client->page, client->written, row);
    client->written++;
    server_send_flush(&client->send, false);
}

static void _http_server_end_page(http_server_client_t *client) {
    if (client->query.json)
        http_json_cat_end(&client->send.text, &client->page, client->written == 0);
    else
        http_page_cat_end(&client->send.text, &client->page);
    if (client->find)
        db_find_close(client->find);
    client->find = nullptr;
    _http_server_end_answer(client);
}

// --- Rows --------------------------------------------------------------------------------------------------

// How many rows an answer has of all that there are.
static u32 _http_server_count_rows(const http_query_t *query, u32 total) {
    return query->offset < total ? std::min(query->count, total - query->offset) : 0;
}

static void _http_server_cat_result(http_server_client_t *client, u32 index, utf8_buf_t *path) {
    http_server_t *server = _http_server;
    const db_t *db = server->db;
    const i32 i = static_cast<i32>(index);
    db_result_t result;
    if (!db_get_result(server->query, i, &result))
        return;
    const db_item_t *item = result.item;
    http_row_t row = {};
    row.is_folder = result.is_folder;
    row.size = result.is_folder ? db_folder_get_size(db, item) : db_file_get_size(db, item);
    row.date_modified =
        result.is_folder ? db_folder_get_date_modified(db, item) : db_file_get_date_modified(db, item);
    row.name = db_item_get_name(item, &row.name_length);
    db_item_get_path(path, item);
    if (path->length == 0 && !db_item_is_top(item))
        utf8_buf_cat_byte(path, '\\'); // in a top without a name
    row.path = path->data;
    row.path_length = static_cast<u32>(path->length);
    if (client->query.live && client->query.json) {
        const bool has_path = client->query.path_column;
        _db_get_highlighted_result(server->query, i, &server->name_marks,
                                   has_path ? &server->path_marks : nullptr,
                                   has_path ? DB_HIGHLIGHT_PATH_AND_NAME : DB_HIGHLIGHT_NAME);
        row.name_marks = &server->name_marks;
        row.path_marks = has_path ? &server->path_marks : nullptr;
    }
    _http_server_cat_row(client, &row);
}

static void _http_server_cat_entry(http_server_client_t *client, const db_find_entry_t *entry) {
    http_row_t row = {};
    row.is_folder = entry->is_folder;
    row.name = db_item_get_name(entry->item, &row.name_length);
    row.path = client->path.data;
    row.path_length = static_cast<u32>(client->path.length);
    row.size = entry->size;
    row.date_modified = entry->date_modified;
    _http_server_cat_row(client, &row);
}

// How many rows there are at the most, from the one behind those that are written. What the index has lost
// meanwhile is missing at the end.
static u32 _http_server_get_end(const http_server_client_t *client, u32 total) {
    const u32 offset = client->job == HTTP_SERVER_JOB_SEARCH ? client->query.offset : 0;
    return std::min(client->rows, offset < total ? total - offset : 0);
}

static u64 _http_server_get_unsent(const http_server_client_t *client) {
    return client->send.queued + static_cast<u32>(client->send.text.length);
}

// What bounds a slice. Its rows may cost much: what they are marked for may be a list of thousands of words.
struct _http_server_slice_t {
    u32 first;
    u64 unsent, start;
};

static bool _http_server_is_slice_full(const _http_server_slice_t *slice, const http_server_client_t *client,
                                       u32 row) {
    const u32 count = row - slice->first;
    return count == HTTP_SERVER_SLICE || _http_server_get_unsent(client) >= slice->unsent ||
           (count != 0 && count % SLICE_LOOK == 0 &&
            _http_server_now() - slice->start >= http_server_limits.slice_time);
}

// The rows of a client's turn. The query holds its search, or the folder is collected.
static void _http_server_write_rows(http_server_client_t *client, u32 total) {
    const u32 end = _http_server_get_end(client, total), first = client->written;
    const _http_server_slice_t slice = {first, _http_server_get_unsent(client) + _http_server_get_share(),
                                        _http_server_now()};
    utf8_buf_t path;
    utf8_buf_init(&path);
    db_find_entry_t entry;
    for (u32 i = first; i < end && !_http_server_is_slice_full(&slice, client, i); i++) {
        if (!client->find)
            _http_server_cat_result(client, client->query.offset + i, &path);
        else if (db_find_get_entry(client->find, i, &entry))
            _http_server_cat_entry(client, &entry);
    }
    utf8_buf_kill(&path);
    if (client->written < end && client->written != first) {
        server_send_flush(&client->send, true);
        client->state = HTTP_SERVER_ROWS;
    } else {
        _http_server_end_page(client);
    }
    _http_server_go_on(client);
}

static void _http_server_write_slice(http_server_client_t *client) {
    const u32 total = db_get_result_count(_http_server->query);
    if (!client->has_begun) {
        client->rows = _http_server_count_rows(&client->query, total);
        client->page.total = total;
        client->page.shown = client->rows;
        _http_server_begin_page(client);
    }
    _http_server_write_rows(client, total);
}

// --- Paths -------------------------------------------------------------------------------------------------

// The item of an address. The separators in front of a path are not in its address.
static bool _http_server_find(const utf8_buf_t *path, db_result_t *out) {
    utf8_buf_t full;
    utf8_buf_init(&full);
    bool is_found = false;
    for (const char *front : {"", "\\", "\\\\"}) {
        utf8_buf_printf(&full, "%s%s", front, path->data);
        utf8_buf_canonicalize(&full);
        is_found = db_find_item(_http_server->db, full.data, static_cast<u32>(full.length), out);
        if (is_found)
            break;
    }
    utf8_buf_kill(&full);
    return is_found;
}

static void _http_server_answer_folder(http_server_client_t *client) {
    debug_printf("send path %s\n", client->path.data);
    client->find =
        db_find_first_file(_http_server->db, client->path.data, static_cast<u32>(client->path.length),
                           DB_FLAG_SIZE | DB_FLAG_DATE_MODIFIED);
    if (!client->find) {
        _http_server_answer_error(client, STATUS_NOT_FOUND);
        return;
    }
    if (client->internal_sort != DB_SORT_NAME_ASCENDING)
        db_find_sort(client->find, client->internal_sort);
    client->rows = client->page.total = client->page.shown = db_find_get_count(client->find);
    _http_server_begin_page(client);
    _http_server_write_rows(client, client->rows);
}

static void _http_server_answer_item(http_server_client_t *client, const db_result_t *result) {
    db_item_get_full_path_name(&client->path, result->item);
    const u32 length = static_cast<u32>(client->path.length);
    if (result->is_folder) {
        db_item_get_path(&client->parent, result->item);
        _http_server_answer_folder(client);
        return;
    }
    u32 top_length;
    db_item_get_name(db_get_root(result->item), &top_length);
    if (_http_server->params.allow_file_download && os_path_is_own(client->path.data, length))
        _http_server_open(client, HTTP_SERVER_FILE_INDEX, client->path.data, top_length);
    else
        _http_server_answer_error(client, STATUS_NOT_FOUND);
}

static void _http_server_answer_path(http_server_client_t *client) {
    db_result_t result;
    if (client->path.length == 0)
        _http_server_answer_folder(client);
    else if (_http_server_find(&client->path, &result))
        _http_server_answer_item(client, &result);
    else
        _http_server_answer_error(client, STATUS_NOT_FOUND);
}

// What a link has led to: the very file, and not one whose name differs in case, must be in the index.
static void _http_server_answer_real_file(http_server_client_t *client) {
    const u32 length = static_cast<u32>(client->path.length);
    db_result_t result;
    bool has_it = false;
    if (db_find_item(_http_server->db, client->path.data, length, &result) && !result.is_folder) {
        utf8_buf_t path;
        utf8_buf_init(&path);
        db_item_get_full_path_name(&path, result.item);
        has_it = _http_server_is_same_path(&path, &client->path);
        utf8_buf_kill(&path);
    }
    if (has_it)
        _http_server_open(client, HTTP_SERVER_FILE_REAL, client->path.data, 0);
    else
        _http_server_answer_error(client, STATUS_NOT_FOUND);
}

// --- Turns -------------------------------------------------------------------------------------------------

static void _http_server_go_on_with_folder(http_server_client_t *client) {
    if (db_find_is_stale(client->find))
        db_find_restart(client->find);
    _http_server_write_rows(client, db_find_get_count(client->find));
}

static void _http_server_serve(http_server_client_t *client) {
    if (!client->has_begun && _http_server->unsent >= HTTP_SERVER_UNSENT_LIMIT) {
        _http_server_answer_error(client, STATUS_UNAVAILABLE);
        return;
    }
    if (!client->has_begun)
        client->internal_sort = _http_server_get_sort(&client->query);
    switch (client->job) {
    case HTTP_SERVER_JOB_SEARCH:
        if (_http_server_search(client))
            _http_server_write_slice(client);
        break;
    case HTTP_SERVER_JOB_PATH:
        if (client->find)
            _http_server_go_on_with_folder(client);
        else
            _http_server_answer_path(client);
        break;
    case HTTP_SERVER_JOB_REAL_FILE: _http_server_answer_real_file(client); break;
    }
}

void _http_server_run(void *) {
    http_server_t *server = _http_server;
    if (!server->pending_first)
        return;
    if (!server->query) {
        server->query = db_query_create(server->db, false, _http_server_query_proc, nullptr);
        server->searched = _http_server_now();
    }
    const u64 start = _http_server_now();
    while (server->pending_first && !server->current_client && !db_query_is_busy(server->query)) {
        if (_http_server_now() - start >= TURN) {
            event_remove(_http_server_run, nullptr);
            event_post_after(1, _http_server_run, nullptr);
            return;
        }
        http_server_client_t *client = server->pending_first;
        _http_server_dequeue(client);
        _http_server_serve(client);
    }
}

} // namespace findwright
