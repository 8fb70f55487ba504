#include "query/db_ghost.h"

#include "base/mem.h"
#include "db/db_item_set.h"
#include "os/os.h"
#include "query/db_live_result.h"

#include <algorithm>

namespace findwright {

static int _db_ghost_compare(u32 value, const void *key) {
    mem_ref_t item = *static_cast<const mem_ref_t *>(key);
    return value < item ? -1 : value > item;
}

bool _db_ghost_has_item(const db_query_t *query, const db_item_t *item) {
    mem_ref_t key = mem_ref(item);
    return array_exists(&query->ghost_folders, _db_ghost_compare, &key) ||
           array_exists(&query->ghost_files, _db_ghost_compare, &key);
}

// Fills an array from references of any order.
static void _db_ghost_fill(array_t *array, mem_ref_t *items, u32 count) {
    std::sort(items, items + count);
    array_set_from_memory(array, items, count);
}

// The ghosts are none any more, and remain in the results whatever the terms say of them.
static void _db_ghost_leave_results(db_query_t *query) {
    query->live_result->has_strays |= query->ghost_folders.count + query->ghost_files.count != 0;
}

void db_ghost_selection(db_query_t *query) {
    if (!_db_query_begin_read(query, "db_ghost_selection"))
        return;
    u32 count = query->selection.count, folder_count = 0, file_count = 0;
    // Folders from the front, files behind them.
    mem_ref_t *items = static_cast<mem_ref_t *>(mem_alloc((static_cast<size_t>(count) + 1) * sizeof *items));
    _db_query_visit_selected(query, [&](const array_t *array, u32 value) {
        db_result_t result = _db_query_get_value_result(query, array, value);
        items[result.is_folder ? folder_count++ : count - ++file_count] = mem_ref(result.item);
    });
    _db_ghost_leave_results(query);
    _db_ghost_fill(&query->ghost_folders, items, folder_count);
    _db_ghost_fill(&query->ghost_files, items + folder_count, file_count);
    mem_free(items);
}

bool db_is_ghost_result(db_query_t *query, i32 index) {
    if (!_db_query_begin_read(query, "db_is_ghost_result"))
        return false;
    const db_item_t *item = db_get_result_item(query, index);
    return item && _db_ghost_has_item(query, item);
}

void db_clear_ghosts(db_query_t *query) {
    if (!_db_query_begin_read(query, "db_clear_ghosts"))
        return;
    _db_ghost_leave_results(query);
    array_clear(&query->ghost_folders);
    array_clear(&query->ghost_files);
}

void db_ghost_remove(db_query_t *query, const db_item_t *item) {
    mem_ref_t key = mem_ref(item);
    array_remove_exists(&query->ghost_folders, _db_ghost_compare, &key);
    array_remove_exists(&query->ghost_files, _db_ghost_compare, &key);
}

static void _db_ghost_keep_others(array_t *ghosts, const db_item_set_t *gone) {
    mem_ref_t *items = static_cast<mem_ref_t *>(mem_alloc((ghosts->count + size_t{1}) * sizeof *items));
    u32 count = 0, page = 0, value;
    for (i32 position = -1; array_next_to(ghosts, &page, &position, &value);) {
        if (!db_item_set_has(gone, value))
            items[count++] = value;
    }
    if (count != ghosts->count)
        array_set_from_memory(ghosts, items, count);
    mem_free(items);
}

void db_ghost_remove_many(db_query_t *query, const db_item_set_t *folders, const db_item_set_t *files) {
    _db_ghost_keep_others(&query->ghost_folders, folders);
    _db_ghost_keep_others(&query->ghost_files, files);
}

void db_ghost_move(db_query_t *query, const db_item_t *item, const db_item_t *to) {
    mem_ref_t key = mem_ref(item), new_key = mem_ref(to);
    for (array_t *ghosts : {&query->ghost_folders, &query->ghost_files}) {
        if (array_remove_exists(ghosts, _db_ghost_compare, &key))
            array_insert(ghosts, _db_ghost_compare, &new_key, new_key);
    }
}

// Adds those ghosts behind the results that are not among them.
static bool _db_ghost_add_missing(array_t *results, const array_t *ghosts) {
    if (ghosts->count == 0)
        return false;
    db_item_set_t *known = db_item_set_create(ghosts), *found = db_item_set_create_like(known);
    u32 page = 0, value;
    for (i32 position = -1; array_next_to(ghosts, &page, &position, &value);)
        db_item_set_add(known, value);
    page = 0;
    for (i32 position = -1; array_next_to(results, &page, &position, &value);) {
        if (db_item_set_has(known, value))
            db_item_set_add(found, value);
    }
    array_t missing;
    array_init(&missing);
    u32 *cursor = nullptr, *end = nullptr;
    page = 0;
    for (i32 position = -1; array_next_to(ghosts, &page, &position, &value);) {
        if (db_item_set_has(found, value))
            continue;
        if (cursor == end)
            cursor = array_builder_new_page(&missing, &end);
        *cursor++ = value;
    }
    array_builder_finish(&missing, cursor, end);
    bool is_changed = missing.count != 0;
    array_take_pages(results, &missing);
    array_kill(&missing);
    db_item_set_free(known);
    db_item_set_free(found);
    return is_changed;
}

bool _db_ghost_merge(db_query_t *query) {
    bool folders = _db_ghost_add_missing(&query->folder_results, &query->ghost_folders);
    bool files = _db_ghost_add_missing(&query->file_results, &query->ghost_files);
    return folders || files;
}

} // namespace findwright
