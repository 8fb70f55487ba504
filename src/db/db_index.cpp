#include "db/db_index.h"

#include "base/mem.h"
#include "db/db.h"
#include "os/debug.h"

#include <cstring>

namespace findwright {

db_index_t *db_index_alloc(db_index_type_t type, u32 size) {
    db_index_t *index = static_cast<db_index_t *>(mem_arena_alloc(size));
    std::memset(index, 0, size);
    index->type = type;
    index->size = size;
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

static void _db_index_free_text(char *text) {
    if (text)
        mem_free(text);
}

void db_index_destroy(db_index_t *index) {
    if (index->type == DB_INDEX_TYPE_NTFS || index->type == DB_INDEX_TYPE_REFS) {
        db_index_volume_t *volume = static_cast<db_index_volume_t *>(index);
        _db_index_free_text(volume->guid);
        _db_index_free_text(volume->path);
        _db_index_free_text(volume->root);
        _db_index_free_text(volume->include_only);
    }
    mem_arena_free(index, index->size);
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
