// What a database is to be made of: its sources in their order, its columns and sorted arrays, and what is
// left out.
//
// The settings give one such description (app/db_settings.h), a file list opened by itself another, the
// console client a third. It is compared with what a database holds, and it is what a rebuild works from.
//
// Sources stand in the order NTFS volumes, ReFS volumes, file lists, folders, each kind in the order it was
// added; the place is the ordinal of the source's index record. The record is in no database's list; a
// rebuild takes it over.
//
// Owner: whoever called db_wanted_init, until db_wanted_kill or until a rebuild has taken all out. Main
// thread.
#pragma once

#include "db/db.h"
#include "index/ntfs.h"

namespace findwright {

// Reads a volume in place of the NTFS reader: gives every name to the sink.
using db_source_read_proc_t = void(void *param, void *user_data, ntfs_record_proc_t *sink,
                                   ntfs_progress_proc_t *progress);

struct db_source_t {
    db_source_t *next;
    db_index_t *index;
    os_volume_t *volume;         // already open, and owned; 0: a volume is opened by its guid
    db_source_read_proc_t *read; // 0: the NTFS reader
    void *read_param;
};

struct db_wanted_t {
    db_source_t *first, *last;
    u32 index_flags; // DB_FLAG_..., as asked for
    db_exclude_set_t exclude;
};

void db_wanted_init(db_wanted_t *wanted);
void db_wanted_kill(db_wanted_t *wanted);

// Each appends a source, with copies of the texts. Paths and names of files are inside ones; those of lists
// and folders are full and clean, see db_wanted_clean_path.
db_source_t *db_wanted_add_volume(db_wanted_t *wanted, const char *guid, const char *path, const char *root,
                                  const char *include_only);
db_source_t *db_wanted_add_file_list(db_wanted_t *wanted, const char *filename, bool monitor);
// The record's schedule and monitor are the defaults, and may be changed before the next source is added.
db_source_t *db_wanted_add_folder(db_wanted_t *wanted, const char *path);
// Frees a source that is in no list.
void db_source_destroy(db_source_t *source);

// The full name that a user means: joined to the current directory when it is relative, `.` and `..` and
// repeated separators taken out, without a separator at its end but for a root's (`C:\`, `\`). Replaces the
// content of `out`.
void db_wanted_clean_path(const char *path, utf8_buf_t *out);

} // namespace findwright
