// The run history of a database: how often each item was opened, and when last. Here is the table by item,
// which searches read.
//
// Main thread, with no worker at work, writes; any thread of a worker reads.
#pragma once

#include "db/db.h"

namespace findwright {

struct db_run_t {
    u32 count;
    u64 date; // file time of the last time
};

// What is known of an item; count 0 and date 0 for one that was never opened.
db_run_t db_run_history_get(const db_t *db, const db_item_t *item);
void db_run_history_set_item(db_t *db, const db_item_t *item, bool is_folder, u32 count, u64 date);
void db_run_history_clear(db_t *db);

} // namespace findwright
