// Live updates of files.
#include "db/db_file.h"
#include "os/debug.h"
#include "os/os.h"
#include "track/db_live_internal.h"
#include "track/db_run_history.h"

#include <cstring>

namespace findwright {

// --- Find and add ------------------------------------------------------------------------------------------

db_file_t *db_file_find(const db_t *db, const db_index_t *index, const db_folder_t *parent, const char *name,
                        u32 length) {
    db_item_key_t key = {index->ordinal, _db_live_ref(parent), name, length};
    mem_ref_t found = array_find(&db->file_name_array, db_item_compare_key, &key);
    return found ? mem_ptr<db_file_t>(found) : nullptr;
}

// A record that stands in no array yet; 0: the name is left out, or there is such a file already.
static db_file_t *_db_file_make(db_t *db, db_index_t *index, db_folder_t *parent, const char *name,
                                u32 length, db_live_place_t *place) {
    mem_ref_t parent_ref = _db_live_ref(parent);
    if (!db_file_is_included(&db->exclude, parent_ref, name, length))
        return nullptr;
    db_item_key_t key = {index->ordinal, parent_ref, name, length};
    bool found;
    array_find_position(&db->file_name_array, db_item_compare_key, &key, &place->page, &place->position,
                        &found);
    return found ? nullptr : db_file_alloc(db, index, parent_ref, name, length);
}

db_file_t *db_file_add(db_t *db, db_index_t *index, db_folder_t *parent, const char *name, u32 length,
                       const db_file_info_t *info, u64 date) {
    db_live_place_t place;
    db_file_t *file = _db_file_make(db, index, parent, name, length, &place);
    if (!file)
        return nullptr;
    _db_live_set_columns(db, file, false, info);
    _db_live_put_in(db, file, false, &place);
    _db_live_stamp(db, file, false, date);
    db_run_history_item_added(db, file, false);
    _db_live_enter(db, nullptr, file, false, DB_CHANGE_PLACE);
    db_folder_add_size(db, parent, 0, db_file_get_size(db, file));
    return file;
}

// --- Remove ------------------------------------------------------------------------------------------------

void db_file_remove_item(db_t *db, db_file_t *file) {
    _db_live_leave(db, file, false, DB_CHANGE_PLACE);
    _db_live_take_out(db, file, false);
    _db_live_forget(db, file, false);
    db_folder_add_size(db, _db_live_get_parent(file), db_file_get_size(db, file), 0);
    db_file_free(db, file);
}

bool db_file_remove(db_t *db, const db_index_t *index, const db_folder_t *parent, const char *name,
                    u32 length) {
    db_file_t *file = db_file_find(db, index, parent, name, length);
    if (file)
        db_file_remove_item(db, file);
    return file != nullptr;
}

// --- Rename ------------------------------------------------------------------------------------------------

static constexpr u32 RENAME_CHANGES = DB_CHANGE_PLACE | DB_CHANGE_RECENT_CHANGES | DB_CHANGE_RUNS;

db_file_t *db_file_rename(db_t *db, db_file_t *file, db_folder_t *parent, const char *name, u32 length,
                          u64 date) {
    db_index_t *index = db_get_index(file);
    db_file_t *target = db_file_find(db, index, parent, name, length);
    if (target == file)
        return file;
    if (target)
        db_file_remove_item(db, target);
    db_live_place_t place;
    db_file_t *renamed = _db_file_make(db, index, parent, name, length, &place);
    if (!renamed) {
        db_file_remove_item(db, file);
        return nullptr;
    }
    u64 size = db_file_get_size(db, file);
    std::memcpy(db_item_columns(renamed), db_item_columns(file), db->layout.file_data_size);
    _db_live_leave(db, file, false, RENAME_CHANGES);
    db_live_history_t history = _db_live_take_history(db, file);
    _db_live_take_out(db, file, false);
    db_folder_add_size(db, _db_live_get_parent(file), size, 0);
    _db_live_put_in(db, renamed, false, nullptr);
    _db_live_give_history(db, &history, renamed, false, date);
    _db_live_replace(db, file, renamed);
    _db_live_enter(db, file, renamed, false, RENAME_CHANGES);
    db_folder_add_size(db, parent, 0, size);
    db_file_free(db, file);
    return renamed;
}

// --- Change ------------------------------------------------------------------------------------------------

bool _db_live_update_info(db_t *db, db_item_t *item, bool is_folder, const db_file_info_t *info, u64 date) {
    u32 changes = _db_live_get_differences(db, item, is_folder, info);
    if (changes == 0)
        return false;
    // Reading a file is no change of it, and neither are its attributes.
    bool is_change = changes & (DB_FLAG_SIZE | DB_FLAG_DATE_CREATED | DB_FLAG_DATE_MODIFIED) ||
                     !(db->layout.flags & DB_FLAG_DATE_MODIFIED);
    u64 stamp = is_change ? date : DB_LIVE_NO_DATE;
    u32 told = changes | _db_live_stamp_flag(db, stamp);
    _db_live_leave(db, item, is_folder, told);
    for (u32 flag = DB_FLAG_SIZE; flag <= DB_FLAG_ATTRIBUTES; flag <<= 1) {
        if (!(changes & flag))
            continue;
        _db_live_take_out_column(db, item, is_folder, flag);
        _db_live_set_column(db, item, is_folder, flag, _db_live_get_info_value(info, flag));
        _db_live_put_in_column(db, item, is_folder, flag);
    }
    _db_live_stamp(db, item, is_folder, stamp);
    _db_live_enter(db, item, item, is_folder, told);
    db_mark_updated(db, item);
    return true;
}

void db_item_touch(db_t *db, const db_item_t *item, bool is_folder, u64 date) {
    db_mark_updated(db, item);
    if (db->layout.flags & DB_FLAG_DATE_MODIFIED || !_db_live_stamp_flag(db, date))
        return;
    _db_live_leave(db, item, is_folder, DB_CHANGE_RECENT_CHANGES);
    _db_live_stamp(db, item, is_folder, date);
    _db_live_enter(db, item, item, is_folder, DB_CHANGE_RECENT_CHANGES);
}

bool db_file_update_info(db_t *db, db_file_t *file, const db_file_info_t *info, u64 date) {
    u32 start = debug_is_on() ? os_get_tick_count() : 0;
    u64 old_size = db_file_get_size(db, file);
    bool is_changed = _db_live_update_info(db, file, false, info, date);
    if (is_changed && db->layout.flags & DB_FLAG_SIZE)
        db_folder_add_size(db, _db_live_get_parent(file), old_size, info->size);
    if (is_changed && debug_is_on()) {
        u32 length;
        const char *name = db_item_get_name(file, &length);
        debug_printf("updated fd for %t in %f seconds\n", name, length, os_get_tick_count() - start);
    }
    return is_changed;
}

} // namespace findwright
