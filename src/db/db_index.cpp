#include "db/db_index.h"

#include "base/mem.h"
#include "db/db.h"
#include "os/debug.h"

#include <cstring>

namespace findwright {

static u32 _db_index_size(db_index_type_t type) {
    switch (type) {
    case DB_INDEX_TYPE_FILE_LIST: return sizeof(db_index_file_list_t);
    case DB_INDEX_TYPE_FOLDER: return sizeof(db_index_folder_t);
    default: return sizeof(db_index_volume_t);
    }
}

db_index_t *db_index_alloc(db_index_type_t type) {
    u32 size = _db_index_size(type);
    db_index_t *index = static_cast<db_index_t *>(mem_arena_alloc(size));
    std::memset(static_cast<void *>(index), 0, size);
    index->type = type;
    if (type == DB_INDEX_TYPE_FOLDER) {
        db_index_folder_t *folder = static_cast<db_index_folder_t *>(index);
        folder->monitor = 1;
        folder->buffer_size = DB_INDEX_FOLDER_BUFFER_SIZE;
        folder->update_type = DB_INDEX_FOLDER_UPDATE_TYPE;
        folder->update_value = DB_INDEX_FOLDER_UPDATE_VALUE;
    }
    return index;
}

void _db_index_add(db_t *db, db_index_t *index, u32 out_of_date) {
    index->db = db;
    index->ordinal = db->index_count;
    index->out_of_date = out_of_date;
    index->next = nullptr;
    (db->index_last ? db->index_last->next : db->index_first) = index;
    db->index_last = index;
    db->index_count++;
    debug_printf("_db_index_add %d: %d, %p\n", index->ordinal, static_cast<u32>(index->type), index);
}

db_index_t *db_index_get(const db_t *db, u32 ordinal) {
    db_index_t *index = db->index_first;
    for (; index && ordinal; ordinal--)
        index = index->next;
    return index;
}

const char *db_index_get_file_list_filename(const db_index_t *index) {
    return index->type == DB_INDEX_TYPE_FILE_LIST ? static_cast<const db_index_file_list_t *>(index)->filename
                                                  : "";
}

// --- Looking up --------------------------------------------------------------------------------------------

static bool _db_index_is_text(const char *text, const char *other) {
    return std::strcmp(text ? text : "", other ? other : "") == 0;
}

static db_index_volume_t *_db_index_find_volume(const db_t *db, db_index_type_t type, const char *guid,
                                                const char *path, const char *root,
                                                const char *include_only) {
    db_index_volume_t *found = nullptr;
    for (db_index_t *index = db->index_first; index; index = index->next) {
        db_index_volume_t *volume = static_cast<db_index_volume_t *>(index);
        if (index->type != type || !_db_index_is_text(volume->guid, guid) ||
            !_db_index_is_text(volume->path, path) || !_db_index_is_text(volume->root, root) ||
            !_db_index_is_text(volume->include_only, include_only))
            continue;
        if (!index->out_of_date)
            return volume;
        if (!found)
            found = volume;
    }
    return found;
}

db_index_volume_t *db_index_find_ntfs(const db_t *db, const char *guid, const char *path, const char *root,
                                      const char *include_only) {
    return _db_index_find_volume(db, DB_INDEX_TYPE_NTFS, guid, path, root, include_only);
}

db_index_volume_t *db_index_find_refs(const db_t *db, const char *guid, const char *path, const char *root,
                                      const char *include_only) {
    return _db_index_find_volume(db, DB_INDEX_TYPE_REFS, guid, path, root, include_only);
}

db_index_file_list_t *db_index_find_file_list(const db_t *db, const char *filename, bool monitor) {
    for (db_index_t *index = db->index_first; index; index = index->next) {
        db_index_file_list_t *list = static_cast<db_index_file_list_t *>(index);
        if (index->type == DB_INDEX_TYPE_FILE_LIST && _db_index_is_text(list->filename, filename) &&
            (list->monitor != 0) == monitor)
            return list;
    }
    return nullptr;
}

db_index_folder_t *db_index_find_folder(const db_t *db, const db_index_folder_t *like) {
    for (db_index_t *index = db->index_first; index; index = index->next) {
        db_index_folder_t *folder = static_cast<db_index_folder_t *>(index);
        if (index->type == DB_INDEX_TYPE_FOLDER && _db_index_is_text(folder->path, like->path) &&
            folder->monitor == like->monitor && folder->buffer_size == like->buffer_size &&
            folder->rescan_if_full == like->rescan_if_full && folder->update_type == like->update_type &&
            folder->update_value == like->update_value)
            return folder;
    }
    return nullptr;
}

// --- The end -----------------------------------------------------------------------------------------------

static void _db_index_free_text(char *text) {
    if (text)
        mem_free(text);
}

void db_index_destroy(db_index_t *index) {
    switch (index->type) {
    case DB_INDEX_TYPE_FILE_LIST:
        _db_index_free_text(static_cast<db_index_file_list_t *>(index)->filename);
        break;
    case DB_INDEX_TYPE_FOLDER: _db_index_free_text(static_cast<db_index_folder_t *>(index)->path); break;
    default: {
        db_index_volume_t *volume = static_cast<db_index_volume_t *>(index);
        for (char *text : {volume->guid, volume->path, volume->root, volume->include_only})
            _db_index_free_text(text);
    }
    }
    mem_arena_free(index, _db_index_size(index->type));
}

void db_index_destroy_all(db_t *db) {
    for (db_index_t *index = db->index_first; index;) {
        db_index_t *next = index->next;
        db_index_destroy(index);
        index = next;
    }
    db->index_first = db->index_last = nullptr;
    db->index_count = 0;
}

} // namespace findwright
