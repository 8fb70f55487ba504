#include "db/db_folder.h"

#include <algorithm>

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

void db_folder_free_typed(db_t *db, db_folder_t *folder, db_index_type_t type) {
    u32 length = db_item_get_name_length(folder);
    u32 prefix = db_item_prefix_size(length, folder->parent == 0);
    u32 size = prefix + DB_ITEM_HEAD + length + db->layout.folder_data_size + db_index_type_frn_size(type);
    db_mem_free(&db->mem, reinterpret_cast<char *>(folder) - prefix, size);
}

void db_folder_free(db_t *db, db_folder_t *folder) {
    db_folder_free_typed(db, folder, db_get_index(folder)->type);
}

db_folder_t *db_folder_alloc_refs(db_t *db, db_index_t *index, db_frn128_t frn, mem_ref_t parent,
                                  const char *name, u32 length) {
    db_folder_t *folder = db_folder_alloc(db, index, parent, name, length);
    char *end = db_item_columns(folder) + db->layout.folder_data_size;
    db_store_u64(end, frn.low);
    db_store_u64(end + 8, frn.high);
    return folder;
}

// --- Reference numbers -------------------------------------------------------------------------------------

// A number of either width, as two words: one of 64 bits has a high word of 0.
struct _db_frn_key_t {
    const db_t *db;
    u32 ordinal;
    db_frn128_t frn;
};

static int _db_frn_compare(db_frn128_t frn, const db_item_t *folder, const _db_frn_key_t *key) {
    if (frn.high != key->frn.high)
        return frn.high < key->frn.high ? -1 : 1;
    if (frn.low != key->frn.low)
        return frn.low < key->frn.low ? -1 : 1;
    u32 ordinal = db_get_index(folder)->ordinal;
    return ordinal < key->ordinal ? -1 : ordinal > key->ordinal;
}

static db_frn128_t _db_folder_get_wide_frn(const db_t *db, const db_item_t *folder) {
    return {db_folder_get_frn(db, folder), 0};
}

template<db_frn128_t (*get)(const db_t *db, const db_item_t *folder)>
static int _db_folder_compare_key(u32 value, const void *key_pointer) {
    const _db_frn_key_t *key = static_cast<const _db_frn_key_t *>(key_pointer);
    return _db_frn_compare(get(key->db, db_item(value)), db_item(value), key);
}

template<db_frn128_t (*get)(const db_t *db, const db_item_t *folder)>
static int _db_folder_compare_number(const db_t *db, const db_item_t *a, const db_item_t *b) {
    _db_frn_key_t key = {db, db_get_index(b)->ordinal, get(db, b)};
    if (int result = _db_frn_compare(get(db, a), a, &key))
        return result;
    return a < b ? -1 : a > b;
}

int db_folder_compare_frn(const db_t *db, const db_item_t *a, const db_item_t *b) {
    return _db_folder_compare_number<_db_folder_get_wide_frn>(db, a, b);
}
int db_folder_compare_frn128(const db_t *db, const db_item_t *a, const db_item_t *b) {
    return _db_folder_compare_number<db_folder_get_frn128>(db, a, b);
}

static db_folder_t *_db_folder_of(mem_ref_t ref) {
    return ref ? mem_ptr<db_folder_t>(ref) : nullptr;
}

db_folder_t *db_folder_find_by_frn(db_t *db, const db_index_t *index, u64 frn) {
    _db_frn_key_t key = {db, index->ordinal, {frn, 0}};
    return _db_folder_of(
        array_find(&db->folder_frn_array, _db_folder_compare_key<_db_folder_get_wide_frn>, &key));
}

db_folder_t *db_folder_find_by_frn128(db_t *db, const db_index_t *index, db_frn128_t frn) {
    _db_frn_key_t key = {db, index->ordinal, frn};
    return _db_folder_of(
        array_find(&db->folder_frn128_array, _db_folder_compare_key<db_folder_get_frn128>, &key));
}

// --- Columns -----------------------------------------------------------------------------------------------

int db_folder_compare_size(const db_t *db, const db_item_t *a, const db_item_t *b) {
    return db_value_compare(db_folder_get_size(db, a), db_folder_get_size(db, b), a, b);
}
int db_folder_compare_date_created(const db_t *db, const db_item_t *a, const db_item_t *b) {
    return db_value_compare(db_folder_get_date_created(db, a), db_folder_get_date_created(db, b), a, b);
}
int db_folder_compare_date_modified(const db_t *db, const db_item_t *a, const db_item_t *b) {
    return db_value_compare(db_folder_get_date_modified(db, a), db_folder_get_date_modified(db, b), a, b);
}
int db_folder_compare_date_accessed(const db_t *db, const db_item_t *a, const db_item_t *b) {
    return db_value_compare(db_folder_get_date_accessed(db, a), db_folder_get_date_accessed(db, b), a, b);
}
int db_folder_compare_attributes(const db_t *db, const db_item_t *a, const db_item_t *b) {
    int result = db_attributes_compare(db_folder_get_attributes(db, a), db_folder_get_attributes(db, b));
    return result ? result : db_item_compare_name(a, b);
}

bool db_item_is_below(const db_item_t *item, const mem_ref_t *folders, u32 count) {
    for (mem_ref_t ref = item->parent; ref >= MEM_REF_FIRST; ref = db_item(ref)->parent) {
        if (std::binary_search(folders, folders + count, ref))
            return true;
    }
    return false;
}

} // namespace findwright
