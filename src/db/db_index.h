// Index sources: one record per volume, file list or folder that a database was filled from.
//
// The records stand in the arena, since every item without a parent refers to its own; they are linked off
// the db_t in the order of `ordinal`. Texts in them are owned heap strings. Main thread, or the worker that
// owns the database.
#pragma once

#include "base/mem_ref.h"
#include "base/types.h"

namespace findwright {

struct db_t;

enum db_index_type_t : u32 {
    DB_INDEX_TYPE_NTFS = 0,
    DB_INDEX_TYPE_FILE_LIST = 1,
    DB_INDEX_TYPE_FOLDER = 2,
    DB_INDEX_TYPE_REFS = 3,
};

struct db_index_t {
    db_index_t *next;
    u32 ordinal; // place in the list, from 0; the last tie-break of the item orders but for the address
    db_index_type_t type;
    db_t *db;
    u32 out_of_date; // the source must be read again on the next rebuild
};

// An NTFS or ReFS volume.
struct db_index_volume_t : db_index_t {
    char *guid;         // what the volume is opened by; for an image its file name
    char *path;         // the root item's name
    char *root;         // the folder that is indexed; empty for the whole volume
    char *include_only; // list of the folders that are indexed; empty for all
    u32 monitor;        // changes are followed
    u64 journal_id;
    u64 next_usn;
    u32 load_recent_changes;
};

// A file list.
struct db_index_file_list_t : db_index_t {
    u32 monitor;
    char *filename;
    u64 date_modified; // of the list file when it was read
};

// A folder and what is below it.
struct db_index_folder_t : db_index_t {
    char *path;
    u32 monitor;
    u32 buffer_size;    // bytes for change notifications
    u32 rescan_if_full; // when they overflow
    u32 update_type;    // the schedule of its scans
    u32 update_value;
    u64 next_update; // file time
    u32 update_now;  // a scan was asked for; not in the database file
};
inline constexpr u32 DB_INDEX_FOLDER_BUFFER_SIZE = 0x10000;
inline constexpr u32 DB_INDEX_FOLDER_UPDATE_TYPE = 2;
inline constexpr u32 DB_INDEX_FOLDER_UPDATE_VALUE = 3;

// Bytes of the reference number behind the columns of a folder of that type.
inline u32 db_index_type_frn_size(db_index_type_t type) {
    return type == DB_INDEX_TYPE_NTFS ? 8 : type == DB_INDEX_TYPE_REFS ? 16 : 0;
}

// A record of the type's size that is not in any list yet: all zero, but a folder's has the defaults of its
// schedule.
db_index_t *db_index_alloc(db_index_type_t type);
// Appends it to the database's list, and gives it its place.
void _db_index_add(db_t *db, db_index_t *index, u32 out_of_date);
db_index_t *db_index_get(const db_t *db, u32 ordinal);
// The file of a file list; empty for other sources.
const char *db_index_get_file_list_filename(const db_index_t *index);

// The source that equals what is asked for, texts byte by byte; 0 for none. Of several volumes the first that
// is not out of date, or else the first.
db_index_volume_t *db_index_find_ntfs(const db_t *db, const char *guid, const char *path, const char *root,
                                      const char *include_only);
db_index_volume_t *db_index_find_refs(const db_t *db, const char *guid, const char *path, const char *root,
                                      const char *include_only);
db_index_file_list_t *db_index_find_file_list(const db_t *db, const char *filename, bool monitor);
// Compares the path and the five values of the schedule with those of `like`, which need be in no list.
db_index_folder_t *db_index_find_folder(const db_t *db, const db_index_folder_t *like);

// Frees the record and the texts that it owns. It must be in no list.
void db_index_destroy(db_index_t *index);
void db_index_destroy_all(db_t *db);

} // namespace findwright
