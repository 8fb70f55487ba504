// Folder sources between monitors: scans by schedule and on demand, and how the result of a scan enters the
// index.
//
//     due, or asked for --> scan --complete--> queue --> apply --> the monitor's events go on
//                        (own thread,          (main thread, in slices of some milliseconds)
//                         reads no record)
//
// A scan lists what a rebuild would, by the same rules (track/db_folder_rules.h): a scan of a tree that has
// not changed since changes nothing. It keeps items of its own, and knows nothing of the index.
//
// The apply walks once over the names of the database, and finds for each item of the tree its counterpart
// in the scan: what differs is updated. Then what was not seen is removed, and what is new is added. Between
// two slices all else goes on: keystrokes, searches, changes to other sources. While a worker has the
// database the apply waits. Scans are applied one at a time, in the order in which they were handed in.
//
// What holds meanwhile: from the start of a scan until its apply is done nobody else adds, changes or removes
// items of that source (db_folder_update_is_running), so that what the apply has found stays true. A rebuild
// drops scans and applies, and whatever is in the index then is replaced.
//
// A folder that cannot be listed, for any reason but that it is gone, keeps what the index has below it: a
// share that fails for a moment, or a right that was taken away, empties nothing. The same when the root
// cannot be read, or is in another file system at the end of the scan than at its start.
//
// Main thread, but where told.
#pragma once

#include "db/db.h"

#include <atomic>

namespace findwright {

// Setting: scans run at background priority.
inline u32 folder_update_thread_mode_background = 1;

// What the apply takes of the main thread at a time, in milliseconds.
inline u32 db_folder_update_slice = 20;

// Called when nothing holds back a source's events any more: its scan was applied, or has failed. Set once by
// the monitors.
inline void (*db_folder_update_done)(db_t *db, db_index_folder_t *index);

// --- Scans by schedule and on demand -----------------------------------------------------------------------

// Content is in place and stays: the schedules are looked at from now on, while any source has one.
void db_folder_update_start(db_t *db);
// Before a rebuild, and before the database goes: the scan is cancelled and waited for, all that is not
// applied is dropped. Stopping what was not started is nothing.
void db_folder_update_stop(db_t *db);

// Starts the next scan that is due: that of a source that was asked for, or else the one whose time came
// first. Nothing while a scan runs, or the database is busy; then it is looked again when that ends.
void db_folders_check_for_updates(db_t *db);
// Has the sources with that path, that source, or all folder sources scanned as soon as may be.
void db_folders_update_now(db_t *db, const char *path);
void db_folders_update_index_now(db_t *db, db_index_folder_t *index);
void db_folders_update_all_now(db_t *db);

// From the start of a scan of the whole source, or from when the scan of a part of it was handed in, until
// the apply is done, or was found to be none.
bool db_folder_update_is_running(const db_t *db, const db_index_folder_t *index);
// Whether a scan runs or anything waits to be applied, of any source.
bool db_folder_update_is_busy(const db_t *db);

// --- A scan by itself --------------------------------------------------------------------------------------

struct db_folder_scan_t;

// Lists a source, or what it has from a folder on: `path` is the source's path, or a full path of a folder
// below it. Any thread, on which `index` and the database's exclusions stay as they are meanwhile; no record
// is touched. 0: it was cancelled by `*cancel` (0: it cannot be), or there is no such folder, or it cannot be
// listed, or it is left out.
db_folder_scan_t *db_folder_scan_run(db_t *db, const db_index_folder_t *index, const char *path,
                                     std::atomic<u32> *cancel);
void db_folder_scan_free(db_folder_scan_t *scan);
// Files and folders found, the first folder included.
u32 db_folder_scan_get_count(const db_folder_scan_t *scan);

// Has a scan applied, which it takes over. Always later, from the main loop. The first folder of a part need
// not be in the index yet, but the folder that holds it must be: otherwise nothing happens. A part that is
// new is added at the cost of its items; one that is in the index costs a walk over all names of the
// database, so a folder that has come is better not added first. What the index has below the first folder,
// and the scan has not, goes.
void db_folder_update_apply(db_t *db, db_folder_scan_t *scan);

} // namespace findwright
