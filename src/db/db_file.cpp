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

} // namespace findwright
