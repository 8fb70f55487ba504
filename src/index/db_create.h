// The rebuild: makes the whole content of a database out of its sources.
//
//   volume --reader--> sink --> temporary records --link--> tree --drop orphans--> sorted --> final records
//                               (obstack, arena)                                   orders     (db_mem, name
//                               order)
//
// It runs on a thread of its own, which owns the database until its last posted procedure; before and after,
// the main thread does. A temporary record has the head and columns of a final one, so the comparisons work
// on both; behind the columns stands what links it:
//
//     folder: u32 slot, u32 ordinal of the source, the type's reference number (NTFS: u64)
//     file:   u32 slot
//
// While a source is read, `parent` holds the low half of the parent's reference number and `slot` its high
// half. Once it is linked, `parent` is the parent's temporary record, a marker, or 0 for an orphan, and the
// slot is free for the passes that need a word per folder.
#pragma once

#include "db/db.h"
#include "index/ntfs.h"

namespace findwright {

// Reads a source in place of the NTFS reader: gives every name to the sink.
using db_rebuild_read_proc_t = void(void *param, void *user_data, ntfs_record_proc_t *sink,
                                    ntfs_progress_proc_t *progress);

// One volume of a rebuild. Texts are copied.
struct db_rebuild_volume_t {
    const char *guid;             // what it is opened by
    const char *path;             // the root item's name
    os_volume_t *volume;          // already open, and taken over by the rebuild; 0: it is opened by `guid`
    db_rebuild_read_proc_t *read; // 0: the NTFS reader over the volume
    void *read_param;
};

// What a rebuild took, in microseconds, and what it found.
struct db_rebuild_stats_t {
    u32 read_time;    // from the first read to linked records without orphans
    u32 sort_time;    // from there to the last sorted array
    u64 record_count; // file records read
    u32 orphan_count;
};

struct db_rebuild_params_t {
    const db_rebuild_volume_t *volumes;
    u32 volume_count;
    u32 index_flags;                 // DB_FLAG_...
    const db_exclude_set_t *exclude; // what is left out, copied; 0 for nothing
    db_rebuild_stats_t *stats;       // 0, or filled before the load is complete
};

// Starts the rebuild. The database is not ready until _db_load_complete_proc has run on the main thread.
void db_rebuild_start(db_t *db, const db_rebuild_params_t *params);
// Asks a running rebuild to end early; its content is then what had been read.
void db_rebuild_cancel(db_t *db);

} // namespace findwright
