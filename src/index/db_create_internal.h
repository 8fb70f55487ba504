// What the files of the rebuild share. See db_create.h for the picture.
#pragma once

#include "base/obstack.h"
#include "base/pointer_pool.h"
#include "index/db_create.h"

namespace findwright {

// Marks in `parent` of temporary records.
inline constexpr mem_ref_t DB_CREATE_ORPHAN = 0;
inline constexpr mem_ref_t DB_CREATE_ROOT = 1; // the item has no parent and is in the tree

struct db_rebuild_source_t {
    db_rebuild_source_t *next;
    db_index_t *index; // not in the database's list before the records are laid out
    u32 out_of_date;
    os_volume_t *volume;
    db_rebuild_read_proc_t *read;
    void *read_param;
    u32 folder_start, file_start; // where its items begin in the pools
    u32 folder_count, file_count;
};

struct db_rebuild_t {
    db_t *db;
    db_rebuild_source_t *source_first, *source_last;
    db_exclude_set_t exclude;
    db_rebuild_stats_t *stats;
    db_layout_t layout;

    obstack_bytes_t records;    // the temporary records
    pointer_pool_t folder_pool; // references to them, in the order of the read
    pointer_pool_t file_pool;
    mem_ref_t *folders, *files; // those that are in the tree
    u32 folder_count, file_count;
};

// The words behind the columns of a temporary record.
inline char *_db_create_folder_tail(const db_rebuild_t *rebuild, const db_item_t *folder) {
    return db_item_columns(folder) + rebuild->layout.folder_data_size;
}
inline char *_db_create_file_tail(const db_rebuild_t *rebuild, const db_item_t *file) {
    return db_item_columns(file) + rebuild->layout.file_data_size;
}
inline u32 _db_create_get_slot(const db_rebuild_t *rebuild, const db_item_t *folder) {
    return db_load_u32(_db_create_folder_tail(rebuild, folder));
}
inline void _db_create_set_slot(const db_rebuild_t *rebuild, const db_item_t *folder, u32 slot) {
    db_store_u32(_db_create_folder_tail(rebuild, folder), slot);
}
inline u64 _db_create_get_frn(const db_rebuild_t *rebuild, const db_item_t *folder) {
    return db_load_u64(_db_create_folder_tail(rebuild, folder) + 8);
}
inline u32 _db_create_get_ordinal(const db_rebuild_t *rebuild, const db_item_t *folder) {
    return db_load_u32(_db_create_folder_tail(rebuild, folder) + 4);
}
inline constexpr u32 DB_CREATE_NTFS_FOLDER_TAIL = 16;
inline constexpr u32 DB_CREATE_FILE_TAIL = 4;

// Reads one NTFS source into temporary records and turns their parent numbers into parents.
void _db_create_read_ntfs(db_rebuild_t *rebuild, db_rebuild_source_t *source);
// Drops every item whose chain does not end at a root; chains that run in a circle do not. Fills the two
// tables.
void _db_create_drop_orphans(db_rebuild_t *rebuild);
// Sorts the items, lays out the final records and fills every array.
void _db_create_lay_out(db_rebuild_t *rebuild);

} // namespace findwright
