// Live updates by path, of sources whose notifications tell nothing else.
#include "track/db_live_internal.h"

#include <cstring>

namespace findwright {

// The bytes of a path in front of the last component's separator; the source's root is one component.
struct _db_path_t {
    db_folder_t *parent; // 0: the index does not have it
    const char *name;
    u32 length;
};

static db_folder_t *_db_get_source_root(const db_t *db, const db_index_t *index, u32 *root_length) {
    if (index->type != DB_INDEX_TYPE_FOLDER)
        return nullptr;
    const char *path = static_cast<const db_index_folder_t *>(index)->path;
    u32 length = static_cast<u32>(std::strlen(path));
    while (length != 0 && path[length - 1] == '\\')
        length--;
    *root_length = length;
    return db_folder_find(db, index, nullptr, path, length);
}

static bool _db_is_below_text(const char *path, u32 length, const char *root, u32 root_length) {
    return length > root_length && std::memcmp(path, root, root_length) == 0 && path[root_length] == '\\';
}

db_folder_t *db_folder_find_path(const db_t *db, const db_index_t *index, const char *path, u32 length) {
    u32 root_length;
    db_folder_t *folder = _db_get_source_root(db, index, &root_length);
    if (!folder)
        return nullptr;
    u32 name_length;
    const char *root = db_item_get_name(folder, &name_length);
    while (length > root_length && path[length - 1] == '\\')
        length--;
    if (length == root_length && std::memcmp(path, root, length) == 0)
        return folder;
    if (!_db_is_below_text(path, length, root, root_length))
        return nullptr;
    for (u32 at = root_length + 1; folder && at <= length;) {
        const void *found = std::memchr(path + at, '\\', length - at);
        u32 end = found ? static_cast<u32>(static_cast<const char *>(found) - path) : length;
        folder = db_folder_find(db, index, folder, path + at, end - at);
        at = end + 1;
    }
    return folder;
}

// Parts a path below the root.
static _db_path_t _db_split_path(const db_t *db, const db_index_t *index, const char *path, u32 length) {
    u32 end = length;
    while (end != 0 && path[end - 1] != '\\')
        end--;
    if (end == 0 || end == length)
        return {};
    return {db_folder_find_path(db, index, path, end - 1), path + end, length - end};
}

db_file_t *db_file_find_path(const db_t *db, const db_index_t *index, const char *path, u32 length) {
    _db_path_t split = _db_split_path(db, index, path, length);
    return split.parent ? db_file_find(db, index, split.parent, split.name, split.length) : nullptr;
}

// --- Add and remove ----------------------------------------------------------------------------------------

static void _db_remove_other_file(db_t *db, const db_index_t *index, const _db_path_t *path) {
    db_file_remove(db, index, path->parent, path->name, path->length);
}

static void _db_remove_other_folder(db_t *db, const db_index_t *index, const _db_path_t *path) {
    if (db_folder_t *folder = db_folder_find(db, index, path->parent, path->name, path->length))
        db_folder_remove(db, folder);
}

db_file_t *db_file_add_path(db_t *db, db_index_t *index, const char *path, u32 length,
                            const db_file_info_t *info, u64 date) {
    _db_path_t split = _db_split_path(db, index, path, length);
    if (!split.parent)
        return nullptr;
    _db_remove_other_folder(db, index, &split);
    return db_file_add(db, index, split.parent, split.name, split.length, info, date);
}

db_folder_t *db_folder_add_path(db_t *db, db_index_t *index, const char *path, u32 length,
                                const db_file_info_t *info, u64 date) {
    _db_path_t split = _db_split_path(db, index, path, length);
    if (!split.parent)
        return nullptr;
    _db_remove_other_file(db, index, &split);
    return db_folder_add(db, index, split.parent, split.name, split.length, info, date);
}

bool db_file_remove_path(db_t *db, db_index_t *index, const char *path, u32 length) {
    db_file_t *file = db_file_find_path(db, index, path, length);
    if (file)
        db_file_remove_item(db, file);
    return file != nullptr;
}

// The root stays: it is the source, and may come back.
bool db_folder_remove_path(db_t *db, db_index_t *index, const char *path, u32 length) {
    db_folder_t *folder = db_folder_find_path(db, index, path, length);
    if (!folder || db_is_root(folder))
        return false;
    db_folder_remove(db, folder);
    return true;
}

// --- Rename ------------------------------------------------------------------------------------------------

db_file_t *db_file_rename_path(db_t *db, db_index_t *index, const char *path, u32 length,
                               const char *new_path, u32 new_length, const db_file_info_t *info, u64 date) {
    db_file_t *file = db_file_find_path(db, index, path, length);
    if (!file)
        return nullptr;
    _db_path_t split = _db_split_path(db, index, new_path, new_length);
    if (!split.parent) {
        db_file_remove_item(db, file);
        return nullptr;
    }
    if (db_folder_t *other = db_folder_find(db, index, split.parent, split.name, split.length)) {
        mem_ref_t ref = mem_ref(other);
        bool is_below = db_item_is_below(file, &ref, 1);
        db_folder_remove(db, other);
        if (is_below)
            return nullptr;
    }
    file = db_file_rename(db, file, split.parent, split.name, split.length, date);
    if (file && info)
        db_file_update_info(db, file, info, DB_LIVE_NO_DATE);
    return file;
}

db_folder_t *db_folder_rename_path(db_t *db, db_index_t *index, const char *path, u32 length,
                                   const char *new_path, u32 new_length, const db_file_info_t *info,
                                   u64 date) {
    db_folder_t *folder = db_folder_find_path(db, index, path, length);
    if (!folder || db_is_root(folder))
        return nullptr;
    _db_path_t split = _db_split_path(db, index, new_path, new_length);
    if (!split.parent) {
        db_folder_remove(db, folder);
        return nullptr;
    }
    _db_remove_other_file(db, index, &split);
    return db_folder_move(db, folder, split.parent, split.name, split.length, info, date);
}

} // namespace findwright
