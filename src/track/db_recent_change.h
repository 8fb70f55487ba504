// The items that changed since the program watches them, with the date of their last change: a side table of
// the database, by item and by date.
//
// Main thread, with no worker at work, writes; any thread of a worker reads.
#pragma once

#include "db/db.h"

namespace findwright {

struct db_recent_change_t {
    u64 date; // file time
    mem_ref_t item;
    u8 is_folder;
};

// The record of an item, or 0.
const db_recent_change_t *db_recent_change_find(const db_t *db, const db_item_t *item);
// Makes the record, or moves it to its new place.
void db_recent_change_set(db_t *db, bool is_folder, const db_item_t *item, u64 date);
void db_recent_change_remove(db_t *db, const db_item_t *item);
void db_recent_change_clear(db_t *db);

} // namespace findwright
