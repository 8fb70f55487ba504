// The comparison of what a database holds with what the settings want, and the check of file lists.
#include "index/db_lifecycle_internal.h"
#include "index/ntfs_partition.h"
#include "os/debug.h"
#include "os/event.h"
#include "os/os_folder.h"
#include "track/db_recent_change.h"
#include "track/db_run_history.h"
#include "track/db_schedule.h"

#include <cstring>

namespace findwright {

static void _db_set_out_of_date(db_t *db) {
    for (db_index_t *index = db->index_first; index; index = index->next)
        index->out_of_date = 1;
}

// --- Columns and exclusions --------------------------------------------------------------------------------

static bool _db_is_layout_changed(db_t *db, const db_wanted_t *wanted) {
    u32 flags = db_layout_normalize_flags(wanted->index_flags);
    if (flags == db->layout.flags)
        return false;
    debug_printf("rebuild: flags changed\n");
    if (flags & DB_FLAG_COLUMNS & ~db->layout.flags) // values that nobody knows yet
        _db_set_out_of_date(db);
    return true;
}

static bool _db_is_exclude_changed(db_t *db, const db_wanted_t *wanted) {
    bool narrower = db_exclude_is_narrower(&db->exclude, &wanted->exclude);
    if (!narrower && !db_exclude_differs(&db->exclude, &wanted->exclude))
        return false;
    debug_printf("rebuild: excludes changed\n");
    if (narrower) // what was left out must be read
        _db_set_out_of_date(db);
    return true;
}

// --- Sources -----------------------------------------------------------------------------------------------

// Each returns the reason why the index is not that of the source, or 0, and takes over what differs without
// harm.
static const char *_db_compare_volume(db_index_volume_t *index, const db_index_volume_t *wanted,
                                      bool *monitor_changed) {
    if (std::strcmp(index->guid, wanted->guid) != 0)
        return "rebuild: guid changed\n";
    if (std::strcmp(index->path, wanted->path) != 0)
        return "rebuild: path changed\n";
    if (std::strcmp(index->root, wanted->root) != 0)
        return "rebuild: root changed\n";
    if (std::strcmp(index->include_only, wanted->include_only) != 0)
        return "rebuild: include only changed\n";
    *monitor_changed |= index->monitor != wanted->monitor;
    index->monitor = wanted->monitor;
    index->load_recent_changes = wanted->load_recent_changes;
    return nullptr;
}

static const char *_db_compare_file_list(db_index_file_list_t *index, const db_index_file_list_t *wanted,
                                         bool *monitor_changed) {
    if (std::strcmp(index->filename, wanted->filename) != 0)
        return "rebuild: filelist filename changed\n";
    *monitor_changed |= index->monitor != wanted->monitor;
    index->monitor = wanted->monitor;
    return nullptr;
}

static const char *_db_compare_folder(db_index_folder_t *index, const db_index_folder_t *wanted,
                                      bool *monitor_changed) {
    if (std::strcmp(index->path, wanted->path) != 0)
        return "rebuild: folder filename changed\n";
    *monitor_changed |=
        index->monitor != wanted->monitor || (index->monitor && index->buffer_size != wanted->buffer_size);
    index->monitor = wanted->monitor;
    index->buffer_size = wanted->buffer_size;
    index->rescan_if_full = wanted->rescan_if_full;
    if (index->update_type != wanted->update_type || index->update_value != wanted->update_value) {
        index->update_type = wanted->update_type;
        index->update_value = wanted->update_value;
        db_schedule_t schedule = {index->update_type, index->update_value};
        index->next_update = db_schedule_next(&schedule);
    }
    return nullptr;
}

static const char *_db_compare_source(db_index_t *index, const db_index_t *wanted, bool *monitor_changed) {
    if (!index)
        return wanted->type == DB_INDEX_TYPE_REFS ? "rebuild: new refs volume\n"
                                                  : "rebuild: new ntfs volume\n";
    if (index->type != wanted->type)
        return "rebuild: index type changed\n";
    switch (index->type) {
    case DB_INDEX_TYPE_FILE_LIST:
        return _db_compare_file_list(static_cast<db_index_file_list_t *>(index),
                                     static_cast<const db_index_file_list_t *>(wanted), monitor_changed);
    case DB_INDEX_TYPE_FOLDER:
        return _db_compare_folder(static_cast<db_index_folder_t *>(index),
                                  static_cast<const db_index_folder_t *>(wanted), monitor_changed);
    default:
        return _db_compare_volume(static_cast<db_index_volume_t *>(index),
                                  static_cast<const db_index_volume_t *>(wanted), monitor_changed);
    }
}

static bool _db_are_sources_changed(db_t *db, const db_wanted_t *wanted, bool *monitor_changed) {
    db_index_t *index = db->index_first;
    for (const db_source_t *source = wanted->first; source; source = source->next) {
        if (const char *reason = _db_compare_source(index, source->index, monitor_changed)) {
            debug_printf("%s", reason);
            return true;
        }
        index = index->next;
    }
    if (index)
        debug_printf("rebuild: index removed\n");
    return index != nullptr;
}

// --- Sources that are back ---------------------------------------------------------------------------------

// Whether a rebuild could read the source. The test is as strict as the reader's own: a source that passed
// here and failed there would be rebuilt without end.
static bool _db_can_read(const db_index_t *index) {
    switch (index->type) {
    case DB_INDEX_TYPE_FILE_LIST: {
        const char *name = static_cast<const db_index_file_list_t *>(index)->filename;
        platform_file_t file = os_open_read(name, true);
        if (file == PLATFORM_FILE_NONE)
            return false;
        os_close(file);
        return true;
    }
    case DB_INDEX_TYPE_FOLDER: {
        os_folder_entry_t entry;
        return os_folder_get_entry(static_cast<const db_index_folder_t *>(index)->path, &entry) &&
               entry.is_folder;
    }
    case DB_INDEX_TYPE_NTFS: {
        const char *guid = static_cast<const db_index_volume_t *>(index)->guid;
        ntfs_info_t info;
        os_volume_t *volume = ntfs_open_volume(guid, nullptr);
        bool can_read = volume && ntfs_get_info(volume, &info, nullptr);
        if (volume)
            os_volume_close(volume);
        debug_printf("is out of date volume available %s: %d\n", guid, can_read);
        return can_read;
    }
    default: return false;
    }
}

static bool _db_is_source_back(const db_t *db) {
    for (const db_index_t *index = db->index_first; index; index = index->next) {
        if (index->out_of_date && _db_can_read(index))
            return true;
    }
    return false;
}

bool db_needs_rebuild(db_t *db, bool *monitor_changed) {
    *monitor_changed = false;
    if (db_read_only)
        return false;
    db_wanted_t wanted;
    db_wanted_init(&wanted);
    db_lifecycle->get_wanted(&wanted, false);
    bool needed = _db_is_layout_changed(db, &wanted) || _db_is_exclude_changed(db, &wanted) ||
                  _db_are_sources_changed(db, &wanted, monitor_changed) || _db_is_source_back(db);
    db_wanted_kill(&wanted);
    return needed;
}

void db_apply_settings(db_t *db) {
    db_wait(db, "db_apply_settings");
    bool monitor_changed;
    if (!db->loaded || db->file_list_filename) // the comparison comes with the content
        return;
    _db_recent_change_enabled_changed(db);
    db_run_history_changed(db);
    if (db_needs_rebuild(db, &monitor_changed)) {
        db_rebuild(db, false);
        return;
    }
    if (monitor_changed)
        _db_follow_stop(db);
    _db_follow_start(db); // schedules may be other ones
}

// --- File lists --------------------------------------------------------------------------------------------

static void _db_out_of_date_proc(void *param) {
    db_t *db = static_cast<db_t *>(param);
    db_wait(db, "_db_out_of_date_proc");
    bool monitor_changed;
    if (db_needs_rebuild(db, &monitor_changed))
        db_rebuild(db, false);
}

bool _db_filelists_is_change(db_t *db) {
    debug_printf("check for file list changes\n");
    u32 start = os_get_tick_count();
    bool changed = false;
    if (db_is_ready(db) && !db_read_only) {
        db_wait(db, "_db_filelists_is_change");
        for (db_index_t *index = db->index_first; index; index = index->next) {
            if (index->type != DB_INDEX_TYPE_FILE_LIST || index->out_of_date)
                continue;
            const db_index_file_list_t *list = static_cast<const db_index_file_list_t *>(index);
            os_file_info_t info;
            if (!os_get_file_info(list->filename, &info) || info.date_modified == VALUE_UNKNOWN ||
                info.date_modified == list->date_modified)
                continue;
            debug_printf("filelist out of date\n");
            index->out_of_date = 1;
            changed = true;
        }
    }
    debug_printf("checked for file list changes in %f seconds\n", os_get_tick_count() - start);
    return changed;
}

void db_check_file_lists(db_t *db) {
    if (!db->loaded || db->file_list_filename)
        return; // what is being read now is read as it is now
    if (db->busy_count > 0) {
        db->check_file_lists_deferred = 1;
        return;
    }
    if (_db_filelists_is_change(db))
        event_post(_db_out_of_date_proc, db);
}

void _db_check_forget(db_t *db) {
    event_remove(_db_out_of_date_proc, db);
}

} // namespace findwright
