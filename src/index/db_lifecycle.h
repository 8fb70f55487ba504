// The life of a database between its file, its settings and its sources.
//
//     start --db_load--> loading ----ok----> compared with the settings --fits--> ready --db_save--> file
//                           |                        |                              ^
//                           '--no file, damaged------+--does not fit--> rebuilding -'
//
// A database that is kept (db_lifecycle_keep) is compared with the settings whenever a load or a rebuild has
// put content in place, when a list that it watches has changed, and on request; each reason for a rebuild
// has its line in the log. A rebuild reads only the sources that are new or out of date.
//
// What the settings are is not known here: db_lifecycle_t asks for it. Main thread only, except where told;
// everything that touches content waits for the worker first.
#pragma once

#include "index/db_wanted.h"

namespace findwright {

// What is asked of the program above. The texts are the user's status line.
struct db_lifecycle_t {
    // Fills an empty description from the settings. `for_rebuild`: volumes that come in by themselves enter
    // the settings.
    void (*get_wanted)(db_wanted_t *out, bool for_rebuild);
    // The database file. False, and empty, when the system names no place for it.
    bool (*get_filename)(utf8_buf_t *out);
    bool (*is_compressed)();
    // The file that tells what was found in a corrupt database. False: none.
    bool (*get_corrupt_filename)(utf8_buf_t *out);
    // Something that nobody waits for has failed: a save that had to wait for a rebuild, with the file and
    // the reason, or a rebuild that was to put a damaged index right.
    void (*report_error)(const char *text);
    const char *text_saving;
    const char *text_loading;
    const char *text_starting;
};

// Whom databases ask from now on; must stay.
void db_lifecycle_set(const db_lifecycle_t *lifecycle);

// A database that is kept.
db_t *db_lifecycle_create(const char *file_list_filename);

// Starts loading the database file. Without one, or with one that cannot be used, the comparison that follows
// finds what is missing, and rebuilds.
void db_load(db_t *db);
// Writes the database file. When the content is not worth saving, as before the first rebuild is complete,
// nothing is written, and with `rebuild` one is started and saved when it is complete. False: it could not be
// written, the old file is as it was, and `error` (0 or a text) names the file and the reason.
bool db_save(db_t *db, bool rebuild, utf8_buf_t *error);
// Makes the content anew from the sources of the settings, reading those that are out of date; with `force`
// all of them. Nothing in read-only mode.
void db_rebuild(db_t *db, bool force);
// The same for a view of a file list: all its columns, nothing left out.
void db_rebuild_filelist(db_t *db);

// Whether the content does not fit the settings, or a source that could not be read is back; logs why. Fields
// that need no rebuild are taken over into the indexes, and *monitor_changed tells of those that say whether
// a source is followed.
bool db_needs_rebuild(db_t *db, bool *monitor_changed);
// After the settings have changed: a rebuild where one is needed.
void db_apply_settings(db_t *db);

// Whether a file list has another date than when it was read; such indexes become out of date.
bool _db_filelists_is_change(db_t *db);
// An index that was found damaged is rebuilt once; damaged again within this time, in seconds, it is left as
// it is, and not saved: a rebuild that does not cure it would only be followed by the next.
inline u32 db_corrupt_interval = 3600;

// Has lists that changed read again, now or when the database is idle.
void db_check_file_lists(db_t *db);

} // namespace findwright
