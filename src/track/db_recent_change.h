// The items that changed since the program watches them, with the date of their last change: a side table of
// the database, not saved with it.
//
//   recent_changes_by_item:  by the item's reference
//   recent_changes_by_date:  newest first, then by the item's reference
//
// A record is in both arrays or in neither. It comes from the database's allocator, and goes with the
// content; whoever frees an item takes its record out first.
//
// Main thread, with no worker at work, writes; any thread of a worker reads.
#pragma once

#include "db/db.h"

namespace findwright {

// Setting: changes are noted.
inline u32 index_recent_changes = 1;

#pragma pack(push, 4) // records of the arena lie at multiples of 4
struct db_recent_change_t {
    u64 date; // file time
    mem_ref_t item;
    u8 is_folder;
};
#pragma pack(pop)

// The record of an item, or 0. Arrays that disagree are logged and reported (db_report_corrupt).
const db_recent_change_t *db_recent_change_find(const db_t *db, const db_item_t *item);
// Makes the record, or moves it to its new place. Of an item that is in one array only nothing is changed.
void db_recent_change_set(db_t *db, bool is_folder, const db_item_t *item, u64 date);
void db_recent_change_remove(db_t *db, const db_item_t *item);
void db_recent_change_clear(db_t *db);
// Takes out the records of all members of two sets.
void db_recent_change_remove_many(db_t *db, const db_item_set_t *folders, const db_item_set_t *files);
// Content is in place: whether its changes are noted is as the setting says; never of a view of a file list.
// The thread that owns the database.
void db_recent_change_start(db_t *db);
// The setting has changed: whether changes are noted from now on is as it says. To the queries all records go
// when they are not noted any more. True when something changed.
bool _db_recent_change_enabled_changed(db_t *db);

} // namespace findwright
