// The run history of a database: how often each item was opened, and when last. Here are the tables of the
// items, which searches and sorts read; several items may have what was noted for one path.
//
//   run_history_by_item:         by the item's reference
//   run_history_links_by_count:  largest count first, then newest date, then by the item's reference
//   run_history_links_by_date:   newest date first, then by the item's reference
//
// A link is in all three arrays or in none. It comes from the database's allocator, and goes with the
// content; whoever frees an item takes its link out first.
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
struct db_run_history_ptr_t {
    u64 date;
    u32 count; // never 0
    mem_ref_t item;
    u8 is_folder;
};
#pragma pack(pop)

// What is known of an item; count 0 and date 0 for one that was never opened.
db_run_t db_run_history_get(const db_t *db, const db_item_t *item);
// Replaces what is known of the item; a count of 0 forgets it. Arrays that disagree are logged and reported
// (db_report_corrupt).
void db_run_history_set_item(db_t *db, const db_item_t *item, bool is_folder, u32 count, u64 date);
void db_run_history_clear(db_t *db);

// --- For live updates (track/db_live.h) --------------------------------------------------------------------

// An item has come: it gets a link when its path is known.
void db_run_history_item_added(db_t *db, const db_item_t *item, bool is_folder);
// An item goes, or all members of two sets: their links go, what is known of the paths stays.
void db_run_history_item_removed(db_t *db, const db_item_t *item);
void db_run_history_items_removed(db_t *db, const db_item_set_t *folders, const db_item_set_t *files);
// An item that was opened before gets another record or another path, and keeps its count and date under the
// new path. Taken before the change; the block is handed to the second function, which frees it, when `item`
// is in all arrays. 0 where the item was never opened.
struct db_run_history_move_t;
db_run_history_move_t *db_run_history_take(db_t *db, const db_item_t *item);
void db_run_history_give(db_t *db, db_run_history_move_t *move, const db_item_t *item, bool is_folder);

} // namespace findwright
