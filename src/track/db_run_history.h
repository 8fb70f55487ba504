// The run history of a database: how often each item was opened, and when last.
//
// What is known is known of paths: an entry tells of a path whether an item has it or not, so that it
// outlives the items and the index. A link tells which item has the path of an entry; several items may, in
// different sources. Searches and sorts read the links.
//
//     entry  "\home\u\a.txt", 12 times, last on ...        link -> item of one source
//       run_history_by_name, run_history_by_count    <---- link -> item of another source
//                                                          run_history_by_item, run_history_links_by_...
//
//   run_history_by_name:         paths, folded, then in lower case, then (own paths of POSIX) byte by byte
//   run_history_by_count:        largest count first, then newest date, then by path
//   run_history_by_item:         by the item's reference
//   run_history_links_by_count:  largest count first, then newest date, then by the item's reference
//   run_history_links_by_date:   newest date first, then by the item's reference
//
// A link is in all three arrays of its kind or in none. So is an entry, but one with count 0, which was
// removed while its file still has it, is not in run_history_by_count. Both come from the database's
// allocator, and go with the content; whoever frees an item takes its link out first.
//
// Main thread, with no worker at work, writes; any thread of a worker reads.
#pragma once

#include "db/db.h"

namespace findwright {

// Settings.
inline u32 run_history_enabled = 1;
inline u32 run_history_keep_forever = 1;
inline i32 run_history_days_to_keep = 90;

struct db_run_t {
    u32 count;
    u64 date; // file time of the last time
};

#pragma pack(push, 4) // records of the arena lie at multiples of 4
struct db_run_history_data_t {
    u64 date; // file time
    u32 count;
    u32 path_length; // the path stands behind the structure, not terminated
    u32 saved_count; // what the file says, as far as it was read and written
    u32 link_count;
};
struct db_run_history_ptr_t {
    mem_ref_t data; // db_run_history_data_t
    mem_ref_t item;
    u8 is_folder;
};
#pragma pack(pop)

inline const db_run_history_data_t *db_run_history_link_get_data(const db_run_history_ptr_t *link) {
    return mem_ptr<const db_run_history_data_t>(link->data);
}
inline const char *db_run_history_get_path(const db_run_history_data_t *data) {
    return reinterpret_cast<const char *>(data + 1);
}

// What is known of an item; count 0 and date 0 for one that was never opened.
db_run_t db_run_history_get(const db_t *db, const db_item_t *item);
// The entry of a path, or 0.
const db_run_history_data_t *db_run_history_find(const db_t *db, const char *path, u32 length);

// Replaces what is known of a path, and so of all items that have it; a count of 0 forgets it. The queries
// are told. Arrays that disagree are logged and reported (db_report_corrupt), and nothing changes.
void db_run_history_set_path(db_t *db, const char *path, u32 length, u32 count, u64 date);
// The same for an item's path; and adding to its count, which ends at the largest.
void db_run_history_set_item(db_t *db, const db_item_t *item, bool is_folder, u32 count, u64 date);
void db_run_history_add_item(db_t *db, const db_item_t *item, bool is_folder, u32 count, u64 date);
// Forgets everything in memory; the queries are not told.
void db_run_history_clear(db_t *db);

// --- The file ----------------------------------------------------------------------------------------------
//
// One for all databases and all programs of an instance (docs/run-history.md tells its form). What several of
// them count at once is added up: who writes it takes over what the others wrote.

// Where it is, from now on; 0: nowhere, and nothing is read or written. No database may be loading.
void db_run_history_set_file(const char *filename);
// Content is in place: reads the file, and links what it knows to the items. Nothing where the setting says
// so, nor in a view of a file list. The thread that owns the database.
void db_run_history_load(db_t *db);
// Writes what has changed. False on failure: the file is as it was, and os_get_last_error tells why. A change
// of the history by itself is written after DB_RUN_HISTORY_SAVE_DELAY milliseconds.
bool db_run_history_save(db_t *db);
inline constexpr u32 DB_RUN_HISTORY_SAVE_DELAY = 3000;
// Forgets everything, and deletes the file. False when that could not be deleted.
bool db_run_history_delete(db_t *db);
// The setting run_history_enabled has changed: reads the file, or forgets what is in memory. True when
// something changed.
bool db_run_history_changed(db_t *db);

// --- For live updates (track/db_live.h) --------------------------------------------------------------------
//
// The queries are not told: that is done by the operation that these are parts of.

// An item has come: it gets a link when its path is known.
void db_run_history_item_added(db_t *db, const db_item_t *item, bool is_folder);
// An item goes, or all members of two sets: their links go, what is known of the paths stays.
void db_run_history_item_removed(db_t *db, const db_item_t *item);
void db_run_history_items_removed(db_t *db, const db_item_set_t *folders, const db_item_set_t *files);
// An item that was opened before gets another record or another path, and keeps its count and date under the
// new path. Taken before the change; the block is handed to the second function, which frees it, when `item`
// is in all arrays. 0 where the item was never opened; such an item, too, may be given: it then gets what is
// known of its new path, like one that has come.
//
// What is known of the old path stays: programs that save a file under a new name and then put it in the
// place of the old one would lose its count otherwise.
struct db_run_history_move_t;
db_run_history_move_t *db_run_history_take(db_t *db, const db_item_t *item);
void db_run_history_give(db_t *db, db_run_history_move_t *move, const db_item_t *item, bool is_folder);

} // namespace findwright
