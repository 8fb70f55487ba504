// The rebuild's copies of what the database already holds.
//
// All sources that are reused are copied in one pass over the old folders and one over the old files. While
// it runs, each old folder's `parent` holds its copy, or the mark of a folder that is not copied, so that the
// parent of a copy is one load away; afterwards the old records are as they were.
#include "base/mem.h"
#include "db/db_file.h"
#include "db/db_folder.h"
#include "index/db_create_internal.h"

#include <cstring>

namespace findwright {

struct _db_create_copy_t {
    db_rebuild_t *rebuild;
    db_create_source_t **sources; // by the ordinal of the old index; 0: not copied
    mem_ref_t *parents;           // of the old folders, or their copies, in name order
    u32 folder_start;             // of the copies in the store
    u32 sequence;
};

template<class Proc>
static void _db_create_for_each(const array_t *array, Proc proc) {
    for (u32 page = 0; page < array->page_count; page++) {
        const u32 *values = array_page_values(array->pages[page]);
        for (u32 i = 0; i < array->pages[page]->item_count; i++)
            proc(mem_ptr<db_item_t>(values[i]));
    }
}

static db_file_info_t _db_create_folder_info(const db_t *db, const db_item_t *folder) {
    return {0, db_folder_get_date_modified(db, folder), db_folder_get_date_created(db, folder),
            db_folder_get_date_accessed(db, folder), db_folder_get_attributes(db, folder)};
}

static db_file_info_t _db_create_file_info(const db_t *db, const db_item_t *file) {
    return {db_file_get_size(db, file), db_file_get_date_modified(db, file),
            db_file_get_date_created(db, file), db_file_get_date_accessed(db, file),
            db_file_get_attributes(db, file)};
}

// A copy whose parent still is the old one.
static mem_ref_t _db_create_copy_folder(_db_create_copy_t *copy, const db_create_source_t *source,
                                        const db_item_t *folder) {
    db_rebuild_t *rebuild = copy->rebuild;
    db_file_info_t info = _db_create_folder_info(rebuild->db, folder);
    u32 length;
    const char *name = db_item_get_name(folder, &length);
    mem_ref_t parent = folder->parent ? folder->parent : DB_CREATE_ROOT;
    if (source->index->type != DB_INDEX_TYPE_NTFS) {
        db_create_item_t item = {parent, name, length, &info, copy->sequence++};
        return mem_ref(_db_create_add_folder(rebuild, source, &rebuild->store, &item));
    }
    db_item_t *to = _db_create_add_record(&rebuild->store.records, &rebuild->store.folders, parent,
                                          folder->parent ? nullptr : source->index, name, length,
                                          rebuild->layout.folder_data_size + DB_CREATE_NTFS_FOLDER_TAIL);
    char *tail = _db_create_store_folder_columns(rebuild->layout.flags, to, &info);
    db_store_u32(tail, 0);
    db_store_u32(tail + 4, source->index->ordinal);
    db_store_u64(tail + 8, db_folder_get_frn(rebuild->db, folder));
    return mem_ref(to);
}

static void _db_create_copy_folders(_db_create_copy_t *copy) {
    db_rebuild_t *rebuild = copy->rebuild;
    u32 place = 0;
    _db_create_for_each(&rebuild->db->folder_name_array, [&](db_item_t *folder) {
        const db_create_source_t *source = copy->sources[db_get_index(folder)->ordinal];
        copy->parents[place++] = source ? _db_create_copy_folder(copy, source, folder) : DB_CREATE_FOREIGN;
    });
    place = 0;
    _db_create_for_each(&rebuild->db->folder_name_array, [&](db_item_t *folder) {
        mem_ref_t to = copy->parents[place];
        copy->parents[place++] = folder->parent;
        folder->parent = to;
    });
    u32 end = pointer_pool_count(&rebuild->store.folders);
    for (u32 i = copy->folder_start; i < end; i++) {
        db_item_t *folder = mem_ptr<db_item_t>(pointer_pool_get(&rebuild->store.folders, i));
        if (folder->parent != DB_CREATE_ROOT)
            folder->parent = db_item(folder->parent)->parent;
    }
}

static void _db_create_copy_files(_db_create_copy_t *copy) {
    db_rebuild_t *rebuild = copy->rebuild;
    _db_create_for_each(&rebuild->db->file_name_array, [&](db_item_t *file) {
        const db_create_source_t *source = nullptr;
        mem_ref_t parent = DB_CREATE_ROOT;
        if (file->parent) {
            parent = db_item(file->parent)->parent;
            if (parent == DB_CREATE_FOREIGN)
                return;
        } else {
            source = copy->sources[db_get_index(file)->ordinal];
            if (!source)
                return;
        }
        db_file_info_t info = _db_create_file_info(rebuild->db, file);
        u32 length;
        const char *name = db_item_get_name(file, &length);
        db_create_item_t item = {parent, name, length, &info, copy->sequence++};
        _db_create_add_file(rebuild, source, &rebuild->store, &item);
    });
}

// Chooses what one pass copies: of several sources that are the same index the first that was not copied.
static bool _db_create_choose(_db_create_copy_t *copy) {
    bool any = false;
    std::memset(copy->sources, 0, (copy->rebuild->db->index_count + 1) * sizeof *copy->sources);
    for (db_create_source_t *source = copy->rebuild->source_first; source; source = source->next) {
        if (!source->is_reused || !source->existing || copy->sources[source->existing->ordinal])
            continue;
        copy->sources[source->existing->ordinal] = source;
        source->existing = nullptr;
        any = true;
    }
    return any;
}

void _db_create_reuse(db_rebuild_t *rebuild) {
    db_t *db = rebuild->db;
    _db_create_copy_t copy = {rebuild, nullptr, nullptr, 0, 0};
    copy.sources =
        static_cast<db_create_source_t **>(mem_alloc((db->index_count + 1) * sizeof *copy.sources));
    copy.parents = static_cast<mem_ref_t *>(mem_alloc((db->folder_name_array.count + 1) * sizeof(mem_ref_t)));
    while (_db_create_choose(&copy)) {
        copy.folder_start = pointer_pool_count(&rebuild->store.folders);
        _db_create_copy_folders(&copy);
        _db_create_copy_files(&copy);
        u32 place = 0;
        _db_create_for_each(&db->folder_name_array,
                            [&](db_item_t *folder) { folder->parent = copy.parents[place++]; });
    }
    mem_free(copy.parents);
    mem_free(copy.sources);
}

} // namespace findwright
