// File records: making, freeing, and reading their columns.
#pragma once

#include "db/db.h"

namespace findwright {

// A new record with columns not yet set. `index` counts only without a parent.
db_file_t *db_file_alloc(db_t *db, db_index_t *index, mem_ref_t parent, const char *name, u32 length);
void db_file_free(db_t *db, db_file_t *file);

// Column readers: VALUE_UNKNOWN (attributes: 0) where the layout lacks the column.
inline u64 db_file_get_size(const db_t *db, const db_item_t *file) {
    return db->layout.flags & DB_FLAG_SIZE ? db_load_u64(db_item_columns(file)) : VALUE_UNKNOWN;
}
inline u64 db_file_get_date_created(const db_t *db, const db_item_t *file) {
    return db->layout.flags & DB_FLAG_DATE_CREATED
               ? db_load_u64(db_item_columns(file) + db->layout.file_date_created_offset)
               : VALUE_UNKNOWN;
}
inline u64 db_file_get_date_modified(const db_t *db, const db_item_t *file) {
    return db->layout.flags & DB_FLAG_DATE_MODIFIED
               ? db_load_u64(db_item_columns(file) + db->layout.file_date_modified_offset)
               : VALUE_UNKNOWN;
}
inline u64 db_file_get_date_accessed(const db_t *db, const db_item_t *file) {
    return db->layout.flags & DB_FLAG_DATE_ACCESSED
               ? db_load_u64(db_item_columns(file) + db->layout.file_date_accessed_offset)
               : VALUE_UNKNOWN;
}
inline u32 db_file_get_attributes(const db_t *db, const db_item_t *file) {
    return db->layout.flags & DB_FLAG_ATTRIBUTES
               ? db_load_u32(db_item_columns(file) + db->layout.file_attributes_offset)
               : 0;
}

// The orders of the columns: unknown values first, equal ones by name.
int db_file_compare_size(const db_t *db, const db_item_t *a, const db_item_t *b);
int db_file_compare_date_created(const db_t *db, const db_item_t *a, const db_item_t *b);
int db_file_compare_date_modified(const db_t *db, const db_item_t *a, const db_item_t *b);
int db_file_compare_date_accessed(const db_t *db, const db_item_t *a, const db_item_t *b);
int db_file_compare_attributes(const db_t *db, const db_item_t *a, const db_item_t *b);
int db_file_compare_extension(const db_t *db, const db_item_t *a, const db_item_t *b);

} // namespace findwright
