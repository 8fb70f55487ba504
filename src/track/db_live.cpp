#include "track/db_live.h"

#include "db/db_file.h"
#include "os/debug.h"
#include "track/db_live_internal.h"
#include "track/db_recent_change.h"
#include "track/db_run_history.h"

namespace findwright {

static constexpr u32 ATTRIBUTE_FOLDER = 0x10;

void _db_live_corrupt(db_t *db, const char *message) {
    debug_printf("%s", message);
    db_report_corrupt(db);
}

// --- Columns -----------------------------------------------------------------------------------------------

static u32 _db_live_get_offset(const db_layout_t *layout, bool is_folder, u32 flag) {
    switch (flag) {
    case DB_FLAG_DATE_CREATED:
        return is_folder ? layout->folder_date_created_offset : layout->file_date_created_offset;
    case DB_FLAG_DATE_MODIFIED:
        return is_folder ? layout->folder_date_modified_offset : layout->file_date_modified_offset;
    case DB_FLAG_DATE_ACCESSED:
        return is_folder ? layout->folder_date_accessed_offset : layout->file_date_accessed_offset;
    case DB_FLAG_ATTRIBUTES:
        return is_folder ? layout->folder_attributes_offset : layout->file_attributes_offset;
    default: return 0; // the size is the first
    }
}

u64 _db_live_get_column(const db_t *db, const db_item_t *item, bool is_folder, u32 flag) {
    const char *column = db_item_columns(item) + _db_live_get_offset(&db->layout, is_folder, flag);
    return flag == DB_FLAG_ATTRIBUTES ? db_load_u32(column) : db_load_u64(column);
}

void _db_live_set_column(const db_t *db, const db_item_t *item, bool is_folder, u32 flag, u64 value) {
    char *column = db_item_columns(item) + _db_live_get_offset(&db->layout, is_folder, flag);
    if (flag == DB_FLAG_ATTRIBUTES)
        db_store_u32(column, static_cast<u32>(value));
    else
        db_store_u64(column, value);
}

u64 _db_live_get_info_value(const db_file_info_t *info, u32 flag) {
    switch (flag) {
    case DB_FLAG_SIZE: return info->size;
    case DB_FLAG_DATE_CREATED: return info->date_created;
    case DB_FLAG_DATE_MODIFIED: return info->date_modified;
    case DB_FLAG_DATE_ACCESSED: return info->date_accessed;
    default: return info->attributes;
    }
}

// In the order in which a change writes them.
static constexpr u32 _db_live_columns[] = {DB_FLAG_SIZE, DB_FLAG_DATE_CREATED, DB_FLAG_DATE_MODIFIED,
                                           DB_FLAG_DATE_ACCESSED, DB_FLAG_ATTRIBUTES};

void _db_live_set_columns(const db_t *db, const db_item_t *item, bool is_folder, const db_file_info_t *info) {
    db_file_info_t unknown;
    db_file_info_clear(&unknown);
    unknown.attributes = is_folder ? ATTRIBUTE_FOLDER : 0;
    for (u32 flag : _db_live_columns) {
        if (!(db->layout.flags & flag) || (is_folder && flag == DB_FLAG_SIZE))
            continue;
        _db_live_set_column(db, item, is_folder, flag, _db_live_get_info_value(info ? info : &unknown, flag));
    }
    if (is_folder && db->layout.flags & DB_FLAG_FOLDER_SIZE)
        _db_live_set_column(db, item, true, DB_FLAG_FOLDER_SIZE, 0);
}

u32 _db_live_get_differences(const db_t *db, const db_item_t *item, bool is_folder,
                             const db_file_info_t *info) {
    u32 differences = 0;
    for (u32 flag : _db_live_columns) {
        if (!(db->layout.flags & flag) || (is_folder && flag == DB_FLAG_SIZE))
            continue;
        if (_db_live_get_column(db, item, is_folder, flag) != _db_live_get_info_value(info, flag))
            differences |= flag;
    }
    return differences;
}

// --- What the queries are told -----------------------------------------------------------------------------

void _db_live_leave(db_t *db, const db_item_t *item, bool is_folder, u32 changes) {
    for (db_query_link_t *query = db->query_first; query; query = query->next) {
        if (query->live)
            query->live->item_leaves(query, item, is_folder, changes);
    }
}

void _db_live_enter(db_t *db, const db_item_t *old, const db_item_t *item, bool is_folder, u32 changes) {
    for (db_query_link_t *query = db->query_first; query; query = query->next) {
        if (query->live)
            query->live->item_enters(query, old, item, is_folder, changes);
    }
}

// --- Histories ---------------------------------------------------------------------------------------------

db_live_history_t _db_live_take_history(db_t *db, const db_item_t *item) {
    db_live_history_t history = {DB_LIVE_NO_DATE, db_run_history_take(db, item)};
    if (const db_recent_change_t *change = db_recent_change_find(db, item)) {
        history.change_date = change->date;
        db_recent_change_remove(db, item);
    }
    return history;
}

void _db_live_give_history(db_t *db, db_live_history_t *history, const db_item_t *item, bool is_folder,
                           u64 date) {
    bool is_stamped = _db_live_stamp_flag(db, date) != 0;
    if (is_stamped || history->change_date != DB_LIVE_NO_DATE)
        db_recent_change_set(db, is_folder, item, is_stamped ? date : history->change_date);
    if (history->runs)
        db_run_history_give(db, history->runs, item, is_folder);
    else
        db_run_history_item_added(db, item, is_folder);
}

void _db_live_stamp(db_t *db, const db_item_t *item, bool is_folder, u64 date) {
    if (_db_live_stamp_flag(db, date))
        db_recent_change_set(db, is_folder, item, date);
}

void _db_live_forget(db_t *db, const db_item_t *item, bool is_folder) {
    db_recent_change_remove(db, item);
    db_run_history_item_removed(db, item);
    db_forget_updated(db, item);
    for (db_query_link_t *query = db->query_first; query; query = query->next) {
        if (query->live)
            query->live->item_gone(query, item, is_folder);
    }
}

void _db_live_replace(db_t *db, const db_item_t *old, const db_item_t *item) {
    if (db_forget_updated(db, old))
        db_mark_updated(db, item);
}

// --- Folder sizes ------------------------------------------------------------------------------------------

void db_folder_add_size(db_t *db, db_folder_t *folder, u64 old_size, u64 new_size) {
    old_size = old_size == VALUE_UNKNOWN ? 0 : old_size;
    new_size = new_size == VALUE_UNKNOWN ? 0 : new_size;
    if (!(db->layout.flags & DB_FLAG_FOLDER_SIZE) || old_size == new_size)
        return;
    while (folder) {
        _db_live_leave(db, folder, true, DB_FLAG_SIZE);
        _db_live_take_out_column(db, folder, true, DB_FLAG_FOLDER_SIZE);
        u64 size = _db_live_get_column(db, folder, true, DB_FLAG_FOLDER_SIZE);
        _db_live_set_column(db, folder, true, DB_FLAG_FOLDER_SIZE, size + new_size - old_size);
        _db_live_put_in_column(db, folder, true, DB_FLAG_FOLDER_SIZE);
        _db_live_enter(db, folder, folder, true, DB_FLAG_SIZE);
        db_mark_updated(db, folder);
        folder = db_item_is_top(folder) ? nullptr : mem_ptr<db_folder_t>(folder->parent);
    }
}

} // namespace findwright
