#include "db/db.h"

#include "base/mem.h"
#include "base/utf8.h"
#include "base/utf8_format.h"
#include "os/debug.h"
#include "os/event.h"

#include <cstdarg>
#include <new>

namespace findwright {

static void _db_status_changed_proc(void *param);
static void _db_corrupt_proc(void *param);

bool db_read_only;
bool db_no_db;
const db_wait_dialog_t *db_wait_dialog;

// Every array of a database, for the operations that treat all alike.
static array_t db_t::*const _db_arrays[] = {
    &db_t::folder_name_array,
    &db_t::file_name_array,
    &db_t::folder_path_array,
    &db_t::file_path_array,
    &db_t::folder_size_array,
    &db_t::file_size_array,
    &db_t::folder_date_created_array,
    &db_t::file_date_created_array,
    &db_t::folder_date_modified_array,
    &db_t::file_date_modified_array,
    &db_t::folder_date_accessed_array,
    &db_t::file_date_accessed_array,
    &db_t::folder_attributes_array,
    &db_t::file_attributes_array,
    &db_t::file_extension_array,
    &db_t::folder_frn_array,
    &db_t::folder_frn128_array,
    &db_t::recent_changes_by_item,
    &db_t::recent_changes_by_date,
    &db_t::run_history_by_item,
    &db_t::run_history_links_by_count,
    &db_t::run_history_links_by_date,
    &db_t::run_history_by_name,
    &db_t::run_history_by_count,
    &db_t::updated_items,
};

static void _db_forget_run_history(db_t *db) {
    if (db->run_history_save)
        event_remove(db->run_history_save, db);
    db->run_history_save_posted = 0;
    db->run_history_loaded = db->run_history_dirty = 0;
}

db_t *db_create(const char *file_list_filename) {
    db_t *db = new (mem_alloc(sizeof(db_t))) db_t();
    db->status_cs = new (mem_alloc(sizeof(std::mutex))) std::mutex;
    for (auto array : _db_arrays)
        array_init(&(db->*array));
    db_mem_init(&db->mem);
    db_exclude_init(&db->exclude);
    if (file_list_filename)
        db->file_list_filename = utf8_alloc_copy(file_list_filename);
    return db;
}

void db_destroy(db_t *db) {
    db_wait(db, "db_destroy");
    if (db->keeper)
        db->keeper->stop(db);
    db_clear_content(db);
    event_remove(_db_ready_proc, db);
    event_remove(_db_load_complete_proc, db);
    event_remove(_db_status_changed_proc, db);
    event_remove(_db_corrupt_proc, db);
    event_remove(db_flush_updated_items, db);
    _db_forget_run_history(db);
    for (char *text : {db->status_text, db->status_detail_text, db->file_list_filename}) {
        if (text)
            mem_free(text);
    }
    db->status_cs->~mutex();
    mem_free(db->status_cs);
    db->~db_t();
    mem_free(db);
}

void db_clear_content(db_t *db) {
    for (auto array : _db_arrays)
        array_clear(&(db->*array));
    db_mem_kill(&db->mem);
    db_mem_init(&db->mem);
    db_index_destroy_all(db);
    db_exclude_kill(&db->exclude);
    db_exclude_init(&db->exclude);
}

void db_clear_sorted(db_t *db) {
    for (auto array : _db_arrays) {
        if (array != &db_t::folder_name_array && array != &db_t::file_name_array)
            array_clear(&(db->*array));
    }
}

void db_add_query(db_t *db, db_query_link_t *query) {
    query->next = nullptr;
    query->prev = db->query_last;
    (db->query_last ? db->query_last->next : db->query_first) = query;
    db->query_last = query;
}

void db_remove_query(db_t *db, db_query_link_t *query) {
    (query->prev ? query->prev->next : db->query_first) = query->next;
    (query->next ? query->next->prev : db->query_last) = query->prev;
}

void db_forget_work(db_t *db) {
    for (db_query_link_t *query = db->query_first; query; query = query->next)
        query->hooks->rebuild_started(query);
    event_remove(_db_ready_proc, db);
    event_remove(_db_load_complete_proc, db);
    event_remove(_db_corrupt_proc, db);
    event_remove(db_flush_updated_items, db);
    array_clear(&db->updated_items);
    db->updated_items_pending = 0;
    db->corrupt_reported = 0;
    db->busy_count = 0;
    db->loaded = db->local = 0;
    db->check_file_lists_deferred = 0;
    _db_forget_run_history(db);
}

u64 db_memory_size(const db_t *db) {
    u64 size = db_mem_used(&db->mem);
    for (auto array : _db_arrays)
        size += array_memory_size(&(db->*array));
    return size;
}

db_array_pair_t db_get_sorted_arrays(db_t *db, u32 fast_flag) {
    if (fast_flag != 0 && !(db->layout.flags & fast_flag))
        return {};
    switch (fast_flag) {
    case 0: return {&db->folder_name_array, &db->file_name_array};
    case DB_FLAG_FAST_PATH: return {&db->folder_path_array, &db->file_path_array};
    case DB_FLAG_FAST_SIZE:
        return {db->layout.flags & DB_FLAG_FOLDER_SIZE ? &db->folder_size_array : &db->folder_name_array,
                &db->file_size_array};
    case DB_FLAG_FAST_EXTENSION: return {&db->folder_name_array, &db->file_extension_array};
    case DB_FLAG_FAST_DATE_CREATED: return {&db->folder_date_created_array, &db->file_date_created_array};
    case DB_FLAG_FAST_DATE_MODIFIED: return {&db->folder_date_modified_array, &db->file_date_modified_array};
    case DB_FLAG_FAST_DATE_ACCESSED: return {&db->folder_date_accessed_array, &db->file_date_accessed_array};
    case DB_FLAG_FAST_ATTRIBUTES: return {&db->folder_attributes_array, &db->file_attributes_array};
    default: return {};
    }
}

// --- The wait ----------------------------------------------------------------------------------------------

static constexpr i32 DB_PRIORITY_NORMAL = 0;

// The dialog for a worker that takes long; 0 for none.
static void *_db_show_wait_dialog(db_t *db) {
    db_query_link_t *query = db->worker_query;
    if (!db_wait_dialog || !query)
        return nullptr;
    i32 x, y;
    if (!query->hooks->get_busy_text(query, db->worker_kind, &x, &y) ||
        os_thread_wait(db->thread, db_wait_dialog->delay) != OS_WAIT_TIMEOUT)
        return nullptr;
    const char *text = query->hooks->get_busy_text(query, db->worker_kind, &x, &y);
    return text ? db_wait_dialog->show(x, y, text, query->hooks->cancel, query) : nullptr;
}

void db_wait(db_t *db, const char *name) {
    if (!db->thread)
        return;
    u32 start = os_get_tick_count();
    // Somebody waits for it now: no worker may crawl along in the background.
    if (os_thread_get_priority(db->thread) < DB_PRIORITY_NORMAL)
        os_thread_set_priority(db->thread, DB_PRIORITY_NORMAL);
    debug_printf("DB_WAIT: %s waiting...\n", name);
    void *dialog = _db_show_wait_dialog(db);
    os_thread_release(db->thread, OS_INFINITE);
    db->thread = nullptr;
    if (dialog && db_wait_dialog->close(dialog))
        db->worker_query->hooks->cancelled(db->worker_query, db->worker_kind);
    for (db_query_link_t *query = db->query_first; query; query = query->next)
        query->hooks->wait_ended(query);
    debug_printf("DB_WAIT: %s waited %f seconds\n", name, os_get_tick_count() - start);
}

bool db_is_ready(const db_t *db) {
    return db->loaded && db->busy_count <= 0;
}

void db_start_worker(db_t *db, db_query_link_t *query, db_worker_kind_t kind, os_thread_proc_t *proc,
                     void *param) {
    db->busy_count++;
    db->worker_query = query;
    db->worker_kind = kind;
    db->thread = os_thread_create(proc, param);
}

void _db_ready_proc(void *param) {
    db_t *db = static_cast<db_t *>(param);
    if (--db->busy_count > 0)
        return; // the last one to finish does the rest
    db_wait(db, "_db_ready_proc");
    for (db_query_link_t *query = db->query_first; query && db_is_ready(db);) {
        db_query_link_t *next = query->next; // the query's owner may destroy it
        query->hooks->ready(query);
        query = next;
    }
    if (db->keeper && db_is_ready(db))
        db->keeper->idle(db);
}

void _db_load_complete_proc(void *param) {
    db_t *db = static_cast<db_t *>(param);
    db_wait(db, "_db_load_complete_proc");
    db->loaded = 1;
    if (db->keeper)
        db->keeper->loaded(db);
    db_set_status(db, "");
    if (db->keeper && db->keeper->check(db))
        return; // the rebuild posts this again
    for (db_query_link_t *query = db->query_first; query;) {
        db_query_link_t *next = query->next;
        query->hooks->load_complete(query);
        query = next;
    }
}

void db_report_corrupt(db_t *db) {
    if (db->corrupt_reported.exchange(1) != 0)
        return;
    debug_printf("CORRUPT\n");
    event_post(_db_corrupt_proc, db);
}

static void _db_corrupt_proc(void *param) {
    db_t *db = static_cast<db_t *>(param);
    db_wait(db, "_db_corrupt_proc");
    db->corrupt_reported = 0;
    if (db->keeper)
        db->keeper->corrupt(db);
}

// --- Status ------------------------------------------------------------------------------------------------

// The list of queries belongs to the main thread, so a worker's new text is told to them from there.
static void _db_status_changed_proc(void *param) {
    for (db_query_link_t *query = static_cast<db_t *>(param)->query_first; query; query = query->next)
        query->hooks->status_changed(query);
}

static void _db_store_status(db_t *db, char **slot, char *text) {
    {
        std::lock_guard lock(*db->status_cs);
        char *old = *slot;
        *slot = text;
        text = old;
    }
    if (text)
        mem_free(text);
}

void db_set_status(db_t *db, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    char *text = utf8_alloc_vformat(format, arguments);
    va_end(arguments);
    if (!*text) {
        mem_free(text);
        text = nullptr;
    }
    _db_store_status(db, &db->status_text, text);
    event_post(_db_status_changed_proc, db);
}

void db_set_status_detail(db_t *db, const char *text) {
    _db_store_status(db, &db->status_detail_text, *text ? utf8_alloc_copy(text) : nullptr);
    event_post(_db_status_changed_proc, db);
}

void db_get_status(db_t *db, utf8_buf_t *out, utf8_buf_t *detail) {
    std::lock_guard lock(*db->status_cs);
    utf8_buf_copy_string(out, db->status_text);
    if (detail)
        utf8_buf_copy_string(detail, db->status_detail_text);
}

} // namespace findwright
