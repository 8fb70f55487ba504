// The run history between the database and its file.
//
// Several programs may count at once. Whoever saves takes the file's lock, reads what the others wrote, adds
// what was counted here since the file was last read (the difference between count and saved_count), writes
// the file anew and takes the sums over.
#include "base/mem.h"
#include "base/utf8.h"
#include "os/debug.h"
#include "os/event.h"
#include "os/os.h"
#include "os/os_lock.h"
#include "track/db_run_history_rows.h"

#include <algorithm>
#include <cstring>

namespace findwright {

static constexpr u64 TICKS_PER_DAY = 864'000'000'000;
static constexpr u32 LOCK_TIMEOUT = 5000; // milliseconds; who has it needs a few
static constexpr double MICROSECONDS = 1e-6;

static char *_filename;

static void _db_run_history_forget_save(db_t *db);

void db_run_history_set_file(const char *filename) {
    if (_filename)
        mem_free(_filename);
    _filename = filename ? utf8_alloc_copy(filename) : nullptr;
}

// What is older is forgotten; 0: nothing is.
static u64 _db_run_history_get_cutoff() {
    if (run_history_keep_forever || run_history_days_to_keep <= 0)
        return 0;
    u64 now = os_get_file_time(), kept = static_cast<u64>(run_history_days_to_keep) * TICKS_PER_DAY;
    return now > kept ? now - kept : 0;
}

static bool _db_run_history_is_kept(const db_t *db) {
    return run_history_enabled != 0 && !db->file_list_filename;
}

// --- Loading -----------------------------------------------------------------------------------------------

// What is about to be put in place.
struct _db_run_load_t {
    u32 start; // tick
    u64 data_size;
    pointer_pool_t entries; // in the order of the paths
    pointer_pool_t links;
};

static void _db_run_load_links(db_t *db, _db_run_load_t *load, db_run_history_data_t *entry) {
    for (bool is_folder : {true, false}) {
        pointer_pool_t items;
        pointer_pool_init(&items);
        _db_run_history_find_items(is_folder ? &db->folder_name_array : &db->file_name_array,
                                   db_run_history_get_path(entry), entry->path_length, &items);
        for (u32 i = 0, count = pointer_pool_count(&items); i < count; i++) {
            const db_run_history_ptr_t *link =
                _db_run_history_new_link(db, entry, pointer_pool_get(&items, i), is_folder);
            pointer_pool_push(&load->links, mem_ref(link));
        }
        pointer_pool_kill(&items);
    }
}

static void _db_run_load_read(db_t *db, _db_run_load_t *load) {
    load->start = os_get_tick_count();
    load->data_size = 0;
    pointer_pool_init(&load->entries);
    pointer_pool_init(&load->links);
    db_run_rows_t rows;
    db_run_rows_init(&rows);
    if (_filename)
        db_run_rows_read(&rows, _filename, _db_run_history_get_cutoff());
    for (const db_run_row_t *row = rows.rows; row != rows.rows + rows.count; row++) {
        db_run_history_data_t *entry =
            _db_run_history_new_entry(db, rows.text.data + row->offset, row->length, row->count, row->date);
        entry->saved_count = row->count;
        load->data_size += sizeof *entry + row->length;
        pointer_pool_push(&load->entries, mem_ref(entry));
        _db_run_load_links(db, load, entry);
    }
    db_run_rows_kill(&rows);
}

static int _db_run_compare_entries_count(u32 a, u32 b) {
    return _db_run_history_compare_entry_count(a, mem_ptr<const db_run_history_data_t>(b));
}
static int _db_run_compare_links_item(u32 a, u32 b) {
    return _db_run_history_compare_item(a, &mem_ptr<const db_run_history_ptr_t>(b)->item);
}
static int _db_run_compare_links_count(u32 a, u32 b) {
    return _db_run_history_compare_count(a, mem_ptr<const db_run_history_ptr_t>(b));
}
static int _db_run_compare_links_date(u32 a, u32 b) {
    return _db_run_history_compare_date(a, mem_ptr<const db_run_history_ptr_t>(b));
}

static void _db_run_fill(array_t *array, u32 *values, u32 count, os_compare_t *compare) {
    if (count == 0) {
        array_clear(array);
        return;
    }
    if (compare)
        os_qsort(values, count, compare);
    array_set_from_memory(array, values, count);
}

// Fills the arrays, in bulk.
static void _db_run_load_install(db_t *db, _db_run_load_t *load) {
    u32 entry_count = pointer_pool_count(&load->entries), link_count = pointer_pool_count(&load->links);
    u32 *values = static_cast<u32 *>(mem_alloc((std::max(entry_count, link_count) + 1) * sizeof *values));
    pointer_pool_copy(&load->entries, values);
    _db_run_fill(&db->run_history_by_name, values, entry_count, nullptr);
    _db_run_fill(&db->run_history_by_count, values, entry_count, _db_run_compare_entries_count);
    pointer_pool_copy(&load->links, values);
    _db_run_fill(&db->run_history_by_item, values, link_count, _db_run_compare_links_item);
    _db_run_fill(&db->run_history_links_by_count, values, link_count, _db_run_compare_links_count);
    _db_run_fill(&db->run_history_links_by_date, values, link_count, _db_run_compare_links_date);
    mem_free(values);
    pointer_pool_kill(&load->entries);
    pointer_pool_kill(&load->links);
    u64 size = load->data_size + link_count * sizeof(db_run_history_ptr_t);
    for (const array_t *array :
         {&db->run_history_by_name, &db->run_history_by_count, &db->run_history_by_item,
          &db->run_history_links_by_count, &db->run_history_links_by_date})
        size += array_memory_size(array);
    debug_printf("loaded run history in %f seconds\n", os_get_tick_count() - load->start);
    debug_printf("run history data count: %d, data: %d bytes\n", entry_count,
                 static_cast<u32>(load->data_size));
    debug_printf("run history ptr count: %d\n", link_count);
    debug_printf("total run history memory usage: %d bytes\n", static_cast<u32>(size));
    db->run_history_loaded = 1;
    db->run_history_dirty = 0;
}

void db_run_history_load(db_t *db) {
    if (!_db_run_history_is_kept(db))
        return;
    db_run_history_clear(db);
    _db_run_load_t load;
    _db_run_load_read(db, &load);
    _db_run_load_install(db, &load);
}

// --- Saving ------------------------------------------------------------------------------------------------

// What a path has when the file says one thing and the program another. What was counted here since the file
// was read is added to what it says now; a count that was lowered here is meant so.
static db_run_t _db_run_merge(const db_run_history_data_t *entry, const db_run_row_t *row) {
    if (!entry)
        return {row->count, row->date};
    u32 in_file = row ? row->count : 0;
    if (entry->count < entry->saved_count)
        return {entry->count, entry->date};
    u32 added = entry->count - entry->saved_count;
    u32 count = in_file + added < in_file ? ~0u : in_file + added;
    if (count == 0)
        return {};
    u64 date = entry->date; // records of the arena do not lie as a u64 would
    return {count, row ? std::max(row->date, date) : date};
}

// The entries as rows, each as it is.
static void _db_run_history_get_rows(const db_t *db, db_run_rows_t *out) {
    u32 page = 0, value;
    for (i32 position = -1; array_next_to(&db->run_history_by_name, &page, &position, &value);) {
        const auto *entry = mem_ptr<const db_run_history_data_t>(value);
        if (entry->count != 0)
            db_run_rows_add(out, db_run_history_get_path(entry), entry->path_length, entry->count,
                            entry->date);
    }
}

static int _db_run_compare_row(const db_run_rows_t *rows, const db_run_row_t *row,
                               const db_run_history_data_t *entry) {
    return _db_run_history_compare_path(rows->text.data + row->offset, row->length,
                                        db_run_history_get_path(entry), entry->path_length);
}

// One walk over what the file says and what is known here, both in the order of the paths.
static void _db_run_history_merge(const db_t *db, const db_run_rows_t *file, db_run_rows_t *out) {
    u64 cutoff = _db_run_history_get_cutoff();
    auto add = [&](const char *path, u32 length, db_run_t run) {
        if (run.count != 0 && run.date >= cutoff)
            db_run_rows_add(out, path, length, run.count, run.date);
    };
    const db_run_row_t *row = file->rows, *end = file->rows + file->count;
    auto add_row = [&] { add(file->text.data + row->offset, row->length, {row->count, row->date}); };
    u32 page = 0, value;
    for (i32 position = -1; array_next_to(&db->run_history_by_name, &page, &position, &value);) {
        const auto *entry = mem_ptr<const db_run_history_data_t>(value);
        int order = 1;
        for (; row != end && (order = _db_run_compare_row(file, row, entry)) < 0; row++)
            add_row();
        bool is_in_file = row != end && order == 0;
        add(db_run_history_get_path(entry), entry->path_length,
            _db_run_merge(entry, is_in_file ? row : nullptr));
        row += is_in_file;
    }
    for (; row != end; row++)
        add_row();
}

// Forgets what is not in the file any more.
static void _db_run_history_drop(db_t *db, const db_run_rows_t *written) {
    db_run_rows_t gone;
    db_run_rows_init(&gone);
    const db_run_row_t *row = written->rows, *end = written->rows + written->count;
    u32 page = 0, value;
    for (i32 position = -1; array_next_to(&db->run_history_by_name, &page, &position, &value);) {
        auto *entry = mem_ptr<db_run_history_data_t>(value);
        int order = 1;
        for (; row != end && (order = _db_run_compare_row(written, row, entry)) < 0; row++) {
        }
        if (row != end && order == 0)
            continue;
        entry->saved_count = 0;
        db_run_rows_add(&gone, db_run_history_get_path(entry), entry->path_length, 0, 0);
    }
    for (row = gone.rows; row != gone.rows + gone.count; row++) {
        const char *path = gone.text.data + row->offset;
        db_run_history_set_path(db, path, row->length, 0, 0);
        db_run_history_data_t *entry = _db_run_history_find_entry(db, path, row->length);
        if (entry && entry->count == 0)
            _db_run_history_remove_entry(db, entry);
    }
    db_run_rows_kill(&gone);
}

// The entries become what was written.
static void _db_run_history_take_over(db_t *db, const db_run_rows_t *written) {
    _db_run_history_drop(db, written);
    for (const db_run_row_t *row = written->rows; row != written->rows + written->count; row++) {
        const char *path = written->text.data + row->offset;
        db_run_history_set_path(db, path, row->length, row->count, row->date);
        db_run_history_data_t *entry = _db_run_history_find_entry(db, path, row->length);
        if (entry)
            entry->saved_count = row->count;
    }
}

static bool _db_run_history_write(db_t *db, bool *is_locked_out) {
    os_make_folders_for(_filename);
    platform_file_t lock = os_lock_file(_filename, LOCK_TIMEOUT);
    *is_locked_out = lock == PLATFORM_FILE_NONE && os_file_exists(_filename);
    if (lock == PLATFORM_FILE_NONE)
        return false;
    db_run_rows_t file, merged;
    db_run_rows_init(&file);
    db_run_rows_init(&merged);
    if (db_run_rows_read(&file, _filename, 0))
        _db_run_history_merge(db, &file, &merged);
    else // who has taken the file away has not taken what is known
        _db_run_history_get_rows(db, &merged);
    bool written = db_run_rows_write(&merged, _filename);
    u32 error = os_get_last_error();
    os_close(lock);
    if (written)
        _db_run_history_take_over(db, &merged);
    db_run_rows_kill(&merged);
    db_run_rows_kill(&file);
    os_set_last_error(error);
    return written;
}

static bool _db_run_history_has_changed(const db_t *db) {
    return _filename && db->run_history_loaded && db->run_history_dirty && !db_read_only;
}

bool db_run_history_save(db_t *db) {
    if (!db->loaded) // nor is anything there that could have changed
        return true;
    db_wait(db, "db_run_history_save");
    _db_run_history_forget_save(db);
    if (!_db_run_history_has_changed(db))
        return true;
    bool is_locked_out;
    bool saved = _db_run_history_write(db, &is_locked_out);
    _db_run_history_forget_save(db);
    db->run_history_dirty = 0;
    if (!saved && is_locked_out)
        _db_run_history_set_dirty(db); // once more later
    return saved;
}

// --- Delayed saving ----------------------------------------------------------------------------------------

static void _db_run_history_save_proc(void *param) {
    auto *db = static_cast<db_t *>(param);
    db->run_history_save_posted = 0;
    if (db_is_ready(db))
        db_run_history_save(db);
    else
        _db_run_history_set_dirty(db);
}

void _db_run_history_set_dirty(db_t *db) {
    db->run_history_dirty = 1;
    if (db->run_history_save_posted || !_db_run_history_has_changed(db))
        return;
    db->run_history_save_posted = 1;
    db->run_history_save = _db_run_history_save_proc;
    event_post_after(DB_RUN_HISTORY_SAVE_DELAY, _db_run_history_save_proc, db);
}

static void _db_run_history_forget_save(db_t *db) {
    if (db->run_history_save)
        event_remove(db->run_history_save, db);
    db->run_history_save_posted = 0;
}

// --- All at once -------------------------------------------------------------------------------------------

static void _db_run_items_of_links(const pointer_pool_t *links, _db_run_items_t *items) {
    pointer_pool_init(&items->pool);
    for (bool is_folder : {true, false}) {
        for (u32 i = 0, count = pointer_pool_count(links); i < count; i++) {
            const auto *link = mem_ptr<const db_run_history_ptr_t>(pointer_pool_get(links, i));
            if ((link->is_folder != 0) == is_folder)
                pointer_pool_push(&items->pool, link->item);
        }
        items->count = pointer_pool_count(&items->pool);
        if (is_folder)
            items->folder_count = items->count;
    }
}

static void _db_run_history_get_linked(const db_t *db, _db_run_items_t *items) {
    pointer_pool_t links;
    pointer_pool_init(&links);
    u32 page = 0, value;
    for (i32 position = -1; array_next_to(&db->run_history_by_item, &page, &position, &value);)
        pointer_pool_push(&links, value);
    _db_run_items_of_links(&links, items);
    pointer_pool_kill(&links);
}

static void _db_run_history_empty(db_t *db) {
    _db_run_items_t items;
    _db_run_history_get_linked(db, &items);
    _db_run_items_leave(db, &items);
    _db_run_history_forget_save(db);
    db_run_history_clear(db);
    _db_run_items_enter(db, &items);
    pointer_pool_kill(&items.pool);
}

static void _db_run_history_fill(db_t *db) {
    _db_run_load_t load;
    _db_run_load_read(db, &load);
    _db_run_items_t items;
    _db_run_items_of_links(&load.links, &items);
    _db_run_items_leave(db, &items);
    _db_run_load_install(db, &load);
    _db_run_items_enter(db, &items);
    pointer_pool_kill(&items.pool);
}

bool db_run_history_changed(db_t *db) {
    if (!db->loaded) // the setting is looked at when content comes
        return false;
    db_wait(db, "db_run_history_changed");
    if (_db_run_history_is_kept(db) == (db->run_history_loaded != 0))
        return false;
    if (db->run_history_loaded) {
        db_run_history_save(db);
        _db_run_history_empty(db);
    } else {
        _db_run_history_fill(db);
    }
    return true;
}

bool db_run_history_delete(db_t *db) {
    db_wait(db, "db_run_history_delete");
    if (db->loaded && db->run_history_loaded) {
        _db_run_history_empty(db);
        db->run_history_loaded = 1;
    }
    if (!_filename || db_read_only || !os_file_exists(_filename))
        return true;
    platform_file_t lock = os_lock_file(_filename, LOCK_TIMEOUT);
    if (lock == PLATFORM_FILE_NONE)
        return false;
    bool deleted = os_delete_file(_filename);
    u32 error = os_get_last_error();
    os_close(lock);
    os_set_last_error(error);
    return deleted;
}

} // namespace findwright
