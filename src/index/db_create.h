// The rebuild: makes the whole content of a database out of its sources.
//
//   volume ---- reader ---> sink ----.
//   file list - reader ---> rows ----|-> temporary records -> tree, less orphans -> sorted -> final records
//   folder ---- scan -----> entries -|   (obstack, arena)     and what is left out  orders    (db_mem, name
//   old content ----------> copies --'                                                         order)
//
// It runs on a thread of its own, which owns the database until its last posted procedure; before and after,
// the main thread does. A source that the database already holds, and that is not out of date, is not read:
// its items are copied, whatever the columns. A source that cannot be read keeps the items it had.
//
// A temporary record has the head and columns of a final one, so the comparisons work on both; behind the
// columns stands what links it:
//
//     folder: u32 slot, u32 ordinal of the source, then of an NTFS volume u64 reference number, of other
//             sources u32 sequence
//     file:   u32 slot; once it is linked, the sequence
//
// While a volume is read, `parent` holds the low half of the parent's reference number and `slot` its high
// half. Once it is linked, `parent` is the parent's temporary record, a marker, or 0 for an orphan, and a
// folder's slot is free for the passes that need a word per folder. The sequence orders items that are equal
// in name, path and source: rows of a list in their own order.
#pragma once

#include "index/db_wanted.h"

namespace findwright {

// The status texts, which localization replaces by its own before a rebuild starts. Those with %s take the
// source's name; that of a volume its path and its guid.
struct db_create_texts_t {
    const char *creating;
    const char *indexing;
    const char *scanning_volume;
    const char *loading_list;
    const char *scanning_folder;
    const char *excluding_folders;
    const char *excluding_files;
};
extern db_create_texts_t db_create_texts;

// What a rebuild took, in microseconds, and what it found.
struct db_rebuild_stats_t {
    u32 read_time;    // from the first read to linked records without orphans
    u32 sort_time;    // from there to the last sorted array
    u64 record_count; // file records read
    u32 orphan_count;
    u32 sources_read; // not copied from the old content
};

// Starts the rebuild: takes the sources and exclusions out of `wanted`, which is empty afterwards. The
// database is not ready until _db_load_complete_proc has run on the main thread. `stats` is 0, or filled
// before the load is complete.
void db_rebuild_start(db_t *db, db_wanted_t *wanted, db_rebuild_stats_t *stats);
// Asks a running rebuild to end early; the database is empty then, and not worth saving.
void db_rebuild_cancel(db_t *db);

} // namespace findwright
