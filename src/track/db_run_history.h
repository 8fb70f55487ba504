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

} // namespace findwright
