#include "db/db_file.h"

namespace findwright {

db_file_t *db_file_alloc(db_t *db, db_index_t *index, mem_ref_t parent, const char *name, u32 length) {
    bool top = parent == 0;
    u32 size = db_item_prefix_size(length, top) + DB_ITEM_HEAD + length + db->layout.file_data_size;
    char *block = static_cast<char *>(db_mem_alloc(&db->mem, size));
    return static_cast<db_file_t *>(
        db_item_write_head(block, parent, top, top ? mem_ref(index) : 0, name, length));
}

void db_file_free(db_t *db, db_file_t *file) {
    u32 length = db_item_get_name_length(file);
    u32 prefix = db_item_prefix_size(length, file->parent == 0);
    db_mem_free(&db->mem, reinterpret_cast<char *>(file) - prefix,
                prefix + DB_ITEM_HEAD + length + db->layout.file_data_size);
}

int db_file_compare_size(const db_t *db, const db_item_t *a, const db_item_t *b) {
    return db_value_compare(db_file_get_size(db, a), db_file_get_size(db, b), a, b);
}
int db_file_compare_date_created(const db_t *db, const db_item_t *a, const db_item_t *b) {
    return db_value_compare(db_file_get_date_created(db, a), db_file_get_date_created(db, b), a, b);
}
int db_file_compare_date_modified(const db_t *db, const db_item_t *a, const db_item_t *b) {
    return db_value_compare(db_file_get_date_modified(db, a), db_file_get_date_modified(db, b), a, b);
}
int db_file_compare_date_accessed(const db_t *db, const db_item_t *a, const db_item_t *b) {
    return db_value_compare(db_file_get_date_accessed(db, a), db_file_get_date_accessed(db, b), a, b);
}
int db_file_compare_attributes(const db_t *db, const db_item_t *a, const db_item_t *b) {
    int result = db_attributes_compare(db_file_get_attributes(db, a), db_file_get_attributes(db, b));
    return result ? result : db_item_compare_name(a, b);
}
int db_file_compare_extension(const db_t *, const db_item_t *a, const db_item_t *b) {
    int result = db_extension_compare(a, b);
    return result ? result : db_item_compare_name(a, b);
}

} // namespace findwright
