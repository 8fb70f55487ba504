// The rebuild's temporary records, and the stores that they lie in.
#include "base/mem.h"
#include "index/db_create_internal.h"

namespace findwright {

// --- Stores ------------------------------------------------------------------------------------------------

void _db_create_store_init(db_create_store_t *store) {
    obstack_bytes_init(&store->records);
    pointer_pool_init(&store->folders);
    pointer_pool_init(&store->files);
    store->next = nullptr;
}

void _db_create_store_kill(db_create_store_t *store) {
    obstack_bytes_kill(&store->records);
    pointer_pool_kill(&store->folders);
    pointer_pool_kill(&store->files);
}

static void _db_create_append(pointer_pool_t *to, pointer_pool_t *from) {
    u32 count = pointer_pool_count(from);
    for (u32 i = 0; i < count; i++)
        pointer_pool_push(to, pointer_pool_get(from, i));
    pointer_pool_kill(from);
    pointer_pool_init(from);
}

void _db_create_take_store(db_rebuild_t *rebuild, db_create_store_t *store) {
    _db_create_append(&rebuild->store.folders, &store->folders);
    _db_create_append(&rebuild->store.files, &store->files);
    store->next = rebuild->store_others;
    rebuild->store_others = store;
}

void _db_create_free_records(db_rebuild_t *rebuild) {
    _db_create_store_kill(&rebuild->store);
    _db_create_store_init(&rebuild->store);
    while (db_create_store_t *store = rebuild->store_others) {
        rebuild->store_others = store->next;
        _db_create_store_kill(store);
        mem_free(store);
    }
}

// --- Records -----------------------------------------------------------------------------------------------

db_item_t *_db_create_add_record(obstack_bytes_t *records, pointer_pool_t *pool, mem_ref_t parent,
                                 const db_index_t *root_index, const char *name, u32 length, u32 size) {
    bool is_root = root_index != nullptr;
    char *block = static_cast<char *>(
        obstack_bytes_alloc(records, db_item_prefix_size(length, is_root) + DB_ITEM_HEAD + length + size));
    db_item_t *item =
        db_item_write_head(block, parent, is_root, is_root ? mem_ref(root_index) : 0, name, length);
    pointer_pool_push(pool, mem_ref(item));
    return item;
}

// Dates and attributes stand in the same order in files and folders.
static char *_db_create_store_rest(u32 flags, char *columns, const db_file_info_t *info) {
    if (flags & DB_FLAG_DATE_CREATED) {
        db_store_u64(columns, info->date_created);
        columns += 8;
    }
    if (flags & DB_FLAG_DATE_MODIFIED) {
        db_store_u64(columns, info->date_modified);
        columns += 8;
    }
    if (flags & DB_FLAG_DATE_ACCESSED) {
        db_store_u64(columns, info->date_accessed);
        columns += 8;
    }
    if (flags & DB_FLAG_ATTRIBUTES) {
        db_store_u32(columns, info->attributes);
        columns += 4;
    }
    return columns;
}

char *_db_create_store_folder_columns(u32 flags, const db_item_t *folder, const db_file_info_t *info) {
    char *columns = db_item_columns(folder);
    if (flags & DB_FLAG_FOLDER_SIZE) {
        db_store_u64(columns, 0);
        columns += 8;
    }
    return _db_create_store_rest(flags, columns, info);
}

char *_db_create_store_file_columns(u32 flags, const db_item_t *file, const db_file_info_t *info) {
    char *columns = db_item_columns(file);
    if (flags & DB_FLAG_SIZE) {
        db_store_u64(columns, info->size);
        columns += 8;
    }
    return _db_create_store_rest(flags, columns, info);
}

static constexpr db_file_info_t _db_create_made_up = {0, VALUE_UNKNOWN, VALUE_UNKNOWN, VALUE_UNKNOWN,
                                                      ATTRIBUTE_DIRECTORY};

static const db_index_t *_db_create_root_index(const db_create_source_t *source, mem_ref_t parent) {
    return parent == DB_CREATE_ROOT ? source->index : nullptr;
}

db_item_t *_db_create_add_folder(const db_rebuild_t *rebuild, const db_create_source_t *source,
                                 db_create_store_t *store, const db_create_item_t *item) {
    db_item_t *folder = _db_create_add_record(
        &store->records, &store->folders, item->parent, _db_create_root_index(source, item->parent),
        item->name, item->length, rebuild->layout.folder_data_size + DB_CREATE_FOLDER_TAIL);
    char *tail = _db_create_store_folder_columns(rebuild->layout.flags, folder,
                                                 item->info ? item->info : &_db_create_made_up);
    db_store_u32(tail, 0);
    db_store_u32(tail + 4, source->index->ordinal);
    db_store_u32(tail + 8, item->sequence);
    return folder;
}

db_item_t *_db_create_add_file(const db_rebuild_t *rebuild, const db_create_source_t *source,
                               db_create_store_t *store, const db_create_item_t *item) {
    db_item_t *file = _db_create_add_record(
        &store->records, &store->files, item->parent, _db_create_root_index(source, item->parent), item->name,
        item->length, rebuild->layout.file_data_size + DB_CREATE_FILE_TAIL);
    db_store_u32(_db_create_store_file_columns(rebuild->layout.flags, file, item->info), item->sequence);
    return file;
}

} // namespace findwright
