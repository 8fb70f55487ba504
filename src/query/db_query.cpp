#include "query/db_query.h"

#include "base/mem.h"
#include "base/utf8.h"
#include "db/db_file.h"
#include "os/debug.h"
#include "os/event.h"
#include "query/db_ghost.h"
#include "query/db_itemref.h"
#include "query/db_live_result.h"
#include "query/db_query_internal.h"

#include <cstring>
#include <new>

namespace findwright {

static constexpr u32 SUM_AHEAD = 16; // records that are asked of the memory before they are needed

static void _db_query_results_changed_proc(void *param);
static void _db_query_status_changed_proc(void *param);
static void _db_query_ready_notification_proc(void *param);
static void _db_query_rebuilt_notification_proc(void *param);
static void _db_query_unblocked_notification_proc(void *param);
static void _db_query_fileinfo_cache_changed_proc(void *param);

// Everything that may stand in the event queue for a query.
static event_proc_t *const _db_query_events[] = {
    _db_query_results_changed_proc,
    _db_query_status_changed_proc,
    _db_query_ready_notification_proc,
    _db_query_rebuilt_notification_proc,
    _db_query_unblocked_notification_proc,
    _db_query_fileinfo_cache_changed_proc,
    _db_result_search_proc,
};

static db_query_t *_db_query(void *link) {
    return static_cast<db_query_t *>(static_cast<db_query_link_t *>(link));
}

// --- Notifications -----------------------------------------------------------------------------------------

static void _db_query_notify(db_query_t *query, u32 code) {
    if (query->callback)
        query->callback(query->user_data, code);
}

static void _db_query_drop_abandoned(db_query_t *query);

static void _db_query_results_changed_proc(void *param) {
    db_query_t *query = _db_query(param);
    if (query->db->busy_count > 0) {
        query->notify_again = 1; // the worker still owns the results
        return;
    }
    _db_query_drop_abandoned(query);
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

// Of a busy database the results may belong to a worker: _db_query_ready has it run later.
static void _db_query_fileinfo_cache_changed_proc(void *param) {
    db_query_t *query = _db_query(param);
    if (query->db->busy_count <= 0 && db_extended_info_update(query->extended_info))
        _db_query_notify(query, DB_QUERY_INFO_CHANGED);
}

static void *_db_query_link(db_query_t *query) {
    return static_cast<db_query_link_t *>(query);
}

void _db_query_post_results_changed(db_query_t *query) {
    query->result_cursor = {};
    db_itemref_forget_indexes(query);
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

// What is selected must have been kept, or be of no use any more.
static void _db_query_clear_results(db_query_t *query) {
    array_clear(&query->history_results);
    array_clear(&query->folder_results);
    array_clear(&query->file_results);
    bit_array_reset(&query->selection, 0);
    query->history_kind = DB_HISTORY_NONE;
    query->folders_first = 1;
    query->sorted = 0;
    query->result_cursor = {};
    query->total_result_size = query->total_selection_size = 0;
    query->total_result_count = query->total_selection_count = 0;
}

// Everything that names a record.
static void _db_query_forget_items(db_query_t *query) {
    _db_result_forget_search(query);
    _db_query_clear_results(query);
    _db_selection_clear(query);
    db_itemref_clear_all(query);
    array_clear(&query->ghost_folders);
    array_clear(&query->ghost_files);
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
    event_post(_db_query_fileinfo_cache_changed_proc, link); // what it left while the database was busy
    _db_result_ready(query);
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
    _db_query_forget_items(query);
    query->is_abandoned = 0;
    db_extended_info_clear(query->extended_info);
    _db_query_drop_results_changed(query);
    event_post(_db_query_rebuilt_notification_proc, link);
}

static const char *_db_query_get_busy_text(db_query_link_t *link, db_worker_kind_t kind, i32 *x, i32 *y) {
    db_query_t *query = _db_query(link);
    *x = query->dialog_x;
    *y = query->dialog_y;
    const std::atomic<u32> *cancel = kind == DB_WORKER_SEARCH ? &query->cancel_search
                                     : kind == DB_WORKER_SORT ? &query->cancel_sort
                                                              : &query->cancel_fileinfo;
    if (!query->is_ui || *cancel)
        return nullptr;
    return kind == DB_WORKER_SEARCH ? "Cancel current query?"
           : kind == DB_WORKER_SORT ? "Cancel current sort?"
                                    : "Cancel current read extended information?";
}

static void _db_query_cancel(void *param) {
    db_query_t *query = _db_query(param);
    query->cancel_search = query->cancel_sort = query->cancel_fileinfo = 1;
}

// A worker has ended early. A search leaves nothing behind; results that a sort left in some order are
// brought into that of the names, which needs no time.
static void _db_query_cancelled(db_query_link_t *link, db_worker_kind_t kind) {
    db_query_t *query = _db_query(link);
    if (kind == DB_WORKER_SEARCH) {
        _db_result_forget_search(query);
        db_query_free_terms(query);
        _db_query_clear_results(query);
        _db_selection_clear(query);
    } else if (kind == DB_WORKER_SORT) {
        query->requested_sort = DB_SORT_NAME_ASCENDING;
        db_sort_results(query, DB_SORT_NAME_ASCENDING);
    }
}

// Of an idle database.
static void _db_query_drop_abandoned(db_query_t *query) {
    if (query->is_abandoned)
        _db_query_cancelled(query, DB_WORKER_SEARCH);
    query->is_abandoned = 0;
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
    _db_query_get_busy_text, _db_query_cancel,         _db_query_cancelled,       _db_query_wait_ended,
    _db_query_ready,         _db_query_status_changed, _db_query_rebuild_started, _db_query_load_complete,
};

// --- Creation and end --------------------------------------------------------------------------------------

db_query_t *db_query_create(db_t *db, bool is_ui, db_query_callback_t *callback, void *user_data) {
    db_query_t *query = new (mem_alloc(sizeof(db_query_t))) db_query_t();
    query->db = db;
    query->is_ui = is_ui;
    query->callback = callback;
    query->user_data = user_data;
    query->hooks = &_db_query_hooks;
    query->live = &db_live_result_hooks;
    query->live_result = db_live_result_create();
    query->folders_first = 1;
    query->extended_info =
        db_extended_info_create(db, _db_query_fileinfo_cache_changed_proc, _db_query_link(query));
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
    _db_query_cancel(_db_query_link(query));
    if (db->loaded)
        db_wait(db, "db_destroy_query");
    db_query_free_terms(query);
    _db_query_forget_items(query);
    db_extended_info_destroy(query->extended_info);
    for (event_proc_t *proc : _db_query_events)
        event_remove(proc, _db_query_link(query));
    for (array_t *array : {&query->history_results, &query->folder_results, &query->file_results,
                           &query->ghost_folders, &query->ghost_files})
        array_kill(array);
    bit_array_kill(&query->selection);
    db_live_result_free(query);
    if (query->status_text)
        mem_free(query->status_text);
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

// The sizes of all files found. Folders are not counted.
static void _db_query_sum_results(db_query_t *query) {
    u32 start = os_get_tick_count();
    const array_t *files = &query->file_results;
    u64 total = 0;
    for (u32 page = 0; page < files->page_count && !query->cancel_search; page++) {
        const u32 *values = array_page_values(files->pages[page]);
        for (u32 i = 0, count = files->pages[page]->item_count; i < count; i++) {
            if (i + SUM_AHEAD < count)
                __builtin_prefetch(db_item(values[i + SUM_AHEAD]));
            u64 size = db_file_get_size(query->db, db_item(values[i]));
            total += size == VALUE_UNKNOWN ? 0 : size;
        }
    }
    query->total_result_size = total;
    query->total_result_count = files->count;
    debug_printf("total size %I64u, calculated in %f seconds\n", total, os_get_tick_count() - start);
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
    debug_printf("SET SORT %d\n", query->sort);
    if (!query->cancel_search)
        db_search_folders(query, arrays.folders);
    if (!query->cancel_search)
        db_search_files(query, arrays.files);
    bool has_ghosts = !query->cancel_search && _db_ghost_merge(query);
    if (!query->cancel_search && query->calculate_total_size)
        _db_query_sum_results(query);
    if (!query->cancel_search) {
        query->sorted = !has_ghosts; // they stand behind the others, in no order
        db_sort_results(query, query->requested_sort);
    }
    bit_array_t *selection = &query->selection;
    if (selection->size !=
        _db_query_count_results(query)) // cancelled: what was kept waits for the next search
        bit_array_reset(selection, _db_query_count_results(query));
    db_search_free_folders(query);
    _db_result_end_search(query);
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
    _db_query_drop_abandoned(query);
    if (params->clear_selection) {
        _db_selection_clear(query);
        db_itemref_clear_all(query);
    } else {
        _db_result_settle(query);
        _db_selection_keep(query);
    }
    db_query_free_terms(query);
    _db_query_clear_results(query);
    query->requested_sort = params->sort < DB_SORT_COUNT ? params->sort : 0u;
    query->dialog_x = params->dialog_x;
    query->dialog_y = params->dialog_y;
    query->calculate_total_size = params->calculate_total_size && db->layout.flags & DB_FLAG_SIZE;
    query->cancel_search = query->cancel_sort = query->cancel_fileinfo = 0;
    _db_query_compile(query, params);
    _db_result_begin_search(query, params);
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
    sort = sort < DB_SORT_COUNT ? sort : 0u;
    if (!query->db->loaded) {
        query->requested_sort = query->deferred.sort = sort;
        return;
    }
    query->cancel_sort = 1;
    db_wait(query->db, "db_sort");
    _db_query_drop_abandoned(query);
    _db_result_settle(query);
    query->cancel_sort = 0;
    query->requested_sort = sort; // a worker reads it
    query->dialog_x = dialog_x;
    query->dialog_y = dialog_y;
    db_start_worker(query->db, query, DB_WORKER_SORT, _db_sort_thread_proc, query);
}

// Orders by what is read of the file system are made anew.
static bool _db_query_reads_sort(const db_query_t *query) {
    u32 flags = query->db->layout.flags;
    switch (query->requested_sort & ~DB_SORT_DESCENDING) {
    case DB_SORT_SIZE_ASCENDING: return !(flags & DB_FLAG_SIZE);
    case DB_SORT_TYPE_ASCENDING: return true;
    case DB_SORT_DATE_CREATED_ASCENDING: return !(flags & DB_FLAG_DATE_CREATED);
    case DB_SORT_DATE_MODIFIED_ASCENDING: return !(flags & DB_FLAG_DATE_MODIFIED);
    case DB_SORT_DATE_ACCESSED_ASCENDING: return !(flags & DB_FLAG_DATE_ACCESSED);
    case DB_SORT_ATTRIBUTES_ASCENDING: return !(flags & DB_FLAG_ATTRIBUTES);
    default: return false;
    }
}

void db_refresh(db_query_t *query) {
    if (!_db_query_begin_read(query, "db_refresh"))
        return;
    db_extended_info_clear(query->extended_info);
    if (_db_query_reads_sort(query))
        query->sorted = 0;
    db_sort(query, query->requested_sort, query->dialog_x, query->dialog_y);
}

u32 db_get_sort(const db_query_t *query) {
    return query->requested_sort;
}

bool db_cancel_query(db_query_t *query) {
    db_t *db = query->db;
    if (!db->loaded || !db->thread || !db->worker_query || os_thread_wait(db->thread, 0) != OS_WAIT_TIMEOUT)
        return false;
    _db_query_cancel(_db_query_link(query));
    bool own = db->worker_query == query;
    db_worker_kind_t kind = db->worker_kind;
    db_wait(db, "db_cancel_query");
    if (own)
        _db_query_cancelled(query, kind);
    _db_query_drop_results_changed(query);
    _db_query_post_results_changed(query);
    return true;
}

void db_abandon_query(db_query_t *query) {
    db_t *db = query->db;
    query->is_abandoned = 1;
    if (db->busy_count <= 0)
        _db_query_drop_abandoned(query);
    else if (db->worker_query == query)
        _db_query_cancel(_db_query_link(query));
}

bool db_query_is_busy(const db_query_t *query) {
    return query->db->busy_count > 0;
}

bool db_query_is_loaded(const db_query_t *query) {
    return query->db->loaded != 0;
}

// --- Status ------------------------------------------------------------------------------------------------

void _db_query_set_status(db_query_t *query, const char *text) {
    char *old;
    {
        std::lock_guard lock(*query->db->status_cs);
        old = query->status_text;
        query->status_text = text ? utf8_alloc_copy(text) : nullptr;
    }
    if (old)
        mem_free(old);
    event_post(_db_query_status_changed_proc, _db_query_link(query));
}

void db_query_get_status_text(db_query_t *query, utf8_buf_t *out) {
    {
        std::lock_guard lock(*query->db->status_cs);
        utf8_buf_copy_string(out, query->status_text);
        if (query->status_text)
            return;
    }
    db_get_status(query->db, out, nullptr);
}

} // namespace findwright
