#include "db/db_extended_info_internal.h"
#include "db/db_index.h"
#include "db/db_item_set.h"
#include "os/os_folder.h"
#include "os/os_shell.h"

#include <new>

namespace findwright {

static bool _db_info_read_file_info(const char *path, bool is_top, db_file_info_t *out) {
    os_folder_entry_t entry;
    if (is_top ? !os_folder_get_entry(path, &entry) : !os_folder_get_link_entry(path, &entry))
        return false;
    *out = {entry.is_folder ? VALUE_UNKNOWN : entry.size, entry.date_modified, entry.date_created,
            entry.date_accessed, entry.attributes};
    return true;
}

const db_info_loader_t db_info_system_loader = {
    _db_info_read_file_info, nullptr, nullptr, nullptr, os_get_type_name,
    os_get_folder_type_name, nullptr, nullptr,
};

// --- Life --------------------------------------------------------------------------------------------------

db_extended_info_t *db_extended_info_create(db_t *, event_proc_t *arrived_proc, void *param) {
    db_extended_info_t *info = new (mem_alloc(sizeof(db_extended_info_t))) db_extended_info_t();
    info->loader = &db_info_system_loader;
    info->arrived_proc = arrived_proc;
    info->arrived_param = param;
    db_mem_init(&info->fileinfo_mem);
    db_extension_cache_init(info);
    return info;
}

static void _db_look_free_thumbnail(const db_extended_info_t *info, db_look_t *look) {
    if (look->thumbnail)
        info->loader->free_thumbnail(look->thumbnail);
}

void db_extended_info_clear(db_extended_info_t *info) {
    db_info_requests_clear(info);
    for (u32 i = 0; i < ref_map_capacity(&info->looks); i++) {
        if (info->looks.slots[i].key != 0)
            _db_look_free_thumbnail(info, &info->looks.slots[i].value);
    }
    ref_map_kill(&info->looks);
    std::lock_guard lock(info->lock);
    ref_map_kill(&info->fileinfo_cache);
    db_mem_kill(&info->fileinfo_mem);
    db_mem_init(&info->fileinfo_mem);
}

void db_extended_info_destroy(db_extended_info_t *info) {
    db_extended_info_clear(info);
    db_mem_kill(&info->fileinfo_mem);
    db_extension_cache_kill(info);
    info->~db_extended_info_t();
    mem_free(info);
}

void db_extended_info_set_loader(db_extended_info_t *info, const db_info_loader_t *loader) {
    db_extended_info_clear(info);
    info->loader = loader;
}

static void _db_fileinfo_cache_forget(db_extended_info_t *info, mem_ref_t item) {
    std::lock_guard lock(info->lock);
    if (mem_ref_t *entry = ref_map_find(&info->fileinfo_cache, item)) {
        db_mem_free(&info->fileinfo_mem, mem_ptr<db_fileinfo_entry_t>(*entry), sizeof(db_fileinfo_entry_t));
        ref_map_remove(&info->fileinfo_cache, item);
    }
}

void db_extended_info_item_removed(db_extended_info_t *info, const db_item_t *item) {
    mem_ref_t ref = mem_ref(item);
    db_info_requests_forget(info, ref);
    if (db_look_t *look = ref_map_find(&info->looks, ref)) {
        _db_look_free_thumbnail(info, look);
        ref_map_remove(&info->looks, ref);
    }
    _db_fileinfo_cache_forget(info, ref);
}

void db_extended_info_item_changed(db_extended_info_t *info, const db_item_t *item) {
    mem_ref_t ref = mem_ref(item);
    db_info_requests_forget(info, ref);
    if (db_look_t *look = ref_map_find(&info->looks, ref)) {
        _db_look_free_thumbnail(info, look);
        look->thumbnail = nullptr;
        look->has_thumbnail = false;
    }
    _db_fileinfo_cache_forget(info, ref);
}

void db_extended_info_item_moved(db_extended_info_t *info, const db_item_t *item, const db_item_t *to) {
    db_file_info_t file;
    u32 batch;
    bool is_known = db_fileinfo_cache_find(info, mem_ref(item), &file, &batch);
    db_extended_info_item_removed(info, item);
    if (is_known)
        db_fileinfo_cache_keep(info, mem_ref(to), &file, batch);
}

// The keys of a map that are members of one of two sets.
template<class value_t>
static void _db_collect_members(const ref_map_t<value_t> *map, const db_item_set_t *folders,
                                const db_item_set_t *files, mem_ref_t *members, u32 *count) {
    for (u32 i = 0; i < ref_map_capacity(map); i++) {
        mem_ref_t item = map->slots[i].key;
        if (item != 0 && (db_item_set_has(folders, item) || db_item_set_has(files, item)))
            members[(*count)++] = item;
    }
}

void db_extended_info_items_removed(db_extended_info_t *info, const db_item_set_t *folders,
                                    const db_item_set_t *files) {
    size_t most = static_cast<size_t>(info->looks.count) + info->fileinfo_cache.count + 1;
    for (const db_info_requests_t &requests : info->requests)
        most += requests.by_key.count;
    mem_ref_t *members = static_cast<mem_ref_t *>(mem_alloc(most * sizeof *members));
    u32 count = 0;
    _db_collect_members(&info->looks, folders, files, members, &count);
    _db_collect_members(&info->fileinfo_cache, folders, files, members, &count);
    for (const db_info_requests_t &requests : info->requests)
        _db_collect_members(&requests.by_key, folders, files, members, &count);
    for (u32 i = 0; i < count; i++)
        db_extended_info_item_removed(info, db_item(members[i]));
    mem_free(members);
}

// --- Files, at once ----------------------------------------------------------------------------------------

static void _db_fileinfo_read(const db_info_loader_t *loader, const db_item_t *item, db_file_info_t *out) {
    utf8_buf_t path;
    utf8_buf_init(&path);
    db_info_get_path(item, &path);
    if (!loader->read_file_info || !os_path_is_own(path.data, static_cast<u32>(path.length)) ||
        !loader->read_file_info(path.data, db_item_is_top(item), out))
        db_file_info_clear(out);
    utf8_buf_kill(&path);
}

bool db_fileinfo_cache_find(db_extended_info_t *info, mem_ref_t item, db_file_info_t *out, u32 *batch) {
    std::lock_guard lock(info->lock);
    const mem_ref_t *found = ref_map_find(&info->fileinfo_cache, item);
    if (!found)
        return false;
    const auto *entry = mem_ptr<const db_fileinfo_entry_t>(*found);
    *out = {entry->size, entry->date_modified, entry->date_created, entry->date_accessed, entry->attributes};
    *batch = entry->batch;
    return true;
}

bool db_fileinfo_cache_keep(db_extended_info_t *info, mem_ref_t item, const db_file_info_t *file, u32 batch) {
    std::lock_guard lock(info->lock);
    mem_ref_t *ref = ref_map_make(&info->fileinfo_cache, item);
    if (*ref != 0)
        return false;
    auto *entry =
        static_cast<db_fileinfo_entry_t *>(db_mem_alloc(&info->fileinfo_mem, sizeof(db_fileinfo_entry_t)));
    *entry = {file->size,          file->date_modified, file->date_created,
              file->date_accessed, file->attributes,    batch};
    *ref = mem_ref(entry);
    return true;
}

static bool _db_fileinfo_get(db_extended_info_t *info, const db_item_t *item, u32 known_attributes,
                             db_file_info_t *out) {
    u32 batch;
    db_file_info_clear(out);
    if (db_get_index(item)->type == DB_INDEX_TYPE_FILE_LIST)
        return false;
    if (!db_fileinfo_cache_find(info, mem_ref(item), out, &batch)) {
        _db_fileinfo_read(info->loader, item, out);
        out->attributes |= known_attributes;
        if (!db_fileinfo_cache_keep(info, mem_ref(item), out, 0))
            db_fileinfo_cache_find(info, mem_ref(item), out, &batch); // another thread was faster
    }
    return true;
}

bool db_extended_info_find(db_extended_info_t *info, const db_item_t *item, db_file_info_t *out) {
    u32 batch;
    db_file_info_clear(out);
    return db_fileinfo_cache_find(info, mem_ref(item), out, &batch) ||
           db_get_index(item)->type == DB_INDEX_TYPE_FILE_LIST;
}

bool db_get_folder_fileinfo(db_extended_info_t *info, const db_item_t *folder, db_file_info_t *out) {
    bool has_file = _db_fileinfo_get(info, folder, OS_ATTRIBUTE_FOLDER, out);
    out->size = VALUE_UNKNOWN; // also of what is a file by now
    return has_file;
}

bool db_get_file_fileinfo(db_extended_info_t *info, const db_item_t *file, db_file_info_t *out) {
    return _db_fileinfo_get(info, file, 0, out);
}

} // namespace findwright
