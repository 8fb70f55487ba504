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
    u32 size;        // bytes of this record with what its type adds
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

// Bytes of the reference number behind the columns of a folder of that type.
inline u32 db_index_type_frn_size(db_index_type_t type) {
    return type == DB_INDEX_TYPE_NTFS ? 8 : type == DB_INDEX_TYPE_REFS ? 16 : 0;
}

// A record of `size` bytes that is not in any list yet, all zero but for its type.
db_index_t *db_index_alloc(db_index_type_t type, u32 size);
// Appends it to the database's list, and gives it its place.
void _db_index_add(db_t *db, db_index_t *index, u32 out_of_date);
db_index_t *db_index_get(const db_t *db, u32 ordinal);
// Frees the record and the texts that it owns. It must be in no list.
void db_index_destroy(db_index_t *index);
void db_index_destroy_all(db_t *db);

} // namespace findwright
