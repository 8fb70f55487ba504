// Live updates of folders, alone and with all that is below them.
#include "os/debug.h"
#include "os/os.h"
#include "track/db_live_internal.h"
#include "track/db_run_history.h"

#include <cstring>

namespace findwright {

// --- Find and add ------------------------------------------------------------------------------------------

db_folder_t *db_folder_find(const db_t *db, const db_index_t *index, const db_folder_t *parent,
                            const char *name, u32 length) {
    db_item_key_t key = {index->ordinal, _db_live_ref(parent), name, length};
    mem_ref_t found = array_find(&db->folder_name_array, db_item_compare_key, &key);
    return found ? mem_ptr<db_folder_t>(found) : nullptr;
}

// A record of one kind of index or another, that stands in no array yet.
static db_folder_t *_db_folder_make(db_t *db, db_index_t *index, db_frn128_t frn, mem_ref_t parent,
                                    const char *name, u32 length) {
    switch (index->type) {
    case DB_INDEX_TYPE_NTFS: return db_folder_alloc_ntfs(db, index, frn.low, parent, name, length);
    case DB_INDEX_TYPE_REFS: return db_folder_alloc_refs(db, index, frn, parent, name, length);
    default: return db_folder_alloc(db, index, parent, name, length);
    }
}

static db_folder_t *_db_folder_find_by_number(db_t *db, const db_index_t *index, db_frn128_t frn) {
    switch (index->type) {
    case DB_INDEX_TYPE_NTFS: return db_folder_find_by_frn(db, index, frn.low);
    case DB_INDEX_TYPE_REFS: return db_folder_find_by_frn128(db, index, frn);
    default: return nullptr;
    }
}

static db_frn128_t _db_folder_get_number(const db_t *db, const db_index_t *index, const db_item_t *folder) {
    switch (index->type) {
    case DB_INDEX_TYPE_NTFS: return {db_folder_get_frn(db, folder), 0};
    case DB_INDEX_TYPE_REFS: return db_folder_get_frn128(db, folder);
    default: return {};
    }
}

static db_folder_t *_db_folder_add(db_t *db, db_index_t *index, db_frn128_t frn, db_folder_t *parent,
                                   const char *name, u32 length, const db_file_info_t *info, u64 date) {
    mem_ref_t parent_ref = _db_live_ref(parent);
    db_item_key_t key = {index->ordinal, parent_ref, name, length};
    db_live_place_t place;
    bool found;
    if (_db_folder_find_by_number(db, index, frn))
        return nullptr;
    array_find_position(&db->folder_name_array, db_item_compare_key, &key, &place.page, &place.position,
                        &found);
    if (found || !db_folder_is_included(&db->exclude, parent_ref, name, length))
        return nullptr;
    db_folder_t *folder = _db_folder_make(db, index, frn, parent_ref, name, length);
    _db_live_set_columns(db, folder, true, info);
    _db_live_put_in(db, folder, true, &place);
    _db_live_stamp(db, folder, true, date);
    db_run_history_item_added(db, folder, true);
    _db_live_enter(db, nullptr, folder, true, DB_CHANGE_PLACE);
    return folder;
}

db_folder_t *db_folder_add(db_t *db, db_index_t *index, db_folder_t *parent, const char *name, u32 length,
                           const db_file_info_t *info, u64 date) {
    return _db_folder_add(db, index, {}, parent, name, length, info, date);
}

db_folder_t *db_folder_add_ntfs(db_t *db, db_index_t *index, u64 frn, db_folder_t *parent, const char *name,
                                u32 length, const db_file_info_t *info, u64 date) {
    return _db_folder_add(db, index, {frn, 0}, parent, name, length, info, date);
}

db_folder_t *db_folder_add_refs(db_t *db, db_index_t *index, db_frn128_t frn, db_folder_t *parent,
                                const char *name, u32 length, const db_file_info_t *info, u64 date) {
    return _db_folder_add(db, index, frn, parent, name, length, info, date);
}

// --- Remove ------------------------------------------------------------------------------------------------

// The sizes of the files below are taken off the folder and those above it, all at once and while all arrays
// are whole; the folders below go anyway.
static void _db_folder_take_sizes(db_t *db, db_folder_t *folder) {
    if (db->layout.flags & DB_FLAG_FOLDER_SIZE)
        db_folder_add_size(db, folder, db_folder_get_size(db, folder), 0);
}

void db_folder_remove_tree(db_t *db, db_folder_t *folder) {
    u32 start = os_get_tick_count(), length;
    const char *name = db_item_get_name(folder, &length);
    debug_printf("remove subfolders and files from %t\n", name, length);
    _db_folder_take_sizes(db, folder);
    db_live_tree_t tree;
    _db_live_tree_find(db, folder, &tree);
    u32 folder_count = tree.folder_count, file_count = tree.file_count;
    debug_printf("parent backup count %d\n", folder_count);
    _db_live_tree_remove(db, &tree);
    _db_live_tree_kill(&tree);
    debug_printf("removed %d subfolders and %d files from %t in %f seconds\n", folder_count, file_count, name,
                 length, os_get_tick_count() - start);
}

void db_folder_remove_item(db_t *db, db_folder_t *folder) {
    _db_live_leave(db, folder, true, DB_CHANGE_PLACE);
    _db_live_take_out(db, folder, true);
    _db_live_forget(db, folder, true);
    db_folder_free(db, folder);
}

void db_folder_remove(db_t *db, db_folder_t *folder) {
    db_folder_remove_tree(db, folder);
    db_folder_remove_item(db, folder);
}

// --- Move --------------------------------------------------------------------------------------------------

static constexpr u32 MOVE_CHANGES = DB_CHANGE_PLACE | DB_CHANGE_RECENT_CHANGES | DB_CHANGE_RUNS;

// Where exclusions look at whole paths, what is below a folder may be left out at its new place.
static void _db_folder_drop_excluded(db_t *db, db_folder_t *folder) {
    if (!db->exclude.folders_need_path && !db->exclude.files_need_path)
        return;
    db_live_tree_t tree, excluded = {};
    _db_live_tree_find(db, folder, &tree);
    excluded.files = tree.files;
    for (u32 i = 0; i < tree.file_count; i++) {
        u32 length;
        const db_item_t *file = db_item(tree.files[i]);
        const char *name = db_item_get_name(file, &length);
        if (!db_file_is_included(&db->exclude, file->parent, name, length))
            excluded.files[excluded.file_count++] = tree.files[i];
    }
    for (u32 i = 0; i < excluded.file_count; i++)
        db_file_remove_item(db, mem_ptr<db_file_t>(excluded.files[i]));
    for (u32 i = 0; i < tree.folder_count; i++) {
        u32 length;
        db_folder_t *below = mem_ptr<db_folder_t>(tree.folders[i]);
        const char *name = db_item_get_name(below, &length);
        if (db_folder_is_included(&db->exclude, below->parent, name, length))
            continue;
        db_folder_remove(db, below);
        _db_live_tree_kill(&tree); // some of its folders may have gone with this one
        _db_folder_drop_excluded(db, folder);
        return;
    }
    _db_live_tree_kill(&tree);
}

// The new record stands in all arrays in the old one's place, and the tree below it.
static db_folder_t *_db_folder_change(db_t *db, db_folder_t *folder, db_folder_t *parent, const char *name,
                                      u32 length, u64 date) {
    u32 start = os_get_tick_count();
    db_index_t *index = db_get_index(folder);
    u64 size = db_folder_get_size(db, folder);
    db_live_tree_t tree;
    _db_live_tree_find(db, folder, &tree);
    debug_printf("parent backup count %d\n", tree.folder_count);
    db_folder_t *moved = _db_folder_make(db, index, _db_folder_get_number(db, index, folder),
                                         _db_live_ref(parent), name, length);
    std::memcpy(db_item_columns(moved), db_item_columns(folder), db->layout.folder_data_size);

    _db_live_leave(db, folder, true, MOVE_CHANGES);
    db_live_history_t history = _db_live_take_history(db, folder);
    _db_live_take_out(db, folder, true);
    db_folder_add_size(db, _db_live_get_parent(folder), size, 0);
    _db_live_tree_move(db, &tree, folder, moved);
    _db_live_put_in(db, moved, true, nullptr);
    _db_live_give_history(db, &history, moved, true, date);
    _db_live_replace(db, folder, moved);
    _db_live_enter(db, folder, moved, true, MOVE_CHANGES);
    db_folder_add_size(db, parent, 0, size);
    db_folder_free_typed(db, folder, index->type);
    debug_printf("renamed %d subfolders and %d files from %t in %f seconds\n", tree.folder_count,
                 tree.file_count, name, length, os_get_tick_count() - start);
    _db_live_tree_kill(&tree);
    return moved;
}

// Whether a folder is another one, or below it.
static bool _db_folder_is_at_or_below(const db_folder_t *folder, const db_folder_t *top) {
    mem_ref_t ref = mem_ref(top);
    return folder && (folder == top || db_item_is_below(folder, &ref, 1));
}

db_folder_t *db_folder_move(db_t *db, db_folder_t *folder, db_folder_t *parent, const char *name, u32 length,
                            const db_file_info_t *info, u64 date) {
    db_index_t *index = db_get_index(folder);
    bool is_impossible = _db_folder_is_at_or_below(parent, folder);
    if (is_impossible || !db_folder_is_included(&db->exclude, _db_live_ref(parent), name, length)) {
        db_folder_remove(db, folder);
        return nullptr;
    }
    db_folder_t *target = db_folder_find(db, index, parent, name, length);
    if (target != folder) {
        u32 old_length;
        const char *old_name = db_item_get_name(folder, &old_length);
        debug_printf("rename %t to %t\n", old_name, old_length, name, length);
        if (target && _db_folder_is_at_or_below(folder, target)) {
            db_folder_remove(db, target); // the folder stood below it, and goes with it
            return nullptr;
        }
        if (target)
            db_folder_remove(db, target);
        folder = _db_folder_change(db, folder, parent, name, length, date);
        _db_folder_drop_excluded(db, folder);
    }
    if (info)
        db_folder_update_info(db, folder, info, DB_LIVE_NO_DATE);
    return folder;
}

void db_folder_rename(db_t *db, db_index_t *index, db_frn128_t frn, db_frn128_t parent_frn, const char *name,
                      u32 length, const db_file_info_t *info, u64 date) {
    db_folder_t *folder = _db_folder_find_by_number(db, index, frn);
    db_folder_t *parent = _db_folder_find_by_number(db, index, parent_frn);
    if (folder && !parent)
        db_folder_remove(db, folder);
    else if (folder)
        db_folder_move(db, folder, parent, name, length, info, date);
    else if (parent)
        _db_folder_add(db, index, frn, parent, name, length, info, date);
}

bool db_folder_update_info(db_t *db, db_folder_t *folder, const db_file_info_t *info, u64 date) {
    return _db_live_update_info(db, folder, true, info, date);
}

} // namespace findwright
