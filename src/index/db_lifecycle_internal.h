// What the files of the lifecycle share.
#pragma once

#include "index/db_lifecycle.h"

namespace findwright {

extern const db_lifecycle_t *db_lifecycle;
extern const db_keeper_t db_lifecycle_keeper;

// What follows the sources: the watch over file lists, the monitors and schedules of folders. Of content that
// is in place, and that is the sources' own; starting again what runs takes over what the indexes say now.
// Stopping what does not run is nothing.
void _db_follow_start(db_t *db);
void _db_follow_stop(db_t *db);

// The watch over the files of file lists (db_lifecycle_watch.cpp): a thread that asks for the check when
// something happened in a folder of one. Started over the indexes as they are; stopping one that does not run
// is nothing.
void _db_watch_start(db_t *db);
void _db_watch_stop(db_t *db);
// Takes back what the check has posted.
void _db_check_forget(db_t *db);

} // namespace findwright
