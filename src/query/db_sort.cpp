// Brings results to an order: by reversal; by walking an array of the database that is in that order and
// picking the results out of it, which compares nothing; or by gathering their keys and sorting those
// (db_sort_gather.cpp).
#include "base/mem.h"
#include "db/db_item_set.h"
#include "os/debug.h"
#include "os/os.h"
#include "os/os_parallel.h"
#include "query/db_sort_internal.h"
#include "track/db_recent_change.h"
#include "track/db_run_history.h"

namespace findwright {

// --- The codes ---------------------------------------------------------------------------------------------

u32 db_sort_get_fast_flag(u32 sort) {
    switch (sort & ~DB_SORT_DESCENDING) {
    case DB_SORT_NAME_ASCENDING:
    case DB_SORT_RUN_COUNT_ASCENDING:
    case DB_SORT_DATE_RECENTLY_CHANGED_ASCENDING:
    case DB_SORT_DATE_RUN_ASCENDING: return 0;
    case DB_SORT_PATH_ASCENDING: return DB_FLAG_FAST_PATH;
    case DB_SORT_SIZE_ASCENDING: return DB_FLAG_FAST_SIZE;
    case DB_SORT_EXTENSION_ASCENDING: return DB_FLAG_FAST_EXTENSION;
    case DB_SORT_DATE_CREATED_ASCENDING: return DB_FLAG_FAST_DATE_CREATED;
    case DB_SORT_DATE_MODIFIED_ASCENDING: return DB_FLAG_FAST_DATE_MODIFIED;
    case DB_SORT_ATTRIBUTES_ASCENDING: return DB_FLAG_FAST_ATTRIBUTES;
    case DB_SORT_DATE_ACCESSED_ASCENDING: return DB_FLAG_FAST_DATE_ACCESSED;
    default: return ~0u;
    }
}

db_history_kind_t db_sort_get_history_kind(u32 sort) {
    switch (sort & ~DB_SORT_DESCENDING) {
    case DB_SORT_DATE_RECENTLY_CHANGED_ASCENDING: return DB_HISTORY_RECENT_CHANGES;
    case DB_SORT_RUN_COUNT_ASCENDING:
    case DB_SORT_DATE_RUN_ASCENDING: return DB_HISTORY_RUNS;
    default: return DB_HISTORY_NONE;
    }
}

bool db_sort_is_reversed(u32 sort) {
    bool is_odd = sort & DB_SORT_DESCENDING;
    return db_sort_get_history_kind(sort) == DB_HISTORY_NONE ? is_odd : !is_odd;
}

bool db_is_fast_sort(const db_query_t *, u32 sort) {
    switch (sort & ~DB_SORT_DESCENDING) {
    case DB_SORT_NAME_ASCENDING:
    case DB_SORT_RUN_COUNT_ASCENDING:
    case DB_SORT_DATE_RECENTLY_CHANGED_ASCENDING:
    case DB_SORT_DATE_RUN_ASCENDING: return true;
    case DB_SORT_PATH_ASCENDING: return fast_path_sort != 0;
    case DB_SORT_SIZE_ASCENDING: return index_size && fast_size_sort;
    case DB_SORT_EXTENSION_ASCENDING: return fast_extension_sort != 0;
    case DB_SORT_DATE_CREATED_ASCENDING: return index_date_created && fast_date_created_sort;
    case DB_SORT_DATE_MODIFIED_ASCENDING: return index_date_modified && fast_date_modified_sort;
    case DB_SORT_ATTRIBUTES_ASCENDING: return index_attributes && fast_attributes_sort;
    case DB_SORT_DATE_ACCESSED_ASCENDING: return index_date_accessed && fast_date_accessed_sort;
    default: return false;
    }
}

// The history that an order begins with, largest and newest first.
static const array_t *_db_sort_get_history(const db_t *db, u32 sort) {
    switch (sort & ~DB_SORT_DESCENDING) {
    case DB_SORT_RUN_COUNT_ASCENDING: return &db->run_history_links_by_count;
    case DB_SORT_DATE_RUN_ASCENDING: return &db->run_history_links_by_date;
    case DB_SORT_DATE_RECENTLY_CHANGED_ASCENDING: return &db->recent_changes_by_date;
    default: return nullptr;
    }
}

// --- The walk ----------------------------------------------------------------------------------------------

static mem_ref_t _db_get_history_item(db_history_kind_t kind, u32 value) {
    return kind == DB_HISTORY_RECENT_CHANGES ? mem_ptr<const db_recent_change_t>(value)->item
                                             : mem_ptr<const db_run_history_ptr_t>(value)->item;
}

// Appends to a builder.
static void _db_append(array_t *picked, const u32 *values, u32 count, u32 **cursor, u32 **end) {
    while (count != 0) {
        if (*cursor == *end)
            *cursor = array_builder_new_page(picked, end);
        u32 room = static_cast<u32>(*end - *cursor), piece = count < room ? count : room;
        std::memcpy(*cursor, values, piece * sizeof *values);
        *cursor += piece;
        values += piece;
        count -= piece;
    }
}

static void _db_add_all(db_item_set_t *set, const array_t *results) {
    for (u32 page = 0; page < results->page_count; page++) {
        const u32 *values = array_page_values(results->pages[page]);
        for (u32 i = 0; i < results->pages[page]->item_count; i++)
            db_item_set_add(set, values[i]);
    }
}

// All results as a set: a bit for each, in some megabytes that stay in the caches, where marks in the records
// themselves would be one miss of the memory for each item of the index.
static db_item_set_t *_db_get_result_set(const db_query_t *query) {
    mem_ref_t first = ~static_cast<mem_ref_t>(0), last = 0;
    db_item_set_widen(&query->folder_results, &first, &last);
    db_item_set_widen(&query->file_results, &first, &last);
    u32 page = 0, value;
    for (i32 position = -1; array_next_to(&query->history_results, &page, &position, &value);) {
        mem_ref_t item = _db_get_history_item(query->history_kind, value);
        first = item < first ? item : first;
        last = item > last ? item : last;
    }
    db_item_set_t *set = db_item_set_create_range(first, last, db_item_set_get_shift(&query->db->layout));
    _db_add_all(set, &query->folder_results);
    _db_add_all(set, &query->file_results);
    page = 0;
    for (i32 position = -1; array_next_to(&query->history_results, &page, &position, &value);)
        db_item_set_add(set, _db_get_history_item(query->history_kind, value));
    return set;
}

struct _db_walk_t {
    const array_t *source;
    const db_item_set_t *set;
    bool reversed;
    array_t *picked; // one per part
};

// No branch on what the set says, which nobody can predict: every value is written, and stays where it is a
// member.
static u32 _db_pick(const db_item_set_t *set, const array_page_t *page, bool reversed, u32 *out) {
    const u32 *values = array_page_values(page);
    const db_item_set_t members = *set;
    u32 count = page->item_count, picked = 0;
    for (u32 i = 0; i < count; i++) {
        u32 value = values[reversed ? count - 1 - i : i];
        out[picked] = value;
        u32 is_known = value >= members.first && value < members.end;
        u32 bit = is_known ? (value - members.first) >> members.shift : 0;
        picked += is_known & static_cast<u32>(members.bits[bit / 64] >> bit % 64 & 1);
    }
    return picked;
}

static void _db_walk_proc(void *param, u32 part, u32 parts) {
    const _db_walk_t *walk = static_cast<const _db_walk_t *>(param);
    u64 pages = walk->source->page_count;
    u32 *cursor = nullptr, *end = nullptr, picks[ARRAY_PAGE_VALUES];
    array_t *picked = &walk->picked[part];
    array_init(picked);
    for (u64 step = pages * part / parts; step < pages * (part + 1) / parts; step++) {
        const array_page_t *page = walk->source->pages[walk->reversed ? pages - 1 - step : step];
        u32 count = _db_pick(walk->set, page, walk->reversed, picks);
        _db_append(picked, picks, count, &cursor, &end);
    }
    array_builder_finish(picked, cursor, end);
}

// Replaces `results` by the set's members in the order of `source`.
static void _db_walk(const array_t *source, const db_item_set_t *set, bool reversed, array_t *results) {
    u32 parts = os_get_thread_count(source->count, 65536);
    _db_walk_t walk = {source, set, reversed, static_cast<array_t *>(mem_alloc(parts * sizeof(array_t)))};
    os_parallel(parts, _db_walk_proc, &walk);
    array_clear(results);
    for (u32 i = 0; i < parts; i++) {
        array_take_pages(results, &walk.picked[i]);
        array_kill(&walk.picked[i]);
    }
    mem_free(walk.picked);
}

// Fills `results` with the entries of a history whose items are in the set, and takes these out of it.
static void _db_walk_history(const array_t *source, db_history_kind_t kind, db_item_set_t *set,
                             array_t *results) {
    array_clear(results);
    u32 *cursor = nullptr, *end = nullptr;
    u32 page = 0, value;
    for (i32 position = -1; array_next_to(source, &page, &position, &value);) {
        mem_ref_t item = _db_get_history_item(kind, value);
        if (!db_item_set_has(set, item))
            continue;
        db_item_set_remove(set, item);
        _db_append(results, &value, 1, &cursor, &end);
    }
    array_builder_finish(results, cursor, end);
}

static void _db_copy_all(array_t *results, const array_t *source, bool reversed) {
    array_clear(results);
    if (reversed)
        array_set_reversed(results, source);
    else
        array_copy(results, source);
}

bool _db_sort_by_walk(db_query_t *query, u32 sort) {
    db_array_pair_t arrays = db_get_sorted_arrays(query->db, db_sort_get_fast_flag(sort));
    if (!arrays.files)
        return false;
    const array_t *history = _db_sort_get_history(query->db, sort);
    db_history_kind_t kind = db_sort_get_history_kind(sort);
    bool reversed = db_sort_is_reversed(sort);
    u32 count = _db_query_count_results(query);
    if (!history && count == query->db->folder_name_array.count + query->db->file_name_array.count) {
        debug_printf("sort all results\n");
        _db_copy_all(&query->folder_results, arrays.folders, reversed);
        _db_copy_all(&query->file_results, arrays.files, reversed);
        array_clear(&query->history_results);
    } else if (count != 0) {
        db_item_set_t *set = _db_get_result_set(query);
        array_clear(&query->history_results);
        if (history) {
            _db_walk_history(history, kind, set, &query->history_results);
            if (reversed)
                array_reverse(&query->history_results);
        }
        _db_walk(arrays.folders, set, reversed, &query->folder_results);
        _db_walk(arrays.files, set, reversed, &query->file_results);
        db_item_set_free(set);
    }
    _db_sort_set(query, sort, kind);
    debug_printf("SET SORT 2 %d\n", sort);
    return true;
}

// --- The sort ----------------------------------------------------------------------------------------------

void _db_sort_set(db_query_t *query, u32 sort, db_history_kind_t kind) {
    query->sort = sort;
    query->history_kind = kind;
    query->folders_first = !db_sort_is_reversed(sort);
    query->sorted = 1;
}

void _db_sort_reverse(db_query_t *query) {
    for (array_t *results : {&query->history_results, &query->folder_results, &query->file_results})
        array_reverse(results);
    bit_array_reverse(&query->selection);
    query->folders_first = !query->folders_first;
    query->sort ^= DB_SORT_DESCENDING;
}

void db_sort_results(db_query_t *query, u32 sort) {
    u32 start = os_get_tick_count();
    debug_printf("set sort %d %d\n", query->sort, sort);
    bool is_changed = true;
    if (query->sorted && query->sort == sort) {
        debug_printf("already sorted\n");
        is_changed = false;
    } else if (query->sorted && query->sort == (sort ^ DB_SORT_DESCENDING)) {
        _db_sort_reverse(query);
        debug_printf("SET SORT 3 %d\n", sort);
    } else {
        _db_selection_keep(query);
        if (!_db_sort_few(query, sort) && !_db_sort_by_walk(query, sort))
            _db_sort_by_gathering(query, sort);
    }
    if (query->kept_selection || query->selection.size != _db_query_count_results(query))
        _db_selection_restore(query);
    if (is_changed)
        _db_query_post_results_changed(query);
    debug_printf("finished sort, time taken %f seconds\n", os_get_tick_count() - start);
}

} // namespace findwright
