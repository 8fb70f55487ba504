// What the files of the live updates share.
#pragma once

#include "db/db_item_set.h"
#include "track/db_live.h"

namespace findwright {

// --- What the queries are told (db_live.cpp) ---------------------------------------------------------------

void _db_live_leave(db_t *db, const db_item_t *item, bool is_folder, u32 changes);
void _db_live_enter(db_t *db, const db_item_t *old, const db_item_t *item, bool is_folder, u32 changes);
// The record goes: queries, histories and the items that are to be painted forget it. It is freed afterwards.
void _db_live_forget(db_t *db, const db_item_t *item, bool is_folder);
// The record's place is taken by another one of the same item.
void _db_live_replace(db_t *db, const db_item_t *old, const db_item_t *item);
// Logs that an array does not fit the data, and has it put right.
void _db_live_corrupt(db_t *db, const char *message);

// What is noted of an item while it has no place: its recent change and its run history.
struct db_live_history_t {
    u64 change_date; // DB_LIVE_NO_DATE: none
    struct db_run_history_move_t *runs;
};
db_live_history_t _db_live_take_history(db_t *db, const db_item_t *item);
void _db_live_give_history(db_t *db, db_live_history_t *history, const db_item_t *item, bool is_folder,
                           u64 date);
// The change of an item that keeps its record.
void _db_live_stamp(db_t *db, const db_item_t *item, bool is_folder, u64 date);
// DB_CHANGE_RECENT_CHANGES where a change of that date is noted.
inline u32 _db_live_stamp_flag(const db_t *db, u64 date) {
    return db->recent_changes && date != DB_LIVE_NO_DATE ? DB_CHANGE_RECENT_CHANGES : 0;
}

// --- Columns -----------------------------------------------------------------------------------------------

// The value of a column that the layout has; `flag` is one of DB_FLAG_..., for a folder's size
// DB_FLAG_FOLDER_SIZE.
u64 _db_live_get_column(const db_t *db, const db_item_t *item, bool is_folder, u32 flag);
void _db_live_set_column(const db_t *db, const db_item_t *item, bool is_folder, u32 flag, u64 value);
// Writes all columns that the layout has; 0: unknown ones. A folder's size becomes 0.
void _db_live_set_columns(const db_t *db, const db_item_t *item, bool is_folder, const db_file_info_t *info);
// The columns (DB_FLAG_...) that the layout has and in which the item differs; a folder's size is left out.
u32 _db_live_get_differences(const db_t *db, const db_item_t *item, bool is_folder,
                             const db_file_info_t *info);
u64 _db_live_get_info_value(const db_file_info_t *info, u32 flag);
// Writes the columns that differ, but for a folder's size. True when any did.
bool _db_live_update_info(db_t *db, db_item_t *item, bool is_folder, const db_file_info_t *info, u64 date);

inline mem_ref_t _db_live_ref(const db_folder_t *folder) {
    return folder ? mem_ref(folder) : 0;
}
inline db_folder_t *_db_live_get_parent(const db_item_t *item) {
    return db_item_is_top(item) ? nullptr : mem_ptr<db_folder_t>(item->parent);
}

// --- The sorted arrays (db_live_order.cpp) -----------------------------------------------------------------

// One of the sorted arrays of files or of folders.
struct db_live_order_t {
    u32 flag; // of the layout, where the array exists; 0: always
    u32 also; // another one that is needed
    array_t db_t::*array;
    array_compare_t *compare; // a value and a key of db_live_key_t
    u32 column;               // whose values are the first key; 0: texts
    bool is_path;             // the path is the first key
    const char *message;      // when it does not fit the data
    const char *update_message;
};
struct db_live_key_t {
    const db_t *db;
    const db_item_t *item;
};
struct db_live_orders_t {
    const db_live_order_t *first, *end;
};
db_live_orders_t _db_live_get_orders(bool is_folder);
inline bool _db_live_has_order(const db_t *db, const db_live_order_t *order) {
    return (db->layout.flags & (order->flag | order->also)) == (order->flag | order->also);
}

// Takes an item out of all arrays, or puts it in, numbers included. Its name's place may be known already.
void _db_live_take_out(db_t *db, const db_item_t *item, bool is_folder);
struct db_live_place_t {
    u32 page;
    i32 position;
};
void _db_live_put_in(db_t *db, const db_item_t *item, bool is_folder, const db_live_place_t *name_place);
// Around a change of one column.
void _db_live_take_out_column(db_t *db, const db_item_t *item, bool is_folder, u32 flag);
void _db_live_put_in_column(db_t *db, const db_item_t *item, bool is_folder, u32 flag);

// --- Trees (db_live_tree.cpp) ------------------------------------------------------------------------------

// All that is below a folder; no particular order.
struct db_live_tree_t {
    mem_ref_t *folders, *files;
    u32 folder_count, file_count;
};
void _db_live_tree_find(db_t *db, const db_folder_t *folder, db_live_tree_t *tree);
void _db_live_tree_kill(db_live_tree_t *tree);
// True when there are so many that passes over all arrays are cheaper than a search for each item.
bool _db_live_tree_is_large(const db_t *db, const db_live_tree_t *tree);
// The members as bitmaps, to be freed by the caller.
struct db_live_sets_t {
    db_item_set_t *folders, *files;
};
db_live_sets_t _db_live_tree_get_sets(const db_t *db, const db_live_tree_t *tree);

// One pass over each array: removes all members; or moves them to where their paths belong now. In the second
// case members keep their order among themselves, since what changed is the beginning of all their paths.
void _db_live_remove_many(db_t *db, const db_live_tree_t *tree, const db_live_sets_t *sets);
void _db_live_move_many(db_t *db, const db_live_tree_t *tree, const db_live_sets_t *sets);

// Removes a tree's items and frees their records, few or many.
void _db_live_tree_remove(db_t *db, db_live_tree_t *tree);
// Gives what is below `folder` a new folder to be below of.
void _db_live_tree_move(db_t *db, db_live_tree_t *tree, const db_folder_t *folder, db_folder_t *to);

// Trees of at most so many items are always treated one by one; others when they are less than one in
// DB_LIVE_MANY_SHARE of all. Tests change the first to have small trees take the passes.
extern u32 db_live_few;

} // namespace findwright
