#include "db/db_folder.h"

namespace findwright {

db_folder_t *db_folder_alloc(db_t *db, db_index_t *index, mem_ref_t parent, const char *name, u32 length) {
    bool top = parent == 0;
    u32 size = db_item_prefix_size(length, top) + DB_ITEM_HEAD + length + db->layout.folder_data_size +
               db_index_type_frn_size(index->type);
    char *block = static_cast<char *>(db_mem_alloc(&db->mem, size));
    return static_cast<db_folder_t *>(
        db_item_write_head(block, parent, top, top ? mem_ref(index) : 0, name, length));
}

db_folder_t *db_folder_alloc_ntfs(db_t *db, db_index_t *index, u64 frn, mem_ref_t parent, const char *name,
                                  u32 length) {
    db_folder_t *folder = db_folder_alloc(db, index, parent, name, length);
    db_store_u64(db_item_columns(folder) + db->layout.folder_data_size, frn);
    return folder;
}

void db_folder_free(db_t *db, db_folder_t *folder) {
    u32 length = db_item_get_name_length(folder);
    u32 prefix = db_item_prefix_size(length, folder->parent == 0);
    u32 size = prefix + DB_ITEM_HEAD + length + db->layout.folder_data_size +
               db_index_type_frn_size(db_get_index(folder)->type);
    db_mem_free(&db->mem, reinterpret_cast<char *>(folder) - prefix, size);
}

struct _db_frn_key_t {
    const db_t *db;
    u32 ordinal;
    u64 frn;
};

static int _db_folder_compare_frn_key(u32 value, const void *key_pointer) {
    const _db_frn_key_t *key = static_cast<const _db_frn_key_t *>(key_pointer);
    const db_item_t *folder = db_item(value);
    u64 frn = db_folder_get_frn(key->db, folder);
    if (frn != key->frn)
        return frn < key->frn ? -1 : 1;
    u32 ordinal = db_get_index(folder)->ordinal;
    return ordinal < key->ordinal ? -1 : ordinal > key->ordinal;
}

int db_folder_compare_frn(const db_t *db, const db_item_t *a, const db_item_t *b) {
    _db_frn_key_t key = {db, db_get_index(b)->ordinal, db_folder_get_frn(db, b)};
    if (int result = _db_folder_compare_frn_key(mem_ref(a), &key))
        return result;
    return a < b ? -1 : a > b;
}

db_folder_t *db_folder_find_by_frn(db_t *db, const db_index_t *index, u64 frn) {
    _db_frn_key_t key = {db, index->ordinal, frn};
    mem_ref_t ref = array_find(&db->folder_frn_array, _db_folder_compare_frn_key, &key);
    return ref ? mem_ptr<db_folder_t>(ref) : nullptr;
}

} // namespace findwright
