#include "query/db_query.h"

#include "base/mem.h"
#include "base/utf8.h"
#include "os/debug.h"
#include "os/event.h"
#include "query/db_query_internal.h"
#include "query/db_result_internal.h"

#include <cstring>
#include <new>

namespace findwright {

static void _db_query_results_changed_proc(void *param);
static void _db_query_status_changed_proc(void *param);
static void _db_query_ready_notification_proc(void *param);
static void _db_query_rebuilt_notification_proc(void *param);
static void _db_query_unblocked_notification_proc(void *param);

// Everything that may stand in the event queue for a query.
static event_proc_t *const _db_query_events[] = {
    _db_query_results_changed_proc,        _db_query_status_changed_proc,
    _db_query_ready_notification_proc,     _db_query_rebuilt_notification_proc,
    _db_query_unblocked_notification_proc,
};

static db_query_t *_db_query(void *link) {
    return static_cast<db_query_t *>(static_cast<db_query_link_t *>(link));
}

// --- Notifications -----------------------------------------------------------------------------------------

static void _db_query_notify(db_query_t *query, u32 code) {
    if (query->callback)
        query->callback(query->user_data, code);
}

static void _db_query_results_changed_proc(void *param) {
    db_query_t *query = _db_query(param);
    if (query->db->busy_count > 0) {
        query->notify_again = 1; // the worker still owns the results
        return;
    }
    query->notify_again = query->notify_pending = 0;
    _db_query_notify(query, DB_QUERY_RESULTS_CHANGED);
}

static void _db_query_status_changed_proc(void *param) {
    _db_query_notify(_db_query(param), DB_QUERY_STATUS_CHANGED);
}
static void _db_query_ready_notification_proc(void *param) {
    _db_query_notify(_db_query(param), DB_QUERY_READY);
}
static void _db_query_rebuilt_notification_proc(void *param) {
    _db_query_notify(_db_query(param), DB_QUERY_REBUILT);
}
static void _db_query_unblocked_notification_proc(void *param) {
    _db_query_notify(_db_query(param), DB_QUERY_UNBLOCKED);
}

static void *_db_query_link(db_query_t *query) {
    return static_cast<db_query_link_t *>(query);
}

void _db_query_post_results_changed(db_query_t *query) {
    query->result_cursor = {};
    if (query->notify_pending)
        return;
    query->notify_pending = 1;
    event_post(_db_query_results_changed_proc, _db_query_link(query));
}

// Takes back a results notification, queued or put off.
static void _db_query_drop_results_changed(db_query_t *query) {
    event_remove(_db_query_results_changed_proc, _db_query_link(query));
    query->notify_pending = query->notify_again = 0;
}

static void _db_query_clear_results(db_query_t *query) {
    array_clear(&query->folder_results);
    array_clear(&query->file_results);
    query->result_cursor = {};
}

static void _db_query_free_deferred(db_query_t *query) {
    if (!query->deferred_search)
        return;
    mem_free(query->deferred_search);
    mem_free(query->deferred_filter_search);
    query->deferred_search = query->deferred_filter_search = nullptr;
}

// --- What the database tells -------------------------------------------------------------------------------

static void _db_query_wait_ended(db_query_link_t *link) {
    event_post(_db_query_unblocked_notification_proc, link);
}

static void _db_query_ready(db_query_link_t *link) {
    db_query_t *query = _db_query(link);
    if (query->notify_again) {
        query->notify_again = 0;
        query->notify_pending = 1;
        event_post(_db_query_results_changed_proc, link);
    }
    event_post(_db_query_ready_notification_proc, link);
}

static void _db_query_status_changed(db_query_link_t *link) {
    event_remove(_db_query_status_changed_proc, link); // one is enough, with the latest text
    event_post(_db_query_status_changed_proc, link);
}

static void _db_query_rebuild_started(db_query_link_t *link) {
    db_query_t *query = _db_query(link);
    db_query_free_terms(query);
    _db_query_clear_results(query);
    db_extended_info_clear(query->extended_info);
    _db_query_drop_results_changed(query);
    query->sorted = 0;
    event_post(_db_query_rebuilt_notification_proc, link);
}

static void _db_query_load_complete(db_query_link_t *link) {
    db_query_t *query = _db_query(link);
    if (!query->deferred_search)
        return;
    db_query_params_t params = query->deferred;
    char *search = query->deferred_search, *filter_search = query->deferred_filter_search;
    query->deferred_search = query->deferred_filter_search = nullptr;
    params.search = search;
    params.filter_search = filter_search;
    db_query_search(query, &params);
    mem_free(search);
    mem_free(filter_search);
}

static const db_query_hooks_t _db_query_hooks = {
    _db_query_wait_ended,      _db_query_ready,         _db_query_status_changed,
    _db_query_rebuild_started, _db_query_load_complete,
};

// --- Creation and end --------------------------------------------------------------------------------------

db_query_t *db_query_create(db_t *db, bool is_ui, db_query_callback_t *callback, void *user_data) {
    db_query_t *query = new (mem_alloc(sizeof(db_query_t))) db_query_t();
    query->db = db;
    query->is_ui = is_ui;
    query->callback = callback;
    query->user_data = user_data;
    query->hooks = &_db_query_hooks;
    query->folders_first = 1;
    query->extended_info = db_extended_info_create(db);
    db_add_query(db, query);
    utf8_buf_t status;
    utf8_buf_init(&status);
    db_get_status(db, &status, nullptr);
    if (status.length != 0)
        event_post(_db_query_status_changed_proc, _db_query_link(query));
    utf8_buf_kill(&status);
    return query;
}

void db_destroy_query(db_query_t *query) {
    db_t *db = query->db;
    query->cancel_search = query->cancel_sort = 1;
    if (db->loaded)
        db_wait(db, "db_destroy_query");
    db_query_free_terms(query);
    for (event_proc_t *proc : _db_query_events)
        event_remove(proc, _db_query_link(query));
    array_kill(&query->folder_results);
    array_kill(&query->file_results);
    db_extended_info_destroy(query->extended_info);
    _db_query_free_deferred(query);
    db_remove_query(db, query);
    if (db->worker_query == query)
        db->worker_query = nullptr;
    query->~db_query_t();
    mem_free(query);
}

// --- Search ------------------------------------------------------------------------------------------------

// The filter is an AND over the whole search: every way to a result leads on to its first term.
static db_term_t *_db_query_append_filter(db_term_t *terms, db_term_t *filter) {
    if (!filter)
        return terms;
    if (!terms)
        return filter;
    for (db_term_t *term = terms;; term = term->link) {
        if (!term->next)
            term->next = filter;
        if (!term->link) {
            term->link = filter;
            return terms;
        }
    }
}

static void _db_query_compile(db_query_t *query, const db_query_params_t *params) {
    u32 options =
        (params->match_case ? DB_MATCH_CASE : 0u) | (params->match_whole_word ? DB_MATCH_WHOLE_WORD : 0u) |
        (params->match_path ? DB_MATCH_PATH : 0u) | (params->match_diacritics ? DB_MATCH_DIACRITICS : 0u) |
        (params->match_regex ? DB_MATCH_REGEX : 0u);
    db_term_t *terms;
    if (params->hide_empty_search_results && !*params->search) {
        terms = _db_query_term_parse_all(TERM_NOT, "", false); // the negation of what every item has
    } else {
        terms = _db_query_term_parse_all(db_term_default_flags(options), params->search, false);
        if (params->filter_search && *params->filter_search) {
            u32 flags = db_term_default_flags(params->filter_flags);
            terms =
                _db_query_append_filter(terms, _db_query_term_parse_all(flags, params->filter_search, true));
        }
    }
    for (db_term_t *term = terms; term; term = term->link)
        db_term_compile(query, term);
    for (db_term_t *term = terms; term; term = term->link) {
        debug_printf("term %p, flags: %04x, next: %p, notnext: %p\nfolderop: %d, fileop: %d, term: %s\n",
                     term, term->flags, term->next, term->notnext, term->folder_term->op, term->file_term->op,
                     term->text);
        term->folder_term->next = term->next ? term->next->folder_term : nullptr;
        term->folder_term->notnext = term->notnext ? term->notnext->folder_term : nullptr;
        term->file_term->next = term->next ? term->next->file_term : nullptr;
        term->file_term->notnext = term->notnext ? term->notnext->file_term : nullptr;
    }
    db_query_bind_terms(query);
    db_term_free_all(terms);
}

// A search of everything is a copy of the arrays.
static bool _db_query_finds_all(const db_query_t *query) {
    const db_exec_term_t *folder = query->folder_terms, *file = query->file_terms;
    return folder && file && !folder->link && folder->op == DB_OP_TRUE && file->op == DB_OP_TRUE;
}

// The name arrays are scanned whatever the order: their records lie in memory one behind the other, and they
// have words. What is found is sorted afterwards.
static void _db_search_thread_proc(void *param) {
    db_query_t *query = static_cast<db_query_t *>(param);
    db_t *db = query->db;
    u32 fast_flag = _db_query_finds_all(query) ? db_sort_get_fast_flag(query->requested_sort) : 0;
    db_array_pair_t arrays = db_get_sorted_arrays(db, fast_flag);
    query->sort =
        fast_flag != 0 && arrays.files ? query->requested_sort & ~DB_SORT_DESCENDING : DB_SORT_NAME_ASCENDING;
    if (!arrays.files)
        arrays = db_get_sorted_arrays(db, 0);
    query->folders_first = 1;
    debug_printf("SET SORT %d\n", query->sort);
    if (!query->cancel_search)
        db_search_folders(query, arrays.folders);
    if (!query->cancel_search)
        db_search_files(query, arrays.files);
    if (!query->cancel_search) {
        query->sorted = 1;
        db_sort_results(query, query->requested_sort);
    }
    _db_query_post_results_changed(query);
    event_post(_db_ready_proc, db);
}

static void _db_query_defer(db_query_t *query, const db_query_params_t *params) {
    _db_query_free_deferred(query);
    query->deferred = *params;
    query->deferred_search = utf8_alloc_copy(params->search);
    query->deferred_filter_search = utf8_alloc_copy(params->filter_search ? params->filter_search : "");
    _db_query_post_results_changed(query);
}

void db_query_search(db_query_t *query, const db_query_params_t *params) {
    db_t *db = query->db;
    if (!db->loaded) {
        _db_query_defer(query, params);
        return;
    }
    query->cancel_search = query->cancel_sort = 1;
    debug_printf("search '%s' filter '%s' sort %d\n", params->search,
                 params->filter_search ? params->filter_search : "", params->sort);
    db_wait(db, "db_query_search");
    _db_query_drop_results_changed(query);
    db_query_free_terms(query);
    _db_query_clear_results(query);
    query->requested_sort = params->sort;
    query->sorted = 0;
    query->cancel_search = query->cancel_sort = 0;
    _db_query_compile(query, params);
    db_start_worker(db, query, DB_WORKER_SEARCH, _db_search_thread_proc, query);
}

// --- Sort and cancel ---------------------------------------------------------------------------------------

static void _db_sort_thread_proc(void *param) {
    db_query_t *query = static_cast<db_query_t *>(param);
    db_sort_results(query, query->requested_sort);
    _db_query_post_results_changed(query);
    event_post(_db_ready_proc, query->db);
}

void db_sort(db_query_t *query, u32 sort, i32 dialog_x, i32 dialog_y) {
    if (!query->db->loaded) {
        query->requested_sort = query->deferred.sort = sort;
        return;
    }
    query->cancel_sort = 1;
    db_wait(query->db, "db_sort");
    query->cancel_sort = 0;
    query->requested_sort = sort; // a worker reads it
    query->dialog_x = dialog_x;
    query->dialog_y = dialog_y;
    db_start_worker(query->db, query, DB_WORKER_SORT, _db_sort_thread_proc, query);
}

u32 db_get_sort(const db_query_t *query) {
    return query->requested_sort;
}

bool db_cancel_query(db_query_t *query) {
    db_t *db = query->db;
    if (!db->loaded || !db->thread || !db->worker_query || os_thread_wait(db->thread, 0) != OS_WAIT_TIMEOUT)
        return false;
    query->cancel_search = query->cancel_sort = 1;
    bool own = db->worker_query == query;
    db_worker_kind_t kind = db->worker_kind;
    db_wait(db, "db_cancel_query");
    if (own && kind == DB_WORKER_SEARCH) {
        db_query_free_terms(query);
        _db_query_clear_results(query);
    } else if (own && kind == DB_WORKER_SORT) {
        query->requested_sort = DB_SORT_NAME_ASCENDING;
        db_sort_results(query, DB_SORT_NAME_ASCENDING);
    }
    _db_query_drop_results_changed(query);
    _db_query_post_results_changed(query);
    return true;
}

// --- Results -----------------------------------------------------------------------------------------------

bool _db_query_begin_read(db_query_t *query, const char *name) {
    if (!query->db->loaded)
        return false;
    db_wait(query->db, name);
    return true;
}

u32 db_get_result_count(db_query_t *query) {
    if (!_db_query_begin_read(query, "db_get_result_count"))
        return 0;
    return query->folder_results.count + query->file_results.count;
}

u32 db_get_folder_result_count(db_query_t *query) {
    return _db_query_begin_read(query, "db_get_folder_result_count") ? query->folder_results.count : 0;
}

u32 db_get_file_result_count(db_query_t *query) {
    return _db_query_begin_read(query, "db_get_file_result_count") ? query->file_results.count : 0;
}

// The array that holds a result, and the result's place in it; 0 for a bad index.
static const array_t *_db_query_locate(const db_query_t *query, i32 index, u32 *place) {
    const array_t *first = query->folders_first ? &query->folder_results : &query->file_results;
    const array_t *second = query->folders_first ? &query->file_results : &query->folder_results;
    if (index < 0)
        return nullptr;
    *place = static_cast<u32>(index);
    if (*place < first->count)
        return first;
    *place -= first->count;
    return *place < second->count ? second : nullptr;
}

const db_item_t *db_get_result_item(db_query_t *query, i32 index) {
    u32 place;
    if (!_db_query_begin_read(query, "db_get_result_item"))
        return nullptr;
    const array_t *array = _db_query_locate(query, index, &place);
    if (!array)
        return nullptr;
    auto &cursor = query->result_cursor;
    if (cursor.array == array && cursor.index + 1 == place) { // rows are mostly read in order
        cursor.value = array_next(array, &cursor.page, &cursor.position);
        cursor.index = place;
    } else if (cursor.array != array || cursor.index != place) {
        cursor.value = array_get(array, place, &cursor.page, &cursor.position);
        cursor.index = place;
        cursor.array = array;
    }
    return db_item(cursor.value);
}

void db_get_result_full_path_name(db_query_t *query, i32 index, utf8_buf_t *out) {
    const db_item_t *item = db_get_result_item(query, index);
    if (item)
        db_item_get_full_path_name(out, item);
    else
        utf8_buf_empty(out);
}

void db_get_result_path(db_query_t *query, i32 index, utf8_buf_t *out) {
    const db_item_t *item = db_get_result_item(query, index);
    if (item)
        db_item_get_path(out, item);
    else
        utf8_buf_empty(out);
}

void db_get_result_name(db_query_t *query, i32 index, utf8_buf_t *out) {
    const db_item_t *item = db_get_result_item(query, index);
    u32 length = 0;
    const char *name = item ? db_item_get_name(item, &length) : "";
    utf8_buf_copy_utf8(out, name, length);
}

bool db_is_folder_result(db_query_t *query, i32 index) {
    u32 place;
    if (!_db_query_begin_read(query, "db_is_folder_result"))
        return true;
    const array_t *array = _db_query_locate(query, index, &place);
    return array != &query->file_results;
}

bool db_is_root_result(db_query_t *query, i32 index) {
    const db_item_t *item = db_get_result_item(query, index);
    return item && db_is_root(item);
}

} // namespace findwright
