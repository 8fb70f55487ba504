// What the files of the rebuild share. See db_create.h for the picture.
#pragma once

#include "base/obstack.h"
#include "base/pointer_pool.h"
#include "db/db_file_info.h"
#include "index/db_create.h"

namespace findwright {

// Marks in `parent` of temporary records.
inline constexpr mem_ref_t DB_CREATE_ORPHAN = 0;
inline constexpr mem_ref_t DB_CREATE_ROOT = 1;         // the item has no parent and is in the tree
inline constexpr mem_ref_t DB_CREATE_INCLUDE_ROOT = 2; // so far only: a root that takes a volume's place
inline constexpr mem_ref_t DB_CREATE_FOREIGN = 3;      // while items are copied: a folder of another source

inline constexpr u32 ATTRIBUTE_HIDDEN = 2;
inline constexpr u32 ATTRIBUTE_SYSTEM = 4;
inline constexpr u32 ATTRIBUTE_DIRECTORY = 0x10;

// Temporary records, and the references to them in the order they were made. One thread at a time adds to a
// store; a source that is read by several threads has a store for each.
struct db_create_store_t {
    obstack_bytes_t records;
    pointer_pool_t folders, files;
    db_create_store_t *next;
};

// A source at work. The database's own index of the same source, if there is one, is `existing`.
struct db_create_source_t {
    db_create_source_t *next;
    db_source_t *wanted;
    db_index_t *index; // the wanted one; in the database's list once the records are laid out
    db_index_t *existing;
    bool is_reused;
    u32 out_of_date;
    u32 folder_start, file_start; // where its items begin in the rebuild's own store, when it was read there
    u32 folder_count, file_count;
};

struct db_rebuild_t {
    db_t *db;
    db_create_source_t *source_first, *source_last;
    db_exclude_set_t exclude;
    db_rebuild_stats_t *stats;
    db_layout_t layout;

    db_create_store_t store;         // all references come together here
    db_create_store_t *store_others; // only their records still count
    mem_ref_t *folders, *files;      // those that are in the tree
    u32 folder_count, file_count;
};

void _db_create_store_init(db_create_store_t *store);
void _db_create_store_kill(db_create_store_t *store);
// Appends a store's references to the rebuild's own, and keeps its records to the end of the rebuild. The
// store must come from mem_alloc, and is the rebuild's from then on.
void _db_create_take_store(db_rebuild_t *rebuild, db_create_store_t *store);

// Frees all temporary records.
void _db_create_free_records(db_rebuild_t *rebuild);

inline bool _db_create_is_cancelled(const db_rebuild_t *rebuild) {
    return rebuild->db->cancel_rebuild.load(std::memory_order_relaxed) != 0;
}

// Shows a status text of db_create_texts with the source's names as the user writes them.
void _db_create_show(const db_rebuild_t *rebuild, const char *format, const char *name, const char *second);

// --- Temporary records -------------------------------------------------------------------------------------

// Bytes behind the columns.
inline constexpr u32 DB_CREATE_NTFS_FOLDER_TAIL = 16;
inline constexpr u32 DB_CREATE_FOLDER_TAIL = 12;
inline constexpr u32 DB_CREATE_FILE_TAIL = 4;

// An item to be added. Without `info` the folder is one that only its items tell of: of no date and size 0.
struct db_create_item_t {
    mem_ref_t parent; // a temporary record, or DB_CREATE_ROOT
    const char *name;
    u32 length;
    const db_file_info_t *info;
    u32 sequence;
};
// Both add a record of a source that is no volume. A top item belongs to the source's index.
db_item_t *_db_create_add_folder(const db_rebuild_t *rebuild, const db_create_source_t *source,
                                 db_create_store_t *store, const db_create_item_t *item);
db_item_t *_db_create_add_file(const db_rebuild_t *rebuild, const db_create_source_t *source,
                               db_create_store_t *store, const db_create_item_t *item);
// Writes the columns of a record whose head stands. Returns their end. A folder's size is 0.
char *_db_create_store_folder_columns(u32 flags, const db_item_t *folder, const db_file_info_t *info);
char *_db_create_store_file_columns(u32 flags, const db_item_t *file, const db_file_info_t *info);
// A record with the head written, in a store. `size` bytes stand behind the name. `root_index`: 0 below the
// top.
db_item_t *_db_create_add_record(obstack_bytes_t *records, pointer_pool_t *pool, mem_ref_t parent,
                                 const db_index_t *root_index, const char *name, u32 length, u32 size);

// The words behind the columns.
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
inline u32 _db_create_get_ordinal(const db_rebuild_t *rebuild, const db_item_t *folder) {
    return db_load_u32(_db_create_folder_tail(rebuild, folder) + 4);
}
inline u64 _db_create_get_frn(const db_rebuild_t *rebuild, const db_item_t *folder) {
    return db_load_u64(_db_create_folder_tail(rebuild, folder) + 8);
}

// --- The sources -------------------------------------------------------------------------------------------

// Each reads a source into temporary records that are linked. False when it could not be opened: then nothing
// was added.
bool _db_create_read_ntfs(db_rebuild_t *rebuild, db_create_source_t *source);
bool _db_create_read_file_list(db_rebuild_t *rebuild, db_create_source_t *source);
bool _db_create_read_folder(db_rebuild_t *rebuild, db_create_source_t *source);
// Copies the items of all sources marked as reused from the database's content, in one pass.
void _db_create_reuse(db_rebuild_t *rebuild);

// The folders of a volume in the order of their numbers: the keys apart, so that a search stays in the cache.
struct db_create_numbers_t {
    u64 *frns;
    mem_ref_t *folders;
    u32 count;
};
// db_create_ntfs_tree.cpp: both run on linked folders, before the files are linked to what then stands in the
// table. The first makes the volume's folder `root` the root of its items, the second makes roots of the
// folders of the list `include_only`; what lies beside them becomes an orphan.
void _db_create_find_root(db_rebuild_t *rebuild, db_create_source_t *source, db_create_numbers_t *numbers);
void _db_create_include_only(db_rebuild_t *rebuild, db_create_source_t *source, db_create_numbers_t *numbers);

// --- The phases --------------------------------------------------------------------------------------------

// Drops every item that is left out, and every one whose chain does not end at a root; chains that run in a
// circle do not. Fills the two tables.
void _db_create_drop_orphans(db_rebuild_t *rebuild);
// Sorts the items, lays out the final records and fills every array.
void _db_create_lay_out(db_rebuild_t *rebuild);

} // namespace findwright
