// Folder sources that are kept current by the system's notifications.
//
//     watch --told--> raw events --looked up--> ready events --applied--> index
//         (monitor thread)     (get-data thread)         (main thread)
//
// An event says that something happened at a path. What is there now is looked up on a thread of its own, the
// folders that have come with all that is below them (db_folder_scan_run), so that the main thread never
// waits for a disk. It applies what is ready at most once a second, in slices of some milliseconds, and never
// while the database is busy.
//
// Why nothing is lost: events of a source stay in order through all three stages, and each is looked up after
// it happened. So of each name the last event leaves what is there. What the order alone does not cover:
//
//     an item was not found, since a folder above it has another name by now: it is looked up again when the
//       event of that rename comes by
//     a rename of what the index does not have: the new name is looked up like one that was added
//     a rename that happened during a scan, which then saw the one end of it: the new name is looked up too
//     a scan is being applied: the source's events wait until it is done
//     events were lost, the folder could not be followed for a time, or a monitor has just begun: the source
//     is
//       scanned as a whole (db_folders_update_index_now)
//
// Main thread.
#pragma once

#include "db/db.h"

namespace findwright {

// Setting: time before a source that could not be followed is tried again, in milliseconds.
inline i32 monitor_retry_milliseconds = 30000;

// What the main thread takes at a time, in milliseconds.
inline u32 db_monitor_folder_slice = 20;
// Time between two applications, in milliseconds.
inline u32 db_monitor_folder_interval = 1000;
// The same between two look-ups: what is written many times within it is looked up once.
inline u32 db_monitor_folder_data_interval = 250;
// A source that the system has no watches for is tried again after so long, and scanned then if it has no
// schedule of its own; not less than monitor_retry_milliseconds.
inline u32 db_monitor_folder_limit_retry = 600000;

// The system's watches that are taken at most; 0 is as many as there are. For tests.
inline u32 db_monitor_folder_watch_limit = 0;

// Content is in place, and stays: follows the folder sources with `monitor` set, each of which is scanned
// once when that has begun. Nothing where there are none, in read-only mode, or when it was done before.
void db_monitor_folders_start(db_t *db);
// Before a rebuild, and before the database goes; joins the threads. Stopping what was not started is
// nothing.
void db_monitor_folders_stop(db_t *db);

// Applies what is ready.
void db_monitor_folder_read_directory_changes_update(db_t *db);
// The database is idle: what had to wait goes on. (A database tells it by itself, too.)
void db_monitor_folder_idle(db_t *db);
// A scan of that source was applied or has failed: its events go on.
void db_monitor_folder_scan_applied(db_t *db, db_index_folder_t *index);

// Sources that lie on a volume, by the beginning of their paths ("C:"), are let go of so that it can be taken
// out, and tried again after monitor_retry_milliseconds; or tried again at once.
void db_monitor_stop_by_volume(db_t *db, const char *volume);
void db_monitor_restart_by_volume(db_t *db, const char *volume);

// Whether any event is on its way, or the threads have not begun to follow all that can be followed.
bool db_monitor_folder_is_busy(const db_t *db);

} // namespace findwright
