// Folder records: making, freeing, reading their columns and reference numbers.
#pragma once

#include "db/db.h"

namespace findwright {

// The id of a ReFS folder. Orders by the high word first.
struct db_frn128_t {
    u64 low;
    u64 high;
};

// A new record with columns not yet set. `index` gives the type, and with it the room for a reference number;
// as a word of the record it counts only without a parent.
db_folder_t *db_folder_alloc(db_t *db, db_index_t *index, mem_ref_t parent, const char *name, u32 length);
db_folder_t *db_folder_alloc_ntfs(db_t *db, db_index_t *index, u64 frn, mem_ref_t parent, const char *name,
                                  u32 length);
db_folder_t *db_folder_alloc_refs(db_t *db, db_index_t *index, db_frn128_t frn, mem_ref_t parent,
                                  const char *name, u32 length);
void db_folder_free(db_t *db, db_folder_t *folder);
// The same for a folder of an index of that type, whose chain need not be whole.
void db_folder_free_typed(db_t *db, db_folder_t *folder, db_index_type_t type);

// The file reference number of a folder of an NTFS index.
inline u64 db_folder_get_frn(const db_t *db, const db_item_t *folder) {
    return db_load_u64(db_item_columns(folder) + db->layout.folder_data_size);
}

// The id of a folder of a ReFS index.
inline db_frn128_t db_folder_get_frn128(const db_t *db, const db_item_t *folder) {
    const char *frn = db_item_columns(folder) + db->layout.folder_data_size;
    return {db_load_u64(frn), db_load_u64(frn + 8)};
}

// The folder of an index with that number, or 0.
db_folder_t *db_folder_find_by_frn(db_t *db, const db_index_t *index, u64 frn);
db_folder_t *db_folder_find_by_frn128(db_t *db, const db_index_t *index, db_frn128_t frn);
// The orders of folder_frn_array and folder_frn128_array: number, ordinal, address.
int db_folder_compare_frn(const db_t *db, const db_item_t *a, const db_item_t *b);
int db_folder_compare_frn128(const db_t *db, const db_item_t *a, const db_item_t *b);

// The orders of the columns: unknown values first, equal ones by name.
int db_folder_compare_size(const db_t *db, const db_item_t *a, const db_item_t *b);
int db_folder_compare_date_created(const db_t *db, const db_item_t *a, const db_item_t *b);
int db_folder_compare_date_modified(const db_t *db, const db_item_t *a, const db_item_t *b);
int db_folder_compare_date_accessed(const db_t *db, const db_item_t *a, const db_item_t *b);
int db_folder_compare_attributes(const db_t *db, const db_item_t *a, const db_item_t *b);

// True when one of the folders, a table in the order of the references, is the item's parent or further up.
bool db_item_is_below(const db_item_t *item, const mem_ref_t *folders, u32 count);

// Column readers: VALUE_UNKNOWN (attributes: 0) where the layout lacks the column.
inline u64 db_folder_get_size(const db_t *db, const db_item_t *folder) {
    return db->layout.flags & DB_FLAG_FOLDER_SIZE ? db_load_u64(db_item_columns(folder)) : VALUE_UNKNOWN;
}
inline u64 db_folder_get_date_created(const db_t *db, const db_item_t *folder) {
    return db->layout.flags & DB_FLAG_DATE_CREATED
               ? db_load_u64(db_item_columns(folder) + db->layout.folder_date_created_offset)
               : VALUE_UNKNOWN;
}
inline u64 db_folder_get_date_modified(const db_t *db, const db_item_t *folder) {
    return db->layout.flags & DB_FLAG_DATE_MODIFIED
               ? db_load_u64(db_item_columns(folder) + db->layout.folder_date_modified_offset)
               : VALUE_UNKNOWN;
}
inline u64 db_folder_get_date_accessed(const db_t *db, const db_item_t *folder) {
    return db->layout.flags & DB_FLAG_DATE_ACCESSED
               ? db_load_u64(db_item_columns(folder) + db->layout.folder_date_accessed_offset)
               : VALUE_UNKNOWN;
}
inline u32 db_folder_get_attributes(const db_t *db, const db_item_t *folder) {
    return db->layout.flags & DB_FLAG_ATTRIBUTES
               ? db_load_u32(db_item_columns(folder) + db->layout.folder_attributes_offset)
               : 0;
}

} // namespace findwright
