// What the files of the run history share.
#pragma once

#include "base/pointer_pool.h"
#include "track/db_run_history.h"

namespace findwright {

// The order of paths, and what counts as the same one: 0. A path of a POSIX system itself is another one when
// a letter's case differs; elsewhere case does not matter.
int _db_run_history_compare_path(const char *a, u32 a_length, const char *b, u32 b_length);

// Appends the items of a name array that have a path (db_run_history_find.cpp).
void _db_run_history_find_items(const array_t *names, const char *path, u32 length, pointer_pool_t *out);

// Comparisons of array_t; the key of the first is a _db_run_history_path_t, of the others a record.
struct _db_run_history_path_t {
    const char *text;
    u32 length;
};
int _db_run_history_compare_name(u32 value, const void *key);
int _db_run_history_compare_entry_count(u32 value, const void *key);
int _db_run_history_compare_item(u32 value, const void *key);
int _db_run_history_compare_count(u32 value, const void *key);
int _db_run_history_compare_date(u32 value, const void *key);

db_run_history_data_t *_db_run_history_new_entry(db_t *db, const char *path, u32 length, u32 count, u64 date);
void _db_run_history_free_entry(db_t *db, db_run_history_data_t *entry);
db_run_history_ptr_t *_db_run_history_new_link(db_t *db, db_run_history_data_t *entry, mem_ref_t item,
                                               bool is_folder);
db_run_history_data_t *_db_run_history_find_entry(const db_t *db, const char *path, u32 length);
// Takes an entry without links away; what the file has stays as an entry of count 0, until it is written.
void _db_run_history_remove_entry(db_t *db, db_run_history_data_t *entry);

// Items that change, folders in front.
struct _db_run_items_t {
    pointer_pool_t pool;
    u32 folder_count, count;
};
template<class Visit>
void _db_run_items_for_each(const _db_run_items_t *items, Visit visit) {
    for (u32 i = 0; i < items->count; i++)
        visit(db_item(pointer_pool_get(&items->pool, i)), i < items->folder_count);
}
// Tells the queries.
void _db_run_items_leave(db_t *db, const _db_run_items_t *items);
void _db_run_items_enter(db_t *db, const _db_run_items_t *items);

// It differs from its file from now on, and is written after a while (db_run_history_file.cpp).
void _db_run_history_set_dirty(db_t *db);

} // namespace findwright
