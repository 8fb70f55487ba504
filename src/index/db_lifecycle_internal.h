// What the files of the lifecycle share.
#pragma once

#include "index/db_lifecycle.h"

namespace findwright {

extern const db_lifecycle_t *db_lifecycle;
extern const db_keeper_t db_lifecycle_keeper;

// The watch over the files of file lists (db_lifecycle_watch.cpp): a thread that asks for the check when
// something happened in a folder of one. Started over the indexes as they are; stopping one that does not run
// is nothing.
void _db_watch_start(db_t *db);
void _db_watch_stop(db_t *db);
// Takes back what the check has posted.
void _db_check_forget(db_t *db);

} // namespace findwright
