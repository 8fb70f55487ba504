#include "index/db_wanted.h"

#include "base/mem.h"
#include "base/utf8.h"

#include <cstring>

namespace findwright {

void db_wanted_init(db_wanted_t *wanted) {
    wanted->first = wanted->last = nullptr;
    wanted->index_flags = 0;
    db_exclude_init(&wanted->exclude);
}

void db_wanted_kill(db_wanted_t *wanted) {
    for (db_source_t *source = wanted->first; source;) {
        db_source_t *next = source->next;
        db_source_destroy(source);
        source = next;
    }
    db_exclude_kill(&wanted->exclude);
    db_wanted_init(wanted);
}

void db_source_destroy(db_source_t *source) {
    if (source->volume)
        os_volume_close(source->volume);
    if (source->index)
        db_index_destroy(source->index);
    mem_free(source);
}

static db_source_t *_db_wanted_add(db_wanted_t *wanted, db_index_type_t type) {
    db_source_t *source = static_cast<db_source_t *>(mem_alloc(sizeof *source));
    std::memset(source, 0, sizeof *source);
    source->index = db_index_alloc(type);
    source->index->ordinal = wanted->last ? wanted->last->index->ordinal + 1 : 0;
    (wanted->last ? wanted->last->next : wanted->first) = source;
    wanted->last = source;
    return source;
}

db_source_t *db_wanted_add_volume(db_wanted_t *wanted, const char *guid, const char *path, const char *root,
                                  const char *include_only) {
    db_source_t *source = _db_wanted_add(wanted, DB_INDEX_TYPE_NTFS);
    db_index_volume_t *index = static_cast<db_index_volume_t *>(source->index);
    index->guid = utf8_alloc_copy(guid);
    index->path = utf8_alloc_copy(path);
    index->root = utf8_alloc_copy(root);
    index->include_only = utf8_alloc_copy(include_only);
    return source;
}

db_source_t *db_wanted_add_file_list(db_wanted_t *wanted, const char *filename, bool monitor) {
    db_source_t *source = _db_wanted_add(wanted, DB_INDEX_TYPE_FILE_LIST);
    db_index_file_list_t *index = static_cast<db_index_file_list_t *>(source->index);
    index->filename = utf8_alloc_copy(filename);
    index->monitor = monitor;
    return source;
}

db_source_t *db_wanted_add_folder(db_wanted_t *wanted, const char *path) {
    db_source_t *source = _db_wanted_add(wanted, DB_INDEX_TYPE_FOLDER);
    static_cast<db_index_folder_t *>(source->index)->path = utf8_alloc_copy(path);
    return source;
}

void db_wanted_clean_path(const char *path, utf8_buf_t *out) {
    utf8_buf_get_full_path(out, path, utf8_length(path), "", 0);
    // A root keeps it: without, it would be another folder, or none.
    if (utf8_get_root_length(out->data, static_cast<u32>(out->length)) + 1 < static_cast<u32>(out->length))
        utf8_buf_remove_trailing_separator(out);
}

} // namespace findwright
