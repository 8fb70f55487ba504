#include "index/db_lifecycle.h"

#include "base/file.h"
#include "base/mem.h"
#include "base/utf8.h"
#include "db/db_image.h"
#include "index/db_create.h"
#include "index/db_lifecycle_internal.h"
#include "os/debug.h"
#include "os/event.h"
#include "track/db_folder_update.h"
#include "track/db_monitor_folder.h"
#include "track/db_recent_change.h"
#include "track/db_run_history.h"

#include <cstring>

namespace findwright {

const db_lifecycle_t *db_lifecycle;

void db_lifecycle_set(const db_lifecycle_t *lifecycle) {
    db_lifecycle = lifecycle;
}

db_t *db_lifecycle_create(const char *file_list_filename) {
    db_t *db = db_create(file_list_filename);
    db->keeper = &db_lifecycle_keeper;
    return db;
}

// --- What follows the sources ------------------------------------------------------------------------------

void _db_follow_start(db_t *db) {
    if (db_read_only || db->file_list_filename)
        return;
    _db_watch_start(db);
    db_folder_update_start(db);
    db_monitor_folders_start(db);
}

void _db_follow_stop(db_t *db) {
    db_monitor_folders_stop(db);
    db_folder_update_stop(db);
    _db_watch_stop(db);
}

// --- Load --------------------------------------------------------------------------------------------------

struct _db_load_t {
    db_t *db;
    utf8_buf_t filename;
    bool compressed;
    db_wanted_t wanted; // the settings' sources, for what the file does not say of them
};

// What a database file does not say of a volume, a list or a folder comes from the settings' source of the
// same name.
static void _db_load_take_monitor(db_index_t *index, const db_wanted_t *wanted) {
    for (const db_source_t *source = wanted->first; source; source = source->next) {
        if (source->index->type != index->type)
            continue;
        if (index->type == DB_INDEX_TYPE_FILE_LIST) {
            auto *to = static_cast<db_index_file_list_t *>(index);
            auto *from = static_cast<const db_index_file_list_t *>(source->index);
            if (std::strcmp(to->filename, from->filename) == 0) {
                to->monitor = from->monitor;
                return;
            }
        } else if (index->type == DB_INDEX_TYPE_FOLDER) {
            auto *to = static_cast<db_index_folder_t *>(index);
            auto *from = static_cast<const db_index_folder_t *>(source->index);
            if (std::strcmp(to->path, from->path) == 0) {
                to->monitor = from->monitor;
                to->buffer_size = from->buffer_size;
                to->rescan_if_full = from->rescan_if_full;
                to->update_type = from->update_type;
                to->update_value = from->update_value;
                return;
            }
        } else {
            auto *to = static_cast<db_index_volume_t *>(index);
            auto *from = static_cast<const db_index_volume_t *>(source->index);
            if (std::strcmp(to->guid, from->guid) == 0 && std::strcmp(to->path, from->path) == 0 &&
                std::strcmp(to->root, from->root) == 0) {
                to->monitor = from->monitor;
                to->load_recent_changes = from->load_recent_changes;
                return;
            }
        }
    }
}

static void _db_load_thread_proc(void *param) {
    _db_load_t *load = static_cast<_db_load_t *>(param);
    db_t *db = load->db;
    if (db_image_load(db, load->filename.data, load->compressed)) {
        db_set_status(db, "%s", db_lifecycle->text_starting);
        for (db_index_t *index = db->index_first; index; index = index->next)
            _db_load_take_monitor(index, &load->wanted);
        db_recent_change_start(db);
        db_run_history_load(db);
        db->local = 1;
    }
    event_post(_db_load_complete_proc, db);
    db_wanted_kill(&load->wanted);
    utf8_buf_kill(&load->filename);
    mem_free(load);
    event_post(_db_ready_proc, db);
}

void db_load(db_t *db) {
    if (db->file_list_filename) {
        db_rebuild_filelist(db);
        return;
    }
    if (db_no_db) {
        debug_printf("no db file\n");
        db_rebuild(db, false);
        return;
    }
    db_wait(db, "db_load");
    debug_printf("db_load\n");
    db_set_status(db, "%s", db_lifecycle->text_loading);
    _db_load_t *load = static_cast<_db_load_t *>(mem_alloc(sizeof *load));
    load->db = db;
    utf8_buf_init(&load->filename);
    db_lifecycle->get_filename(&load->filename);
    load->compressed = db_lifecycle->is_compressed();
    db_wanted_init(&load->wanted);
    db_lifecycle->get_wanted(&load->wanted, false);
    db_start_worker(db, nullptr, DB_WORKER_OTHER, _db_load_thread_proc, load);
}

// --- Save --------------------------------------------------------------------------------------------------

// Writes what is there. False, with the text.
static bool _db_save_file(db_t *db, utf8_buf_t *error) {
    utf8_buf_t filename;
    utf8_buf_init(&filename);
    bool saved = db_lifecycle->get_filename(&filename);
    if (!saved && error)
        utf8_buf_copy_string(error, "cannot save the database: the system names no folder for it");
    if (saved) {
        db_set_status(db, "%s", db_lifecycle->text_saving);
        saved = db_image_save(db, filename.data, db_lifecycle->is_compressed());
        if (!saved && error) {
            char reason[256];
            os_error_text(os_get_last_error(), reason, sizeof reason);
            utf8_buf_t system_name;
            utf8_buf_init(&system_name);
            os_path_to_user(filename.data, static_cast<u32>(filename.length), &system_name);
            utf8_buf_printf(error, "cannot save the database to %s: %s", system_name.data, reason);
            utf8_buf_kill(&system_name);
        }
        db_set_status(db, "");
    }
    utf8_buf_kill(&filename);
    return saved;
}

bool db_save(db_t *db, bool rebuild, utf8_buf_t *error) {
    if (error)
        utf8_buf_empty(error);
    if (db_no_db || db_read_only || db->file_list_filename)
        return true;
    db_wait(db, "db_save");
    if (db->local)
        return _db_save_file(db, error);
    if (rebuild) {
        if (db->busy_count <= 0) // else what is in flight puts content in place
            db_rebuild(db, false);
        db->save_deferred = 1;
    }
    return true;
}

// --- Rebuild -----------------------------------------------------------------------------------------------

void db_rebuild(db_t *db, bool force) {
    if (db->file_list_filename) {
        db_rebuild_filelist(db);
        return;
    }
    db_wait(db, "db_rebuild");
    if (db_read_only)
        return;
    _db_follow_stop(db);
    for (db_index_t *index = db->index_first; index && force; index = index->next)
        index->out_of_date = 1;
    if (force)
        db->corrupt_date = 0; // who asked for it has all read anew
    db_wanted_t wanted;
    db_wanted_init(&wanted);
    db_lifecycle->get_wanted(&wanted, true);
    db_rebuild_start(db, &wanted, nullptr);
    db_wanted_kill(&wanted);
}

void db_rebuild_filelist(db_t *db) {
    db_wanted_t settings, wanted;
    db_wanted_init(&settings);
    db_wanted_init(&wanted);
    db_lifecycle->get_wanted(&settings, false);
    wanted.index_flags = DB_FLAG_SIZE | DB_FLAG_DATE_CREATED | DB_FLAG_DATE_MODIFIED | DB_FLAG_DATE_ACCESSED |
                         DB_FLAG_ATTRIBUTES |
                         (settings.index_flags & (DB_FLAG_FOLDER_SIZE | ~DB_FLAG_COLUMNS));
    db_wanted_add_file_list(&wanted, db->file_list_filename, false);
    db_wait(db, "db_rebuild_filelist");
    for (db_index_t *index = db->index_first; index; index = index->next)
        index->out_of_date = 1;
    db_rebuild_start(db, &wanted, nullptr);
    db_wanted_kill(&wanted);
    db_wanted_kill(&settings);
}

// --- Corruption --------------------------------------------------------------------------------------------

// Writes and logs each pair of neighbours of a name array that is out of order.
static void _db_corrupt_report(file_writer_t *file, const array_t *array, const char *kind) {
    utf8_buf_t path[2], line;
    utf8_buf_init(&path[0]);
    utf8_buf_init(&path[1]);
    utf8_buf_init(&line);
    const db_item_t *last = nullptr;
    for (u32 page = 0; page < array->page_count; page++) {
        const u32 *values = array_page_values(array->pages[page]);
        for (u32 i = 0; i < array->pages[page]->item_count; i++) {
            const db_item_t *item = db_item(values[i]);
            if (last && db_item_compare_name(last, item) >= 0) {
                db_item_get_full_path_name(&path[0], last);
                db_item_get_full_path_name(&path[1], item);
                debug_printf("%s NAME %s >= ", kind, path[0].data);
                debug_printf("%s\n", path[1].data);
                utf8_buf_printf(&line, "%s NAME %s >= %s\r\n", kind, path[0].data, path[1].data);
                if (file)
                    file_writer_write(file, line.data, static_cast<size_t>(line.length));
            }
            last = item;
        }
    }
    for (utf8_buf_t *buf : {&path[0], &path[1], &line})
        utf8_buf_kill(buf);
}

static void _db_corrupt_write(const db_t *db) {
    utf8_buf_t filename;
    utf8_buf_init(&filename);
    file_writer_t *file = nullptr;
    if (db_lifecycle->get_corrupt_filename(&filename)) {
        os_make_folders_for(filename.data);
        file = file_writer_open(filename.data);
    }
    _db_corrupt_report(file, &db->folder_name_array, "FOLDER");
    _db_corrupt_report(file, &db->file_name_array, "FILE");
    if (file)
        file_writer_close(file);
    utf8_buf_kill(&filename);
}

// False, and told to the user the first time, when the last rebuild for this reason was of no use.
static bool _db_corrupt_is_curable(db_t *db, u64 now) {
    static constexpr u64 TICKS_PER_SECOND = 10000000;
    if (!db->corrupt_date || now - db->corrupt_date >= db_corrupt_interval * TICKS_PER_SECOND)
        return true;
    db->corrupt_date = now;
    static const char text[] =
        "the index is damaged again after it was rebuilt, and is left as it is; it is not "
        "saved";
    debug_printf("%s\n", text);
    if (db->local)
        db_lifecycle->report_error(text);
    db->local = 0;
    return false;
}

static void _db_lifecycle_corrupt(db_t *db) {
    u64 now = os_get_file_time();
    if (db_read_only || !_db_corrupt_is_curable(db, now))
        return;
    _db_corrupt_write(db);
    // All that the indexes say of their sources is forgotten with the rebuild: every source is read. One
    // that cannot be read keeps its items, which are laid out and sorted anew like all others.
    db_rebuild(db, true);
    db->corrupt_date = now;
}

// --- What the database asks --------------------------------------------------------------------------------

static bool _db_lifecycle_check(db_t *db) {
    bool monitor_changed;
    if (db->file_list_filename || db->cancel_rebuild || !db_needs_rebuild(db, &monitor_changed))
        return false;
    db_rebuild(db, false);
    return true;
}

static void _db_lifecycle_idle(db_t *db) {
    if (db->check_file_lists_deferred) {
        db->check_file_lists_deferred = 0;
        db_check_file_lists(db);
    }
    if (db->save_deferred && db_is_ready(db) && db->local) {
        db->save_deferred = 0;
        utf8_buf_t error;
        utf8_buf_init(&error);
        if (!db_save(db, false, &error))
            db_lifecycle->report_error(error.data);
        utf8_buf_kill(&error);
    }
}

const db_keeper_t db_lifecycle_keeper = {
    _db_follow_start, _db_lifecycle_check, _db_lifecycle_idle, _db_lifecycle_corrupt, _db_follow_stop,
};

} // namespace findwright
